"""Runs with broken files, programs and machines."""

from typing import NamedTuple

import pytest

from testbed import CONFIGURATION, DATA, MIRROR, PREFIX, STATE, TOOL, UPSTREAM
from testbed.texts import (
    BANNER, BY_SCRIPTS, CONTAINER_CURRENT, DEFINITIONS_CURRENT, DEFINITIONS_NEW, DEFINITIONS_PATH, DOWNLOAD_FAILED,
    FRESHCLAM_CALL, FRESHCLAM_RUN, FROM_1_TO_3, FULL_CONTAINER, FULL_DOWNLOADED, FULL_FAILED, FULL_REJECTED, LOCAL_1,
    NEED_FULL, SCANNER_WARNING, SCRIPT_FAILED, UPSTREAM_PHASE, UP_TO_DATE_RUN, VERSION_PATH, WIPE)
from testbed.world import SHUT_WORK_FOLDER

SAVED = "Downloading {} [100%]\n"


class VersionText(NamedTuple):
    body: bytes
    version: int
    printed: str | None
    follows: str = "VestRUM.cud file is up-to-date\n"


WORK = "currentTempDir: /tmp/tarnwick-0/VestRUMdefs\n"
VERSION_TEXTS = [
    VersionText(b"no number", 0, "no number"),
    VersionText(b"%s%n{}:1", 1, "%s%n{}:1"),
    VersionText(b"\xff:3", 0, None),
    VersionText(b" \r\n a:  3rd \n", 3, "a:  3rd", WORK + BY_SCRIPTS),
    VersionText(b"a:99999999999999999999", 2**63 - 1, "a:99999999999999999999", WORK
                + "Downloading VestRUM-2.script [  0%]\nDownloading VestRUM-3.script [  0%]\n"
                + SCRIPT_FAILED.format(4) + FULL_CONTAINER),
]


@pytest.mark.parametrize("text", VERSION_TEXTS, ids=lambda text: repr(text.body))
def test_unusual_version_texts_do_no_harm(world, text):
    world.install(1)
    world.servers.answer(f"GET {VERSION_PATH}", text.body)
    outcome = world.run()
    printed = "" if text.printed is None else f"version number {text.printed}\n"
    assert (outcome.status, outcome.stdout) == (
        0, BANNER + LOCAL_1 + f"{printed}Available version {text.version}\n{text.follows}" + DEFINITIONS_CURRENT
        + FRESHCLAM_RUN)


STATE_FILES = {
    "empty": b"", "nonsense": b"nonsense", "no text": b"\xff\xfe\0", "cut off": b"<plist><dict><key>a</key></dict>",
    "binary": b"bplist00" + b"\xff" * 40, "a list": b"<plist version='1.0'><array/></plist>", "deep": b"<" * 3_000_000,
    "NUL": b"<plist version='1.0'><dict><key>a</key><string>torn\0\0</string></dict></plist>",
    "a number": b"<plist><dict><key>k</key><integer>1</integer></dict></plist>",
    "no date": b"<plist><dict><key>k</key><date>2026-00-01T00:00:00Z</date></dict></plist>"}


@pytest.mark.parametrize("name", STATE_FILES)
def test_a_state_file_that_cannot_be_read_counts_as_empty(world, name):
    world.write(STATE, STATE_FILES[name])
    outcome = world.run()
    assert (outcome.status, outcome.stdout) == (1, BANNER + CONTAINER_CURRENT + DEFINITIONS_NEW + FRESHCLAM_RUN)
    assert world.state() == {"database-Last-Modified": world.modified("Vestrum.database")}


@pytest.mark.parametrize("modified, remembered", [("a\tb <&> é ]]>", True), ("Sun, \x01 Nov", False)])
def test_dates_are_stored_as_the_server_sent_them(world, modified, remembered):
    world.servers.answer(f"HEAD {DEFINITIONS_PATH}", headers=[f"Last-Modified: {modified}"], length=108)
    for said in (DEFINITIONS_NEW, DEFINITIONS_CURRENT if remembered else DEFINITIONS_NEW):
        assert world.run(env={"LANG": "abcdefghijkl"}).stdout == BANNER + CONTAINER_CURRENT + said + FRESHCLAM_RUN
        assert world.state() == ({"database-Last-Modified": modified} if remembered else {})


