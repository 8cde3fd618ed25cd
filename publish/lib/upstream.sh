# shellcheck shell=bash disable=SC2004,SC2034,SC2154
# What the mirror is filled with: containers and patches, fetched by a freshclam
# of the kit's own and tried before anybody sees them.

# A client further behind is better served with the whole container.
readonly PATCHES_KEPT=30 CLAMAVS_OWN=https://database.clamav.net

# One run at a time. It has a lock of its own, so that nobody who publishes waits
# for a download.
lock_upstream() {
    refuse_foreign_files
    [[ -d $mirror && -w $mirror ]] || fail "$mirror is no folder that $(id -un) can write to"
    mkdir -p "$upstream"
    # Whoever could open the lock could hold it.
    chmod 0700 "$upstream"
    exec 8>"$upstream/lock"
    flock -n 8 || {
        echo "Waiting for another tarnwick-publish mirror in $home" >&2
        flock 8
    }
    work=$upstream/work
    # With what a freshclam left that was cut short; what could not be had then may be there now.
    rm -rf -- "$work" "$upstream"/tmp.*
    find "$upstream" -name '*.cdiff' -empty -delete
    mkdir "$work"
    export TMPDIR=$work
}

# A private mirror is asked as ClamAV's own are: it would be asked for .cld files
# first, which ClamAV did not sign.
vendor_lines() {
    [[ ! -f $home/freshclam.conf ]] ||
        sed '/^[[:space:]]*DatabaseCustomURL/Id; s/^[[:space:]]*PrivateMirror/DatabaseMirror/I' "$home/freshclam.conf"
}

# The vendor's lines come last: of two values freshclam takes the first.
write_configuration() {
    printf '%s\n' "DatabaseDirectory \"$upstream\"" "DatabaseOwner root" "ScriptedUpdates no" "MaxAttempts 1" "$@"
    [[ $source != "$CLAMAVS_OWN" ]] || echo "DatabaseMirror $source"
    vendor_lines
}

