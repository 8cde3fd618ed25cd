"""The steps that scripts/demo shows, each with what it promises beforehand and a look at whether that came true."""

import os
import subprocess
import sys

from testbed import BIN, CONFIGURATION, DATA, MIRROR, NOBODY, World, sample

PUBLISHED = "/srv/vendor/site/VestRUM2"
CONTAINER = f"{PUBLISHED}/Scripted/VestRUM.cud"
ETC = "/usr/local/vestRum/etc"
STEPS = []


def step(promise):
    """Files a function as the next step, which says `promise` before it starts."""
    def file(function):
        STEPS.append((promise, function))
        return function
    return file


def show(job, command):
    """The program's own output as it comes, and its exit status."""
    print(f"\n$ {command}", flush=True)
    seen = b""
    while chunk := os.read(job.process.stdout.fileno(), 4096):
        os.write(sys.stdout.fileno(), chunk)
        seen += chunk
    status = job.process.wait()
    print(f"[exit status {status}]\n", flush=True)
    return status, seen.decode(errors="replace")


def tarnwick(world, *arguments):
    return show(world.launch(*arguments, stderr=subprocess.STDOUT), " ".join(("tarnwick",) + arguments))


def made_sure(fact, truth):
    if not truth:
        sys.exit(f"demo: this did not come true: {fact}")
    print(f"Made sure: {fact}.")


def break_configurations(world, *names):
    """Makes these useless, and the other spare copies as good as the live configuration was; returns what that was."""
    good = world.path(CONFIGURATION).read_bytes()
    for name in ("freshclam.conf", "freshclamBAK.conf", "freshclamCLEAN.conf"):
        world.write(f"{ETC}/{name}", good + b"Nonsense\n" * (name in names))
    return good


def same(world, one, other):
    return world.path(one).read_bytes() == world.path(other).read_bytes()


def paths(world, status="200"):
    """What the servers were asked for since the last look, and answered with that status."""
    return [request.path.split("/")[-1] for request in world.servers.requests() if request.status == status]


@step("the version report of a machine on which nothing is installed yet")
def nothing_installed(world):
    status, text = tarnwick(world, "--version")
    made_sure("the status is 0 and no database was ever updated", status == 0 and text.count("updated never") == 7)


@step("a first run fetches the whole container and the definitions file, checks their signatures, tests and installs")
def first_run(world):
    status, _ = tarnwick(world)
    made_sure("the status is 1, for the definitions file is new", status == 1)
    made_sure("what is installed is what the vendor published, its signature beside it",
              all(same(world, f"{DATA}/{name}", f"{PUBLISHED}/{name}")
                  for name in ("Vestrum.database", "Vestrum.database.signature"))
              and same(world, f"{DATA}/VestRUM.cud", CONTAINER))
    world.servers.requests()


@step("the vendor releases three more versions, and a second run brings the container forward by their three scripts")
def three_more(world):
    for version in (2, 3, 4):
        world.release(version)
    print("\n$ tarnwick-publish check\n" + world.publish("check"), end="")
    status, _ = tarnwick(world)
    asked = paths(world)
    made_sure("the status is 0", status == 0)
    made_sure("three scripts were fetched through signed links, and not the whole container",
              [name for name in asked if name.endswith(".script")] == [f"VestRUM-{n}.script" for n in (2, 3, 4)]
              and "VestRUM.cud" not in asked)


@step("a third run finds everything up to date")
def up_to_date(world):
    before = world.path(f"{DATA}/VestRUM.cud").stat().st_mtime_ns
    status, text = tarnwick(world)
    made_sure("the status is 0 and the container was not touched", status == 0 and "up-to-date" in text
              and world.path(f"{DATA}/VestRUM.cud").stat().st_mtime_ns == before)


@step("ClamAV's scanner, given the installed container, finds a harmless sample that only the newest version knows")
def sample_found(world):
    world.write("/tmp/sample", sample(4))
    found, _ = show(world.start(f"{BIN}/clamscan", "--no-summary", "-d", f"{DATA}/VestRUM.cud", "/tmp/sample",
                                stderr=subprocess.STDOUT), f"clamscan -d {DATA}/VestRUM.cud /tmp/sample")
    first = world.command(f"{BIN}/clamscan", "--quiet", "-d", "/srv/vendor/first.cud", "/tmp/sample").status
    made_sure("it is found (status 1), and version 1 did not know it", (found, first) == (1, 0))


