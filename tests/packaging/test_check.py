"""The monitoring plugin."""

import re
import time
import typing

import pytest

from testbed import BIN, DATA, PREFIX, Machine
from testbed.machine import seen_inside
from testbed.service import ended
from testbed.world import EXECUTABLE

FRESH = {"VestRUM.cud": 1, "daily.cvd": 1, "main.cvd": 9000, "bytecode.cvd": 9000}
ALL_FRESH = ("VestRUM.cud is 1 h 0 min old, daily is 1 h 0 min old, main is 375 d 0 h 0 min old, "
             "bytecode is 375 d 0 h 0 min old")
MEASURED = "VestRUM.cud={0};187200;345600;0 daily={0};187200;345600;0 main={0};;;0 bytecode={0};;;0".format("Ns")


@pytest.fixture(scope="module")
def machine():
    with Machine() as made:
        yield made


def check(machine, databases, *arguments, tool=EXECUTABLE, through=(), before="", **more):
    machine.shell(f"rm -rf {DATA} /usr/local/sbin && mkdir -p {DATA} /usr/local/sbin")
    if tool:
        machine.shell(f"ln -s {seen_inside(tool)} /usr/local/sbin/tarnwick")
    for name, hours in databases.items():
        built = int(time.time()) - hours * 3600 - 30 if isinstance(hours, int) else hours
        machine.write(f"{DATA}/{name}", f"ClamAV-VDB:date:7:1:90:X:X:builder:{built}".ljust(512) + "\0\n:data")
    machine.shell(before)
    outcome = machine.command(*through, "/repository/packaging/monitoring/check_tarnwick", *arguments, **more)
    return outcome.status, re.sub(r"=\d+s", "=Ns", outcome.stdout.strip()), outcome.stderr


@pytest.mark.parametrize("changes, arguments, status, text", [
    ({}, [], 0, f"OK - {ALL_FRESH} | {MEASURED}"),
    ({"daily.cvd": 60}, [], 1, f"WARNING - daily is 2 d 12 h 0 min old, 8 h 0 min past the limit of 52 h | {MEASURED}"),
    ({"daily.cvd": 60, "daily.cld": 2, "VestRUM.cud": 100}, [], 2,
     f"CRITICAL - VestRUM.cud is 4 d 4 h 0 min old, 4 h 0 min past the limit of 96 h | {MEASURED}"),
    ({"VestRUM.cud": 3}, ["-w", "2", "-c", "5"], 1,
     "WARNING - VestRUM.cud is 3 h 0 min old, 1 h 0 min past the limit of 2 h | "
     + MEASURED.replace("187200;345600", "7200;18000")),
    ({"main.cvd": None}, [], 2, f"CRITICAL - main is missing | {MEASURED.replace('main=Ns;;;0 ', '')}"),
    ({"bytecode.cvd": "soon", "daily.cvd": 53}, [], 3, "UNKNOWN - the age of bytecode cannot be read, "
     f"daily is 2 d 5 h 0 min old, 1 h 0 min past the limit of 52 h | {MEASURED.replace(' bytecode=Ns;;;0', '')}"),
    ({}, ["-r", "8760"], 1, "WARNING - main is 375 d 0 h 0 min old, 10 d 0 h 0 min past the limit of 8760 h, "
     f"bytecode is 375 d 0 h 0 min old, 10 d 0 h 0 min past the limit of 8760 h | "
     f"{MEASURED.replace(';;;0', ';31536000;;0')}"),
    ({}, ["-w", "two"], 3, "UNKNOWN - -w takes a whole number of hours, not 'two'"),
    ({"VestRUM.cud": -47, "daily.cvd": -25, "bytecode.cvd": -23}, [], 2,
     "CRITICAL - VestRUM.cud is dated in the future, 1 d 22 h 59 min ahead, daily is dated in the future, "
     "1 d 0 h 59 min ahead | main=Ns;;;0 bytecode=Ns;;;0"),
    ({}, ["-w", "96"], 0, f"OK - {ALL_FRESH} | {MEASURED.replace('187200', '345600')}"),
    ({}, ["-w", "97"], 3, "UNKNOWN - the limit for WARNING, 97 h, is above that for CRITICAL, 96 h"),
], ids=str)
def test_one_line_and_a_status(machine, changes, arguments, status, text):
    databases = {name: hours for name, hours in (FRESH | changes).items() if hours is not None}
    assert check(machine, databases, *arguments) == (status, f"TARNWICK {text}", "")


def test_without_the_tool_the_state_is_unknown(machine):
    assert check(machine, FRESH, tool=None) == (
        3, "TARNWICK UNKNOWN - 'tarnwick --version' failed; is tarnwick installed?", "")


