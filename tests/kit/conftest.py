"""The kit is tested in the same private machines as the program."""

import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "end_to_end"))


@pytest.fixture(scope="module")
def world():
    from world import World  # pylint: disable=import-outside-toplevel

    with World(versions=4) as made:
        yield made


def pytest_configure(config):
    config.addinivalue_line("markers", "versions(n): how many versions of the container the vendor has out")
