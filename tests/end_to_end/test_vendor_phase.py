"""The vendor phase: complete output of runs, failures of each step, and the files that they leave."""

import time
from typing import Callable, NamedTuple

import pytest

from testbed import BIN, CONFIGURATION, DATA, LINKS, MACINTOSH, OLDER_STATE, PREFIX, STATE, sample
from testbed.texts import (
    BANNER, BY_SCRIPTS, CONTAINER_CURRENT, DEFINITIONS_CURRENT, DEFINITIONS_NEW, FRESHCLAM_CALL, FRESHCLAM_RUN,
    FROM_1_TO_3, FULL_CONTAINER, FULL_DOWNLOADED, FULL_FAILED, FULL_REJECTED, FULL_SOUND, HEADER_FAILED, LOCAL_1,
    NEED_FULL, NEWER, PATCHED, PUBLISHED_SCRIPTED, REPACK_FAILED, SCANNER_WARNING, SCRIPTED_PATH, SCRIPTS,
    SCRIPT_FAILED, SIGNATURE_FAILED, UNPACK_FAILED, UPSTREAM_PHASE, UP_TO_DATE_RUN, VERSION_PATH, WIPE, server_answered)



def paths(world):
    return [(request.method, request.path.removeprefix("/VestRUM2/")) for request in world.servers.requests()]


def whole(name):
    return [("GET", name), ("GET", name + ".signature")]


def test_first_run_then_up_to_date_then_three_scripts(new_world):
    new_world.freshclam(0, 1, 1)
    new_world.servers.place(links="::1")
    new_world.shell(f"chown clamav:clamav {PREFIX}")
    before = new_world.path(CONFIGURATION).read_bytes()
    first = new_world.run()
    assert (first.status, first.stdout, first.stderr) == (
        1, BANNER + FULL_CONTAINER + DEFINITIONS_NEW + FRESHCLAM_RUN, "")
    assert paths(new_world) == [
        *whole("Scripted/VestRUM.cud"), ("HEAD", "Vestrum.database"), *whole("Vestrum.database")]
    assert new_world.version() == 3
    state = {"database-Last-Modified": new_world.modified("Vestrum.database"),
             "hdb-Last-Modified": new_world.built()}
    assert (new_world.state(), new_world.state(OLDER_STATE)) == (state, {})

    second = new_world.run()
    assert (second.status, second.stdout, second.stderr) == (1, UP_TO_DATE_RUN, "")
    assert new_world.state() == {"database-Last-Modified": state["database-Last-Modified"]}

    for version in (4, 5, 6):
        new_world.release(version)
    new_world.servers.requests()
    third = new_world.run()
    patched = NEWER.format(local=3, available=6) + "".join(
        f"Downloading VestRUM-{version}.script [{percent:3}%]\n" for version, percent in ((4, 33), (5, 66), (6, 100)))
    assert (third.status, third.stdout, third.stderr) == (
        1, BANNER + patched + "Processing updates…\n" + PATCHED + DEFINITIONS_CURRENT + FRESHCLAM_RUN, "")
    assert paths(new_world) == [("GET", "Scripted/VestRUM-db-version.txt"),
                            *(request for n in (4, 5, 6) for request in whole(f"Scripted/VestRUM-{n}.script")),
                            ("HEAD", "Vestrum.database")]
    assert new_world.state().keys() == {"database-Last-Modified", "hdb-Last-Modified"}

    new_world.write("/srv/sample", sample(6))
    found = new_world.command("clamscan", "--no-summary", "-d", f"{DATA}/VestRUM.cud", "/srv/sample")
    assert (found.status, found.stdout) == (1, "/srv/sample: Vestrum.Sample-6.UNOFFICIAL FOUND\n")
    assert new_world.shell(f"stat -c '%U:%G %a %n' {PREFIX} {DATA} {DATA}/V*") == (
        f"root:clamav 755 {PREFIX}\nclamav:clamav 775 {DATA}\n" + "".join(
            f"clamav:clamav 664 {DATA}/{name}\n"
            for name in ("VestRUM.cud", "Vestrum.database", "Vestrum.database.signature")))
    assert new_world.path(CONFIGURATION).read_bytes() == before
    assert new_world.litter() == ""


