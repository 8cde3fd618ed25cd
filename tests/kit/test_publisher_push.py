"""The public tree on its way to other servers, over a shell that is remote in name only."""

import os
import re
import subprocess
from typing import NamedTuple

import pytest

from testbed import IMPOSTOR, REPOSITORY, vendor
from testbed.stand_ins import REMOTE
from testbed.vendor import KIT, publish

DYING = ["cut.1.90000", *(f"killed.{step}.{moment}" for step, moments in ((1, 11), (2, 5), (3, 3), (4, 11))
                          for moment in range(1, moments)),
         *(f"cut.{step}.{moment}" for step in (1, 2, 3, 4) for moment in range(20, 1800, 360))]
# Without a link's own date: rsync leaves it where it is right to the second, and nobody is given it.
PUBLIC = "find site mirror -type f -printf '%p %m %T@ %s\n' -o -printf '%p %y %m %l\n' | sort"
CONTAINER_ENDS, PAIR_ENDS, RECORD_ENDS = (
    (".cud", ".cud.signature", "-db-version.txt"), ("", ".signature"), ("dns.txt",))
FILL_MIRROR = f"""cd {{}}/mirror; mkdir -p {{}}; cd {{}}
cp {REPOSITORY}/testbed/clamav/test-{{}}.cvd main.cvd; echo clamav:{{}} >dns.txt"""
SWITCH = """cd ../..; ln -s sets/2 current; ln -sf current/main.cvd current/dns.txt .; >main-4.cdiff
head -c 150000 /dev/urandom >large"""


def wrong(copy, old, new, pushed):
    """What a machine would not get from this copy as it was published, before or now."""
    def served(start, ends, *trees):
        """What it gets of these, and whether that is what it gets there."""
        got = [[path.read_bytes() if (path := tree / f"{start}{end}").exists() else None for end in ends]
               for tree in (copy, *trees)]
        return got[0] in got[1:]

    script = "site/VestRUM2/Scripted/VestRUM"
    now = served(script, CONTAINER_ENDS, new)
    scripts = [f"-{number}.script{end}" for number in (4, 5)[:now + 1] for end in PAIR_ENDS]
    right = {"container": now or served(script, CONTAINER_ENDS, old), "scripts": served(script, scripts, new),
             "definitions": served("site/VestRUM2/Vestrum.database", PAIR_ENDS, old, new),
             "mirror": served("mirror/", ("main.cvd",), new) and served("mirror/", RECORD_ENDS, old, new) or
             served("mirror/", ("main.cvd", *RECORD_ENDS), old),
             "nothing else": sorted(os.listdir(copy)) == ["mirror", "site"],
             "all": not pushed or len({subprocess.getoutput(f"cd {tree}; {PUBLIC}") for tree in (copy, new)}) == 1}
    return [f"{copy.name}: {name}" for name, held in right.items() if not held]


@pytest.mark.parametrize("linked", [True, False])
def test_a_server_that_dies_serves_the_old_set_or_the_new_one(home, linked):
    """With a mirror of links through one name, or of plain files, of which the record must be the last."""
    dying = DYING if linked else [host for host in DYING if host.startswith("killed.1.")]
    folder, old, hosts = home.parent, home.parent / "old", [*dying, "nobody", "well"]
    subprocess.run(["sh", "-euc", FILL_MIRROR.format(home, ".", ".", 3, 3)], check=True)
    assert publish(home, "push", old).stdout == (
        f"Not asked: {old}, for which no URL is given\nVersion 4 is on 1 server.\n")
    (folder / "remote").write_text(REMOTE, encoding="ascii")
    # Where not every link can be switched, nothing may be removed that one leads to.
    subprocess.run(["sh", "-euc", f"chmod 755 remote; for host in {' '.join(hosts)}; do cp -a old $host; done; "
                    "chown -R nobody nobody; chown root nobody/site/VestRUM2"], cwd=folder, check=True)
    (folder / "definitions").write_text(vendor.definitions_text(2), encoding="ascii")
    for command in (["release", vendor.signature_folder(folder / "new", 5)], ["definitions", folder / "definitions"],
                    ["prune", "--keep", "2"]):
        publish(home, *command).check_returncode()
    place = "sets/2" if linked else "."
    subprocess.run(["sh", "-euc", FILL_MIRROR.format(home, place, place, 4, 4) + "\n" + SWITCH * linked], check=True)

    def push():
        outcome = publish(home, "push", *(f"{host}:{folder / host}=https://127.0.0.1:9" for host in hosts),
                          env=os.environ | {"RSYNC_RSH": f"{folder}/remote"})
        failed = re.findall("(?m)^Not pushed: (.*?):", outcome.stdout)
        assert not [line for host in hosts for line in wrong(folder / host, old, home, host not in failed)], outcome
        return failed

    assert {tuple(host.split(".")[:2]) for host in push()} == {
        *(tuple(host.split(".")[:2]) for host in dying), ("nobody",)}
    assert not linked or list(folder.glob("cut.1.90000/mirror/.rsync-partial/large"))
    assert push() == ["nobody"]


CANNOT = "VestRUM-db-version.txt cannot be fetched: SSL certificate problem: self-signed certificate"


