"""What `check` finds: in the home, and on the servers."""

import re
import subprocess
import tarfile
from typing import NamedTuple

import pytest

from testbed import CONTENT, HERE, IMPOSTOR, LINKS, NOBODY, REPOSITORY, definitions_text, vendor
from testbed.vendor import KIT, member, publish, repacked

SIGN = "sign() { openssl dgst -sha1 -binary $1 | openssl dgst -sha1 -sign private.pem | base64 -w0 >$1.signature; };"
ANNOUNCED = "VestRUM-db-version.txt says "
S = "site/VestRUM2/Scripted"
# What `mirror` leaves: version 6 of one database, and two patches.
FILL_MIRROR = f"""cd mirror/; mkdir -p sets/1; ln -s sets/1 current; ln -s current/daily.cvd current/dns.txt .
cp {REPOSITORY}/testbed/clamav/test-6.cvd current/daily.cvd; echo x:0:6:0:0:0:0:0 >current/dns.txt
for number in 5 6; do cp {REPOSITORY}/testbed/clamav/test-$number.cdiff daily-$number.cdiff; done; """


class Damage(NamedTuple):
    harm: str  # a script
    named: list  # what `check` says of it
    untried_after: int | None = None  # the version after which no script could be tried


DAMAGES = [
    Damage("rm VestRUM-3.script", ["VestRUM-3.script is missing, and its signature is there"], untried_after=3),
    Damage("rm VestRUM-4.script*", ["VestRUM-4.script is missing"]),
    Damage("rm VestRUM-2.script.signature", ["VestRUM-2.script has no signature"]),
    Damage("cp VestRUM-2.script.signature VestRUM-3.script.signature", ["VestRUM-3.script does not fit its signature"]),
    Damage("cp VestRUM-2.script VestRUM-4.script; sign VestRUM-4.script",
           ["VestRUM-4.script does not apply to version 3"]),
    Damage("echo 'OPEN a\nADD b\nCLOSE' >>VestRUM-4.script; sign VestRUM-4.script",
           ["the scripts lead to something else than VestRUM.cud"]),
    Damage("echo VestRUM:5 >VestRUM-db-version.txt", [ANNOUNCED + '"VestRUM:5", and the container is version 4']),
    Damage("rm VestRUM-db-version.txt", ["VestRUM-db-version.txt is no link to current/VestRUM-db-version.txt",
                                         ANNOUNCED + '"nothing", and the container is version 4']),
    Damage("echo >>VestRUM.cud", ["VestRUM.cud does not fit its signature"]),
    Damage("rm current/VestRUM.cud.signature", ["VestRUM.cud has no signature"]),
    Damage("head -c 700 VestRUM.cud >cut; cat cut >VestRUM.cud; rm cut; sign VestRUM.cud",
           ["ClamAV cannot load VestRUM.cud", "the scripts lead to something else than VestRUM.cud"]),
    Damage("cp VestRUM.cud x; rm VestRUM.cud; mv x VestRUM.cud", ["VestRUM.cud is no link to current/VestRUM.cud"]),
    Damage("cp VestRUM.cud.signature x; rm VestRUM.cud.signature; mv x VestRUM.cud.signature",
           ["VestRUM.cud.signature is no link to current/VestRUM.cud.signature"]),
    Damage("touch VestRUM-9.script", ["VestRUM-9.script belongs to no version up to 4"]),
    Damage("rm ../Vestrum.database.signature ../current/*.signature",
           ["Vestrum.database.signature is no link to current/Vestrum.database.signature",
            "Vestrum.database has no signature"]),
    Damage("echo more >>../Vestrum.database", ["Vestrum.database does not fit its signature"]),
    Damage("chmod 0644 private.pem", ["private.pem can be read by others; chmod 600 it"]),
    Damage("rm first.cud", ["first.cud cannot be unpacked, so no script can be tried"]),
    Damage("chmod 600 VestRUM-3.script", ["{S}/VestRUM-3.script cannot be read by nginx; chmod o+r it"]),
    Damage("chmod 710 .", ["{S} is closed to nginx; chmod o+rx it"]),
    Damage("chmod o+w VestRUM-4.script", ["{S}/VestRUM-4.script can be changed by anybody; chmod o-w it"]),
    Damage(": >mirror/main.cvd", ["mirror/main.cvd is empty"]),
    Damage("echo no >mirror/daily.cvd", ["mirror/daily.cvd has no header of a container"]),
    Damage("mkfifo mirror/daily.cvd; echo x:0:6:0:0:0:0:0 >mirror/dns.txt",
           ["mirror/dns.txt promises daily 6, and there is 0"]),
    Damage("chmod o+r publishing.lock", ["{home}/publishing.lock can be held by others; chmod 600 it"]),
    Damage("chmod 700 .. && touch site.settings", ["{above} is closed to nginx, and all below it; chmod o+x it"]),
    Damage(f"{FILL_MIRROR} cp --remove-destination current/daily.cvd .", ["daily.cvd is no link to current/daily.cvd"]),
    Damage(f"{FILL_MIRROR} mv daily-5.cdiff daily-4.cdiff", ["mirror/daily-4.cdiff is no patch to that version",
                                                        "mirror/daily-5.cdiff is missing"]),
    Damage(f"{FILL_MIRROR} : >daily-5.cdiff; rm daily-6.cdiff", ["mirror/daily-6.cdiff is missing"]),
    Damage(f"{FILL_MIRROR} echo >>daily.cvd", ["mirror/daily.cvd does not fit ClamAV's signature"]),
    Damage(f"{FILL_MIRROR} echo x:0:7:0:0:0:0:3 >dns.txt", ["mirror/dns.txt promises daily 7, and there is 6",
                                                       "mirror/dns.txt promises bytecode 3, and there is 0"]),
    *(Damage(f"{FILL_MIRROR} {harm}", ["mirror/current is no link to a set; fill the mirror again"])
      for harm in ("rm -r sets", "rm current", "rm current; mv sets/1 current")),
    Damage(": >VestRUM-2.script; sign VestRUM-2.script", ["VestRUM-2.script is empty"], untried_after=2),
]
IN_HOME = ("private.pem", "first.cud", "mirror/", "publishing.lock", "site.settings")


