"""What the shipped systemd unit gives a run, on machines without systemd."""

import re
import shlex

from .machine import REPOSITORY

UNIT = {}  # the last of the settings of the same name
AFTERWARDS = []
for _line in (REPOSITORY / "packaging/systemd/tarnwick.service").read_text(encoding="utf-8").splitlines():
    if _setting := re.fullmatch(r"(\w+)=(.*)", _line):
        UNIT[_setting[1]] = _setting[2]
        AFTERWARDS += [_setting[2]] if _setting[1] == "ExecStopPost" else []

# Nothing can be written but what is named, and of that not what is named again.
WALLS = """
mkdir -p /var/lib/tarnwick
for path in $WRITABLE; do [ ! -e "$path" ] || mount --bind "$path" "$path"; done
for path in $READABLE; do mount --bind "$path" "$path"; done
for path in / /usr/local $READABLE; do mount -o remount,bind,ro "$path"; done
exec "$@"
"""


def as_the_service():
    """The command that gives up what the unit does not leave to the tool."""
    assert UNIT["NoNewPrivileges"] == "yes"
    kept = UNIT["CapabilityBoundingSet"].lower().removeprefix("cap_").split(" cap_")
    capabilities = ",".join(["-all", *(f"+{name}" for name in kept)])
    return "setpriv", f"--bounding-set={capabilities}", f"--inh-caps={capabilities}", "--no-new-privs"


def behind_walls():
    """The command that shows a program the file system as systemd lays it out for the unit."""
    writable = f"/tmp /var/lib/tarnwick {UNIT['ReadWritePaths'].replace(' -', ' ')}"
    readable = UNIT.get("ReadOnlyPaths", "").replace("-", "")
    return "env", f"WRITABLE={writable}", f"READABLE={readable}", "unshare", "-m", "sh", "-euc", WALLS, "sh"


def command(setting):
    """As systemd reads it; without the variables that stand for nothing."""
    words = [word.replace("$$", "$") for word in shlex.split(setting.removeprefix("-").replace(r"\\", "\\"))]
    return [word for word in words if word != "$TARNWICK_ARGUMENTS"]


def ended(world, **environment):
    """What the service says and does when a run has ended."""
    world.shell("mkdir -p /usr/local/lib /var/log/tarnwick; cd /usr/local/lib; "
                "ln -sfn /repository/packaging/linux tarnwick")
    said = ""
    for setting in AFTERWARDS:
        outcome = world.command(*command(setting), env=environment)
        assert outcome.status == 0
        said += outcome.stdout + outcome.stderr
    return said
