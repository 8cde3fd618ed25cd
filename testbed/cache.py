"""Keeps what takes long to make below build/, from one session to the next."""

import fcntl
import shutil

from .machine import REPOSITORY

CACHE = REPOSITORY / "build" / "world"


def made_once(name, make, sources):
    """Returns the folder `name`; calls `make(folder)` to fill it if it is missing or older than one of the sources."""
    folder = CACHE / name
    stamp = folder / "complete"
    CACHE.mkdir(parents=True, exist_ok=True)
    with open(CACHE / f"{name}.lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        newest = max(source.stat().st_mtime for source in sources)
        if not stamp.exists() or stamp.stat().st_mtime < newest:
            shutil.rmtree(folder, ignore_errors=True)
            folder.mkdir()
            make(folder)
            stamp.touch()
    return folder