@pytest.mark.versions(101)
def test_a_hundred_scripts_take_one_handshake(world):
    world.freshclam(1)
    world.install(1)
    outcome = world.run()
    assert outcome.status == 1 and outcome.stdout.count(".script [") == 100
    requests = [request for request in world.servers.requests() if request.path.startswith(SCRIPTED_PATH)]
    assert len(requests) == 201 and len({request.connection for request in requests}) == 1
    assert {request.agent for request in requests} == {f"Tarnwick/2.19.4 {MACINTOSH}"}
    assert world.version() == 101
    # The container that the run built contains scripts, and can still be patched.
    world.release(102)
    world.freshclam(1)
    assert PATCHED in world.run().stdout and world.version() == 102


def test_a_new_connection_resumes_the_tls_session(world):
    world.install(1)
    world.shell("sed -i 's/http {/&keepalive_timeout 0; ssl_session_cache shared:a:1m;/' /srv/nginx.conf")
    world.servers.restart()
    assert SCRIPTS in world.run().stdout
    requests = [request for request in world.servers.requests() if request.path.startswith(SCRIPTED_PATH)]
    assert [request.reused for request in requests] == [".", "r", "r", "r", "r"]


def answered(status, *names):
    return "".join(server_answered(status, LINKS, f"{SCRIPTED_PATH}/{name}") for name in names)


def servers_two_minutes_ahead(world):
    world.shell(f"rm {DATA}/VestRUM.cud")
    world.hurry(2, since=time.time() - 120)


UNVERIFIED = NEED_FULL + FULL_DOWNLOADED + FULL_FAILED
REJECTED = "DB integrity check failed. Deleting the new VestRUM.cud file.\n"
REJECTED_WHOLE = NEED_FULL + FULL_DOWNLOADED + FULL_REJECTED
TAR = "mount --bind /usr/bin/{} /usr/bin/tar"
HEADER = f"printf %s {{}} >{DATA}/VestRUM.cud"


class ContainerFailure(NamedTuple):
    said: str
    version: int = 3  # the version that is installed after the run; before it, 1 is
    errors: str = ""
    spoil: str | Callable = "true"
    answers: dict = {}  # of the servers
    sigtool: str = "none"  # the option of sigtool that fails
    clamscan: str | None = None  # a script that replaces clamscan
    warned: bool = False  # whether the run warns about the scanner


CONTAINER_FAILURES = {
    "empty version": ContainerFailure(LOCAL_1 + "Available version 0\nVestRUM.cud file is up-to-date\n", 1,
                                      answers={f"GET {VERSION_PATH}": {}}),
    "unpacking": ContainerFailure(FROM_1_TO_3 + UNPACK_FAILED + FULL_CONTAINER, sigtool="--unpack"),
    "script missing": ContainerFailure(
        FROM_1_TO_3 + SCRIPTS.splitlines(True)[0] + SCRIPT_FAILED.format(3)
        + FULL_CONTAINER, errors=answered(404, "VestRUM-3.script") + SIGNATURE_FAILED,
        spoil=f"rm {PUBLISHED_SCRIPTED}/VestRUM-3.script"),
    "applying": ContainerFailure(FROM_1_TO_3 + SCRIPTS + FULL_CONTAINER, sigtool="--run"),
    "packing": ContainerFailure(FROM_1_TO_3 + SCRIPTS + REPACK_FAILED + FULL_CONTAINER,
                                spoil=TAR.format("false")),
    "no archive": ContainerFailure(
        FROM_1_TO_3 + SCRIPTS + "Couldn't generate checksum of new cud file\n" + FULL_CONTAINER,
        spoil=TAR.format("true")),
    "joining": ContainerFailure(FROM_1_TO_3 + SCRIPTS + HEADER_FAILED + FULL_CONTAINER,
                                spoil="mount --bind /usr/bin/false /usr/bin/cat"),
    "scanner once": ContainerFailure(FROM_1_TO_3 + SCRIPTS + REJECTED + FULL_CONTAINER,
                                     clamscan="[ -e /srv/once ] || { >/srv/once; exit 1; }"),
    "scanner": ContainerFailure(FROM_1_TO_3 + SCRIPTS + REJECTED + REJECTED_WHOLE, 1, clamscan="exit 1"),
    "scanner missing": ContainerFailure(FROM_1_TO_3 + SCRIPTS + REJECTED + REJECTED_WHOLE, 1,
                                        spoil=f"rm {BIN}/clamscan", warned=True),
    "whole unsigned": ContainerFailure(
        UNVERIFIED, 0, answered(404, "VestRUM.cud.signature") + SIGNATURE_FAILED,
        f"rm {DATA}/VestRUM.cud {PUBLISHED_SCRIPTED}/VestRUM.cud.signature"),
    "clock slow": ContainerFailure(
        UNVERIFIED, 0, answered(410, "VestRUM.cud", "VestRUM.cud.signature") + SIGNATURE_FAILED,
        servers_two_minutes_ahead),
    "version 0": ContainerFailure("Local version 0\n" + FULL_CONTAINER, spoil=HEADER.format("x" * 600)),
    "version below 0": ContainerFailure("Local version -5\n" + FULL_CONTAINER,
                                        spoil=HEADER.format("a:b:-5:d:e:f:g:h:0")),
    "newer than all": ContainerFailure(CONTAINER_CURRENT.replace("version 3", "version 9", 1), 9,
                                       spoil=HEADER.format("a:b:9:d:e:f:g:h:0")),
    "empty": ContainerFailure("Unable to read header for file VestRUM.cud\nLocal version 0\n" + FULL_CONTAINER,
                              spoil=f">{DATA}/VestRUM.cud"),
    # A link could lead to a device, or to a file that only root may read.
    "link": ContainerFailure(f"Unable to open file {DATA}/VestRUM.cud\nLocal version 0\n" + FULL_CONTAINER,
                             spoil=f"cd {DATA}; chown clamav V*.cud; mv V*.cud /srv; ln -s /srv/VestRUM.cud ."),
}


