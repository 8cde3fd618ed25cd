"""The Debian packages, from their build to their purge, on a temporary copy of this system."""

import pathlib
import platform
import plistlib
import re
import shutil
import signal
import subprocess
import typing

import pytest

from testbed import BIN, DATA, PREFIX, REPOSITORY, overlay
from testbed.cache import made_once
from testbed.prefix_layout import LAID_OUT, LISTING
from testbed.service import UNIT, behind_walls, command
from testbed.texts import BANNER, DEFINITIONS_NEW, FULL_CONTAINER, UPSTREAM_PHASE
from testbed.vendor import PUBLISHER
from testbed.world import EXECUTABLE

PACKAGING = REPOSITORY / "packaging"
INPUTS = [EXECUTABLE, PUBLISHER, *(REPOSITORY / "cmake").iterdir(), *filter(pathlib.Path.is_file, PACKAGING.rglob("*")),
          *(REPOSITORY / "settings").iterdir(), *REPOSITORY.glob("*.md"),
          *filter(pathlib.Path.is_file, (REPOSITORY / "publish").rglob("*"))]
SETTINGS = re.findall(r"(?m)^(?:TARNWICK_|CMAKE_BUILD_TYPE|CMAKE_CXX_FLAGS:).*",
                      (EXECUTABLE.parent / "CMakeCache.txt").read_text(encoding="utf-8"))
shipped_as_tested = pytest.mark.skipif("TARNWICK_SANITIZERS:BOOL=ON" in SETTINGS, reason="has sanitizers")
# Patterns in the headers, symbols and instructions of the program, and how often each must occur at least.
HARDENING = {
    "anywhere in memory": (r"Flags: .*\bPIE\b", 1),
    "relocations are read-only": (r"GNU_RELRO", 1),
    "relocated before it starts": (r"\bBIND_NOW\b", 1),
    "stack is not executed": (r"GNU_STACK .* RW  ", 1),
    "stack is guarded": (r"__stack_chk_fail", 1),
    "stack grows page by page": (r"\bor[ql] +\$0x0,.*\(%rsp\)", 1),
    "jumps lead where they may": (r"\bendbr64\b", 100),
    "library asserts": (r"__glibcxx_assert_fail", 1),
}
CONFIGURATIONS = [f"{PREFIX}/etc/freshclam{kind}.conf" for kind in ("", "BAK", "CLEAN")]

# The message of systemctl about a link that it creates differs between releases.
CONFIGURE = """dpkg --unpack /tarnwick.deb >/dev/null; sed -i '/^[cl].*-host:/s/$/.org/' /usr/lib/tarnwick/build
    dpkg --configure tarnwick | sed 1d"""
INSTALL = f"""{{ {CONFIGURE}; }} 2>&1 >/dev/null | sed '/^Created symlink/d'; touch {DATA}/main.cvd\n"""
FROM_SOURCE = f"""cmake --install {EXECUTABLE.parent} --prefix /usr/local >/dev/null
    sed -i '/^[cl].*-host:/s/$/.org/' /usr/local/lib/tarnwick/build; /usr/local/lib/tarnwick/setup
    readlink /etc/systemd/system/timers.target.wants/tarnwick.timer; touch {DATA}/main.cvd\n"""
UNINSTALL = f"""cd {EXECUTABLE.parent}; /usr/local/lib/tarnwick/takedown; xargs -d '\n' rm <install_manifest.txt
    rm install_manifest.txt\n"""
MAKE_STATE = "mkdir -p /var/lib/tarnwick && touch /var/lib/tarnwick/state\n"
MIRROR_OF_A_RUN = f"sed -i 's/Mirror .*/Mirror mirror.vestrum.example/' {CONFIGURATIONS[0]}\n"
CLAMD = [f"/etc/apparmor.d/{folder}usr.sbin.clamd" for folder in ("", "local/")]
OTHER_UPSTREAM = f"""sed -i 's/^\\(upstream.*-host\\): .*/\\1: upstream.example.org/' /usr/lib/tarnwick/build
    rm {' '.join(CONFIGURATIONS)}; /usr/lib/tarnwick/provision >/dev/null
    """
