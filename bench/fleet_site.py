"""A private machine with the vendor's home, the tool, and any number of servers."""

import http.client
import os
import pathlib
import shutil
import socket
import typing

from testbed.cache import made_once
from testbed.machine import Machine, only_child, seen_inside
from testbed.servers import HOSTS, make_certificates
from testbed import servers as testbed_servers
from testbed.vendor import EXECUTABLE, KIT
from testbed.world import DATA, TOOL, UPSTREAM_DATABASES

ADDRESSES = ("198.51.100.1", "203.0.113.1")
# Debian's layout, with a log for the figures and a socket; an answer on it means that the log is complete.
NGINX = """
user www-data; worker_processes 1; pid {run}/pid; error_log {run}/error.log; daemon off;
worker_rlimit_nofile 8192;
events {{ worker_connections 4096; }}
http {{
    map $uri $plain_path {{ default $uri; "~^/[^/]{{22}}/[0-9]+(?<rest>/.*)$" $rest; }}
    log_format request "$connection\\t$ssl_session_reused\\t$request_method\\t$host\\t$plain_path\\t$status\\t"
                       "$request_length\\t$http_user_agent";
    access_log {run}/requests request;
    client_body_temp_path {run}/body; proxy_temp_path {run}/proxy; fastcgi_temp_path {run}/fastcgi;
    uwsgi_temp_path {run}/uwsgi; scgi_temp_path {run}/scgi;
    server {{ listen unix:{run}/fence; access_log off; return 204; }}
    include {run}/site.conf;
}}
"""


class Request(typing.NamedTuple):
    connection: str
    reused: str
    method: str
    host: str
    path: str
    status: str
    length: int  # of the request, in bytes
    agent: str


class Server:
    """nginx at its own address, with the configuration that the kit's `site` prints for `folder`. The constructor
    returns when it is ready."""

    def __init__(self, machine, folder, address, processor=None):
        self._machine = machine
        self.address = address
        self._run = f"/run/nginx-{pathlib.Path(folder).name}"
        site = machine.kit(folder, "site", "--certificate", "/srv/tls/certificate.pem",
                           "--certificate-key", "/srv/tls/key.pem")
        site = site.replace("listen 443", f"listen {address}:443").replace("    listen [::]:443 ssl;\n", "")
        machine.shell(f"mkdir -p {self._run}; rm -f {self._run}/pid; ip addr replace {address}/32 dev lo")
        machine.write(f"{self._run}/site.conf", site)
        machine.write(f"{self._run}/nginx.conf", NGINX.format(run=self._run))
        through = [] if processor is None else ["taskset", "-c", processor]
        self._job = machine.start(*through, "nginx", "-c", f"{self._run}/nginx.conf", "-e", f"{self._run}/error.log")
        machine.shell(f"until [ -s {self._run}/pid ]; do :; done")
        self._fence()
        self._worker = only_child(self._job.pid)

    def die(self):
        """Kills nginx, and with it all requests under way."""
        for process in (self._job.pid, self._worker):
            os.kill(process, 9)
        self._job.end()
        self._machine.shell(f"rm -f {self._run}/fence")

    def processor_seconds(self):
        """The worker's processor time so far; the kernel counts in nanoseconds."""
        return int(pathlib.Path(f"/proc/{self._worker}/schedstat").read_text(encoding="ascii").split()[0]) / 1e9

    def _fence(self):
        """Returns when the worker has logged every request it has answered."""
        fence = http.client.HTTPConnection("fence")
        fence.sock = socket.socket(socket.AF_UNIX)
        fence.sock.connect(str(self._machine.path(f"{self._run}/fence")))
        fence.request("GET", "/")
        fence.getresponse().read()
        fence.close()

    def requests(self):
        """Takes the requests since the last call out of the log."""
        if self._machine.path(f"{self._run}/fence").exists():
            self._fence()
        log = self._machine.path(f"{self._run}/requests")
        fields = [line.split("\t") for line in log.read_text(encoding="utf-8").splitlines()]
        log.write_text("", encoding="utf-8")
        return [Request(*line[:6], int(line[6]), line[7]) for line in fields]


class Site(Machine):
    """The home is /srv/vendor. ClamAV's databases are dummies and freshclam always succeeds, so a run only sends the
    vendor's requests."""

    def __init__(self, home):
        super().__init__()
        shutil.copytree(home, self.path("/srv/vendor"), symlinks=True)
        tls = made_once("tls", make_certificates, [pathlib.Path(testbed_servers.__file__)])
        for name in ("certificate.pem", "key.pem"):
            self.write(f"/srv/tls/{name}", (tls / name).read_bytes())
        self.write("/etc/ssl/certs/ca-certificates.crt", (tls / "authority.pem").read_bytes())
        self.write("/etc/host.conf", "multi on\n")
        self.shell(f"/repository/packaging/linux/provision; cp {seen_inside(EXECUTABLE)} {TOOL}")
        for name in UPSTREAM_DATABASES:
            self.write(f"{DATA}/{name}.cvd", "dummy")
        self.write("/usr/local/vestRum/bin/freshclam", "#!/bin/sh\nexit 0\n", 0o755)

    def kit(self, home, *arguments):
        outcome = self.command(KIT, "--home", home, *arguments)
        assert outcome.status == 0, outcome
        return outcome.stdout

    def container(self, version):
        return self.path(f"/srv/vendor/containers/{version}.cud").read_bytes()


def hosts_file(*addresses):
    """The content of /etc/hosts: the vendor's hosts at these addresses, tried in this order."""
    return "".join(f"{address} {host}\n" for host in HOSTS for address in addresses)
