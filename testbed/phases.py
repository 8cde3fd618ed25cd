"""Prepares worlds for runs that stop in a chosen phase, and for runs so short that a test can kill hundreds."""

import os
import random

from .servers import SILENCE
from .texts import DEFINITIONS_PATH, SCRIPTED_PATH, VERSION_PATH
from .vendor import definitions_text
from .world import DATA

HOLD = "read -r nothing </srv/hold"


def behind_another_run(world):
    world.shell("umask 077; mkdir -p /var/lib/tarnwick; touch /var/lib/tarnwick/lock")
    other = world.start("flock", "/var/lib/tarnwick/lock", "sh", "-c", "echo locked; exec sleep infinity")
    other.read_until("locked\n")
    return lambda job: job.read_until("Waiting for it to end.\n", "stderr")


def without_network(world):
    world.shell("ip route del default")
    return lambda job: job.read_until("Trying again in 5 seconds...\n")


def stalled(world, request):
    world.servers.answer(request, **SILENCE)
    return lambda job: world.servers.wait_for_held(request)


def scanning(world):
    world.shell("mkfifo /srv/event /srv/hold")
    world.program("clamscan", f"echo scanning >/srv/event; {HOLD}")
    event = os.open(world.path("/srv/event"), os.O_RDWR)
    return lambda job: os.read(event, 100)


def updating(world):
    """The stand-in for freshclam waits for a child of another name, as the adapter does while it starts."""
    world.shell("mkfifo /srv/hold")
    world.program("freshclam", "echo updating; cat /srv/hold; echo updated")
    return lambda job: job.read_until("updating\n")


def falling_back(world):
    world.freshclam(*[52] * 10)
    return stalled(world, "GET /dns.txt")


def seeding(world):
    world.shell(f"rm {DATA}/daily.cvd")
    return stalled(world, "GET /daily.cvd")


# Each function prepares a world for the run, and returns a function that waits until a job is in that phase.
PHASES = {
    "lock": behind_another_run,
    "no network": without_network,
    "version stalls": lambda world: stalled(world, f"GET {VERSION_PATH}"),
    "script stalls": lambda world: stalled(world, f"GET {SCRIPTED_PATH}/VestRUM-3.script"),
    "scanning": scanning,
    "definitions stall": lambda world: stalled(world, f"HEAD {DEFINITIONS_PATH}"),
    "seeding": seeding,
    "freshclam": updating,
    "fallback": falling_back,
}


def quick(world):
    """Makes runs go through every phase as fast as possible."""
    world.install(1)
    world.program("clamscan", "exit 0")
    world.program("freshclam", "exit 0")


def fall_behind(world):
    """Makes the installation two container versions and one definitions file old."""
    world.write(f"{DATA}/VestRUM.cud", world.container(1))
    world.write(f"{DATA}/Vestrum.database", definitions_text(9))
    world.write(f"{DATA}/Vestrum.database.signature", "of other definitions")
    world.remember({"database-Last-Modified": "some other date"})


def moments(seed, count, longest):
    """`count` random times in microseconds, always the same for a seed."""
    generator = random.Random(seed)
    return [generator.randrange(1, longest) for _ in range(count)]
