"""Servers that give wrong, late or no answers."""

import re
from typing import NamedTuple

import pytest

from testbed import BAD_SERVERS, CONTENT, DATA, HERE, LINKS, MACINTOSH, MIRROR, NOBODY, SILENCE, redirect
from testbed.texts import (
    BANNER, BY_SCRIPTS, CONTAINER_CURRENT, CONTAINER_PATH, DEFINITIONS_ABSENT, DEFINITIONS_CURRENT,
    DEFINITIONS_DOWNLOADED, DEFINITIONS_INVALID, DEFINITIONS_PATH, DEFINITIONS_UNREACHABLE, DOWNLOAD_FAILED,
    FRESHCLAM_RUN, FULL_CONTAINER, FULL_DOWNLOADED, FULL_FAILED, LOCAL_1, NEED_FULL, REQUEST_FAILED, SCRIPTED_PATH,
    SIGNATURE_FAILED, UNKNOWN_VERSION, VERSION_PATH, server_answered)

GET_VERSION, GET_CONTAINER = f"GET {VERSION_PATH}", f"GET {CONTAINER_PATH}"
GET_DEFINITIONS, HEAD_DEFINITIONS = f"GET {DEFINITIONS_PATH}", f"HEAD {DEFINITIONS_PATH}"


@pytest.mark.parametrize("server", BAD_SERVERS.values(), ids=BAD_SERVERS)
def test_nothing_from_a_bad_server_is_installed(new_world, server):
    new_world.freshclam(0)
    new_world.servers.turn_bad(server, GET_CONTAINER, GET_DEFINITIONS)
    # Faster clocks only where the run waits for a silent server; other requests need their normal time limits.
    outcome = new_world.run(rate=12 if (server.answer or {}).get("hold") else None)
    container, database = NEED_FULL + FULL_FAILED, DEFINITIONS_INVALID
    errors = DOWNLOAD_FAILED * 2
    if server.address != HERE:
        database, errors = DEFINITIONS_UNREACHABLE, DOWNLOAD_FAILED + REQUEST_FAILED
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
    limit: int  # the time limit of the request, in seconds
    given_up: str  # the output after the time limit
    in_time: str = ""  # the output after an answer that comes just in time


@pytest.mark.parametrize("silence", [
    Silence(GET_VERSION, 15, LOCAL_1 + UNKNOWN_VERSION + DEFINITIONS_CURRENT, in_time="version number 3\n"),
    Silence(HEAD_DEFINITIONS, 15, DEFINITIONS_UNREACHABLE),
    Silence(GET_DEFINITIONS, 60, DEFINITIONS_INVALID, in_time=DEFINITIONS_DOWNLOADED)],
    ids=lambda silence: silence.request)
def test_a_run_waits_for_a_silent_server_up_to_the_limit(world, silence):
    rate = 3 * silence.limit // 15  # slow enough that delays of a busy machine are small against the limit
    answer_in_time = {"body": "3", "pause": 0.8 * silence.limit / rate}
    for answer, said in ((answer_in_time, silence.in_time), (SILENCE, silence.given_up + FRESHCLAM_RUN)):
        world.freshclam(0)
        world.install(1 if silence.request == GET_VERSION else 3)
        if silence.request == GET_DEFINITIONS:
            world.remember({})
        world.servers.answer(silence.request, **answer)
        assert said in world.run(rate=rate).stdout
    assert 0.8 * silence.limit < world.servers.held_for() * rate < 1.5 * silence.limit


def test_any_received_byte_counts_as_activity(world):
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


def test_a_text_must_end_within_ten_minutes_but_a_file_need_not(new_world):
    new_world.freshclam(0)
    for end in ("", ".signature"):
        body = new_world.published("VestRUM.cud" + end)
        new_world.servers.answer(GET_CONTAINER + end, body, pause=0.2, pieces=32)  # 640 seconds by the tool's clock
    raw = new_world.launch(rate=100).end()
    assert "\rDownloading VestRUM.cud [100%]\nFailed to download and/or verify VestRUM.cud\n" in raw.stdout
    assert (f"Error - The answer takes longer than allowed https://{LINKS}{CONTAINER_PATH}.signature\n"
            in raw.stderr)


def test_requests_go_to_the_users_proxy(world):
    world.install(1)
    outcome = world.run(env={"https_proxy": f"http://{NOBODY}:3128"})
    assert (outcome.status, outcome.stdout, world.servers.requests()) == (
        0, BANNER + LOCAL_1 + UNKNOWN_VERSION + DEFINITIONS_UNREACHABLE + FRESHCLAM_RUN, [])


def test_a_slow_download_shows_its_progress_after_a_redirect(new_world):
    body = new_world.container(3)
    new_world.freshclam(0)
    # Takes eighty seconds by the tool's clock, but a piece comes every ten.
    new_world.servers.answer("GET /slow", body, pause=0.5)
    new_world.servers.answer(GET_CONTAINER, **redirect(f"https://{MIRROR}/slow"))
    raw = new_world.launch(rate=20).end()
    assert (raw.status, new_world.version()) == (1, 3)
    shown = [int(percent) for percent in re.findall(r"Downloading VestRUM\.cud \[ *(\d+)%\]\r", raw.stdout)]
    steps = {100 * (index + 1) * (len(body) // 8) // len(body) for index in range(8)}
    assert len(shown) > 2 and shown == sorted(shown) and set(shown) <= steps | {100}
    assert "\rDownloading VestRUM.cud [100%]\nVestRUM.cud (version 3)" in raw.stdout


def test_a_user_agent_ends_in_a_blank_and_a_redirected_head_request_stays_one(world):
    """The odd server prints the request; nginx would not log the blank."""
    server = world.odd_server("raw")
    world.servers.answer(HEAD_DEFINITIONS, **redirect(f"http://{MIRROR}/there"))
    assert CONTAINER_CURRENT + DEFINITIONS_ABSENT in world.run().stdout
    request = server.end().stdout.split("\r\n")
    assert request[0] == "HEAD /there HTTP/1.1"
    assert f"User-Agent: Tarnwick/2.19.4 {MACINTOSH} " in request
