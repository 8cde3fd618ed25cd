"""An attacker with the rights of the user clamav controls the databases, and must not gain control of anything else."""

from typing import NamedTuple

import pytest

from testbed import BIN, CONFIGURATION, DATA, PREFIX, as_the_service, member, repacked
from testbed.attacker import CONTAINERS, FOLDERS, SECRET, TO_PASSWD, outside
from testbed.prefix_layout import PROVISION
from testbed.texts import (
    BANNER, BY_SCRIPTS, DEFINITIONS_CURRENT, FRESHCLAM_RUN, FROM_1_TO_3, FULL_CONTAINER, HEADER_FAILED, REPACK_FAILED,
    SCANNER_WARNING, SCRIPTS, UNPACK_FAILED)

UPDATED = FROM_1_TO_3 + BY_SCRIPTS
NOT_UNPACKED = FROM_1_TO_3 + UNPACK_FAILED + FULL_CONTAINER
NOT_APPLIED = FROM_1_TO_3 + SCRIPTS + FULL_CONTAINER
NOT_PACKED = FROM_1_TO_3 + SCRIPTS + REPACK_FAILED + FULL_CONTAINER
NO_HEADER = FROM_1_TO_3 + SCRIPTS + HEADER_FAILED + FULL_CONTAINER
SAID = {"options for tar": NOT_PACKED, "a name that tar reads as a path": NOT_PACKED, "no databases": NOT_APPLIED,
        **dict.fromkeys(("a link with the name of a fetched script",
                         "a hard link with the name of a fetched script", "a pipe as a script",
                         "a link as the database", "a folder", "a path", "the folder above"),
                        NOT_UNPACKED)}
# For ClamAV 1.4, a member without a name ends the archive or is an error. Later versions unpack what follows.
SAID_LATER = SAID | {"a hard link after a member without a name": NOT_UNPACKED, "the folder above": UPDATED}


@pytest.mark.parametrize("name", CONTAINERS)
def test_a_run_with_an_altered_container_changes_nothing_outside(world, name):
    said = SAID if "ClamAV 1.4" in world.shell("sigtool --version") else SAID_LATER
    world.install(1)
    world.write(SECRET, "secret", 0o600)
    world.write(f"{DATA}/VestRUM.cud", repacked(world.container(1), *CONTAINERS[name]))
    before = outside(world)
    outcome = world.run()
    assert outside(world) == before
    assert (outcome.status, outcome.stdout) == (
        0, BANNER + said.get(name, UPDATED) + DEFINITIONS_CURRENT + FRESHCLAM_RUN)
    # The next run works on the container that this run has made of it.
    assert world.run().status == 0
    assert (outside(world), world.litter()) == (before, "")


def test_only_fetched_scripts_are_applied_and_all_are_kept(world):
    """With a sigtool that unpacks the scripts of a container too, which the prefix's own leaves out."""
    world.install(1)
    names = ("VestRUM-1.script", "VestRUM-2.script", "VestRUM-999.script")
    own = [member(name, TO_PASSWD) for name in names]
    world.write(f"{DATA}/VestRUM.cud", repacked(world.container(1), *own))
    world.sigtool("case $1 in --unpack*) exec /usr/bin/sigtool $1 ;; esac; ls -A ${1#*=} >/srv/applied")
    outcome = world.run()
    assert outcome.stdout == BANNER + UPDATED + DEFINITIONS_CURRENT + FRESHCLAM_RUN
    assert world.log("/srv/applied") == "VestRUM-2.script\nVestRUM-3.script\n"
    kept = world.shell(f"cd /srv; sigtool --unpack={DATA}/VestRUM.cud; grep -l passwd *.script; cmp VestRUM-2.script "
                       "vendor/site/VestRUM2/Scripted/VestRUM-2.script; ls *.script")
    assert kept == ("VestRUM-1.script\nVestRUM-999.script\nVestRUM-1.script\nVestRUM-2.script\nVestRUM-3.script\n"
                    "VestRUM-999.script\n")


