"""Measures what a run costs in a private machine, beside the alternatives.

The figures depend on the computer and its load: quote the ratios.
"""

import os
import random
import statistics
import time

from testbed import BIN, DATA, LINKS, World

SCRIPTS = 100
FEW = 50
ROUNDS = 5
CONTAINER_MEGABYTES = 200

# A plain shell script for the same files: one curl, and so one connection, for each file.
CURL_LOOP = f"""
link() {{
    expiry=$(($(date +%s) + 60))
    token=$(printf '%s' "Kesto-Ra$1$expiry" | openssl md5 -binary | openssl base64 | tr '+/' '-_' | tr -d =)
    printf 'https://{LINKS}/%s/%s%s' "$token" "$expiry" "$1"
}}
mkdir -p /tmp/loop && cd /tmp/loop
curl -fsS -o version "$(link /VestRUM2/Scripted/VestRUM-db-version.txt)"
for n in $(seq 2 {SCRIPTS + 1}); do
    for file in VestRUM-$n.script VestRUM-$n.script.signature; do
        curl -fsS -o "$file" "$(link "/VestRUM2/Scripted/$file")"
    done
done
"""


def timed(action):
    start = time.monotonic()
    action()
    return time.monotonic() - start


def without_applying(world):
    """Replaces sigtool and clamscan by programs that do nothing, to time only fetching and verifying."""
    world.program("sigtool", "exit 0")
    world.program("clamscan", "exit 0")


def scripts_behind():
    with World(versions=SCRIPTS + 1) as world:
        world.freshclam(1)
        world.install(1)
        outcome = world.run()
        assert "Move VestRUM.cud into place" in outcome.stdout, outcome
        requests = [request for request in world.servers.requests() if request.host == LINKS]
        connections = {request.connection for request in requests}
        handshakes = {request.connection for request in requests if request.reused == "."}
        print(f"{SCRIPTS} scripts behind: {len(requests)} requests to the links host over "
              f"{len(connections)} connection(s), {len(handshakes)} full TLS handshake(s)")

        without_applying(world)
        ours, loop = [], []
        for _ in range(ROUNDS):
            world.install(1)
            world.freshclam(1)
            ours.append(timed(lambda: world.run("--quiet")))
            loop.append(timed(lambda: world.shell(CURL_LOOP)))
        ratio = statistics.median(theirs / our for our, theirs in zip(ours, loop))
        print(f"  fetching and verifying them takes {statistics.median(ours):.2f} s; one curl for each file, without "
              f"verifying, {statistics.median(loop):.2f} s: {ratio:.1f} times as long (median of {ROUNDS} pairs)")


def apply_each(world):
    world.shell("rm -rf /srv/each && mkdir /srv/each && cd /srv/each && sigtool --unpack=/srv/vendor/containers/1.cud")
    return timed(lambda: world.shell(f"""
        cd /srv/each && for n in $(seq 2 {FEW + 1}); do
            sigtool --run-cdiff=/srv/vendor/site/VestRUM2/Scripted/VestRUM-$n.script >/srv/applied
        done"""))


def one_more_script():
    """Compares what one more script adds to a run with a sigtool process for each script."""
    with World(versions=FEW + 1) as world:
        def run_from(version):
            world.install(version)
            world.freshclam(1)
            return timed(lambda: world.run("--quiet"))

        one, few = (min(run_from(version) for _ in range(ROUNDS * 2)) for version in (FEW, 1))
        alone = min(apply_each(world) for _ in range(ROUNDS * 2)) / FEW
        each = (few - one) / (FEW - 1)
        print(f"Each further script takes a run {each * 1000:.1f} ms to fetch, verify and apply. A sigtool process for "
              f"each script takes {alone * 1000:.1f} ms only to apply it, {alone / each:.1f} times as long "
              f"(fastest of {ROUNDS * 2} runs)")


def large_container():
    """Measures the peak memory for a container with one large member, which ClamAV ignores when it loads."""
    with World(versions=1) as world:
        world.freshclam(1)
        world.write(f"{BIN}/freshclam", "#!/bin/sh\ngrep VmHWM /proc/$(pgrep -x tarnwick)/status >/srv/peak\nexit 1\n",
                    0o755)
        work = world.path("/srv/large")
        work.mkdir()
        (work / "filling.bin").write_bytes(random.Random(1).randbytes(CONTAINER_MEGABYTES << 20))
        world.shell(f"""
            cd /srv/large
            sigtool --unpack=/srv/vendor/site/VestRUM2/Scripted/VestRUM.cud
            tar -cf ../large.tar.gz --use-compress-program='gzip -1' -- *
            md5=$(md5sum <../large.tar.gz | cut -c -32)
            line=$(head -n 1 VestRUM.info | sed "s/:X:X:/:$md5:X:/")
            {{ printf '%-512s' "$line"; cat ../large.tar.gz; }} >../VestRUM.cud
            cd /srv/vendor/site/VestRUM2/Scripted
            cp /srv/VestRUM.cud VestRUM.cud
            openssl dgst -sha1 -binary VestRUM.cud | openssl dgst -sha1 -sign /srv/vendor/private.pem |
                base64 -w0 >VestRUM.cud.signature""")
        outcome = world.run("--quiet")
        size = os.stat(world.path(f"{DATA}/VestRUM.cud")).st_size
        peak = int(world.path("/srv/peak").read_text().split()[1])
        print(f"A container of {size >> 20} MB fetched, verified and installed (status {outcome.status}): "
              f"peak memory of the tool {peak / 1024:.1f} MB")


if __name__ == "__main__":
    scripts_behind()
    one_more_script()
    large_container()
