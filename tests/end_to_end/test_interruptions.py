"""Runs that are interrupted by signals, kills and failing calls, and runs at the same time."""

import errno
import fcntl
import hashlib
import itertools
import os
import pathlib
import re
import signal
import subprocess
import termios

import pytest

from testbed import BIN, CONFIGURATION, DATA, MIRROR, PREFIX, STATE, as_the_service, definitions_text
from testbed.machine import Outcome
from testbed.phases import HOLD, PHASES, fall_behind, moments, quick, updating
from testbed.texts import (
    BANNER, BY_SCRIPTS, DEFINITIONS_NEW, FROM_1_TO_3, SCRIPTED_PATH, UPSTREAM_PHASE, UP_TO_DATE_RUN)
from testbed.world import clean

SIGNALS = (15, 2, 3, 6, 1)
BLOCKING = ("env", "--block-signal=TERM,INT,QUIT,ABRT,HUP")  # a caller may block these signals
END = "killling...\n"
UNTIL_FRESHCLAM = BANNER + FROM_1_TO_3 + BY_SCRIPTS + DEFINITIONS_NEW + UPSTREAM_PHASE


@pytest.mark.parametrize("phase", PHASES)
def test_signals_end_a_run_in_every_phase(world, phase):
    world.install(1)
    wait = PHASES[phase](world)
    for number in SIGNALS:
        world.write(f"{DATA}/VestRUM.cud", world.container(1))
        world.servers.forget_held()
        job = world.launch("--log=/srv/a.log", through=BLOCKING)
        wait(job)
        job.signal(number)
        outcome = world.finish(job)
        assert (outcome.status, outcome.stdout[-len(END):], outcome.stderr) == (255, END, "")
        if phase in ("lock", "no network"):
            assert not world.path("/srv/a.log").exists() and world.version() == 1
        else:
            # While freshclam runs, only freshclam writes to the log.
            assert world.log("/srv/a.log").endswith(END) == (phase != "freshclam")
            assert f"DatabaseMirror {MIRROR}\n" in world.log(CONFIGURATION) or phase == "fallback"
        # The signal handler also terminates the program that the run started; this may take a moment.
        assert any(world.running(f"{BIN}/") == [] for _ in range(50))


@pytest.mark.parametrize("through", [(), as_the_service()], ids=["by root", "by the service"])
def test_no_freshclam_survives_a_signal(new_world, through):
    """The signal comes at any moment of freshclam's start: in the shell, the adapter, or the program."""
    new_world.install(3)
    new_world.custom_database()
    new_world.servers.answer("GET /custom.ndb", "cut", length=9, hold=True)
    for index, moment in enumerate([*moments(1, 20, 2_000), *moments(2, 20, 40_000), 500_000]):
        other = new_world.other_freshclam("clamav")  # the service may not read the path of its executable
        # The output ends only when every process that could write to it has ended.
        outcome = new_world.run(kill=(SIGNALS[index % len(SIGNALS)], "SPAWN", moment), through=through)
        assert outcome.status == 255 and END in outcome.stdout, (moment, outcome)
        assert other.end().status == -signal.SIGTERM, moment


def test_freshclam_may_write_to_a_terminal_that_stops_the_background(world):
    world.program("freshclam", "echo freshclam \"$@\"; exit 1")
    job, terminal = world.launch_on_a_terminal(termios.TOSTOP)
    lines = [terminal.readline() for _ in (UP_TO_DATE_RUN).splitlines()]
    assert (clean("".join(lines)), job.end().status) == (UP_TO_DATE_RUN, 1)


@pytest.mark.parametrize("number, through, said", [
    (signal.SIGHUP, (), END), (signal.SIGHUP, ("env", "--ignore-signal=HUP"), "\nupdated\n"), (signal.SIGKILL, (), "")])
