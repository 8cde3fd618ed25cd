"""What the vendor publishes: homes that the publishing kit makes once, and that worlds copy."""

import hashlib
import io
import os
import pathlib
import shutil
import subprocess
import tarfile
import tempfile

from .cache import made_once
from .machine import REPOSITORY, seen_inside

HOME = REPOSITORY / "build" / "vendor"
EXECUTABLE = pathlib.Path(os.environ.get("TARNWICK_EXECUTABLE", REPOSITORY / "build" / "test" / "tarnwick"))
PUBLISHER = EXECUTABLE.resolve().parent / "tarnwick-publish"
KIT = seen_inside(PUBLISHER)  # the same program, in a machine
TRACED = os.environ | {"ASAN_OPTIONS": "detect_leaks=0"}  # LeakSanitizer cannot search a process that strace traces


def sample(version):
    """A harmless text that the container detects from `version` on."""
    return f"harmless sample number {version} of the vendor"


def signature_folder(folder, version):
    """Fills a folder with the vendor's virus signatures as of `version`."""
    folder.mkdir(parents=True, exist_ok=True)
    lines = (f"Vestrum.Sample-{number}:0:*:{sample(number).encode().hex()}\n" for number in range(1, version + 1))
    (folder / "Vestrum.ndb").write_text("".join(lines), encoding="ascii")
    return folder


def definitions_text(number=1):
    return f"Vestrum.Definition-{number}:0:*:{sample(1000 + number).encode().hex()}\n"


def member(name, content="", kind=tarfile.REGTYPE, target=""):
    """A member for `repacked`; `content` may be a function that takes the former content."""
    entry = tarfile.TarInfo(name)
    entry.type, entry.linkname = kind, target
    return entry, content


def repacked(container, *members):
    """The container with these members added; they replace members of the same name."""
    packed = io.BytesIO()
    with tarfile.open(fileobj=io.BytesIO(container[512:])) as archive:
        contents = {entry.name: (entry, archive.extractfile(entry).read().decode()) for entry in archive}
    for entry, content in members:
        contents[entry.name] = (entry, content(contents[entry.name][1]) if callable(content) else content)
    with tarfile.open(fileobj=packed, mode="w:gz", format=tarfile.USTAR_FORMAT) as archive:
        for entry, content in contents.values():
            entry.size = len(content.encode())
            archive.addfile(entry, io.BytesIO(content.encode()))
    fields = container[:512].split(b":")
    fields[5] = hashlib.md5(packed.getvalue()).hexdigest().encode()
    return b":".join(fields) + packed.getvalue()


def scripts_after(info, signatures, count):
    """The scripts of `count` versions after the first, as the publishing kit would write them, and the virus signatures
    of the last version. `info` and `signatures` are the first version's files."""
    header, scripts = info.splitlines()[0].split(":")[:9], {}
    for version in range(2, count + 2):
        line = f"Vestrum.Sample-{version}:0:*:{sample(version).encode().hex()}\n"
        signatures += line
        header[2] = str(version)
        digest = hashlib.sha256(signatures.encode()).hexdigest()
        scripts[f"VestRUM-{version}.script"] = (
            f"OPEN VestRUM.info\nXCHG 1 ClamAV {':'.join(header)}\n"
            f"XCHG 2 VestRUM.ndb VestRUM.ndb:{len(signatures)}:{digest}\nCLOSE\nOPEN VestRUM.ndb\nADD {line}CLOSE\n")
    return scripts, signatures


def home(versions):
    """A publishing home with that many published versions and one definitions file; `containers` beside them keeps
    the container of every version."""
    def make(folder):
        shutil.copytree(HOME, folder, symlinks=True, dirs_exist_ok=True)
        (folder / "containers").mkdir()
        # The kit refuses to publish a file that is in the home.
        with tempfile.TemporaryDirectory(prefix="vendor-") as name:
            sources = pathlib.Path(name)
            for version in range(1, versions + 1):
                _publish(folder, "release", signature_folder(sources / "signatures", version))
                shutil.copy(folder / "site/VestRUM2/Scripted/VestRUM.cud", folder / "containers" / f"{version}.cud")
            (sources / "definitions").write_text(definitions_text(), encoding="ascii")
            _publish(folder, "definitions", sources / "definitions")

    sources = [HOME / "public.pem", pathlib.Path(__file__), PUBLISHER]
    return made_once(f"vendor-{versions}", make, sources)


def publish(path, *arguments, **more):
    """Runs the publishing kit for the home `path`; without --home if that is None."""
    where = () if path is None else ("--home", path)
    return subprocess.run([PUBLISHER, *where, *arguments], capture_output=True, text=True, check=False,
                          stdin=subprocess.DEVNULL, **more)


def _publish(path, *arguments):
    publish(path, *arguments).check_returncode()