def report(named, untried_after, where=""):
    lines = [f"Damaged: {where}{name}\n" for name in named]
    if untried_after:
        lines.append(f"Not tried: the scripts after VestRUM-{untried_after}.script, which need its result\n")
    return "".join(lines)


def found(things):
    return f"tarnwick-publish: {len(things)} thing{'s' * (len(things) > 1)} found; "


@pytest.mark.parametrize("damage", DAMAGES, ids=lambda damage: damage.harm.removeprefix(FILL_MIRROR).split("\n")[0])
def test_check_names_what_is_wrong(home, damage):
    folder = home if any(name in damage.harm for name in IN_HOME) else home / S
    (home / S / "private.pem").symlink_to(home / "private.pem")
    subprocess.run(["sh", "-euc", SIGN + damage.harm], cwd=folder, check=True)
    (home / S / "private.pem").unlink()
    outcome = publish(home, "check", timeout=120)
    assert (outcome.returncode, outcome.stdout, outcome.stderr) == (
        1, report(damage.named, damage.untried_after).format(S=home / S, home=home, above=home.parent),
        f"{found(damage.named)}put right from a copy of {home} what cannot be published anew\n")


@pytest.mark.parametrize("kind", [tarfile.LNKTYPE, tarfile.SYMTYPE])
def test_a_container_that_brings_a_link_is_not_used(home, tmp_path, kind):
    new = vendor.signature_folder(tmp_path / "new", 5)
    for container in (home / "first.cud", home / S / "VestRUM.cud"):
        container.write_bytes(repacked(container.read_bytes(), member("linked", kind=kind, target="VestRUM.ndb")))
    for command, said in ((["check"], "first.cud cannot be unpacked, so no script can be tried"),
                          (["release", new], "the published container cannot be unpacked"),
                          (["prune", "--keep", "1"], "first.cud cannot be unpacked; see: ")):
        outcome = publish(home, *command)
        assert outcome.returncode == 1 and said in outcome.stdout + outcome.stderr, outcome


