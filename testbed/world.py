"""A machine with an installation: the prefix with ClamAV's programs, the vendor's servers, and the tool."""

import email.utils
import fcntl
import os
import pathlib
import platform
import plistlib
import pty
import re
import shutil
import subprocess
import termios
import time

from . import vendor
from .cache import made_once
from .machine import TESTBED, Machine, Outcome, seen_inside
from .servers import MIRROR, Servers
from .vendor import EXECUTABLE

PREFIX = "/usr/local/vestRum"
BIN, DATA = f"{PREFIX}/bin", f"{PREFIX}/share/clamav"
CONFIGURATION = f"{PREFIX}/etc/freshclam.conf"
STATE = "/var/lib/tarnwick/uk.co.pellawaysoftware.vestrum.tarnwick.plist"
OLDER_STATE = "/var/lib/tarnwick/uk.co.tobrennel.vestrum.tarnwick.plist"
TOOL = "/usr/local/bin/tarnwick"
# What the tool's user agent says of the system.
MACINTOSH = f"(Macintosh; Intel Mac OS X {platform.freedesktop_os_release().get('VERSION_ID', 'unknown')})"
# Makes a temporary folder in which even root cannot write.
SHUT_WORK_FOLDER = "mkdir -m 700 /tmp/tarnwick-0; mount -t tmpfs -o ro,mode=700 shut /tmp/tarnwick-0"
UPSTREAM_DATABASES = ("main", "daily", "bytecode")

# The stand-in for freshclam. The path of its shell contains "freshclam", because the tool finds freshclam processes by
# the path of their executable. It records its configuration and the owner of the databases, gives them to root, and
# takes its exit status from a list.
FRESHCLAM_SCRIPT = """
conf=$(sed -n 's/^#= //p' {configuration}) mirror=$(sed -n 's/^DatabaseMirror //p' {configuration})
echo "${{conf:-live}} ${{mirror:-none}} $(stat -c %U {data}/main.cvd)" >>/srv/freshclam.calls
chown root {data}/main.cvd
echo "freshclam $*"
read -r status </srv/freshclam.statuses || status=99
sed -i 1d /srv/freshclam.statuses
[ "$status" != killed ] || kill -KILL $$
exit "$status"
"""


OVERRIDES = TESTBED / "call_overrides.c"


def build_overrides(folder):
    subprocess.run(["gcc", "-shared", "-fPIC", "-O2", "-o", folder / "call_overrides.so", OVERRIDES], check=True)


def clean(text):
    """Removes what differs from run to run: dates, process ids, the wording of libraries' errors, and progress lines
    that later ones overwrite."""
    for pattern, clear in ((r"(?m)^(Update process started at ).*", r"\1DATE"), (r"[^\r\n]*\r", ""),
                           (r"(?m)^[-0-9]+ [:.0-9]+ tarnwick\[\d+\] ", "tarnwick: "),
                           (r"((?:Download|Request) failed! |available defs version number: ).*", r"\1ERROR")):
        text = re.sub(pattern, clear, text)
    return text