class Push(NamedTuple):
    servers: str
    status: int
    printed: str
    error: str = ""  # without the name of the kit before it
    done: str = "true"  # in the home before it


OUTCOMES = [
    Push("", 0, "Pushed: /srv/two serves version 5\nPushed: /srv/vendor serves version 5\nVersion 5 is on 2 servers.\n",
         done=r"printf '# ours\n\n/srv/vendor=https://127.0.0.1\n/srv/two=https://127.0.0.1' >push.servers"),
    Push(f"/srv/none/x /srv/two=https://{IMPOSTOR} chatty:/srv/vendor=https://127.0.0.1", 1,
         'Not pushed: /srv/none/x: rsync: [Receiver] mkdir "/srv/none/x" failed: No such file or directory (2)\n'
         f"  make the folder in which the home is to lie there\nDamaged: {IMPOSTOR}: {CANNOT}\n  {IMPOSTOR}: have its "
         "certificate signed for the machines' hosts by an authority that they know, or renew it; CURL_CA_BUNDLE names "
         "a private authority\nPushed: chatty:/srv/vendor serves version 5\n",
         "version 5 is on 1 of 3 servers; push again when the others are well\n",
         "rm push.servers"),
    Push("--timeout 1 silent:/srv/x", 1, "Not pushed: silent:/srv/x: [sender] io timeout after 1 seconds -- exiting\n",
         "version 5 is on 0 of 1 server; push again when the others are well\n"),
    Push("/srv/three", 1, "Damaged: VestRUM-5.script is missing, and its signature is there\n",
         "1 thing found; nothing is pushed\n", "mv site/VestRUM2/Scripted/VestRUM-5.script /srv/script"),
    Push("/srv/two", 1, "/srv/two has version 6 already, and version 5 is here\n  this home is older than what is out; "
         "go on with: release --after 6 FOLDER\n", "nothing is pushed; see above\n",
         "cp /srv/script site/VestRUM2/Scripted/VestRUM-5.script; "
         "echo VestRUM:6 >/srv/two/site/VestRUM2/Scripted/current/VestRUM-db-version.txt"),
    Push("/srv/two", 1, "/srv/two has another version 5 than is here, and both are signed\n  machines take no version "
         "twice; go on with: release --after 5 FOLDER\n", "nothing is pushed; see above\n",
         "mv /srv/original /srv/restored; rm -r /srv/two; $KIT/srv/restored release /srv/other; "
         "$KIT/srv/restored push /srv/two"),
    Push("/srv/two", 1, "/srv/two has a folder site/ that is not the kit's: it holds index.html\n  name another folder "
         "there, or move that one away\n", "nothing is pushed; see above\n",
         "rm -r /srv/two; mkdir -p /srv/two/site; touch /srv/two/site/index.html"),
    Push("/srv/two --dry-run", 0, "Not pushed: /srv/two, by --dry-run\n", done="rm -r /srv/two"),
    Push("--first /srv/two", 0, "Not asked: /srv/two, for which no URL is given\nVersion 5 is on 1 server.\nThe next "
         "push goes on to the other 1.\n", done="printf '/srv/two\n/srv/vendor' >push.servers"),
    Push("/srv/two", 0, "Not asked: /srv/two, for which no URL is given\nVersion 5 is on 1 server.\n",
         done="rm push.servers"),
    *(Push(servers, 2, "", f'push{said}\nTry "tarnwick-publish --help".\n') for servers, said in (
        ("", " needs a SERVER, or a list of them in /srv/own/push.servers"), ("-x:/x", ": no such option: -x:/x"),
        *((bad, f': "{bad}" is neither HOST:FOLDER nor /FOLDER') for bad in ("x", "x::x", "x:", "u@-x:/x")),
        *((bad, f': "{bad}" holds a character that rsync reads differently') for bad in ("x:/a*", "x:~/x")),
        ("x:/x x:/x", ': "x:/x" is named twice'), ("/srv/own/site", ': "/srv/own/site" is in the home itself'),
        ("x:/x=https://x/y", " wants https://HOST, not https://x/y"))),
]


def test_servers_are_asked_and_failures_named(shared_world):
    world, kit = shared_world, [KIT, "--home", "/srv/own"]
    world.write("/srv/remote", REMOTE, 0o755)
    vendor.signature_folder(world.path("/srv/five"), 5)
    vendor.signature_folder(world.path("/srv/other"), 7)
    world.shell(f"cp -a /srv/vendor /srv/own; cp -a /srv/vendor /srv/original; {' '.join(kit)} release /srv/five")
    for push in OUTCOMES:
        world.shell(f"KIT='{KIT} --home '; cd /srv/own; {push.done.replace('$KIT', '$KIT ')}")
        outcome = world.command(*kit, "push", *push.servers.split(), env={"RSYNC_RSH": "/srv/remote"})
        said = outcome.stderr.removeprefix("tarnwick-publish: ")
        printed = re.sub(r"timeout after \d+", "timeout after 1", outcome.stdout)
        # In the order in which the servers end.
        assert (outcome.status, sorted(printed.splitlines()), said) == (
            push.status, sorted(push.printed.splitlines()), push.error), outcome
    assert not world.path("/srv/three").exists()
