"""The prefix's sigtool: it applies a folder of scripts, and unpacks containers without the scripts in them."""

import contextlib
import random
import re
import subprocess
from typing import NamedTuple

import pytest

from testbed import BIN, REPOSITORY, Outcome, member, repacked
from testbed.texts import PUBLISHED_SCRIPTED
from testbed.vendor import scripts_after



@pytest.fixture(scope="module")
def world(shared_world):
    return shared_world


def unpack(world, *more):
    """Unpacks the first container in /tmp/work, makes an empty /tmp/scripts, and runs more commands in /tmp/work."""
    world.shell("; ".join((
        "rm -rf /tmp/*; mkdir /tmp/work /tmp/scripts; echo mine >/tmp/outside; cd /tmp/work",
        "sigtool --unpack=/srv/vendor/first.cud >/dev/null", *more)))


def apply(world, **scripts):
    for name, text in scripts.items():
        world.write(f"/tmp/scripts/VestRUM-{name[1:]}.script", text)
    return world.command("sh", "-c", f"cd /tmp/work && {BIN}/sigtool --run-cdiff=/tmp/scripts --datadir=.")


def test_sigtool_applies_a_folder_of_scripts_in_the_order_of_their_versions(world):
    unpack(world, f"cp {PUBLISHED_SCRIPTED}/*.script ..")
    look = (f"cd /tmp/work; {BIN}/sigtool --run-cdiff=/tmp/scripts --datadir=. >/dev/null 2>&1 || echo failed"
            "; cut -d: -f3 VestRUM.info | head -n 1; ls COPYING")
    # sigtool applies 10 after 9, skips scripts that are not newer than the container, and stops at the first failure.
    for preparation, answer in (("mv VestRUM-2.script scripts", "2\n"), ("mv VestRUM-3.script scripts", "3\n"),
                                ("touch scripts/VestRUM-10.script; mv VestRUM-4.script scripts/VestRUM-9.script",
                                 "4\n"),
                                ("cd scripts; rm *9*; echo CLOSE >V-11.script; echo UNLINK COPYING >V-12.script",
                                 "failed\n4\n"), ("rm scripts/V-*; touch scripts/other.script", "failed\n4\n")):
        world.shell(f"cd /tmp; {preparation}")
        assert world.shell(look) == answer + "COPYING\n", preparation
    assert world.shell(f"{BIN}/sigtool --version") == world.shell("/usr/bin/sigtool --version")


GOOD = "OPEN more\nADD one/../two:/three\nCLOSE\n"
REFUSED_SCRIPTS = {
    "MOVE to elsewhere": "MOVE more ../outside 1 one/../two:/three 1 one/../two:/three\n",
    "MOVE from elsewhere": "MOVE ../outside more 1 mine 1 mine",
    "OPEN elsewhere": "OPEN ../outside\nADD x\nCLOSE\n",
    "UNLINK elsewhere": "UNLINK /tmp/outside\n",
    "folder above": "UNLINK ..\n",
    "hidden": "OPEN .new\nADD x\nCLOSE\n",
    "option": "UNLINK -rf\n",
    "unknown": "SYSTEM id\n",
    "signed": GOOD + ":0123456789abcdef\n",
    "lower case": "move more ../outside 1 a 1 a\n",
    "two blanks": "MOVE  more ../outside 1 a 1 a\n",
    "tab": "OPEN\tVestRUM.ndb\n",
    "blank at the end": "OPEN VestRUM.ndb \nCLOSE\n",
    "carriage return": GOOD.replace("\n", "\r\n"),
    "NUL": "OPEN VestRUM.ndb\0../outside\nCLOSE\n",
    "empty line": "\n" + GOOD,
}


@pytest.mark.parametrize("name", REFUSED_SCRIPTS)
def test_a_command_that_is_not_allowed_keeps_all_scripts_from_being_applied(world, name):
    unpack(world, "cp -a . ../before")
    outcome = apply(world, v2=GOOD, v3=REFUSED_SCRIPTS[name])
    assert (outcome.status, outcome.stdout, outcome.stderr) == (
        1, "", "ERROR: the scripts hold a command or a file name that is not allowed; none was applied\n")
    assert world.shell("cd /tmp; diff -r before work; cat outside; ls -A scripts") == (
        "mine\nVestRUM-2.script\nVestRUM-3.script\n")


PIECES = (b"#", b"ADD", b"DEL", b"XCHG", b"CLOSE", b"OPEN", b"UNLINK", b"MOVE", b"open", b"a", b"Vestrum.ndb", b"b-c",
          b".", b"..", b"/", b"1", b"02", b" ", b" ", b"  ", b"\t", b"\r", b"\0", b"\xff", b"\\", b"*", b"_")