class Header(NamedTuple):
    builder: str  # this field becomes a part of a command line
    said: str = NO_HEADER


HEADERS = {"plain": Header("x", UPDATED), "command": Header("$(touch pwned)"), "old command": Header("`touch pwned`"),
           "quote": Header('"; touch pwned; "'), "backslash at the cut": Header("x" * 434 + "\\x")}


@pytest.mark.parametrize("header", HEADERS.values(), ids=HEADERS)
def test_a_header_swapped_during_the_run_executes_nothing(world, header):
    world.install(1)
    # Version 9 is newer than every script, so no script changes the line that becomes the new header.
    line = member("VestRUM.info", lambda old: old.replace(":1:1:", ":9:1:", 1).replace("vestrum", header.builder, 1))
    world.write("/srv/swapped.cud", repacked(world.container(1), line).replace(b":1:1:", b":9:1:", 1))
    world.sigtool(f"case $1 in --unpack*) cp /srv/swapped.cud {DATA}/VestRUM.cud ;; esac")
    before = outside(world)
    outcome = world.run()
    assert (outcome.status, outcome.stdout) == (0, BANNER + header.said + DEFINITIONS_CURRENT + FRESHCLAM_RUN)
    assert (outside(world), world.litter()) == (before, "")


class Rights(NamedTuple):
    spoil: str  # a script for the prefix
    named: str | None = None  # what others than root can change, by the one line that the run prints
    warned: bool = False  # whether the run warns about the scanner


RIGHTS = {
    "all in order": Rights("true"),
    "an owner that the run itself corrects": Rights("chown clamav:clamav ."),
    "no prefix": Rights(f"rm -rf *; cd /; umount {PREFIX} 2>/dev/null || rm -r {PREFIX}", warned=True),
    "prefix": Rights("chmod g+w .", PREFIX),
    "folders": Rights("chown clamav bin share; chmod o+w etc", f"{BIN} (and 2 more)"),
    "program": Rights("chown clamav bin/sigtool", f"{BIN}/sigtool"),
    "configurations": Rights("chmod g+w etc/*", f"{CONFIGURATION} (and 2 more)"),
    "link to a program of clamav": Rights(
        "cp /bin/true /srv/scan; chown clamav /srv/scan; ln -sf /srv/scan bin/clamscan", f"{BIN}/clamscan", True),
    "link into a folder of clamav": Rights("install -d -o clamav /srv/their; cp /bin/true /srv/their/scan"
                                     "; ln -sf /srv/their/scan bin/clamscan", f"{BIN}/clamscan", True),
    "link through a link in a folder of clamav": Rights(
        "install -d -o clamav /srv/their; ln -s /bin/true /srv/their/scan; ln -s /srv/their/scan /srv/scan"
        "; ln -sf /srv/scan bin/clamscan", f"{BIN}/clamscan"),
    "link into an open folder above": Rights(
        "mkdir -p /srv/open/closed; chmod 777 /srv/open; cp /bin/true /srv/open/closed/scan"
        "; ln -sf /srv/open/closed/scan bin/clamscan", f"{BIN}/clamscan"),
    "link through a sticky folder": Rights("ln -s /bin/true /tmp/scan; ln -sf /tmp/scan bin/clamscan"),
    "link through a link of clamav in a sticky folder": Rights(
        "ln -s /bin/true /tmp/scan; chown -h clamav /tmp/scan; ln -sf /tmp/scan bin/clamscan", f"{BIN}/clamscan"),
    "a folder above": Rights("chmod g+w /usr/local", "/usr/local"),
    "link to no program": Rights("touch /srv/scan; ln -sf /srv/scan bin/clamscan", warned=True),
    "link to nothing": Rights("ln -s none bin/none"),
    "link that belongs to clamav": Rights("chown -h clamav bin/clamscan"),
    "name of two lines": Rights("install -o clamav /bin/true \"bin/a$(printf '\\na')\"", f"{BIN}/a?a"),
    "name with a control character": Rights(
        "install -o clamav /bin/true \"bin/a$(printf '\\177a')\"", f"{BIN}/a?a"),
}