def test_what_is_old_is_told(home):
    aged = f"{FILL_MIRROR} touch -d '5 days ago' current/dns.txt current/daily.cvd"
    subprocess.run(["sh", "-euc", aged], cwd=home, check=True)
    outcome = publish(home, "check")
    assert (outcome.returncode, outcome.stdout.splitlines()[0]) == (0, "Old: mirror/dns.txt is 5 days old")
    subprocess.run(["touch", "-d", "9 days ago", home / S / "VestRUM.cud"], check=True)
    outcome = publish(home, "check", "--max-age", "4")
    assert (outcome.returncode, outcome.stdout) == (
        1, "Damaged: mirror/dns.txt is 5 days old\nDamaged: VestRUM.cud is 9 days old\n")


V = "VestRUM-db-version.txt"
GUARDS = [f"{what} is answered with status 200, and should be with {status}" for what, status in (
    ("a link without a signature", 403), ("a link signed with another secret", 403), ("a link that has expired", 410))]
DATED = ("Last-Modified: Thu, 01 Jan 2026 00:00:00 GMT",)
ELSEWHERE = "MOVE VestRUM.ndb ../../moved 1 Vestrum 1 Vestrum\n"
NO_NAME, UNKNOWN = "/VestRUM2/Scripted/VestRUM-0.script", "a name that does not exist is answered with"
LIKE_A_VERSION = 'that installations read as a version: ":" and a number behind it'


class Served(NamedTuple):
    named: list = []  # what `check` finds
    untried_after: int | None = None
    answers: dict = {}  # of the servers
    links: str = HERE  # where the host is to which signed links lead
    options: tuple = ()  # that `check` is given besides
    remedy: str = "; copy the public tree to that server again"


SERVED = {
    "nothing": Served(),
    "script missing": Served(
        ["VestRUM-3.script is answered with status 404", "VestRUM-3.script is missing, and its signature is there"], 3,
        answers={"GET /VestRUM2/Scripted/VestRUM-3.script": {"status": "404 Gone"}}),
    "script that writes elsewhere": Served(
        ["VestRUM-4.script does not fit its signature"],
        answers={"GET /VestRUM2/Scripted/VestRUM-4.script": {"body": ELSEWHERE, "headers": DATED}}),
    "script that writes elsewhere, unsigned": Served(
        ["VestRUM-3.script.signature is answered with status 404", "VestRUM-3.script has no signature"], 3, answers={
            "GET /VestRUM2/Scripted/VestRUM-3.script": {"body": ELSEWHERE, "headers": DATED},
            "GET /VestRUM2/Scripted/VestRUM-3.script.signature": {"status": "404 Gone"}}),
    "another script": Served(
        ["VestRUM-4.script does not fit its signature"],
        answers={"GET /VestRUM2/Scripted/VestRUM-4.script": {"body": "x\n", "headers": DATED}}),
    "cut short": Served(
        ["Vestrum.database cannot be fetched: transfer closed with 8 bytes remaining to read",
         "Vestrum.database is missing, and its signature is there"],
        answers={"GET /VestRUM2/Vestrum.database": {"body": "x", "length": 9, "headers": DATED}}),
    "no date": Served(
        ["Vestrum.database.signature comes without a date", "Vestrum.database has no signature"],
        answers={"GET /VestRUM2/Vestrum.database.signature": {"body": "x"}}),
    "another date": Served(
        ["Vestrum.database is dated Thu, 01 Jan 2026 00:00:00 GMT, and here {date}: copy it with its date"],
        answers={"HEAD /VestRUM2/Vestrum.database": {"length": len(definitions_text()), "headers": DATED}}),
    "a date with tabs and a name of ours": Served(
        ["Vestrum.database does not fit its signature"], answers={"GET /VestRUM2/Vestrum.database.signature": {
            "body": "x", "headers": ("Last-Modified: x\t/srv/vendor/private.pem\t-y",)}}),
    "a date with tabs, asked for alone": Served(
        ["Vestrum.database is dated x?-200?/srv/vendor/private.pem, and here {date}: copy it with its date"], answers={
            "HEAD /VestRUM2/Vestrum.database": {"length": len(definitions_text()), "headers": (
                "Last-Modified: x\t-200\t/srv/vendor/private.pem",)}}),
    "error page like a version": Served([f"{UNKNOWN} a page {LIKE_A_VERSION}"], answers={
        f"GET {NO_NAME}": {"status": "404 Gone", "body": "<h1>Sorry</h1> Error: 0404.<style>a:b</style>"}}),
    "error page with a colon": Served(answers={
        f"GET {NO_NAME}": {"status": "404 Gone", "body": "<a href='https://x:80'>404</a>"}}),
    "page in the place of an error": Served([f"{UNKNOWN} status 200, and should be with 404"], answers={
        f"GET {NO_NAME}": {"body": "<h1>Sorry</h1>"}}),
    "links unguarded, old version": Served(
        [*GUARDS, f'{V} says "VestRUM:3?", and the container is version 4'],
        answers={f"GET /VestRUM2/Scripted/{V}": {"body": "VestRUM:3\033\0\n", "headers": DATED}}),
    "newer than here": Served(
        ["VestRUM.cud does not fit its signature", f'{V} says "VestRUM:4", and the container is version 9',
         "version 9 is served, and version 4 is published"],
        answers={"GET /VestRUM2/Scripted/VestRUM.cud": {"body": "ClamAV-VDB:x:9:x", "headers": DATED}}),
    "another secret": Served([f"{V} is answered with status 403"], options=("--link-secret", "Other")),
    "certificate": Served([f"{V} cannot be fetched: SSL certificate problem: self-signed certificate"], links=IMPOSTOR,
                          remedy=f"\ntarnwick-publish: {LINKS}: have its certificate signed for the machines' hosts by "
                          "an authority that they know, or renew it; CURL_CA_BUNDLE names a private authority"),
    "name": Served([f"{V} cannot be fetched: Could not resolve host: {LINKS}"], links=None,
                   remedy=f"\ntarnwick-publish: {LINKS}: no address is known for this name; put it into DNS"),
    "no server": Served(
        [f"{V} cannot be fetched: Failed to connect to {LINKS} port 443 after N ms: Couldn't connect to server"],
        links=NOBODY,
        remedy=f"\ntarnwick-publish: {LINKS}: see whether its nginx runs, and can be reached from here"),
}


