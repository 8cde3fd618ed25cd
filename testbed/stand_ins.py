"""A stand-in for ssh."""

# The host's name, HOW.STEP.MOMENT, selects the fault of its server, and in which step of a push and when it occurs.
REMOTE = """#!/bin/bash
set -eu
umask 077
IFS=. read -r how step moment <<<"$1"
# Whether a folder of that name is the kit's is asked before the first step.
case " $* " in *" --sender "*) shift; exec "$@" ;; esac
echo >>"${0%/*}/$1.steps"
[ "$(wc -l <"${0%/*}/$1.steps")" = "${step:-0}" ] || [ -z "$step" ] || how=well
shift
changes='/^(rename|unlink|rmdir|symlink)'
case $how in
killed) exec strace -f -qq -o /dev/null -e "inject=$changes:signal=KILL:when=$moment" "$@" ;;
cut) exec "$@" < <(dd bs=1 "count=$moment" status=none) ;;
nobody) exec setpriv --reuid=nobody --clear-groups "$@" ;;
silent) exec 3>&1 cat >/dev/null ;;
chatty) head -c 99999 /dev/zero >&2 ;;
esac
exec "$@"
"""
