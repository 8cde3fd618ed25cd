"""A copy of the real system that is thrown away, for what private machines lack: a package manager."""

import subprocess

# Whatever is written lands in a folder in memory; the system below is only read. What is left in the end that was not
# there before, apart from the package manager's own notes, is listed.
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
    """What the script says there, line by line, and the files that it leaves. It finds `file` as /`name`."""
    command = ["unshare", "-mnpf", "--propagation", "private", "sh", "-euc", SYSTEM, "sh", script, file, name]
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stderr
    return done.stderr.splitlines(), done.stdout.split()