@pytest.fixture(name="world")
def world_whose_servers_are_sound(shared_world):
    shared_world.servers.mend()
    shared_world.servers.place()
    return shared_world


def check(world, *options):
    return world.command(KIT, "--home", "/srv/vendor", "check", *options)


@pytest.mark.parametrize("served", SERVED.values(), ids=SERVED)
def test_check_asks_servers_as_installations_do(world, served):
    world.servers.place(links=served.links)
    world.spoil(": >/srv/vendor/moved", served.answers)
    outcome = check(world, "--from", f"https://{LINKS}", *served.options)
    # Newer versions of curl word it so.
    said = re.sub(r"after \d+ ms", "after N ms", outcome.stdout).replace("end of response with 8 bytes missing",
                                  "transfer closed with 8 bytes remaining to read")
    damaged = report(served.named, served.untried_after, f"{LINKS}: ").format(date=world.modified("Vestrum.database"))
    assert (outcome.status, said, outcome.stderr) == ((
        1, damaged, f"{found(served.named).removesuffix('; ')}{served.remedy}\n") if damaged else (
            0, "All is well: version 4 from 1 server.\n", ""))
    assert world.shell("cd /srv/vendor; ls private.pem; cat moved") == "private.pem\n"


def test_check_asks_each_of_many_servers_for_the_hosts_that_installations_know(world):
    world.servers.place(links=IMPOSTOR, content=IMPOSTOR)
    world.servers.requests()
    outcome = check(world, "--from", "https://127.0.0.1", f"https://{IMPOSTOR}:443")
    assert (outcome.status, outcome.stdout) == (
        1, f"Damaged: {IMPOSTOR}:443: {V} cannot be fetched: SSL certificate problem: self-signed certificate\n")
    assert {request.host for request in world.servers.requests()} == {CONTENT, LINKS}
