"""An attacker with the rights of another user of the machine can neither influence nor delay a run."""

from typing import NamedTuple

import pytest

from testbed import BIN, TOOL
from testbed.texts import BANNER, BY_SCRIPTS, DEFINITIONS_NEW, FRESHCLAM_RUN, FROM_1_TO_3

THEIRS = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
KEEP = "echo theirs >{0}/Vestrum.database; mkdir {0}/VestRUMdefs; echo theirs >{0}/VestRUMdefs/VestRUM-2.script"


class Trick(NamedTuple):
    script: str  # what the user does before the run
    usual: bool = True  # whether the run can still use its usual temporary folder
    open_folder: bool = False  # whether all users can write to the folder of the lock


TRICKS = {
    "the temporary folder belongs to the user": Trick(
        "mkdir -m 777 /tmp/tarnwick-0; " + KEEP.format("/tmp/tarnwick-0"), False),
    "the temporary folder is a link to a folder of root": Trick("ln -s /etc /tmp/tarnwick-0", False),
    "the temporary folder is a link to a folder of the user": Trick(
        "mkdir -m 777 /tmp/trap; ln -s trap /tmp/tarnwick-0; " + KEEP.format("/tmp/trap"), False),
    "the temporary folder is a pipe": Trick("mkfifo /tmp/tarnwick-0", False),
    "a spare folder belongs to the user": Trick(
        "mkdir -m 777 /tmp/tarnwick-0-AAAAAA; " + KEEP.format("/tmp/tarnwick-0-AAAAAA")),
    "a spare folder is a link to a folder of root": Trick("ln -s /etc /tmp/tarnwick-0-AAAAAA"),
    "the user locks the folder of the lock": Trick(
        "flock -n /var/lib/tarnwick sleep infinity >/dev/null 2>&1 & sleep 0.1", open_folder=True),
    "the user locks a file with the name of the lock": Trick(
        "flock -n /var/lib/tarnwick/lock sleep infinity >/dev/null 2>&1 & sleep 0.1", open_folder=True),
    "a link with the name of the lock": Trick("ln -s /etc/shadow /var/lib/tarnwick/lock", open_folder=True),
    "a pipe with the name of the lock": Trick("mkfifo /var/lib/tarnwick/lock", open_folder=True),
    "the user runs the tool": Trick(f"{TOOL} --datadir=/etc --remove-old-first >/dev/null 2>&1 || true"),
}
OUTSIDE = f"find /etc {BIN} /usr/local/bin -exec stat -c '%N %A %U:%G %s %Y' {{}} + | sort"
LEFT = "find /tmp -mindepth 1 -user 65534 -printf '%p %l %m\\n' | sort; cat /tmp/*/Vestrum.database 2>/dev/null || true"


@pytest.mark.parametrize("trick", TRICKS.values(), ids=TRICKS)
def test_files_and_locks_of_another_user_do_not_affect_a_run(world, trick):
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
def test_a_run_that_is_started_in_a_folder_of_another_user_ends(world, lay):
    """The run reads the version of a VestRUM.cud in its working directory, and uses no more of it."""
    world.shell("install -d -o 65534 /home/theirs")
    assert world.command(*THEIRS, "sh", "-euc", f"cd /home/theirs; {lay}").status == 0
    outcome = world.finish(world.start("sh", "-c", f"cd /home/theirs; exec {TOOL}"))
    unreadable = "Unable to read header for file VestRUM.cud\n"
    assert outcome.stdout.startswith(BANNER + unreadable + "Local version 0\n"), outcome.stdout
    assert (outcome.status, world.version()) == (0, 3)
