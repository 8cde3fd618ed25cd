"""Attackers between the machine and the vendor, or on a mirror with a valid certificate: nothing that they send can
install a file that the vendor did not sign, or keep a run from ending."""

import typing

import pytest

from testbed import BIN, DATA, IMPOSTOR, NAMESAKE, ORIGIN, PREFIX, TOOL, World, redirect
from testbed.odd_servers import ENDLESS
from testbed.texts import (
    BANNER, CONTAINER_PATH, DEFINITIONS_CURRENT, FRESHCLAM_RUN, FROM_1_TO_3, FULL_CONTAINER, FULL_DOWNLOADED,
    FULL_FETCHED, FULL_REJECTED, LOCAL_1, NEED_FULL, NEWER, SCRIPTED_PATH, SCRIPTS, SCRIPT_FAILED, UNKNOWN_VERSION,
    VERSION_PATH)

ODD_SERVER = "127.0.0.4"


def outside(world):
    return world.shell(f"find /etc {BIN} {PREFIX}/etc {TOOL} -type f -exec sha256sum {{}} + | sort")


def swap_scripts(world):
    for name in ("VestRUM-2.script", "VestRUM-2.script.signature"):
        world.servers.answer(f"GET {SCRIPTED_PATH}/{name}", world.published(name.replace("2", "3")))


def no_container(world):
    world.shell(f"rm {DATA}/VestRUM.cud")


def give_definitions_for_container(world):
    no_container(world)
    for end in ("", ".signature"):
        world.servers.answer(f"GET {CONTAINER_PATH}{end}", world.published(f"../Vestrum.database{end}"))


def give_an_old_container(world):
    no_container(world)
    world.write("/srv/old", world.container(1))
    world.shell("cd /srv; openssl dgst -sha1 -binary old | openssl dgst -sha1 -sign vendor/private.pem | "
                "base64 >old.signature")
    for end in ("", ".signature"):
        world.servers.answer(f"GET {CONTAINER_PATH}{end}", world.path(f"/srv/old{end}").read_bytes())


def give_an_older_container(world):
    give_an_old_container(world)
    world.install(2)
    world.servers.drop(f"GET {SCRIPTED_PATH}/VestRUM-3.script")


class Answers(typing.NamedTuple):
    give: typing.Callable[[World], None]
    said: str
    version: int = 3  # installed in the end
    older: bool = False  # whether the platform log must say that it is older than the installed one


MIRROR_ANSWERS = {
    "a genuine script under the name of another": Answers(swap_scripts, FROM_1_TO_3 + SCRIPTS + FULL_CONTAINER),
    "a genuine file that is no container": Answers(
        give_definitions_for_container, NEED_FULL + FULL_DOWNLOADED + FULL_REJECTED, 0),
    # Signatures do not cover a version, so they cannot prevent this.
    "a genuine container of long ago": Answers(
        give_an_old_container, FULL_CONTAINER.replace("version 3", "version 1"), 1),
    "a genuine container older than the installed one": Answers(
        give_an_older_container, NEWER.format(local=2, available=3)
        + SCRIPT_FAILED.format(3) + NEED_FULL
        + FULL_FETCHED.replace("version 3", "version 1"), 1, older=True),
    "control characters as a version": Answers(
        lambda world: world.servers.answer(f"GET {VERSION_PATH}", "\x1b[2J\u009bx\x7f\b\0é\t:\v1\r\n"),
        LOCAL_1 + "version number ?[2J?x???é\t:?1\nAvailable version 1\nVestRUM.cud file is up-to-date\n", 1),
}
OLDER = ("tarnwick: The whole VestRUM.cud (version 1) is older than the installed one (version 2), which it "
         "replaces\n")


@pytest.mark.parametrize("name", MIRROR_ANSWERS)
def test_a_mirror_can_only_serve_what_the_vendor_signed(world, name):
    world.install(1)
    answers = MIRROR_ANSWERS[name]
    answers.give(world)
    before = outside(world)
    outcome = world.run()
    assert (outcome.status, outcome.stdout, world.version()) == (
        0, BANNER + answers.said + DEFINITIONS_CURRENT + FRESHCLAM_RUN, answers.version)
    assert (OLDER in outcome.stderr, "older" in outcome.stderr) == (answers.older, answers.older)
    assert outside(world) == before and world.litter() == ""


@pytest.mark.parametrize("name", ENDLESS)
def test_a_run_ends_an_answer_without_end(world, name):
    """For a download and for a text. The odd server answers directly, because nginx would not forward such answers."""
    world.servers.place(origin=ODD_SERVER)
    server = world.odd_server("endless", ODD_SERVER, name)
    for path, said in ((f"{SCRIPTED_PATH}/VestRUM-2.script", FROM_1_TO_3 + SCRIPT_FAILED.format(2) + FULL_CONTAINER),
                       (VERSION_PATH, LOCAL_1 + UNKNOWN_VERSION)):
        world.install(1)
        world.servers.answer(f"GET {path}", **redirect(f"https://{ORIGIN}/"))
        outcome = world.run()
        assert (outcome.status, outcome.stdout) == (0, BANNER + said + DEFINITIONS_CURRENT + FRESHCLAM_RUN)
        assert int(server.read_until("\n")) < 20_000_000


@pytest.mark.parametrize("impostor", [IMPOSTOR, NAMESAKE])
def test_a_host_without_a_valid_certificate_is_sent_no_request(world, impostor):
    world.freshclam(52, 52)
    world.install(1)
    world.servers.place(content=impostor, links=impostor, mirror=impostor, database=impostor)
    before = outside(world), world.shell(f"cd {DATA}; sha256sum *")
    assert world.run().status == 52
    assert (outside(world), world.shell(f"cd {DATA}; sha256sum *")) == before
    assert world.servers.requests() == []


LOCAL_AUTHORITY, AUTHORITIES = "/usr/local/share/ca-certificates/ours.crt", "/etc/ssl/certs/ca-certificates.crt"
UPDATE = "update-ca-certificates"


def test_authorities_come_and_go_with_update_ca_certificates(world):
    world.write("/srv/authority.pem", world.path(AUTHORITIES).read_bytes())
    world.shell("""
        rm /etc/ssl/certs/*; mkdir -p /usr/local/share/ca-certificates; : >/etc/ca-certificates.conf
        for name in one two three; do
            openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 9 -subj /CN=$name \
                -keyout /srv/key -out /usr/local/share/ca-certificates/$name.crt
        done""")
    for change, accepted in (
            (UPDATE, False),
            (f"cp /srv/authority.pem {LOCAL_AUTHORITY}; {UPDATE}", True),
            (f"rm {LOCAL_AUTHORITY}; {UPDATE}", False),
            # Hashed names leave out a file with several certificates.
            (f"cat /srv/authority.pem /usr/local/share/ca-certificates/one.crt >{LOCAL_AUTHORITY}; {UPDATE}",
             True),
            (f"rm {LOCAL_AUTHORITY}; {UPDATE}", False),
            (f"cat /srv/authority.pem >>{AUTHORITIES}", True)):
        world.install(1)
        world.shell(change)
        assert (SCRIPTS in world.run().stdout) == accepted, change
