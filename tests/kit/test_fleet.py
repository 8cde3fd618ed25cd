"""Fleets of real runs against two servers, compared with the simulation."""

import os
import re
import subprocess
import sys

from testbed import CONTENT, HERE, LINKS, NOBODY, REPOSITORY
from testbed.vendor import KIT

STORY = """\
20 machines, 8 at a time: 11 up to date, 2 new, the others up to 5 versions behind the 6 that are out; 3 scripts are \
kept.
Server two died while version 7 was pushed. The push said:
  Not pushed: two:/srv/two: connect to host two: No route to host
  Pushed: one:/srv/one serves version 7
  tarnwick-publish: version 7 is on 1 of 2 servers; push again when the others are well
After 2 hours 20 of 20 machines are at version 7.
Whole containers: N. The simulation says 2, and at most N more for the runs that were under way when server one \
changed and server two died.
Server two is back, and the next push says: Version 7 is on 2 servers.
"""


def fleet(*arguments):
    """Runs the bench; it fails if the fleet fetches more containers than the simulation allows."""
    outcome = subprocess.run([sys.executable, REPOSITORY / "bench/fleet.py", *arguments], capture_output=True,
                             text=True, check=False, env=os.environ | {"PYTHONPATH": str(REPOSITORY)})
    assert outcome.returncode == 0, outcome
    return outcome.stdout


def test_a_server_dies_while_a_release_is_pushed():
    said = fleet("--machines", "20", "--versions", "6", "--kept", "3")
    assert re.sub(r"(containers: |at most )\d+", r"\1N", said) == STORY


EDGE_SETTINGS = {"listen 443": f"listen {NOBODY}:443", "links.example.org content.example.org": f"{LINKS} {CONTENT}",
          "/etc/ssl/example.pem": "/srv/vendor/tls/certificate.pem", "Your-Own": "Kesto-Ra",
          "/etc/ssl/private/example.key": "/srv/vendor/tls/key.pem", "https://origin.example.org": f"https://{HERE}",
          "/var/cache/nginx/vendor": "/srv/edge/kept"}
EDGE = """user root; pid /srv/edge/pid; events { } http { access_log off; proxy_temp_path /srv/edge/proxy;
client_body_temp_path /srv/edge/body; fastcgi_temp_path /srv/edge/fastcgi; uwsgi_temp_path /srv/edge/uwsgi;
scgi_temp_path /srv/edge/scgi; %s }"""


def start_edge(world):
    """Starts a proxy between machines and vendor, with the configuration that the document shows."""
    document = (REPOSITORY / "publish/FLEET.md").read_text(encoding="utf-8")
    configuration = re.search(r"(?ms)^    proxy_cache_path .*?^    }\n", document)[0]
    for shown, here in EDGE_SETTINGS.items():
        assert shown in configuration
        configuration = configuration.replace(shown, here)
    world.write("/srv/edge/nginx.conf", EDGE % configuration)
    world.shell("nginx -c /srv/edge/nginx.conf -e /srv/edge/errors")
    world.servers.place(links=NOBODY, content=NOBODY)


def fetched_from_origin(world):
    return [request.path.rpartition("/")[2] for request in world.servers.requests()]


def test_an_edge_serves_runs_from_its_cache(world):
    start_edge(world)
    world.freshclam(0)
    world.install(1)
    assert (world.run("--quiet").status, world.version()) == (0, 3)
    scripts = [f"VestRUM-{number}.script{end}" for number in (2, 3) for end in ("", ".signature")]
    assert fetched_from_origin(world) == ["VestRUM-db-version.txt", *scripts, "Vestrum.database"]
    # The links of `check` expire later than those of a run, so they differ, and the edge still serves its copies.
    check = (KIT, "--home", "/srv/vendor", "check", "--from", f"https://{NOBODY}")
    assert world.command(*check).stdout == "All is well: version 3 from 1 server.\n"
    assert not set(fetched_from_origin(world)) & set(scripts)

    world.release(4)
    # For a second, the edge may serve any mixture of old and new files.
    while (outcome := world.command(*check)).status:
        assert outcome.stdout.startswith("Damaged: "), outcome
    assert outcome.stdout == "All is well: version 4 from 1 server.\n"