LINKED = f"""cd {PREFIX}; rm -r bin etc; mv share /srv; ln -s /usr/bin bin; ln -s /etc/clamav etc
    ln -s /srv/share share; cd /\n"""
CHANGED = f"for file in {' '.join(CONFIGURATIONS)}; do echo Checks 3 >>$file; done\n"


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, check=False)


def pack(build, folder):
    """With a umask that hides new files from other users."""
    subprocess.run(["cpack", "--config", build / "CPackConfig.cmake", "-B", folder], check=True, capture_output=True,
                   umask=0o077)


@pytest.fixture(scope="module")
def package():
    def make(folder):
        pack(EXECUTABLE.parent, folder)

    return next(made_once(f"package-{EXECUTABLE.parent.name}", make, INPUTS).glob("tarnwick_*.deb"))


@pytest.fixture(scope="module")
def kit(package):
    return next(package.parent.glob("tarnwick-publish_*.deb"))


def try_out(package, script):
    return overlay.try_out(script, package, "tarnwick.deb")


def test_an_installed_package_is_complete(package):
    output, _ = try_out(package, INSTALL + f"""
        readlink -f /etc/systemd/system/timers.target.wants/tarnwick.timer
        tarnwick --version | head -n 1
        {LISTING}
        systemd-analyze verify tarnwick.service tarnwick.timer
        systemd-analyze security --offline=true --threshold=28 tarnwick.service >/dev/null
        for profile in bin.freshclam sbin.clamd; do
            apparmor_parser -QK /etc/apparmor.d/usr.$profile 2>/dev/null
            apparmor_parser -p /etc/apparmor.d/usr.$profile 2>/dev/null | grep vestRum
        done
        man -w tarnwick""")
    assert output == [
        "/usr/lib/systemd/system/tarnwick.timer",
        "Tarnwick 2.19.4", *LAID_OUT.splitlines(), "'./share/clamav/main.cvd' -rw-r--r-- root:root",
        f"{PREFIX}/etc/freshclam.conf r,", f"{DATA}/ r,", f"{DATA}/** krw,", f"{DATA}/ r,", f"{DATA}/** r,",
        "/usr/share/man/man8/tarnwick.8.gz"]


@pytest.mark.parametrize("script, left", [
    (MAKE_STATE + MIRROR_OF_A_RUN + "dpkg -r tarnwick", [f"{DATA}/main.cvd"]),
    (f"rm {' '.join(CLAMD)}; /usr/lib/tarnwick/apparmor/override add; dpkg -r tarnwick; test ! -e {CLAMD[1]}",
     [f"{DATA}/main.cvd"]),
    (CHANGED + INSTALL + "dpkg -r tarnwick", [*CONFIGURATIONS, f"{DATA}/main.cvd"]),
    (f"echo '# mine' >>{CONFIGURATIONS[1]}; dpkg -r tarnwick", [CONFIGURATIONS[1], f"{DATA}/main.cvd"]),
    (OTHER_UPSTREAM + MIRROR_OF_A_RUN + "dpkg -r tarnwick", [f"{DATA}/main.cvd"]),
    (f"cp --remove-destination /bin/true {BIN}/clamscan; dpkg -r tarnwick", [f"{BIN}/clamscan", f"{DATA}/main.cvd"]),
    (CHANGED + MAKE_STATE + "dpkg -P tarnwick", []),
    (LINKED + "dpkg -P tarnwick; test -e /etc/clamav/freshclam.conf -a -e /usr/bin/sigtool -a ! -e " + PREFIX,
     ["/srv/share/clamav/main.cvd"]),
    ("dpkg -P tarnwick\n" + FROM_SOURCE + MAKE_STATE + MIRROR_OF_A_RUN + UNINSTALL, [f"{DATA}/main.cvd"]),
], ids=["removed", "removed where no clamd is", "removed with a changed configuration", "removed with a comment",
        "for another upstream", "a scanner of the administrator", "purged", "purged with links",
        "installed from source"])
def test_removal_leaves_only_databases_and_changed_files(package, script, left):
    assert try_out(package, INSTALL + script)[1] == left


LINK = "/etc/systemd/system/timers.target.wants/tarnwick.timer"
READY = [f"{PREFIX} is ready.", "The AppArmor profiles of freshclam and clamd can reach it."]
ON = "The timer is enabled: a run starts every hour."


