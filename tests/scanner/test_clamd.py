"""ClamAV's scanners, among them Debian's daemon, use the databases that a run installs."""

import socket

import pytest

from testbed import DATA, sample, service

NOTIFY = "/repository/packaging/linux/notify-clamd"
OWN = "/var/lib/clamav"
TOLD = "clamd loads the new databases.\n"


pytestmark = pytest.mark.versions(4)


@pytest.fixture(name="world")
def world_with_a_daemon(new_world):
    """A world in which clamd can run. freshclam leaves out the databases that only ClamAV could sign."""
    new_world.custom_database()
    new_world.shell(f"install -d -o clamav /run/clamav /var/log/clamav {OWN}; ln -s ../run /var/run")
    for version in (3, 4):
        new_world.write(f"/srv/sample-{version}", sample(version))
    return new_world


def configure(world, folder):
    world.shell(f"sed -i 's|^DatabaseDirectory .*|DatabaseDirectory {folder}|' /etc/clamav/clamd.conf")


def knows(world, version):
    scan = world.command("clamdscan", "--no-summary", "--fdpass", f"/srv/sample-{version}")
    return scan.status == 1 and f"Vestrum.Sample-{version}.UNOFFICIAL FOUND" in scan.stdout


@pytest.mark.parametrize("folder", [DATA, OWN], ids=["the prefix", "a link in Debian's folder"])
def test_clamd_uses_what_a_run_has_installed(world, folder):
    configure(world, folder)
    world.install(3)
    if folder == OWN:
        world.shell(f"ln -s {DATA}/VestRUM.cud {OWN}")
    world.run("--quiet")  # deletes the dummy databases, which clamd would refuse
    world.install(3)
    clamd = world.start("clamd", "--foreground")
    assert world.command("clamdscan", "--ping", "30:1").status == 0
    assert service.ended(world) == TOLD
    clamd.read_until("Activating the newly loaded database")
    assert (knows(world, 3), knows(world, 4)) == (True, False)
    world.run("--quiet")
    assert service.ended(world) == TOLD
    clamd.read_until("Activating the newly loaded database")
    while not knows(world, 4):  # scans that began earlier still use the old database
        pass
    assert world.command("clamscan", "--quiet", "-d", folder, "/srv/sample-4").status == 1
    # After a run without changes, clamd need not load gigabytes again.
    world.run("--quiet")
    assert service.ended(world) == ""


def test_no_daemon_and_a_daemon_that_never_answers(world):
    configure(world, DATA)
    world.install(2)
    assert service.ended(world) == ""
    with socket.socket(socket.AF_UNIX) as silent:
        silent.bind(str(world.path("/run/clamav/clamd.ctl")))
        world.shell("chmod 666 /run/clamav/clamd.ctl")
        silent.listen()
        silent.settimeout(60)
        notify = world.start(NOTIFY)
        with silent.accept()[0] as connection:
            assert connection.recv(100) == b"zRELOAD\0"
            who = connection.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, 12)
            assert int.from_bytes(who[4:8], "little") == int(world.shell("id -u clamav"))
            world.shell("killall -ALRM timeout")  # the signal of its own time limit, half a minute
            outcome = notify.end()
    assert (outcome.status, outcome.stdout, outcome.stderr) == (
        0, "", "clamd did not answer; its own SelfCheck will find the new databases.\n")
