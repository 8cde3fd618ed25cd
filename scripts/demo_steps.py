"""The steps that scripts/demo shows, each with what it promises beforehand and a look at whether that came true."""

import os
import subprocess
import sys
import time

from stage import Ended, Refuted, Stage
from testbed import BIN, CONFIGURATION, DATA, MIRROR, NOBODY, PREFIX, UPSTREAM, World, sample

PUBLISHED = "/srv/vendor/site/VestRUM2"
SCRIPTED = f"{PUBLISHED}/Scripted"
CONTAINER = f"{SCRIPTED}/VestRUM.cud"
INSTALLED = f"{DATA}/VestRUM.cud"
OFFICIAL = ("main", "daily", "bytecode")
CLAMD_FOLDER = "/var/lib/clamav"
NOTIFY = "/repository/packaging/linux/notify-clamd"
TRANSCRIPT = "build/demo-transcript"
INTRODUCTION = f"""\
A private machine stands, cut off from the world: nginx as the vendor's hosts and ClamAV's mirror, ClamAV's own
programs, a vendor with a key of its own. Its main, daily and bytecode are stand-ins: only ClamAV can sign real
ones. What matters of each run is shown; the whole goes to {TRANSCRIPT}"""
STEPS = []


class Show:
    """A world on a stage."""

    def __init__(self, world, stage):
        self.world, self.stage = world, stage
        self.servers = world.servers

    def run(self, job, command, keep):
        """Exit status and output of a program, which the stage shows in part."""
        self.stage.command(command)
        lines = (line.decode(errors="replace") for line in job.process.stdout)
        text = self.stage.show(lines, keep)
        status = job.process.wait()
        self.stage.status(status)
        return status, text

    def program(self, *command, keep=(".",)):
        shown = " ".join(part.removeprefix("/repository/").removeprefix(f"{BIN}/") for part in command)
        return self.run(self.world.start(*command, stderr=subprocess.STDOUT), shown, keep)

    def tarnwick(self, *arguments, keep):
        job = self.world.launch(*arguments, stderr=subprocess.STDOUT)
        return self.run(job, " ".join(("tarnwick", *arguments)), keep)

    def requests(self, heading, chosen):
        """Shows what the servers were asked for since the last look, as far as it was `chosen`; returns that."""
        found = [request for request in self.servers.requests() if chosen(request)]
        self.stage.aside(heading)
        lines = [f"{request.status} {request.host} {request.path}" for request in found]
        self.stage.show(lines, ".")
        return lines

    def scan(self, database, *files):
        status, text = self.program(f"{BIN}/clamscan", "--no-summary", "-d", database, *files)
        return status == 1 and "FOUND" in text

    def bytes(self, path):
        return self.world.path(path).read_bytes()

    def same(self, one, other):
        return self.bytes(one) == self.bytes(other)

    def made_sure(self, fact, truth):
        self.stage.verdict(fact, truth)


def step(promise):
    """Files a function as the next step, which says `promise` before it starts."""
    def file(function):
        STEPS.append((promise, function))
        return function
    return file


@step("Nothing of the vendor's is installed, and the version report says so.")
def nothing_installed(show):
    status, text = show.tarnwick("--version", keep=["^Tarnwick", "cud.*never", "database .*never"])
    show.made_sure("nothing was ever updated", status == 0 and text.count("updated never") == 7)


@step("A first run fetches the vendor's container and definitions whole, checks signatures, and has ClamAV try them.")
def first_run(show):
    status, _ = show.tarnwick(keep=["Need to download", "integrity", "is valid", "^main.cvd"])
    show.made_sure("what is installed is what the vendor published, byte for byte; status 1 tells of definitions",
                   status == 1 and show.same(INSTALLED, CONTAINER)
                   and show.same(f"{DATA}/Vestrum.database", f"{PUBLISHED}/Vestrum.database"))


@step("The vendor releases versions 2, 3 and 4. Three small scripts, each signed, bring the container forward.")
def three_more(show):
    show.servers.requests()
    for version in (2, 3, 4):
        show.world.release(version)
        show.world.shell(f"cp {CONTAINER} /srv/version-{version}.cud")
    status, _ = show.tarnwick(keep=["Local", "Available", "script", "integrity"])
    asked = show.requests("what the vendor's servers were asked for, signatures apart",
                          lambda request: "Scripted" in request.path and not request.path.endswith("signature"))
    show.made_sure("three scripts came through signed links, and the whole container did not", status == 0
                   and sum(line.endswith(".script") for line in asked) == 3
                   and not any(line.endswith("cud") for line in asked))


