"""The vendor's own definitions: whole transcripts of runs, every way in which a step can fail, and what is left."""

import io
import time
import zipfile

import pytest

from testbed import BIN, CONFIGURATION, DATA, LINKS, MACINTOSH, NOBODY, OLDER_STATE, PREFIX, definitions_text, sample
from testbed.transcripts import (BANNER, CURRENT, FETCHED, FRESHCLAM, FULL, INSTALLED, LOCAL, NEWER, SCRIPTS, SOUND,
                               UNCHANGED, WARNING)
from testbed.machine import seen_inside
from testbed.world import EXECUTABLE

SCRIPTED = "/VestRUM2/Scripted/"
DATABASE = "/VestRUM2/Vestrum.database"


def paths(world):
    return [(request.method, request.path.removeprefix("/VestRUM2/")) for request in world.servers.requests()]


def whole(name):
    return [("GET", name), ("GET", name + ".signature")]


def test_first_run_then_up_to_date_then_three_scripts(world):
    world.freshclam(0, 1, 1)
    world.servers.place(links="::1")
    world.shell(f"chown clamav:clamav {PREFIX}")
    before = world.path(CONFIGURATION).read_bytes()
    first = world.run()
    assert (first.status, first.stdout, first.stderr) == (1, BANNER + FULL + FETCHED + INSTALLED + FRESHCLAM, "")
    assert paths(world) == [*whole("Scripted/VestRUM.cud"), ("HEAD", "Vestrum.database"), *whole("Vestrum.database")]
    assert world.version() == 3
    state = {"database-Last-Modified": world.modified("Vestrum.database"),
             "hdb-Last-Modified": world.modified("Scripted/VestRUM.cud")}
    assert (world.state(), world.state(OLDER_STATE)) == (state, {})

    second = world.run()
    assert (second.status, second.stdout, second.stderr) == (1, BANNER + CURRENT + UNCHANGED + FRESHCLAM, "")
    assert world.state() == {"database-Last-Modified": state["database-Last-Modified"]}

    for version in (4, 5, 6):
        world.release(version)
    world.servers.requests()
    third = world.run()
    patched = NEWER.format(local=3, available=6) + "".join(
        f"Downloading VestRUM-{version}.script [{percent:3}%]\n" for version, percent in ((4, 33), (5, 66), (6, 100)))
    assert (third.status, third.stdout, third.stderr) == (
        1, BANNER + patched + "Processing updates…\n" + SOUND + UNCHANGED + FRESHCLAM, "")
    assert paths(world) == [("GET", "Scripted/VestRUM-db-version.txt"),
                            *(request for n in (4, 5, 6) for request in whole(f"Scripted/VestRUM-{n}.script")),
                            ("HEAD", "Vestrum.database")]
    assert world.state().keys() == {"database-Last-Modified", "hdb-Last-Modified"}

    world.write("/srv/sample", sample(6))
    found = world.command("clamscan", "--no-summary", "-d", f"{DATA}/VestRUM.cud", "/srv/sample")
    assert (found.status, found.stdout) == (1, "/srv/sample: Vestrum.Sample-6.UNOFFICIAL FOUND\n")
    assert world.shell(f"stat -c '%U:%G %a %n' {PREFIX} {DATA} {DATA}/V*") == (
        f"root:clamav 755 {PREFIX}\nclamav:clamav 775 {DATA}\n" + "".join(
            f"clamav:clamav 664 {DATA}/{name}\n"
            for name in ("VestRUM.cud", "Vestrum.database", "Vestrum.database.signature")))
    assert world.path(CONFIGURATION).read_bytes() == before
    assert world.litter() == ""


@pytest.mark.versions(101)
def test_a_hundred_scripts_take_one_handshake(world):
    world.freshclam(1)
    world.install(1)
    outcome = world.run()
    assert outcome.status == 1 and outcome.stdout.count(".script [") == 100
    requests = [request for request in world.servers.requests() if request.path.startswith(SCRIPTED)]
    assert len(requests) == 201 and len({request.connection for request in requests}) == 1
    assert {request.agent for request in requests} == {f"Tarnwick/2.19.4 {MACINTOSH}"}
    assert world.version() == 101
    # What was built here holds its own scripts, and is brought forward all the same.
    world.release(102)
    world.freshclam(1)
    assert SOUND in world.run().stdout and world.version() == 102


