"""Servers, files, programs and machines that are not as they should be."""

import re

import pytest

from testbed import BIN, CONFIGURATION, DATA, IMPOSTOR, LINKS, MACINTOSH, MIRROR, NOBODY, PREFIX, STATE, TOOL, UPSTREAM
from testbed.transcripts import (BANNER, CURRENT, FETCHED, FRESHCLAM, FULL, INSTALLED, LOCAL, NEWER, SCRIPTS, SOUND,
                               UNCHANGED, WARNING)

CONTAINER = "GET /VestRUM2/Scripted/VestRUM.cud"
DATABASE = "GET /VestRUM2/Vestrum.database"
TRANSFER, UNSIGNED = "tarnwick: Download failed! ERROR\n", "tarnwick: Download failed sig check\n"
ANSWERED = "tarnwick: The server answered {} for https://links.vestrum.example/VestRUM2/Scripted/VestRUM.cud\n"
SAVED = "Downloading {} [100%]\n"
# What a server does to a download, and with what status something was saved.
SERVERS = {
    "refuses": (lambda s, request: s.place(links=NOBODY, content=NOBODY), None),
    "is unknown": (lambda s, request: s.place(links=None, content=None), None),
    "is an impostor": (lambda s, request: s.place(links=IMPOSTOR, content=IMPOSTOR), None),
    "hangs up": (lambda s, request: s.drop(request), None),
    "cuts short": (lambda s, request: s.answer(request, "half of it", length=20), None),
    "stalls": (lambda s, request: s.answer(request, "half of it", length=20, hold=True), None),
    "says nothing": (lambda s, request: s.answer(request, status=None, hold=True), None),
    "has an error": (lambda s, request: s.answer(request, "<html>sorry</html>", "500 Sorry"), 500),
    "has nothing": (lambda s, request: s.answer(request), 200),
    "leads elsewhere": (lambda s, request: s.answer(request, "", "302 Found", [f"Location: https://{MIRROR}/x"]), 404),
    "leads to a file": (lambda s, request: s.answer(request, "", "302 Found", ["Location: file:///etc/passwd"]), None),
    "leads in a circle": (lambda s, request: s.answer(request, "", "302 Found", [f"Location: {request[4:]}"]), None),
}


@pytest.mark.parametrize("name", SERVERS)
def test_bad_servers(world, name):
    misbehave, saved = SERVERS[name]
    world.freshclam(0)
    for request in (CONTAINER, DATABASE):
        misbehave(world.servers, request)
    outcome = world.run(rate=60)
    container = SAVED.format("VestRUM.cud") * bool(saved) + "Failed to download and/or verify VestRUM.cud\n"
    invalid = "Vestrum.database definitions file is not valid. Delete it.\n"
    database = SAVED.format("Vestrum.database") * bool(saved) + invalid
    errors = ANSWERED.format(saved) * (saved != 200) + UNSIGNED if saved else TRANSFER * 2
    if name in ("refuses", "is unknown", "is an impostor"):
        database, errors = "Error occurred downloading Vestrum.database\n", TRANSFER
    assert (outcome.status, outcome.stdout, outcome.stderr, world.state()) == (
        0, BANNER + FULL + container + database + FRESHCLAM, errors, {})
    assert (world.litter(), world.shell(f"ls {DATA}")) == ("", "bytecode.cvd\ndaily.cvd\nmain.cvd\n")


@pytest.mark.parametrize("request_line, said", [
    ("GET /VestRUM2/Scripted/VestRUM-db-version.txt", LOCAL + "Failed to get available defs version number: ERROR\n"
     "Available version 0\nVestRUM.cud file is up-to-date\n" + UNCHANGED),
    ("HEAD /VestRUM2/Vestrum.database", CURRENT + "Error occurred downloading Vestrum.database\n")])
def test_requests_that_get_no_answer_in_time(world, request_line, said):
    world.freshclam(0)
    world.install(1 if "GET" in request_line else 3)
    world.servers.answer(request_line, status=None, hold=True)
    outcome = world.run(rate=60)
    assert (outcome.status, outcome.stdout) == (0, BANNER + said + FRESHCLAM)


