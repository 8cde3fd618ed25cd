# shellcheck shell=bash disable=SC2154
# The public tree, walked as an installation does.

damage() {
    printf 'Damaged: %s\n' "$1"
    damages=$((damages + 1))
}

check_keys() {
    if [[ ! -f $private_key ]]; then
        damage "private.pem is lost; put back the key with the fingerprint $(fingerprint "$public_key")"
        return 0
    fi
    [[ $(stat -c %a "$private_key") == 600 ]] || damage "private.pem can be read by others; chmod 600 it"
    { openssl pkey -in "$private_key" -pubout -out "$work/public" && cmp -s "$work/public" "$public_key"; } 2>/dev/null ||
        damage "public.pem is not the public half of private.pem"
    [[ -f $public_key && $(one_line "$public_key") == "$(cat "$one_line_key" 2>/dev/null)" ]] ||
        damage "public-one-line.pem is not public.pem on one line"
}

# A plain file in the place of a link would stay when the next release comes.
check_link() {
    local link=$1
    [[ $(readlink "$link") == "current/${link##*/}" ]] || damage "${link##*/} is no link to current/${link##*/}"
}

# A published file and its signature, which are of no use without each other.
check_pair() {
    local file=$1 name=${1##*/}
    if [[ ! -f $file && ! -f $file.signature ]]; then
        damage "$name is missing"
    elif [[ ! -f $file ]]; then
        damage "$name is missing, and its signature is there"
    elif [[ ! -f $file.signature ]]; then
        damage "$name has no signature"
    elif ! signature_is_good "$file"; then
        damage "$name does not fit its signature"
    else
        return 0
    fi
    return 1
}

check_container() {
    local container=$scripted/VestRUM.cud announced
    version=0
    check_link "$container"
    check_link "$container.signature"
    check_link "$scripted/VestRUM-db-version.txt"
    check_pair "$container" || true
    [[ -f $container ]] || return 0
    read_header "$container" || { damage "VestRUM.cud has no header of a container"; return 0; }
    version=${header[2]}
    announced=$(cat "$scripted/VestRUM-db-version.txt" 2>/dev/null) || announced=nothing
    [[ $announced == "VestRUM:$version" ]] ||
        damage "VestRUM-db-version.txt says \"$announced\", and the container is version $version"
    try_as_installations_do "$container" || case $? in
        1) damage "VestRUM.cud: $(why_refused)" ;;
        *) damage "ClamAV cannot load VestRUM.cud" ;;
    esac
}

# Every installation is at some version since the first; all of them follow the
# scripts to the newest, so one walk from the first meets each of their steps.
check_scripts() {
    local number script replay=true
    unpack "$first_container" "$work/replay" || { damage "first.cud cannot be unpacked, so no script can be tried"; replay=false; }
    for ((number = 2; number <= version; number++)); do
        script=$scripted/VestRUM-$number.script
        check_pair "$script" || true
        $replay || continue
        (cd "$work/replay" && test -f "$script" && sigtool --run-cdiff="$script") </dev/null >/dev/null 2>&1 && continue
        replay=false
        [[ ! -f $script ]] || damage "VestRUM-$number.script does not apply to version $((number - 1))"
        ((number == version)) || echo "Not tried: the scripts after VestRUM-$number.script, which need its result"
    done
    $replay || return 0
    { unpack "$scripted/VestRUM.cud" "$work/published" && diff -r "$work/replay" "$work/published"; } >/dev/null 2>&1 ||
        damage "the scripts lead to something else than VestRUM.cud"
}

# A release that was interrupted may have left one script, which nobody asks for
# and the next release replaces. Nothing else puts anything there.
check_strangers() {
    local entry name number
    for entry in "$scripted"/*; do
        name=${entry##*/}
        number=${name#VestRUM-}
        number=${number%%.*}
        case $name in
        current | VestRUM.cud | VestRUM.cud.signature | VestRUM-db-version.txt) continue ;;
        VestRUM-*.script | VestRUM-*.script.signature)
            [[ ! $number =~ ^[1-9][0-9]{0,17}$ ]] || ((number < 2 || number > version)) || continue
            ;;
        esac
        if [[ $number == "$((version + 1))" && $name == VestRUM-*.script* ]]; then
            echo "Left over: $name, which the next release replaces"
        else
            damage "$name belongs to no version up to $version"
        fi
    done
}

check_tree() {
    local damages=0 version withdrawn=published
    open_home "$1"
    if ! anything_released; then
        fail "nothing is released yet" "begin with: tarnwick-publish --home $home release FOLDER"
    fi
    lock_home
    check_keys
    check_container
    ((version == 0)) || check_scripts
    check_strangers
    check_link "$tree/Vestrum.database"
    check_link "$tree/Vestrum.database.signature"
    if [[ -e $tree/current ]]; then
        check_pair "$tree/Vestrum.database" || true
        [[ -s $tree/Vestrum.database ]] || withdrawn=withdrawn
    else
        withdrawn="not published yet"
    fi
    ((damages == 0)) || fail "$(counted "$damages" thing) found; put right from a copy of $home what cannot be published anew"
    printf 'All is well: version %s, %s, definitions file %s.\n' \
        "$version" "$(counted "$((version > 1 ? version - 1 : 0))" script)" "$withdrawn"
}