@pytest.mark.parametrize("failure", CONTAINER_FAILURES.values(), ids=CONTAINER_FAILURES)
def test_each_container_failure_leads_to_its_fallback(world, failure):
    world.install(1)
    world.write(f"{DATA}/Vestrum.ndb", "kept until the container takes its place")
    world.sigtool(f"case $1 in {failure.sigtool}*) exit 1 ;; esac")
    if failure.clamscan:
        world.program("clamscan", failure.clamscan)
    world.spoil(failure.spoil, failure.answers)
    outcome = world.run()
    assert (outcome.status, outcome.stdout, outcome.stderr) == (
        0, SCANNER_WARNING * failure.warned + BANNER + failure.said + DEFINITIONS_CURRENT + FRESHCLAM_RUN,
        failure.errors)
    assert world.version() == failure.version
    assert ("hdb-Last-Modified" in world.state()) == (failure.version == 3)
    assert world.path(f"{DATA}/Vestrum.ndb").exists() == (failure.version != 3)
    assert world.litter() == ""


@pytest.mark.parametrize("current, older", [(None, "right"), ("right", "wrong")])
def test_the_state_of_an_older_domain_is_used_once(world, current, older):
    """And only for values that the current domain does not have."""
    values = {"right": world.state(), "wrong": {"database-Last-Modified": "some other date"}, None: {}}
    world.remember(values[current], STATE)
    world.remember(values[older], OLDER_STATE)
    assert world.run().status == 0
    assert (world.state(), world.state(OLDER_STATE)) == (values["right"], {})


def test_another_data_directory_moves_half_of_the_paths(world):
    world.install(1)
    world.shell(f"mkdir -p /data/db; touch {DATA}/mirrors.dat; cp {DATA}/*.cvd {DATA}/mirrors.dat /data/db")
    outcome = world.run("--datadir=/data/db")
    # The date in the state is read from the container in the default directory, which is still the old one.
    assert (outcome.status, outcome.stdout, world.version(), world.version("/data/db"), world.state()) == (
        1, BANNER + FROM_1_TO_3 + BY_SCRIPTS + DEFINITIONS_NEW
        + FRESHCLAM_RUN.replace("freshclam ", "freshclam --datadir=/data/db "), 1, 3,
        {"database-Last-Modified": world.modified("Vestrum.database"), "hdb-Last-Modified": world.built()})
    assert not world.path(f"{DATA}/mirrors.dat").exists()
    assert world.shell("ls /data/db; stat -c %U:%a /data/db /data/db/VestRUM.cud") == (
        "VestRUM.cud\nVestrum.database\nVestrum.database.signature\nbytecode.cvd\ndaily.cvd\nmain.cvd\nmirrors.dat\n"
        "clamav:775\nclamav:664\n")
    # Half a pair of files is searched for in the default directory, but deleted in the data directory.
    for broken, said in (("/data/db", DEFINITIONS_CURRENT), (DATA, DEFINITIONS_NEW)):
        world.freshclam(0)
        world.shell(f"rm {broken}/Vestrum.database.signature")
        assert BANNER + FROM_1_TO_3 + BY_SCRIPTS + said in world.run("--datadir=/data/db").stdout


