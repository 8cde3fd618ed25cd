# shellcheck shell=bash
# The output of a long job: one progress line, and the log only if the job fails.

# Reads lines "DONE ALL" and overwrites one progress line. Prints only the label if this is not a terminal.
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

# Prints the end of a log, and the path of the whole log.
show_failure() {
    tail -n 40 "$1" >&2
    printf '\nThe whole output is in %s\n' "$1" >&2
}

# After a run under sudo, gives the files below build/ to the calling user, who can then build and delete there too.
# Leaves out the bare systems of scripts/on, whose files need their owners.
give_back() {
    [[ ! ${SUDO_UID-} || ! -d build ]] ||
        find build -path build/on -prune -o ! -user "$SUDO_UID" -exec chown -h "$SUDO_UID:${SUDO_GID-}" {} +
}
