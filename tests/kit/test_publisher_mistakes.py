"""What its own operators do to a publishing home, and what comes of it."""

import os
import pathlib
import re
import subprocess
from typing import NamedTuple

import pytest

from testbed import vendor
from testbed.vendor import KIT, publish

MATCHING = "printf '%s:%s:Vestrum.Oops\\n' $(md5sum </usr/bin/clamscan | cut -c -32) $(stat -Lc %s /usr/bin/clamscan)"
MATCHES = "matches the scanner itself, so that every installation would refuse it\n"
LOST = """\
the private key of what is published in {home} is lost, the one with the fingerprint {key}
put private.pem back from its copy; this shows a copy's fingerprint:
  openssl pkey -in COPY -pubout -outform DER | sha256sum
a new key will not do: every installation would refuse what it signs
"""
NOT_THE_PAIR = """\
private.pem has the fingerprint {other},
and public.pem has {key}
put back the pair that Tarnwick was built with
"""
NOT_THE_SIGNER = """\
what is published here was not signed with private.pem,
whose fingerprint is {other}
put back the pair that Tarnwick was built with: installations trust no other
"""
CHANGES = "Changes: +{} -{} signatures, SIZES\n"
RELEASED = CHANGES.format(4, 0) + "Released version 2 with 5 signatures.\n"
TO_RELEASE, TO_DEFINE = "release ../new", "definitions ../new/a.ndb"
ANOTHER = f"{vendor.PUBLISHER} --home ../other init"
IN_HOME = "{{home}}/{} lies in the publishing home, of which nothing is published; keep it elsewhere\n"


class Mistake(NamedTuple):
    done: str  # a script for the home, beside which the folder "new" lies, to be released
    command: str  # of the kit, then
    said: str  # as an error, unless it succeeds
    status: int = 1
    found: str = ""  # by `check`


