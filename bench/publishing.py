"""Measures publishing with very many signatures, and how much of the time each program takes.

The figures depend on the computer and its load: quote the ratios.
"""

import collections
import hashlib
import os
import pathlib
import random
import resource
import subprocess
import sys
import tempfile
import time

from testbed.vendor import publish

SIGNATURES = 1_000_000
SCRIPTS = 1_000
ADDED, REMOVED = 20, 2  # by each script
JOINED = 50
TIMED = """#!/bin/bash
TIMEFORMAT="${0##*/} %U %S"
{ time "/usr/bin/${0##*/}" "$@" 2>&3; } 3>&2 2>>"$TIMES"
"""
SIGN = """for file; do openssl dgst -sha1 -binary "$file" | openssl dgst -sha1 -sign "$private_key" |
    base64 -w0 >"$file.signature"; done"""


def line(number):
    return f"{hashlib.md5(str(number).encode()).hexdigest()}:{1000 + number % 5000}:Vestrum.Sample-{number}\n"


def succeed(home, *arguments, **more):
    start = time.monotonic()
    outcome = publish(home, *arguments, **more)
    if outcome.returncode:
        sys.exit(f"bench: {arguments[0]} failed: {outcome.stdout}{outcome.stderr}")
    return time.monotonic() - start, outcome.stdout.strip()


def shares(folder, home, *arguments):
    """Runs a command of the kit and prints each program's share of the processor time."""
    programs = folder / "programs"
    programs.mkdir(exist_ok=True)
    for name in "sigtool clamscan".split():
        (programs / name).write_text(TIMED, encoding="ascii")
        (programs / name).chmod(0o755)
    times = folder / "times"
    times.write_text("", encoding="ascii")
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    wall, said = succeed(home, *arguments, env=os.environ | {"PATH": f"{programs}:/usr/bin", "TIMES": str(times)})
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    total = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
    spent = collections.Counter()
    for program, user, system in map(str.split, times.read_text(encoding="ascii").splitlines()):
        spent[program] += float(user) + float(system)
    listed = ", ".join(f"{name} {seconds / total:.0%}" for name, seconds in spent.most_common(4))
    print(f"{said}\n  {wall:.1f} s, {total:.1f} s of processor time: {listed}; "
          f"largest program so far {after.ru_maxrss >> 10} MB")
    return total


def releases(folder, home):
    signatures = folder / "signatures"
    signatures.mkdir()
    (signatures / "threats.hdb").write_text("".join(map(line, range(SIGNATURES))), encoding="ascii")
    shares(folder, home, "release", signatures)
    with open(signatures / "threats.hdb", "a", encoding="ascii") as threats:
        threats.writelines(map(line, range(SIGNATURES, SIGNATURES + 200)))
    shares(folder, home, "release", signatures)
    wall, said = succeed(home, "release", signatures)
    print(f"{said}\n  {wall:.1f} s")


def many_scripts(folder, home):
    """Builds a home with a million signatures and a thousand scripts, without making each release."""
    dice = random.Random(1)
    lines = [line(number) for number in range(SIGNATURES)]
    scripted, new = home / "site/VestRUM2/Scripted", folder / "new"
    following = SIGNATURES
    for version in range(2, SCRIPTS + 2):
        gone = sorted(dice.sample(range(len(lines)), REMOVED))
        added = [line(number) for number in range(following, following + ADDED)]
        following += ADDED
        steps = [f"DEL {place + 1} {lines[place][:20]}\n" for place in gone] + [f"ADD {text}" for text in added]
        (scripted / f"VestRUM-{version}.script").write_text(
            "".join(["OPEN VestRUM.hdb\n", *steps, "CLOSE\n"]), encoding="ascii")
        for place in reversed(gone):
            del lines[place]
        lines += added
    new.mkdir()
    (folder / "old").mkdir()
    (new / "VestRUM.hdb").write_text("".join(lines), encoding="ascii")
    (new / "COPYING").touch()
    last = scripted / f"VestRUM-{SCRIPTS + 1}.script"
    subprocess.run(["bash", "-euc", f"""
        (cd new; SIGNDUSER=v sigtool --build=VestRUM.cud --unsigned --cvd-version={SCRIPTS + 1} --no-cdiff \
            --datadir=../old </dev/null)
        (cd old; sigtool --unpack={home}/first.cud)
        mv {scripted}/../../releases/1 {scripted}/../../releases/{SCRIPTS + 1}
        ln -sfn ../../releases/{SCRIPTS + 1} {scripted}/current
        cp new/VestRUM.cud {scripted}/current/
        echo VestRUM:{SCRIPTS + 1} >{scripted}/VestRUM-db-version.txt"""], cwd=folder, check=True, capture_output=True)
    before, after = ((folder / name / "VestRUM.info").read_text(encoding="ascii").splitlines()
                     for name in ("old", "new"))
    with open(last, "a", encoding="ascii") as script:
        changes = (f"XCHG {place} {old.split()[0]} {now}\n" for place, (old, now) in enumerate(zip(before, after), 1))
        script.writelines(["OPEN VestRUM.info\n", *changes, "CLOSE\n"])
    subprocess.run(["bash", "-euo", "pipefail", "-c", SIGN, "sign", *scripted.glob("VestRUM-*.script"),
                    scripted / "VestRUM.cud"], check=True, env=os.environ | {"private_key": str(home / "private.pem")})


def one_by_one_and_joined(folder, home):
    """Applies some scripts with one sigtool process each, then with one process for all."""
    scripts = [home / f"site/VestRUM2/Scripted/VestRUM-{version}.script" for version in range(2, JOINED + 2)]
    (folder / f"VestRUM-{JOINED + 1}.script").write_bytes(b"".join(script.read_bytes() for script in scripts))
    taken, results = [], []
    for name, ones in (("single", scripts), ("joined", [folder / f"VestRUM-{JOINED + 1}.script"])):
        (folder / name).mkdir()
        subprocess.run(["sigtool", f"--unpack={home / 'first.cud'}"], cwd=folder / name, check=True,
                       capture_output=True)
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        for script in ones:
            subprocess.run(["sigtool", f"--run-cdiff={script}"], cwd=folder / name, check=False, capture_output=True)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        taken.append(after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime)
        results.append(hashlib.sha256((folder / name / "VestRUM.hdb").read_bytes()).digest())
    same = "the same result" if results[0] == results[1] else "ANOTHER RESULT"
    print(f"{JOINED} scripts one by one take {taken[0] / taken[1]:.2f} times as long as joined, with {same}")


def main():
    with tempfile.TemporaryDirectory(prefix="publishing-") as name:
        folder = pathlib.Path(name)
        folder.chmod(0o755)
        print(f"{SIGNATURES} signatures")
        succeed(folder / "home", "init")
        releases(folder, folder / "home")
        succeed(folder / "years", "init")
        (folder / "signatures/threats.hdb").write_text("".join(map(line, range(SIGNATURES))), encoding="ascii")
        succeed(folder / "years", "release", folder / "signatures")
        many_scripts(folder, folder / "years")
        one_by_one_and_joined(folder, folder / "years")
        shares(folder, folder / "years", "check")


if __name__ == "__main__":
    main()