@pytest.mark.parametrize("script, said", [
    (f"/usr/lib/tarnwick/takedown; {CONFIGURE} 2>/dev/null; test ! -e {LINK}", [
        "The timer is disabled.", f"left: {DATA}, the databases", *READY,
        "The timer was disabled on this machine, and stays disabled."]),
    (f"rm {LINK}; /usr/lib/tarnwick/setup; test -e {LINK}", [*READY, ON]),
    ("rm /usr/bin/systemctl /usr/bin/deb-systemd-helper; /usr/lib/tarnwick/setup", [
        *READY, "This machine has no systemd, so no timer. Start tarnwick every hour by other means, such as cron."]),
    (f"rm {LINK}; sed -i 's/[.]org$//' /usr/lib/tarnwick/build; /usr/lib/tarnwick/setup; test ! -e {LINK}", [
        *READY, "The timer is unchanged: this build has the example host content.vestrum.example, so every run would "
        "fail."]),
    (f"rm {LINK}; sed -i '/^key-owner/s/vendor/example/' /usr/lib/tarnwick/build; /usr/lib/tarnwick/setup; "
     f"test ! -e {LINK}", [
         *READY, "The timer is unchanged: this build has the example key, so every run would fail."]),
    (CHANGED.replace("Checks 3", "'# mine'") + f"rm {DATA}/main.cvd; /usr/lib/tarnwick/takedown", [
        "The timer is disabled.", *(f"left: {file}, which was changed" for file in CONFIGURATIONS)]),
    (f"rm {DATA}/main.cvd; /usr/lib/tarnwick/takedown", ["The timer is disabled.", f"{PREFIX} is gone."]),
], ids=["taken down and upgraded", "switched on by hand", "no systemd", "example hosts", "example key",
        "a changed configuration", "nothing to keep"])
def test_setup_and_takedown_print_what_they_do(package, script, said):
    assert try_out(package, INSTALL + script)[0] == said


def test_the_build_can_be_read_from_an_installed_machine(package):
    """The hash of the key is the one that the publishing kit prints."""
    output, _ = try_out(package, "dpkg -i /tarnwick.deb >/dev/null 2>&1; cat /usr/lib/tarnwick/build")
    key = run("sh", "-euc", 'openssl pkey -pubin -in "$1" -outform DER | sha256sum | cut -c -64', "sh",
              REPOSITORY / "build/vendor/public.pem").stdout
    hosts = ("content", "link", "mirror", "older-mirror", "version-record", "upstream-mirror",
             "upstream-version-record")
    assert [line.split(":")[0] for line in output] == [
        "version", "release", "maintainer", *(f"{host}-host" for host in hosts), "key-owner", "key-sha256"]
    assert (output[0], output[3], *output[-2:]) == (
        "version: 2.19.4", "content-host: content.vestrum.example", "key-owner: vendor", f"key-sha256: {key.strip()}")


@shipped_as_tested
def test_packages_meet_debian_policy(package, kit):
    done = run("lintian", "--allow-root", "--display-info", package, kit)
    # Instructions can look like misspelt words by chance, so a build may not need each override.
    unneeded = re.compile("N: |I: tarnwick(-publish)?: unused-override ")
    found = [line for line in done.stdout.splitlines() if not unneeded.match(line)]
    assert (done.returncode, found) == (0, [])


def test_the_installed_kit_works_and_its_purge_leaves_nothing(kit):
    assert try_out(kit, """dpkg -i --force-depends /tarnwick.deb >/dev/null 2>&1; tarnwick-publish --help | head -n 1
        systemd-analyze verify tarnwick-mirror@srv-vendor.service tarnwick-mirror@srv-vendor.timer
        systemd-analyze security --offline=true --threshold=28 tarnwick-mirror@srv-vendor.service >/dev/null
        rm -f /run/systemd/systemd-units-load
        ! ls /etc/systemd/system/timers.target.wants 2>&1 | grep mirror
        man -w tarnwick-publish; dpkg -P tarnwick-publish >/dev/null 2>&1""") == (
            ["Usage: tarnwick-publish [--home DIR] COMMAND [ARGUMENT...]", "/usr/share/man/man1/tarnwick-publish.1.gz"],
            [])


