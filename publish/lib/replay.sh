# shellcheck shell=bash disable=SC2154
# Scripts, applied as installations apply them.

apply() {
    (cd "$1" && sigtool --run-cdiff="$2") </dev/null >"$work/report" 2>&1
}

# The files here as combine.awk wants them.
lines_and_names() {
    # grep finds no line in an empty file and says so; that is no failure here.
    grep -c '' -- * /dev/null | sed 's/^\(.*\):\([0-9]*\)$/\2 \1/' || true
    echo -
}

# Many scripts in a large file are much faster as one. Whatever that does not
# bear is left as it was, for the joined script, which tells what is wrong.
apply_combined() {
    local place=$1 to=$2 combined=$work/combined/VestRUM-$2.script
    rm -rf "$work/combined" "$work/tried"
    mkdir "$work/combined"
    { (cd "$place" && lines_and_names) && cat "$work/joined/VestRUM-$to.script"; } |
        awk -f "${program%/*}/lib/combine.awk" >"$combined" || return 1
    cp -r "$place" "$work/tried"
    apply "$work/tried" "$combined" || return 1
    rm -rf "$place"
    mv "$work/tried" "$place"
}

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
    ((to - from > 1)) && apply_combined "$place" "$to" && return 0
    apply "$place" "$work/joined/VestRUM-$to.script" && return 0
    line=$(sed -n 's/.* on line \([0-9]\+\): .*/\1/p' "$work/report" | tail -n 1)
    stopped_at=$(awk -v line="${line:-0}" '$1 <= line { found = $2 } END { print found }' "$work/joined/starts")
    stopped_at=${stopped_at##*-}
    stopped_at=${stopped_at%.script}
    return 1
}
