"""The upstream databases: the recovery ladder for freshclam's exit statuses, direct downloads, the real freshclam."""

import signal
from typing import NamedTuple

import pytest

from testbed import CONFIGURATION, DATA, MACINTOSH, MIRROR, PREFIX, UPSTREAM, sample
from testbed.texts import (
    BANNER, CONTAINER_CURRENT, CONTAINER_PATH, DEFINITIONS_CURRENT, FRESHCLAM_CALL, PUBLIC_TREE, UPSTREAM_PHASE,
    UP_TO_DATE_RUN)

BEFORE = UP_TO_DATE_RUN.removesuffix(FRESHCLAM_CALL)
FALLBACK_START = "Still failing with network issues. Download full file.\nDownloading Defs version number\n"
NO_RECORD = FALLBACK_START + f"no defs version number available on {MIRROR}\n"
# Spare configurations can name mirrors of older releases.
SPARE_MIRRORS = {"BAK": "oldmirror.vestrum.example", "CLEAN": "content.vestrum.example"}
# What a call of the stand-in records: the configuration, its mirror, and the owner of the databases. Each call then
# gives the databases to root.
FOUND = {"first": f"live {MIRROR} clamav", "again": f"live {MIRROR} root", "repaired": f"live {MIRROR} clamav",
         "back": f"live {UPSTREAM} root", **{name: f"{name} {host} root" for name, host in SPARE_MIRRORS.items()}}
LADDER = [  # for each call of freshclam: what it records, and its exit status
    *(f"first {status}" for status in (0, 1, 2, 40, 51, 55, 60, 61, 127, 255, "killed")),
    *(f"first {status}, repaired 0" for status in (50, 53, 57)),
    *(f"first {status}, back 1" for status in (52, 54, 58, 59)),
    "first 56, BAK 0",
    "first 56, BAK 56, CLEAN 0",
    "first 56, BAK 56, CLEAN 56",
    "first 62, again 0",
    "first 50, repaired 50",
    "first 50, repaired 54, back 0",
    "first 50, repaired 56, BAK 0",
    "first 50, repaired 62, again 0",
    "first 54, back 50",
    "first 54, back 56, BAK 0",
    "first 59, back 62, back 0",
    "first 56, BAK 62, BAK 56",
    "first 62, again 62",
    "first 52, back 52",
    "first 56, BAK 52",
    "first 62, again 52",
    "first 50, repaired 52, back 56, BAK 56, CLEAN 62, CLEAN 0",
    "first 50, repaired 52, back 56, BAK 56, CLEAN 62, CLEAN 52",
]


def pairs(text):
    return (pair.split() for pair in text.split(", ") if pair)


@pytest.mark.parametrize("runs", LADDER)
def test_each_exit_status_of_freshclam_leads_to_its_repair(world, runs):
    found, statuses = zip(*pairs(runs))
    world.freshclam(*statuses)
    for name, host in SPARE_MIRRORS.items():
        world.shell(f"cd {PREFIX}/etc; echo '#= {name}' >>freshclam{name}.conf"
                    f"; sed -i 's/^DatabaseMirror .*/DatabaseMirror {host}/' freshclam{name}.conf")
    before = world.path(CONFIGURATION).read_bytes()
    stray = world.other_freshclam("root")
    outcome = world.run()
    assert (outcome.status, outcome.stdout, world.freshclam_calls()) == (
        137 if "killed" in runs else int(statuses[-1]),
        BEFORE + FRESHCLAM_CALL * len(found) + NO_RECORD * (statuses[-1] == "52"), [FOUND[name] for name in found])
    # The run terminates other freshclams only after status 62, because they may have locked the log.
    assert (stray.end().status == -signal.SIGTERM) == ("62" in statuses)
    faulty = world.path(f"{PREFIX}/etc/freshclamFAULTY.conf")
    left = FOUND[found[-1]].split()[0]
    assert faulty.exists() == ("56" in statuses)
    if left != "live":
        assert faulty.read_bytes() in (before, before.replace(UPSTREAM.encode(), MIRROR.encode()).replace(
            b"#DNSDatabaseInfo current.cvd.clamav.net\n#MaxAttempts 5",
            b"DNSDatabaseInfo version.vestrum.example\nMaxAttempts 1"))
        before += f"#= {left}\n".encode()
    assert world.path(CONFIGURATION).read_bytes() == before


