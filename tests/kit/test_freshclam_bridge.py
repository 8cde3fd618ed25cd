"""The prefix's freshclam, with the real program behind it: each cause of an exit status is really provoked."""

import signal
import subprocess
from typing import NamedTuple

import pytest

from testbed import BIN, CONFIGURATION, DATA, LINKS, MIRROR, NOBODY

BRIDGE, LOG = f"{BIN}/freshclam", "/srv/log/freshclam.log"
EDIT = "sed -i '{}' " + CONFIGURATION
LOG_OF_ANOTHER = f"touch {LOG}; chmod 0600 {LOG}"


class Case(NamedTuple):
    status: int
    provoke: str = ""  # a script that provokes the status
    argument: str = ""


CAUSES = {
    "new": Case(0),
    "not new": Case(0, f"{BRIDGE} >&2"),
    "unknown option": Case(40, argument="--no-such-option"),
    "option without its value": Case(40, argument="--log"),
    "folder cannot be entered": Case(50, "mkdir -p -m 0700 /srv/closed/db", "--datadir=/srv/closed/db"),
    "folder cannot be made": Case(50, argument="--datadir=/proc/none"),
    "folder is a file": Case(50, f"rm -r {DATA}; touch {DATA}"),
    "connection refused": Case(52, EDIT.format(f"s/{MIRROR}/{NOBODY}/")),
    "unknown host": Case(52, EDIT.format(f"s/{MIRROR}/nowhere.example/")),
    "container not signed": Case(54, EDIT.format("/Exclude.*daily/d")),
    "line not understood": Case(56, f"echo Nonsense >>{CONFIGURATION}"),
    "no configuration": Case(56, f"rm {CONFIGURATION}"),
    "no mirror named": Case(56, EDIT.format("/Mirror/d")),
    "unknown owner": Case(56, EDIT.format("s/Owner.*/Owner nobody-known/")),
    "folder of another owner": Case(57, f"chown root:root {DATA}; chmod 0755 {DATA}"),
    "mirror has nothing": Case(58, EDIT.format("/Exclude/d; /Custom/d") + "; rm /srv/vendor/mirror/daily.cvd"),
    "log of another owner, folder of the owner's second group": Case(
        62, f"sed -i 's/^adm:.*:/&clamav,/' /etc/group; chown root:adm {DATA}; chmod 0770 {DATA}; {LOG_OF_ANOTHER}",
        f"--log={LOG}"),
    "log cannot be made": Case(62, argument="--log=/proc/none/log"),
    "log of another owner": Case(62, LOG_OF_ANOTHER, f"--log={LOG}"),
    "log of another owner, from the configuration": Case(
        62, f"{LOG_OF_ANOTHER}; echo UpdateLogFile {LOG} >>{CONFIGURATION}"),
    "forbidden": Case(17, EDIT.format(f"s/{MIRROR}.custom/{LINKS}\\/custom/")),
}


@pytest.fixture(scope="module")
def world(shared_world):
    return shared_world


@pytest.fixture(autouse=True)
def installation(world):
    world.servers.mend()
    world.shell(f"rm -rf {DATA} /srv/log; install -d -o clamav -g clamav {DATA} /srv/log"
                f"; cp /usr/local/vestRum/etc/freshclamCLEAN.conf {CONFIGURATION}"
                "; cp /srv/vendor/site/VestRUM2/Scripted/VestRUM.cud /srv/vendor/mirror/daily.cvd"
                f"; sed -i 's/database.clamav.net/{MIRROR}/; s/#MaxAttempts 5/MaxAttempts 1/' {CONFIGURATION}")
    world.custom_database()


@pytest.mark.parametrize("case", CAUSES.values(), ids=CAUSES)
def test_each_cause_ends_with_its_documented_status(world, case):
    world.shell(case.provoke)
    outcome = world.command(BRIDGE, *case.argument.split())
    assert outcome.status == case.status, outcome


# From version 1.5, the real program can crash where it ended with status 2 before.
CRASHES = {
    "folder cannot be entered": Case(50, f"chown root:root {DATA}; chmod 0700 {DATA}"),
    "folder of another owner": Case(57, f"chown root:root {DATA}; chmod 0755 {DATA}"),
    "no other cause": Case(0, argument=f"--log={LOG}"),
}


