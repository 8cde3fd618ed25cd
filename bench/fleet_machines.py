"""Runs the tool on many machines against two servers, one of which dies during a push, and compares the simulation.

Each machine has its own prefix, state and temporary folder, mounted in a namespace for each run. Half of the machines
try one server first, half the other.
"""

import concurrent.futures
import os
import threading

import fleet_simulation as simulation
from fleet_site import ADDRESSES, Server, Site, hosts_file
from testbed import vendor
from testbed.servers import LINKS
from testbed.world import PREFIX, TOOL

BEHIND, NEW = 0.35, 0.1  # shares of the machines
AT_ONCE = 8
NAMES = ("one", "two")
# Replaces ssh. The second call for a server comes after the scripts and switches to the new version: server one then
# switches, and server two dies. Each event is written to a pipe.
TRANSPORT = """#!/bin/sh
while :; do case $1 in -l) shift 2 ;; -*) shift ;; *) break ;; esac; done
host=$1
shift
case " $* " in *" --sender "*) exec "$@" ;; esac
echo >>"/srv/$host/calls"
[ "$(wc -l <"/srv/$host/calls")" = 2 ] || switch=no
[ "$host$switch" != two ] || { touch /srv/dead; echo died >/srv/events; }
[ ! -e /srv/dead ] || [ "$host" != two ] || { echo "connect to host two: No route to host" >&2; exit 255; }
[ "$host$switch" != one ] || echo switching >/srv/events
sh -c "$*"
status=$?
[ "$host$switch" != one ] || echo switched >/srv/events
exit "$status"
"""
RUN = f"""
cd "/srv/machines/$1"
mount --bind prefix {PREFIX}
mount --bind state /var/lib/tarnwick
mount --bind tmp /tmp
mount --bind hosts /etc/hosts
exec {TOOL}
"""


class Machines:
    """Installations at these versions; 0 means no container."""

    def __init__(self, site, versions):
        self._site = site
        self.count = len(versions)
        self.under_way = set()
        site.shell(f"mkdir -p /srv/machines /var/lib/tarnwick; touch /etc/hosts; rm -f {PREFIX}/share/clamav/Ves*")
        for number, version in enumerate(versions):
            folder = f"/srv/machines/{number}"
            site.shell(f"mkdir {folder} {folder}/state {folder}/tmp; cp -a {PREFIX} {folder}/prefix")
            first = number % len(ADDRESSES)
            site.write(f"{folder}/hosts", hosts_file(*ADDRESSES[first:], *ADDRESSES[:first]))
            if version:
                site.write(f"{folder}/prefix/share/clamav/VestRUM.cud", site.container(version))

    def versions(self):
        containers = [self._site.path(f"/srv/machines/{number}/prefix/share/clamav/VestRUM.cud")
                      for number in range(self.count)]
        return [int(path.read_bytes().split(b":")[2]) if path.exists() else 0 for path in containers]

    def run_all(self, before=lambda number: None):
        """Runs each machine once, in order, AT_ONCE at a time; calls `before` ahead of each run."""
        def run(number):
            before(number)
            self.under_way.add(number)
            outcome = self._site.command("unshare", "-m", "sh", "-euc", RUN, "sh", number)
            self.under_way.discard(number)
            return outcome

        with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
            return list(pool.map(run, range(self.count)))


class Failure:
    """Starts a push after a quarter of the machines have run, and holds the last quarter back until server one has
    switched and server two has died. The runs in between meet these events."""

    def __init__(self, site, fleet, server):
        self._site, self._fleet, self._server = site, fleet, server
        site.write("/srv/transport", TRANSPORT, 0o755)
        site.shell("mkfifo /srv/events")
        self._events = os.open(site.path("/srv/events"), os.O_RDWR)
        self._over = threading.Event()
        self._threads = [threading.Thread(target=act) for act in (self._push, self._watch)]
        self.said = None  # output of the push
        self.caught = {"died": set(), "switching": set(), "switched": set()}  # runs under way at these moments

    def __call__(self, number):
        if number == self._fleet.count // 4:
            for thread in self._threads:
                thread.start()
        if number >= self._fleet.count * 3 // 4:
            self._over.wait()

    def _push(self):
        self.said = push(self._site)
        os.write(self._events, b"end\n")

    def _next_event(self):
        event = b""
        while not event.endswith(b"\n"):
            event += os.read(self._events, 1)
        return event.decode().strip()

    def _watch(self):
        awaited = set(self.caught)
        while (event := self._next_event()) != "end":
            self.caught[event] |= self._fleet.under_way
            if event == "died":
                self._server.die()
                self.caught[event] |= self._fleet.under_way
            awaited.discard(event)
            if not awaited:
                self._over.set()
        self._over.set()

    def wait(self):
        for thread in self._threads:
            thread.join()


