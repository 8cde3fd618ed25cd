"""Worlds and publishing homes for the tests; the world of a test that failed is kept."""

import os
import pathlib
import re
import shutil
import tempfile
import threading

import pytest

from testbed import REPOSITORY, World, vendor

# Seconds, on a busy machine; nothing here waits for more than events that come at once.
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
    """A world of the test's own, in which nothing is installed yet and freshclam is the real one. Three versions are
    out, or as many as `@pytest.mark.versions(n)` says."""
    marker = request.node.get_closest_marker("versions")
    with World(marker.args[0] if marker else 3) as made:
        # The end of its machine ends every wait of a test that has got stuck.
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
    """The same with the third version installed, and a stand-in for freshclam that is always content."""
    new_world.install(3)
    new_world.freshclam(*[0] * 99)
    return new_world


@pytest.fixture(scope="module")
def shared_world():
    """One world for all tests of a file, each of which prepares what it needs. Four versions are out."""
    with World(versions=4) as made:
        yield made


@pytest.fixture
def home(request):
    """Four versions and a definitions file are out, or as many versions as `@pytest.mark.versions(n)` says. It lies
    where a server could reach it, which neither pytest's folders nor every $TMPDIR do."""
    marker = request.node.get_closest_marker("versions")
    with tempfile.TemporaryDirectory(prefix="publishing-", dir="/tmp") as folder:
        pathlib.Path(folder).chmod(0o755)
        made = vendor.home(marker.args[0] if marker else 4)
        yield pathlib.Path(shutil.copytree(made, f"{folder}/home", symlinks=True))