@pytest.mark.parametrize("content, version", [
    (None, "unknown"), (b"", "unknown"), (b"VERSION_ID=\n", "unknown"), (b"VERSION_ID='13.1'\n", "13.1"),
    (b'VERSION_ID="\xff"\n', "unknown"), (b"VERSION_ID=9\r\nEvil: header\n", "9"), (b"\0" * 3_000_000, "unknown"),
], ids=range(7))
def test_user_agents_name_the_operating_systems_version(world, content, version):
    world.shell("rm /etc/os-release")
    if content is not None:
        world.write("/etc/os-release", content)
    assert world.run().status == 0
    assert {request.agent for request in world.servers.requests()} == {
        f"Tarnwick/2.19.4 (Macintosh; Intel Mac OS X {version})"}


OFFICIAL = ("main.cvd", "daily.cvd", "bytecode.cvd")
NOTHING_INSTALLED = (
    SCANNER_WARNING + BANNER + NEED_FULL + FULL_DOWNLOADED + FULL_REJECTED + DEFINITIONS_NEW
    + "File (/tmp/tarnwick-0/Vestrum.database) couldn't be moved for some reason\n" + UPSTREAM_PHASE
    + "".join(f"Downloaded {name} from {MIRROR}\n" for name in OFFICIAL))


LOGGED = UP_TO_DATE_RUN.removesuffix(FRESHCLAM_CALL)
ON_MIRROR = "for f in main daily bytecode; do echo ClamAV-VDB:x >/srv/vendor/mirror/$f.cvd; done"


class BadMachine(NamedTuple):
    said: str = UP_TO_DATE_RUN
    status: int = 0
    spoil: str = "true"
    command: str = f"exec {TOOL}"  # the command line, for bash
    freshclam: str | None = None  # a script, instead of the stand-in that records its calls
    configured: bool = True  # whether freshclam.conf exists, and must name the upstream mirror after the run
    noted: str | None = None  # a line that the platform log must have once