def test_vendor_changes_raise_only_status_0_to_1(world):
    for freshclam, status in ((0, 1), (1, 1), (2, 2)):
        world.freshclam(freshclam)
        world.shell(f"rm -f {DATA}/V*")
        assert world.run().status == status


# The fields 1, 2 and 7 are the versions of main, daily and bytecode.
VERSION_RECORD = "0.103.12\t\x1b[2J\u009b:62:27400:1760000000:1:90:49192:{}\n"
STARTED = FRESHCLAM_CALL * 2 + FALLBACK_START


def shown(record):
    return record.replace("\x1b", "?").replace("\u009b", "?")


class Fallback(NamedTuple):
    installed: str  # installed files, and the version that sigtool reports for each
    offered: str  # the same for the files on the mirror
    seen: str  # files in the order of the output: with the version compared, or "fetched", or "kept" uninstalled
    status: int = 1
    bytecode: int | str = 339  # in the version record, which also has main 62 and daily 27400

    def said(self):
        available = {"main": 62, "daily": 27400, "bytecode": self.bytecode if self.bytecode != "x" else 0}
        for file, what in pairs(self.seen):
            if what in ("fetched", "kept"):
                yield f"Downloading {file} [100%]\n" + f"Downloaded {file} from {MIRROR}\n" * (what == "fetched")
            else:
                yield f"{file} installed: {what}, available: {available[file.split('.')[0]]}\n"


CURRENT_FILES = "main.cvd 62, daily.cvd 27400, bytecode.cvd 339"
FALLBACKS = {
    "all current": Fallback(CURRENT_FILES, "", f"{CURRENT_FILES}, {CURRENT_FILES}"),
    "one old": Fallback(
        "main.cvd 61, daily.cvd 27400, bytecode.cvd 340", "main.cvd 62", "main.cvd 61, main.cvd fetched, "
        "daily.cvd 27400, bytecode.cvd 340, main.cvd 62, daily.cvd 27400, bytecode.cvd 340"),
    "still old": Fallback(
        "main.cvd 62, daily.cvd -1, bytecode.cvd 339", "daily.cvd 27399", "main.cvd 62, daily.cvd -1, "
        "daily.cvd fetched, bytecode.cvd 339, main.cvd 62, daily.cvd 27399", 234),
    "increments decide": Fallback(
        "main.cvd 63, main.cld 60, daily.cld 27400, bytecode.cvd 1", "main.cvd 62", "main.cvd 63, main.cld 60, "
        "main.cvd fetched, daily.cld 27400, bytecode.cvd 1, main.cvd 62, daily.cld 27400, bytecode.cvd 1", 1, "x"),
    "version 0 stays out": Fallback(
        "main.cvd 62, daily.cvd 1, bytecode.cvd 339", "daily.cvd 0", "main.cvd 62, daily.cvd 1, daily.cvd kept, "
        "bytecode.cvd 339, main.cvd 62", 234),
    "a pipe": Fallback(
        "main.cvd pipe, daily.cvd 27400, bytecode.cvd 339", "main.cvd 62", "main.cvd -1, main.cvd fetched, "
        "daily.cvd 27400, bytecode.cvd 339, main.cvd 62, daily.cvd 27400, bytecode.cvd 339"),
    "not on the mirror": Fallback(
        "main.cvd 61, daily.cvd 27400, bytecode.cvd 339", "", "main.cvd 61, main.cvd fetched, daily.cvd 27400, "
        "bytecode.cvd 339, main.cvd -1", 234),
}


