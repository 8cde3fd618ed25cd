"""Measures what one core of a server carries, from nginx's processor time for the requests of one run.

A run costs its own machine far more than the server. A light client therefore repeats the requests that nginx has
logged, and real runs are compared with that.
"""

import hashlib
import pathlib
import re
import shutil
import statistics
import subprocess
import tempfile
import time

from fleet_site import ADDRESSES, Server, Site, hosts_file
from testbed.cache import made_once
from testbed.machine import seen_inside
from testbed.servers import LINKS
from testbed.vendor import HOME, PUBLISHER, definitions_text, publish
from testbed.world import BIN, DATA, STATE, TOOL

HERE = pathlib.Path(__file__).resolve().parent
REPLAY = HERE / "fleet_replay.cpp"
SIGNATURES, ADDED, VERSIONS = 100_000, 200, 51
SECRET = "Kesto-Ra"
REAL_RUNS, ROUNDS, SECONDS, THREADS = 30, 5, 2, 8
SERVER_CORE, LOAD_CORE = 0, 1
# The installed version when VERSIONS are published; 0 means no container.
SITUATIONS = {"nothing new": VERSIONS, "one script behind": VERSIONS - 1, "fifty behind": VERSIONS - 50,
              "a new machine": 0}


def signature_lines(count):
    return "".join(f"{hashlib.md5(str(number).encode()).hexdigest()}:{1000 + number % 5000}:Vestrum.Sample-{number}\n"
                   for number in range(count))


def make_home(folder):
    shutil.copytree(HOME, folder, symlinks=True, dirs_exist_ok=True)
    (folder / "containers").mkdir()
    with tempfile.TemporaryDirectory(prefix="fleet-home-") as name:
        sources = pathlib.Path(name)
        (sources / "signatures").mkdir()
        for version in range(1, VERSIONS + 1):
            lines = signature_lines(SIGNATURES + ADDED * version)
            (sources / "signatures/threats.hdb").write_text(lines, encoding="ascii")
            publish(folder, "release", sources / "signatures").check_returncode()
            if version in SITUATIONS.values():
                shutil.copy(folder / "site/VestRUM2/Scripted/VestRUM.cud", folder / f"containers/{version}.cud")
        (sources / "definitions").write_text(definitions_text(), encoding="ascii")
        publish(folder, "definitions", sources / "definitions").check_returncode()


def make_replay(folder):
    subprocess.run(["g++", "-std=c++20", "-O2", "-o", folder / "replay", REPLAY, "-lssl", "-lcrypto"], check=True)


def install(site, version):
    """Leaves what an earlier run would have left; version 0 leaves a new machine."""
    site.shell(f"rm -rf {DATA}/Ves* {STATE}")
    if version:
        site.write(f"{DATA}/VestRUM.cud", site.container(version))
        # The definitions file and the state of an earlier run; they are the same for all versions.
        site.shell(f"cp -L /srv/vendor/site/VestRUM2/Vestrum.database* {DATA}; cp /srv/state {STATE}")


def run(site):
    outcome = site.command("taskset", "-c", LOAD_CORE, TOOL, "--quiet")
    assert outcome.status in (0, 1), outcome


def plan_of(requests):
    """The input of the replay: the same requests in the same order and connections, with links that do not expire."""
    plan = b""
    for request in requests:
        # The tool's user agent ends in a blank, which nginx does not log.
        path = signed(request.path) if request.host == LINKS else request.path
        text = (f"{request.method} {path} HTTP/1.1\r\nHost: {request.host}\r\nUser-Agent: {request.agent} \r\n"
                "Accept: */*\r\nCache-Control: no-cache\r\nPragma: no-cache\r\nAccept-Encoding: identity\r\n\r\n")
        assert len(text) == request.length, f"the tool's request has {request.length} bytes, not those of {text!r}"
        plan += f"{request.connection} {request.host} {request.status} {len(text)}\n{text}".encode()
    return plan


def signed(path):
    expiry = int(time.time()) + 86400
    command = "openssl md5 -binary | basenc --base64url | tr -d ="
    token = subprocess.run(["sh", "-c", command], input=f"{SECRET}{path}{expiry}".encode(), capture_output=True,
                           check=True).stdout.decode().strip()
    return f"/{token}/{expiry}{path}"


def wire_bytes(site):
    """All bytes over the machine's only interface, in both directions, with the headers of TCP and IP."""
    return int(re.search(r" lo: *(\d+)", site.shell("cat /proc/net/dev"))[1])


