"""A private machine: its own mount, network, process and host-name namespaces, with its own file tree."""

import dataclasses
import os
import pathlib
import re
import select
import subprocess
import tempfile

REPOSITORY = pathlib.Path(__file__).resolve().parents[1]
TESTBED = pathlib.Path(__file__).resolve().parent
ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/root", "LANG": "C", "TZ": "UTC"}


@dataclasses.dataclass
class Outcome:
    status: int
    stdout: str
    stderr: str


class Job:
    """A program that runs in a machine."""

    def __init__(self, process):
        self.process = process

    def read_until(self, text, stream="stdout"):
        """Waits until the program has printed `text`; returns the output up to and including it."""
        seen = b""
        while text.encode() not in seen:
            byte = os.read(getattr(self.process, stream).fileno(), 1)
            assert byte, f"ended before {text!r}: {seen!r}"
            seen += byte
        return seen.decode()

    def signal(self, number):
        """Sends a signal to the program itself, not to nsenter, its parent."""
        os.kill(self.pid, number)

    @property
    def pid(self):
        """The program's process id outside the machine."""
        return only_child(self.process.pid)

    def blocked(self, thread):
        """The signals that a thread of the program blocks; None if the thread has ended."""
        try:
            status = pathlib.Path(f"/proc/{self.pid}/task/{thread}/status").read_text(encoding="utf-8")
        except FileNotFoundError:
            return None
        mask = int(re.search(r"^SigBlk:\s*(\w+)", status, re.M)[1], 16)
        return {number for number in range(1, 65) if mask >> (number - 1) & 1}

    def end(self):
        said = [(text or b"").decode(errors="replace") for text in self.process.communicate()]
        return Outcome(self.process.returncode, *said)


def only_child(pid):
    return int(pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()[0])


def seen_inside(path):
    """The path that a file of the repository has inside a machine."""
    return str(pathlib.Path("/repository") / pathlib.Path(path).relative_to(REPOSITORY))


class Machine:
    """The constructor starts it; `close` (or the end of a `with`) removes every trace of it."""

    def __init__(self):
        with tempfile.TemporaryDirectory(prefix="tarnwick-machine-") as mount_point:
            self._unshare = subprocess.Popen(
                ["setpriv", "--pdeathsig", "KILL", "unshare", "-mnpuf", "--kill-child",
                 TESTBED / "first_process", mount_point, REPOSITORY], stdout=subprocess.PIPE)
            if self._unshare.stdout.readline() != b"ready\n":
                raise RuntimeError("cannot start a private machine: namespaces need root")
        self._init = only_child(self._unshare.pid)
        self._death = os.pidfd_open(self._init)
        self.root = pathlib.Path(f"/proc/{self._init}/root")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def kill(self):
        self._unshare.kill()

    def close(self):
        """Kills the first process, with which every other process, mount and network of the machine ends."""
        self.kill()
        self._unshare.wait()
        select.select([self._death], [], [])
        os.close(self._death)
        self._unshare.stdout.close()

    def path(self, path):
        """The path that the machine's `path` has outside the machine."""
        return self.root / str(path).lstrip("/")

    def start(self, *command, env=None, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
              **more):
        # The caller may ignore signals, as `nohup` does; programs started here must not inherit that.
        prefix = ["env", "--default-signal", "nsenter", "-t", str(self._init), "-m", "-n", "-p", "-u", "-r", "-w"]
        return Job(subprocess.Popen(prefix + [str(part) for part in command], env=ENVIRONMENT | (env or {}),
                                    stdin=stdin, stdout=stdout, stderr=stderr, **more))

    def odd_server(self, name, *arguments):
        """Starts one of the servers in odd_servers.py, and waits until it listens."""
        server = self.start("/usr/bin/python3", "/repository/testbed/odd_servers.py", name, *arguments)
        server.read_until("ready\n")
        return server

    def command(self, *command, **more):
        return self.start(*command, **more).end()

    def shell(self, script):
        """Runs a preparation, which must succeed; returns its output."""
        outcome = self.command("sh", "-euc", script)
        assert outcome.status == 0, outcome
        return outcome.stdout

    def write(self, path, content="", mode=0o644):
        target = self.path(path)
        target.parent.mkdir(parents=True, exist_ok=True)
        # From outside, an absolute link in the machine would lead to a file of the real system: remove it.
        target.unlink(missing_ok=True)
        target.write_bytes(content.encode() if isinstance(content, str) else content)
        target.chmod(mode)

    def running(self, pattern):
        """The command lines of the machine's running processes that match."""
        lines = self.shell("ps -e -o args=").splitlines()
        return [line for line in lines if re.search(pattern, line) and " -o args=" not in line]
