"""What provisioning lays out."""

import pytest

from testbed import BIN, CONFIGURATION, PREFIX

PROVISION = "/repository/packaging/linux/provision"
LISTING = f"cd {PREFIX} && find . -exec stat -c '%N %A %U:%G' {{}} + | sort"
LAID_OUT = """\
'.' drwxr-xr-x root:root
'./bin' drwxr-xr-x root:root
'./bin/clamscan' -> '/usr/bin/clamscan' lrwxrwxrwx root:root
'./bin/freshclam' -rwxr-xr-x root:root
'./bin/sigtool' -rwxr-xr-x root:root
'./etc' drwxr-xr-x root:root
'./etc/freshclam.conf' -rw-r--r-- root:root
'./etc/freshclamBAK.conf' -rw-r--r-- root:root
'./etc/freshclamCLEAN.conf' -rw-r--r-- root:root
'./share' drwxr-xr-x root:root
'./share/clamav' drwxrwxr-x clamav:clamav
"""


@pytest.fixture(scope="module")
def world(shared_world):
    return shared_world


def test_the_prefix_is_laid_out_and_what_somebody_changed_is_kept(world):
    world.shell(f"rm -rf {PREFIX}/*")
    assert world.shell(PROVISION) == f"{PREFIX} is ready.\n"
    assert world.shell(LISTING) == LAID_OUT
    world.write(CONFIGURATION, "of our own")
    world.write(f"{BIN}/clamscan", "of our own", 0o755)
    world.shell(f"echo altered >>{BIN}/sigtool; {PROVISION}; {PROVISION}")
    kept = world.shell(f"cat {CONFIGURATION} {BIN}/clamscan; cmp {BIN}/sigtool /repository/packaging/linux/sigtool")
    assert kept == "of our own" * 2
    assert world.shell(LISTING) == LAID_OUT.replace("-> '/usr/bin/clamscan' lrwxrwxrwx", "-rwxr-xr-x")


def test_provisioning_says_what_to_do_when_it_cannot(world):
    for command, message in ((f"setpriv --reuid=1 {PROVISION}", f"only root can lay out {PREFIX}; try: sudo {PROVISION}\n"),
                             (f"sed -i /clamav/d /etc/group; {PROVISION}", "there is no user and group clamav\n"
                              "provision: they come with: apt-get install clamav-freshclam\n")):
        outcome = world.command("sh", "-c", f"cp /etc/group /tmp; {command}; s=$?; cp /tmp/group /etc; exit $s")
        assert (outcome.status, outcome.stdout, outcome.stderr) == (1, "", "provision: " + message)