def measured(site, server, action):
    """Result and requests of an action, with the server's processor time and the bytes on the wire that it cost."""
    server.requests()
    processor, wire = server.processor_seconds(), wire_bytes(site)
    result = action()
    requests = server.requests()
    return result, requests, server.processor_seconds() - processor, wire_bytes(site) - wire


def recorded(site, server, version):
    """Runs the tool and returns its requests, in order."""
    install(site, version)
    return measured(site, server, lambda: run(site))[1]


def replay_command(server, program, seconds, threads):
    return f"taskset -c {LOAD_CORE} {program} {server.address} {seconds} {threads} </srv/plan"


def real_to_replayed(site, server, version, program):
    """Ratios of a real run to a replayed one: nginx's processor time and bytes. Both come alone, because an idle
    server is slower for each run: its caches are cold."""
    totals = [0, 0, 0, 0]
    for _ in range(REAL_RUNS):
        install(site, version)
        real = measured(site, server, lambda: run(site))
        repeated = measured(site, server, lambda: site.shell(replay_command(server, program, 0, 1)))
        assert [request[2:6] for request in real[1]] == [request[2:6] for request in repeated[1]]
        totals = [total + new for total, new in zip(totals, (*real[2:], *repeated[2:]))]
    return totals[0] / totals[2], totals[1] / totals[3]


def replayed(site, server, program):
    """For one run, the median of some rounds: processor seconds, nginx's share of its core, bytes sent, bytes
    received."""
    rounds = []
    for _ in range(ROUNDS):
        command = replay_command(server, program, SECONDS, THREADS)
        said, _, seconds, _ = measured(site, server, lambda: site.shell(command))
        runs, taken, sent, received = map(float, said.split())
        rounds.append((seconds / runs, seconds / taken, sent, received))
    return [statistics.median(column) for column in zip(*rounds)]


def signing_seconds():
    """Seconds for one signature with the servers' kind of key on that core, to compare computers."""
    said = subprocess.run(["taskset", "-c", str(SERVER_CORE), "openssl", "speed", "-seconds", "2", "ecdsap256"],
                          capture_output=True, text=True, check=True).stdout
    return 1 / float(re.findall(r"(?m)nistp256.* ([0-9.]+) +[0-9.]+$", said)[0])


def measure_situation(site, server, program, name, signing):
    requests = recorded(site, server, SITUATIONS[name])
    site.write("/srv/plan", plan_of(requests))
    spent, busy, sent, received = replayed(site, server, program)
    more_time, more_bytes = real_to_replayed(site, server, SITUATIONS[name], program)
    print(f"{name}: {len(requests)} requests over {len({request.connection for request in requests})} connections, in "
          f"{sent / 1e3:.1f} kB, out {received / 1e3:.1f} kB; {spent * 1e6:.0f} µs of a core, so {1 / spent:.0f} runs "
          f"a second; as much as {spent / signing:.1f} signatures of openssl speed ecdsap256\n"
          f"  (that core was {busy:.0%} busy; on an idle server a real run takes {more_time:.2f} times the processor "
          f"time of a replayed one, with {more_bytes:.2f} times the bytes on the wire)", flush=True)


def measure():
    home = made_once("fleet-home", make_home, [HOME / "public.pem", *PUBLISHER.parent.rglob("*")])
    program = seen_inside(made_once("fleet-replay", make_replay, [REPLAY]) / "replay")
    with Site(home) as site:
        server = Server(site, "/srv/vendor", ADDRESSES[0], SERVER_CORE)
        site.write("/etc/hosts", hosts_file(ADDRESSES[0]))
        # The requests do not depend on the scanner, which takes seconds to load the container.
        site.shell(f"ln -sf /bin/true {BIN}/clamscan; ip link set lo mtu 1500")
        run(site)
        site.shell(f"cp {STATE} /srv/state")
        sizes = site.shell("cd /srv/vendor/site/VestRUM2/Scripted; "
                           f"stat -Lc %s VestRUM.cud VestRUM-{VERSIONS}.script").split()
        print(f"A container of {int(sizes[0]) / 1e6:.1f} MB, scripts of {int(sizes[1]) / 1e3:.0f} kB; a run is:")
        signing = signing_seconds()
        for name in SITUATIONS:
            measure_situation(site, server, program, name, signing)
