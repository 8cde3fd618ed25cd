"""The vendor's items: the definitions file, and a second, zipped item."""

import io
import zipfile
from typing import Callable, NamedTuple

import pytest

from testbed import BIN, CONTENT, DATA, TOOL, definitions_text
from testbed.machine import seen_inside
from testbed.texts import (
    BANNER, CONTAINER_CURRENT, DEFINITIONS_ABSENT, DEFINITIONS_CURRENT, DEFINITIONS_DOWNLOADED, DEFINITIONS_INVALID,
    DEFINITIONS_NEW, DEFINITIONS_PATH, DEFINITIONS_UNREACHABLE, DOWNLOAD_FAILED, FRESHCLAM_RUN, PUBLIC_TREE,
    REQUEST_FAILED, UP_TO_DATE_RUN, server_answered)
from testbed.world import EXECUTABLE, SHUT_WORK_FOLDER

PUBLISHED_DEFINITIONS = f"{PUBLIC_TREE}{DEFINITIONS_PATH}"


def answered(status, end=""):
    return server_answered(status, CONTENT, DEFINITIONS_PATH + end)


def dated(date):
    return {f"HEAD {DEFINITIONS_PATH}": {"headers": [f"Last-Modified: {date}"]}}


class Definitions(NamedTuple):
    said: str = DEFINITIONS_NEW
    stored: bool | None = True  # whether the state then has the new date (True), the old one (False) or none (None)
    left: int | None = 1  # the number of the text that is installed after the run
    errors: str = ""
    published: str | None = None  # a new text; text number 1 is installed before the run
    spoil: str | Callable = "true"
    answers: dict = {}  # of the servers


DEFINITIONS_CASES = {
    "busy": Definitions(DEFINITIONS_UNREACHABLE, False, errors=answered(503), answers={
        f"HEAD {DEFINITIONS_PATH}": {"status": "503 Later"}}),
    "no answer": Definitions(DEFINITIONS_UNREACHABLE, False, errors=REQUEST_FAILED,
                             spoil=lambda world: world.servers.drop(f"HEAD {DEFINITIONS_PATH}")),
    "without a date": Definitions(stored=None, errors=f"tarnwick: https://{CONTENT}{DEFINITIONS_PATH} has no "
                                  "Last-Modified, so that every run installs it\n",
                                  answers={f"HEAD {DEFINITIONS_PATH}": {}}),
    "a date that is too long": Definitions(stored=None, answers=dated("x" * 70_000)),
    "a date that grows too long": Definitions(stored=None, answers=dated("&" * 14_000)),
    "not there": Definitions(DEFINITIONS_ABSENT, False, spoil=f"rm -r {PUBLISHED_DEFINITIONS}"),
    "same": Definitions(DEFINITIONS_CURRENT),
    "same but lost": Definitions(spoil=f"rm {DATA}/Vestrum.database"),
    "half a pair": Definitions(spoil=f"rm {DATA}/Vestrum.database.signature"),
    "new": Definitions(left=2, published=definitions_text(2)),
    "new, and the scanner rejects everything": Definitions(left=2, published=definitions_text(2),
                                                     spoil=f"ln -sf /bin/false {BIN}/clamscan"),
    "unsigned": Definitions(DEFINITIONS_DOWNLOADED + DEFINITIONS_INVALID, False, published=definitions_text(2),
                            answers={f"GET {DEFINITIONS_PATH}.signature": {"body": "bm9wZQ=="}}),
    "answered with pages": Definitions(
        DEFINITIONS_DOWNLOADED + DEFINITIONS_INVALID, False, errors=answered(500) + answered(404, ".signature"),
        published=definitions_text(2), spoil=f"rm {PUBLISHED_DEFINITIONS}.signature",
        answers={f"GET {DEFINITIONS_PATH}": {"status": "500 Sorry"}}),
    "signature empty": Definitions(DEFINITIONS_DOWNLOADED + DEFINITIONS_INVALID, False, published=definitions_text(2),
                                   answers={f"GET {DEFINITIONS_PATH}.signature": {}}),
    "empty and not signed": Definitions(DEFINITIONS_DOWNLOADED + DEFINITIONS_INVALID, False,
                                        published=definitions_text(2), answers={f"GET {DEFINITIONS_PATH}": {}}),
    "withdrawn": Definitions(
        DEFINITIONS_DOWNLOADED + "Vestrum.database is valid and has file size: 0 bytes\n"
        "Downloaded file is deliberately empty, delete Vestrum.database from defs db directory.\n",
        left=None, published=""),
    "signature that cannot be written": Definitions(
        stored=None, left=2, published=definitions_text(2),
        errors=f"tarnwick: Cannot write {DATA}/Vestrum.database.signature: Device or resource busy\n",
        spoil=f"cd {DATA}; mount --bind Vestrum.database.signature Vestrum.database.signature"),
    "no room": Definitions(DEFINITIONS_INVALID, False, 1, DOWNLOAD_FAILED, definitions_text(2), SHUT_WORK_FOLDER),
}


def text_of(world, name):
    file = world.path(f"{DATA}/{name}")
    return file.read_text() if file.exists() else None