MACHINES = {
    "no prefix": BadMachine(NOTHING_INSTALLED, 127, f"umount {PREFIX} 2>/dev/null || rm -rf {PREFIX}",
                            configured=False),
    "no clamav user": BadMachine(spoil="sed -i /^clamav:/d /etc/passwd /etc/group"),
    "state that is a folder": BadMachine(
        BANNER + CONTAINER_CURRENT + DEFINITIONS_NEW + FRESHCLAM_RUN, 1, f"rm {STATE}; mkdir {STATE}"),
    "state that cannot be written": BadMachine(
        BANNER + CONTAINER_CURRENT + DEFINITIONS_NEW + FRESHCLAM_RUN, 1, "mount -t tmpfs -o ro state /var/lib/tarnwick",
        noted=f"Cannot remember what is installed, and may fetch it again: {STATE}: Read-only file system"),
    "state folder open to others": BadMachine(UP_TO_DATE_RUN + "700\n", spoil="chmod 755 /var/lib/tarnwick",
                                              command=f"{TOOL}; stat -c %a /var/lib/tarnwick"),
    "temporary folder open to others": BadMachine(
        BANNER + FROM_1_TO_3.replace("tarnwick-0/", "SPARE/") + BY_SCRIPTS + DEFINITIONS_CURRENT
        + FRESHCLAM_RUN, spoil=f"mkdir -m 755 /tmp/tarnwick-0; cp /srv/vendor/containers/1.cud {DATA}/VestRUM.cud",
        command=f"{TOOL} | sed s/tarnwick-0-....../SPARE/; rmdir /tmp/tarnwick-0"),
    "staged files in another data directory": BadMachine(
        UP_TO_DATE_RUN.replace("clam -", "clam --datadir=/data -") + "bytecode.cvd\ndaily.cvd\nkept\nmain.cvd\n",
        spoil=f"cp -r {DATA} /data; touch /data/.tarnwick-staged.abcdef /data/kept",
        command=f"{TOOL} --datadir=/data; ls -A /data | grep -v V"),
    "no log folder": BadMachine(
        "tarnwick: The log /none/a.log is not written: No such file or directory\n"
        + UP_TO_DATE_RUN.replace("clam -", "clam --log=/none/a.log -"), command=f"exec {TOOL} --log=/none/a.log 2>&1"),
    "log behind a dangling link": BadMachine(
        "666\n", spoil="ln -s ../srv/new.log /srv/a.log", command=f"umask 077; exec {TOOL} --quiet --log=/srv/a.log",
        freshclam="stat -c %a /srv/new.log"),
    "log that is the output": BadMachine(
        f"Downloaded bytecode.cvd from {MIRROR}\nsymbolic link\n", freshclam="exit 0",
        spoil=f"ln -s /proc/self/fd/1 /srv/log; {ON_MIRROR}",
        command=f"{TOOL} --remove-old-first --quiet --log=/srv/log >/srv/out; tail -n 1 /srv/out; stat -c %F /srv/log"),
    "log that is a pipe with a reader": BadMachine(
        WIPE + "".join(map(SAVED.format, OFFICIAL))
        + f"no defs version number available on {MIRROR}\n",
        spoil=f"mkfifo /srv/log; {ON_MIRROR}", freshclam="exit 52",
        command="cat /srv/log >/srv/read & until grep -q ^257 /proc/$!/syscall; do :; done; "
        f"{TOOL} --remove-old-first --quiet --log=/srv/log; wait $!; tail -n 1 /srv/read"),
    "log to a pipe": BadMachine(UP_TO_DATE_RUN.replace("clam -", "clam --quiet --log=/dev/stdout -"),
                                command=f"{TOOL} --quiet --log=/dev/stdout | cat"),
    "log that is a pipe": BadMachine(
        WIPE + "".join(map(SAVED.format, OFFICIAL))
        + "freshclam --quiet --log=/srv/log --no-warnings\nfifo\n",
        spoil=f"mkfifo /srv/log; {ON_MIRROR}",
        command=f"{TOOL} --remove-old-first --quiet --log=/srv/log; stat -c %F /srv/log"),
    "closed streams": BadMachine(
        LOGGED * 2, command=f"{TOOL} --log=/srv/log >&- 2>&-; {TOOL} --log=/srv/log <&- >&- 2>&-; "
        "cat /srv/log /var/lib/tarnwick/lock"),
    "full output": BadMachine("", command=f"exec {TOOL} >/dev/full"),
    "no room in any file": BadMachine(
        UP_TO_DATE_RUN.replace("freshclam -", f"Downloaded main.cvd from {MIRROR}\nfreshclam -"),
        spoil=f"rm {DATA}/main.cvd; head -c 9999 /dev/zero >/srv/vendor/mirror/main.cvd",
        command=f"ulimit -f 4; exec {TOOL}"),
    "broken output": BadMachine("", command=f"exec 3> >(exec true); wait $!; exec {TOOL} >&3", freshclam="exit 0"),
    "children that the caller ignores": BadMachine(command=f"exec env --ignore-signal=CHLD {TOOL}"),
    "descriptor that the caller left open": BadMachine(
        LOGGED + "nothing\n", command=f"exec 7<>/srv/x {TOOL}",
        freshclam="[ ! -e /proc/$$/fd/7 ] && echo nothing"),
    "not root": BadMachine(status=7, spoil="chmod 755 /var/lib/tarnwick",
                           command=f"exec setpriv --reuid=65534 --regid=65534 --clear-groups {TOOL}",
                           freshclam="echo freshclam $*; exit 7",
                           noted="Not running as root: this run may be unable to install what it fetches."),
    "no configuration": BadMachine(spoil=f"rm {CONFIGURATION}", freshclam="echo freshclam $*", configured=False),
    "configuration that cannot be edited": BadMachine(
        spoil=f"cd {PREFIX}/etc; mount --bind freshclam.conf freshclam.conf; mount -o remount,bind,ro freshclam.conf",
        freshclam="echo freshclam $*"),
}


