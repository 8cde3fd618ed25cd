"""What `check` finds: in the home, and on the servers."""

import subprocess

import pytest

from testbed import CONTENT, IMPOSTOR, LINKS, REPOSITORY, definitions_text
from testbed.vendor import publish

SIGN = "sign() { openssl dgst -sha1 -binary $1 | openssl dgst -sha1 -sign private.pem | base64 -w0 >$1.signature; };"
ANNOUNCED, DAMAGED = "VestRUM-db-version.txt says ", (
    "tarnwick-publish: {} thing{} found; put right from a copy of {} what cannot be published anew\n")
S = "site/VestRUM2/Scripted"
# What `mirror` leaves: version 6 of one database, and two patches.
MIRROR = f"""cd mirror/; mkdir -p sets/1; ln -s sets/1 current; ln -s current/daily.cvd current/dns.txt .
cp {REPOSITORY}/testbed/clamav/test-6.cvd current/daily.cvd; echo x:0:6:0:0:0:0:0 >current/dns.txt
for number in 5 6; do cp {REPOSITORY}/testbed/clamav/test-$number.cdiff daily-$number.cdiff; done; """
DAMAGES = [
    ("rm VestRUM-3.script", ["VestRUM-3.script is missing, and its signature is there"], 3),
    ("rm VestRUM-4.script*", ["VestRUM-4.script is missing"], None),
    ("rm VestRUM-2.script.signature", ["VestRUM-2.script has no signature"], None),
    ("cp VestRUM-2.script.signature VestRUM-3.script.signature", ["VestRUM-3.script does not fit its signature"], None),
    ("cp VestRUM-2.script VestRUM-4.script; sign VestRUM-4.script",
     ["VestRUM-4.script does not apply to version 3"], None),
    ("echo 'OPEN a\nADD b\nCLOSE' >>VestRUM-4.script; sign VestRUM-4.script",
     ["the scripts lead to something else than VestRUM.cud"], None),
    ("echo VestRUM:5 >VestRUM-db-version.txt", [ANNOUNCED + '"VestRUM:5", and the container is version 4'], None),
    ("rm VestRUM-db-version.txt", ["VestRUM-db-version.txt is no link to current/VestRUM-db-version.txt",
                                   ANNOUNCED + '"nothing", and the container is version 4'], None),
    ("echo >>VestRUM.cud", ["VestRUM.cud does not fit its signature"], None),
    ("rm current/VestRUM.cud.signature", ["VestRUM.cud has no signature"], None),
    ("head -c 700 VestRUM.cud >cut; cat cut >VestRUM.cud; rm cut; sign VestRUM.cud",
     ["ClamAV cannot load VestRUM.cud", "the scripts lead to something else than VestRUM.cud"], None),
    ("cp VestRUM.cud x; rm VestRUM.cud; mv x VestRUM.cud", ["VestRUM.cud is no link to current/VestRUM.cud"], None),
    ("touch VestRUM-9.script", ["VestRUM-9.script belongs to no version up to 4"], None),
    ("rm ../Vestrum.database.signature ../current/*.signature",
     ["Vestrum.database.signature is no link to current/Vestrum.database.signature",
      "Vestrum.database has no signature"], None),
    ("echo more >>../Vestrum.database", ["Vestrum.database does not fit its signature"], None),
    ("chmod 0644 private.pem", ["private.pem can be read by others; chmod 600 it"], None),
    ("rm first.cud", ["first.cud cannot be unpacked, so no script can be tried"], None),
    ("chmod 600 VestRUM-3.script", ["{S}/VestRUM-3.script cannot be read by nginx; chmod o+r it"], None),
    ("chmod 710 .", ["{S} is closed to nginx; chmod o+rx it"], None),
    ("chmod o+w VestRUM-4.script", ["{S}/VestRUM-4.script can be changed by anybody; chmod o-w it"], None),
    (": >mirror/main.cvd", ["mirror/main.cvd is empty"], None),
    ("echo no >mirror/daily.cvd", ["mirror/daily.cvd has no header of a container"], None),
    ("chmod o+r publishing.lock", ["{home}/publishing.lock can be held by others; chmod 600 it"], None),
    ("chmod 700 .. && touch site.settings", ["{above} is closed to nginx, and all below it; chmod o+x it"], None),
    (f"{MIRROR} cp --remove-destination current/daily.cvd .", ["daily.cvd is no link to current/daily.cvd"], None),
    (f"{MIRROR} mv daily-5.cdiff daily-4.cdiff", ["mirror/daily-4.cdiff is no patch to that version",
                                                  "mirror/daily-5.cdiff is missing"], None),
    (f"{MIRROR} : >daily-5.cdiff; rm daily-6.cdiff", ["mirror/daily-6.cdiff is missing"], None),
    (f"{MIRROR} echo >>daily.cvd", ["mirror/daily.cvd does not fit ClamAV's signature"], None),
    (f"{MIRROR} echo x:0:7:0:0:0:0:3 >dns.txt", ["mirror/dns.txt promises daily 7, and there is 6",
                                                 "mirror/dns.txt promises bytecode 3, and there is 0"], None),
    (": >VestRUM-2.script; sign VestRUM-2.script", ["VestRUM-2.script is empty"], 2),
]
IN_HOME = ("private.pem", "first.cud", "mirror/", "publishing.lock", "site.settings")


