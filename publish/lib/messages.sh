# shellcheck shell=bash disable=SC2154
# What is said when something goes wrong, and how every command ends.

explained=false

# Says what is wrong and what to do about it, then gives up.
fail() {
    printf 'tarnwick-publish: %s\n' "$@" >&2
    explained=true
    exit 1
}

misuse() {
    printf 'tarnwick-publish: %s\n' "$1" >&2
    printf 'Try "tarnwick-publish --help".\n' >&2
    explained=true
    exit 2
}

# The end of every command, expected or not. A program that failed has said
# why, in its own words.
leave() {
    local status=$? free=
    if ((status > 0 && status < 128)); then
        $explained || printf 'tarnwick-publish: %s\n' "stopped by what is said above; nothing is half published" >&2
        free=$(df -k --output=avail "${home:-/}" 2>/dev/null | tail -n 1)
        ((${free:-9999} > 1024)) ||
            printf 'tarnwick-publish: %s\n' "the disk that holds $home is full: make room, then do the same again" >&2
        $explained || status=1
    fi
    [[ -z ${work:-} ]] || rm -rf -- "$work"
    exit "$status"
}

# A number and what it counts: 1 script, 2 scripts.
counted() {
    local plural=s
    (($1 != 1)) || plural=
    printf '%s %s%s' "$1" "$2" "$plural"
}

# Takes exactly the arguments of a command: their number, then the arguments.
expect() {
    local wanted=$1 name=$2
    shift 2
    (($# == wanted)) || misuse "$name takes $(counted "$wanted" argument), not $#"
}