MISTAKES = {
    "key lost, release": Mistake("rm private.pem", TO_RELEASE, LOST),
    "key lost, init": Mistake("rm private.pem", "init", LOST),
    "key lost, definitions": Mistake("rm private.pem", TO_DEFINE, LOST),
    "another private key": Mistake(f"{ANOTHER}; cp ../other/private.pem .", TO_RELEASE, NOT_THE_PAIR),
    "another pair": Mistake(f"{ANOTHER}; cp ../other/p*.pem .", "withdraw", NOT_THE_SIGNER),
    "init again": Mistake("true", "init", "{home} holds a private key already; it is kept as it is\n"
                          "every installation trusts that key: use another --home for a new one\n"),
    "link lost": Mistake("rm site/VestRUM2/Scripted/current", TO_RELEASE,
                         "Put back version 1, which was complete and out of sight.\n" + RELEASED, 0),
    "container lost": Mistake("rm -r site/VestRUM2/Scripted/current site/releases/1", TO_RELEASE,
                              "the published container is lost; put it back from a copy of {home}\n"),
    "nothing changed": Mistake("sed -i 1q ../new/a.ndb", TO_RELEASE,
                               "Nothing new: version 1 holds exactly these signatures.\n", 0),
    "definitions unchanged": Mistake("cp site/VestRUM2/Vestrum.database ../same", "definitions ../same",
                                     "Nothing new: this definitions file is published already.\n", 0),
    "a link to the key among the signatures": Mistake(
        "ln -s ../home/private.pem ../new/COPYING", TO_RELEASE,
        "{new}/COPYING is a link; put the file itself there\n"),
    "a link among the signatures": Mistake(
        "cp ../new/a.ndb ../b; ln -s ../b ../new/b.ndb", TO_RELEASE,
        "{new}/b.ndb is a link; put the file itself there\n"),
    "the key among the signatures": Mistake(
        "ln private.pem ../new/x.ndb", TO_RELEASE, "{new}/x.ndb is the private key, which is never published\n"),
    "another file of the home among the signatures": Mistake(
        "ln public.pem ../new/x.ndb", TO_RELEASE,
        "{new}/x.ndb is a file of the publishing home under another name\n"),
    "the key as COPYING": Mistake(
        "cp private.pem ../new/COPYING", TO_RELEASE, "{new}/COPYING is the private key, which is never published\n"),
    "signatures in the home": Mistake("mv ../new signatures", "release signatures", IN_HOME.format("signatures")),
    "signatures in the home, by a link": Mistake(
        "rm -r ../new; mkdir s; ln -s home/s ../new", TO_RELEASE, IN_HOME.format("s")),
    "a link to definitions": Mistake("ln -s a.ndb ../new/b.ndb", "definitions ../new/b.ndb",
                                     "{new}/b.ndb is a link; name the file itself\n"),
    "a link to the key as definitions": Mistake("ln -sf ../home/private.pem ../new/a.ndb", TO_DEFINE,
                                                "{new}/a.ndb is a link; name the file itself\n"),
    "the key as definitions": Mistake("ln private.pem ../new/key", "definitions ../new/key",
                                      "{new}/key is the private key, which is never published\n"),
    "definitions in the home": Mistake("true", "definitions private.pem", IN_HOME.format("private.pem")),
    "definitions in the home, by a link above them": Mistake(
        "ln -s ../home ../new/in", "definitions ../new/in/public.pem", IN_HOME.format("public.pem")),
    "a malformed line": Mistake(
        f"printf 'x\\ny\\nz\\n' | sed 's/.*/{'a' * 32}:68:&/; 3s/:68/:?/' >../new/b.hdb; "
        f"echo {'b' * 32}:68:w >../new/a.hdb", TO_RELEASE,
        f"ClamAV refuses {{new}}/b.hdb line 3; version 2 is not released\nthere stands: {'a' * 32}:?:z\n"
        "cli_loadhash: Invalid value for the size field\n"),
    "no signature": Mistake(
        f"echo x >../new/b.hdb; echo {'b' * 32}:68:w >../new/a.hdb", TO_RELEASE, "ClamAV refuses {new}/b.hdb line 1; "
        "version 2 is not released\nthere stands: x\ncli_loadhash: Problem parsing database\n"),
    "an empty file": Mistake("touch ../new/e.hdb", TO_RELEASE, "ClamAV refuses {new}/e.hdb, which is empty; version 2 "
                             "is not released\nremove it from the folder\n"),
    "a reserved kind": Mistake("touch ../new/x.info", TO_RELEASE, "{new}/x.info would be lost: sigtool writes a .info "
                               "of its own; remove it from the folder\n"),
    "shuffled": Mistake("$PUBLISHER release ../new; "
                        "sort -r -o ../new/a.ndb ../new/a.ndb", TO_RELEASE,
                        "Nothing new: version 2 holds exactly these signatures.\n", 0),
    "a malformed line among shuffled ones": Mistake(
        "$PUBLISHER release ../new; "
        "sort -r -o ../new/a.ndb ../new/a.ndb; sed -i 2ix ../new/a.ndb", TO_RELEASE,
        "ClamAV refuses {new}/a.ndb line 2; version 3 is not released\nthere stands: x\nProblem parsing database\n"),
    "a kind gone": Mistake("mv ../new/a.ndb ../new/a.ldb; echo 'S;Target:0;0;616161616161' >../new/a.ldb", TO_RELEASE,
                           "version 2 is not released: it has no signatures of the kind .ndb any more\n"
                           "if that is meant: release --force\n", found=CHANGES.format(1, 1)),
    "a kind gone, and meant": Mistake(
        "rm ../new/a.ndb; echo 'S;Target:0;0;616161616161' >../new/a.ldb", f"{TO_RELEASE} --force",
        CHANGES.format(1, 1) + "Released version 2 with 1 signature.\n", 0),
    "nearly all gone": Mistake("$PUBLISHER release ../new; sed -i 1q ../new/a.ndb", TO_RELEASE,
                               "version 3 is not released: it takes away 4 of 5 signatures\n"
                               "if that is meant: release --force\n", found=CHANGES.format(0, 4)),
    "only looked at": Mistake("true", f"{TO_RELEASE} --dry-run", CHANGES.format(4, 0) +
                              "Not released: version 2 with 5 signatures, by --dry-run.\n", 0),
    "behind a lost version": Mistake("true", f"{TO_RELEASE} --after 7", "Changes: +4 -0 signatures, container SIZE\n"
                                     "Released version 8 with 5 signatures.\n", 0),
    "behind an older version": Mistake("true", f"{TO_RELEASE} --after 0",
                                       "version 1 is out here already; --after needs a later one\n"),
    "a version beyond ClamAV": Mistake("true", f"{TO_RELEASE} --after 4294967295",
                                       "version 4294967296 is more than ClamAV can count\n"),
    "UTF-16": Mistake("printf '\\377\\376x' >../new/u.hdb", TO_RELEASE,
                      "{new}/u.hdb cannot be released: it is UTF-16; save it as plain text\n"),
    "a byte-order mark": Mistake(
        "printf '\\357\\273\\277x' >../new/u.hdb", TO_RELEASE, "{new}/u.hdb line 1 cannot be released: a byte-order "
        "mark stands before it; save it without\n"),
    "a NUL byte": Mistake("printf 'x\\ny\\0' >../new/u.hdb", TO_RELEASE,
                          "{new}/u.hdb line 2 cannot be released: it holds a NUL byte\n"),
    "a long line": Mistake(
        "head -c 100000 /dev/zero | tr '\\0' x | sed '1iy' >../new/u.hdb", TO_RELEASE, "{new}/u.hdb line 2 cannot be "
        "released: it has 100000 bytes, more than ClamAV reads as one line\n"),
    "broken bytecode": Mistake("echo x >../new/u.cbc", TO_RELEASE, "ClamAV refuses {new}/u.cbc; version 2 is not "
                               "released\nMissing file magic in bytecode; Error at bytecode line 0\n"),
    "left out and twice": Mistake(
        "sed -i '$p; 1i# mine' ../new/a.ndb; touch ../new/.hidden", TO_RELEASE,
        "Left out: {new}/.hidden, which is hidden\n"
        "Passed over by ClamAV: 1 comment line of the kind .ndb\nTwice: 1 line of the kind .ndb\n" +
        CHANGES.format(6, 0) + "Released version 2 with 6 signatures.\n", 0),
    "an unknown kind": Mistake("echo x >../new/x.txt", TO_RELEASE, "{new}/x.txt cannot be released: ClamAV takes no "
                               "files of the kind .txt into a container\nremove it from the folder\n"),
    "no kind": Mistake("touch ../new/nothing", TO_RELEASE,
                       "{new}/nothing has no extension, so ClamAV cannot know what it holds\n"),
    "no folder": Mistake("rm -r ../new", TO_RELEASE,
                         "../new is not a folder of signature files that can be read by root\n"),
    "the scanner matches": Mistake(f"{MATCHING} >../new/x.hdb", TO_RELEASE,
                                   "version 2 is not released: Vestrum.Oops.UNOFFICIAL " + MATCHES),
    "the scanner matches, and did not then": Mistake(
        f"{MATCHING} >../new/x.hdb; mkdir ../fake; ln -s /bin/true ../fake/clamscan; "
        f"PATH=$PWD/../fake:$PATH {vendor.PUBLISHER} --home . {TO_RELEASE}", "check",
        "1 thing found; put right from a copy of {home} what cannot be published anew\n",
        found="Damaged: VestRUM.cud: Vestrum.Oops.UNOFFICIAL " + MATCHES),
    "malformed definitions": Mistake(
        "echo x >../new/a.ndb", TO_DEFINE,
        "{new}/a.ndb is not published: LibClamAV Error: Problem parsing database at line 1\n"),
    "empty definitions": Mistake(
        ">../new/a.ndb", TO_DEFINE, "{new}/a.ndb is empty, and an empty definitions file means withdrawal\n"
        "if that is meant: tarnwick-publish --home {home} withdraw\n"),
    "definitions of a kind": Mistake(
        "true", TO_DEFINE, "Published Vestrum.database, 490 bytes, tried with ClamAV as a .ndb file.\n", 0),
    "definitions of no kind": Mistake(
        "echo x >../new/a", "definitions ../new/a",
        "Published Vestrum.database, 2 bytes, not tried: its name tells no kind that ClamAV knows.\n", 0),
}


