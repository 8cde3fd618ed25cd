# shellcheck shell=bash disable=SC2154
# What is published, walked as an installation does: here, or as it is served.

check_usage() {
    cat <<'END'
Usage: tarnwick-publish [--home DIR] check [--from URL... [OPTION...]]

Walks the public tree as an installation does and names all damage: keys,
owners, rights along the whole path, the mirror, every signature, and that the
scripts lead from the oldest version to the newest.

With --from it asks servers instead, as installations do, through signed links
over HTTPS: --from https://one.example.org https://two.example.org. A URL that
names neither host of the installations is a server that stands for both. They
are not asked for the mirror. Certificates are checked with the system's
authorities (or CURL_CA_BUNDLE).

  --content-host HOST     these three as given to site; without them,
  --links-host HOST       as they were given to it last
  --link-secret TEXT
END
}

# Servers have a say in what is wrong with them, and none in how a terminal shows it.
damage() {
    printf 'Damaged: %s%s\n' "$where" "${1//[[:cntrl:]]/?}"
    damages=$((damages + 1))
}

check_keys() {
    if [[ ! -f $private_key ]]; then
        damage "private.pem is lost; put back the key with the fingerprint $(fingerprint "$public_key")"
        return 0
    fi
    [[ $(stat -c %a "$private_key") == 600 ]] || damage "private.pem can be read by others; chmod 600 it"
    { openssl pkey -in "$private_key" -pubout -out "$work/public" &&
        cmp -s "$work/public" "$public_key"; } 2>/dev/null ||
        damage "public.pem is not the public half of private.pem"
    [[ -f $public_key && $(one_line "$public_key") == "$(cat "$one_line_key" 2>/dev/null)" ]] ||
        damage "public-one-line.pem is not public.pem on one line"
}

# A plain file in the place of a link would stay when the next release comes.
check_link() {
    local link=$1
    [[ $(readlink "$link") == "current/${link##*/}" ]] || damage "${link##*/} is no link to current/${link##*/}"
}

# Verifies every signature there is, once: `unfit` holds the files it does not fit.
verify_signatures() {
    local file
    unfit=()
    while read -r file; do
        unfit[$file]=1
    done < <(for file in "$tree/Vestrum.database" "$scripted"/VestRUM.cud "$scripted"/VestRUM-*.script; do
        [[ ! -f $file || ! -f $file.signature ]] || printf '%s\n' "$file"
    done | unfitting)
}

# Whether ClamAV's programs may read a file: of a server's only what fits its
# signature, because sigtool writes wherever a script says.
may_be_tried() {
    [[ -z $where || -f $1 && -f $1.signature && -z ${unfit[$1]:-} ]]
}

# A published file and its signature, which are of no use without each other.
check_pair() {
    local file=$1 name=${1##*/}
    if [[ ! -f $file && ! -f $file.signature ]]; then
        damage "$name is missing"
    elif [[ ! -f $file ]]; then
        damage "$name is missing, and its signature is there"
    elif [[ ! -s $file && $name == *.script ]]; then
        damage "$name is empty"
    elif [[ ! -f $file.signature ]]; then
        damage "$name has no signature"
    elif [[ -n ${unfit[$file]:-} ]]; then
        damage "$name does not fit its signature"
    fi
}

check_container() {
    local container=$scripted/VestRUM.cud announced
    version=0
    check_pair "$container"
    [[ -f $container ]] || return 0
    read_header "$container" || { damage "VestRUM.cud has no header of a container"; return 0; }
    version=${header[2]}
    announced=$(head -c 99 "$scripted/VestRUM-db-version.txt" 2>/dev/null | tr -d '\0') || announced=nothing
    [[ $announced == "VestRUM:$version" ]] ||
        damage "VestRUM-db-version.txt says \"$announced\", and the container is version $version"
    may_be_tried "$container" || return 0
    try_as_installations_do "$container" || case $? in
        1) damage "VestRUM.cud: $(why_refused)" ;;
        *) damage "ClamAV cannot load VestRUM.cud" ;;
    esac
}

# Every installation is at some version since the oldest kept, or fetches the
# whole container; all of them follow the scripts to the newest, so one walk
# from the oldest meets each of their steps.
check_scripts() {
    local number script gap=0
    for ((number = oldest + 1; number <= version; number++)); do
        script=$scripted/VestRUM-$number.script
        check_pair "$script"
        { [[ -s $script ]] && may_be_tried "$script"; } || ((gap)) || gap=$number
    done
    if ! unpack "$first_container" "$work/replay"; then
        damage "first.cud cannot be unpacked, so no script can be tried"
        return 0
    fi
    if ! replay "$scripted" "$work/replay" "$oldest" $((gap ? gap - 1 : version)); then
        [[ -n $stopped_at ]] || { damage "the scripts do not apply: $(first_error "$work/report")"; return 0; }
        damage "VestRUM-$stopped_at.script does not apply to version $((stopped_at - 1))"
        gap=$stopped_at
    fi
    if ((gap)); then
        ((gap == version)) || echo "Not tried: the scripts after VestRUM-$gap.script, which need its result"
        return 0
    fi
    may_be_tried "$scripted/VestRUM.cud" || return 0
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
            [[ ! $number =~ ^[1-9][0-9]{0,17}$ ]] || ((number <= oldest || number > version)) || continue
            ;;
        esac
        if [[ $number == "$((version + 1))" && $name == VestRUM-*.script* ]]; then
            echo "Left over: $name, which the next release replaces"
        elif [[ $number =~ ^[1-9][0-9]{0,17}$ ]] && ((1 < number && number <= oldest)); then
            echo "Left over: $name, which the next prune removes"
        else
            damage "$name belongs to no version up to $version"
        fi
    done
}

# The oldest version that scripts lead on from.
oldest_version() {
    oldest=1
    ! read_header "$first_container" || oldest=${header[2]}
}

check_links() {
    local name
    for name in VestRUM.cud VestRUM.cud.signature VestRUM-db-version.txt; do
        check_link "$scripted/$name"
    done
    check_link "$tree/Vestrum.database"
    check_link "$tree/Vestrum.database.signature"
}

# What a served copy and the home itself have in common. Of a served version that
# is newer than what is `here`, no scripts are known.
check_published() {
    local -A unfit
    verify_signatures
    check_container
    ((version == 0 || version > ${here:-$version})) || check_scripts
    if [[ -e $home/site/VestRUM2/current ]]; then
        check_pair "$tree/Vestrum.database"
    fi
}

check_here() {
    check_keys
    check_links
    check_access
    check_mirror
    check_published
    check_strangers
}

check_tree() {
    local damages=0 where='' here='' version oldest withdrawn=published
    open_home "$1"
    anything_released || fail "nothing is released yet" "begin with: tarnwick-publish --home $home release FOLDER"
    lock_home
    oldest_version
    check_here
    [[ -e $tree/current ]] || withdrawn="not published yet"
    [[ ! -e $tree/current || -s $tree/Vestrum.database ]] || withdrawn=withdrawn
    ((damages == 0)) ||
        fail "$(counted "$damages" thing) found; put right from a copy of $home what cannot be published anew"
    printf 'All is well: version %s, %s, definitions file %s.\n' \
        "$version" "$(counted "$((version > oldest ? version - oldest : 0))" script)" "$withdrawn"
}
