"""Attacks by somebody who has taken over the user clamav, the owner of the databases."""

import tarfile

from .vendor import member
from .world import BIN, PREFIX

SECRET = "/srv/secret"


def outside(world):
    """The state of all files outside the databases: programs, configurations, their folders, and a secret of root."""
    watched = f"find /etc {BIN} {PREFIX}/etc /usr/local/bin {SECRET}"
    return world.shell(rf"{watched} -exec stat -c '%N %U:%G %A' {{}} + | sort"
                       f"; stat -c '%N %U:%G %A' {PREFIX} {PREFIX}/share /var/lib/tarnwick"
                       rf"; {watched} -type f -exec sha256sum {{}} + | sort; find / -xdev -name pwned")


def appending(line, file):
    """A script whose MOVE command appends a line to any file of the machine."""
    return f"OPEN bait\nADD {line}\nCLOSE\nMOVE bait ../../..{file} 1 {line} 1 {line}\n"


TO_PASSWD = appending("evil::0:0::/root:/bin/sh", "/etc/passwd")

# Members that the attacker adds to the container.
CONTAINERS = {
    "a script for later": [member("VestRUM-999.script", TO_PASSWD)],
    "a script for the next run": [member("V-999.script", appending(">/srv/pwned", f"{BIN}/sigtool"))],
    "a script with the name of a fetched one": [member("VestRUM-2.script", TO_PASSWD)],
    "a script between two fetched ones": [member("x-2.script", TO_PASSWD)],
    "a script with shell commands in its name": [member("$(touch pwned)\n`touch pwned`;-3.script", TO_PASSWD)],
    "a script without a number": [member(".script"), member("-rf.script"), member("*.script")],
    "a link with the name of a fetched script": [member("VestRUM-2.script", "", tarfile.SYMTYPE, SECRET)],
    "a hard link with the name of a fetched script": [member("VestRUM-2.script", "", tarfile.LNKTYPE, SECRET)],
    "a hard link after a member without a name": [member(""), member("x", "", tarfile.LNKTYPE, SECRET)],
    "a pipe as a script": [member("VestRUM-2.script", "", tarfile.FIFOTYPE)],
    "a link as the database": [member("VestRUM.ndb", "", tarfile.SYMTYPE, SECRET)],
    "a folder": [member("VestRUM-2.script/", "", tarfile.DIRTYPE)],
    "a path": [member("../pwned", "x")],
    "the folder above": [member("..", "x")],
    "options for tar": [member("--checkpoint=1"), member("--checkpoint-action=exec=touch pwned")],
    "a name that tar reads as a path": [member(r"\057srv\057secret", "x")],
    "the names of the run's own work files": [member("VestRUM.tar.gz", "x"), member("VestRUMdefs.scripts", "x")],
    "no databases": [member("VestRUM.ndb", "")],
}
# Shell scripts that the attacker runs in the database folder.
FOLDERS = {
    "a link as the definitions file": f"ln -sf {SECRET} Vestrum.database; ln -sf {SECRET} Vestrum.database.signature",
    "a link as the container": f"ln -sf {SECRET} VestRUM.cud",
    "a link as an upstream database": f"ln -sf {SECRET} main.cvd",
    "a link to the configuration": f"ln -sf {PREFIX}/etc/freshclam.conf VestRUM.cud",
    "a pipe as the definitions file": "rm V*; mkfifo Vestrum.database Vestrum.database.signature",
    "a pipe as the container": "rm VestRUM.cud; mkfifo VestRUM.cud",
    "folders as databases": "rm -r *; mkdir -p VestRUM.cud/a Vestrum.database/a main.cvd/a mirrors.dat Vestrum.ndb/a",
    "links to folders": "rm -r *; ln -s /etc VestRUM.cud; ln -s /etc Vestrum.database; ln -s /etc Vestrum.ndb"
                        "; ln -s /etc .tarnwick-staged.abcdef",
    "links to folders that root needs": f"ln -s {PREFIX} {PREFIX}/share {PREFIX}/etc /var/lib/tarnwick .",
    "names for a shell": "touch -- '-R' '--reference=x' '$(touch pwned)' '; touch pwned' \"$(printf 'a\\nb')\"",
}