def fingerprint(home):
    return subprocess.getoutput(f"openssl pkey -in {home}/private.pem -pubout -outform DER | sha256sum | cut -c -64")


@pytest.mark.versions(1)
@pytest.mark.parametrize("mistake", MISTAKES.values(), ids=MISTAKES)
def test_mistakes(home, mistake):
    new, key = home.parent / "new", fingerprint(home)
    vendor.signature_folder(new, 5).joinpath("Vestrum.ndb").rename(new / "a.ndb")
    subprocess.run(["bash", "-euc", mistake.done], cwd=home, check=True, stdout=subprocess.DEVNULL,
                   env=os.environ | {"PUBLISHER": f"{vendor.PUBLISHER} --home ."})
    was_sound = publish(home, "check").returncode == 0
    outcome = publish(home, *mistake.command.split(), cwd=home)
    said = mistake.said.format(home=home, new=new, key=key, other=fingerprint(home.parent / "other"))
    error = "".join(f"tarnwick-publish: {line}\n" for line in said.splitlines())
    stdout = re.sub(r"container .*", "container SIZE", outcome.stdout)
    stdout = re.sub(r"script .*, container SIZE", "SIZES", stdout)
    assert (outcome.returncode, stdout, outcome.stderr) == (
        mistake.status, *((mistake.found, error) if mistake.status else (said, "")))
    assert publish(home, "check").returncode == 0 or not was_sound


