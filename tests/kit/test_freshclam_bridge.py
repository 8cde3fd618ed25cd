"""The prefix's freshclam against the real program: each cause provoked for real, each answer checked."""

import signal
import subprocess
from typing import NamedTuple

import pytest

from testbed import BIN, CONFIGURATION, DATA, LINKS, MIRROR, NOBODY

FRESHCLAM, LOG = f"{BIN}/freshclam", "/srv/log/freshclam.log"
EDIT = "sed -i '{}' " + CONFIGURATION
LOG_OF_ANOTHER = f"touch {LOG}; chmod 0600 {LOG}"


class Answer(NamedTuple):
    status: int
    cause: str = ""  # a script
    argument: str = ""


ANSWERS = {
    "new": Answer(0),
    "not new": Answer(0, f"{FRESHCLAM} >&2"),
    "unknown option": Answer(40, argument="--no-such-option"),
    "option without its value": Answer(40, argument="--log"),
    "folder cannot be entered": Answer(50, "mkdir -p -m 0700 /srv/closed/db", "--datadir=/srv/closed/db"),
    "folder cannot be made": Answer(50, argument="--datadir=/proc/none"),
    "folder is a file": Answer(50, f"rm -r {DATA}; touch {DATA}"),
    "connection refused": Answer(52, EDIT.format(f"s/{MIRROR}/{NOBODY}/")),
    "unknown host": Answer(52, EDIT.format(f"s/{MIRROR}/nowhere.example/")),
    "container not signed": Answer(54, EDIT.format("/Exclude.*daily/d")),
    "line not understood": Answer(56, f"echo Nonsense >>{CONFIGURATION}"),
    "no configuration": Answer(56, f"rm {CONFIGURATION}"),
    "no mirror named": Answer(56, EDIT.format("/Mirror/d")),
    "unknown owner": Answer(56, EDIT.format("s/Owner.*/Owner nobody-known/")),
    "folder of another owner": Answer(57, f"chown root:root {DATA}; chmod 0755 {DATA}"),
    "mirror has nothing": Answer(58, EDIT.format("/Exclude/d; /Custom/d") + "; rm /srv/vendor/mirror/daily.cvd"),
    "log of another owner, folder of the owner's second group": Answer(
        62, f"sed -i 's/^adm:.*:/&clamav,/' /etc/group; chown root:adm {DATA}; chmod 0770 {DATA}; {LOG_OF_ANOTHER}",
        f"--log={LOG}"),
    "log cannot be made": Answer(62, argument="--log=/proc/none/log"),
    "log of another owner": Answer(62, LOG_OF_ANOTHER, f"--log={LOG}"),
    "log of another owner, from the configuration": Answer(
        62, f"{LOG_OF_ANOTHER}; echo UpdateLogFile {LOG} >>{CONFIGURATION}"),
    "forbidden": Answer(17, EDIT.format(f"s/{MIRROR}.custom/{LINKS}\\/custom/")),
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


@pytest.mark.parametrize("answer", ANSWERS.values(), ids=ANSWERS)
def test_answers_with_the_documented_status(world, answer):
    world.shell(answer.cause)
    outcome = world.command(FRESHCLAM, *answer.argument.split())
    assert outcome.status == answer.status, outcome


# From 1.5 on the real program can crash where it ended with 2 before.
CRASHES = {
    "folder cannot be entered": Answer(50, f"chown root:root {DATA}; chmod 0700 {DATA}"),
    "folder of another owner": Answer(57, f"chown root:root {DATA}; chmod 0755 {DATA}"),
    "nothing else": Answer(0, argument=f"--log={LOG}"),
}


@pytest.mark.parametrize("number, status", [(signal.SIGABRT, 134), (signal.SIGSEGV, 139)])
@pytest.mark.parametrize("answer", CRASHES.values(), ids=CRASHES)
def test_crashes_are_answered_with_their_cause(world, answer, number, status):
    crashing = f"#!/bin/bash\nulimit -c 0\n[[ $* == *--version* ]] || kill -{int(number)} $$\n"
    world.shell(answer.cause)
    world.write("/srv/crashing", crashing, 0o755)
    world.shell("mount --bind /srv/crashing /usr/bin/freshclam")
    outcome = world.command(FRESHCLAM, *answer.argument.split())
    world.shell("umount /usr/bin/freshclam")
    assert outcome.status == (answer.status or status)


# Has the log locked, under this name, until its standard input ends.
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
CLAMAV, ANYBODY = "clamav", "nobody"


@pytest.mark.parametrize("name, user, arguments, status", [
    ("freshclam", CLAMAV, [f"--log={LOG}"], 62), ("freshclam", "root", ["-l", LOG], 62),
    ("freshclam", ANYBODY, [f"--log={LOG}"], 0), ("locker", ANYBODY, ["-l", LOG, "--verbose"], 0),
    ("locker", CLAMAV, ["--verbose", "--log", LOG], 0)])
def test_a_log_that_another_program_has_locked_is_left_out(world, name, user, arguments, status):
    world.shell(f"install -m 0666 /dev/null {LOG}")
    number = world.shell(f"id -u {user}").strip()
    locker = world.start("/usr/bin/python3", "-c", LOCKING, name, number, stdin=subprocess.PIPE)
    locker.read_until("ready\n")
    outcome = world.command(FRESHCLAM, *arguments)
    locker.end()
    left_out = status == 0
    assert (outcome.status, WITHOUT_LOG in outcome.stderr, world.log(LOG)) == (status, left_out, ""), outcome
    assert ("custom.ndb updated" in outcome.stdout) == left_out, outcome
    assert ("Current working dir" in outcome.stdout) == ("--verbose" in arguments), outcome


def test_a_log_that_is_locked_only_while_freshclam_starts_is_left_out(world):
    world.shell(f"install -m 0666 /dev/null {LOG}")
    refusing = ("strace", "-f", "-qq", "-o", "/dev/null", "-P", LOG, "-e", "inject=fcntl:error=EAGAIN")
    outcome = world.command(*refusing, FRESHCLAM, f"--log={LOG}")
    assert (outcome.status, WITHOUT_LOG in outcome.stderr, world.log(LOG)) == (0, True, ""), outcome


@pytest.mark.parametrize("argument", ["--version", "--no-such-option"])
def test_output_is_the_programs_own(world, argument):
    ours, real = (world.command(program, argument) for program in (FRESHCLAM, "/usr/bin/freshclam"))
    assert (ours.stdout, ours.stderr) == (real.stdout, real.stderr)


# The program may have ended before the signal that is passed on to it has been sent, as its sender sees it.
LATE = ("strace", "-D", "-qq", "-o", "/dev/null", "-e", "inject=kill:delay_exit=500000")


# Interrupted from the keyboard, the program itself says that it ended well.
@pytest.mark.parametrize("number, status", [
    (signal.SIGHUP, 129), (signal.SIGINT, 0), (signal.SIGQUIT, 131), (signal.SIGTERM, 143)])
def test_signals_reach_the_program_and_its_log_stays_locked_until_then(world, number, status):
    world.shell(EDIT.format(f"s/custom.ndb/custom-{status}.ndb/"))
    world.servers.answer(f"GET /custom-{status}.ndb", "cut", length=9, hold=True)
    first = world.start(*LATE, FRESHCLAM, f"--log={LOG}")
    world.servers.wait_for_held(f"GET /custom-{status}.ndb")
    assert world.command(FRESHCLAM, f"--log={LOG}").status == 62
    first.signal(number)
    assert first.end().status == status
    assert world.running("freshclam") == []