@pytest.mark.parametrize("harm, named, untried_after", DAMAGES,
                         ids=[row[0].removeprefix(MIRROR).split("\n")[0] for row in DAMAGES])
def test_check_names_what_is_wrong(home, harm, named, untried_after):
    folder = home if any(name in harm for name in IN_HOME) else home / S
    (home / S / "private.pem").symlink_to(home / "private.pem")
    subprocess.run(["sh", "-euc", SIGN + harm], cwd=folder, check=True)
    (home / S / "private.pem").unlink()
    lines = [f"Damaged: {name}\n".format(S=home / S, home=home, above=home.parent) for name in named]
    if untried_after:
        lines.append(f"Not tried: the scripts after VestRUM-{untried_after}.script, which need its result\n")
    outcome = publish(home, "check")
    assert (outcome.returncode, outcome.stdout, outcome.stderr) == (
        1, "".join(lines), DAMAGED.format(len(named), "s" * (len(named) > 1), home))


V = "VestRUM-db-version.txt"
GUARDS = [f"{what} is answered with status 200, and should be with {status}" for what, status in (
    ("a link without a signature", 403), ("a link signed with another secret", 403), ("a link that has expired", 410))]
DATED = ("Last-Modified: Thu, 01 Jan 2026 00:00:00 GMT",)
# What is wrong with the server, what `check` is given besides, and what it finds.
SERVED = {
    "nothing": (lambda w: None, (), []),
    "script missing": (lambda w: w.servers.answer(f"GET /VestRUM2/Scripted/VestRUM-3.script", status="404 Gone"), (),
                       ["VestRUM-3.script is answered with status 404",
                        "VestRUM-3.script is missing, and its signature is there", 3]),
    "another script": (lambda w: w.servers.answer(f"GET /VestRUM2/Scripted/VestRUM-4.script", "x\n", headers=DATED), (),
                       ["VestRUM-4.script does not fit its signature",
                        "VestRUM-4.script does not apply to version 3"]),
    "cut short": (lambda w: w.servers.answer("GET /VestRUM2/Vestrum.database", "x", length=9, headers=DATED), (),
                  ["Vestrum.database cannot be fetched: transfer closed with 8 bytes remaining to read",
                   "Vestrum.database is missing, and its signature is there"]),
    "no date": (lambda w: w.servers.answer("GET /VestRUM2/Vestrum.database.signature", "x"), (),
                ["Vestrum.database.signature comes without a date", "Vestrum.database has no signature"]),
    "another date": (lambda w: w.servers.answer("HEAD /VestRUM2/Vestrum.database", length=len(definitions_text()), headers=DATED), (),
                     ["Vestrum.database is dated Thu, 01 Jan 2026 00:00:00 GMT, and here {date}: copy it with its date"]),
    "links unguarded, old version": (lambda w: w.servers.answer(f"GET /VestRUM2/Scripted/{V}", "VestRUM:3\n", headers=DATED), (), [
        *GUARDS, f'{V} says "VestRUM:3", and the container is version 4']),
    "another secret": (lambda w: None, ("--link-secret", "Other"), [f"{V} is answered with status 403"]),
    "certificate": (lambda w: w.servers.place(links=IMPOSTOR), (), [
        f"{V} cannot be fetched: SSL certificate problem: self-signed certificate"]),
}


@pytest.mark.parametrize("name", SERVED)
def test_check_asks_servers_as_installations_do(shared_world, name):
    world = shared_world
    spoil, options, named = SERVED[name]
    world.servers.mend()
    world.servers.place()
    spoil(world)
    outcome = world.command("/repository/publish/tarnwick-publish", "--home", "/srv/vendor", "check", "--from",
                            f"https://{LINKS}", *options)
    lines = [(f"Damaged: {LINKS}: {line}\n" if isinstance(line, str) else
              f"Not tried: the scripts after VestRUM-{line}.script, which need its result\n").format(
                  date=world.modified("Vestrum.database")) for line in named]
    count = sum(isinstance(line, str) for line in named)
    # Newer versions of curl word it so.
    said = outcome.stdout.replace("end of response with 8 bytes missing",
                                  "transfer closed with 8 bytes remaining to read")
    assert (outcome.status, said, outcome.stderr) == ((
        1, "".join(lines), f"tarnwick-publish: {count} thing{'s' * (count > 1)} found; copy the public tree to that server "
        "again\n") if named else (0, "All is well: version 4 from 1 server.\n", ""))


def test_check_asks_each_of_many_servers_for_the_hosts_that_installations_know(shared_world):
    world = shared_world
    world.servers.mend()
    world.servers.place(links=IMPOSTOR, content=IMPOSTOR)
    world.servers.requests()
    outcome = world.command("/repository/publish/tarnwick-publish", "--home", "/srv/vendor", "check", "--from",
                            "https://127.0.0.1", f"https://{IMPOSTOR}:443")
    assert (outcome.status, outcome.stdout) == (
        1, f"Damaged: {IMPOSTOR}:443: {V} cannot be fetched: SSL certificate problem: self-signed certificate\n")
    assert {request.host for request in world.servers.requests()} == {CONTENT, LINKS}
