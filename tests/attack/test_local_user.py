"""Another user of the machine, with no rights but their own: nothing of theirs steers a run or holds it up."""

from typing import NamedTuple

import pytest

from testbed import BIN, TOOL
from testbed.texts import BANNER, BY_SCRIPTS, DEFINITIONS_NEW, FRESHCLAM_RUN, FROM_1_TO_3

THEIRS = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
KEEP = "echo theirs >{0}/Vestrum.database; mkdir {0}/VestRUMdefs; echo theirs >{0}/VestRUMdefs/VestRUM-2.script"


class Trick(NamedTuple):
    script: str  # what they do before the run
    usual: bool = True  # the usual temporary folder can still be used
    open_folder: bool = False  # the lock's folder was made with a mode that lets everybody in


TRICKS = {
    "the temporary folder is theirs": Trick("mkdir -m 777 /tmp/tarnwick-0; " + KEEP.format("/tmp/tarnwick-0"), False),
    "the temporary folder leads to root's": Trick("ln -s /etc /tmp/tarnwick-0", False),
    "the temporary folder leads to theirs": Trick(
        "mkdir -m 777 /tmp/trap; ln -s trap /tmp/tarnwick-0; " + KEEP.format("/tmp/trap"), False),
    "the temporary folder is a pipe": Trick("mkfifo /tmp/tarnwick-0", False),
    "a spare folder is theirs": Trick(
        "mkdir -m 777 /tmp/tarnwick-0-AAAAAA; " + KEEP.format("/tmp/tarnwick-0-AAAAAA")),
    "a spare folder leads to root's": Trick("ln -s /etc /tmp/tarnwick-0-AAAAAA"),
    "they hold the folder of the lock": Trick(
        "flock -n /var/lib/tarnwick sleep infinity >/dev/null 2>&1 & sleep 0.1", open_folder=True),
    "they hold a file in the lock's place": Trick(
        "flock -n /var/lib/tarnwick/lock sleep infinity >/dev/null 2>&1 & sleep 0.1", open_folder=True),
    "a link in the lock's place": Trick("ln -s /etc/shadow /var/lib/tarnwick/lock", open_folder=True),
    "a pipe in the lock's place": Trick("mkfifo /var/lib/tarnwick/lock", open_folder=True),
    "they run it themselves": Trick(f"{TOOL} --datadir=/etc --remove-old-first >/dev/null 2>&1 || true"),
}
OUTSIDE = f"find /etc {BIN} /usr/local/bin -exec stat -c '%N %A %U:%G %s %Y' {{}} + | sort"
LEFT = "find /tmp -mindepth 1 -user 65534 -printf '%p %l %m\\n' | sort; cat /tmp/*/Vestrum.database 2>/dev/null || true"


@pytest.mark.parametrize("trick", TRICKS.values(), ids=TRICKS)
def test_what_they_leave_lying_about_changes_nothing(world, trick):
    world.install(1)
    world.shell(f"install -d -m {777 if trick.open_folder else 700} /var/lib/tarnwick")
    world.remember({})
    assert world.command(*THEIRS, "sh", "-euc", f"umask 0; {trick.script}").status == 0
    before = world.shell(OUTSIDE), world.shell(LEFT)
    outcome = world.run()
    said = outcome.stdout
    if not trick.usual:
        said = said.replace(said.split("/tmp/tarnwick-0")[1][:7], "", 1)
    assert (outcome.status, said, outcome.stderr) == (
        1, BANNER + FROM_1_TO_3 + BY_SCRIPTS + DEFINITIONS_NEW + FRESHCLAM_RUN, "")
    assert (world.shell(OUTSIDE), world.shell(LEFT), world.version()) == (*before, 3)
    assert world.shell("find /tmp -mindepth 1 ! -user 65534") == ""
    assert world.shell("cd /var/lib/tarnwick; stat -c '%F %U %a' . lock") == (
        "directory root 700\nregular empty file root 600\n")


@pytest.mark.parametrize("lay", ["mkfifo VestRUM.cud", "mkfifo VestRUM.cud; ln -s /etc/shadow Vestrum.database"])
def test_a_run_that_is_started_in_their_folder_ends(world, lay):
    """A file of the container's name in the working directory is read for its version, and no more than that."""
    world.shell("install -d -o 65534 /home/theirs")
    assert world.command(*THEIRS, "sh", "-euc", f"cd /home/theirs; {lay}").status == 0
    outcome = world.finish(world.start("sh", "-c", f"cd /home/theirs; exec {TOOL}"))
    unreadable = "Unable to read header for file VestRUM.cud\n"
    assert outcome.stdout.startswith(BANNER + unreadable + "Local version 0\n"), outcome.stdout
    assert (outcome.status, world.version()) == (0, 3)