def test_links_in_installed_documents_lead_to_installed_files(package, kit, tmp_path):
    for deb in (package, kit):
        subprocess.run(["dpkg-deb", "-x", deb, tmp_path], check=True)
    pages = list(tmp_path.glob("usr/share/doc/*/*.md"))
    assert len(pages) == 7
    assert [(page.name, link) for page in pages
            for link in re.findall(r"\]\(([^)#]+)\)", page.read_text(encoding="utf-8"))
            if not (page.parent / link).exists()] == []


TAMPERING = f"exec 2>/dev/null; touch {PREFIX}/here {BIN}/there; echo mine >{BIN}/sigtool; true"
# Files that the unit hides from a run, some by hiding their folders.
HIDDEN = ["/etc/shadow", "/etc/gshadow", "/etc/ssh/key", "/etc/ssl/private/key", "/run/systemd/private",
          "/run/dbus/system_bus_socket", "/run/docker.sock", "/run/containerd/containerd.sock",
          "/run/podman/podman.sock"]
# Prints the names of the calls that the filter refuses.
REFUSED = """import ctypes, os
libc = ctypes.CDLL(None, use_errno=True)
print("refused:", *(name for name, call in {
    "chroot": lambda: libc.chroot(b"/"), "mknod": lambda: libc.mknod(b"/tmp/x", 0o10600, 0),
    "mlock": lambda: libc.mlock(bytes(9), 9), "shmget": lambda: libc.shmget(0, 9, 0o1600),
    "io_setup": lambda: libc.syscall(206, 1, bytes(8)), "keyctl": lambda: libc.syscall(250, 0, -3, 1),
    "pipe": lambda: os.pipe() and 0}.items() if call() == -1 and ctypes.get_errno() == 1))"""


class Kind(typing.NamedTuple):
    """A kind of run: how it ends, and what prepares its world."""
    status: int
    version: int
    before: typing.Callable = lambda world: None
    arguments: tuple = ()


def by_scripts(world):
    world.install(1)
    world.program("freshclam", TAMPERING)


def by_whole_databases(world):
    world.freshclam(*[52] * 6)
    world.write("/srv/vendor/mirror/dns.txt", "0.103.2:62:27000:0:1:90:49192:333")


def with_repairs(world):
    world.install(1)
    world.freshclam(50, 52, 56, 56, 62, 0)


KINDS = {
    "by scripts": Kind(0, 3, by_scripts),
    "the first one": Kind(1, 3, lambda world: world.custom_database(), ("--log=/var/log/clamav/tarnwick.log",)),
    "repaired": Kind(0, 3, with_repairs),
    "afresh": Kind(1, 3, lambda world: world.freshclam(0), ("--remove-old-first", "--quiet")),
    "without freshclam": Kind(234, 3, by_whole_databases),
}


@shipped_as_tested
@pytest.mark.parametrize("kind", KINDS.values(), ids=KINDS)
def test_each_kind_of_run_works_with_the_rights_of_the_unit(new_world, kind):
    kind.before(new_world)
    new_world.shell(f"chown clamav {PREFIX}; mkdir -p /var/log/clamav")
    programs = f"cd {BIN}; md5sum *"
    before = new_world.shell(programs)
    outcome = new_world.run(*kind.arguments, through=behind_walls())
    assert (outcome.status, new_world.version()) == (kind.status, kind.version), outcome
    assert not re.search("denied|not permitted|Read-only|too large", outcome.stdout + outcome.stderr), outcome
    assert new_world.shell(f"{programs}; stat -c %U {PREFIX}") == f"{before}root\n"


def test_the_unit_hides_files_and_refuses_system_calls(world):
    for file in HIDDEN:
        world.write(file, "a secret")
    world.write("/srv/calls.py", REFUSED)
    seen = world.command(*behind_walls(), "sh", "-c", f"cat {' '.join(HIDDEN)}; /usr/bin/python3 /srv/calls.py")
    assert seen.stdout == "refused: chroot mknod mlock shmget io_setup keyctl\n", seen


def test_the_unit_sets_every_variable_that_it_names():
    named = {name for line in UNIT["ExecStart"] for name in re.findall(r"(?<!\$)\$(\w+)", line)}
    assert named == {line.split("=")[0] for line in UNIT.get("Environment", [])}