@step("somebody has altered a script on the server: the run refuses it and falls back to the whole container")
def tampered(world):
    world.release(5)
    with open(world.path(f"{PUBLISHED}/Scripted/VestRUM-5.script"), "a", encoding="ascii") as script:
        script.write("OPEN VestRUM.ndb\nADD Not-the-vendors:0:*:00\nCLOSE\n")
    status, text = tarnwick(world)
    made_sure("the script was refused, and the status is 0",
              status == 0 and "Failed to download and verify VestRUM-5.script" in text)
    made_sure("what is installed is the vendor's signed container, byte for byte",
              same(world, f"{DATA}/VestRUM.cud", CONTAINER))


@step("the version report at the end")
def version_at_the_end(world):
    status, text = tarnwick(world, "--version")
    made_sure("the status is 0 and version 5 is installed", status == 0 and "VestRUM.cud (v5) updated 20" in text)


@step("no mirror answers. The updates go on for the vendor's files; the real freshclam fails, is pointed at the\n"
      "    upstream mirror and tried again, then whole files are asked for. freshclam waits, so this takes 10 seconds")
def no_mirror(world):
    before = world.path(CONFIGURATION).read_bytes()
    world.servers.place(mirror=NOBODY, database=NOBODY)
    status, text = tarnwick(world)
    world.servers.place()
    made_sure("freshclam ran twice and the direct download was tried", text.count("ClamAV update process started") == 2
              and f"no defs version number available on {MIRROR}" in text)
    made_sure("the status is 52, a network problem, and the configuration is as it was",
              status == 52 and world.path(CONFIGURATION).read_bytes() == before)


@step("freshclam's configuration is broken: the real freshclam rejects it, and the spare copy takes its place")
def broken_configuration(world):
    good = break_configurations(world, "freshclam.conf")
    status, _ = tarnwick(world)
    made_sure("the status is 0 and the good configuration is back",
              status == 0 and world.path(CONFIGURATION).read_bytes() == good)
    made_sure("the rejected one is kept for a look", b"Nonsense" in world.path(f"{ETC}/freshclamFAULTY.conf").read_bytes())


@step("the spare copy is broken too, and the clean one takes its place")
def broken_spare_copy(world):
    good = break_configurations(world, "freshclam.conf", "freshclamBAK.conf")
    status, text = tarnwick(world)
    made_sure("freshclam rejected two configurations, and the status is 0", status == 0
              and text.count("Can't open/parse the config file") == 2)
    made_sure("the clean configuration is in use", world.path(CONFIGURATION).read_bytes() == good)


@step("the databases are to lie in a folder that is root's alone: the real freshclam cannot enter it, and the run puts\n"
      "    that right")
def folder_of_another_owner(world):
    world.shell("mkdir -m 700 /srv/databases")
    status, text = tarnwick(world, "--datadir=/srv/databases")
    made_sure("freshclam failed once and succeeded when it was run again, in a folder that is now clamav's",
              text.count("custom.ndb updated") == 1 and world.shell("stat -c %U /srv/databases") == "clamav\n")
    made_sure("the status is 1, for the definitions file is new there", status == 1)


def main():
    with World(versions=1) as world:
        world.custom_database()
        for name in ("main", "daily", "bytecode"):
            world.shell(f"rm {DATA}/{name}.cvd; cp {CONTAINER} /srv/vendor/mirror/{name}.cvd")
        print("\nA private machine stands: nginx as the vendor's hosts, clamscan, sigtool and freshclam, and a vendor with a"
              "\nkey of its own. Its freshclam has one small database to look after and drops the three upstream ones, so"
              "\nthat every run fetches those anew.")
        for number, (promise, function) in enumerate(STEPS, 1):
            print(f"\n=== {number}. {promise[0].upper()}{promise[1:]}.", flush=True)
            function(world)
    print(f"\nAll {len(STEPS)} steps came true, and the machine is gone.")


if __name__ == "__main__":
    main()