@pytest.mark.parametrize("words, said", [
    (["init"], "init needs --home DIR: the folder that is to hold the private key"),
    (["--home", "x", "release"], "release takes 1 argument, not 0"),
    (["--home"], "--home needs a folder"),
    (["--home", "x[y", "init"], "the path of a home must not hold any of * ? [ ] \\")])
def test_what_is_no_command(tmp_path, words, said):
    mine = tmp_path / "mine"
    mine.mkdir()
    outcome = publish(None, *words, cwd=tmp_path, env=os.environ | {"work": str(mine)})
    assert (outcome.returncode, outcome.stdout, outcome.stderr, list(tmp_path.iterdir())) == (
        2, "", f'tarnwick-publish: {said}\nTry "tarnwick-publish --help".\n', [mine])


@pytest.mark.parametrize("words, first", [
    (["init"], "COMMAND [ARGUMENT...]"), (["release"], "release FOLDER [OPTION...]"), (["prune"], "prune [--keep N]"),
    (["push", "/srv/copy"], "push [--timeout SECONDS] [SERVER...] [OPTION...]")])
def test_help_is_of_the_command_that_was_named(home, words, first):
    outcome = publish(home, *words, "--help")
    assert (outcome.returncode, outcome.stdout.split("\n")[0], outcome.stderr) == (
        0, f"Usage: tarnwick-publish [--home DIR] {first}", "")


@pytest.mark.versions(1)
def test_nobody_else_can_hold_up_publishing(home):
    hold = f"for file in {home} {home}/*; do exec {{held}}<$file && flock -n $held; done; echo held; read"
    with subprocess.Popen(["setpriv", "--reuid=nobody", "--clear-groups", "bash", "-c", hold], text=True,
                          stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) as nobody:
        assert nobody.stdout.readline() == "held\n"
        assert publish(home, "withdraw", timeout=60).returncode == 0