def test_a_connection_that_was_closed_is_resumed(world):
    world.freshclam(0)
    world.install(1)
    world.shell("sed -i 's/http {/&keepalive_timeout 0; ssl_session_cache shared:a:1m;/' /srv/nginx.conf")
    world.servers.restart()
    assert SCRIPTS in world.run().stdout
    requests = [request for request in world.servers.requests() if request.path.startswith(SCRIPTED)]
    assert [request.reused for request in requests] == [".", "r", "r", "r", "r"]


def shut(world, path):
    """A folder that not even root can write to."""
    world.shell(f"mkdir -pm 700 {path}; mount -t tmpfs -o ro,mode=700 shut {path}")


def replace(world, program, other):
    world.shell(f"mount --bind /usr/bin/{other} /usr/bin/{program}")


def sigtool_failing_at(world, option):
    world.program("sigtool", f'case $1 in {option}*) exit 1 ;; esac\nexec /repository/packaging/linux/sigtool "$@"')


def remove(world, name):
    world.shell(f"rm /srv/vendor/site{SCRIPTED}{name}")


def answered(status, *names):
    return "".join(f"tarnwick: The server answered {status} for https://{LINKS}{SCRIPTED}{name}\n" for name in names)


def another_secret(world):
    world.shell(f"sed -i s/Kesto-Ra/another/ /srv/site.conf; rm {DATA}/VestRUM.cud")
    world.servers.restart()


def servers_two_minutes_ahead(world):
    world.shell(f"rm {DATA}/VestRUM.cud")
    world.hurry(2, since=time.time() - 120)


TAMPERED = "tarnwick: Download failed sig check\n"
UNVERIFIED = "Failed to download and/or verify VestRUM.cud\n"
ERROR = "Failed to get available defs version number: ERROR\n"
REJECTED = "DB integrity check failed. Deleting the new VestRUM.cud file.\n"
REJECTED_WHOLE = ("Downloading VestRUM.cud [100%]\n"
                  "VestRUM.cud DB integrity check failed. Deleting the newly downloaded file\n")
