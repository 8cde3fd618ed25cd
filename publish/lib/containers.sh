# shellcheck shell=bash disable=SC2154
# Containers: read, taken apart and tried.

# The header of a container, its nine fields in the array `header`.
read_header() {
    local text
    header=()
    [[ -f $1 && -r $1 ]] || return 1
    text=$(head -c 512 "$1" | tr -d '\0')
    IFS=: read -r -a header <<<"$text"
    [[ ${header[0]:-} == ClamAV-VDB && ${header[2]:-} =~ ^[1-9][0-9]{0,17}$ ]]
}

# Takes a container apart into a new folder, and refuses one that brings more than
# plain files: what scripts write through a hard link reaches any file.
unpack() {
    local odd
    mkdir "$2"
    (cd "$2" && sigtool --unpack="$1") </dev/null >/dev/null 2>&1 &&
        odd=$(find "$2" -mindepth 1 ! \( -type f -links 1 \) -print -quit) && [[ -z $odd ]]
}

# What every installation does with a file before it takes it: the scanner gets
# it as its only database, and its own program to scan.
try_as_installations_do() {
    local scanner
    scanner=$(type -P clamscan)
    # What bash says of a scanner that was killed adds nothing.
    { clamscan --no-summary --infected -d "$1" "$scanner" </dev/null >"$work/trial" 2>&1; } 2>/dev/null
}

# What a program of ClamAV's said first of what went wrong.
first_error() {
    sed -n '/rror/{p;q}' "$1" | cut -c -200
}

# Why the last try failed, in one line.
why_refused() {
    local found
    found=$(sed -n 's/.*: \(.*\) FOUND$/\1/p' "$work/trial")
    if [[ -n $found ]]; then
        printf '%s matches the scanner itself, so that every installation would refuse it' "${found//$'\n'/, }"
    else
        first_error "$work/trial"
    fi
}

# Makes a container of what was unpacked from one, in the way of installations.
pack() {
    local folder=$1 container=$2 sum line
    (cd "$folder" && tar -czf "$work/packed" -- *)
    sum=$(md5sum <"$work/packed")
    line=$(sed -n "1{s/:X:X:/:${sum:0:32}:X:/;p}" "$folder/VestRUM.info")
    { printf '%-512s' "$line" && cat "$work/packed"; } >"$container"
    rm "$work/packed"
}