@pytest.mark.parametrize("request_line, limit, borne, given_up", [
    ("GET /VestRUM2/Scripted/VestRUM-db-version.txt", 15, "version number 3\n", "version number: ERROR\n"),
    (DATABASE, 60, SAVED.format("Vestrum.database"), "Vestrum.database definitions file is not valid")])
def test_silence_is_borne_up_to_the_limit(world, request_line, limit, borne, given_up):
    rate = 10 * limit // 15
    world.install(3)
    world.remember({})
    for answer, expected in (({"body": "3", "pause": 0.85 * limit / rate}, borne),
                             ({"status": None, "hold": True}, given_up)):
        world.freshclam(0)
        world.servers.answer(request_line, **answer)
        assert expected in world.run(rate=rate).stdout
    assert 0.9 * limit < world.servers.held_for() * rate < 1.2 * limit


SLOW_SERVER = """import socket, ssl, sys, time
silence = 9 / int(sys.argv[1])
context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
context.load_cert_chain("/srv/vendor/tls/certificate.pem", "/srv/vendor/tls/key.pem")
received, sent = ssl.MemoryBIO(), ssl.MemoryBIO()
tls = context.wrap_bio(received, sent, server_side=True)
def until_done(step):
    while True:
        try:
            return step()
        except ssl.SSLWantReadError:
            send_slowly()
            received.write(connection.recv(9999))
def send_slowly():
    flight = sent.read()
    for half in (flight[:len(flight) // 2], flight[len(flight) // 2:]):
        if half:
            time.sleep(silence)
            connection.sendall(half)
listener = socket.create_server(("127.0.0.2", 443))
full = socket.create_server(("127.0.0.1", 443), backlog=0)
with socket.create_connection(("127.0.0.1", 443)):
    print("ready", flush=True)
    connection = listener.accept()[0]
    until_done(tls.do_handshake)
    send_slowly()
    print(until_done(lambda: tls.read(9999)).decode())
    for piece in (b"HTTP/1.1 200 OK\\r\\nServer: s", b"low\\r\\nContent-Length: 1\\r\\n", b"\\r\\n", b"3"):
        tls.write(piece)
        send_slowly()
"""


def test_whatever_arrives_is_life(world):
    """The host's first address never answers; the second is silent for nine seconds before every piece."""
    world.freshclam(0)
    world.install(3)
    world.servers.place(links=None, content=None)
    world.shell("nginx -c /srv/nginx.conf -s stop")
    world.shell(f"printf '127.0.0.1 {LINKS}\\n127.0.0.2 {LINKS}\\n' >>/etc/hosts; echo multi on >/etc/host.conf")
    server = world.start("/usr/bin/python3", "-c", SLOW_SERVER, "20")
    server.read_until("ready\n")
    assert "version number 3\n" in world.run(rate=20).stdout


def test_a_download_may_take_longer_than_its_links_live(world):
    world.hurry(100)
    for installed, request, body in (
            (1, "GET /VestRUM2/Scripted/VestRUM-2.script", world.published("VestRUM-2.script")),
            (None, CONTAINER, world.container(3))):
        world.freshclam(0)
        world.servers.mend()
        world.servers.answer(request, body, pause=0.1)
        if installed:
            world.install(installed)
        else:
            world.shell(f"rm {DATA}/VestRUM.cud")
        outcome = world.run(rate=100)
        assert (outcome.stderr, world.version()) == ("", 3)
        assert (FULL in outcome.stdout) == (installed is None)


def test_the_users_proxy_is_asked(world):
    world.install(1)
    world.freshclam(0)
    outcome = world.run(env={"https_proxy": f"http://{NOBODY}:3128"})
    assert (outcome.status, outcome.stdout, world.servers.requests()) == (
        0, BANNER + LOCAL + "Failed to get available defs version number: ERROR\nAvailable version 0\n"
        "VestRUM.cud file is up-to-date\nError occurred downloading Vestrum.database\n" + FRESHCLAM, [])


