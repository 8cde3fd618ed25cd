"""Private machines with a vendor, its servers and an installation to update.

    with World(versions=3) as world:
        world.freshclam(1)              # or world.custom_database(), for the real one
        outcome = world.run("--quiet")  # exit status, standard output and error

A world needs root, starts in a fraction of a second and leaves nothing behind.
"""

from .machine import REPOSITORY, Machine, Outcome
from .servers import (
    BAD_SERVERS, CONTENT, HERE, IMPOSTOR, LINKS, MIRROR, NAMESAKE, NOBODY, ORIGIN, SILENCE, UPSTREAM, redirect)
from . import overlay, service
from .service import as_the_service
from .vendor import definitions_text, member, repacked, sample
from .world import BIN, CONFIGURATION, DATA, MACINTOSH, OLDER_STATE, PREFIX, STATE, TOOL, World
