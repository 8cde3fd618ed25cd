"""The steps of scripts/demo. Each announces what will happen, shows it, and checks that it has happened."""

import os
import subprocess
import sys
import time

from demo_screen import Ended, Refuted, Screen
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
This is a private machine without a network to the outside: nginx plays the vendor's hosts and ClamAV's mirror, ClamAV's
programs are the real ones, and a vendor has a key of its own. main, daily and bytecode are stand-ins, because only
ClamAV can sign real ones. You see the lines that matter of each run; all lines are in {TRANSCRIPT}"""
STEPS = []


class Show:
    """A world, and the screen that shows it."""

    def __init__(self, world, screen):
        self.world, self.screen = world, screen
        self.servers = world.servers

    def run(self, job, command, keep):
        """Shows part of a program's output; returns its exit status and all of its output."""
        self.screen.command(command)
        lines = (line.decode(errors="replace") for line in job.process.stdout)
        text = self.screen.show(lines, keep)
        status = job.process.wait()
        self.screen.status(status)
        return status, text

    def program(self, *command, keep=(".",)):
        shown = " ".join(part.removeprefix("/repository/").removeprefix(f"{BIN}/") for part in command)
        return self.run(self.world.start(*command, stderr=subprocess.STDOUT), shown, keep)

    def tarnwick(self, *arguments, keep):
        job = self.world.launch(*arguments, stderr=subprocess.STDOUT)
        return self.run(job, " ".join(("tarnwick", *arguments)), keep)

    def requests(self, heading, chosen):
        """Shows the `chosen` requests that the servers got since the last call; returns them."""
        found = [request for request in self.servers.requests() if chosen(request)]
        self.screen.aside(heading)
        lines = [f"{request.status} {request.host} {request.path}" for request in found]
        self.screen.show(lines, ".")
        return lines

    def scan(self, database, *files):
        status, text = self.program(f"{BIN}/clamscan", "--no-summary", "-d", database, *files)
        return status == 1 and "FOUND" in text

    def bytes(self, path):
        return self.world.path(path).read_bytes()

    def same(self, one, other):
        return self.bytes(one) == self.bytes(other)

    def check(self, fact, truth):
        self.screen.verdict(fact, truth)


def step(promise):
    """Registers a function as the next step, announced by `promise`."""
    def file(function):
        STEPS.append((promise, function))
        return function
    return file


@step("No database of the vendor is installed yet, and the version report says so.")
def nothing_installed(show):
    status, text = show.tarnwick("--version", keep=["^Tarnwick", "cud.*never", "database .*never"])
    show.check("nothing was ever updated", status == 0 and text.count("updated never") == 7)


@step("The first run downloads the vendor's container and definitions file, checks both signatures and tests them with "
      "ClamAV.")
def first_run(show):
    status, _ = show.tarnwick(keep=["Need to download", "integrity", "is valid", "^main.cvd"])
    show.check("the installed files are what the vendor published, byte for byte; status 1 means new definitions",
                   status == 1 and show.same(INSTALLED, CONTAINER)
                   and show.same(f"{DATA}/Vestrum.database", f"{PUBLISHED}/Vestrum.database"))


@step("The vendor releases versions 2, 3 and 4. Three small signed scripts update the container.")
def three_more(show):
    show.servers.requests()
    for version in (2, 3, 4):
        show.world.release(version)
        show.world.shell(f"cp {CONTAINER} /srv/version-{version}.cud")
    status, _ = show.tarnwick(keep=["Local", "Available", "script", "integrity"])
    asked = show.requests("requests to the vendor's servers, without those for signatures",
                          lambda request: "Scripted" in request.path and not request.path.endswith("signature"))
    show.check("the run fetched three scripts by signed links, and not the whole container", status == 0
                   and sum(line.endswith(".script") for line in asked) == 3
                   and not any(line.endswith("cud") for line in asked))


@step("Version 4 finds a harmless sample that version 3 does not find.")
def sample_found(show):
    show.world.write("/tmp/sample-4", sample(4))
    before = show.scan("/srv/version-3.cud", "/tmp/sample-4")
    after = show.scan(INSTALLED, "/tmp/sample-4")
    show.check("the container built from the scripts finds it", (before, after) == (False, True))


@step("A run that finds everything up to date changes nothing.")
def up_to_date(show):
    look = f"stat -c '%i %y' {INSTALLED}"
    before = show.world.shell(look)
    status, _ = show.tarnwick(keep=["VestRUM.*up-to-date", "up to date", "^main.*up-to-date"])
    show.check("the container is the same file as before", status == 0 and show.world.shell(look) == before)


@step("Debian's clamd is running, with a link to the container in its own folder. After a run, the systemd unit makes "
      "it reload.")
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
    show.check(f"clamd finds the sample, {seconds:.2f} seconds after the run", (before, after) == (0, 1))


@step("Somebody alters a script on the vendor's server. The signature check fails; the run downloads the container.")
def altered_script(show):
    show.world.release(6)
    with open(show.world.path(f"{SCRIPTED}/VestRUM-6.script"), "a", encoding="ascii") as script:
        script.write("OPEN VestRUM.ndb\nADD Not-the-vendors:0:*:00\nCLOSE\n")
    status, text = show.tarnwick(keep=["script", "Need", "integrity"])
    show.check("the signature check refused the script; the vendor's signed container is installed", status == 0
                   and "Failed to download and verify VestRUM-6.script" in text and show.same(INSTALLED, CONTAINER))