@pytest.mark.parametrize("fallback", FALLBACKS.values(), ids=FALLBACKS)
def test_whole_files_are_fetched_where_freshclam_cannot_connect(world, fallback):
    said = "".join(fallback.said())
    world.freshclam(52, 52)
    world.program("sigtool", '[ ! -p "$2" ] || exec echo "Version: 99"\n'  # on a pipe, the real one would block
                             '[ "$1" = -i ] && case $(cat "$2") in [0-9]*) echo "Version: $(cat "$2")" ;; '
                             '*) echo "Version: 9"; echo "ERROR: no database" ;; esac')
    world.shell(f"rm {DATA}/*.cvd")
    for folder, files in ((DATA, fallback.installed), ("/srv/vendor/mirror", fallback.offered)):
        for file, version in pairs(files):
            world.write(f"{folder}/{file}", version)
            if version == "pipe":
                world.shell(f"cd {folder}; rm {file}; mkfifo {file}")
    record = VERSION_RECORD.format(fallback.bytecode)
    world.write("/srv/vendor/mirror/dns.txt", record)
    log = "/srv/a.log"
    outcome = world.run(f"--log={log}")
    started = STARTED.replace("clam ", f"clam --log={log} ") + f"version number {shown(record)}\n"
    assert (outcome.status, outcome.stdout) == (fallback.status, BEFORE + started + said)
    progress = [line for line in said.splitlines(keepends=True) if line.startswith("Downloading ")]
    logged = BEFORE + started[2 * len(f"freshclam --log={log} --no-warnings\n"):] + said
    assert world.log(log) == logged.replace(progress[0] if progress else "\0", "")
    requests = [request for request in world.servers.requests() if request.host == MIRROR]
    assert [request.agent for request in requests if request.path.endswith(".cvd")] == [
        f"Tarnwick/2.19.4 (2.19.4) {MACINTOSH}"] * len(progress)
    # A download of version 0 keeps its temporary name until the next run deletes it.
    assert world.path(f"{DATA}/daily.cvd_download").exists() == ("kept" in fallback.seen)
    world.freshclam(0)
    world.write(f"{DATA}/daily.cvd", "27400")
    world.write(f"{DATA}/other.cvd_download", "somebody's")
    assert world.run().status == 0
    assert world.shell(f"cd {DATA}; ls *_download") == "other.cvd_download\n"


@pytest.mark.parametrize("record", [b"", b"1:2:3:4:5:6:7", b"\xff:1:2:3:4:5:6:7", b"x" * 3_000_000], ids=range(4))
def test_version_records_that_cannot_be_read(world, record):
    world.freshclam(52, 52)
    world.write("/srv/vendor/mirror/dns.txt", record)
    outcome = world.run()
    assert (outcome.status, outcome.stdout) == (52, BEFORE + FRESHCLAM_CALL * 2 + NO_RECORD)


@pytest.mark.parametrize("make, version", [
    ("cat {site}", -1), ("head -c 300 {site}", -1), ("head -c 700 {site}", -1), ("head -c 11 {site}", -1),
    ("echo '<html>404</html>'", 0), ("head -c 10 {site}", 0), (":", 0),
    ("ln -s {data}/VestRUM.cud {data}/../unsigned.cud", 3)])
def test_versions_that_the_real_sigtool_reads(world, make, version):
    world.freshclam(52, 52)
    world.write("/srv/vendor/mirror/dns.txt", VERSION_RECORD.format(0))
    site = f"{PUBLIC_TREE}{CONTAINER_PATH}"
    world.shell(f"{make.format(site=site, data=DATA)} >{DATA}/main.cvd")
    if version > 0:
        # sigtool accepts an unsigned container only if its name ends in .cud.
        world.program("sigtool", f"exec /usr/bin/sigtool -i {DATA}/../unsigned.cud")
    outcome = world.run()
    assert outcome.stdout.split(f"{shown(VERSION_RECORD.format(0))}\n")[1].startswith(
        f"main.cvd installed: {version}, available: 62\n")


def test_missing_databases_are_fetched_after_the_proxy_helper_ran(world):
    world.freshclam(1)
    world.shell(f"rm {DATA}/main.cvd; mv {DATA}/daily.cvd {DATA}/daily.cld; rm {DATA}/bytecode.cvd")
    world.write("/srv/vendor/mirror/main.cvd", "ClamAV-VDB:no good one")
    world.program("VestrumProxyHelper", "echo the helper was given $# arguments; exit 9")
    outcome = world.run()
    helper = "the helper was given 0 arguments\n"
    # Without an installed main, any file with a container's first bytes is installed. The mirror has no bytecode.
    assert (outcome.status, outcome.stdout) == (
        1, BANNER + CONTAINER_CURRENT + DEFINITIONS_CURRENT + "Checking proxy settings\n" + helper + UPSTREAM_PHASE
        + f"Downloading main.cvd [100%]\nDownloaded main.cvd from {MIRROR}\nDownloading bytecode.cvd [100%]\n"
        + FRESHCLAM_CALL)
    assert world.shell(f"cd {DATA} && ls *.c?d && cat main.cvd") == (
        "VestRUM.cud\ndaily.cld\nmain.cvd\nClamAV-VDB:no good one")
    # Direct downloads show their progress even with --quiet.
    world.freshclam(1)
    world.shell(f"rm {DATA}/main.cvd; echo dummy >{DATA}/bytecode.cvd")
    assert world.run("--quiet").stdout == helper + "Downloading main.cvd [100%]\nfreshclam --quiet --no-warnings\n"