def test_the_unit_leaves_room_for_the_largest_download():
    largest = next(int(setting.split("=")[1]) for setting in SETTINGS if "LARGEST_DOWNLOAD" in setting)
    scanner = 1_600_000_000  # the memory that clamscan needs for all of ClamAV's databases
    assert int(UNIT["LimitFSIZE"][0]) > largest
    # /tmp may be in memory, and hold a container and its copy.
    assert int(UNIT["MemoryMax"][0]) > 2 * largest + scanner


def test_the_unit_writes_text_and_passes_on_status_and_signals(new_world):
    service = [*command(UNIT["ExecStart"][0]), "--first", "--second"]
    environment = {"PATH": "/usr/local/bin:/usr/bin:/bin"}
    new_world.program("freshclam", r"echo $*; echo complaint >&2; printf 'half\rwhole\r\nend\r'; exit 3")
    outcome = new_world.command(*service, env=environment)
    assert (outcome.status, outcome.stderr, re.sub("started at .*", "started at DATE", outcome.stdout)) == (
        3, "", BANNER + FULL_CONTAINER + DEFINITIONS_NEW + UPSTREAM_PHASE + "--first --second --no-warnings\n"
        "complaint\nwhole\nend")
    new_world.program("freshclam", "echo under way; sleep 1000")
    job = new_world.start(*service, env=environment)
    job.read_until("under way\n")
    job.signal(signal.SIGTERM)
    assert (job.end().status, new_world.running("^(sleep 1|sed)")) == (255, [])


@shipped_as_tested
def test_the_same_source_gives_the_same_packages(package, kit):
    """The second packages are built from a copy of the source with another path and newer files."""
    def make(folder):
        source, build = folder / "source", folder / "build"
        shutil.copytree(REPOSITORY, source, copy_function=shutil.copy, ignore=shutil.ignore_patterns("build", ".git"))
        settings = [f"-D{setting}" for setting in SETTINGS]
        for command in (["cmake", "-S", source, "-B", build, "-G", "Ninja", "-DBUILD_TESTING=OFF", *settings],
                        ["cmake", "--build", build]):
            subprocess.run(command, check=True, capture_output=True)
        pack(build, folder)

    again = made_once(f"package-{EXECUTABLE.parent.name}-again", make, INPUTS)
    for deb in (package, kit):
        assert (again / deb.name).read_bytes() == deb.read_bytes()


def test_no_package_without_its_library_dependencies(tmp_path):
    (tmp_path / "nothing").touch()
    done = run("unshare", "-m", "sh", "-euc", """
        mount --bind "$1/nothing" "$(command -v dpkg-shlibdeps)"
        cpack --config "$2/CPackConfig.cmake" -B "$1" """, "sh", tmp_path, EXECUTABLE.parent)
    assert "The libraries that the package depends on were not found" in done.stderr
    assert (done.returncode, list(tmp_path.glob("*.deb"))) == (1, [])


@shipped_as_tested
@pytest.mark.skipif(platform.machine() != "x86_64", reason="other processors have other instructions")
def test_shipped_program_is_hardened(package, tmp_path):
    subprocess.run(["dpkg-deb", "-x", package, tmp_path], check=True)
    seen = run("sh", "-euc", 'readelf -Wld "$1"; readelf -W --dyn-syms "$1"; objdump -d "$1"', "sh",
               tmp_path / "usr/sbin/tarnwick").stdout
    assert [name for name, (pattern, least) in HARDENING.items() if len(re.findall(pattern, seen)) < least] == []
    # The executable does not show the level of _FORTIFY_SOURCE, so check the commands that compiled it.
    commands = (EXECUTABLE.parent / "compile_commands.json").read_text(encoding="utf-8").splitlines()
    compiled = [line for line in commands if '"command"' in line and "/src/" in line]
    assert compiled and [line for line in compiled if "-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3 " not in line] == []


