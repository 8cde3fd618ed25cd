"""Servers that do not answer as they should, and how long they are borne."""

import re
from typing import NamedTuple

import pytest

from testbed import BAD_SERVERS, CONTENT, DATA, HERE, LINKS, MACINTOSH, MIRROR, NOBODY, SILENCE, redirect
from testbed.texts import (
    BANNER, BY_SCRIPTS, CONTAINER_CURRENT, CONTAINER_PATH, DEFINITIONS_ABSENT, DEFINITIONS_CURRENT,
    DEFINITIONS_DOWNLOADED, DEFINITIONS_INVALID, DEFINITIONS_PATH, DEFINITIONS_UNREACHABLE, DOWNLOAD_FAILED,
    FRESHCLAM_RUN, FULL_CONTAINER, FULL_DOWNLOADED, FULL_FAILED, LOCAL_1, NEED_FULL, SCRIPTED_PATH, SIGNATURE_FAILED,
    UNKNOWN_VERSION, VERSION_PATH, server_answered)

GET_VERSION, GET_CONTAINER = f"GET {VERSION_PATH}", f"GET {CONTAINER_PATH}"
GET_DEFINITIONS, HEAD_DEFINITIONS = f"GET {DEFINITIONS_PATH}", f"HEAD {DEFINITIONS_PATH}"


@pytest.mark.parametrize("server", BAD_SERVERS.values(), ids=BAD_SERVERS)
def test_nothing_of_a_bad_server_is_installed(new_world, server):
    new_world.freshclam(0)
    new_world.servers.turn_bad(server, GET_CONTAINER, GET_DEFINITIONS)
    # Only silence is waited for; whatever else is asked for must come in time.
    outcome = new_world.run(rate=12 if (server.answer or {}).get("hold") else None)
    container, database = NEED_FULL + FULL_FAILED, DEFINITIONS_INVALID
    errors = DOWNLOAD_FAILED * 2
    if server.address != HERE:
        database, errors = DEFINITIONS_UNREACHABLE, DOWNLOAD_FAILED + "tarnwick: Request failed! ERROR\n"
    if server.saved:
        container = NEED_FULL + FULL_DOWNLOADED + FULL_FAILED
        database = DEFINITIONS_DOWNLOADED + DEFINITIONS_INVALID
        container_status, database_status = (
            server_answered(server.saved, host, path) if server.saved != 200 else ""
            for host, path in ((LINKS, CONTAINER_PATH), (CONTENT, DEFINITIONS_PATH)))
        errors = container_status + SIGNATURE_FAILED + database_status
    assert (outcome.status, outcome.stdout, outcome.stderr, new_world.state()) == (
        0, BANNER + container + database + FRESHCLAM_RUN, errors, {})
    assert (new_world.litter(), new_world.shell(f"ls {DATA}")) == ("", "bytecode.cvd\ndaily.cvd\nmain.cvd\n")


class Silence(NamedTuple):
    request: str
    limit: int  # in seconds
    given_up: str
    borne: str = ""  # what follows from an answer that comes just in time


@pytest.mark.parametrize("silence", [
    Silence(GET_VERSION, 15, LOCAL_1 + UNKNOWN_VERSION + DEFINITIONS_CURRENT, borne="version number 3\n"),
    Silence(HEAD_DEFINITIONS, 15, DEFINITIONS_UNREACHABLE),
    Silence(GET_DEFINITIONS, 60, DEFINITIONS_INVALID, borne=DEFINITIONS_DOWNLOADED)],
    ids=lambda silence: silence.request)
def test_silence_is_borne_up_to_the_limit(world, silence):
    rate = 3 * silence.limit // 15  # so that what a busy machine adds stays small beside the limit
    in_time = {"body": "3", "pause": 0.8 * silence.limit / rate}
    for answer, said in ((in_time, silence.borne), (SILENCE, silence.given_up + FRESHCLAM_RUN)):
        world.freshclam(0)
        world.install(1 if silence.request == GET_VERSION else 3)
        if silence.request == GET_DEFINITIONS:
            world.remember({})
        world.servers.answer(silence.request, **answer)
        assert said in world.run(rate=rate).stdout
    assert 0.8 * silence.limit < world.servers.held_for() * rate < 1.5 * silence.limit


