"""Real runs by many machines against two servers, one of which dies while a release is pushed; beside the simulation.

Each machine has a prefix, a state and a temporary folder of its own in one mount namespace for each run, and tries one
of the two servers first.
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
# What stands for ssh. When it is asked for a server the second time, the scripts are there and the new version comes
# next: server one then takes it, and server two's computer is gone. Whoever waits at the pipe is told.
TRANSPORT = """#!/bin/sh
while :; do case $1 in -l) shift 2 ;; -*) shift ;; *) break ;; esac; done
host=$1
shift
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
    """So many installations at these versions, 0 for none yet."""

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
        """Each once, in their order, some at a time; something may come before each."""
        def run(number):
            before(number)
            self.under_way.add(number)
            outcome = self._site.command("unshare", "-m", "sh", "-euc", RUN, "sh", number)
            self.under_way.discard(number)
            return outcome

        with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
            return list(pool.map(run, range(self.count)))


class Drama:
    """A push begins when a quarter of the machines have had their turn; the last quarter comes after server one has
    taken the new version and server two has died. What is between runs into that."""

    def __init__(self, site, fleet, server):
        self._site, self._fleet, self._server = site, fleet, server
        site.write("/srv/transport", TRANSPORT, 0o755)
        site.shell("mkfifo /srv/events")
        self._events = os.open(site.path("/srv/events"), os.O_RDWR)
        self._over = threading.Event()
        self._threads = [threading.Thread(target=act) for act in (self._push, self._watch)]
        self.said = None  # by the push
        self.caught = {"died": set(), "switching": set(), "switched": set()}  # the runs under way at these moments

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
    return site.command("/repository/publish/tarnwick-publish", "--home", "/srv/vendor", "push",
                        *(f"{name}:/srv/{name}=https://{address}" for name, address in zip(NAMES, ADDRESSES)),
                        env={"RSYNC_RSH": "/srv/transport"})


def containers_in(requests):
    """Those that machines fetched; a push asks for one, too."""
    return sum((request.method, request.host) == ("GET", LINKS) and request.path.endswith("/VestRUM.cud")
               and request.agent.startswith("Tarnwick/") for request in requests)


def simulated(versions, newest, kept):
    """How many whole containers it takes with the same release and the same death, and in how many hours."""
    servers = [simulation.Server(newest, newest - kept) for _ in NAMES]

    def release(servers):
        servers[0].version += 1
        servers[1].alive = False

    fleet = simulation.Fleet(versions, servers)
    fleet.at(fleet.offsets[len(versions) // 2], release)
    hours = fleet.until_current()
    return sum(hour.containers for hour in hours), len(hours)


def lost_half_way(versions, newest, kept, caught):
    """How many more it can take for runs that were under way at these moments: a script that is cut short leads to the
    container, and a container that is cut short, or has been replaced before its signature came, is fetched again."""
    server = simulation.Server(newest, newest - kept)
    dying = [number for number in caught["died"] if number % len(NAMES) == 1]
    staying = [number for number in caught["switching"] | caught["switched"] if number % len(NAMES) == 0]
    return (sum(simulation.needed(versions[number], server) != (0, False) for number in dying) +
            sum(simulation.needed(versions[number], server)[1] for number in staying))


def prepare(site, newest, kept):
    """Two servers that serve version `newest`, while the home has one more."""
    site.kit("/srv/vendor", "prune", "--keep", kept)
    for name in NAMES:
        site.shell(f"mkdir /srv/{name}; cp -a /srv/vendor/site /srv/{name}")
    servers = [Server(site, f"/srv/{name}", address) for name, address in zip(NAMES, ADDRESSES)]
    vendor.signature_folder(site.path("/srv/signatures"), newest + 1)
    site.kit("/srv/vendor", "release", "/srv/signatures")
    return servers


def hours_pass(fleet, drama, hours):
    """The first of them with everything in it."""
    outcomes = fleet.run_all(drama)
    drama.wait()
    for _ in range(1, hours):
        outcomes += fleet.run_all()
    odd = [outcome for outcome in outcomes if outcome.status not in (0, 1)]
    assert not odd, odd[0]


def revive(site, newest):
    """Server two comes back with what it had, and is pushed to again."""
    Server(site, "/srv/two", ADDRESSES[1])
    site.shell("rm /srv/dead")
    again = push(site)
    assert (again.status, again.stdout.splitlines()[-1:]) == (0, [f"Version {newest + 1} is on 2 servers."]), again
    return again.stdout.splitlines()[-1]


def play(machines, newest, kept):
    """Tells what happened; whether all ended well."""
    versions = simulation.mixed_versions(machines, newest, BEHIND, NEW, newest - 1)
    expected, hours = simulated(versions, newest, kept)
    print(f"{machines} machines, {AT_ONCE} at a time: {versions.count(newest)} up to date, {versions.count(0)} "
          f"new, the others up to {newest - 1} versions behind the {newest} that are out; {kept} scripts are kept.",
          flush=True)
    with Site(vendor.home(newest)) as site:
        servers = prepare(site, newest, kept)
        fleet = Machines(site, versions)
        drama = Drama(site, fleet, servers[1])
        hours_pass(fleet, drama, hours)
        fetched = containers_in(request for server in servers for request in server.requests())
        current = fleet.versions().count(newest + 1)
        lost = lost_half_way(versions, newest, kept, drama.caught)
        print(f"Server two died while version {newest + 1} was pushed. The push said:")
        print("  " + (drama.said.stdout + drama.said.stderr).strip().replace("\n", "\n  "))
        print(f"After {hours} hours {current} of {machines} machines are at version {newest + 1}.\n"
              f"Whole containers: {fetched}. The simulation says {expected}, and at most {lost} more for the runs that "
              f"were under way when server one changed and server two died.")
        print(f"Server two is back, and the next push says: {revive(site, newest)}")
    return current == machines and fetched <= expected + lost