def test_a_signal_to_the_whole_group_reaches_freshclam(world, number, through, said):
    wait = updating(world)
    job = world.launch(start_new_session=True, through=through)
    wait(job)
    os.killpg(job.process.pid, number)
    if through:
        world.shell("echo >/srv/hold")
    assert job.end().stdout == said and world.running(f"^{BIN}/freshclam") == []


def test_a_signal_terminates_freshclam_among_any_number_of_younger_processes(world):
    wait = updating(world)
    job = world.launch()
    wait(job)
    crowd = world.start("/usr/bin/python3", "-c", "import os, time\n"
                        "for _ in range(1100): os.fork() or os._exit(0)\nprint(flush=True); time.sleep(1000)")
    crowd.read_until("\n")  # all have ended and are not reaped, so they cost nothing
    job.signal(signal.SIGTERM)
    assert job.process.wait() == 255 and any(world.running(f"^{BIN}/freshclam") == [] for _ in range(50))
    assert job.end().stdout == END


def test_only_the_main_thread_receives_signals(world):
    """A name server that never answers keeps the resolver's thread running."""
    world.install(1)
    world.servers.place(links=None)
    world.write("/etc/resolv.conf", "nameserver 127.0.0.9\n")
    server = world.odd_server("names")
    job = world.launch()
    server.read_until("asked\n")
    others = {int(thread) for thread in os.listdir(f"/proc/{job.pid}/task")} - {job.pid}
    blocked = [mask & set(SIGNALS) for mask in map(job.blocked, others) if mask is not None]
    assert blocked and blocked == [set(SIGNALS)] * len(blocked)
    job.signal(signal.SIGTERM)
    assert job.end().status == 255


def test_a_signal_ends_a_run_that_is_blocked_by_its_output(world):
    world.shell(f"rm {DATA}/daily.cvd")
    world.servers.answer("GET /daily.cvd", "half", length=8, hold=True)
    reading, writing = os.pipe()
    os.write(writing, b"x" * fcntl.fcntl(writing, fcntl.F_SETPIPE_SZ, 4096))
    job = world.launch("--quiet", stdout=writing)
    world.servers.wait_for_held("GET /daily.cvd")
    call = pathlib.Path(f"/proc/{job.pid}/syscall")
    while not call.read_text(encoding="utf-8").startswith("1 0x1 "):
        pass
    job.signal(signal.SIGTERM)
    assert job.end().status == 255
    os.close(reading)
    os.close(writing)


def old_or_new(world):
    """Databases are complete, old or new. The header of a container built by the run has the hash of the rest."""
    container = world.path(f"{DATA}/VestRUM.cud").read_bytes()
    assert container in (world.container(1), world.container(3)) or (
        world.version() == 3 and container.split(b":")[5].decode() == hashlib.md5(container[512:]).hexdigest())
    assert world.log(f"{DATA}/Vestrum.database") in (definitions_text(1), definitions_text(9))


def completes(world):
    """The next run updates everything and removes all traces of the interrupted one, also in freshclam.conf."""
    assert world.run().status in (0, 1) and world.version() == 3
    assert world.log(CONFIGURATION) == world.log(f"{PREFIX}/etc/freshclamBAK.conf")
    assert (world.litter(), world.log(f"{DATA}/Vestrum.database")) == ("", definitions_text(1))
    published = "/srv/vendor/site/VestRUM2/Vestrum.database.signature"
    assert world.log(f"{DATA}/Vestrum.database.signature") == world.log(published)


# Signals that the tool handles, and signals that it does not: SIGKILL and SIGSEGV.
@pytest.mark.parametrize("numbers, seed", [*((SIGNALS, seed) for seed in range(6)),
                                           *(((9, 11), seed) for seed in range(3))])
