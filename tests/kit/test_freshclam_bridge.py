"""The prefix's freshclam against the real program: each cause provoked for real, each answer checked."""

import signal

import pytest

from testbed import BIN, CONFIGURATION, DATA, LINKS, MIRROR, NOBODY

FRESHCLAM, LOG = f"{BIN}/freshclam", "/srv/log/freshclam.log"
EDIT = "sed -i '{}' " + CONFIGURATION
ANSWERS = [
    ("new", "", "", 0),
    ("not new", f"{FRESHCLAM} >&2", "", 0),
    ("unknown option", "", "--no-such-option", 40),
    ("option without its value", "", "--log", 40),
    ("folder cannot be entered", "mkdir -p -m 0700 /srv/closed/db", "--datadir=/srv/closed/db", 50),
    ("folder cannot be made", "", "--datadir=/proc/none", 50),
    ("folder is a file", f"rm -r {DATA}; touch {DATA}", "", 50),
    ("connection refused", EDIT.format(f"s/{MIRROR}/{NOBODY}/"), "", 52),
    ("unknown host", EDIT.format(f"s/{MIRROR}/nowhere.example/"), "", 52),
    ("container not signed", EDIT.format("/Exclude.*daily/d"), "", 54),
    ("line not understood", f"echo Nonsense >>{CONFIGURATION}", "", 56),
    ("no configuration", f"rm {CONFIGURATION}", "", 56),
    ("no mirror named", EDIT.format("/Mirror/d"), "", 56),
    ("unknown owner", EDIT.format("s/Owner.*/Owner nobody-known/"), "", 56),
    ("folder of another owner", f"chown root:root {DATA}; chmod 0755 {DATA}", "", 57),
    ("mirror has nothing", EDIT.format("/Exclude/d; /Custom/d") + "; rm /srv/vendor/mirror/daily.cvd", "", 58),
    ("log cannot be made", "", "--log=/proc/none/log", 62),
    ("log of another owner", f"touch {LOG}; chmod 0600 {LOG}", f"--log={LOG}", 62),
    ("log of another owner, from the configuration",
     f"touch {LOG}; chmod 0600 {LOG}; echo UpdateLogFile {LOG} >>{CONFIGURATION}", "", 62),
    ("forbidden", EDIT.format(f"s/{MIRROR}.custom/{LINKS}\\/custom/"), "", 17),
]


@pytest.fixture(scope="module")
def world(shared_world):
    return shared_world


@pytest.fixture(autouse=True)
def installation(world):
    world.servers.mend()
    world.shell(f"rm -rf {DATA} /srv/log; install -d -o clamav -g clamav {DATA} /srv/log"
                f"; cp /usr/local/vestRum/etc/freshclamCLEAN.conf {CONFIGURATION}"
                "; cp /srv/vendor/site/VestRUM2/Scripted/VestRUM.cud /srv/vendor/mirror/daily.cvd"
                f"; sed -i 's/database.clamav.net/{MIRROR}/; s/#MaxAttempts 5/MaxAttempts 1/' {CONFIGURATION}")
    world.custom_database()


@pytest.mark.parametrize("preparation, argument, status", [row[1:] for row in ANSWERS], ids=[row[0] for row in ANSWERS])
def test_answers_with_the_documented_status(world, preparation, argument, status):
    world.shell(preparation)
    answer = world.command(FRESHCLAM, *argument.split())
    assert answer.status == status, answer


@pytest.mark.parametrize("argument", ["--version", "--no-such-option"])
def test_output_is_the_programs_own(world, argument):
    ours, real = (world.command(program, argument) for program in (FRESHCLAM, "/usr/bin/freshclam"))
    assert (ours.stdout, ours.stderr) == (real.stdout, real.stderr)


# Interrupted from the keyboard, the program itself says that it ended well.
@pytest.mark.parametrize("number, status", [(signal.SIGINT, 0), (signal.SIGQUIT, 131), (signal.SIGTERM, 143)])
def test_signals_reach_the_program_and_its_log_stays_locked_until_then(world, number, status):
    world.shell(EDIT.format(f"s/custom.ndb/custom-{status}.ndb/"))
    world.servers.answer(f"GET /custom-{status}.ndb", "cut", length=9, hold=True)
    first = world.start(FRESHCLAM, f"--log={LOG}")
    world.servers.wait_for_held(f"GET /custom-{status}.ndb")
    assert world.command(FRESHCLAM, f"--log={LOG}").status == 62
    first.signal(number)
    assert first.end().status == status
    assert world.running("freshclam") == []
