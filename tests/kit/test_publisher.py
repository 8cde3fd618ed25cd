"""The publishing kit: what a cut leaves behind, and the site that it prints."""

import base64
import contextlib
import fcntl
import hashlib
import itertools
import json
import os
import pathlib
import pty
import signal
import subprocess
import termios
import time

import pytest

from testbed import CONTENT, LINKS, MIRROR, vendor
from testbed.vendor import publish

# With which the kit changes something, or waits for a program that does.
CALLS = ("rename", "unlink", "unlinkat", "mkdir", "symlink", "fsync", "wait4")


@pytest.fixture(scope="module")
def world(shared_world):
    return shared_world


def cut(killed, moment, home, *command):
    """The end of the kit alone or of all that it started, at one of its calls of the system."""
    through = ["strace", "-qq", "-o", "/dev/null", "-e", moment, vendor.PUBLISHER, "--home", home]
    job = subprocess.Popen([*through, *command], text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                           start_new_session=True, env=vendor.TRACED)
    job.wait()
    if killed == "all":
        with contextlib.suppress(ProcessLookupError):
            os.killpg(job.pid, signal.SIGKILL)
    return subprocess.CompletedProcess(command, job.returncode, job.communicate()[0])


@pytest.mark.versions(3)
@pytest.mark.parametrize("killed", ["all", "kit"])
@pytest.mark.parametrize("command", ["release", "definitions", "withdraw", "prune"])
def test_a_cut_leaves_the_old_set_or_the_new_one(home, tmp_path, command, killed):
    (tmp_path / "new").write_text(vendor.definitions_text(2), encoding="ascii")
    subject = {"release": [vendor.signature_folder(tmp_path / "signatures", 5)], "definitions": [tmp_path / "new"],
               "withdraw": [], "prune": ["--keep", "1"]}[command]
    moments = 0
    for call in CALLS:
        subprocess.run(["cp", "-a", home, f"{home}.{call}"], check=True)
        for moment in itertools.count(1):
            said = cut(killed, f"inject={call}:signal=KILL:when={moment}", f"{home}.{call}", command, *subject)
            assert publish(f"{home}.{call}", "check").returncode == 0 and moment < 199, (call, moment, said)
            if said.returncode == 0:
                break
            moments += 1
        assert [len(os.listdir(f"{home}.{call}/site/{name}")) for name in ("releases", "definitions")] == [1, 1]
        assert not pathlib.Path(f"{home}.{call}/work").exists()
    assert moments > 6


def test_what_is_published_is_dated_after_what_was(home, tmp_path):
    (tmp_path / "new").write_text(vendor.definitions_text(2), encoding="ascii")
    for path in (home / "site").glob("*s/*/*"):
        os.utime(path, (0, 4102444800))
    signatures = vendor.signature_folder(tmp_path / "signatures", 5)
    for command in (["release", signatures], ["definitions", tmp_path / "new"]):
        publish(home, *command).check_returncode()
    published = (home / "site").glob("*s/*/*")
    assert {path.name: path.stat().st_mtime for path in published} == dict.fromkeys(
        ["Vestrum.database", "Vestrum.database.signature", "VestRUM-db-version.txt", "VestRUM.cud",
         "VestRUM.cud.signature"], 4102444801)


@pytest.mark.versions(1)
def test_two_publications_within_one_second_have_two_dates(home, tmp_path):
    """Until a file that was made in the second of the one before tells that this was tried."""
    published = home / "site/VestRUM2/Vestrum.database"
    for attempt in range(60):
        (tmp_path / "new").write_text(vendor.definitions_text(attempt + 2), encoding="ascii")
        before = int(time.time()) + attempt % 5
        for path in published.parent.glob("current/*"):
            os.utime(path, (before, before))
        publish(home, "definitions", tmp_path / "new").check_returncode()
        dates = {int(path.stat().st_mtime) for path in published.parent.glob("current/*")}
        assert min(dates) > before, attempt
        if int(published.stat().st_ctime) == before:
            return
    pytest.fail("no two publications fell into one second")


HOOK = """#!/bin/sh
echo "$1" "$(cat)" >>"${0%/*}/../called"
"""