SHAPES = (b"# x", b"ADD x", b"DEL 1 x", b"XCHG 2 a b", b"CLOSE", b"OPEN a", b"UNLINK a.b", b"MOVE a b 1 x 2 y", b"")
CHECK = r"""eval "$(sed -n '/^\(file\|known\)=/p' "$1")"; LC_ALL=C grep -anvE "$known" || true"""


def allowed(line):
    """Whether the real program would touch nothing but plain files of the folder for this line."""
    command, *words = line.split(b" ")
    plain = [word[:1].isalnum() and word.replace(b".", b"").isalnum() for word in words]
    return line[:1] == b"#" or line == b"CLOSE" or len(words) > 0 and (
        command == b"ADD" or command in (b"DEL", b"XCHG") and len(words) > 1 and words[0].isdigit()
        or command in (b"OPEN", b"UNLINK") and plain == [True]
        or command == b"MOVE" and plain[:2] == [True, True] and len(words) > 3 and words[2].isdigit())


def test_the_pattern_of_allowed_lines_agrees_with_a_second_implementation():
    """Random lines, compared with `allowed`."""
    dice, lines = random.Random(1), list(SHAPES)
    while len(lines) < 50_000:
        shape = list(map(bytes, re.findall(rb"\w+|\W", dice.choice(SHAPES)))) + [b""]
        for _ in range(dice.randrange(4)):
            shape[dice.randrange(len(shape))] = dice.choice(PIECES)
        lines.append(b"".join(shape))
    refused = subprocess.run(["bash", "-euc", CHECK, "check", REPOSITORY / "packaging/linux/sigtool"], check=True,
                             input=b"\n".join(lines) + b"\n", capture_output=True).stdout
    numbers = {int(line.split(b":")[0]) for line in refused.split(b"\n")[:-1]}
    assert 5_000 < len(numbers) < 45_000
    assert [line for number, line in enumerate(lines, 1) if allowed(line) == (number in numbers)] == []


def test_scripts_are_not_applied_to_a_folder_with_a_link(world):
    unpack(world, "ln -s ../outside link")
    outcome = apply(world, v2="OPEN link\nADD x\nCLOSE\n")
    assert (outcome.status, outcome.stderr, world.shell("cat /tmp/outside")) == (
        1, "ERROR: the folder holds more than plain files; no script was applied\n", "mine\n")


def test_the_real_program_executes_each_allowed_command(world):
    """With signatures that look like commands, and a script without a final line feed."""
    unpack(world, "printf 'a\nb\nc\n' >a; : >b; : >c")
    outcome = apply(world, v2="# MOVE /a /b\nOPEN a\nDEL 1 a\nXCHG 2 b MOVE a ../b 1 c 1 c\nADD UNLINK /etc/passwd \n"
                    "CLOSE", v3="MOVE a b 2 c 3 UNLINK\nUNLINK c\n")
    assert (outcome.status, outcome.stdout) == (0, "")
    assert world.shell("cd /tmp/work; head a b; ls") == (
        "==> a <==\nMOVE a ../b 1 c 1 c\n\n==> b <==\nc\nUNLINK /etc/passwd \n"
        "COPYING\nVestRUM.info\nVestRUM.ndb\na\nb\n")


def test_unpacking_leaves_out_only_the_scripts_of_the_container(world):
    world.shell("rm -rf /tmp/*; mkdir /tmp/work; cd /tmp/work; echo own >own.script; ln -s ../outside x.txt")
    names = ("VestRUM-1.script", ".script", "-r.script", "a b\n.script", "x.txt")
    world.write("/tmp/c.cud", repacked(world.container(1), *(member(name, "OPEN a\n") for name in names)))
    outcome = world.command("sh", "-c", f"cd /tmp/work && {BIN}/sigtool --unpack=../c.cud")
    assert (outcome.status, outcome.stdout, outcome.stderr) == (0, "", "")
    assert world.shell("cd /tmp; cat work/own.script; ls -A work; [ -e outside ] || stat -c %F work/x.txt") == (
        "own\nCOPYING\nVestRUM.info\nVestRUM.ndb\nown.script\nx.txt\nregular file\n")
    outcome = world.command(f"{BIN}/sigtool", "--unpack=/tmp/outside")
    assert (outcome.status, outcome.stdout, world.shell("ls -A /tmp")) == (1, "", "c.cud\nwork\n")


@contextlib.contextmanager
def in_place_of(world, program, script):
    """Replaces one of the system's programs by a script; the real one is then /srv/real/PROGRAM."""
    world.shell(f"mkdir -p /srv/real; cp /usr/bin/{program} /srv/real")
    world.write(f"/srv/{program}", f"#!/bin/sh\n{script}\n", 0o755)
    world.shell(f"mount --bind /srv/{program} /usr/bin/{program}")
    try:
        yield
    finally:
        world.shell(f"umount /usr/bin/{program}")