USE_DATA = f"mkdir -p /etc/default; echo 'TARNWICK_ARGUMENTS=\"--quiet --datadir=/data\"' >/etc/default/tarnwick"
AS_NOBODY = ["setpriv", "--reuid=nobody", "--clear-groups"]
DETAILS = """\
VestRUM.cud       version 7, built DATE, 1 h 0 min ago
daily             version 7, built DATE, 1 h 0 min ago
main              version 7, built DATE, 375 d 0 h 0 min ago
bytecode          version 7, built DATE, 375 d 0 h 0 min ago
Last runs         ended DATE, 0 min ago, exited (0)
Next run          Mon 2026-11-23 08:11:05 UTC
Installation      /usr/local/vestRum, in order; databases in /usr/local/vestRum/share/clamav
"""
WELL = "All is well: every database is installed, and none is too old.\n\n"
UNHEALTHY = "No database is too old, but something else is wrong:\n"
LAY_OUT = "repair it: sudo /usr/local/lib/tarnwick/provision"


@pytest.fixture(name="installed")
def installed_machine(machine):
    machine.shell("/repository/packaging/linux/provision; mkdir -p /run/systemd/system; rm -rf /var/log/tarnwick")
    machine.write("/srv/first/systemctl", "#!/bin/sh\ncat /srv/next\n", 0o755)
    machine.write("/srv/next", "Mon 2026-11-23 08:11:05 UTC\n")
    assert ended(machine) == ""
    yield machine
    machine.shell(f"rm -rf {BIN} /data /etc/default/tarnwick /usr/local/lib/tarnwick")


def long(machine, before="", changes=(), through=(), status=0):
    seen = check(machine, FRESH | dict(changes), "--long", through=through, before=before,
                 env={"PATH": "/srv/first:/usr/bin:/bin"})
    assert (seen[0], seen[2]) == (status, "")
    return re.sub(r"\d{4}-\d\d-\d\d \d\d:\d\d UTC", "DATE", seen[1]) + "\n"


def test_all_is_well(installed):
    assert long(installed) == f"{WELL}{DETAILS}"
    moved = f"{USE_DATA}; mkdir /data; mv {DATA}/* /data; touch -d '3 hours ago' /data/Vestrum.database"
    assert long(installed, moved) == WELL + DETAILS.replace(
        f"in {DATA}", "in /data").replace("Last", "Vestrum.database  dated DATE, 3 h 0 min ago\nLast")


@pytest.mark.parametrize("status", [1, 62])
def test_a_failed_run_of_the_service_is_reported(installed, status):
    ended(installed, status)
    told = DETAILS.replace("exited (0)\n", f"exited (0)\n{'':18}ended DATE, 0 min ago, exited ({status})\n")
    assert long(installed) == (f"{WELL}{told}" if status == 1 else f"""{UNHEALTHY}\
- The last run of the service failed (exit-code {status}):
    see EXIT STATUS in tarnwick(8), and: sudo journalctl -u tarnwick.service

{told}""")


class Trouble(typing.NamedTuple):
    """A fault, made by a script or with databases of other ages, and the report of it."""
    told: str
    before: str = ""
    changes: dict = {}
    through: list = []
    status: int = 0