def test_a_slow_transfer_is_waited_for_and_a_redirect_followed(world):
    body = world.container(3)
    world.freshclam(0)
    # Eighty seconds by the tool's clock, never ten without a byte.
    world.servers.answer("GET /slow", body, pause=0.1)
    world.servers.answer(CONTAINER, "", "302 Found", [f"Location: https://{MIRROR}/slow"])
    raw = world.launch(rate=100).end()
    assert (raw.status, world.version()) == (1, 3)
    shown = [int(percent) for percent in re.findall(r"Downloading VestRUM\.cud \[ *(\d+)%\]\r", raw.stdout)]
    steps = {100 * (index + 1) * (len(body) // 8) // len(body) for index in range(8)}
    assert len(shown) > 2 and shown == sorted(shown) and set(shown) <= steps | {100}
    assert "\rDownloading VestRUM.cud [100%]\nVestRUM.cud (version 3)" in raw.stdout


RAW_SERVER = """import socket
with socket.create_server(("127.0.0.1", 80)) as listener:
    print("ready", flush=True)
    with listener.accept()[0] as connection:
        print(connection.recv(9999).decode(), end="")
        connection.sendall(b"HTTP/1.0 404 None\\r\\n\\r\\n")
"""


def test_user_agents_end_in_a_blank(world):
    """Which nginx would not show; and a HEAD request stays one when it is sent elsewhere."""
    world.freshclam(0)
    world.install(3)
    server = world.start("/usr/bin/python3", "-c", RAW_SERVER)
    server.read_until("ready\n")
    world.servers.answer(DATABASE.replace("GET", "HEAD"), "", "302 Found", [f"Location: http://{MIRROR}/there"])
    assert "Nothing to download for Vestrum.database\n" in world.run().stdout
    request = server.end().stdout.split("\r\n")
    assert request[0] == "HEAD /there HTTP/1.1"
    assert f"User-Agent: Tarnwick/2.19.4 {MACINTOSH} " in request


NO_SCRIPT = "Failed to download and verify VestRUM-{}.script\nProcessing updates…\n"
# Version files: what is printed of it, which version that is, and what follows.
VERSION_TEXTS = [
    (b"no number", "no number", 0, None),
    (b":", ":", 0, None),
    (b"a:-5:7\n", "a:-5:7", -5, None),
    (b"%s%n{}:1", "%s%n{}:1", 1, None),
    (b"\xff:3", None, 0, None),
    (b" \r\n a:  3rd \n", "a:  3rd", 3, SCRIPTS + SOUND),
    (b"a:99999999999999999999", "a:99999999999999999999", 2**63 - 1, "Downloading VestRUM-2.script [  0%]\n"
     "Downloading VestRUM-3.script [  0%]\n" + NO_SCRIPT.format(4) + FULL + FETCHED),
]


@pytest.mark.parametrize("body, printed, version, follows", VERSION_TEXTS, ids=range(len(VERSION_TEXTS)))
def test_version_texts(world, body, printed, version, follows):
    world.freshclam(0)
    world.install(1)
    world.servers.answer("GET /VestRUM2/Scripted/VestRUM-db-version.txt", body)
    said = LOCAL + (f"version number {printed}\n" if printed else "") + f"Available version {version}\n"
    said += f"currentTempDir: /tmp/tarnwick-0/VestRUMdefs\n{follows}" if follows else "VestRUM.cud file is up-to-date\n"
    outcome = world.run()
    assert (outcome.status, outcome.stdout) == (0, BANNER + said + UNCHANGED + FRESHCLAM)


@pytest.mark.parametrize("header, local", [
    ("ClamAV-VDB:d:-5:1:1:m:X:v:0", -5), ("ClamAV-VDB:d:4:1:1:m:X:v:w:0", 0),
    ("a:b:99999999999999999999:d:e:f:g:h:i", 2**63 - 1), ("\xff:b:4:d:e:f:g:h:i", 0),
    ("a:b:4\0:d:e:f:g:h:i", 0), (" ", 0)])
def test_container_headers(world, header, local):
    world.freshclam(0)
    world.install(3)
    world.write(f"{DATA}/VestRUM.cud", header.encode("latin-1"))
    outcome = world.run()
    follows = (CURRENT.replace("Local version 3", f"Local version {local}") if local > 0 else
               f"Local version {local}\n" + FULL + FETCHED)
    assert (outcome.status, outcome.stdout) == (0, BANNER + follows + UNCHANGED + FRESHCLAM)


@pytest.mark.parametrize("content", [
    b"", b"nonsense", b"\xff\xfe\0", b"<plist><dict><key>a</key></dict>", b"bplist00" + b"\xff" * 40,
    b"<plist version='1.0'><array/></plist>", b"<" * 3_000_000, None,
    b"<plist version='1.0'><dict><key>a</key><string>torn\0\0</string></dict></plist>"], ids=range(9))
def test_state_files(world, content):
    world.freshclam(0)
    world.install(3)
    if content is None:
        world.shell(f"rm {STATE}; mkdir {STATE}")
    else:
        world.write(STATE, content)
    outcome = world.run()
    assert (outcome.status, outcome.stdout) == (1, BANNER + CURRENT + INSTALLED + FRESHCLAM)
    if content is not None:
        assert world.state() == {"database-Last-Modified": world.modified("Vestrum.database")}


@pytest.mark.parametrize("modified, remembered", [("a\tb <&> é ]]>", True), ("Sun, \x01 Nov", False)])
def test_dates_come_back_as_they_were_sent(world, modified, remembered):
    world.freshclam(0, 0)
    world.install(3)
    world.servers.answer(DATABASE.replace("GET", "HEAD"), headers=[f"Last-Modified: {modified}"], length=108)
    for said in (INSTALLED, UNCHANGED if remembered else INSTALLED):
        assert world.run(env={"LANG": "abcdefghijkl"}).stdout == BANNER + CURRENT + said + FRESHCLAM
        assert world.state() == ({"database-Last-Modified": modified} if remembered else {})


@pytest.mark.parametrize("content, version", [
    (None, "unknown"), (b"", "unknown"), (b"VERSION_ID=\n", "unknown"), (b"VERSION_ID='13.1'\n", "13.1"),
    (b'VERSION_ID="\xff"\n', "unknown"), (b"VERSION_ID=9\r\nEvil: header\n", "9"), (b"\0" * 3_000_000, "unknown"),
], ids=range(7))
def test_operating_system_versions(world, content, version):
    world.freshclam(0)
    world.install(3)
    world.shell("rm /etc/os-release")
    if content is not None:
        world.write("/etc/os-release", content)
    assert world.run().status == 0
    assert {request.agent for request in world.servers.requests()} == {
        f"Tarnwick/2.19.4 (Macintosh; Intel Mac OS X {version})"}


UNPACKED = NEWER.format(local=1, available=3) + "Couldn't unpack cud file\n" + FULL + FETCHED
PATCHED = NEWER.format(local=1, available=3) + SCRIPTS + SOUND
PROGRAMS = {
    "sigtool missing": ("sigtool", None, UNPACKED),
    "sigtool killed": ("sigtool", "kill -KILL $$", UNPACKED),
    "scanner talkative": ("clamscan", "head -c 9000000 /dev/zero; head -c 9000000 /dev/zero >&2", PATCHED),
    "scanner leaves another": ("clamscan", "sleep 1000 & exit 0", PATCHED),
}


@pytest.mark.parametrize("name", PROGRAMS)
def test_bad_programs(world, name):
    program, script, said = PROGRAMS[name]
    world.freshclam(0)
    world.install(1)
    world.program(program, script or "")
    if script is None:
        world.path(f"{BIN}/{program}").chmod(0o644)
    outcome = world.run()
    assert (outcome.status, outcome.stdout) == (0, BANNER + said + UNCHANGED + FRESHCLAM)


def bare(world):
    world.shell(f"umount {PREFIX} 2>/dev/null || rm -rf {PREFIX}")


NOTHING_INSTALLED = (
    WARNING + BANNER + FULL + SAVED.format("VestRUM.cud") + "VestRUM.cud DB integrity check failed. Deleting the newly "
    "downloaded file\n" + INSTALLED + "File (/tmp/tarnwick-0/Vestrum.database) couldn't be moved for some reason\n"
    "\nChecking ClamAV definitions\n"
    + "".join(f"Downloaded {name}.cvd from {MIRROR}\n" for name in ("main", "daily", "bytecode")))
ORDINARY = BANNER + CURRENT + UNCHANGED + FRESHCLAM
# What is wrong with the machine, how the tool is run there, its exit status and what it says.
MACHINES = {
    "no prefix": (bare, [TOOL], 127, NOTHING_INSTALLED),
    "no clamav user": (lambda w: w.shell("sed -i /^clamav:/d /etc/passwd /etc/group"), [TOOL], 0, ORDINARY),
    "no log folder": (lambda w: None, [TOOL, "--log=/none/a.log"], 0,
                      ORDINARY.replace("clam -", "clam --log=/none/a.log -")),
    "log to a pipe": (lambda w: None, ["sh", "-c", f"{TOOL} --quiet --log=/dev/stdout | cat"], 0,
                      ORDINARY.replace("clam -", "clam --quiet --log=/dev/stdout -")),
    "log that is a pipe": (lambda w: w.shell("mkfifo /srv/log"),
                           ["sh", "-c", f"{TOOL} --remove-old-first --quiet --log=/srv/log; stat -c %F /srv/log"], 0,
                           "remove old DB files and freshclam log\n"
                           + "".join(SAVED.format(f"{name}.cvd") for name in ("main", "daily", "bytecode"))
                           + "freshclam --quiet --log=/srv/log --no-warnings\nfifo\n"),
    "closed output": (lambda w: None, ["sh", "-c", f"exec {TOOL} >&- 2>&-"], 0, ""),
    "full output": (lambda w: None, ["sh", "-c", f"exec {TOOL} >/dev/full"], 0, ""),
    "broken output": (lambda w: w.program("freshclam", "exit 0"),
                      ["bash", "-c", f"exec 3> >(exec true); wait $!; exec {TOOL} >&3"], 0, ""),
    "not root": (lambda w: w.program("freshclam", "echo freshclam $*; exit 7"),
                 ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", TOOL], 7, ORDINARY),
}


@pytest.mark.parametrize("name", MACHINES)
def test_bad_machines(world, name):
    prepare, command, status, said = MACHINES[name]
    world.freshclam(0)
    world.install(3)
    prepare(world)
    outcome = world.finish(world.start(*command))
    assert (outcome.status, outcome.stdout) == (status, said)
    if name != "no prefix":
        assert f"DatabaseMirror {UPSTREAM}\n" in world.log(CONFIGURATION) and world.litter() == ""


@pytest.mark.parametrize("folder, spoil", [
    ("/none", "true"), ("/tmp", "mount -t tmpfs -o ro,mode=1777 tmp /tmp"),
    ("/tmp", "ln -s /srv /tmp/tarnwick-0; mount --bind /tmp /tmp; mount -o remount,bind,ro /tmp")])
def test_a_temporary_folder_that_cannot_be_made(world, folder, spoil):
    world.freshclam(0)
    world.install(1)
    world.shell(spoil)
    outcome = world.run(env={"TMPDIR": folder})
    said = NEWER.format(local=1, available=3).replace("/tmp/", f"{folder}/") + "Couldn't create temp dir\n" + FULL
    assert (outcome.stdout, outcome.stderr) == (
        BANNER + said + "Failed to download and/or verify VestRUM.cud\n" + UNCHANGED + FRESHCLAM, TRANSFER)
    assert not world.path("/srv/VestRUMdefs").exists()


MEBIBYTE = 1 << 20


def test_a_disk_with_room_for_one(world):
    """A database that is fetched there needs its size once; one that comes from elsewhere, that of the old one."""
    world.freshclam(0)
    world.install(3)
    world.shell("mkdir /data; mount -t tmpfs -o size=7m data /data; mount -t tmpfs tmp /tmp")
    for name in ("bytecode.cvd", "daily.cvd"):
        world.write(f"/data/{name}", "dummy")
    world.write("/srv/vendor/mirror/main.cvd", bytes(4 * MEBIBYTE))
    world.write("/data/Vestrum.database", bytes(5 * MEBIBYTE))
    world.write("/srv/definitions", bytes(5 * MEBIBYTE // 2))
    world.publish("definitions", "/srv/definitions")
    outcome = world.run("--datadir=/data")
    assert outcome.stdout == (
        BANNER + CURRENT + INSTALLED.replace(" 108 ", f" {5 * MEBIBYTE // 2} ") + FRESHCLAM.replace(
            "\nfreshclam ", f"\nDownloading main.cvd [100%]\nDownloaded main.cvd from {MIRROR}\nfreshclam --datadir=/data "))
    assert world.shell("cd /data; stat -c '%s %n' *.cvd Vestrum.database") == (
        f"5 bytecode.cvd\n5 daily.cvd\n{4 * MEBIBYTE} main.cvd\n{5 * MEBIBYTE // 2} Vestrum.database\n")


@pytest.mark.parametrize("argument", ["--datadir=", "--datadir=/", "--datadir=//."])
def test_the_whole_file_system_is_no_data_directory(world, argument):
    world.freshclam(0)
    before = set(world.shell("stat -c '%a %U %n' / /*").splitlines())
    assert world.run(argument).status in (0, 1)
    assert before <= set(world.shell("stat -c '%a %U %n' / /*").splitlines())


@pytest.mark.parametrize("spoil", ["rm {0}", "mount --bind {0} {0}; mount -o remount,bind,ro {0}"])
def test_configuration_that_cannot_be_edited(world, spoil):
    world.install(3)
    world.program("freshclam", "echo freshclam $*")
    world.shell(spoil.format(CONFIGURATION))
    outcome = world.run()
    assert (outcome.status, outcome.stdout, world.litter()) == (0, ORDINARY, "")


AGAIN = "No internet connection available. Trying again in 5 seconds...\n"
GIVING_UP = "No internet connection available. Giving up.\n"


@pytest.mark.parametrize("route, reachable", [
    ("add default dev uplink", True), ("add default via fd00::2 dev uplink", True), ("add unreachable default", False),
    ("add blackhole default", False), ("add 192.0.3.0/24 dev uplink", False), ("", False)])
def test_network_wait(world, route, reachable):
    world.freshclam(0)
    world.install(3)
    before = world.log(CONFIGURATION)
    family = "-6" if "fd00" in route else "-4"
    world.shell(f"ip route del default; ip -6 addr add fd00::1/64 dev uplink nodad; ip {family} route {route}"
                if route else "ip link set uplink down")
    outcome = world.run("--quiet", "--log=/srv/a.log", rate=60)
    call = "freshclam --quiet --log=/srv/a.log --no-warnings\n"
    assert (outcome.status, outcome.stdout) == ((0, call) if reachable else (123, AGAIN * 3 + GIVING_UP))
    assert world.path("/srv/a.log").exists() == reachable and world.log(CONFIGURATION) == before


def test_network_that_comes_up_in_the_second_pause(world):
    world.freshclam(0)
    world.install(3)
    world.shell("ip route del default")
    job = world.launch(rate=5)
    job.read_until(AGAIN + AGAIN)
    world.shell("ip route add default via 192.0.2.1")
    outcome = world.finish(job)
    assert (outcome.status, outcome.stdout) == (0, ORDINARY)


NEVER = "".join(f"Vestrum.{kind} updated never\n" for kind in ("fp", "hdb", "ign2", "ndb", "ldb", "database"))


@pytest.mark.parametrize("arguments, zone, date", [
    (["--version"], "UTC", "2026-11-22 22:40:01 Z"), (["-V", "--quiet"], "Asia/Kolkata", "2026-11-23 04:10:01 +05:30"),
    (["-V"], "America/St_Johns", "2026-11-22 19:10:01 -03:30")])
def test_version_report(world, arguments, zone, date):
    missing = f"Unable to open file {DATA}/VestRUM.cud\n" * 2
    outcome = world.run(*arguments, env={"TZ": zone})
    assert (outcome.status, outcome.stdout) == (0, f"Tarnwick 2.19.4\n{missing}VestRUM.cud (v0) updated never\n{NEVER}")
    world.write(f"{DATA}/VestRUM.cud", "ClamAV-VDB:d:7:1:1:m:X:v:1795387201".ljust(512) + "archive")
    world.shell(f"touch -d @1795387201.9 {DATA}/Vestrum.ldb")
    outcome = world.finish(world.start("setpriv", "--reuid=65534", TOOL, *arguments, env={"TZ": zone}))
    assert (outcome.status, outcome.stderr, outcome.stdout) == (
        0, "", f"Tarnwick 2.19.4\nVestRUM.cud (v7) updated {date}\n"
        + NEVER.replace("ldb updated never", f"ldb updated {date}"))