DATABASE, GENUINE = "/tmp/base/test.cvd", "/repository/testbed/clamav/test-5.cvd"


def sigtool(world, *arguments, **more):
    """Runs the prefix's sigtool in an empty folder; a time limit ends it if it waits for a named pipe."""
    world.shell("rm -rf /tmp/work; mkdir /tmp/work")
    return world.command("env", "-C", "/tmp/work", "timeout", "20", f"{BIN}/sigtool", *arguments, **more)


class Place(NamedTuple):
    """What the user clamav does in its folder, before and after the adapter checks the file."""
    before: str
    after: str = "true"
    complaint: str = "{}"


COPY_FAILED = f"ERROR: {DATABASE} could not be copied"
PLACES = {
    "database": Place(f"cp {GENUINE} {DATABASE}", complaint=""),
    "nothing": Place("true"),
    "link": Place(f"ln -s {GENUINE} {DATABASE}"),
    "pipe": Place(f"mkfifo {DATABASE}"),
    "folder": Place(f"mkdir {DATABASE}"),
    "link, late": Place(f"cp {GENUINE} {DATABASE}", f"ln -sf {GENUINE} {DATABASE}", COPY_FAILED),
    "pipe, late": Place(f"cp {GENUINE} {DATABASE}", f"rm -f {DATABASE}; mkfifo {DATABASE}"),
    "folder, late": Place(f"cp {GENUINE} {DATABASE}", f"rm -rf {DATABASE}; mkdir {DATABASE}", COPY_FAILED),
}


@pytest.mark.parametrize("place", PLACES.values(), ids=PLACES)
def test_only_regular_files_are_read_even_if_they_are_exchanged(world, place):
    for option, complaint in (("-i", "cvdinfo: Can't read/parse CVD header of {}"),
                              ("--unpack", "unpack: {} is not a valid CVD")):
        arguments = [option, DATABASE] if option == "-i" else [f"{option}={DATABASE}"]
        world.shell(f"rm -rf /tmp/*; mkdir /tmp/base; {place.before}")
        with in_place_of(world, "dd", f"{place.after}; exec /srv/real/dd \"$@\""):
            outcome = sigtool(world, *arguments)
        if not place.complaint:
            assert outcome == world.command("env", "-C", "/tmp/work", "/usr/bin/sigtool", *arguments)
        elif (option, place.after) == ("-i", PLACES["pipe, late"].after):
            assert outcome == Outcome(0, "Version: 0\n", "")  # as for any empty file
        else:
            last = outcome.stderr.splitlines()[-1]
            assert (outcome.status, outcome.stdout, last) == (
                1, "", place.complaint.format(f"ERROR: {complaint.format(DATABASE)}"))
        assert world.shell("ls -A /tmp /tmp/work | grep -E 'tarnwick|unpacked' || true") == ""


WATCHING = '''
for last; do :; done
cd "${last%/*}"
stat -c %s "$last"
[ "$(stat -c %b "$last")" -lt 9999 ] || echo takes much room
pwd | sed 's/[^/]*\\/copy$/FOLDER/'
cat ./*.sign 2>/dev/null || true
'''
MAKE_TMPDIR = "rm -rf /tmp/d; install -d -m {} -o {} /tmp/d /tmp/d/e"


GIVEN = {
    "signature": ("echo signed >test-5.cvd.sign; echo other >test-4.cvd.sign", "519\n/tmp/FOLDER\nsigned\n"),
    "link as its signature": (f"ln -s {GENUINE} test-5.cvd.sign", "519\n/tmp/FOLDER\n"),
    "pipe as its signature": ("mkfifo test-5.cvd.sign", "519\n/tmp/FOLDER\n"),
    "version that is a path": (
        "sed -i 's|:5:|:/../x:|' test.cvd; mkdir test-; echo other >x.cvd.sign", "523\n/tmp/FOLDER\n"),
    "too large": ("truncate -s 5G test.cvd", f"{4 << 30}\n/tmp/FOLDER\n"),
    "temporary folder of root": (MAKE_TMPDIR.format("755", "root"), "519\n/tmp/d/e/FOLDER\n"),
    "temporary folder of another user": (MAKE_TMPDIR.format("1777", "clamav"), "519\n/tmp/FOLDER\n"),
    "temporary folder open to all": (MAKE_TMPDIR.format("777", "root"), "519\n/tmp/FOLDER\n"),
    "temporary folder below one open to all": (
        MAKE_TMPDIR.format("755", "root") + "; chmod 777 /tmp/d", "519\n/tmp/FOLDER\n"),
}


