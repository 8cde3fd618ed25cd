"""What provisioning lays out, and the sigtool that it puts there."""

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


def test_sigtool_applies_a_folder_of_scripts_in_the_order_of_their_versions(world):
    world.shell(f"rm -rf {PREFIX}/bin; {PROVISION}; mkdir -p /tmp/work /tmp/scripts; cd /tmp/work"
                "; sigtool --unpack=/srv/vendor/first.cud; cp /srv/vendor/site/VestRUM2/Scripted/*.script ..")
    look = (f"cd /tmp/work; {BIN}/sigtool --run-cdiff=/tmp/scripts --datadir=. >/dev/null 2>&1 || echo failed"
            "; cut -d: -f3 VestRUM.info | head -n 1; ls COPYING")
    # 10 comes after 9; what is not newer than the container is passed over; the first that fails is the last.
    for preparation, answer in (("mv VestRUM-2.script scripts", "2\n"), ("mv VestRUM-3.script scripts", "3\n"),
                                ("touch scripts/VestRUM-10.script; mv VestRUM-4.script scripts/VestRUM-9.script", "4\n"),
                                ("cd scripts; rm *9*; echo CLOSE >V-11.script; echo UNLINK COPYING >V-12.script",
                                 "failed\n4\n"), ("rm scripts/V-*; touch scripts/other.script", "failed\n4\n")):
        world.shell(f"cd /tmp; {preparation}")
        assert world.shell(look) == answer + "COPYING\n", preparation
    assert world.shell(f"{BIN}/sigtool --version") == world.shell("/usr/bin/sigtool --version")