# Where the patches are asked for, as freshclam itself does for containers.
find_source() {
    source=$(vendor_lines | sed -n 's/^[[:space:]]*DatabaseMirror[[:space:]]\+"\?\([^"[:space:]]*\).*/\1/Ip')
    source=${source%%$'\n'*}
    source=${source:-$CLAMAVS_OWN}
    [[ $source == *://* ]] || source=https://$source
    source=${source%/}
}

run_freshclam() {
    freshclam --config-file="$upstream/freshclam.conf" --stdout "$@" </dev/null >"$work/report" 2>&1
}

# What freshclam said first of what went wrong.
why_it_failed() {
    sed -n '/^ERROR: \|file not found\|Unexpected/{s/^[A-Z]*: //;p;q}' "$work/report" | presentable
}

# freshclam calls it a success to be told to come back later.
refuse_pause() {
    local pause
    pause=$(sed -n 's/.*\(cool-down until.*\)/\1/;T;p;q' "$work/report")
    [[ -z $pause ]] || fail "upstream asks for a pause; the mirror stays as it was" "freshclam is on $pause"
}

fetch_containers() {
    local record=()
    write_configuration >"$upstream/freshclam.conf"
    # ClamAV's record in DNS tells of ClamAV's servers, and of no other.
    [[ $source == *.clamav.net ]] || vendor_lines | grep -qi '^[[:space:]]*DNSDatabaseInfo' ||
        record=(--no-dns)
    run_freshclam "${record[@]}" || fail "freshclam failed with status $?; the mirror stays as it was" \
        "$(why_it_failed)"
    refuse_pause
}

container_is_good() {
    read_header "$1" && sigtool --info="$1" </dev/null 2>/dev/null | grep -q '^Verification OK'
}

# Settles of one database which container is to be served: the newer one of what
# is served and what freshclam has. What is served and damaged counts as nothing.
choose_container() {
    local name=$1 here=$mirror/$1.cvd fetched=$upstream/$1.cvd
    served[$name]=0
    if container_is_good "$here"; then
        served[$name]=${header[2]}
        version[$name]=${header[2]}
        container[$name]=$here
    fi
    read_header "$fetched" && ((header[2] > served[$name])) || return 0
    # freshclam verified it, and goes by the header alone from then on; a power cut may have taken the rest.
    container_is_good "$fetched" || {
        rm "$fetched"
        fail "$fetched does not fit ClamAV's signature any more and is removed; the mirror stays as it was" \
            "do the same again, so that it is fetched anew"
    }
    version[$name]=${header[2]}
    container[$name]=$fetched
}

choose_containers() {
    local file
    for file in "$mirror"/{main,daily,bytecode}.cvd "$mirror"/current/*.cvd "$upstream"/*.cvd; do
        file=${file##*/}
        # Else the name of a patch could be read as that of another database's.
        [[ $file =~ ^[A-Za-z0-9_]+\.cvd$ ]] || continue
        [[ -v served[${file%.cvd}] ]] || choose_container "${file%.cvd}"
    done
    ((${#container[@]})) || fail "freshclam fetched no containers" "is ExcludeDatabase in $home/freshclam.conf?"
}

# Asks for patches of a database until one is not to be had.
ask_for_patches() {
    local name=$1 number
    shift
    write_configuration "TestDatabases no" \
        "$(for number; do echo "DatabaseCustomURL $source/$name-$number.cdiff"; done)" >"$upstream/freshclam.conf"
    run_freshclam --no-dns --update-db=custom || true
    refuse_pause
}

# From the newest down, the patches that clients may need. Without the newest a
# client that is one version behind would wait for it, so that an empty one takes
# the place of one that upstream has not got, or has empty itself.
fetch_patches() {
    local name=$1 to=${version[$1]} from=${served[$1]} number wanted=()
    [[ ! -e $mirror/$name-$to.cdiff ]] || return 0
    for ((number = to; number > 1 && number > to - PATCHES_KEPT; number--)); do
        [[ ! -e $mirror/$name-$number.cdiff ]] || break
        wanted+=("$number")
    done
    while ((${#wanted[@]})); do
        number=${wanted[0]}
        if [[ ! -f $upstream/$name-$number.cdiff ]]; then
            ask_for_patches "$name" "${wanted[@]}"
        fi
        if [[ ! -f $upstream/$name-$number.cdiff ]]; then
            ((number == to || 0 < from && from < number)) || break
            grep -q 'file not found\|Empty file' "$work/report" ||
                fail "$name-$number.cdiff cannot be fetched; the mirror stays as it was" "$(why_it_failed)"
            : >"$upstream/$name-$number.cdiff"
        fi
        wanted=("${wanted[@]:1}")
    done
}

names_its_version() {
    local number=${1##*-}
    [[ $(head -c 64 "$1" | tr -d '\0') == "ClamAV-Diff:${number%.cdiff}:"* ]]
}

# sigtool applies a patch only if ClamAV signed it, to the result that it promises.
# What is of no use to clients, such as a patch as large as the container, becomes
# an empty patch. One that leads to a version before that which is served, or
# comes after an empty one, cannot be tried here; clients try all of them.
try_patches() {
    local name=$1 from=${served[$1]} to=${version[$1]} number patch limit whole=false
    limit=$(stat -Lc %s "${container[$name]}")
    if ((0 < from && from < to && to - PATCHES_KEPT <= from)); then
        unpack "$mirror/$name.cvd" "$work/$name" || fail "$mirror/$name.cvd cannot be unpacked"
        whole=true
    fi
    for ((number = to - PATCHES_KEPT + 1; number <= to; number++)); do
        patch=$upstream/$name-$number.cdiff
        if [[ -s $patch ]] && ! { names_its_version "$patch" && (($(stat -c %s "$patch") < limit)) &&
            { ! $whole || ((number <= from)) || apply "$work/$name" "$patch"; }; }; then
            ! disk_is_full || fail "$name-$number.cdiff cannot be tried"
            echo "Left out: $name-$number.cdiff, which is of no use to version $((number - 1))"
            : >"$patch"
        fi
        ((number <= from)) || [[ -s $patch ]] || whole=false
    done
    rm -rf -- "${work:?}/$name"
}