@pytest.mark.parametrize("number, status", [(signal.SIGABRT, 134), (signal.SIGSEGV, 139)])
@pytest.mark.parametrize("case", CRASHES.values(), ids=CRASHES)
def test_a_crash_ends_with_the_status_of_its_cause(world, case, number, status):
    crashing = f"#!/bin/bash\nulimit -c 0\n[[ $* == *--version* ]] || kill -{int(number)} $$\n"
    world.shell(case.provoke)
    world.write("/srv/crashing", crashing, 0o755)
    world.shell("mount --bind /srv/crashing /usr/bin/freshclam")
    outcome = world.command(BRIDGE, *case.argument.split())
    world.shell("umount /usr/bin/freshclam")
    assert outcome.status == (case.status or status)


# A process of the given name and user that locks the log until its standard input ends.
LOCKING = f"""
import fcntl, os, pathlib, sys
log = open("{LOG}", "a")
fcntl.lockf(log, fcntl.LOCK_EX)
pathlib.Path("/proc/self/comm").write_text(sys.argv[1])
os.setresuid(*[int(sys.argv[2])] * 3)
print("ready", flush=True)
sys.stdin.read()
"""
WITHOUT_LOG = f"freshclam: {LOG} is locked by another program; running without a log\n"
CLAMAV, OTHER_USER = "clamav", "nobody"


@pytest.mark.parametrize("name, user, arguments, status", [
    ("freshclam", CLAMAV, [f"--log={LOG}"], 62), ("freshclam", "root", ["-l", LOG], 62),
    ("freshclam", OTHER_USER, [f"--log={LOG}"], 0), ("locker", OTHER_USER, ["-l", LOG, "--verbose"], 0),
    ("locker", CLAMAV, ["--verbose", "--log", LOG], 0)])
def test_freshclam_runs_without_a_log_that_another_program_has_locked(world, name, user, arguments, status):
    world.shell(f"install -m 0666 /dev/null {LOG}")
    number = world.shell(f"id -u {user}").strip()
    locker = world.start("/usr/bin/python3", "-c", LOCKING, name, number, stdin=subprocess.PIPE)
    locker.read_until("ready\n")
    outcome = world.command(BRIDGE, *arguments)
    locker.end()
    left_out = status == 0
    assert (outcome.status, WITHOUT_LOG in outcome.stderr, world.log(LOG)) == (status, left_out, ""), outcome
    assert ("custom.ndb updated" in outcome.stdout) == left_out, outcome
    assert ("Current working dir" in outcome.stdout) == ("--verbose" in arguments), outcome


def test_freshclam_runs_without_a_log_that_is_locked_only_while_it_starts(world):
    world.shell(f"install -m 0666 /dev/null {LOG}")
    refusing = ("strace", "-f", "-qq", "-o", "/dev/null", "-P", LOG, "-e", "inject=fcntl:error=EAGAIN")
    outcome = world.command(*refusing, BRIDGE, f"--log={LOG}")
    assert (outcome.status, WITHOUT_LOG in outcome.stderr, world.log(LOG)) == (0, True, ""), outcome


@pytest.mark.parametrize("argument", ["--version", "--no-such-option"])
def test_output_is_that_of_the_real_program(world, argument):
    ours, real = (world.command(program, argument) for program in (BRIDGE, "/usr/bin/freshclam"))
    assert (ours.stdout, ours.stderr) == (real.stdout, real.stderr)


# Delays the return of kill(2), so that the program may end before the bridge continues.
LATE = ("strace", "-D", "-qq", "-o", "/dev/null", "-e", "inject=kill:delay_exit=500000")


# The real program ends with status 0 after an interrupt from the keyboard.
@pytest.mark.parametrize("number, status", [
    (signal.SIGHUP, 129), (signal.SIGINT, 0), (signal.SIGQUIT, 131), (signal.SIGTERM, 143)])
def test_signals_reach_the_program_and_its_log_stays_locked_until_then(world, number, status):
    world.shell(EDIT.format(f"s/custom.ndb/custom-{status}.ndb/"))
    world.servers.answer(f"GET /custom-{status}.ndb", "cut", length=9, hold=True)
    first = world.start(*LATE, BRIDGE, f"--log={LOG}")
    world.servers.wait_for_held(f"GET /custom-{status}.ndb")
    assert world.command(BRIDGE, f"--log={LOG}").status == 62
    first.signal(number)
    assert first.end().status == status
    assert world.running("freshclam") == []
