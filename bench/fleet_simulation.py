"""Simulates the requests of a fleet hour by hour: every machine runs at its own moment, by the rules of the tool."""

import array
import collections
import dataclasses
import random
import re

from testbed.machine import REPOSITORY

HOUR = 3600
TIMER = (REPOSITORY / "packaging/systemd/tarnwick.timer").read_text(encoding="ascii")
SPREAD = 60 * int(re.search(r"RandomizedDelaySec=(\d+)min", TIMER)[1])
PATIENCE = 15  # seconds that a run waits for the answer to its first request
LONGEST = 48  # hours of simulation; the report names what is not finished by then


@dataclasses.dataclass
class Costs:
    """What a run costs a server, in bytes sent and seconds of a core, as measured by bench/fleet."""
    script: float = 13_000  # without headers, signature and the like
    container: float = 2_500_000
    every_bytes: float = 2_600
    every_seconds: float = 0.0006  # handshakes, version, definitions
    pair_bytes: float = 800  # headers, and the signature of a file
    pair_seconds: float = 0.00005
    byte_seconds: float = 1e-9

    def of(self, scripts, container):
        pairs = self.pair_bytes * (scripts + container)
        files = self.script * scripts + self.container * container
        # TLS adds half a percent.
        size = self.every_bytes + pairs + files * 1.005
        return size, self.every_seconds + self.pair_seconds * (scripts + container) + self.byte_seconds * files


class Server:
    """Publishes the scripts after version `oldest` up to `version`, except those in `missing`. Serves runs in the order
    in which they come, `places` at a time; a run that would wait longer than PATIENCE gives up."""

    def __init__(self, version, oldest, rate=float("inf"), cores=1.0, places=1 << 30):
        self.version, self.oldest, self.missing, self.alive = version, oldest, frozenset(), True
        self.rate, self.cores, self.places = rate, cores, places
        self._network = self._processor = 0.0
        self._ends = collections.deque()

    def serve(self, moment, size, seconds):
        """Returns when a run that starts at `moment` ends, and when its last byte is sent; None if the run gives up."""
        ends = self._ends
        while ends and ends[0] <= moment:
            ends.popleft()
        begin = moment if len(ends) < self.places else ends[len(ends) - self.places]
        if begin - moment > PATIENCE:
            return None
        self._network = max(self._network, begin) + size / self.rate
        self._processor = max(self._processor, begin) + seconds / self.cores
        ends.append(max(self._network, self._processor))
        return ends[-1], self._network

    def under_way(self):
        return len(self._ends)


def needed(version, server):
    """What a machine at that version (0: no container) fetches: the number of scripts, and whether the container."""
    if version == 0:
        return 0, True
    if server.version <= version:
        return 0, False
    if version < server.oldest:
        return 0, True
    first_missing = min((number for number in server.missing if number > version), default=server.version + 1)
    if first_missing > server.version:
        return server.version - version, False
    return first_missing - version - 1, True


@dataclasses.dataclass
class Hour:
    scripts: int = 0
    containers: int = 0
    turned_away: int = 0
    still_running: int = 0  # machines whose last run had not ended
    most_at_once: int = 0
    size: float = 0.0
    outdated: int = 0


class Fleet:
    """Machines with these versions, each with its own moment of the hour from the timer. Machine n tries server n
    first, then the next one."""

    def __init__(self, versions, servers, costs=Costs(), seed=1):
        dice = random.Random(seed)
        self.versions = array.array("l", versions)
        self.offsets = array.array("d", sorted(dice.uniform(0, SPREAD) for _ in self.versions))
        self._busy_until = array.array("d", bytes(8 * len(self.versions)))
        self._servers, self._costs = servers, costs
        self._events = collections.deque()
        self._minutes = collections.Counter()  # bytes sent in each minute by all servers

    def at(self, moment, action):
        """Calls `action` with the servers at this moment. Requires ascending moments."""
        self._events.append((moment, action))

    def _server_for(self, number):
        count = len(self._servers)
        for step in range(count):
            server = self._servers[(number + step) % count]
            if server.alive:
                return server
        return None

    def _run(self, number, moment, hour):
        server = self._server_for(number)
        if server is None:
            return
        if self._busy_until[number] > moment:
            hour.still_running += 1
            return
        scripts, container = needed(self.versions[number], server)
        size, seconds = self._costs.of(scripts, container)
        served = server.serve(moment, size, seconds)
        if served is None:
            hour.turned_away += 1
            return
        self._busy_until[number], sent = served
        self._minutes[int(sent // 60)] += size
        hour.scripts += scripts
        hour.containers += container
        hour.size += size
        hour.most_at_once = max(hour.most_at_once, server.under_way())
        self.versions[number] = max(self.versions[number], server.version)

    def hour(self, number):
        result = Hour()
        for machine, offset in enumerate(self.offsets):
            moment = number * HOUR + offset
            while self._events and self._events[0][0] <= moment:
                self._events.popleft()[1](self._servers)
            self._run(machine, moment, result)
        newest = max(server.version for server in self._servers)
        result.outdated = sum(version < newest for version in self.versions)
        return result

    def last_end(self):
        """The second in which the last run ended that fetched anything."""
        return max(self._busy_until)

    def peak(self):
        """Bytes a second in the busiest minute."""
        return max(self._minutes.values()) / 60

    def until_current(self):
        """Simulates hours until no machine is outdated; returns them."""
        hours = []
        while (not hours or hours[-1].outdated) and len(hours) < LONGEST:
            hours.append(self.hour(len(hours)))
        return hours


def mixed_versions(count, newest, behind, new, furthest, seed=2):
    """Versions of `count` machines: the share `behind` is up to `furthest` versions behind, the share `new` has no
    container, and the others have the newest version."""
    dice = random.Random(seed)
    versions = [newest - dice.randint(1, furthest) for _ in range(round(count * behind))] + [0] * round(count * new)
    versions += [newest] * (count - len(versions))
    dice.shuffle(versions)
    return versions


def released_and_worst(options):
    """Simulates a good release, and a release whose script is missing on every server."""
    newest = options.furthest + options.scripts
    for title, missing in (("A release", frozenset()), ("A release whose script is missing", frozenset({newest}))):
        versions = mixed_versions(options.simulate, newest - 1, options.behind, options.new, options.furthest)
        servers = [Server(newest, newest - options.scripts, options.megabits * 125_000, options.cores,
                          options.connections * options.cores // 2) for _ in range(options.servers)]
        for server in servers:
            server.missing = missing
        fleet = Fleet(versions, servers, Costs(script=options.script, container=options.container))
        report(title, fleet, fleet.until_current())


def report(title, fleet, hours):
    scripts, containers, size, away = (sum(getattr(hour, name) for hour in hours)
                                       for name in ("scripts", "containers", "size", "turned_away"))
    at_once = max(hour.most_at_once for hour in hours)
    print(f"{title}: {scripts} scripts and {containers} whole containers, {size / 1e9:.1f} GB; at most "
          f"{fleet.peak() / 125_000:.0f} Mbit/s; on a server at most {at_once} runs under way or waiting; {away} runs "
          f"turned away")
    if hours[-1].outdated:
        print(f"  {hours[-1].outdated} machines are outdated after {len(hours)} hours")
    else:
        print(f"  all machines are current after {fleet.last_end() / HOUR:.1f} hours")