OLD = NEWER.format(local=1, available=3)
# What is broken, what is said about it, standard error, and the version installed in the end.
CONTAINER_FAILURES = {
    "nothing listens": (lambda w: w.servers.place(links=NOBODY), LOCAL + ERROR + "Available version 0\n"
                        "VestRUM.cud file is up-to-date\n", "", 1),
    "empty version": (lambda w: w.servers.answer(f"GET {SCRIPTED}VestRUM-db-version.txt"),
                      LOCAL + "Available version 0\nVestRUM.cud file is up-to-date\n", "", 1),
    "no work folder": (lambda w: shut(w, "/tmp/tarnwick-0"), OLD + "Couldn't create temp dir\n" + FULL + UNVERIFIED,
                       "tarnwick: Download failed! ERROR\n", 1),
    "unpacking": (lambda w: sigtool_failing_at(w, "--unpack"), OLD + "Couldn't unpack cud file\n" + FULL + FETCHED,
                  "", 3),
    "script missing": (lambda w: remove(w, "VestRUM-3.script"), OLD + "Downloading VestRUM-2.script [ 50%]\n"
                       "Failed to download and verify VestRUM-3.script\nProcessing updates…\n" + FULL + FETCHED,
                       answered(404, "VestRUM-3.script") + TAMPERED, 3),
    "script cut": (lambda w: w.servers.answer(f"GET {SCRIPTED}VestRUM-2.script", "x", length=9), OLD
                   + "Failed to download and verify VestRUM-2.script\nProcessing updates…\n" + FULL + FETCHED, "", 3),
    "applying": (lambda w: sigtool_failing_at(w, "--run"), OLD + SCRIPTS + FULL + FETCHED, "", 3),
    "packing": (lambda w: replace(w, "tar", "false"), OLD + SCRIPTS + "Repackage failed\n" + FULL + FETCHED, "", 3),
    "no archive": (lambda w: replace(w, "tar", "true"), OLD + SCRIPTS
                   + "Couldn't generate checksum of new cud file\n" + FULL + FETCHED, "", 3),
    "joining": (lambda w: replace(w, "cat", "false"), OLD + SCRIPTS
                + "Couldn't write header of new cud file\n" + FULL + FETCHED, "", 3),
    "scanner once": (lambda w: w.program("clamscan", "[ -e /srv/once ] || { >/srv/once; exit 1; }"), OLD + SCRIPTS
                     + REJECTED + FULL + FETCHED, "", 3),
    "scanner": (lambda w: w.program("clamscan", "exit 1"), OLD + SCRIPTS + REJECTED + FULL + REJECTED_WHOLE, "", 1),
    "scanner missing": (lambda w: w.shell(f"rm {BIN}/clamscan"), OLD + SCRIPTS + REJECTED + FULL + REJECTED_WHOLE, "",
                        1),
    "whole unsigned": (lambda w: (w.shell(f"rm {DATA}/VestRUM.cud"), remove(w, "VestRUM.cud.signature")), FULL
                       + "Downloading VestRUM.cud [100%]\n" + UNVERIFIED,
                       answered(404, "VestRUM.cud.signature") + TAMPERED, 0),
    "another secret": (another_secret, FULL + "Downloading VestRUM.cud [100%]\n" + UNVERIFIED,
                       answered(403, "VestRUM.cud", "VestRUM.cud.signature") + TAMPERED, 0),
    "clock slow": (servers_two_minutes_ahead, FULL + "Downloading VestRUM.cud [100%]\n" + UNVERIFIED,
                   answered(410, "VestRUM.cud", "VestRUM.cud.signature") + TAMPERED, 0),
    "version 0": (lambda w: w.write(f"{DATA}/VestRUM.cud", "x" * 600), "Local version 0\n" + FULL + FETCHED, "", 3),
    "empty": (lambda w: w.write(f"{DATA}/VestRUM.cud"), "Unable to read header for file VestRUM.cud\n"
              "Local version 0\n" + FULL + FETCHED, "", 3),
}


@pytest.mark.parametrize("name", CONTAINER_FAILURES)
def test_container_failures(world, name):
    prepare, said, errors, version = CONTAINER_FAILURES[name]
    world.freshclam(0)
    world.install(1)
    world.write(f"{DATA}/Vestrum.ndb", "kept until the container takes its place")
    prepare(world)
    outcome = world.run()
    assert (outcome.status, outcome.stdout, outcome.stderr) == (
        0, WARNING * (name == "scanner missing") + BANNER + said + UNCHANGED + FRESHCLAM, errors)
    assert world.version() == version
    assert ("hdb-Last-Modified" in world.state()) == (version == 3)
    assert world.path(f"{DATA}/Vestrum.ndb").exists() == (version != 3)
    if "folder" not in name:
        assert world.litter() == ""


def publish_again(world, text=definitions_text(2)):
    world.write("/srv/definitions", text)
    world.publish(*(["definitions", "/srv/definitions"] if text else ["withdraw"]))


FETCHED_DATABASE = "Downloading Vestrum.database [100%]\n"
INVALID = "Vestrum.database definitions file is not valid. Delete it.\n"
WITHDRAWN = (FETCHED_DATABASE + "Vestrum.database is valid and has file size: 0 bytes\nDownloaded file is deliberately "
             "empty, delete Vestrum.database from defs db directory.\n")