def test_error_pages_of_the_mirror_do_not_reach_a_scanner(world):
    world.shell(f"rm {DATA}/*.cvd")
    world.write("/srv/sample", sample(3))
    assert world.run().status == 0
    starts = world.shell(f"cd {DATA}; for file in *; do echo $file $(head -c 6 $file); done")
    assert [line.split()[0] for line in starts.splitlines() if line.endswith(" <html>")] == [
        f"{name}.cvd_download" for name in ("bytecode", "daily", "main")], starts
    scan = world.command("clamscan", "--no-summary", "-d", DATA, "/srv/sample")
    assert (scan.status, scan.stdout, scan.stderr) == (1, "/srv/sample: Vestrum.Sample-3.UNOFFICIAL FOUND\n", "")


class Switch(NamedTuple):
    before: str
    after: str
    during: str | None = None  # what freshclam reads; None: the same as before


SWITCHES = {
    "unknown mirror, attempts of 12": Switch("DatabaseMirror a.example.org\nMaxAttempts 12\n",
                                             "DatabaseMirror a.example.org\n#MaxAttempts 52\n"),
    **{mirror: Switch(f"DatabaseMirror {mirror}\n", f"DatabaseMirror {UPSTREAM}\n", f"DatabaseMirror {MIRROR}\n")
       for mirror in ("oldmirror.vestrum.example", "content.vestrum.example")},
    "other characters instead of dots": Switch(
        "DatabaseMirror databaseXclamav-net\n#DNSDatabaseInfo current-cvd.clamav.net\n",
        f"DatabaseMirror {UPSTREAM}\n#DNSDatabaseInfo current.cvd.clamav.net\n",
        f"DatabaseMirror {MIRROR}\nDNSDatabaseInfo version.vestrum.example\n"),
    "twice in a line": Switch(*["#MaxAttempts 5 #MaxAttempts 5"] * 2, "MaxAttempts 1 MaxAttempts 1"),
    "empty": Switch("", ""),
}


@pytest.mark.parametrize("switch", SWITCHES.values(), ids=SWITCHES)
def test_the_configuration_is_switched_to_the_mirror_and_back(world, switch):
    world.program("freshclam", f"cat {CONFIGURATION} >/srv/seen")
    world.write(f"{PREFIX}/etc/real.conf", switch.before, 0o640)
    world.shell(f"cd {PREFIX}/etc; chown clamav real.conf; ln -sf real.conf freshclam.conf")
    assert world.run().status == 0
    assert world.log("/srv/seen") == (switch.before if switch.during is None else switch.during)
    assert world.log(CONFIGURATION) == switch.after
    assert world.shell(f"cd {PREFIX}/etc; stat -c '%F %U %a' freshclam.conf real.conf") == (
        "symbolic link root 777\nregular" + " empty" * (not switch.after) + " file clamav 640\n")


def test_the_real_freshclam_updates_from_the_mirror(new_world):
    new_world.custom_database()
    before = new_world.path(CONFIGURATION).read_bytes()
    outcome = new_world.run("--stdout")
    assert (outcome.status, outcome.stderr) == (1, "")
    assert UPSTREAM_PHASE in outcome.stdout and "custom.ndb updated" in outcome.stdout
    assert {(request.host, request.path) for request in new_world.servers.requests() if "Clam" in request.agent} == {
        (MIRROR, "/custom.ndb")}
    assert new_world.path(f"{DATA}/custom.ndb").exists() and new_world.path(CONFIGURATION).read_bytes() == before
    # freshclam opens the log as the user clamav, after this run has created it.
    assert new_world.run("--log=/var/log/new.log").status == 0
    assert "Checking ClamAV definitions\n" in new_world.log("/var/log/new.log") and (
        "custom.ndb is up-to-date" in new_world.log("/var/log/new.log"))