@pytest.mark.parametrize("bad", MACHINES.values(), ids=MACHINES)
def test_a_run_copes_with_a_bad_machine(world, bad):
    if bad.freshclam:
        world.program("freshclam", bad.freshclam)
    world.shell(bad.spoil)
    outcome = world.finish(world.start("bash", "-c", bad.command))
    assert (outcome.status, outcome.stdout) == (bad.status, bad.said)
    if bad.noted:
        assert outcome.stderr.splitlines().count(f"tarnwick: {bad.noted}") == 1, outcome.stderr
    if bad.configured:
        assert f"DatabaseMirror {UPSTREAM}\n" in world.log(CONFIGURATION)
    if world.path(PREFIX).exists():
        assert world.litter() == ""


@pytest.mark.parametrize("folder, spoil", [
    ("/tmp", "mount -t tmpfs -o ro,mode=1777 tmp /tmp"), ("/tmp", SHUT_WORK_FOLDER),
    ("/tmp", "ln -s /srv /tmp/tarnwick-0; mount --bind /tmp /tmp; mount -o remount,bind,ro /tmp")])
def test_a_run_without_a_temporary_folder_still_checks_the_definitions(world, folder, spoil):
    world.install(1)
    world.shell(spoil)
    outcome = world.run(env={"TMPDIR": folder})
    said = FROM_1_TO_3.replace("/tmp/", f"{folder}/") + "Couldn't create temp dir\n" + NEED_FULL
    assert (outcome.stdout, outcome.stderr) == (
        BANNER + said + FULL_FAILED + DEFINITIONS_CURRENT + FRESHCLAM_RUN,
        DOWNLOAD_FAILED)
    assert not world.path("/srv/VestRUMdefs").exists()


@pytest.mark.parametrize("folder, reason", [
    ("/srv/mine", None), ("/srv/sticky", None), ("/srv/link/mine", None),
    ("mine", "no absolute path of plain characters"), ("/srv/mine;id", "no absolute path of plain characters"),
    ("/none", "No such file or directory"),
    ("/etc/passwd", "Not a directory"), ("/srv/shared", "others can change it"),
    ("/srv/theirs", "others can change it"), ("/srv/shared/mine", "others can change /srv/shared"),
    ("/srv/sticky/theirs/mine", "others can change /srv/sticky/theirs"),
    ("/srv/sticky/link", "others can change /srv/sticky/link"),
    ("/srv/way/mine", "others can change /srv/shared"), ("/srv/full", "Read-only file system")])
def test_tmpdir_is_used_only_if_others_cannot_change_it(world, folder, reason):
    world.shell("""cd /srv; mkdir -m 1777 sticky; mkdir -m 777 shared; mkdir -p mine sticky/theirs/mine shared/mine full
ln -s . link; ln -s shared way; ln -s ../mine sticky/link; chown -h clamav sticky/link; chown clamav sticky/theirs
install -d -o clamav theirs; mount -t tmpfs -o ro full full""")
    world.install(1)
    outcome = world.run(env={"TMPDIR": folder})
    used = folder if reason is None else "/tmp"
    assert (outcome.stdout, outcome.stderr) == (
        BANNER + FROM_1_TO_3.replace("/tmp/", f"{used}/") + BY_SCRIPTS + DEFINITIONS_CURRENT
        + FRESHCLAM_RUN, f"tarnwick: TMPDIR is not used: {reason}. Temporary files go to /tmp/tarnwick-0.\n"
        if reason else "")
    assert world.shell("find /srv /tmp -name 'tarnwick-0*'") == ""


MEBIBYTE = 1 << 20