FAILED = "tarnwick: Download failed! ERROR\n"
# What is broken, what is said, standard error, whether the new date is stored, and what is left of the installed file.
DEFINITIONS_FAILURES = {
    "nothing listens": (lambda w: w.servers.place(content=NOBODY),
                        "Error occurred downloading Vestrum.database\n", "", False, 1),
    "busy": (lambda w: w.servers.answer(f"HEAD {DATABASE}", status="503 Later"),
             "Error occurred downloading Vestrum.database\n", "", False, 1),
    "not there": (lambda w: w.shell(f"rm -r /srv/vendor/site/VestRUM2/{DATABASE[10:]}"),
                  "Nothing to download for Vestrum.database\n", "", False, 1),
    "same": (lambda w: None, UNCHANGED, "", True, 1),
    "same but lost": (lambda w: w.shell(f"rm {DATA}/Vestrum.database"), INSTALLED, "", True, 1),
    "half a pair": (lambda w: w.shell(f"rm {DATA}/Vestrum.database.signature"), INSTALLED, "", True, 1),
    "new": (publish_again, INSTALLED, "", True, 2),
    "new, scanner content with nothing": (lambda w: (publish_again(w), w.program("clamscan", "exit 2")),
                                          INSTALLED, "", True, 2),
    "unsigned": (lambda w: (publish_again(w), w.servers.answer(f"GET {DATABASE}.signature", "bm9wZQ==")),
                 FETCHED_DATABASE + INVALID, "", False, 1),
    "signature empty": (lambda w: (publish_again(w), w.servers.answer(f"GET {DATABASE}.signature")),
                        FETCHED_DATABASE + INVALID, "", False, 1),
    "cut short": (lambda w: (publish_again(w), w.servers.answer(f"GET {DATABASE}", "x", length=99)),
                  INVALID, FAILED, False, 1),
    "withdrawn": (lambda w: publish_again(w, ""), WITHDRAWN, "", True, None),
    "no room": (lambda w: (publish_again(w), shut(w, "/tmp/tarnwick-0")), INVALID, FAILED, False, 1),
}


@pytest.mark.parametrize("name", DEFINITIONS_FAILURES)
def test_definitions_failures(world, name):
    prepare, said, errors, stored, left = DEFINITIONS_FAILURES[name]
    world.freshclam(0)
    world.install(3)
    before = world.state()
    prepare(world)
    after = {"database-Last-Modified": world.modified("Vestrum.database")} if stored else before
    outcome = world.run()
    assert outcome.stdout == BANNER + CURRENT + said + FRESHCLAM
    assert (outcome.status, outcome.stderr, world.state()) == (int(stored and said != UNCHANGED), errors, after)
    file = world.path(f"{DATA}/Vestrum.database")
    assert (file.read_text() if file.exists() else None) == (left and definitions_text(left))


def archive(*names, text=definitions_text(2)):
    """A zip archive of files, and of folders where a name ends in a slash."""
    stream = io.BytesIO()
    with zipfile.ZipFile(stream, "w", zipfile.ZIP_DEFLATED) as made:
        for name in names:
            made.writestr(name, "" if name.endswith("/") else text)
    return stream.getvalue()


MOVED = "DB integrity check is sound. Move Vestrum.ndb into place\n"
SPOILT = "DB integrity check failed. Deleting the new Vestrum.ndb file.\n"
EMPTY = "Downloaded file is deliberately empty, delete Vestrum.ndb from defs db directory.\n"
# A zipped item: what is published, what else is wrong, what is said, and what is left of the installed file.
ZIPPED_ITEMS = {
    "sound": (archive("Vestrum.ndb"), None, MOVED, 2),
    "with a warning": (b"more" + archive("Vestrum.ndb"), None, SPOILT, 1),
    "of something else": (archive("Vestrum.other"), None, EMPTY, None),
    "of an empty file": (archive("Vestrum.ndb", text=""), None, EMPTY, None),
    "of a folder": (archive("Vestrum.ndb/"), None, SPOILT, 1),
    "cut off": (archive("Vestrum.ndb")[:-30], None, SPOILT, 1),
    "no unzip": (archive("Vestrum.ndb"), lambda w: w.shell("mount --bind /dev/null /usr/bin/unzip"), SPOILT, 1),
    "disk full": (archive("Vestrum.ndb", text="x" * 3_000_000),
                  lambda w: w.shell("mount -t tmpfs -o size=1m tmp /tmp"), SPOILT, 1),
    "left behind": (archive("Vestrum.other"), lambda w: w.shell(
        "mkdir -m 700 /tmp/tarnwick-0; echo unsigned >/tmp/tarnwick-0/Vestrum.ndb"), EMPTY, None),
}