@pytest.mark.parametrize("preparation, answer", GIVEN.values(), ids=GIVEN)
def test_the_real_program_gets_a_copy_in_a_safe_folder(world, preparation, answer):
    world.shell(f"rm -rf /tmp/*; mkdir /tmp/base; cd /tmp/base; head -c 519 {GENUINE} >test.cvd; {preparation}")
    with in_place_of(world, "sigtool", WATCHING):
        outcome = sigtool(world, "-i", DATABASE, env={"TMPDIR": "/tmp/d/e"})
    assert (outcome.status, outcome.stdout, outcome.stderr) == (0, answer, "")


def test_a_sigtool_that_hangs_is_ended(world):
    world.shell(f"rm -rf /tmp/*; mkdir /tmp/base; cp {GENUINE} {DATABASE}")
    hurried = "for word; do shift; [ $word != 600 ] || word=1; set -- \"$@\" \"$word\"; done"
    with in_place_of(world, "sigtool", "exec sleep infinity"), \
         in_place_of(world, "timeout", f'{hurried}; exec /srv/real/timeout "$@"'):
        outcome = sigtool(world, "-i", DATABASE)
    assert (outcome.status, outcome.stdout, outcome.stderr) == (
        1, "", "ERROR: sigtool did not end within 600 seconds\n")


@pytest.mark.parametrize("member_of_another_kind", [
    "ln ../../../outside x", "ln -s ../../../outside x", "mkdir x", "mkfifo x", "touch x; ln x y"])
def test_containers_of_more_than_plain_files_are_not_unpacked(world, member_of_another_kind):
    """The stand-in creates what the real program might; Debian's unpacks fewer kinds of members than others."""
    world.shell("rm -rf /tmp/*; echo mine >/tmp/outside; chmod 600 /tmp/outside")
    with in_place_of(world, "sigtool", f"echo a >COPYING; {member_of_another_kind}"):
        outcome = sigtool(world, "--unpack=/srv/vendor/first.cud")
    assert (outcome.status, outcome.stdout, outcome.stderr) == (
        1, "", "ERROR: the container holds more than plain files; none was unpacked\n")
    assert world.shell("cd /tmp; ls -A . work; cat outside; stat -c '%h %a' outside") == (
        ".:\noutside\nwork\n\nwork:\nmine\n1 600\n")


# What twenty update runs do, each with 25 new versions.
PATCH = """
pack() {
    tar -czf ../packed.tar.gz -- *
    header=$(sed "1s/:X:X:/:$(md5sum ../packed.tar.gz | cut -c -32):X:/;q" VestRUM.info)
    printf '%-512s' "$header" | cat - ../packed.tar.gz >"$1"
}
for run in $(seq 0 19); do
    rm -rf /tmp/work /tmp/scripts; mkdir /tmp/work /tmp/scripts; cd /tmp/work
    BIN/sigtool --unpack=/tmp/c.cud
    for version in $(seq $((run * 25 + 2)) $((run * 25 + 26))); do cp /tmp/all/VestRUM-$version.script .; done
    cp ./*.script /tmp/scripts
    BIN/sigtool --run-cdiff=/tmp/scripts --datadir=.
    pack /tmp/c.cud
done
mkdir /tmp/whole; cd /tmp/whole; cp ../work/COPYING ../VestRUM.ndb .
SIGNDUSER=vendor /usr/bin/sigtool --build=VestRUM.cud --unsigned --cvd-version=501 --no-cdiff </dev/null >/dev/null
cmp VestRUM.ndb /tmp/work/VestRUM.ndb
rm -rf /tmp/work/*; cd /tmp/work; /usr/bin/sigtool --unpack=/tmp/whole/VestRUM.cud
for version in $(seq 477 501); do cp /tmp/all/VestRUM-$version.script .; done
tail -c +513 /tmp/c.cud | gzip -dc | wc -c
tar -c -- * | wc -c
"""


def test_a_container_patched_500_times_is_no_larger_than_one_built_whole(world):
    world.shell("rm -rf /tmp/*; mkdir /tmp/1; cp /srv/vendor/first.cud /tmp/c.cud; cd /tmp/1"
                "; sigtool --unpack=../c.cud")
    scripts, signatures = scripts_after(world.shell("cat /tmp/1/VestRUM.info"), world.log("/tmp/1/VestRUM.ndb"), 500)
    world.write("/tmp/VestRUM.ndb", signatures)
    for name, text in scripts.items():
        world.write(f"/tmp/all/{name}", text)
    patched, whole_with_last_scripts = map(int, world.shell(PATCH.replace("BIN", BIN)).split())
    assert patched <= whole_with_last_scripts