def test_only_the_owner_publishes(shared_world):
    world = shared_world
    world.shell("cp -r /srv/vendor /srv/owned && chown -R nobody /srv/owned && chmod 755 /srv "
                "&& chown root /srv/owned/tls/* && mkdir -m 700 /srv/closed && echo x >/srv/closed/file")
    kit = f"{KIT} --home /srv/owned"
    as_nobody = ["setpriv", "--reuid=nobody", "--clear-groups"]
    foreign = "find /srv/owned ! -path '*/tls/*' ! -user nobody"
    vendor.signature_folder(world.path("/srv/five"), 5)
    world.shell(f"cd /srv && {kit} release five && [ -z \"$({foreign})\" ]"
                f" && timeout -s KILL 100 env --ignore-signal=CHLD {kit} check")
    # Root, as a service may have it: with no rights but to become the owner.
    world.shell(f"chmod 700 /srv/owned; setpriv --bounding-set -all,+setuid,+setgid {kit} prune --keep 9"
                "; chmod 755 /srv/owned")
    closed = world.command("sh", "-c", f"{kit} definitions /srv/closed/file")
    assert (closed.status, closed.stderr) == (
        1, "tarnwick-publish: /srv/closed/file is not a file that can be read by nobody\n")
    assert world.command(*as_nobody, *kit.split(), "withdraw").status == 0
    # What the owner puts in root's way.
    world.shell("cd /srv/owned; echo roots | tee /srv/roots >/srv/closed/key.pem; mkdir /srv/roots.d"
                "; ln -s ../roots site.settings.new; ln -s ../roots.d theirs; chown -h nobody site.settings.new theirs")
    printed = world.command("sh", "-c", f"umask 077; {kit} site --remember --link-secret Other --certificate "
                            "/srv/vendor/tls/certificate.pem --certificate-key /srv/closed/key.pem")
    assert (printed.status, printed.stderr, "Other$path" in printed.stdout) == (0, "", True), printed
    assert world.command("sh", "-c", f"{kit}/theirs/new init").status == 1
    assert world.command("sh", "-c", f"{kit}/own/new init").status == 0
    # Only root could see that this certificate is missing.
    absent = world.command("sh", "-c", f"cd /srv/closed; {kit}/absent site --certificate $PWD/a"
                           " --certificate-key $PWD/b")
    assert (absent.status, absent.stderr) == (0, ""), absent
    assert world.shell(f"cd /srv; stat -c %U roots owned/site.settings; cat roots; ls roots.d; {foreign}"
                       "; sed -n 4p owned/site.settings; rm -r owned/own") == "root\nnobody\nroots\nlink_secret=Other\n"
    world.shell("chown daemon /srv/owned/site/releases/5")
    for command in ("withdraw", "check"):
        refused = world.command(*as_nobody, *kit.split(), command)
        assert (refused.status, refused.stderr) == (1, (
            "tarnwick-publish: /srv/owned/site/releases/5 belongs to daemon, and the home to nobody, who could not "
            "replace it\n"
            "tarnwick-publish: give it back first: sudo chown -hR nobody /srv/owned/site/releases/5\n"))
    world.shell("chown nobody /srv/owned/site/releases/5")
    # Who may only read can look whether all is well.
    for command, status, said in (("prune", 1, "tarnwick-publish: /srv/owned belongs to nobody; only its owner can "
                                   "publish\n"), ("check", 0, "")):
        other = world.command("setpriv", "--reuid=daemon", "--clear-groups", *kit.split(), command)
        assert (other.status, other.stderr) == (status, said), other


def system_calls(trace):
    """Each call and what it is given, when it has returned without an error."""
    begun = {}
    for line in trace.read_text(encoding="utf-8").splitlines():
        pid, call = line.split(None, 1)
        if call.endswith(" <unfinished ...>"):
            begun[pid] = call.removesuffix(" <unfinished ...>")
            continue
        if call.startswith("<... "):
            call = begun.pop(pid) + call.partition(" resumed>")[2]
        if match := re.fullmatch(r"(\w+)\((.*)\) += \d+(?:<(.*)>)?", call):
            yield match.groups()


