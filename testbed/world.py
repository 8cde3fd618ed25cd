"""A machine with an installation on it: the prefix with ClamAV's programs, the vendor's servers, and the tool."""

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
from .machine import HERE, Machine, Outcome, seen_inside
from .servers import MIRROR, Servers
from .vendor import EXECUTABLE

PREFIX = "/usr/local/vestRum"
BIN, DATA = f"{PREFIX}/bin", f"{PREFIX}/share/clamav"
CONFIGURATION = f"{PREFIX}/etc/freshclam.conf"
STATE = "/var/lib/tarnwick/uk.co.pellawaysoftware.vestrum.tarnwick.plist"
OLDER_STATE = "/var/lib/tarnwick/uk.co.tobrennel.vestrum.tarnwick.plist"
TOOL = "/usr/local/bin/tarnwick"
# As the tool presents the system that it runs on.
MACINTOSH = f"(Macintosh; Intel Mac OS X {platform.freedesktop_os_release().get('VERSION_ID', 'unknown')})"
# Not even root can write to it then.
SHUT_WORK_FOLDER = "mkdir -m 700 /tmp/tarnwick-0; mount -t tmpfs -o ro,mode=700 shut /tmp/tarnwick-0"
UPSTREAM_DATABASES = ("main", "daily", "bytecode")

# A stand-in updater is run by a shell whose path says "freshclam", as the tool looks at executables. It notes which
# configuration it was given and who owned the databases, spoils that, and takes its exit status from a list.
FRESHCLAM = """
conf=$(sed -n 's/^#= //p' {configuration}) mirror=$(sed -n 's/^DatabaseMirror //p' {configuration})
echo "${{conf:-live}} ${{mirror:-none}} $(stat -c %U {data}/main.cvd)" >>/srv/freshclam.calls
chown root {data}/main.cvd
echo "freshclam $*"
read -r status </srv/freshclam.statuses || status=99
sed -i 1d /srv/freshclam.statuses
[ "$status" != killed ] || kill -KILL $$
exit "$status"
"""


OVERRIDES = HERE / "call_overrides.c"


def build_overrides(folder):
    subprocess.run(["gcc", "-shared", "-fPIC", "-O2", "-o", folder / "call_overrides.so", OVERRIDES], check=True)


def clean(text):
    """Without what differs from run to run: dates, process ids, the wording of other people's errors, and the progress
    lines that the last one overwrites."""
    for pattern, clear in ((r"(?m)^(Update process started at ).*", r"\1DATE"), (r"[^\r\n]*\r", ""),
                           (r"(?m)^[-0-9]+ [:.0-9]+ tarnwick\[\d+\] ", "tarnwick: "),
                           (r"((?:Download|Request) failed! |available defs version number: ).*", r"\1ERROR")):
        text = re.sub(pattern, clear, text)
    return text