@pytest.mark.parametrize("name", ZIPPED_ITEMS)
def test_zipped_items(world, name):
    published, spoil, said, left = ZIPPED_ITEMS[name]
    world.write(f"{DATA}/Vestrum.ndb", definitions_text(1))
    site = "/srv/vendor/site/VestRUM2/Vestrum.ndb.zip"
    world.write(site, published)
    world.shell(f"openssl dgst -sha1 -binary {site} | openssl dgst -sha1 -sign /srv/vendor/private.pem | base64 -w0 "
                f">{site}.signature")
    if spoil:
        spoil(world)
    outcome = world.finish(world.start(seen_inside(EXECUTABLE.parent / "tests/unit/tarnwick_update_item"), "ndb.zip"))
    assert outcome.stdout == (f"Downloading Vestrum.ndb [100%]\nVestrum.ndb.zip is valid and has file size: "
                              f"{len(published)} bytes\n{said}")
    assert (outcome.status, world.state()) == (int(said != SPOILT), {
        "ndb-Last-Modified": "stored before" if said == SPOILT else world.modified("Vestrum.ndb.zip")})
    file = world.path(f"{DATA}/Vestrum.ndb")
    assert (file.read_text() if file.exists() else None) == (left and definitions_text(left))
    assert not world.path("/tmp/tarnwick-0/Vestrum.ndb.zip").exists()


def test_withdrawn_file_is_not_asked_for_again(world):
    world.freshclam(0, 0)
    world.install(3)
    publish_again(world, "")
    assert world.run().status == 1
    again = world.run()
    assert (again.status, again.stdout) == (0, BANNER + CURRENT + UNCHANGED + FRESHCLAM)
    assert world.shell(f"cd {DATA} && ls -d V*") == "VestRUM.cud\n"


def test_an_older_domain_serves_one_run(world):
    world.freshclam(0)
    world.install(3)
    values = world.state()
    world.shell("rm /var/lib/tarnwick/*")
    world.remember(values, OLDER_STATE)
    assert world.run().status == 0
    assert (world.state(), world.state(OLDER_STATE)) == (values, {})


def test_data_directory_elsewhere_moves_half_of_the_paths(world):
    world.freshclam(0)
    world.install(1)
    world.shell(f"mkdir -p /data/db; touch {DATA}/mirrors.dat; cp {DATA}/*.cvd {DATA}/mirrors.dat /data/db")
    outcome = world.run("--datadir=/data/db")
    # The date of the container is read where the old one still stands.
    assert (outcome.status, outcome.stdout, world.version(), world.version("/data/db"), world.state()) == (
        1, BANNER + OLD + SCRIPTS + SOUND + INSTALLED
        + FRESHCLAM.replace("freshclam ", "freshclam --datadir=/data/db "), 1, 3,
        {"database-Last-Modified": world.modified("Vestrum.database"),
         "hdb-Last-Modified": world.shell(f"date -ud @$(head -c 512 {DATA}/VestRUM.cud | cut -d: -f9) "
                                          "'+%a, %d %b %Y %T GMT'").strip()})
    assert not world.path(f"{DATA}/mirrors.dat").exists()
    assert world.shell("ls /data/db; stat -c %U:%a /data/db /data/db/VestRUM.cud") == (
        "VestRUM.cud\nVestrum.database\nVestrum.database.signature\nbytecode.cvd\ndaily.cvd\nmain.cvd\nmirrors.dat\n"
        "clamav:775\nclamav:664\n")
    # A half pair is looked for where the product installs it, and deleted where the run installs it.
    for broken, said in (("/data/db", UNCHANGED), (DATA, INSTALLED)):
        world.freshclam(0)
        world.shell(f"rm {broken}/Vestrum.database.signature")
        assert BANNER + OLD + SCRIPTS + SOUND + said in world.run("--datadir=/data/db").stdout