def test_what_happened_is_kept_and_handed_to_hooks(home, tmp_path):
    (home / "hooks").mkdir()
    for name, content in (("purge", HOOK), ("fails", "#!/bin/sh\necho no; exit 3\n")):
        (home / "hooks" / name).write_text(content, encoding="ascii")
        (home / "hooks" / name).chmod(0o755)
    new = vendor.signature_folder(tmp_path / "new", 5)
    told = publish(home, "release", "--json", new)
    assert (told.returncode, told.stderr) == (0, "tarnwick-publish: hooks/fails failed with status 3: no\n")
    facts = {"version": 5, "signatures": 5, "added": 1, "removed": 0}
    event, _, given = (home / "called").read_text(encoding="utf-8").partition(" ")
    publish(home, "withdraw").check_returncode()
    publish(home, "prune", "--keep", "1").check_returncode()
    publish(home, "push", tmp_path / "copy").check_returncode()
    kept = [json.loads(line) for line in publish(home, "log", "--json").stdout.splitlines()]
    assert [line["event"] for line in kept] == ["release"] * 4 + ["definitions", "release", "withdraw", "prune", "push"]
    container = (home / "site/VestRUM2/Scripted/VestRUM.cud").read_bytes()
    for found in (json.loads(told.stdout), json.loads(given), kept[5]):
        assert found.items() >= (facts | {"container_sha256": hashlib.sha256(container).hexdigest()}).items()
    assert (event, json.loads(told.stdout)["released"], kept[5]["by"]) == ("release", True, "root")
    assert publish(home, "log").stdout.splitlines()[-1].endswith(" push by=root version=5 servers=1 sound=1")


def test_state_and_verdicts_are_told_to_programs(world):
    world.shell(f"echo /elsewhere=https://{LINKS} >/srv/vendor/push.servers; echo /x >>/srv/vendor/push.servers")
    state = json.loads(world.publish("status", "--json"))
    assert (state["container"]["version"], state["servers"]) == (4, [
        {"server": "/elsewhere", "version": 4, "why": ""}, {"server": "/x", "version": 0, "why": "no URL is given"}])
    assert world.publish("status").splitlines()[-2:] == [
        "Server /elsewhere: version 4", "Server /x: not known: no URL is given"]
    sound = {"sound": True, "version": 4, "damages": 0, "found": []}
    assert json.loads(world.publish("check", "--json")) == sound
    assert json.loads(world.publish("check", "--from", f"https://{LINKS}", "--json")) == {
        "servers": [{"server": f"https://{LINKS}"} | sound]}


def test_root_leaves_its_terminal_before_it_works_for_another(world):
    world.shell("cp -a /srv/vendor /srv/theirs; mkdir /srv/theirs/hooks; echo '#!/bin/sh\nps -o tty=,uid= -p $$ "
                "</dev/null >/srv/theirs/seen' >/srv/theirs/hooks/look; chmod 755 /srv /srv/theirs/hooks/look"
                "; chown -hR nobody /srv/theirs")
    vendor.signature_folder(world.path("/srv/five"), 5)
    terminal, slave = pty.openpty()
    job = world.start(vendor.KIT, "--home", "/srv/theirs", "release", "/srv/five", stdin=slave, stdout=slave,
                      start_new_session=True, preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))
    assert job.process.wait() == 0
    os.close(slave)
    os.close(terminal)
    assert world.shell("cat /srv/theirs/seen").split() == ["?", world.shell("id -u nobody").strip()]
    world.shell("mkdir -p /srv/open/x; cp -a /srv/theirs /srv/open/x/home; chown nobody /srv/open/x"
                "; chown -hR root /srv/open/x/home")
    refused = world.command(vendor.KIT, "--home", "/srv/open/x/home", "withdraw")
    assert refused.status == 1 and "/srv/open/x can be written by others than root" in refused.stderr, refused


def test_the_printed_site_guards_what_it_serves(world):
    world.publish("withdraw")

    def ask(host, path):
        """Status and length of what the server answers, and whether that has a date."""
        answer = world.shell(f"printf 'GET {path} HTTP/1.0\\r\\nHost: {host}\\r\\n\\r\\n' | "
                             f"openssl s_client -quiet -connect {host}:443 2>/dev/null").split("\n\n")[0]
        headers = dict(line.partition(": ")[::2] for line in answer.splitlines()[1:])
        status = answer.split()[1]
        return status, headers["Content-Length"] if status == "200" else "", "Last-Modified" in headers

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
