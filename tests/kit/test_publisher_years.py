"""What becomes of old scripts, and of the machines that would need them."""

import random
import subprocess

import pytest

from testbed import LINKS, vendor
from testbed.texts import NEED_FULL, PATCHED
from testbed.vendor import publish

HOME_KIT = (vendor.KIT, "--home", "/srv/vendor")


@pytest.mark.versions(6)
def test_a_machine_on_each_side_of_the_oldest_script(world):
    assert world.publish("prune", "--keep=2") == "Kept 2 scripts, from version 4 on.\n"
    assert world.publish("check") == "All is well: version 6, 2 scripts, definitions file published.\n"
    asked = {}
    for version, told in ((4, "Downloading VestRUM-6.script [100%]\nProcessing updates…\n" + PATCHED), (3, NEED_FULL)):
        world.freshclam(1)
        world.install(version)
        world.servers.requests()
        outcome = world.run()
        assert (outcome.status, world.version(), told in outcome.stdout) == (1, 6, True), outcome
        asked[version] = [(request.path.rpartition("/")[2], request.status) for request in world.servers.requests()
                          if request.host == LINKS and "signature" not in request.path]
    version = ("VestRUM-db-version.txt", "200")
    assert asked == {4: [version, ("VestRUM-5.script", "200"), ("VestRUM-6.script", "200")],
                     3: [version, ("VestRUM-4.script", "404"), ("VestRUM.cud", "200")]}

    world.release(7)
    served = world.command(*HOME_KIT, "check", "--from", f"https://{LINKS}")
    assert (served.status, served.stdout) == (0, "All is well: version 7 from 1 server.\n"), served
    # Three scripts with their signatures are larger than so small a container, two are not.
    sizes = world.shell("cd /srv/vendor/site/VestRUM2/Scripted; stat -Lc %s VestRUM.cud; cat VestRUM-[67].s* | wc -c; "
                        "cat VestRUM-[567].s* | wc -c").split()
    fitting = sum(int(size) < int(sizes[0]) for size in sizes[1:])
    expected = {0: None, 1: 2, 2: 3}[fitting]
    assert expected, sizes
    assert world.publish("prune") == f"Kept {expected} scripts, from version {7 - expected} on.\n"
    assert world.publish("prune", "--keep", "0") == "Kept 0 scripts, from version 7 on.\n"
    assert world.publish("check") == "All is well: version 7, 0 scripts, definitions file published.\n"
    world.release(8)
    assert world.publish("check") == "All is well: version 8, 1 script, definitions file published.\n"


def test_prune_refuses_what_it_cannot_mean(world):
    assert world.publish("prune", "--keep", "9") == "Kept 2 scripts, from version 1 on.\n"
    for arguments in (["--keep"], ["--keep", "x"], ["--keep=-1"], ["2"]):
        assert world.command(*HOME_KIT, "prune", *arguments).status == 2, arguments
    world.shell("rm /srv/vendor/site/VestRUM2/Scripted/VestRUM-2.script")
    outcome = world.command(*HOME_KIT, "prune", "--keep", "1")
    assert outcome.status == 1 and "VestRUM-2.script" in outcome.stderr, outcome


@pytest.mark.versions(1)
def test_scripts_that_are_tried_together_lead_where_they_lead_one_by_one(home, tmp_path):
    """Lines that come, move and go again, some of them in between, in two files."""
    dice = random.Random(7)
    signatures, scripted = home.parent / "signatures", home / "site/VestRUM2/Scripted"
    signatures.mkdir()
    lines = {kind: [] for kind in ("hdb", "ndb")}
    for version in range(2, 15):
        for kind, known in lines.items():
            for _ in range(dice.randrange(len(known) // 2 + 1)):
                known.pop(dice.randrange(len(known)))
            for number in range(dice.randrange(1, 9)):
                body = dice.randbytes(16).hex()
                known.insert(dice.randrange(len(known) + 1), {
                    "hdb": f"{body}:77:Sample-{version}-{number}",
                    "ndb": f"Sample-{version}-{number}:0:*:{body}"}[kind])
            (signatures / f"x.{kind}").write_text("".join(f"{line}\n" for line in known), encoding="ascii")
        outcome = publish(home, "release", "--force", signatures)
        assert outcome.returncode == 0, outcome
    subprocess.run(["bash", "-euo", "pipefail", "-c", f"""
        unpack() {{ mkdir -p $1; cd $1; sigtool --unpack=$2; cd ..; }}
        unpack first {home}/first.cud; unpack last {scripted}/VestRUM.cud
        cd first; for version in {{2..14}}; do sigtool --run-cdiff={scripted}/VestRUM-$version.script; done
        diff -r . ../last"""], cwd=tmp_path, check=True)
    assert publish(home, "check").stdout == "All is well: version 14, 13 scripts, definitions file published.\n"