def test_a_disk_with_room_for_one(world):
    """A database downloaded on the same disk needs its size once. One moved from another disk may use the old one's."""
    world.shell("mkdir /data; mount -t tmpfs -o size=7m data /data; mount -t tmpfs tmp /tmp")
    for name in ("bytecode.cvd", "daily.cvd"):
        world.write(f"/data/{name}", "dummy")
    world.write("/srv/vendor/mirror/main.cvd", b"ClamAV-VDB:".ljust(4 * MEBIBYTE))
    world.write("/data/Vestrum.database", bytes(5 * MEBIBYTE))
    world.publish_definitions(bytes(5 * MEBIBYTE // 2))
    outcome = world.run("--datadir=/data")
    assert outcome.stdout == (
        BANNER + CONTAINER_CURRENT + DEFINITIONS_NEW.replace(" 108 ", f" {5 * MEBIBYTE // 2} ") + FRESHCLAM_RUN.replace(
            "\nfreshclam ",
            f"\n{SAVED.format('main.cvd')}Downloaded main.cvd from {MIRROR}\nfreshclam --datadir=/data "))
    assert world.shell("cd /data; stat -c '%s %n' *.cvd Vestrum.database") == (
        f"5 bytecode.cvd\n5 daily.cvd\n{4 * MEBIBYTE} main.cvd\n{5 * MEBIBYTE // 2} Vestrum.database\n")


@pytest.mark.parametrize("argument", ["--datadir=", "--datadir=/", "--datadir=//."])
def test_a_data_directory_at_the_root_changes_no_modes_or_owners(world, argument):
    before = set(world.shell("stat -c '%a %U %n' / /*").splitlines())
    assert world.run(argument).status in (0, 1)
    assert before <= set(world.shell("stat -c '%a %U %n' / /*").splitlines())


AGAIN = "No internet connection available. Trying again in 5 seconds...\n"
GIVING_UP = "No internet connection available. Giving up.\n"


@pytest.mark.parametrize("route, reachable", [
    ("add default dev uplink", True), ("add default via fd00::2 dev uplink", True), ("add unreachable default", False),
    ("add blackhole default", False), ("add 192.0.3.0/24 dev uplink", False), ("", False),
    # Virtual private networks add such routes.
    ("add 0.0.0.0/1 dev uplink", False), ("add ::/1 dev uplink", False)])
def test_a_run_waits_for_a_default_route(world, route, reachable):
    before = world.log(CONFIGURATION)
    family = "-6" if ":" in route else "-4"
    world.shell(f"ip route del default; ip -6 addr add fd00::1/64 dev uplink nodad; ip {family} route {route}"
                if route else "ip link set uplink down")
    outcome = world.run("--quiet", "--log=/srv/a.log", rate=60)
    call = "freshclam --quiet --log=/srv/a.log --no-warnings\n"
    assert (outcome.status, outcome.stdout) == ((0, call) if reachable else (123, AGAIN * 3 + GIVING_UP))
    assert world.path("/srv/a.log").exists() == reachable and world.log(CONFIGURATION) == before


def test_network_that_comes_up_in_the_second_pause(world):
    world.shell("ip route del default")
    job = world.launch()
    job.read_until(AGAIN + AGAIN)
    world.shell("ip route add default via 192.0.2.1")
    outcome = world.finish(job)
    assert (outcome.status, outcome.stdout) == (0, UP_TO_DATE_RUN)


NEVER = "".join(f"Vestrum.{kind} updated never\n" for kind in ("fp", "hdb", "ign2", "ndb", "ldb", "database"))


@pytest.mark.parametrize("arguments, zone, date", [
    (["--version"], "UTC", "2026-11-22 22:40:01 Z"), (["-V", "--quiet"], "Asia/Kolkata", "2026-11-23 04:10:01 +05:30"),
    (["-V"], "America/St_Johns", "2026-11-22 19:10:01 -03:30")])
def test_the_version_report_dates_each_database(new_world, arguments, zone, date):
    missing = f"Unable to open file {DATA}/VestRUM.cud\n" * 2
    outcome = new_world.run(*arguments, env={"TZ": zone})
    assert (outcome.status, outcome.stdout) == (0, f"Tarnwick 2.19.4\n{missing}VestRUM.cud (v0) updated never\n{NEVER}")
    new_world.write(f"{DATA}/VestRUM.cud", "ClamAV-VDB:d:7:1:1:m:X:v:1795387201".ljust(512) + "archive")
    new_world.shell(f"touch -d @1795387201.9 {DATA}/Vestrum.ldb")
    outcome = new_world.finish(new_world.start("setpriv", "--reuid=65534", TOOL, *arguments, env={"TZ": zone}))
    assert (outcome.status, outcome.stderr, outcome.stdout) == (
        0, "", f"Tarnwick 2.19.4\nVestRUM.cud (v7) updated {date}\n"
        + NEVER.replace("ldb updated never", f"ldb updated {date}"))
