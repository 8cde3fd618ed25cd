"""The mirror, filled by the real freshclam from a stand-in for ClamAV's servers, and fetched from by the real
freshclam: containers and patches that ClamAV signed."""

import re
from typing import Callable, NamedTuple

import pytest

from testbed import BIN, CONFIGURATION, DATA, IMPOSTOR, MIRROR, NOBODY, ORIGIN, Outcome, vendor

MIRROR_COMMAND = f"{vendor.KIT} --home {{}} mirror"
SIGNED = "/repository/testbed/clamav/test"
MIRRORED, NOTHING_NEW = (f"{what}: bytecode 3 daily {{0}} main 3 test {{0}}\n" for what in ("Mirrored", "Nothing new"))
ALTER = "printf x | dd of={} bs=1 seek=600 conv=notrunc status=none"
TREE = "cd {}/mirror; find . -name dns.txt -o -printf '%p %l\n' | sort; find . -type f ! -name dns.txt | xargs md5sum"


def offer(world, version):
    """ClamAV's servers have this version of two databases: with patches of the one, without those of the other."""
    world.shell(f"rm -rf /srv/origin /srv/vendor/upstream/freshclam.dat; mkdir /srv/origin; cd /srv/origin; cp "
                f"{SIGNED}-*.cdiff .; for name in main bytecode; do cp {SIGNED}-3.cvd $name.cvd; done"
                f"; for name in daily test; do cp {SIGNED}-{version}.cvd $name.cvd; done")


def mirror(world, home="/srv/vendor"):
    return world.command(*MIRROR_COMMAND.format(home).split())


def record(world):
    return re.sub(r"^[\d.]+(:.*:)\d{10}:", r"CLAMAV\1TIME:", world.shell("cat /srv/vendor/mirror/dns.txt"))


def client(world):
    """What a real freshclam then has, and what it asked the mirror for, but for the detached signatures that ClamAV 1.5
    asks for as well, and which it does without."""
    world.servers.requests()
    outcome = world.command(f"{BIN}/freshclam", "--no-dns")
    assert outcome.status == 0, outcome
    return re.findall(r"(?m)^(\S+) (?:updated|database is up-to-date) \(version: (\d+)", outcome.stdout), [
        request.path[1:] for request in world.servers.requests()
        if request.host == MIRROR and not request.path.endswith(".sign")]


@pytest.fixture(name="world")
def world_that_is_mirrored(new_world):
    new_world.write("/srv/vendor/freshclam.conf", f"DatabaseMirror {ORIGIN}\nExtraDatabase test\nScriptedUpdates yes\n"
                    "DatabaseCustomURL file:///etc/passwd\n")
    new_world.shell(
        f"rm -f {DATA}/*.cvd; sed -i '$aExtraDatabase test\ns/database.clamav.net/{MIRROR}/' {CONFIGURATION}"
        "; chown -hR nobody /srv/vendor; chmod 755 /srv")
    offer(new_world, 4)
    assert mirror(new_world) == Outcome(0, MIRRORED.format(4), "") and record(new_world) == "CLAMAV:3:4:TIME:0:81:0:3\n"
    return new_world


def test_a_client_follows_step_by_step(world):
    names = ["daily.cvd", "main.cvd", "bytecode.cvd", "test.cvd"]
    assert client(world) == (list(zip(names, "4334")), [name for name in names for _ in range(2)])
    # One version behind: by the patch, or whole where there is none.
    offer(world, 5)
    assert mirror(world) == Outcome(0, MIRRORED.format(5), "")
    assert client(world) == ([*zip(names[:3], "533"), ("test.cld", "5")],
                             ["daily.cvd", "daily-5.cdiff", *names, "test-5.cdiff"])
    # What a copy makes of a link is no set.
    world.shell("cd /srv/vendor/mirror; cp -rL current copy; rm current; mv copy current; chown -R nobody current")
    offer(world, 6)
    assert mirror(world).stdout == MIRRORED.format(6) and mirror(world).stdout == NOTHING_NEW.format(6)
    # What somebody else's link names is no command.
    world.shell("cd /srv/vendor/mirror; ln -sfn 'x[$(cd tmp; touch ran)]' current; chown -h nobody current")
    assert (mirror(world).stdout, world.shell("ls /tmp")) == (MIRRORED.format(6), "")
    # Without freshclam a machine goes by the record, and finds what that promises.
    world.freshclam(52, 52)
    outcome = world.run()
    assert (outcome.status, re.findall("daily.cvd installed.*|Downloaded .*", outcome.stdout)) == (1, [
        "daily.cvd installed: 5, available: 6", f"Downloaded daily.cvd from {MIRROR}",
        "daily.cvd installed: 6, available: 6"])
    assert world.command("curl", "-sf", f"https://{MIRROR}/current/daily.cvd").status == 22