@pytest.mark.parametrize("row", DEFINITIONS_CASES.values(), ids=DEFINITIONS_CASES)
def test_each_state_of_the_servers_leads_to_its_definitions(world, row):
    before = world.state()
    if row.published is not None:
        world.publish_definitions(row.published)
    world.spoil(row.spoil, row.answers)
    after = before if row.stored is False else {}
    if row.stored:
        after = {"database-Last-Modified": world.modified("Vestrum.database")}
    outcome = world.run()
    assert outcome.stdout == BANNER + CONTAINER_CURRENT + row.said + FRESHCLAM_RUN
    assert (outcome.status, outcome.stderr, world.state()) == (
        int(row.stored is not False and row.said != DEFINITIONS_CURRENT), row.errors, after)
    assert text_of(world, "Vestrum.database") == (row.left and definitions_text(row.left))


def archive(*names, text=definitions_text(2)):
    """A zip archive of files, and of folders where a name ends in a slash."""
    stream = io.BytesIO()
    with zipfile.ZipFile(stream, "w", zipfile.ZIP_DEFLATED) as made:
        for name in names:
            made.writestr(name, "" if name.endswith("/") else text)
    return stream.getvalue()


def test_a_withdrawn_file_is_not_downloaded_again(world):
    world.publish_definitions("")
    assert world.run().status == 1
    again = world.run()
    assert (again.status, again.stdout) == (0, UP_TO_DATE_RUN)
    assert world.shell(f"cd {DATA} && ls -d V*") == "VestRUM.cud\n"


SECOND = "Vestrum.second.ndb"
SECOND_INSTALLED = f"DB integrity check is sound. Move {SECOND} into place\n"
SPOILT = f"DB integrity check failed. Deleting the new {SECOND} file.\n"
EMPTY = f"Downloaded file is deliberately empty, delete {SECOND} from defs db directory.\n"


@pytest.fixture(name="two_items")
def world_of_two_items(world):
    """A world whose tool differs by one row in its table of items."""
    world.shell(f"cp {seen_inside(EXECUTABLE.parent / 'tests/unit/tarnwick_two_items')} {TOOL}")
    return world


class ZippedItem(NamedTuple):
    published: bytes = archive(SECOND)
    said: str = SPOILT
    left: int | None = 1  # the number of the text that is installed after the run; before it, 1 is
    spoil: str = "true"


ZIPPED_ITEMS = {
    "sound": ZippedItem(said=SECOND_INSTALLED, left=2),
    "with a warning": ZippedItem(b"more" + archive(SECOND)),
    "of something else": ZippedItem(archive("Vestrum.other"), EMPTY, None),
    "of an empty file": ZippedItem(archive(SECOND, text=""), EMPTY, None),
    "of a folder": ZippedItem(archive(SECOND + "/")),
    "cut off": ZippedItem(archive(SECOND)[:-30]),
    "no unzip": ZippedItem(spoil="mount --bind /dev/null /usr/bin/unzip"),
    "disk full": ZippedItem(archive(SECOND, text="x" * 3_000_000), spoil="mount -t tmpfs -o size=1m tmp /tmp"),
    "left behind": ZippedItem(archive("Vestrum.other"), EMPTY, None,
                              f"mkdir -m 700 /tmp/tarnwick-0; echo unsigned >/tmp/tarnwick-0/{SECOND}"),
}


@pytest.mark.parametrize("row", ZIPPED_ITEMS.values(), ids=ZIPPED_ITEMS)
def test_a_zipped_item_is_installed_only_if_it_is_sound(two_items, row):
    world = two_items
    world.write(f"{DATA}/{SECOND}", definitions_text(1))
    remembered = world.state() | {"second.ndb-Last-Modified": "some date"}
    world.remember(remembered)
    world.publish_item(f"{SECOND}.zip", row.published)
    world.shell(row.spoil)
    outcome = world.run()
    assert (outcome.status, outcome.stdout) == (
        int(row.said != SPOILT), BANNER + CONTAINER_CURRENT + DEFINITIONS_CURRENT +
        f"Downloading {SECOND} [100%]\n{SECOND}.zip is valid and has file size: {len(row.published)} bytes\n{row.said}"
        + FRESHCLAM_RUN)
    if row.said != SPOILT:
        remembered["second.ndb-Last-Modified"] = world.modified(f"{SECOND}.zip")
    assert world.state() == remembered
    assert text_of(world, SECOND) == (row.left and definitions_text(row.left))
    assert not world.path(f"/tmp/tarnwick-0/{SECOND}.zip").exists()


def test_a_second_item_is_remembered_reported_and_wiped(two_items):
    world = two_items
    world.publish_item(f"{SECOND}.zip", archive(SECOND))
    assert SECOND_INSTALLED in world.run().stdout
    world.servers.requests()
    world.shell(f"mkdir -m 700 /tmp/tarnwick-0; echo left >/tmp/tarnwick-0/{SECOND}")
    second = world.run()
    assert world.litter() == ""
    assert (second.status, second.stdout) == (
        0, BANNER + CONTAINER_CURRENT + DEFINITIONS_CURRENT + f"{SECOND} is already up to date.\n" + FRESHCLAM_RUN)
    assert [request.method for request in world.servers.requests() if request.path.endswith(".zip")] == ["HEAD"]
    assert f"\n{SECOND} updated 20" in world.run("--version").stdout
    world.shell(f"rm {PUBLIC_TREE}/VestRUM2/{SECOND}.zip*")
    assert f"Nothing to download for {SECOND}.zip\n" in world.run("--remove-old-first").stdout
    assert text_of(world, SECOND) is None
