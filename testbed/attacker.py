"""What somebody would try who has become the user clamav, to whom the databases belong."""

import tarfile

from .vendor import member
from .world import BIN, PREFIX

SECRET = "/srv/secret"


def outside(world):
    """Everything that root executes or believes, the folders that lead there, and what only root may read."""
    watched = f"find /etc {BIN} {PREFIX}/etc /usr/local/bin {SECRET}"
    return world.shell(rf"{watched} -exec stat -c '%N %U:%G %A' {{}} + | sort"
                       f"; stat -c '%N %U:%G %A' {PREFIX} {PREFIX}/share /var/lib/tarnwick"
                       rf"; {watched} -type f -exec sha256sum {{}} + | sort; find / -xdev -name pwned")


def appending(line, file):
    """A script in which MOVE puts a line at the end of a file anywhere."""
    return f"OPEN bait\nADD {line}\nCLOSE\nMOVE bait ../../..{file} 1 {line} 1 {line}\n"


TO_PASSWD = appending("evil::0:0::/root:/bin/sh", "/etc/passwd")

# Members of a container.
CONTAINERS = {
    "a script for later": [member("VestRUM-999.script", TO_PASSWD)],
    "a script for the next run": [member("V-999.script", appending(">/srv/pwned", f"{BIN}/sigtool"))],
    "a script in a fetched one's place": [member("VestRUM-2.script", TO_PASSWD)],
    "a script between two fetched ones": [member("x-2.script", TO_PASSWD)],
    "a script that the shell reads": [member("$(touch pwned)\n`touch pwned`;-3.script", TO_PASSWD)],
    "a script without a number": [member(".script"), member("-rf.script"), member("*.script")],
    "a link to where scripts are fetched": [member("VestRUM-2.script", "", tarfile.SYMTYPE, SECRET)],
    "a hard link to where they are fetched": [member("VestRUM-2.script", "", tarfile.LNKTYPE, SECRET)],
    "a hard link behind a member without a name": [member(""), member("x", "", tarfile.LNKTYPE, SECRET)],
    "a pipe for a script": [member("VestRUM-2.script", "", tarfile.FIFOTYPE)],
    "a link for the database": [member("VestRUM.ndb", "", tarfile.SYMTYPE, SECRET)],
    "a folder": [member("VestRUM-2.script/", "", tarfile.DIRTYPE)],
    "a path": [member("../pwned", "x")],
    "the folder above": [member("..", "x")],
    "options for tar": [member("--checkpoint=1"), member("--checkpoint-action=exec=touch pwned")],
    "a name that tar reads as a path": [member(r"\057srv\057secret", "x")],
    "the names of the work": [member("VestRUM.tar.gz", "x"), member("VestRUMdefs.scripts", "x")],
    "no databases": [member("VestRUM.ndb", "")],
}
# Scripts for the database folder.
FOLDERS = {
    "a link for the definitions": f"ln -sf {SECRET} Vestrum.database; ln -sf {SECRET} Vestrum.database.signature",
    "a link for the container": f"ln -sf {SECRET} VestRUM.cud",
    "a link for an upstream database": f"ln -sf {SECRET} main.cvd",
    "a link to the configuration": f"ln -sf {PREFIX}/etc/freshclam.conf VestRUM.cud",
    "a pipe for the definitions": "rm V*; mkfifo Vestrum.database Vestrum.database.signature",
    "a pipe for the container": "rm VestRUM.cud; mkfifo VestRUM.cud",
    "folders for everything": "rm -r *; mkdir -p VestRUM.cud/a Vestrum.database/a main.cvd/a mirrors.dat Vestrum.ndb/a",
    "links to folders": "rm -r *; ln -s /etc VestRUM.cud; ln -s /etc Vestrum.database; ln -s /etc Vestrum.ndb"
                        "; ln -s /etc .tarnwick-staged.abcdef",
    "links to folders that root needs": f"ln -s {PREFIX} {PREFIX}/share {PREFIX}/etc /var/lib/tarnwick .",
    "names for the shell": "touch -- '-R' '--reference=x' '$(touch pwned)' '; touch pwned' \"$(printf 'a\\nb')\"",
}
