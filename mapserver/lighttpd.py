"""A private lighttpd on free loopback ports, with everything that clients meet on the web.

Every file of the document root, and the CGI programs in cgi-bin, are served plainly and again below these prefixes:

    /basic/ /digest/   only with USER and PASSWORD, by Basic or Digest authentication
    /deflate/          compressed with gzip or deflate where the client takes it
    /dav/              PUT and DELETE write to a separate directory, `dav`
    /to/CODE/same      redirects with CODE (301, 302, 303, 307, 308) to /hello.txt ...
    /to/CODE/echo      ... to /cgi-bin/echo, for requests that carry a body
    /to/CODE/tls       ... to the TLS port
    /to/CODE/port      ... to the same host's second port
    /to/CODE/host      ... to the same server under its address instead of its name
    /chain/N           N redirects one after the other, up to 30, and then /hello.txt
    /loop              redirects to itself

/cgi-bin/echo answers with the request as JSON: method, query, environment and body.
"""

import contextlib
import fcntl
import http.client
import os
import pathlib
import signal
import socket
import subprocess
import time

USER = "anna"
PASSWORD = "pass word&1"
REDIRECTS = (301, 302, 303, 307, 308)
CHAIN = 30

ECHO = """import json, os, sys
body = sys.stdin.buffer.read(int(os.environ.get("CONTENT_LENGTH") or 0))
print("Content-Type: application/json\\n")
print(json.dumps({"method": os.environ["REQUEST_METHOD"], "query": os.environ["QUERY_STRING"],
                  "environment": dict(os.environ), "body": body.decode("utf-8", "replace")}))
"""

CONFIG = """
server.modules = ("mod_alias", "mod_auth", "mod_authn_file", "mod_redirect", "mod_setenv", "mod_webdav", "mod_cgi",
                  "mod_deflate", "mod_openssl")
server.document-root = "{root}"
server.errorlog = "{directory}/error.log"
server.upload-dirs = ("{directory}")
server.systemd-socket-activation = "enable"
server.feature-flags = ("server.h2proto" => "enable")
server.bind = "127.0.0.1"
server.port = {port}
mimetype.assign = (".txt" => "text/plain", ".xml" => "text/xml", ".png" => "image/png", ".html" => "text/html",
                   "" => "application/octet-stream")
alias.url = ("/basic/" => "{root}/", "/digest/" => "{root}/", "/deflate/" => "{root}/", "/dav/" => "{dav}/")
auth.backend = "plain"
auth.backend.plain.userfile = "{directory}/users"
auth.require = ("/basic/" => ("method" => "basic", "realm" => "basic", "require" => "valid-user"),
                "/digest/" => ("method" => "digest", "realm" => "digest", "require" => "valid-user"))
cgi.assign = ("/mapserv" => "", "/echo" => "/usr/bin/python3")
setenv.set-environment = ({environment})
$HTTP["url"] =~ "^/deflate/" {{
    deflate.mimetypes = ("text/", "image/", "application/")
    deflate.allowed-encodings = ("gzip", "deflate")
}}
$HTTP["url"] =~ "^/dav/" {{
    webdav.activate = "enable"
    webdav.is-readonly = "disable"
    cgi.assign = ()
}}
{redirects}
$SERVER["socket"] == "127.0.0.1:{second_port}" {{
}}
$SERVER["socket"] == "127.0.0.1:{tls_port}" {{
    ssl.engine = "enable"
    ssl.pemfile = "{directory}/server.pem"
}}
"""


def listening_socket():
    """A socket that listens on a free loopback port, its descriptor above those that the server is given."""
    with contextlib.closing(socket.create_server(("127.0.0.1", 0), backlog=128)) as first:
        return socket.socket(fileno=fcntl.fcntl(first, fcntl.F_DUPFD_CLOEXEC, 10))


def make_certificates(directory):
    """ca.pem, and server.pem for localhost and 127.0.0.1 (key and certificate) signed by it."""

    def openssl(*arguments):
        subprocess.run(["openssl", *arguments], cwd=directory, check=True, capture_output=True)

    new_key = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes"]
    openssl("req", "-x509", *new_key, "-keyout", "ca.key", "-out", "ca.pem", "-days", "2", "-subj", "/CN=Test CA")
    openssl("req", *new_key, "-keyout", "server.key", "-out", "server.csr", "-subj", "/CN=localhost")
    names = pathlib.Path(directory, "names")
    names.write_text("subjectAltName=DNS:localhost,IP:127.0.0.1\n")
    openssl("x509", "-req", "-in", "server.csr", "-CA", "ca.pem", "-CAkey", "ca.key", "-days", "2",
            "-extfile", "names", "-out", "server.crt")
    pem = [pathlib.Path(directory, name).read_text() for name in ("server.key", "server.crt")]
    pathlib.Path(directory, "server.pem").write_text("".join(pem))