class World(Machine):
    """So many versions of the container are published, and none is installed. The upstream databases are there, as
    dummies, so that they are not fetched unasked."""

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
        """With no text at all, the file is withdrawn."""
        self.write("/srv/definitions", text)
        self.publish(*(["definitions", "/srv/definitions"] if text else ["withdraw"]))

    def publish_item(self, name, content):
        """An item that the publishing kit knows nothing of, with its signature."""
        item = f"/srv/vendor/site/VestRUM2/{name}"
        self.write(item, content)
        self.shell(f"openssl dgst -sha1 -binary {item} | openssl dgst -sha1 -sign /srv/vendor/private.pem |"
                   f" base64 -w0 >{item}.signature")

    def install(self, version):
        """What an earlier run would have left: the container of that version, the published definitions file."""
        self.write(f"{DATA}/VestRUM.cud", self.container(version))
        for name in ("Vestrum.database", "Vestrum.database.signature"):
            self.write(f"{DATA}/{name}", (self.home / "site/VestRUM2" / name).read_bytes())
        self.remember({"database-Last-Modified": self.modified("Vestrum.database")})

    def published(self, name):
        return self.path(f"/srv/vendor/site/VestRUM2/Scripted/{name}").read_bytes()

    def container(self, version):
        return (self.home / "containers" / f"{version}.cud").read_bytes()

    def modified(self, name):
        """The date that the servers give with a published file."""
        return email.utils.formatdate(self.path(f"/srv/vendor/site/VestRUM2/{name}").stat().st_mtime, usegmt=True)

    def version(self, folder=DATA):
        """The version of the container in a database folder, 0 without one."""
        container = self.path(f"{folder}/VestRUM.cud")
        return int(container.read_bytes().split(b":")[2]) if container.exists() else 0

    def built(self, folder=DATA):
        """When the container in a database folder was built, as a server's date."""
        header = self.path(f"{folder}/VestRUM.cud").read_bytes()[:512]
        return email.utils.formatdate(int(header.split(b":")[8]), usegmt=True)

    def litter(self):
        """What lies about that no run should leave."""
        return self.shell(f"find /tmp {PREFIX} /var/lib/tarnwick -mindepth 1 "
                          rf"\( -path '/tmp/*' -o -name '.*' -o -name '*.new*' -o -name '*_download' \)")

    def launch(self, *arguments, rate=None, kill=None, fail=None, record=None, through=(), **more):
        """Starts the tool: with clocks `rate` times as fast, or with `kill`, a signal and when it comes ("AFTER" so
        many microseconds, so many after the "SPAWN" of freshclam, or before the "STEP" of that number), or with
        `fail`, a kind of call, the number of the one that fails and its error, or with a file to `record` its syncs,
        renames and failed call. A program that it is started `through` becomes the tool."""
        settings = []
        if rate or kill or record:
            number, kind, moment = kill or (0, "AFTER", 0)
            settings = [*self.preloading(rate or 1), *self.day, "ASAN_OPTIONS=verify_asan_link_order=0:handle_segv=0",
                        f"TARNWICK_TEST_SIGNAL={number}", f"TARNWICK_TEST_{kind}={moment}",
                        *([f"TARNWICK_TEST_RECORD={record}"] if record else []),
                        *(map("TARNWICK_TEST_{}={}".format, ("CALL", "NTH", "ERROR"), fail) if fail else [])]
        return self.start(*through, "env", *settings, TOOL, *arguments, **more)

    def launch_on_a_terminal(self, mode=0):
        """Starts the tool in the foreground of a terminal of its own; with that, a file of what it shows."""
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
        """The time of day, and no other clock, runs `rate` times as fast since then (from now on), for the servers and
        for a tool that is launched with that rate."""
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
        """Puts a stand-in in the place of one of the prefix's programs."""
        shell = "/bin/sh"
        if name == "freshclam":
            shell = f"{BIN}/freshclam-shell"
            self.write(shell, pathlib.Path(shutil.which("sh")).read_bytes(), 0o755)
        self.write(f"{BIN}/{name}", f"#!{shell}\n{script}\n", 0o755)

    def sigtool(self, before):
        """The prefix's sigtool, and a script that comes before it."""
        self.program("sigtool", f'{before}\nexec /repository/packaging/linux/sigtool "$@"')

    def spoil(self, how, answers=None):
        """Something is put out of order, by a script or by a function of the world, and servers give these answers."""
        for request, answer in (answers or {}).items():
            self.servers.answer(request, **answer)
        if callable(how):
            how(self)
        else:
            self.shell(how)

    def other_freshclam(self, user):
        """Somebody's own program of that name, which runs until it is ended."""
        self.write("/srv/freshclam", pathlib.Path(shutil.which("sh")).read_bytes(), 0o755)
        other = self.start("setpriv", f"--reuid={user}", "--clear-groups", "/srv/freshclam", "-c",
                           "echo started; read -r nothing", stdin=subprocess.PIPE)
        other.read_until("started\n")
        return other

    def freshclam(self, *statuses):
        """A stand-in for freshclam that answers these, one a run; `freshclam_calls` tells what it met."""
        self.program("freshclam", FRESHCLAM.format(configuration=CONFIGURATION, data=DATA))
        self.write("/srv/freshclam.statuses", "".join(f"{status}\n" for status in statuses))
        self.write("/srv/freshclam.calls")

    def freshclam_calls(self):
        return self.path("/srv/freshclam.calls").read_text(encoding="utf-8").splitlines()

    def custom_database(self):
        """What makes the real freshclam content: the official databases left out, one of the mirror's own."""
        self.write("/srv/vendor/mirror/custom.ndb", vendor.definitions_text(500))
        self.shell(f"printf 'ExcludeDatabase %s\n' {' '.join(UPSTREAM_DATABASES)} >>{CONFIGURATION}\n"
                   f"echo DatabaseCustomURL https://{MIRROR}/custom.ndb >>{CONFIGURATION}")

    def remember(self, values, path=STATE):
        self.path(path).parent.mkdir(mode=0o700, parents=True, exist_ok=True)  # as a run makes it
        self.write(path, plistlib.dumps(values))

    def state(self, path=STATE):
        file = self.path(path)
        return plistlib.loads(file.read_bytes()) if file.exists() else None

    def keep(self, folder):
        """Leaves everything that tells what happened here in `folder`."""
        if not self.path("/srv").exists():
            return
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(parents=True)
        lines = (f"{outcome.stdout}{outcome.stderr}[{outcome.status}]\n\n" for outcome in self.transcript)
        (folder / "transcript").write_text("".join(lines), encoding="utf-8")
        for path in (PREFIX, "/var/lib/tarnwick", "/tmp", "/run/nginx", "/srv"):
            # By the machine's own means something that a test broke on purpose could be in the way.
            subprocess.run(["cp", "-a", "--parents", f".{path}", folder.resolve()], cwd=self.root, check=False,
                           stderr=subprocess.DEVNULL)