def test_databases_are_complete_after_a_signal_at_any_moment(world, numbers, seed):
    quick(world)
    cut_off, longest = 0, 0.12  # seconds; adapts to about twice the time of a run on this machine
    for index, share in enumerate(moments(seed, 50, 1_000_000)):
        fall_behind(world)
        moment = int(share * longest) + 1
        number = numbers[index % len(numbers)]
        outcome = world.run(kill=(number, "AFTER", moment))
        print(f"signal {number} after {moment} microseconds: {outcome.status}")
        said = outcome.stdout
        if number in SIGNALS and outcome.status != 1:
            # The run ends at once: it prints nothing of later steps, and nothing twice.
            assert (outcome.status, said[-len(END):]) == (255, END), (moment, outcome)
            said = said.removesuffix(END)
        else:
            assert outcome.status in (1, -number), (moment, outcome)
        assert UNTIL_FRESHCLAM.startswith(said) if outcome.status != 1 else said == UNTIL_FRESHCLAM, (moment, outcome)
        cut_off += outcome.status != 1
        longest *= 0.9 if outcome.status == 1 else 1.1
        old_or_new(world)
    assert cut_off > 10
    completes(world)


WAYS = ("by scripts", "whole", "seeding")


def ready_for(world, way):
    """Prepares the next run to install databases in this way."""
    world.servers.mend()
    fall_behind(world)
    if way == "whole":
        world.servers.drop(f"GET {SCRIPTED_PATH}/VestRUM-3.script")
    if way == "seeding":
        world.install(3)
        world.write("/srv/vendor/mirror/daily.cvd", "ClamAV-VDB:dummy")
        world.shell(f"rm -f {DATA}/daily.cvd")


@pytest.mark.parametrize("way", WAYS)
def test_the_next_run_completes_a_run_killed_at_any_step(world, way):
    quick(world)
    status, step = -9, 0
    while status == -9:
        step += 1
        print(f"before step {step}")
        ready_for(world, way)
        status = world.run(kill=(9, "STEP", step)).status
        old_or_new(world)
        completes(world)
    assert (status, step > 30) == (int(way != "seeding"), True)


ERRORS = (errno.EIO, errno.ENOSPC, errno.EMFILE)
EVERY_CALL = bool(os.environ.get("TARNWICK_TEST_EVERY_CALL"))


@pytest.mark.parametrize("call", ["open", "write", "fsync", "rename", "unlink", "fork"])
def test_databases_are_complete_after_a_call_that_fails(world, call):
    """Makes one call of each run fail: every call with every error in turn, or a sample of them."""
    quick(world)
    for index, (way, error) in enumerate(itertools.product(WAYS, ERRORS) if EVERY_CALL else zip(WAYS, ERRORS)):
        for number in itertools.count(1) if EVERY_CALL else itertools.count(1 + index, 7):
            ready_for(world, way)
            world.write("/srv/steps")
            outcome = world.run(rate=20, fail=(call, number, error), record="/srv/steps")
            failed = re.findall("^fail .*", world.log("/srv/steps"), re.M)
            print(way, errno.errorcode[error], call, number, failed, outcome.status, repr(outcome.stderr))
            assert outcome.status in ((0, 1, 127) if call == "fork" else (0, 1))
            old_or_new(world)
            completes(world)
            if not failed:
                assert number > 3
                break


@pytest.mark.parametrize("edit", ["s/#MaxAttempts 5", "s/DatabaseMirror mirror"])
@pytest.mark.parametrize("killed, status, left", [("$(pidof tarnwick)", -9, 1), ("$$", 0, 0)], ids=["run", "sed alone"])
def test_the_next_run_deletes_only_files_of_a_killed_sed(world, edit, killed, status, left):
    """A killed sed leaves a temporary file, whose name could also be that of an administrator's file."""
    quick(world)
    etc, mine = f"{PREFIX}/etc", "sedBackup sed-conf1 sedOld123"
    world.shell(f"cd {etc}; mkdir real; mv freshclam.conf real; ln -s real/freshclam.conf .; touch {mine}; cd real; "
                f"touch {mine}")
    world.write("/srv/sed", f"""#!/bin/sh
case $* in *'{edit}'*) mktemp -p {etc}/real sedXXXXXX; kill -KILL {killed} ;; esac
/srv/real-sed "$@"
""", 0o755)
    world.shell("cp /usr/bin/sed /srv/real-sed; mount --bind /srv/sed /usr/bin/sed")
    before = world.shell(f"cd {etc}; ls . real")
    assert world.run().status == status
    world.shell("umount /usr/bin/sed")
    added = set(world.shell(f"cd {etc}; ls . real").split()) - set(before.split())
    assert [re.sub("^sed.{6}$", "sedXXXXXX", name) for name in added] == ["sedXXXXXX"] * left
    world.shell(f"cd {etc}; touch -d '1 minute' sedAfter1 real/sedAfter1")
    assert world.run().status == 0
    world.shell(f"cd {etc}; rm sedAfter1 real/sedAfter1")
    assert (world.shell(f"cd {etc}; ls . real"), world.shell("ls /var/lib/tarnwick | grep -v plist")) == (
        before, "lock\n")
    assert world.log(CONFIGURATION) == world.log(f"{etc}/freshclamBAK.conf")


