"""Starts programs with the rights that the shipped systemd unit gives them, on machines without systemd."""

import re
import shlex
import subprocess

from .world import EXECUTABLE

UNIT = {}  # the values of each setting, in their order
for _line in (EXECUTABLE.parent / "packaging/tarnwick.service").read_text(encoding="utf-8").splitlines():
    if _setting := re.fullmatch(r"(\w+)=(.*)", _line):
        UNIT.setdefault(_setting[1], []).append(_setting[2])

# Only $WRITABLE paths can be written, except those below $READABLE ones. $HIDDEN paths look empty.
WALLS = """
mkdir -p /var/lib/tarnwick /run/hidden
touch /run/empty
for path in $HIDDEN; do
    if [ -d "$path" ]; then mount --bind /run/hidden "$path"
    elif [ -e "$path" ]; then mount --bind /run/empty "$path"; fi
done
for path in $WRITABLE; do [ ! -e "$path" ] || mount --bind "$path" "$path"; done
for path in $READABLE; do mount --bind "$path" "$path"; done
for path in / /usr/local $READABLE; do mount -o remount,bind,ro "$path"; done
exec "$@"
"""


def paths(setting):
    """All paths of a setting, which may have several lines."""
    return [path.removeprefix("-") for line in UNIT.get(setting, []) for path in line.split()]


def as_the_service():
    """The command that starts a program with the capabilities that the unit allows, and no others."""
    assert UNIT["NoNewPrivileges"] == ["yes"]
    kept = UNIT["CapabilityBoundingSet"][0].lower().removeprefix("cap_").split(" cap_")
    capabilities = ",".join(["-all", *(f"+{name}" for name in kept)])
    return "setpriv", f"--bounding-set={capabilities}", f"--inh-caps={capabilities}", "--no-new-privs"


def system_calls():
    """The names of the system calls that the unit allows."""
    told = subprocess.run(["systemd-analyze", "syscall-filter"], check=True, capture_output=True, text=True).stdout
    groups = {group.split(maxsplit=1)[0]: re.findall(r"(?m)^    ([-@\w]+)$", group)
              for group in re.split(r"\n(?=@)", told)}

    def expanded(names):
        return {call for name in names for call in (expanded(groups[name]) if name in groups else [name])}

    allowed = set()
    for line in UNIT["SystemCallFilter"]:
        names = expanded(line.removeprefix("~").split())
        allowed = allowed - names if line.startswith("~") else allowed | names
    return sorted(allowed)


def behind_walls():
    """The command that starts a program as confined as the unit; only /srv is writable too, for stand-ins' notes."""
    writable = " ".join(["/srv", "/tmp", "/var/lib/tarnwick", *paths("ReadWritePaths")])
    readable = " ".join(paths("ReadOnlyPaths"))
    hidden = " ".join(paths("InaccessiblePaths"))
    return ("env", f"WRITABLE={writable}", f"READABLE={readable}", f"HIDDEN={hidden}",
            "unshare", *(["-mi"] if UNIT["PrivateIPC"] == ["yes"] else ["-m"]), "sh", "-euc", WALLS, "sh",
            "prlimit", f"--fsize={UNIT['LimitFSIZE'][0]}", *as_the_service(),
            "/repository/testbed/filter_system_calls", ",".join(system_calls()))


def command(setting):
    """The words of a command as systemd reads it, without the variable that is empty by default."""
    words = [word.replace("$$", "$") for word in shlex.split(setting.removeprefix("-").replace(r"\\", "\\"))]
    return [word for word in words if word != "$TARNWICK_ARGUMENTS"]


def ended(world, status=0):
    """Runs the service's commands for the end of a run with this status; returns their output."""
    world.shell("mkdir -p /usr/local/lib /var/log/tarnwick; cd /usr/local/lib; "
                "ln -sfn /repository/packaging/linux tarnwick")
    known = {"0", *" ".join(UNIT.get("SuccessExitStatus", [])).split()}
    environment = {"SERVICE_RESULT": "success" if str(status) in known else "exit-code",
                   "EXIT_CODE": "exited", "EXIT_STATUS": str(status)}
    said = ""
    for setting in UNIT["ExecStopPost"]:
        outcome = world.command(*command(setting), env=environment)
        assert outcome.status == 0
        said += outcome.stdout + outcome.stderr
    return said