AHEAD = "if the clock is right (timedatectl), download it again: sudo rm"
BAD = "the databases need attention:\n"
FETCH = "download it, and read the messages: sudo tarnwick"
BUILD = "cd /usr/local/lib; rm tarnwick; mkdir tarnwick; echo {} | tr ' ' '\\n' | sed 's/:/: /' >tarnwick/build"
TROUBLES = {
    "old": Trouble(status=2, changes={"daily.cvd": 100}, told=f"""CRITICAL - {BAD}\
- daily is 4 d 4 h 0 min old; the limit is 96 h:
    find out why it is not updated: sudo tarnwick
"""),
    "in the future": Trouble(status=2, changes={"VestRUM.cud": -30, "main.cvd": -9000}, told=f"""CRITICAL - {BAD}\
- VestRUM.cud is dated in the future, so its age is unknown:
    {AHEAD} {DATA}/VestRUM.cud; sudo tarnwick
- main is dated in the future, so its age is unknown:
    {AHEAD} {DATA}/main.cvd; sudo tarnwick
"""),
    "missing": Trouble(status=2, before=f"rm {DATA}/[Vm]*", told=f"""CRITICAL - {BAD}\
- VestRUM.cud is missing:
    {FETCH}
- main is missing:
    {FETCH}
"""),
    "no database": Trouble(status=3, changes={"bytecode.cvd": "soon"}, told=f"""UNKNOWN - {BAD}\
- bytecode does not start like a database:
    download it again: sudo rm {DATA}/bytecode.cvd; sudo tarnwick
"""),
    "no container": Trouble(status=3, before=f"echo '<html>sorry' >{DATA}/VestRUM.cud", told=f"""UNKNOWN - {BAD}\
- VestRUM.cud does not start like a database:
    download it again: sudo rm {DATA}/VestRUM.cud; sudo tarnwick
"""),
    "pipes": Trouble(status=3, before=f"cd {DATA}; rm *; mkfifo VestRUM.cud daily.cvd main.cvd bytecode.cld", told=(
        f"UNKNOWN - {BAD}" + "".join(
            f"- {name} does not start like a database:\n"
            f"    download it again: sudo rm {DATA}/{file}; sudo tarnwick\n"
            for name, file in (("VestRUM.cud", "VestRUM.cud"), ("daily", "daily.cvd"), ("main", "main.cvd"),
                               ("bytecode", "bytecode.cld"))))),
    "closed folder": Trouble(status=3, before=f"chmod 700 {DATA}", through=AS_NOBODY, told=f"""UNKNOWN - {BAD}\
- The user nobody cannot read {DATA}:
    run this as root
"""),
    "closed files": Trouble(status=3, before=f"chmod 600 {DATA}/*",
                            through=AS_NOBODY, told=f"UNKNOWN - {BAD}" + "".join(
        f"- {name} exists, but the user nobody cannot read it:\n    run this as root\n"
        for name in ("VestRUM.cud", "daily", "main", "bytecode"))),
    "folder gone": Trouble(status=2, before=USE_DATA, told=f"""CRITICAL - {BAD}\
- /data is missing:
    lay out the prefix: sudo /usr/local/lib/tarnwick/provision
"""),
    "prefix": Trouble(before=f"rm {BIN}/sigtool; chmod 777 {BIN}/freshclam", told=f"""{UNHEALTHY}\
- {BIN}/sigtool is missing, or is no program:
    {LAY_OUT}
- Others than root can change {BIN}/freshclam:
    {LAY_OUT}
"""),
    "links": Trouble(f"""{UNHEALTHY}\
- Others than root can change what {BIN}/link leads to:
    point it at a file that only root can change, or remove it
""", f"mkdir -m 777 /data; cp /bin/true /data; cd {BIN}; ln -s /data/true link; ln -s /nowhere gone"),
    "timer": Trouble(before=">/srv/next", told=f"""{UNHEALTHY}\
- No run is scheduled:
    enable the timer: sudo systemctl enable --now tarnwick.timer
"""),
    "run": Trouble(before="echo $(($(date +%s) - 187801)) exit-code exited 62 >>/var/log/tarnwick/runs",
                   told=f"""{UNHEALTHY}\
- The last run of the service failed (exit-code 62):
    see EXIT STATUS in tarnwick(8), and: sudo journalctl -u tarnwick.service
- The last run of the service ended 2 d 4 h 10 min ago:
    find out why: systemctl status tarnwick.timer tarnwick.service
"""),
    "example host": Trouble(before=BUILD.format("content-host:a.example.org link-host:b.example"), told=f"""{UNHEALTHY}\
- This build is for hosts that do not exist:
    get one from your vendor
"""),
    "example key": Trouble(before=BUILD.format("content-host:a.example.org key-owner:example"), told=f"""{UNHEALTHY}\
- This build has the example key, so it refuses every file of a vendor:
    get one from your vendor
"""),
}


@pytest.mark.parametrize("trouble", TROUBLES.values(), ids=TROUBLES)
def test_each_trouble_is_reported_with_a_remedy(installed, trouble):
    seen = long(installed, trouble.before, trouble.changes, trouble.through, trouble.status)
    assert seen.startswith(trouble.told + "\n")


@pytest.mark.parametrize("before, changed", [
    ("rm -r /var/log/tarnwick", ("ended DATE, 0 min ago, exited (0)", "none recorded")),
    (rf"printf 'ClamAV-VDB:date:\033]0;8\007\233:1:90:X:X:builder:%s\n' $(($(date +%s) - 3630)) >{DATA}/daily.cvd", (
        "daily             version 7", "daily             version ?]0;8??")),
    (f"chmod 600 {PREFIX}/etc/freshclam.conf", ("", "")),
], ids=["before the first run", "characters that a terminal obeys", "a password"])
def test_harmless_things_are_not_reported(installed, before, changed):
    told = long(installed, before, through=AS_NOBODY if "chmod" in before else ())
    assert told == WELL + DETAILS.replace(*changed)


def test_the_report_names_the_build(installed):
    build = EXECUTABLE.parent / "generated/build"
    known = dict(re.findall(r"(.*): (.*)", build.read_text(encoding="utf-8")))
    seen = long(installed, f"cd /usr/local/lib; rm tarnwick; mkdir tarnwick; cp {seen_inside(build)} tarnwick")
    assert seen.split("This build    ", 1)[1] == "".join((
        f"    {known['version']}-{known['release']}, for {known['content-host']}, {known['link-host']}, ",
        f"{known['mirror-host']}\n{'':18}key {known['key-sha256']}\n"))
