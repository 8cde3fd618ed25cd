# shellcheck shell=bash disable=SC2154
# What is said when something goes wrong, and how every command ends.

explained=false
# Not the caller's variables: what `work` names is removed in the end.
home='' work=''

# Says what is wrong and what to do about it, then gives up. On a full disk
# anything goes wrong somehow, and what the programs say of it misleads.
fail() {
    ! disk_is_full || set -- "the disk that holds $home is full; nothing is half published" \
        "make room, then do the same again"
    printf 'tarnwick-publish: %s\n' "$@" >&2
    explained=true
    exit 1
}

disk_is_full() {
    local free
    [[ -n ${home:-} ]] || return 1
    free=$(df -k --output=avail "$home" 2>/dev/null | tail -n 1)
    ((${free:-9999} < 256))
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
    local status=$?
    if ((status > 0 && status < 128)) && ! $explained; then
        trap - EXIT
        (fail "stopped by what is said above; nothing is half published") || status=1
    fi
    wait
    [[ -z ${work:-} ]] || rm -rf -- "$work"
    exit "$status"
}

# What others said, fit for a terminal.
presentable() {
    tr -d '\r' | tr -c '[:print:]\n' '?' | cut -c -200
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
