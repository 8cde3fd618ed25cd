"""FORMAT.md, followed by hand: its example is what it says, and what the kit makes is like it."""

import base64
import hashlib
import io
import re
import subprocess
import tarfile

import pytest

from testbed import REPOSITORY

PAGE = (REPOSITORY / "publish/FORMAT.md").read_text(encoding="utf-8")
S = "site/VestRUM2/Scripted"


def blocks(heading):
    """The indented blocks of a section, as texts."""
    section = re.search(rf"(?ms)^## {heading}\n(.*?)(?=^## |\Z)", PAGE)[1]
    found = re.findall(r"(?m)(?:^    .*\n)+", section)
    return [re.sub("(?m)^    ", "", block) for block in found]


def unpacked(container):
    """What is in a container, when its header is as the page says."""
    fields = container[:512].decode().rstrip().split(":")
    assert len(fields) == 9 and (fields[0], fields[6]) == ("ClamAV-VDB", "X")
    assert hashlib.md5(container[512:]).hexdigest() == fields[5]
    with tarfile.open(fileobj=io.BytesIO(container[512:])) as archive:
        members = archive.getmembers()
        assert all(member.isreg() and "/" not in member.name for member in members)
        files = {member.name: archive.extractfile(member).read().decode() for member in members}
    header, *lines = files["VestRUM.info"].splitlines()
    assert header.split(":") == [*fields[:5], "X", *fields[6:]]
    for name, length, digest in (line.split(":") for line in lines if not line.startswith("DSIG:")):
        content = files[name].encode()
        assert (str(len(content)), hashlib.sha256(content).hexdigest()) == (length, digest)
    return int(fields[2]), files


def applied(script, files):
    """By the page's own rules, in the plainest way."""
    files, name = dict(files), None
    for line in script.splitlines():
        verb, _, rest = line.partition(" ")
        if verb == "OPEN":
            name, lines, added = rest, files.get(rest, "").splitlines(), []
            kept = dict(enumerate(lines, 1))
        elif verb == "ADD":
            added.append(rest)
        elif verb == "CLOSE":
            files[name] = "".join(f"{text}\n" for text in [*kept.values(), *added])
        else:
            number, start, *now = rest.split(" ", 2 if verb == "XCHG" else 1)
            assert kept[int(number)].startswith(start)
            if verb == "DEL":
                del kept[int(number)]
            else:
                kept[int(number)] = now[0]
    return files


def fits(content, signature, key, folder):
    for name, value in (("digest", hashlib.sha1(content).digest()), ("signature", base64.b64decode(signature)),
                        ("key", key.encode())):
        (folder / name).write_bytes(value)
    verify = ["openssl", "dgst", "-sha1", "-verify", "key", "-signature", "signature", "digest"]
    return subprocess.run(verify, cwd=folder, check=False, capture_output=True).returncode == 0


def test_the_example_is_what_the_page_says(tmp_path):
    secret, path, expiry, token = blocks("Link")[0].split()
    digest = hashlib.md5(f"{secret}{path}{expiry}".encode()).digest()
    assert base64.urlsafe_b64encode(digest).decode().rstrip("=") == token
    key, (script, newest) = blocks("Key")[0], blocks("Script")
    signature, (info, oldest) = blocks("Signature")[0].strip(), blocks("Container")
    assert fits(script.encode(), signature, key, tmp_path)
    assert not fits(script.encode() + b"\n", signature, key, tmp_path)
    (one, files), (two, then) = (unpacked(base64.b64decode(text)) for text in (oldest, newest))
    assert (one, two, files["VestRUM.info"]) == (1, 2, info)
    assert applied(script, files) == then


@pytest.mark.versions(3)
def test_what_the_kit_makes_can_be_checked_by_hand(home, tmp_path):
    key = (home / "public.pem").read_text(encoding="ascii")
    names = [f"{S}/VestRUM-2.script", f"{S}/VestRUM-3.script", f"{S}/VestRUM.cud", "site/VestRUM2/Vestrum.database"]
    for name in names:
        signature = (home / f"{name}.signature").read_text(encoding="ascii")
        assert "\n" not in signature and fits((home / name).read_bytes(), signature, key, tmp_path), name
    _, files = unpacked((home / "first.cud").read_bytes())
    for name in names[:2]:
        files = applied((home / name).read_text(encoding="ascii"), files)
    assert unpacked((home / names[2]).read_bytes()) == (3, files)
    assert (home / S / "VestRUM-db-version.txt").read_bytes() == b"VestRUM:3\n"