class World(Machine):
    """Has this many published versions of the container, and none installed. Dummies of the upstream databases are
    installed, so that runs do not fetch them."""

    def __init__(self, versions=1):
        super().__init__()
        self.transcript = []
        self.day = []
        self.home = vendor.home(versions)
        shutil.copytree(self.home, self.path("/srv/vendor"), symlinks=True)
        self.servers = Servers(self, self.publish("site"))
        self.shell(f"/repository/packaging/linux/provision; cp {seen_inside(EXECUTABLE)} {TOOL}")
        for name in UPSTREAM_DATABASES:
            self.write(f"{DATA}/{name}.cvd", "dummy")

    def close(self):
        self.servers.close()
        super().close()

    def publish(self, *arguments):
        outcome = self.command(vendor.KIT, "--home", "/srv/vendor", *arguments)
        assert outcome.status == 0, outcome
        return outcome.stdout

    def release(self, version):
        vendor.signature_folder(self.path("/srv/signatures"), version)
        self.publish("release", "/srv/signatures")

    def publish_definitions(self, text):
        """Publishes a definitions file, or withdraws it if the text is empty."""
        self.write("/srv/definitions", text)
        self.publish(*(["definitions", "/srv/definitions"] if text else ["withdraw"]))

    def publish_item(self, name, content):
        """Publishes an item that the publishing kit does not know, with its signature."""
        item = f"/srv/vendor/site/VestRUM2/{name}"
        self.write(item, content)
        self.shell(f"openssl dgst -sha1 -binary {item} | openssl dgst -sha1 -sign /srv/vendor/private.pem |"
                   f" base64 -w0 >{item}.signature")

    def install(self, version):
        """Installs this version of the container and the published definitions file, as an earlier run would have."""
        self.write(f"{DATA}/VestRUM.cud", self.container(version))
        for name in ("Vestrum.database", "Vestrum.database.signature"):
            self.write(f"{DATA}/{name}", (self.home / "site/VestRUM2" / name).read_bytes())
        self.remember({"database-Last-Modified": self.modified("Vestrum.database")})

    def published(self, name):
        return self.path(f"/srv/vendor/site/VestRUM2/Scripted/{name}").read_bytes()

    def container(self, version):
        return (self.home / "containers" / f"{version}.cud").read_bytes()

    def modified(self, name):
        """The Last-Modified date with which the servers send a published file."""
        return email.utils.formatdate(self.path(f"/srv/vendor/site/VestRUM2/{name}").stat().st_mtime, usegmt=True)

    def version(self, folder=DATA):
        """The version of the container in a database folder, or 0 if there is none."""
        container = self.path(f"{folder}/VestRUM.cud")
        return int(container.read_bytes().split(b":")[2]) if container.exists() else 0

    def built(self, folder=DATA):
        """The date when the container in a database folder was built, in the format of HTTP."""
        header = self.path(f"{folder}/VestRUM.cud").read_bytes()[:512]
        return email.utils.formatdate(int(header.split(b":")[8]), usegmt=True)

    def litter(self):
        """The paths of temporary files that a run should have deleted."""
        return self.shell(f"find /tmp {PREFIX} /var/lib/tarnwick -mindepth 1 "
                          rf"\( -path '/tmp/*' -o -name '.*' -o -name '*.new*' -o -name '*_download' \)")

    def launch(self, *arguments, rate=None, kill=None, fail=None, record=None, through=(), **more):
        """Starts the tool, with any of these: clocks `rate` times as fast; `kill`, a signal and its moment ("AFTER" so
        many microseconds, so many after the "SPAWN" of freshclam, or before the "STEP" of a number); `fail`, a kind of
        call, the number of the call that fails, and its error; a file to `record` syncs, renames, deletions and the
        failed call. The command `through` must exec the tool."""
        settings = []
        if rate or kill or record:
            number, kind, moment = kill or (0, "AFTER", 0)
            settings = [*self.preloading(rate or 1), *self.day, "ASAN_OPTIONS=verify_asan_link_order=0:handle_segv=0",
                        f"TARNWICK_TEST_SIGNAL={number}", f"TARNWICK_TEST_{kind}={moment}",
                        *([f"TARNWICK_TEST_RECORD={record}"] if record else []),
                        *(map("TARNWICK_TEST_{}={}".format, ("CALL", "NTH", "ERROR"), fail) if fail else [])]
        return self.start(*through, "env", *settings, TOOL, *arguments, **more)

    def launch_on_a_terminal(self, mode=0):
        """Starts the tool in the foreground of a new terminal; returns the job and a file of its output."""
        terminal, slave = pty.openpty()
        settings = termios.tcgetattr(slave)
        settings[1], settings[3] = 0, settings[3] | mode
        termios.tcsetattr(slave, termios.TCSANOW, settings)
        job = self.launch(stdout=slave, start_new_session=True,
                          preexec_fn=lambda: fcntl.ioctl(1, termios.TIOCSCTTY, 0))
        os.close(slave)
        return job, open(terminal, encoding="utf-8")

    @staticmethod
    def preloading(rate):
        """The settings that preload call_overrides.c into a program, with clocks `rate` times as fast."""
        library = made_once("call_overrides", build_overrides, [OVERRIDES]) / "call_overrides.so"
        return [f"LD_PRELOAD={seen_inside(library)}", f"TARNWICK_TEST_RATE={rate}"]

    def hurry(self, rate, since=None):
        """Makes the time of day, but no other clock, run `rate` times as fast since that second (default: now), for
        the servers, and for the tool if launched with that rate."""
        self.day = [f"TARNWICK_TEST_SINCE={int(since or time.time())}"]
        self.servers.restart(*self.preloading(rate), *self.day)

    def run(self, *arguments, **more):
        return self.finish(self.launch(*arguments, **more))

    def finish(self, job):
        outcome = job.end()
        self.transcript.append(outcome)
        return Outcome(outcome.status, clean(outcome.stdout), clean(outcome.stderr))

    def log(self, path):
        return clean(self.path(path).read_text(encoding="utf-8"))

    def program(self, name, script):
        """Replaces one of the prefix's programs by a script."""
        shell = "/bin/sh"
        if name == "freshclam":
            shell = f"{BIN}/freshclam-shell"
            self.write(shell, pathlib.Path(shutil.which("sh")).read_bytes(), 0o755)
        self.write(f"{BIN}/{name}", f"#!{shell}\n{script}\n", 0o755)

    def sigtool(self, before):
        """Makes the prefix's sigtool run a script first."""
        self.program("sigtool", f'{before}\nexec /repository/packaging/linux/sigtool "$@"')

    def spoil(self, how, answers=None):
        """Breaks something, by a shell script or by a function of the world, and sets these answers of the servers."""
        for request, answer in (answers or {}).items():
            self.servers.answer(request, **answer)
        if callable(how):
            how(self)
        else:
            self.shell(how)

    def other_freshclam(self, user):
        """Starts another program named freshclam, as this user; it runs until it is terminated."""
        self.write("/srv/freshclam", pathlib.Path(shutil.which("sh")).read_bytes(), 0o755)
        other = self.start("setpriv", f"--reuid={user}", "--clear-groups", "/srv/freshclam", "-c",
                           "echo started; read -r nothing", stdin=subprocess.PIPE)
        other.read_until("started\n")
        return other

    def freshclam(self, *statuses):
        """Installs a stand-in for freshclam that ends with these statuses, one a call; see `freshclam_calls`."""
        self.program("freshclam", FRESHCLAM_SCRIPT.format(configuration=CONFIGURATION, data=DATA))
        self.write("/srv/freshclam.statuses", "".join(f"{status}\n" for status in statuses))
        self.write("/srv/freshclam.calls")

    def freshclam_calls(self):
        return self.path("/srv/freshclam.calls").read_text(encoding="utf-8").splitlines()

    def custom_database(self):
        """Lets the real freshclam succeed: without the official databases, with one that the mirror offers."""
        self.write("/srv/vendor/mirror/custom.ndb", vendor.definitions_text(500))
        self.shell(f"printf 'ExcludeDatabase %s\n' {' '.join(UPSTREAM_DATABASES)} >>{CONFIGURATION}\n"
                   f"echo DatabaseCustomURL https://{MIRROR}/custom.ndb >>{CONFIGURATION}")

    def remember(self, values, path=STATE):
        self.path(path).parent.mkdir(mode=0o700, parents=True, exist_ok=True)  # the mode that a run gives it
        self.write(path, plistlib.dumps(values))

    def state(self, path=STATE):
        file = self.path(path)
        return plistlib.loads(file.read_bytes()) if file.exists() else None

    def keep(self, folder):
        """Copies the files and the transcript of this world to `folder`, to examine a failure."""
        if not self.path("/srv").exists():
            return
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(parents=True)
        lines = (f"{outcome.stdout}{outcome.stderr}[{outcome.status}]\n\n" for outcome in self.transcript)
        (folder / "transcript").write_text("".join(lines), encoding="utf-8")
        for path in (PREFIX, "/var/lib/tarnwick", "/tmp", "/run/nginx", "/srv"):
            # Copies from outside, because a test may have broken programs or mounts in the machine.
            subprocess.run(["cp", "-a", "--parents", f".{path}", folder.resolve()], cwd=self.root, check=False,
                           stderr=subprocess.DEVNULL)