@pytest.mark.parametrize("rights", RIGHTS.values(), ids=RIGHTS)
def test_a_run_names_what_others_can_change_in_the_prefix(world, rights):
    world.shell(f"cd {PREFIX}; {rights.spoil}")
    outcome = world.run()
    said = [line for line in outcome.stderr.splitlines() if "Others than root" in line]
    # Provisioning corrects what is in the prefix.
    ours = rights.named and rights.named.startswith(PREFIX)
    advice = "Run provision, as root." if ours else "Make root its owner, and the only one who can write to it."
    assert outcome.stdout.startswith(SCANNER_WARNING) == rights.warned
    assert said == ([f"tarnwick: Others than root can change {rights.named}. {advice}"] if rights.named else [])
    if ours:
        world.shell(PROVISION)
        world.freshclam(0)
        assert "provision" not in world.run().stderr


@pytest.mark.parametrize("name", FOLDERS)
def test_no_content_of_the_database_folder_leads_a_run_outside(world, name):
    world.write(SECRET, "secret", 0o600)
    before = outside(world)
    for arguments, through in (([], ()), (["--remove-old-first"], ()), ([], as_the_service())):
        world.shell(f"rm -rf {DATA}/*; touch {DATA}/main.cvd {DATA}/daily.cvd {DATA}/bytecode.cvd")
        world.install(1)
        world.shell(f"cd {DATA}; " + FOLDERS[name])
        outcome = world.run(*arguments, through=through)
        assert outcome.status in (0, 1) and "secret" not in outcome.stdout + outcome.stderr
        assert outside(world) == before
        # The run still corrects the modes of clamav's own files, and deletes folders that have a database's name.
        assert world.shell(rf"cd {DATA}; find . -mindepth 1 ! -name mirrors.dat \( -type d -o -type f ! -perm 664 \)"
                           ) == ""


@pytest.mark.parametrize("log, script, healed", [
    ("/var/log/clamav/a.log", f"ln -s {SECRET} $log", True),
    ("/var/log/clamav/a.log", f"ln -s {PREFIX}/etc/freshclam.conf $log", True),
    ("/var/log/clamav/a.log", "ln -s /etc/pwned $log", True),
    ("/var/log/clamav/sub/pwned", "rmdir $folder; ln -s /etc $folder", False),
    ("/var/log/clamav/sub/../../../../etc/freshclam", "rmdir $folder; ln -s /etc/a/b/c $folder", False),
    ("/var/log/clamav/sub/a.log", f"ln -s {SECRET} $log", True),
    ("/tmp/a.log", "ln -s /etc/pwned $log", True),
    ("/tmp/pwned/pwned", "ln -s /etc /tmp/pwned", False),
], ids=range(8))
def test_a_run_writes_no_log_through_links_of_others(world, log, script, healed):
    """The folder for ClamAV's logs belongs to clamav too."""
    world.write(SECRET, "secret", 0o600)
    world.shell("mkdir -p /etc/a/b/c; install -d -o clamav -g clamav /var/log/clamav /var/log/clamav/sub")
    as_clamav = ["setpriv", "--reuid=clamav", "--regid=clamav", "--clear-groups"]
    assert world.command(*as_clamav, "sh", "-euc", f"log={log} folder=/var/log/clamav/sub; {script}").status == 0
    before = outside(world)
    refused = f"tarnwick: The log {log} is not written: a link in its path is not root's\n"
    outcome = world.run(f"--log={log}")
    assert (outcome.status, outcome.stderr, outside(world)) == (0, refused, before)
    assert world.run("--remove-old-first", f"--log={log}").status in (0, 1) and outside(world) == before
    if healed:
        assert world.log(log).startswith(BANNER) and world.shell(f"stat -c '%U %a' {log}") == "clamav 666\n"