@step("Version 4 knows a harmless sample that version 3 does not.")
def sample_found(show):
    show.world.write("/tmp/sample-4", sample(4))
    before = show.scan("/srv/version-3.cud", "/tmp/sample-4")
    after = show.scan(INSTALLED, "/tmp/sample-4")
    show.made_sure("the container that the scripts made finds it", (before, after) == (False, True))


@step("A run that finds everything up to date changes nothing.")
def up_to_date(show):
    look = f"stat -c '%i %y' {INSTALLED}"
    before = show.world.shell(look)
    status, _ = show.tarnwick(keep=["VestRUM.*up-to-date", "up to date", "^main.*up-to-date"])
    show.made_sure("the container is the same file as before", status == 0 and show.world.shell(look) == before)


@step("Debian's clamd is running, with a link to the container in its own folder. When a run ends, the systemd unit "
      "tells it.")
def daemon(show):
    world = show.world
    world.shell(f"install -d -o clamav /run/clamav /var/log/clamav {CLAMD_FOLDER}; ln -s ../run /var/run"
                f"; ln -s {INSTALLED} {CLAMD_FOLDER}")
    world.write("/tmp/sample-5", sample(5))
    world.start("clamd", "--foreground", stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    world.shell("clamdscan --ping 60:1 >/dev/null")
    scan = ("clamdscan", "--no-summary", "--fdpass", "/tmp/sample-5")
    before, _ = show.program(*scan)
    world.release(5)
    show.tarnwick(keep=["script", "integrity"])
    ended = time.monotonic()
    show.program(NOTIFY)
    while world.command(*scan).status != 1 and time.monotonic() < ended + 60:
        pass
    seconds = time.monotonic() - ended
    after, _ = show.program(*scan)
    show.made_sure(f"clamd finds the sample, {seconds:.2f} seconds after the run", (before, after) == (0, 1))


@step("Somebody alters a script on the vendor's server. Its signature gives it away; the whole container is fetched.")
def altered_script(show):
    show.world.release(6)
    with open(show.world.path(f"{SCRIPTED}/VestRUM-6.script"), "a", encoding="ascii") as script:
        script.write("OPEN VestRUM.ndb\nADD Not-the-vendors:0:*:00\nCLOSE\n")
    status, text = show.tarnwick(keep=["script", "Need", "integrity"])
    show.made_sure("the signature check refused the script; the vendor's signed container is installed", status == 0
                   and "Failed to download and verify VestRUM-6.script" in text and show.same(INSTALLED, CONTAINER))


@step("The container on the server is altered too. Nothing is installed, and what was there stays.")
def altered_container(show):
    world, before = show.world, show.bytes(INSTALLED)
    world.release(7)
    world.shell(f"cp -a /srv/vendor /srv/unaltered; for name in VestRUM-7.script VestRUM.cud; do"
                f" echo altered >>{SCRIPTED}/$name; done")
    status, _ = show.tarnwick(keep=["script", "cud", "integrity"])
    show.made_sure("the signature check refused both; version 6 is installed as it was",
                   status == 0 and show.bytes(INSTALLED) == before and world.version() == 6)


@step("The vendor itself signs a container that is broken. ClamAV's scanner has the last word.")
def broken_container(show):
    world, before = show.world, show.bytes(INSTALLED)
    world.shell(f"cd {SCRIPTED}; head -c 700 /srv/version-4.cud >VestRUM.cud; openssl dgst -sha1 -binary VestRUM.cud |"
                " openssl dgst -sha1 -sign /srv/vendor/private.pem | base64 -w0 >VestRUM.cud.signature")
    status, _ = show.tarnwick(keep=["script", "cud", "integrity"])
    world.shell("rm -r /srv/vendor/site; cp -a /srv/unaltered/site /srv/vendor")
    show.made_sure("the scanner refused it; version 6 is installed as it was",
                   status == 0 and show.bytes(INSTALLED) == before)


@step("freshclam's configuration and its first spare copy are broken. freshclam rejects both, the clean copy is taken.")
def broken_configurations(show):
    world, good = show.world, show.bytes(CONFIGURATION)
    for name in ("freshclam", "freshclamBAK"):
        world.shell(f"echo Nonsense >>{PREFIX}/etc/{name}.conf")
    status, text = show.tarnwick(keep=["parse", "^main.*up-to-date"])
    show.made_sure("the clean configuration is in use, and the first rejected one kept for a look", status == 0
                   and text.count("Can't open/parse the config file") == 2 and show.bytes(CONFIGURATION) == good
                   and b"Nonsense" in show.bytes(f"{PREFIX}/etc/freshclamFAULTY.conf"))


@step("The databases are to lie in a folder that is root's alone. freshclam cannot enter it; the run mends that.")
def folder_of_another_owner(show):
    show.world.shell("mkdir -m 700 /srv/databases")
    status, _ = show.tarnwick("--datadir=/srv/databases", keep=["Can't change", "ERROR: init", "^main.*up-to-date"])
    show.made_sure("freshclam was run again, in a folder that is now clamav's",
                   status == 1 and show.world.shell("stat -c %U /srv/databases") == "clamav\n")


@step("The vendor's mirror is out of order. freshclam fails there, is pointed at ClamAV's own and run again.")
def mirror_out_of_order(show):
    before = show.bytes(CONFIGURATION)
    show.servers.requests()
    show.servers.break_down(MIRROR)
    status, _ = show.tarnwick(keep=["Giving up", "Unexpected", "^main.*up-to-date"])
    show.servers.mend()
    asked = show.requests("what the mirrors were asked for", lambda request: request.path.endswith(".cvd"))
    show.made_sure("first the vendor's mirror was asked, then ClamAV's; the configuration is as it was", status == 0
                   and [line.split()[1] for line in asked] == [MIRROR] + [UPSTREAM] * 3
                   and show.bytes(CONFIGURATION) == before)


@step("freshclam cannot connect at all: the proxy of its configuration is dead. The whole files are fetched past it.")
def cannot_connect(show):
    world, good = show.world, show.bytes(CONFIGURATION)
    world.shell(f"echo HTTPProxyServer {NOBODY} >>{CONFIGURATION}; echo HTTPProxyPort 3128 >>{CONFIGURATION}")
    world.custom_database()
    world.write("/srv/vendor/mirror/dns.txt", "1.4.6:2:2:1760000000:1:90:49192:2\n")
    for name in OFFICIAL:
        world.shell(f"cp /srv/version-2.cud /srv/vendor/mirror/{name}.cvd")
    show.servers.requests()
    status, _ = show.tarnwick(keep=["^Trying again", "Connection failed", "Still", "^version number 1", "Downloaded"])
    show.requests("what the mirror was asked for", lambda request: request.host == MIRROR)
    show.made_sure("main, daily and bytecode are the mirror's; 234, as only ClamAV's signature would make them current",
                   status == 234 and all(show.same(f"{DATA}/{name}.cvd", "/srv/version-2.cud") for name in OFFICIAL))
    world.write(CONFIGURATION, good)


@step("The version report at the end.")
def version_at_the_end(show):
    status, text = show.tarnwick("--version", keep=["^Tarnwick", "cud", "database"])
    show.made_sure("version 7 is installed", status == 0 and "VestRUM.cud (v7) updated 20" in text)


def play(stage):
    with World(versions=1) as world:
        for name in OFFICIAL:
            for folder in (DATA, "/srv/vendor/mirror"):
                world.shell(f"cp {CONTAINER} {folder}/{name}.cvd")
        stage.say(INTRODUCTION.replace("\n", " "))
        show = Show(world, stage)
        for promise, function in STEPS:
            stage.step(promise)
            function(show)
    print()
    stage.say(f"All {len(STEPS)} steps came true, and the machine is gone. The whole of it is in {TRANSCRIPT}")


def main():
    stage = Stage(TRANSCRIPT, "--fast" in sys.argv)
    try:
        play(stage)
    except Refuted as fact:
        stage.refute(str(fact))
        print(f"All that was said is in {TRANSCRIPT}")
        return 1
    except Ended:
        return 0
    except KeyboardInterrupt:
        print()
        return 130
    except BrokenPipeError:
        # Nobody reads on, and what is left in the buffer shall not complain of it.
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 0
    return 0


if __name__ == "__main__":
    sys.exit(main())