@step("The container on the server is altered too. The run installs nothing and keeps the installed version.")
def altered_container(show):
    world, before = show.world, show.bytes(INSTALLED)
    world.release(7)
    world.shell(f"cp -a /srv/vendor /srv/unaltered; for name in VestRUM-7.script VestRUM.cud; do"
                f" echo altered >>{SCRIPTED}/$name; done")
    status, _ = show.tarnwick(keep=["script", "cud", "integrity"])
    show.check("the signature check refused both; version 6 is unchanged",
                   status == 0 and show.bytes(INSTALLED) == before and world.version() == 6)


@step("The vendor signs a broken container by mistake. ClamAV's scanner rejects it.")
def broken_container(show):
    world, before = show.world, show.bytes(INSTALLED)
    world.shell(f"cd {SCRIPTED}; head -c 700 /srv/version-4.cud >VestRUM.cud; openssl dgst -sha1 -binary VestRUM.cud |"
                " openssl dgst -sha1 -sign /srv/vendor/private.pem | base64 -w0 >VestRUM.cud.signature")
    status, _ = show.tarnwick(keep=["script", "cud", "integrity"])
    world.shell("rm -r /srv/vendor/site; cp -a /srv/unaltered/site /srv/vendor")
    show.check("the scanner refused it; version 6 is unchanged",
                   status == 0 and show.bytes(INSTALLED) == before)


@step("freshclam's configuration and its first spare copy are broken. freshclam rejects both; the run takes the clean "
      "copy.")
def broken_configurations(show):
    world, good = show.world, show.bytes(CONFIGURATION)
    for name in ("freshclam", "freshclamBAK"):
        world.shell(f"echo Nonsense >>{PREFIX}/etc/{name}.conf")
    status, text = show.tarnwick(keep=["parse", "^main.*up-to-date"])
    show.check("the clean configuration is in use, and the first rejected one is kept", status == 0
                   and text.count("Can't open/parse the config file") == 2 and show.bytes(CONFIGURATION) == good
                   and b"Nonsense" in show.bytes(f"{PREFIX}/etc/freshclamFAULTY.conf"))


@step("The databases are in a folder that only root can enter. freshclam fails; the run repairs the folder's rights.")
def folder_of_another_owner(show):
    show.world.shell("mkdir -m 700 /srv/databases")
    status, _ = show.tarnwick("--datadir=/srv/databases", keep=["Can't change", "ERROR: init", "^main.*up-to-date"])
    show.check("freshclam ran again, in a folder that now belongs to clamav",
                   status == 1 and show.world.shell("stat -c %U /srv/databases") == "clamav\n")


@step("The vendor's mirror is down. freshclam fails; the run switches it to ClamAV's own mirror and runs it again.")
def mirror_out_of_order(show):
    before = show.bytes(CONFIGURATION)
    show.servers.requests()
    show.servers.break_down(MIRROR)
    status, _ = show.tarnwick(keep=["Giving up", "Unexpected", "^main.*up-to-date"])
    show.servers.mend()
    asked = show.requests("requests to the mirrors", lambda request: request.path.endswith(".cvd"))
    show.check("freshclam asked the vendor's mirror, then ClamAV's; the configuration is unchanged", status == 0
                   and [line.split()[1] for line in asked] == [MIRROR] + [UPSTREAM] * 3
                   and show.bytes(CONFIGURATION) == before)


@step("freshclam cannot connect, because its configured proxy is down. The run downloads the whole files itself.")
def cannot_connect(show):
    world, good = show.world, show.bytes(CONFIGURATION)
    world.shell(f"echo HTTPProxyServer {NOBODY} >>{CONFIGURATION}; echo HTTPProxyPort 3128 >>{CONFIGURATION}")
    world.custom_database()
    world.write("/srv/vendor/mirror/dns.txt", "1.4.6:2:2:1760000000:1:90:49192:2\n")
    for name in OFFICIAL:
        world.shell(f"cp /srv/version-2.cud /srv/vendor/mirror/{name}.cvd")
    show.servers.requests()
    status, _ = show.tarnwick(keep=["^Trying again", "Connection failed", "Still", "^version number 1", "Downloaded"])
    show.requests("requests to the mirror", lambda request: request.host == MIRROR)
    show.check("main, daily and bytecode are the mirror's; 234, because the stand-ins lack ClamAV's signature",
                   status == 234 and all(show.same(f"{DATA}/{name}.cvd", "/srv/version-2.cud") for name in OFFICIAL))
    world.write(CONFIGURATION, good)


@step("The version report shows what is installed now.")
def version_at_the_end(show):
    status, text = show.tarnwick("--version", keep=["^Tarnwick", "cud", "database"])
    show.check("version 7 is installed", status == 0 and "VestRUM.cud (v7) updated 20" in text)


def play(screen):
    with World(versions=1) as world:
        for name in OFFICIAL:
            for folder in (DATA, "/srv/vendor/mirror"):
                world.shell(f"cp {CONTAINER} {folder}/{name}.cvd")
        screen.say(INTRODUCTION.replace("\n", " "))
        show = Show(world, screen)
        for promise, function in STEPS:
            screen.step(promise)
            function(show)
    print()
    screen.say(f"All {len(STEPS)} steps did what they announced. All output is in {TRANSCRIPT}")


def main():
    screen = Screen(TRANSCRIPT, "--fast" in sys.argv)
    try:
        play(screen)
    except Refuted as fact:
        screen.refute(str(fact))
        print(f"The whole output is in {TRANSCRIPT}")
        return 1
    except Ended:
        return 0
    except KeyboardInterrupt:
        print()
        return 130
    except BrokenPipeError:
        # The reader has closed the pipe; flushing the rest of the buffer must not fail at exit.
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 0
    return 0


if __name__ == "__main__":
    sys.exit(main())