def test_whatever_arrives_is_life(world):
    world.servers.place(links=None, content=None)
    world.servers.stop()
    world.shell(f"printf '127.0.0.1 {LINKS}\n127.0.0.2 {LINKS}\n' >>/etc/hosts; echo multi on >/etc/host.conf")
    world.odd_server("slow", 8)
    assert "version number 3\n" in world.run(rate=8).stdout


@pytest.mark.parametrize("name, said", [("VestRUM-2.script", BY_SCRIPTS), ("VestRUM.cud", FULL_CONTAINER)])
def test_a_download_may_take_longer_than_its_links_live(world, name, said):
    world.hurry(20)
    world.install(1)
    if name == "VestRUM.cud":
        world.shell(f"rm {DATA}/VestRUM.cud")
    world.servers.answer(f"GET {SCRIPTED_PATH}/{name}", world.published(name), pause=0.5)
    outcome = world.run(rate=20)
    assert said in outcome.stdout and (outcome.stderr, world.version()) == ("", 3)


def test_a_text_has_ten_minutes_and_a_file_has_not(new_world):
    new_world.freshclam(0)
    for end in ("", ".signature"):
        body = new_world.published("VestRUM.cud" + end)
        new_world.servers.answer(GET_CONTAINER + end, body, pause=0.2, pieces=32)  # 640 seconds by the tool's clock
    raw = new_world.launch(rate=100).end()
    assert "\rDownloading VestRUM.cud [100%]\nFailed to download and/or verify VestRUM.cud\n" in raw.stdout
    assert (f"Error - The answer takes longer than allowed https://{LINKS}{CONTAINER_PATH}.signature\n"
            in raw.stderr)


def test_the_users_proxy_is_asked(world):
    world.install(1)
    outcome = world.run(env={"https_proxy": f"http://{NOBODY}:3128"})
    assert (outcome.status, outcome.stdout, world.servers.requests()) == (
        0, BANNER + LOCAL_1 + UNKNOWN_VERSION + DEFINITIONS_UNREACHABLE + FRESHCLAM_RUN, [])


def test_a_slow_transfer_is_waited_for_and_a_redirect_followed(new_world):
    body = new_world.container(3)
    new_world.freshclam(0)
    # Eighty seconds by the tool's clock, never ten without a byte.
    new_world.servers.answer("GET /slow", body, pause=0.5)
    new_world.servers.answer(GET_CONTAINER, **redirect(f"https://{MIRROR}/slow"))
    raw = new_world.launch(rate=20).end()
    assert (raw.status, new_world.version()) == (1, 3)
    shown = [int(percent) for percent in re.findall(r"Downloading VestRUM\.cud \[ *(\d+)%\]\r", raw.stdout)]
    steps = {100 * (index + 1) * (len(body) // 8) // len(body) for index in range(8)}
    assert len(shown) > 2 and shown == sorted(shown) and set(shown) <= steps | {100}
    assert "\rDownloading VestRUM.cud [100%]\nVestRUM.cud (version 3)" in raw.stdout


def test_user_agents_end_in_a_blank(world):
    """Which nginx would not show; and a HEAD request stays one when it is sent elsewhere."""
    server = world.odd_server("raw")
    world.servers.answer(HEAD_DEFINITIONS, **redirect(f"http://{MIRROR}/there"))
    assert CONTAINER_CURRENT + DEFINITIONS_ABSENT in world.run().stdout
    request = server.end().stdout.split("\r\n")
    assert request[0] == "HEAD /there HTTP/1.1"
    assert f"User-Agent: Tarnwick/2.19.4 {MACINTOSH} " in request
