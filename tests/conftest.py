"""Fixtures: worlds and publishing homes. If a test fails, its world is kept for examination."""

import os
import pathlib
import re
import shutil
import tempfile
import threading

import pytest

from testbed import REPOSITORY, World, vendor

# Seconds. Tests wait only for events that come at once, so this matters only on a very busy machine.
LONGEST_TEST = int(os.environ.get("TARNWICK_TEST_LIMIT", "240"))


def kept(item):
    return REPOSITORY / "build" / "failed-worlds" / re.sub(r"\W+", "-", item.name)


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    report = (yield).get_result()
    world = getattr(item, "funcargs", {}).get("new_world")
    if call.when == "call" and report.failed and world:
        world.keep(kept(item))
        report.sections.append(("The world of this test", f"is kept in {kept(item)}"))
        if world.ended_by_watchdog:
            said = f"ended after {LONGEST_TEST} s: is this machine overloaded? TARNWICK_TEST_LIMIT=SECONDS gives more"
            report.longrepr.reprcrash.message = said  # which the summary shows
            report.sections.append(("The watchdog", f"This test's machine was {said}."))


@pytest.fixture
def new_world(request):
    """A world for one test: nothing is installed yet, and freshclam is the real one. Three versions are published, or
    as many as `@pytest.mark.versions(n)` says."""
    marker = request.node.get_closest_marker("versions")
    with World(marker.args[0] if marker else 3) as made:
        # Killing the machine ends every wait of a test that hangs.
        def end():
            made.ended_by_watchdog = True
            made.keep(kept(request.node))
            made.kill()

        made.ended_by_watchdog = False
        watchdog = threading.Timer(LONGEST_TEST, end)
        watchdog.start()
        yield made
        watchdog.cancel()


@pytest.fixture
def world(new_world):
    """The same with version 3 installed, and a stand-in for freshclam that always ends with status 0."""
    new_world.install(3)
    new_world.freshclam(*[0] * 99)
    return new_world


@pytest.fixture(scope="module")
def shared_world():
    """One world for all tests of a file; each test prepares what it needs. Four versions are published."""
    with World(versions=4) as made:
        yield made


@pytest.fixture
def home(request):
    """A publishing home with four versions, or as many as `@pytest.mark.versions(n)` says, and a definitions file. It
    is in /tmp, where nginx could read it; it could not in pytest's folders or in every $TMPDIR."""
    marker = request.node.get_closest_marker("versions")
    with tempfile.TemporaryDirectory(prefix="publishing-", dir="/tmp") as folder:
        pathlib.Path(folder).chmod(0o755)
        made = vendor.home(marker.args[0] if marker else 4)
        yield pathlib.Path(shutil.copytree(made, f"{folder}/home", symlinks=True))
