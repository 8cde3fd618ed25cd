"""The vendor's hosts inside a machine: a real nginx with TLS and a request log, and answers that a test replaces."""

import collections
import contextlib
import http.client
import pathlib
import queue
import socket
import subprocess
import threading
import time
import typing

from .cache import made_once

CONTENT, LINKS, MIRROR = (f"{name}.vestrum.example" for name in ("content", "links", "mirror"))
UPSTREAM, ORIGIN = "database.clamav.net", "origin.vestrum.example"
HOSTS = (CONTENT, LINKS, MIRROR, UPSTREAM, ORIGIN)
HERE, NOBODY, IMPOSTOR, NAMESAKE = "127.0.0.1", "127.0.0.2", "127.0.0.3", "127.0.0.5"

# Every server first checks whether a test has set a fault for the request: a file means an answer that the test gives,
# a folder means that nginx closes the connection without an answer.
FAULTS = """
    set $fault /srv/faults/$request_method$plain_path;
    error_page 418 = @fault;
    if (-f $fault) { return 418; }
    if (-d $fault) { return 444; }
    if (-f /srv/faults/$host) { return 500; }
    location @fault {
        proxy_pass http://unix:/run/nginx/faults:;
        proxy_buffering off; proxy_buffer_size 128k; proxy_buffers 4 128k;
        proxy_set_header Plain $plain_path;
    }
"""
NGINX = """
user root; worker_processes 1; pid /run/nginx/pid; error_log /run/nginx/error.log;
events { }
http {
    map $uri $plain_path { default $uri; "~^/[^/]{22}/[0-9]+(?<rest>/.*)$" $rest; }
    log_format request "$connection\t$ssl_session_reused\t$request_method\t$host\t$plain_path\t$status\t"
                       "$http_user_agent";
    access_log /run/nginx/requests request;
    client_body_temp_path /run/nginx/body; proxy_temp_path /run/nginx/proxy; fastcgi_temp_path /run/nginx/fastcgi;
    uwsgi_temp_path /run/nginx/uwsgi; scgi_temp_path /run/nginx/scgi;
    server { listen unix:/run/nginx/fence; access_log off; return 204; }
    server {
        listen 127.0.0.3:443 ssl;
        ssl_certificate /srv/vendor/tls/impostor.pem;
        ssl_certificate_key /srv/vendor/tls/impostor.pem;
    }
    server {
        listen 127.0.0.5:443 ssl;
        ssl_certificate /srv/vendor/tls/namesake.pem;
        ssl_certificate_key /srv/vendor/tls/key.pem;
    }
    include /srv/site.conf;
    server {
        FAULTS
        listen HERE:443 ssl;
        server_name ORIGIN;
        ssl_certificate /srv/vendor/tls/certificate.pem;
        ssl_certificate_key /srv/vendor/tls/key.pem;
        root /srv/origin;
    }
}
"""
Request = collections.namedtuple("Request", "connection reused method host path status agent")


def make_certificates(folder):
    """Makes a local authority, its certificates for the hosts and for another host, and a self-signed one."""
    new = "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 3650"
    names = ",".join(f"DNS:{host}" for host in HOSTS)
    script = f"""
        {new} -keyout authority.key -out authority.pem -subj '/CN=Local authority'
        {new} -keyout key.pem -out certificate.pem -subj '/CN=Site' -addext subjectAltName={names} \
            -addext basicConstraints=critical,CA:FALSE -CA authority.pem -CAkey authority.key
        openssl req -x509 -key key.pem -nodes -days 3650 -out namesake.pem -subj /CN=Site \
            -addext subjectAltName=DNS:elsewhere.example -addext basicConstraints=critical,CA:FALSE \
            -CA authority.pem -CAkey authority.key
        {new} -keyout impostor.pem -out impostor.crt -subj /CN=Impostor -addext subjectAltName={names}
        cat impostor.crt >>impostor.pem"""
    subprocess.run(["sh", "-euc", script], cwd=folder, check=True, stderr=subprocess.DEVNULL)


SILENCE = {"status": None, "hold": True}  # arguments of `Servers.answer`


def redirect(url):
    """Arguments of `Servers.answer`."""
    return {"status": "302 Found", "headers": [f"Location: {url}"]}


class BadServer(typing.NamedTuple):
    """How the vendor's hosts answer a download."""
    answer: dict | None = None  # arguments of `Servers.answer`; None closes the connection
    address: str | None = HERE
    saved: int | None = None  # the HTTP status, if the run saves the body and then requests its signature


BAD_SERVERS = {
    "refuses": BadServer(address=NOBODY),
    "is unknown": BadServer(address=None),
    "is an impostor": BadServer(address=IMPOSTOR),
    "is another host": BadServer(address=NAMESAKE),
    "hangs up": BadServer(),
    "cuts short": BadServer({"body": "half of it", "length": 20}),
    "stalls": BadServer({"body": "half of it", "length": 20, "hold": True}),
    "says nothing": BadServer(SILENCE),
    "has an error": BadServer({"body": "<html>sorry</html>", "status": "500 Sorry"}, saved=500),
    "has nothing": BadServer({}, saved=200),
    "leads elsewhere": BadServer(redirect(f"https://{MIRROR}/x"), saved=404),
    "leads to a file": BadServer(redirect("file:///etc/passwd")),
    "leads in a circle": BadServer(redirect("/VestRUM2/Scripted/VestRUM.cud")),
}


