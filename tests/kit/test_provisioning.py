"""Provisioning of the prefix."""

import pytest

from testbed import BIN, CONFIGURATION, DATA, PREFIX
from testbed.prefix_layout import LAID_OUT, LISTING, PROVISION


@pytest.fixture(scope="module")
def world(shared_world):
    return shared_world


def test_provisioning_creates_the_prefix_and_keeps_changed_files(world):
    world.shell(f"rm -rf {PREFIX}/*")
    assert world.shell(PROVISION) == f"{PREFIX} is ready.\n"
    assert world.shell(LISTING) == LAID_OUT
    world.write(CONFIGURATION, "of our own")
    world.write(f"{BIN}/clamscan", "of our own", 0o755)
    world.shell(f"echo altered >>{BIN}/sigtool; {PROVISION}; {PROVISION}")
    kept = world.shell(f"cat {CONFIGURATION} {BIN}/clamscan; cmp {BIN}/sigtool /repository/packaging/linux/sigtool")
    assert kept == "of our own" * 2
    assert world.shell(LISTING) == LAID_OUT.replace("-> '/usr/bin/clamscan' lrwxrwxrwx", "-rwxr-xr-x")
    # Provisioning also keeps a dangling link.
    world.shell(f"ln -sf /nowhere {PREFIX}/etc/freshclamBAK.conf; {PROVISION}; test -L {PREFIX}/etc/freshclamBAK.conf")


def test_provisioning_takes_programs_and_configurations_from_other_users(world):
    """It follows no links: neither links that it keeps nor links with the names of files that it writes."""
    world.shell(f"rm -rf {PREFIX}/* /srv/other; {PROVISION}; cd {PREFIX}; cp /bin/true bin/own; chmod 4777 bin/own"
                "; mkdir bin/folder /srv/other; ln -s /srv/other bin/link; chmod g+w etc/*; rm etc/freshclam.conf"
                "; ln -s /srv/other/file etc/freshclam.conf.new; touch /srv/other/file; chmod 666 /srv/other/file"
                "; chown -hR clamav:clamav . /srv/other; chmod 777 . bin etc share")
    others = "find /srv/other -exec stat -c '%N %A %U:%G %s' {} +"
    before = world.shell(others)
    names = ("bin/folder", "bin/freshclam", "bin/own", "bin/sigtool", "etc/freshclamBAK.conf",
             "etc/freshclamCLEAN.conf")
    said = world.shell(f"exec 3>>{BIN}/own; {PROVISION}; echo tampered >&3; cmp {BIN}/own /bin/true")
    assert said == "".join(
        f"Users other than root could change {PREFIX}/{name}. Check its content.\n" for name in names
    ) + f"{PREFIX} is ready.\n"
    own = ("'./bin/folder' drwxr-xr-x root:root\n", "'./bin/link' -> '/srv/other' lrwxrwxrwx root:root\n"
           "'./bin/own' -rwxr-xr-x root:root\n")
    laid_out = LAID_OUT.replace("'./bin/freshclam'", own[0] + "'./bin/freshclam'").replace(
        "'./bin/sigtool'", own[1] + "'./bin/sigtool'")
    assert (world.shell(LISTING), world.shell(others)) == (laid_out, before)
    assert world.shell(PROVISION) == f"{PREFIX} is ready.\n"


def test_a_configuration_names_the_hosts_of_its_build(world):
    world.write("/srv/lib/build", "mirror-host: a.example\nupstream-mirror-host: mirror.example.org\n"
                "upstream-version-record-host: record.example.org\n")
    written = world.shell(f"cp {PROVISION} /srv/lib; /srv/lib/provision --print-configuration | grep -v '^# '")
    assert written == (f"DatabaseDirectory {DATA}\nDatabaseOwner clamav\nDatabaseMirror mirror.example.org\n"
                       "#DNSDatabaseInfo record.example.org\n#MaxAttempts 5\n")


def test_freshclam_starts_from_a_configuration_with_a_password(world):
    """freshclam refuses a password that other users can read. A run's edits keep the file readable by root only."""
    world.shell(f"rm -rf {PREFIX}/*; {PROVISION}; echo HTTPProxyPassword secret >>{CONFIGURATION}")
    world.custom_database()
    said = f"{CONFIGURATION} differs from the default, and is kept.\n"
    assert world.shell(PROVISION) == (
        f"{said}{CONFIGURATION} contains a password: now only root can read it.\n{PREFIX} is ready.\n")
    assert world.shell(PROVISION) == f"{said}{PREFIX} is ready.\n"
    outcome = world.run()
    assert (outcome.status, "custom.ndb updated" in outcome.stdout) == (1, True), outcome
    assert world.shell(f"stat -c '%A %U' {CONFIGURATION}; ls {DATA}") == (
        "-rw------- root\nVestRUM.cud\nVestrum.database\nVestrum.database.signature\ncustom.ndb\nfreshclam.dat\n")


def test_provisioning_that_fails_names_a_remedy(world):
    for command, message in ((f"setpriv --reuid=1 {PROVISION}",
                              f"only root can lay out {PREFIX}; try: sudo {PROVISION}\n"),
                             (f"sed -i /clamav/d /etc/group; {PROVISION}", "there is no user and group clamav\n"
                              "provision: create them with: apt-get install clamav-freshclam\n")):
        outcome = world.command("sh", "-c", f"cp /etc/group /tmp; {command}; s=$?; cp /tmp/group /etc; exit $s")
        assert (outcome.status, outcome.stdout, outcome.stderr) == (1, "", "provision: " + message)