def named(folder, name):
    return pathlib.Path(os.path.normpath(os.path.join(folder or "/", name)))


def steps(trace):
    """What happens to files, in order: that they are opened to be written, synced, or renamed."""
    for call, given, opened in system_calls(trace):
        if call.startswith("rename"):
            old, new = re.findall(r'(?:\w+<(.*?)>, )?"(.*?)"', given)
            yield "rename", named(*old), named(*new)
        elif call.endswith("sync"):
            yield "sync", pathlib.Path(re.search("<(.*)>", given)[1]), None
        elif re.search("O_WRONLY|O_RDWR", given):
            yield "write", pathlib.Path(opened), None


@pytest.mark.parametrize("command", ["init", "release first", "release", "definitions", "prune --keep 1"])
def test_what_a_name_leads_to_is_on_the_disk_before_the_name(home, tmp_path, command):
    """Files are synced before they are given a name in the home; and every name that is given before `current` is
    switched, or before the end, lies in a folder that was synced since."""
    vendor.signature_folder(home.parent / "new", 5)
    if command in ("init", "release first"):
        home = home.parent / "another"
        assert command == "init" or publish(home, "init").returncode == 0
    subject = {"definitions": [home.parent / "new/Vestrum.ndb"], "release": [home.parent / "new"]}
    words = [word for word in command.split() if word != "first"]
    subprocess.run(["strace", "-f", "-qq", "-y", "-s", "4096", "-o", tmp_path / "trace", "--seccomp-bpf", "-e",
                    "trace=open,openat,creat,fsync,fdatasync,rename,renameat,renameat2", vendor.PUBLISHER,
                    "--home", home, *words, *subject.get(words[0], [])], check=True, stdin=subprocess.DEVNULL,
                   capture_output=True, env=vendor.TRACED)
    unsynced, nameless, given = set(), set(), set()
    for step, path, new in steps(tmp_path / "trace"):
        if step == "write":
            unsynced.add(path)
        elif step == "sync":
            unsynced.discard(path)
            nameless.discard(path)
        else:
            unsynced = {new / at.relative_to(path) if at.is_relative_to(path) else at for at in unsynced
                        if not at.is_relative_to(new)}
            if new.is_relative_to(home) and not new.is_relative_to(home / "work"):
                assert not [at for at in unsynced if at.is_relative_to(new)], (step, path, new)
                assert new.name != "current" or not nameless, (path, new)
                nameless.add(new.parent)
                given.add(new.name)
    assert not nameless
    assert given == {"init": {"public-one-line.pem", "public.pem", "private.pem"}, "prune --keep 1": {"first.cud"},
                     "release first": {"1", "first.cud", "current"}, "definitions": {"2", "current"},
                     "release": {"VestRUM-5.script.signature", "VestRUM-5.script", "5", "current"}}[command]


def test_a_full_disk_is_named_and_leaves_the_old_set(shared_world):
    world = shared_world
    kit = f"{KIT} --home /srv/small/home"
    vendor.signature_folder(world.path("/srv/six"), 6)
    world.shell("mkdir /srv/small && mount -t tmpfs -o size=2m small /srv/small && cp -r /srv/vendor /srv/small/home")
    said = ("tarnwick-publish: the disk that holds /srv/small/home is full; nothing is half published\n"
            "tarnwick-publish: make room, then do the same again\n")
    outcome = None
    for free in range(0, 2000, 8):
        world.shell("head -c 4m /dev/zero >/srv/small/filling || "
                    f"truncate -s -{free * 1024} /srv/small/filling")
        outcome = world.command("sh", "-c", f"{kit} release /srv/six")
        world.shell("rm /srv/small/filling")
        assert "All is well" in world.shell(f"{kit} check"), (free, outcome)
        if outcome.status == 0:
            break
        assert outcome.status == 1 and outcome.stderr.endswith(said), (free, outcome)
    assert free > 0 and outcome.stdout.endswith("Released version 5 with 6 signatures.\n")
