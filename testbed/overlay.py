"""Runs a script on a temporary copy of the real system, for tests that need its package manager."""

import subprocess

# All writes go to a folder in memory; the real system is only read. At the end, this lists the files that are new or
# changed, except the package manager's own.
SYSTEM = """
mount -t tmpfs system /mnt && cd /mnt && mkdir changes work root
mount -t overlay system -o lowerdir=/,upperdir=changes,workdir=work root
mount -t proc proc root/proc && mount --rbind /dev root/dev && mount -o remount,bind,ro root/dev && cp "$2" "root/$3"
env -i PATH="$PATH" LC_ALL=C chroot root sh -euc "$1" >&2
rm "root/$3"
cd changes && find . -type f -not -path './var/lib/dpkg/*' -not -path './var/cache/*' -not -path './var/log/*' |
    sort | while read -r file; do cmp -s "$file" "/$file" || echo "${file#.}"; done
"""


def try_out(script, file, name):
    """Runs the script, with `file` as /`name`. Returns its lines of output and the files that it leaves."""
    command = ["unshare", "-mnpf", "--propagation", "private", "sh", "-euc", SYSTEM, "sh", script, file, name]
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stderr
    return done.stderr.splitlines(), done.stdout.split()