def test_the_source_compiles_with_the_flags_of_a_distribution(tmp_path):
    flags = run("dpkg-buildflags", "--get", "CPPFLAGS").stdout + run("dpkg-buildflags", "--get", "CXXFLAGS").stdout
    assert "-D_FORTIFY_SOURCE=2" in flags
    done = run("cmake", "-S", REPOSITORY, "-B", tmp_path, "-G", "Ninja", "-DBUILD_TESTING=OFF",
               "-DTARNWICK_CONTENT_HOST=content.example.org", "-DTARNWICK_LINK_HOST=links.example.org",
               f"-DTARNWICK_PUBLIC_KEY_FILE={REPOSITORY}/build/vendor/public.pem", "-DTARNWICK_LINK_SECRET=Own",
               "-DCMAKE_CXX_FLAGS=" + " ".join(flags.split()))
    assert (done.returncode, done.stderr) == (0, "")
    done = run("ninja", "-C", tmp_path, "src/CMakeFiles/tarnwick_base.dir/base/text_rules.cpp.o")
    assert done.returncode == 0, done.stdout
    # CMake warns about a build that could not update anything.
    done = run("cmake", tmp_path, "-DTARNWICK_LINK_HOST=links.vestrum.example", "-DTARNWICK_PACKAGE_RELEASE=2a",
               "-DTARNWICK_PACKAGE_MAINTAINER=A Vendor <vendor@example.org>")
    assert (done.returncode, "hosts that do not exist, content.example.org and" in done.stderr) == (0, True)
    done = run("cmake", tmp_path, "-DTARNWICK_LINK_HOST=links.example.org", "-DTARNWICK_LINK_SECRET=Kesto-Ra",
               f"-DTARNWICK_PUBLIC_KEY_FILE={REPOSITORY}/settings/vendor_public_key.pem")
    assert re.findall("the example (?:key|secret)", " ".join(done.stderr.split())) == [
        "the example key", "the example secret"]
    assert "key-owner: example\n" in (tmp_path / "generated/build").read_text(encoding="utf-8")
    changes = (tmp_path / "packaging/changelog").read_text(encoding="utf-8").splitlines()
    assert (changes[0], changes[4], changes[6]) == (
        "tarnwick (2.19.4-2a) stable; urgency=medium",
        " -- A Vendor <vendor@example.org>  Sun, 22 Nov 2026 12:00:00 +0000",
        "tarnwick (2.19.4-1) stable; urgency=medium")


def test_packages_installed_for_building_start_no_services():
    """With a stand-in for apt-get that installs a timer."""
    link = "/etc/systemd/system/timers.target.wants/odd.timer"
    output, _ = overlay.try_out(f"""dpkg -r --force-depends psmisc >/dev/null 2>&1
        printf '[Install]\nWantedBy=timers.target\n' >/usr/lib/systemd/system/odd.timer
        mkdir /quick; install -m 755 /dev/null /quick/apt-get
        printf '#!/bin/sh\nDPKG_MAINTSCRIPT_PACKAGE=odd deb-systemd-helper enable odd.timer\n' >/quick/apt-get
        PATH=/quick:$PATH {REPOSITORY}/scripts/install-dependencies run
        test ! -L {link}""", REPOSITORY / "LICENSE", "nothing")
    assert output == ["Installing psmisc and what they need", "Not started, now or with the machine: odd.timer."]


def test_launchd_schedule():
    job = PACKAGING / "launchd/uk.co.pellawaysoftware.vestrum.tarnwick.plist"
    binary = subprocess.run(["plistutil", "-i", job, "-f", "bin"], check=True, capture_output=True).stdout
    schedule = plistlib.loads(binary)
    assert (schedule["ProgramArguments"], schedule["StartInterval"]) == (["/usr/local/sbin/tarnwick"], 3600)


def test_the_manual_page_has_no_errors_and_lists_every_exit_status_of_the_readme():
    page = PACKAGING / "man/tarnwick.8"
    assert run("man", "--warnings", "-E", "UTF-8", "-l", page).stderr == ""
    manual = re.search(r"^\.SH EXIT STATUS$(.*?)^\.SH", page.read_text(encoding="utf-8"), re.M | re.S).group(1)
    readme = re.findall(r"^\| ([0-9, ]+) \|", (REPOSITORY / "README.md").read_text(encoding="utf-8"), re.M)
    documented = re.findall(r"\d+", " ".join(re.findall(r"(?m)^\.BR? \d.*", manual)))
    assert set(re.findall(r"\d+", " ".join(readme))) - set(documented) == set()
