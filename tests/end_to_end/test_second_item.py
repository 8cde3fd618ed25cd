"""A vendor publishes one file more: a row in the table of items is all that takes."""

import io
import zipfile

from testbed import DATA, TOOL, definitions_text
from testbed.machine import seen_inside
from testbed.transcripts import BANNER, CURRENT, FRESHCLAM, UNCHANGED
from testbed.world import EXECUTABLE

NAME = "Vestrum.second.ndb"
SITE = f"/srv/vendor/site/VestRUM2/{NAME}.zip"


def test_a_row_is_swept_updated_remembered_reported_and_wiped(world):
    world.install(3)
    world.freshclam(0, 0, 0)
    world.shell(f"cp {seen_inside(EXECUTABLE.parent / 'tests/unit/tarnwick_two_items')} {TOOL}")
    packed = io.BytesIO()
    with zipfile.ZipFile(packed, "w") as archive:
        archive.writestr(NAME, definitions_text(2))
    world.write(SITE, packed.getvalue())
    world.shell(f"openssl dgst -sha1 -binary {SITE} | openssl dgst -sha1 -sign /srv/vendor/private.pem | base64 -w0 "
                f">{SITE}.signature; mkdir -m 700 /tmp/tarnwick-0; echo left >/tmp/tarnwick-0/{NAME}")
    first = world.run()
    assert (first.status, first.stdout) == (1, BANNER + CURRENT + UNCHANGED + (
        f"Downloading {NAME} [100%]\n{NAME}.zip is valid and has file size: {len(packed.getvalue())} bytes\n"
        f"DB integrity check is sound. Move {NAME} into place\n") + FRESHCLAM)
    assert world.log(f"{DATA}/{NAME}") == definitions_text(2) and world.litter() == ""
    assert world.state() == {"database-Last-Modified": world.modified("Vestrum.database"),
                             "second.ndb-Last-Modified": world.modified(f"{NAME}.zip")}
    world.servers.requests()
    second = world.run()
    assert (second.status, second.stdout) == (
        0, BANNER + CURRENT + UNCHANGED + f"{NAME} is already up to date.\n" + FRESHCLAM)
    assert [request.method for request in world.servers.requests() if request.path.endswith(".zip")] == ["HEAD"]
    assert f"\n{NAME} updated 20" in world.run("--version").stdout
    world.shell(f"rm {SITE}*")
    assert f"Nothing to download for {NAME}.zip\n" in world.run("--remove-old-first").stdout
    assert not world.path(f"{DATA}/{NAME}").exists()