def push(site):
    return site.command(vendor.KIT, "--home", "/srv/vendor", "push",
                        *(f"{name}:/srv/{name}=https://{address}" for name, address in zip(NAMES, ADDRESSES)),
                        env={"RSYNC_RSH": "/srv/transport"})


def containers_in(requests):
    """Counts the whole containers that machines fetched; a push asks for one, too."""
    return sum((request.method, request.host) == ("GET", LINKS) and request.path.endswith("/VestRUM.cud")
               and request.agent.startswith("Tarnwick/") for request in requests)


def simulated(versions, newest, kept):
    """The number of whole containers, and of hours, in a simulation of the same release and failure."""
    servers = [simulation.Server(newest, newest - kept) for _ in NAMES]

    def release(servers):
        servers[0].version += 1
        servers[1].alive = False

    fleet = simulation.Fleet(versions, servers)
    fleet.at(fleet.offsets[len(versions) // 2], release)
    hours = fleet.until_current()
    return sum(hour.containers for hour in hours), len(hours)


def lost_half_way(versions, newest, kept, caught):
    """The most whole containers that the runs under way at these moments can add. A run whose script is cut off fetches
    the container; a container that is cut off, or replaced before its signature is fetched, is fetched again."""
    server = simulation.Server(newest, newest - kept)
    dying = [number for number in caught["died"] if number % len(NAMES) == 1]
    staying = [number for number in caught["switching"] | caught["switched"] if number % len(NAMES) == 0]
    return (sum(simulation.needed(versions[number], server) != (0, False) for number in dying) +
            sum(simulation.needed(versions[number], server)[1] for number in staying))


def prepare(site, newest, kept):
    """Starts two servers with version `newest`, and releases one more version in the home."""
    site.kit("/srv/vendor", "prune", "--keep", kept)
    for name in NAMES:
        site.shell(f"mkdir /srv/{name}; cp -a /srv/vendor/site /srv/{name}")
    servers = [Server(site, f"/srv/{name}", address) for name, address in zip(NAMES, ADDRESSES)]
    vendor.signature_folder(site.path("/srv/signatures"), newest + 1)
    site.kit("/srv/vendor", "release", "/srv/signatures")
    return servers


def run_hours(fleet, failure, hours):
    """Runs all machines once an hour; the failure happens in the first hour."""
    outcomes = fleet.run_all(failure)
    failure.wait()
    for _ in range(1, hours):
        outcomes += fleet.run_all()
    odd = [outcome for outcome in outcomes if outcome.status not in (0, 1)]
    assert not odd, odd[0]


def revive(site, newest):
    """Restarts server two with its old files and pushes again; returns the last line of the push."""
    Server(site, "/srv/two", ADDRESSES[1])
    site.shell("rm /srv/dead")
    again = push(site)
    assert (again.status, again.stdout.splitlines()[-1:]) == (0, [f"Version {newest + 1} is on 2 servers."]), again
    return again.stdout.splitlines()[-1]


def play(machines, newest, kept):
    """Prints what happens; returns whether all machines are current with no more containers than expected."""
    versions = simulation.mixed_versions(machines, newest, BEHIND, NEW, newest - 1)
    expected, hours = simulated(versions, newest, kept)
    print(f"{machines} machines, {AT_ONCE} at a time: {versions.count(newest)} up to date, {versions.count(0)} "
          f"new, the others up to {newest - 1} versions behind the {newest} that are out; {kept} scripts are kept.",
          flush=True)
    with Site(vendor.home(newest)) as site:
        servers = prepare(site, newest, kept)
        fleet = Machines(site, versions)
        failure = Failure(site, fleet, servers[1])
        run_hours(fleet, failure, hours)
        fetched = containers_in(request for server in servers for request in server.requests())
        current = fleet.versions().count(newest + 1)
        lost = lost_half_way(versions, newest, kept, failure.caught)
        print(f"Server two died while version {newest + 1} was pushed. The push said:")
        print("  " + (failure.said.stdout + failure.said.stderr).strip().replace("\n", "\n  "))
        print(f"After {hours} hours {current} of {machines} machines are at version {newest + 1}.\n"
              f"Whole containers: {fetched}. The simulation says {expected}, and at most {lost} more for the runs that "
              f"were under way when server one changed and server two died.")
        print(f"Server two is back, and the next push says: {revive(site, newest)}")
    return current == machines and fetched <= expected + lost
