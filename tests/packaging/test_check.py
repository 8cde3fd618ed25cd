"""The monitoring plugin, given databases of every age."""

import re
import time

import pytest

from testbed import DATA, Machine
from testbed.machine import seen_inside
from testbed.world import EXECUTABLE

FRESH = {"VestRUM.cud": 1, "daily.cvd": 1, "main.cvd": 9000, "bytecode.cvd": 9000}
ALL_FRESH = "VestRUM.cud is 1 h old, daily is 1 h old, main is 9000 h old, bytecode is 9000 h old"
MEASURED = "VestRUM.cud={0};172800;345600;0 daily={0};172800;345600;0 main={0};;;0 bytecode={0};;;0".format("Ns")


@pytest.fixture(scope="module")
def machine():
    with Machine() as made:
        yield made


def check(machine, databases, *arguments, tool=EXECUTABLE):
    machine.shell(f"rm -rf {DATA} /usr/local/sbin && mkdir -p {DATA} /usr/local/sbin")
    if tool:
        machine.shell(f"ln -s {seen_inside(tool)} /usr/local/sbin/tarnwick")
    for name, hours in databases.items():
        built = int(time.time()) - hours * 3600 - 60 if isinstance(hours, int) else hours
        machine.write(f"{DATA}/{name}", f"ClamAV-VDB:date:7:1:90:X:X:builder:{built}".ljust(512) + "\0\n:data")
    outcome = machine.command("/repository/packaging/monitoring/check_tarnwick", *arguments)
    return outcome.status, re.sub(r"=\d+s", "=Ns", outcome.stdout.strip()), outcome.stderr


@pytest.mark.parametrize("changes, arguments, status, text", [
    ({}, [], 0, f"OK - {ALL_FRESH} | {MEASURED}"),
    ({"daily.cvd": 60}, [], 1, f"WARNING - daily is 60 h old, 12 h past the limit of 48 h | {MEASURED}"),
    ({"daily.cvd": 60, "daily.cld": 2, "VestRUM.cud": 100}, [], 2,
     f"CRITICAL - VestRUM.cud is 100 h old, 4 h past the limit of 96 h | {MEASURED}"),
    ({"VestRUM.cud": 3}, ["-w", "2", "-c", "5"], 1, "WARNING - VestRUM.cud is 3 h old, 1 h past the limit of 2 h | "
     + MEASURED.replace("172800;345600", "7200;18000")),
    ({"main.cvd": None}, [], 2, f"CRITICAL - main is missing | {MEASURED.replace('main=Ns;;;0 ', '')}"),
    ({"bytecode.cvd": "soon", "daily.cvd": 50}, [], 3, "UNKNOWN - the age of bytecode cannot be read, "
     f"daily is 50 h old, 2 h past the limit of 48 h | {MEASURED.replace(' bytecode=Ns;;;0', '')}"),
    ({}, ["-r", "8760"], 1, "WARNING - main is 9000 h old, 240 h past the limit of 8760 h, bytecode is 9000 h old, "
     f"240 h past the limit of 8760 h | {MEASURED.replace(';;;0', ';31536000;;0')}"),
    ({}, ["-w", "two"], 3, "UNKNOWN - -w takes a whole number of hours, not 'two'"),
    ({}, ["-w", "97"], 3, "UNKNOWN - the limit for WARNING, 97 h, is above that for CRITICAL, 96 h"),
], ids=str)
def test_one_line_and_a_status(machine, changes, arguments, status, text):
    databases = {name: hours for name, hours in (FRESH | changes).items() if hours is not None}
    assert check(machine, databases, *arguments) == (status, f"TARNWICK {text}", "")


def test_without_the_tool_nothing_is_known(machine):
    assert check(machine, FRESH, tool=None) == (
        3, "TARNWICK UNKNOWN - 'tarnwick --version' failed; is tarnwick installed?", "")
