"""Programs that stand before others of the same name, and what they do to those who call them."""

import os

# The end of its caller at one of the moments in which it is called, so many of which are left: of everything at once,
# or of the caller alone, with the program living on.
KILLING = """#!/bin/sh
exec 8<"${0%/*}/left"
/usr/bin/flock 8
read -r left <"${0%/*}/left"
echo $((left - 1)) >"${0%/*}/left"
exec 8<&-
read -r _ _ _ _ _ caller _ <"/proc/$$/stat"
[ "$left" -ne 0 ] || case $KILLED in all) kill -9 0 ;; *) kill -9 "$caller" ;; esac
exec "/usr/bin/${0##*/}" "$@"
"""
# In the place of ssh. The host's name says what befalls its server, in which step: HOW.STEP.MOMENT.
REMOTE = """#!/bin/bash
set -eu
umask 077
IFS=. read -r how step moment <<<"$1"
echo >>"${0%/*}/$1.steps"
[ "$(wc -l <"${0%/*}/$1.steps")" = "${step:-0}" ] || [ -z "$step" ] || how=well
shift
changes='/^(rename|unlink|rmdir|symlink)'
case $how in
killed) exec strace -f -qq -o /dev/null -e "inject=$changes:signal=KILL:when=$moment" "$@" ;;
cut) exec "$@" < <(dd bs=1 "count=$moment" status=none) ;;
nobody) exec setpriv --reuid=nobody --clear-groups "$@" ;;
silent) exec 3>&1 cat >/dev/null ;;
chatty)
    head -c 99999 /dev/zero >&2
    [ "$(cat /srv/own/work/said/* | wc -c)" -lt 20000 ]
    ;;
esac
exec "$@"
"""


def before(programs, script, folder, **environment):
    """The environment in which the script in `folder` is called in the place of these programs."""
    for name in programs.split():
        (folder / name).write_text(script, encoding="ascii")
        (folder / name).chmod(0o755)
    return os.environ | {"PATH": f"{folder}:/usr/bin"} | environment