def test_data_directory_that_cannot_be_written(world):
    world.freshclam(0)
    world.install(1)
    world.shell("mkdir /data; mount -t tmpfs data /data")
    world.shell(f"cp {DATA}/*.cvd /data; mount -o remount,ro /data")
    moved = "File (/tmp/tarnwick-0/{}) couldn't be moved for some reason\n"
    outcome = world.run("--datadir=/data")
    assert outcome.stdout == (
        BANNER + OLD + SCRIPTS + SOUND
        + moved.format("VestRUMdefs/VestRUM.cud") + FULL + FETCHED + INSTALLED + moved.format("Vestrum.database")
        + FRESHCLAM.replace("freshclam ", "freshclam --datadir=/data "))
    assert (outcome.status, world.version()) == (0, 3)
    assert world.state()["database-Last-Modified"] == world.modified("Vestrum.database")
    assert world.litter() == ""


def test_quiet_and_log(world):
    log = "/srv/a.log"
    world.install(1)
    for arguments, first in ((["--quiet", f"--log={log}"], ""), ([f"--log={log}"], None)):
        world.freshclam(0)
        world.write(f"{DATA}/VestRUM.cud", world.container(1))
        world.write(log, "before\n")
        call = f"freshclam {' '.join(arguments)} --no-warnings\n"
        said = BANNER + OLD + SCRIPTS + SOUND + UNCHANGED
        said += FRESHCLAM.removesuffix("freshclam --no-warnings\n")
        outcome = world.run(*arguments)
        assert (outcome.status, outcome.stdout) == (0, (said if first is None else first) + call)
        assert world.log(log) == "before\n" + said
        assert world.shell(f"stat -c %a {log}") == "666\n"
    # A quiet run says nothing of a whole download, not even in the log.
    world.freshclam(0)
    world.shell(f"rm {DATA}/VestRUM.cud {log}")
    world.run("--quiet", f"--log={log}")
    assert world.log(log) == (BANNER + "VestRUM.cud (version 3) DB integrity is sound. Moving into place.\n" + UNCHANGED
                              + FRESHCLAM.removesuffix("freshclam --no-warnings\n"))


@pytest.mark.parametrize("arguments, wiped", [
    (["--remove-old-first"], True), (["--remove-old-first", "--log=/srv/a.log"], True),
    (["--remove-old-first", "--datadir=/srv/a#b"], True),
    (["-v", "--remove-old-first"], False)])
def test_wipe(world, arguments, wiped):
    folder = "/srv/a#b" if "--datadir=/srv/a#b" in arguments else DATA
    log = "/srv/a.log" if "--log=/srv/a.log" in arguments else f"{folder}/freshclam.log"
    old = ("Vestrum.ndb", "Vestrum.hdb", "Vestrum.fp", "Vestrum.ign2", "Vestrum.ldb", "old.cld", "old.cvd")
    world.freshclam(0)
    world.install(3)
    for name in old:
        world.write(f"{folder}/{name}", "old")
    world.write(log, "old\n")
    outcome = world.run(*arguments)
    assert outcome.stdout.startswith(
        "remove old DB files and freshclam log\n" * wiped + BANNER + (FULL if wiped and folder == DATA else CURRENT))
    kept = " ".join(argument + " " for argument in arguments if argument != "--remove-old-first")
    assert f"freshclam {kept}--no-warnings\n" in outcome.stdout
    assert {name for name in old if world.path(f"{folder}/{name}").exists()} == (set() if wiped else set(old))
    assert ("old\n" in world.log(log), world.path(log).stat().st_mode & 0o777) == (
        not wiped, 0o664 if log.startswith(folder) else 0o666)
