"""Whole fleets: real runs against two servers, beside what the simulation says of them."""

import os
import re
import subprocess
import sys

from testbed import REPOSITORY

STORY = """\
20 machines, 8 at a time: 11 up to date, 2 new, the others up to 5 versions behind the 6 that are out; 3 scripts are \
kept.
Server two died while version 7 was pushed. The push said:
  Not pushed: two:/srv/two: connect to host two: No route to host
  tarnwick-publish: version 7 is on 1 of 2 servers; push again when the others are well
After 2 hours 20 of 20 machines are at version 7.
Whole containers: N. The simulation says 2, and at most N more for the runs that were under way when server one \
changed and server two died.
Server two is back, and the next push says: Version 7 is on 2 servers.
"""


def fleet(*arguments):
    """The exit status tells whether more containers were fetched than the simulation allows."""
    outcome = subprocess.run([sys.executable, REPOSITORY / "bench/fleet.py", *arguments], capture_output=True,
                             text=True, check=False, env=os.environ | {"PYTHONPATH": str(REPOSITORY)})
    assert outcome.returncode == 0, outcome
    return outcome.stdout


def test_a_server_dies_while_a_release_is_pushed():
    said = fleet("--machines", "20", "--versions", "6", "--kept", "3")
    assert re.sub(r"(containers: |at most )\d+", r"\1N", said) == STORY
