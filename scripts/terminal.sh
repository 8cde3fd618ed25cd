# shellcheck shell=bash
# What a person sees of a long job: one line that says how far it is, and everything only when it failed.

# One line that is overwritten, from lines "DONE ALL" on standard input. Where nobody watches, the label alone.
show_progress() {
    local label=$1 finished all shown=''
    [[ -t 1 ]] || echo "$label"
    while read -r finished all; do
        [[ -t 1 ]] || continue
        printf '\r%s [%3d%%]' "$label" "$((100 * finished / all))"
        shown=yes
    done
    [[ ! $shown ]] || printf '\r%s.      \n' "$label"
}

# The end of a log, which tells what went wrong, and where all of it is.
show_failure() {
    tail -n 40 "$1" >&2
    printf '\nAll that was said is in %s\n' "$1" >&2
}

# What sudo made root of somebody wrote below build/ becomes theirs, so that they can build and delete there too. The
# bare systems of scripts/on are whole systems, in which everything has its owner.
give_back() {
    [[ ! ${SUDO_UID-} || ! -d build ]] ||
        find build -path build/on -prune -o ! -user "$SUDO_UID" -exec chown -h "$SUDO_UID:${SUDO_GID-}" {} +
}
