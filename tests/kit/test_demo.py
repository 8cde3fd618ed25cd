"""The output of scripts/demo without a terminal."""

import os
import re
import subprocess

from testbed import REPOSITORY

DEMO = "PYTHONDONTWRITEBYTECODE=1 PYTHONPATH=. /usr/bin/python3 scripts/demo_steps.py"


def shell(command):
    return subprocess.run(["bash", "-o", "pipefail", "-c", command], cwd=REPOSITORY, capture_output=True, text=True,
                          check=False, stdin=subprocess.DEVNULL, env=os.environ | {"COLUMNS": "80"})


def test_every_step_of_the_demo_succeeds():
    demo = shell(DEMO)
    steps = re.findall(r"(?m)^ *\d+\. ", demo.stdout)
    assert (demo.returncode, demo.stderr, demo.stdout.count("✓")) == (0, "", len(steps)) and len(steps) > 10
    assert "\033" not in demo.stdout and max(map(len, demo.stdout.splitlines())) <= 80


def test_a_demo_whose_reader_stops_ends_without_an_error():
    demo = shell(f"{DEMO} | head -n 5")
    assert (demo.returncode, demo.stderr, demo.stdout.count("\n")) == (0, "", 5)
