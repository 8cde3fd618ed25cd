"""Publishing homes for the tests of the kit."""

import pathlib
import shutil
import tempfile

import pytest

from testbed import vendor


@pytest.fixture
def home(request):
    """Four versions and a definitions file are out, or as many versions as `@pytest.mark.versions(n)` says. It lies
    where a server could reach it, which neither pytest's folders nor every $TMPDIR do."""
    marker = request.node.get_closest_marker("versions")
    with tempfile.TemporaryDirectory(prefix="publishing-", dir="/tmp") as folder:
        pathlib.Path(folder).chmod(0o755)
        made = vendor.home(marker.args[0] if marker else 4)
        yield pathlib.Path(shutil.copytree(made, f"{folder}/home", symlinks=True))
