# shellcheck shell=bash disable=SC2154
# Scripts, applied as installations apply them.

# Applies scripts of a folder to an unpacked container, from the version after
# FROM to TO, all in one run: joined in order they lead to the same result as
# one by one. When it fails, `stopped_at` is the script that could not be applied.
replay() {
    local folder=$1 place=$2 from=$3 to=$4 number scripts=() line
    stopped_at=
    ((from < to)) || return 0
    for ((number = from + 1; number <= to; number++)); do
        scripts+=("$folder/VestRUM-$number.script")
    done
    mkdir -p "$work/joined"
    # Which line of the joined script is the first of which script.
    awk -v starts="$work/joined/starts" 'FNR == 1 { print NR, FILENAME >starts } 1' \
        "${scripts[@]}" >"$work/joined/VestRUM-$to.script"
    (cd "$place" && sigtool --run-cdiff="$work/joined/VestRUM-$to.script") </dev/null >"$work/report" 2>&1 && return 0
    line=$(sed -n 's/.* on line \([0-9]\+\): .*/\1/p' "$work/report" | tail -n 1)
    stopped_at=$(awk -v line="${line:-0}" '$1 <= line { found = $2 } END { print found }' "$work/joined/starts")
    stopped_at=${stopped_at##*-}
    stopped_at=${stopped_at%.script}
    return 1
}