class BadDay(NamedTuple):
    reason: str  # what the kit says in its second line
    said: str | None = "freshclam failed with status 11"  # in its first
    spoil: str | Callable = "true"
    answers: dict = {}  # of the servers
    places: dict = {}


def an_older_version(world):
    offer(world, 3)
    world.shell("rm -r /srv/vendor/upstream")


def ask_too_soon(world):
    world.servers.answer("GET /daily.cvd", status="429 Slow")
    mirror(world)


BAD_DAYS = {
    "older": BadDay("", None, an_older_version),
    "no network": BadDay("remote_cvdhead: Download failed (7)", places={"origin": NOBODY}),
    "impostor": BadDay("remote_cvdhead: Download failed (60)", places={"origin": IMPOSTOR}),
    "cut short": BadDay("failed (18)", answers={"GET /daily.cvd": {"body": "ClamAV", "length": 99}}),
    "altered": BadDay("Can't verify database integrity", "freshclam failed with status 7",
                      ALTER.format("/srv/origin/daily.cvd")),
    "not there": BadDay(f"file not found: https://{ORIGIN}/main.cvd", spoil="rm /srv/origin/main.cvd"),
    "pause": BadDay("freshclam is on cool-down until after: ", "upstream asks for a pause", ask_too_soon),
    "torn here": BadDay("do the same again",
                        "/srv/vendor/upstream/daily.cvd does not fit ClamAV's signature any more and is removed",
                        "cd /srv/vendor/upstream; rm daily.cvd; head -c 3000 /srv/origin/daily.cvd >daily.cvd"
                        "; chown nobody daily.cvd"),
    "no patch now": BadDay("downloadFile: Unexpected response (503) from ", "test-5.cdiff cannot be fetched",
                           answers={"GET /test-5.cdiff": {"status": "503 Sorry"}}),
}


def test_bad_days_leave_what_is_served(world):
    before = world.shell(TREE.format("/srv/vendor"))
    for name, day in BAD_DAYS.items():
        offer(world, 5)
        world.servers.mend()
        world.servers.place(**day.places)
        world.spoil(day.spoil, day.answers)
        outcome = mirror(world)
        first, second = (outcome.stderr + "\n\n").splitlines()[:2]
        assert (outcome.status, outcome.stdout, first) == ((
            1, "", f"tarnwick-publish: {day.said}; the mirror stays as it was") if day.said else (
                0, "".join(f"Older: upstream has {name} 3, and 4 stays\n" for name in ("daily", "test")) +
            NOTHING_NEW.format(4), ""))
        assert day.reason in second and world.shell(TREE.format("/srv/vendor")) == before, (name, outcome)
        assert record(world) == "CLAMAV:3:4:TIME:0:81:0:3\n", name


def test_a_patch_that_is_altered_or_missing_is_replaced_by_an_empty_one(world):
    client(world)
    # It is asked for anew where a run that failed had found none.
    world.shell("cd /srv/vendor/upstream; : >test-5.cdiff; chown nobody test-5.cdiff")
    for version, harm in ((5, ALTER.format("test-5.cdiff")), (6, ": >test-6.cdiff")):
        offer(world, version)
        world.shell(f"cd /srv/origin; {harm}")
        left_out = "Left out: test-5.cdiff, which is of no use to version 4\n" * (version == 5)
        assert mirror(world) == Outcome(0, left_out + MIRRORED.format(version), "")
        assert world.shell(f"stat -c %s /srv/vendor/mirror/test-{version}.cdiff") == "0\n"
        assert client(world)[0][3] == ("test.cvd", str(version))