class Lighttpd:
    """Runs from construction to `stop` (or the end of a `with`), and never longer than the process that started it.

    root, dav             directories that are served and written
    port, second_port,    ports of plain HTTP (two of one server) and of TLS, where HTTP/2 is offered
    tls_port
    url, tls_url          "http://localhost:PORT", "https://localhost:PORT"
    ca                    the file with the certificate authority that signed the server's certificate
    """

    def __init__(self, directory, environment=None):
        self.directory = pathlib.Path(directory).resolve()
        self.root = self.directory / "root"
        self.dav = self.directory / "dav"
        self.ca = self.directory / "ca.pem"
        (self.root / "cgi-bin").mkdir(parents=True)
        self.dav.mkdir()
        (self.root / "hello.txt").write_text("hello\n")
        (self.root / "cgi-bin" / "echo").write_text(ECHO)
        (self.directory / "users").write_text(f"{USER}:{PASSWORD}\n")
        make_certificates(self.directory)

        sockets = [listening_socket() for _ in range(3)]
        self.port, self.second_port, self.tls_port = (one.getsockname()[1] for one in sockets)
        self.url = f"http://localhost:{self.port}"
        self.tls_url = f"https://localhost:{self.tls_port}"
        (self.directory / "lighttpd.conf").write_text(self._config(environment or {}))
        self._start(sockets)

    def _config(self, environment):
        rules = {"^/loop": (302, "/loop")}
        rules |= {f"^/chain/{n}$": (302, f"/chain/{n - 1}" if n > 1 else "/hello.txt") for n in range(1, CHAIN + 1)}
        targets = {"same": "/hello.txt", "echo": "/cgi-bin/echo", "tls": f"{self.tls_url}/hello.txt",
                   "port": f"http://localhost:{self.second_port}/hello.txt",
                   "host": f"http://127.0.0.1:{self.port}/hello.txt"}
        rules |= {f"^/to/{code}/{name}": (code, target) for code in REDIRECTS for name, target in targets.items()}
        redirects = "\n".join(f'$HTTP["url"] =~ "{pattern}" {{ url.redirect = ("" => "{target}")\n'
                              f'url.redirect-code = {code} }}' for pattern, (code, target) in rules.items())
        variables = ", ".join(f'"{name}" => "{value}"' for name, value in environment.items())
        return CONFIG.format(**vars(self), redirects=redirects, environment=variables)

    def _start(self, sockets):
        # The server inherits sockets that listen already: no other process can take a port in between. setpriv ends
        # the server with this process, however that one ends.
        moves = " ".join(f"{place}<&{one.fileno()}-" for place, one in enumerate(sockets, 3))
        shell = f'export LISTEN_PID=$$ LISTEN_FDS={len(sockets)}; exec "$@" {moves}'
        server = ["lighttpd", "-D", "-f", str(self.directory / "lighttpd.conf")]
        with open(self.directory / "output", "wb") as output:
            self._process = subprocess.Popen(
                ["setpriv", "--pdeathsig", "KILL", "bash", "-c", shell, "bash", *server], stdin=subprocess.DEVNULL,
                stdout=output, stderr=output, start_new_session=True, pass_fds=[one.fileno() for one in sockets],
                env=os.environ | {"PATH": os.environ["PATH"] + ":/usr/sbin"})
        for one in sockets:
            one.close()
        try:
            self._wait_until_it_answers()
        except BaseException:
            self.stop()
            raise

    def _wait_until_it_answers(self):
        deadline = time.monotonic() + 60
        while time.monotonic() < deadline and self._process.poll() is None:
            with contextlib.suppress(OSError), contextlib.closing(
                    http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)) as connection:
                connection.request("GET", "/hello.txt")
                if connection.getresponse().status == 200:
                    return
            time.sleep(0.02)
        logs = [self.directory / name for name in ("output", "error.log")]
        raise RuntimeError("lighttpd did not start:\n" + "".join(log.read_text() for log in logs if log.exists()))

    def stop(self):
        """Ends the server and the CGI programs it runs."""
        with contextlib.suppress(ProcessLookupError):
            os.killpg(self._process.pid, signal.SIGKILL)
        self._process.wait()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()