def test_files_are_synced_before_the_state_names_them(world):
    """With this order of writes, the next run can recover from a power cut between any two of them."""
    quick(world)
    world.publish("withdraw")
    world.write("/srv/vendor/mirror/daily.cvd", "ClamAV-VDB:dummy")
    world.shell(f"rm {DATA}/daily.cvd; mount -t tmpfs tmp /tmp; cd {PREFIX}/etc; mkdir real; "
                "mv freshclam.conf real/real.conf; ln -s real/real.conf freshclam.conf")
    assert world.run(record="/srv/steps").status == 1
    steps = re.sub(r"staged\.\w+", "staged", world.log("/srv/steps")).splitlines()
    state = STATE.rsplit("/", maxsplit=1)[1]

    def recorded(*wanted):
        return any(steps[start:start + len(wanted)] == list(wanted) for start in range(len(steps))) or pytest.fail(
            "\n".join(["expected, in a row:", *wanted, "recorded:", *steps]))
    assert recorded("sync .tarnwick-staged", "rename VestRUM.cud", "sync clamav")
    assert recorded("delete Vestrum.database", "sync clamav", "sync .tarnwick-staged", f"rename {state}",
                    "sync tarnwick")
    assert recorded("sync daily.cvd_download", "rename daily.cvd", "sync clamav")
    # Each of the two switches of the configuration syncs its files in this order, with nothing between.
    switched = ["rename edits", "sync tarnwick", "sync real.conf", "sync real", "delete edits"]
    assert [steps[start:start + 5] for start, step in enumerate(steps) if step == switched[0]] == [switched] * 2


def test_a_run_of_an_earlier_release_is_waited_for(world):
    """Earlier releases lock the folder instead of a file."""
    world.shell("chmod 700 /var/lib/tarnwick")
    earlier = world.start("flock", "/var/lib/tarnwick", "sh", "-c", "echo locked; read -r nothing",
                          stdin=subprocess.PIPE)
    earlier.read_until("locked\n")
    job = world.launch()
    job.read_until("Waiting for it to end.\n", "stderr")
    earlier.end()
    assert world.finish(job) == Outcome(0, UP_TO_DATE_RUN, "")


def test_the_second_of_two_runs_waits(world):
    world.shell("mkfifo /srv/hold")
    world.program("freshclam", f"echo updating; {HOLD}; echo updated")
    first = world.launch()
    first.read_until("updating\n")
    second = world.launch()
    assert "Another run is in progress. Waiting for it to end.\n" in second.read_until("end.\n", "stderr")
    third = world.launch()
    third.read_until("end.\n", "stderr")
    third.signal(signal.SIGINT)
    assert third.end() == Outcome(255, END, "") and world.running(f"^{BIN}/freshclam")
    world.program("freshclam", "echo freshclam \"$@\"; exit 1")
    world.shell("echo >/srv/hold")
    assert first.end() == Outcome(0, "updated\n", "")
    outcome = world.finish(second)
    assert (outcome.status, outcome.stdout) == (1, UP_TO_DATE_RUN)