def test_a_data_directory_that_cannot_be_written(world):
    world.install(1)
    world.shell("mkdir /data; mount -t tmpfs data /data")
    world.shell(f"cp {DATA}/*.cvd /data; mount -o remount,ro /data")
    moved = "File (/tmp/tarnwick-0/{}) couldn't be moved for some reason\n"
    outcome = world.run("--datadir=/data")
    assert outcome.stdout == (
        BANNER + FROM_1_TO_3 + BY_SCRIPTS
        + moved.format("VestRUMdefs/VestRUM.cud") + FULL_CONTAINER + DEFINITIONS_NEW + moved.format("Vestrum.database")
        + FRESHCLAM_RUN.replace("freshclam ", "freshclam --datadir=/data "))
    for name in ("VestRUM.cud", "Vestrum.database"):
        assert f"tarnwick: Cannot install /data/{name}: Read-only file system\n" in outcome.stderr
    assert (outcome.status, world.version()) == (0, 3)
    assert world.state()["database-Last-Modified"] == world.modified("Vestrum.database")
    assert world.litter() == ""


def test_quiet_and_log_select_what_is_printed_and_logged(world):
    log = "/srv/a.log"
    world.install(1)
    for arguments, first in ((["--quiet", f"--log={log}"], ""), ([f"--log={log}"], None)):
        world.freshclam(0)
        world.write(f"{DATA}/VestRUM.cud", world.container(1))
        world.write(log, "before\n")
        call = f"freshclam {' '.join(arguments)} --no-warnings\n"
        said = BANNER + FROM_1_TO_3 + BY_SCRIPTS + DEFINITIONS_CURRENT
        said += FRESHCLAM_RUN.removesuffix(FRESHCLAM_CALL)
        outcome = world.run(*arguments)
        assert (outcome.status, outcome.stdout) == (0, (said if first is None else first) + call)
        assert world.log(log) == "before\n" + said
        assert world.shell(f"stat -c %a {log}") == "666\n"
    # A quiet run does not mention the full container's download, not even in the log.
    world.shell(f"rm {DATA}/VestRUM.cud {log}")
    world.run("--quiet", f"--log={log}")
    assert world.log(log) == (BANNER + FULL_SOUND
                              + DEFINITIONS_CURRENT + FRESHCLAM_RUN.removesuffix(FRESHCLAM_CALL))


@pytest.mark.parametrize("arguments, wiped", [
    (["--remove-old-first"], True), (["--remove-old-first", "--log=/srv/a.log"], True),
    (["--remove-old-first", "--log=/tmp/a.log"], True),
    (["--remove-old-first", "--datadir=/srv/a#b"], True),
    (["-v", "-V", "--remove-old-first"], False)])
def test_remove_old_first_deletes_databases_and_log(world, arguments, wiped):
    folder = "/srv/a#b" if "--datadir=/srv/a#b" in arguments else DATA
    named = [argument.removeprefix("--log=") for argument in arguments if argument.startswith("--log=")]
    log = named[0] if named else f"{folder}/freshclam.log"
    old = ("Vestrum.ndb", "Vestrum.hdb", "Vestrum.fp", "Vestrum.ign2", "Vestrum.ldb", "old.cld", "old.cvd")
    for name in old:
        world.write(f"{folder}/{name}", "old")
    world.write(log, "old\n")
    outcome = world.run(*arguments, rate=1)
    assert outcome.stdout.startswith(
        WIPE * wiped + BANNER + (NEED_FULL if wiped and folder == DATA else CONTAINER_CURRENT))
    kept = " ".join(argument for argument in [*arguments, "--no-warnings"] if argument != "--remove-old-first")
    assert f"freshclam {kept}\n" in outcome.stdout
    assert {name for name in old if world.path(f"{folder}/{name}").exists()} == (set() if wiped else set(old))
    if named:  # the run also writes to the log after the wipe
        assert world.log(log).startswith(BANNER) and UPSTREAM_PHASE in world.log(log)
    assert ("old\n" in world.log(log), world.path(log).stat().st_mode & 0o777) == (
        not wiped, 0o664 if log.startswith(folder) else 0o666)