# Stands before `mv`: looks whether clients find a consistent set, and ends the kit at one of its moments.
SIGNATURE = "#clamsign-1.0\nof a ClamAV that is to come\n"


def test_detached_signatures_come_with_what_they_sign(world):
    offer(world, 6)
    for name, content in (("daily-6.cvd.sign", SIGNATURE), ("test-6.cdiff.sign", SIGNATURE),
                          ("main-3.cvd.sign", "<html>Sorry</html>")):
        world.write(f"/srv/origin/{name}", content)
    assert mirror(world) == Outcome(0, MIRRORED.format(6), "")
    look = "cd /srv/vendor/mirror; find . -name '*.sign' -printf '%p %l\n' | sort"
    assert world.shell(look) == ("./daily-6.cvd.sign current/daily-6.cvd.sign\n./sets/2/daily-6.cvd.sign \n"
                                 "./test-6.cdiff.sign \n")
    assert mirror(world).stdout == NOTHING_NEW.format(6) and world.publish("check").startswith("All is well")
    # One that comes later goes into a set of its own.
    world.write("/srv/origin/test-6.cvd.sign", SIGNATURE)
    assert mirror(world).stdout == MIRRORED.format(6)
    world.shell("cmp /srv/origin/test-6.cvd.sign /srv/vendor/mirror/test-6.cvd.sign")
    world.write("/srv/vendor/mirror/x.sign", "<html>")
    checked = world.command(*MIRROR_COMMAND.format("/srv/vendor").replace(" mirror", " check").split())
    assert checked.stdout == "Damaged: mirror/x.sign is no signature\n"


# Whether the record promises more than there is.
LOOK = """cd /srv/vendor/mirror; for place in 2:main 3:daily 8:bytecode; do
    [ ! -e dns.txt ] || [ "$(cut -d: -f"${place%:*}" dns.txt)" -le "$(head -c 99 "${place#*:}.cvd" | cut -d: -f3)" ]
done"""


@pytest.mark.parametrize("record", ["dns.txt", ""])
def test_plain_files_are_taken_over_without_an_instant_that_lacks_one(world, record):
    world.shell(f"cd /srv/vendor/mirror; mkdir ../../plain; cp -L main.cvd daily.cvd bytecode.cvd {record} ../../plain"
                "; chown -R nobody ../../plain")
    offer(world, 6)
    as_owner = ["setpriv", "--reuid=nobody", "--clear-groups", "strace", "-qq", "-o", "/dev/null", "-e"]
    for moment in range(1, 30):
        world.shell("cd /srv; rm -r vendor/mirror; cp -a plain vendor/mirror")
        outcome = world.command(*as_owner, f"inject=rename:signal=KILL:when={moment}",
                                *MIRROR_COMMAND.format("/srv/vendor").split())
        world.shell(LOOK)
        if outcome.status == 0:
            break
        assert mirror(world).stdout in (MIRRORED.format(6), NOTHING_NEW.format(6)), moment
        assert world.publish("check").startswith("All is well"), moment
    assert moment > 7 and outcome.stdout == MIRRORED.format(6)
    assert not world.path("/srv/vendor/upstream/work").exists()


def test_a_full_disk_leaves_what_is_served(world):
    world.shell("mkdir /srv/small; mount -t tmpfs -o size=800k small /srv/small; cp -a /srv/vendor /srv/small/home")
    before = world.shell(TREE.format("/srv/small/home"))
    offer(world, 6)
    for free in range(0, 200, 8):
        world.shell(f"head -c 4m /dev/zero >/srv/small/filling || truncate -s -{free * 1024} /srv/small/filling")
        outcome = mirror(world, "/srv/small/home")
        world.shell("rm /srv/small/filling")
        if outcome.status == 0:
            break
        assert outcome.status == 1 and "is full; nothing is half published" in outcome.stderr, (free, outcome)
        assert world.shell(TREE.format("/srv/small/home")) == before, free
    assert free and outcome.stdout == MIRRORED.format(6)
