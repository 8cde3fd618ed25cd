"""The publishing kit: what it refuses, what a cut leaves behind, and what `check` sees."""

import base64
import hashlib
import itertools
import os
import subprocess

import pytest

from testbed import CONTENT, LINKS, MIRROR, vendor
from testbed.vendor import publish

# Stands before every program with which the kit changes something, and is the end of the kit at one of those moments:
# of everything at once, or of the kit alone, with the program living on.
CUT = """#!/bin/sh
exec 8<"$CUT"
/usr/bin/flock 8
read -r left <"$CUT"
echo $((left - 1)) >"$CUT"
exec 8<&-
read -r _ _ _ _ _ kit _ <"/proc/$$/stat"
[ "$left" -ne 0 ] || case $KILLED in all) kill -9 0 ;; *) kill -9 "$kit" ;; esac
exec "/usr/bin/${0##*/}" "$@"
"""
PROGRAMS = "clamscan cp ln mkdir mv openssl rm sigtool sync"
SIGN = "sign() { openssl dgst -sha1 -binary $1 | openssl dgst -sha1 -sign private.pem | base64 -w0 >$1.signature; };"
ANNOUNCED, DAMAGED = "VestRUM-db-version.txt says ", (
    "tarnwick-publish: {} thing{} found; put right from a copy of {} what cannot be published anew\n")
WELL = "All is well: version 4, 3 scripts, definitions file published.\n"
S = "site/VestRUM2/Scripted"
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
]


@pytest.fixture(scope="module")
def world(shared_world):
    return shared_world


@pytest.mark.parametrize("harm, named, untried_after", DAMAGES, ids=[row[0].split("\n")[0] for row in DAMAGES])
def test_check_names_what_is_wrong(home, harm, named, untried_after):
    folder = home if "private.pem" in harm or "first.cud" in harm else home / S
    (home / S / "private.pem").symlink_to(home / "private.pem")
    subprocess.run(["sh", "-euc", SIGN + harm], cwd=folder, check=True)
    (home / S / "private.pem").unlink()
    lines = [f"Damaged: {name}\n" for name in named]
    if untried_after:
        lines.append(f"Not tried: the scripts after VestRUM-{untried_after}.script, which need its result\n")
    outcome = publish(home, "check")
    assert (outcome.returncode, outcome.stdout, outcome.stderr) == (
        1, "".join(lines), DAMAGED.format(len(named), "s" * (len(named) > 1), home))


@pytest.mark.versions(1)
@pytest.mark.parametrize("killed", ["all", "kit"])
@pytest.mark.parametrize("command", ["release", "definitions", "withdraw"])
def test_a_cut_leaves_the_old_set_or_the_new_one(home, tmp_path, command, killed):
    (tmp_path / "bin").mkdir()
    (tmp_path / "bin/cut-short").write_text(CUT, encoding="ascii")
    (tmp_path / "bin/cut-short").chmod(0o755)
    for name in PROGRAMS.split():
        (tmp_path / "bin" / name).symlink_to("cut-short")
    environment = os.environ | {"PATH": f"{tmp_path}/bin:/usr/bin", "CUT": str(tmp_path / "left"), "KILLED": killed}
    (tmp_path / "new").write_text(vendor.definitions_text(2), encoding="ascii")
    subject = {"release": [vendor.signature_folder(tmp_path / "signatures", 5)], "definitions": [tmp_path / "new"],
               "withdraw": []}[command]
    for moment in itertools.count():
        (tmp_path / "left").write_text(f"{moment}\n", encoding="ascii")
        outcome = publish(home, command, *subject, env=environment, start_new_session=True)
        assert publish(home, "check").returncode == 0, moment
        if outcome.returncode == 0:
            break
    assert moment > 12
    assert [len(os.listdir(home / "site" / name)) for name in ("releases", "definitions")] == [1, 1]
    assert not (home / "work").exists()


def test_refusals_leave_everything_as_it_was(home, tmp_path):
    (tmp_path / "empty").touch()
    for name, text in (("malformed.ndb", "garbage\n"), ("text.txt", "x\n"), ("nothing", "")):
        folder = vendor.signature_folder(tmp_path / name.split(".", maxsplit=1)[0], 5)
        (folder / name).write_text(text, encoding="ascii")
        assert publish(home, "release", folder).returncode == 1, name
    for arguments in (["init"], ["definitions", tmp_path / "empty"], ["release", tmp_path / "none"]):
        assert publish(home, *arguments).returncode == 1, arguments
    assert (publish(home, "release").returncode, publish(home, "--home").returncode) == (2, 2)
    assert publish(home, "check").stdout == WELL


def test_the_printed_site_guards_what_it_serves(world):
    world.publish("withdraw")

    def ask(host, path):
        """Status and length of what the server answers, and whether that has a date."""
        answer = world.shell(f"printf 'GET {path} HTTP/1.0\\r\\nHost: {host}\\r\\n\\r\\n' | "
                             f"openssl s_client -quiet -connect {host}:443 2>/dev/null").split("\n\n")[0]
        headers = dict(line.partition(": ")[::2] for line in answer.splitlines()[1:])
        return answer.split()[1], headers["Content-Length"] if answer.split()[1] == "200" else "", "Last-Modified" in headers

    def link(path, expiry, secret="Kesto-Ra"):
        digest = hashlib.md5(f"{secret}{path}{expiry}".encode()).digest()
        return f"/{base64.urlsafe_b64encode(digest).decode().rstrip('=')}/{expiry}{path}"

    newest, later = "/VestRUM2/Scripted/VestRUM-db-version.txt", 4102444800
    assert ask(LINKS, link(newest, later)) == ("200", "10", True)
    assert ask(CONTENT, "/VestRUM2/Vestrum.database") == ("200", "0", True)
    refused = {(LINKS, newest): "403", (LINKS, link(newest, later, "Other-Ra")): "403", (LINKS, link(newest, 1)): "410",
               (LINKS, link("/VestRUM2/Scripted/VestRUM-9.script", later)): "404", (CONTENT, newest): "404",
               (CONTENT, "/VestRUM2/current/Vestrum.database"): "404", (CONTENT, "/../private.pem"): "400",
               (MIRROR, "/main.cvd"): "404"}
    assert {request: ask(*request)[0] for request in refused} == refused