class Servers:
    """nginx in `machine`, which serves the publishing home /srv/vendor with the configuration `site`."""

    def __init__(self, machine, site):
        self._machine = machine
        self._answers = {}
        self._held = collections.defaultdict(threading.Event)
        self._held_for = queue.Queue()
        tls = made_once("tls", make_certificates, [pathlib.Path(__file__)])
        for name in ("certificate.pem", "key.pem", "impostor.pem", "namesake.pem"):
            machine.write(f"/srv/vendor/tls/{name}", (tls / name).read_bytes())
        machine.write("/etc/ssl/certs/ca-certificates.crt", (tls / "authority.pem").read_bytes())
        machine.write("/srv/nginx.conf",
                      NGINX.replace("FAULTS", FAULTS).replace("HERE", HERE).replace("ORIGIN", ORIGIN))
        for old, new in (("server {", "server {" + FAULTS), ("listen 443", f"listen {HERE}:443"),
                         (f"server_name {MIRROR}", f"server_name {MIRROR} {UPSTREAM}")):
            site = site.replace(old, new)
        machine.write("/srv/site.conf", site)
        self.place()
        self._listener = socket.socket(socket.AF_UNIX)
        self._listener.bind(str(machine.path("/run/nginx/faults")))
        self._listener.listen()
        threading.Thread(target=self._answer_all, daemon=True).start()
        self._nginx()

    def _nginx(self, option="", settings=()):
        self._machine.shell(f"env {' '.join(settings)} nginx -c /srv/nginx.conf -e /run/nginx/error.log {option}")

    def stop(self):
        """Stops nginx; its ports then refuse connections."""
        self._nginx("-s quit; while pidof nginx >/dev/null; do :; done")

    def restart(self, *settings):
        """Restarts nginx, with its present configuration and these settings in its environment."""
        self.stop()
        self._nginx(settings=settings)

    def close(self):
        self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()

    def place(self, **elsewhere):
        """Gives hosts other addresses: `place(links=NOBODY)` refuses connections, None makes a host unknown."""
        where = {host: elsewhere.get(host.split(".", maxsplit=1)[0], HERE) for host in HOSTS}
        self._machine.write("/etc/hosts", "".join(f"{at} {host}\n" for host, at in where.items() if at))

    def answer(self, request, body=b"", status="200 OK", headers=(), length=None, hold=False, pause=0, pieces=8):
        """Sets the answer to `request`, such as "GET /dns.txt". `length` may exceed that of the body. `hold` leaves the
        connection open afterwards (`held_for` returns how long the tool waited). A `pause` precedes each of so many
        `pieces` of the body. With status None, nothing is sent."""
        body = body.encode() if isinstance(body, str) else body
        length = len(body) if length is None else length
        lines = [f"HTTP/1.0 {status}", *headers, f"Content-Length: {length}", "", ""]
        step = max(len(body) // pieces if pause else len(body), 1)
        self._answers[request] = ("\r\n".join(lines).encode() if status else b"", body, step, hold, pause)
        self._machine.write("/srv/faults/" + request.replace(" ", "", 1))

    def drop(self, request):
        self._machine.path("/srv/faults/" + request.replace(" ", "", 1)).mkdir(parents=True)

    def turn_bad(self, bad, *requests):
        self.place(links=bad.address, content=bad.address)
        for request in requests:
            if bad.answer is None:
                self.drop(request)
            else:
                self.answer(request, **bad.answer)

    def break_down(self, host):
        """Makes this host answer every request with status 500."""
        self._machine.write(f"/srv/faults/{host}")

    def mend(self):
        self._machine.shell("rm -rf /srv/faults")

    def wait_for_held(self, request):
        assert self._held[request].wait(30), f"{request} never came"

    def held_for(self):
        return self._held_for.get(timeout=30)

    def forget_held(self):
        self._held.clear()

    def _answer_all(self):
        while True:
            try:
                connection = self._listener.accept()[0]
            except OSError:
                return
            threading.Thread(target=self._answer_one, args=(connection, []), daemon=True).start()

    def _answer_one(self, connection, lines):
        with connection, connection.makefile("rb") as stream, contextlib.suppress(OSError):
            while line := stream.readline().strip():
                lines.append(line.decode())
            path = next(line for line in lines if line.startswith("Plain: "))[7:]
            request = f"{lines[0].split()[0]} {path}"
            head, body, step, hold, pause = self._answers[request]
            connection.sendall(head)
            for start in range(0, len(body), step):
                time.sleep(pause)
                connection.sendall(body[start:start + step])
            if hold:
                self._held[request].set()
                begun = time.monotonic()
                stream.read()
                self._held_for.put(time.monotonic() - begun)

    def requests(self):
        """Returns the requests that nginx has answered since the last call."""
        fence = http.client.HTTPConnection("fence")
        fence.sock = socket.socket(socket.AF_UNIX)
        fence.sock.connect(str(self._machine.path("/run/nginx/fence")))
        fence.request("GET", "/")
        fence.getresponse().read()
        fence.close()
        log = pathlib.Path(self._machine.path("/run/nginx/requests"))
        lines = log.read_text(encoding="utf-8").splitlines()
        log.write_text("", encoding="utf-8")
        return [Request(*line.split("\t")) for line in lines]
