"""The servers of the service tests: one of each for a run, whoever starts it.

`servers.py start` starts them all for the process that runs it, ctest; they end with it, or with `servers.py stop`.
Tests that find them attach, others start what they use for themselves.
"""

import contextlib
import functools
import os
import pathlib
import pickle
import signal
import sys
import tempfile
import time

from mapserver.ogc_server import OgcServer
from mapserver.tinyproxy import Tinyproxy
from vsftpd import Vsftpd

PROXY_LOGIN = "clerk", "s3cret"
BUILD = pathlib.Path(os.environ.get("ZEL_BUILD", pathlib.Path(__file__).resolve().parents[2] / "build"))


class Servers:
    """Each server is started when it is asked for, below the directory, and ends with the `with`."""

    def __init__(self, directory):
        self._ends = contextlib.ExitStack()
        self._directory = pathlib.Path(directory)

    def _start(self, kind, name, *arguments):
        directory = self._directory / name
        directory.mkdir()
        return self._ends.enter_context(kind(directory, *arguments))

    web = functools.cached_property(lambda self: self._start(OgcServer, "web"))
    ftp = functools.cached_property(lambda self: self._start(Vsftpd, "ftp"))
    ftp_explicit = functools.cached_property(lambda self: self._start(Vsftpd, "ftp_explicit", "explicit"))
    ftp_implicit = functools.cached_property(lambda self: self._start(Vsftpd, "ftp_implicit", "implicit"))
    proxy = functools.cached_property(lambda self: self._start(Tinyproxy, "proxy"))
    guarded_proxy = functools.cached_property(lambda self: self._start(Tinyproxy, "guarded_proxy", *PROXY_LOGIN))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._ends.close()


class Running:
    """The servers of a process: what `start` wrote down of them."""

    def __init__(self, place):
        self.pid, servers = pickle.loads(place.read_bytes())
        for name, (kind, values) in servers.items():
            setattr(self, name, kind.__new__(kind))
            vars(getattr(self, name)).update(values)


def written(servers):
    return pickle.dumps((os.getpid(), {
        name: (type(one), {key: value for key, value in vars(one).items() if isinstance(value, (str, int, pathlib.Path))})
        for name, one in vars(servers).items() if not name.startswith("_")}))


def place(owner):
    """Where the servers of a process are written down."""
    return BUILD / "tests" / f"servers-{owner}"


def attached_or_started(make_directory):
    """A context with the servers of this test run."""
    known = place(os.getppid())
    return contextlib.nullcontext(Running(known)) if known.exists() else Servers(make_directory("servers"))


def serve(owner, ready):
    os.setsid()
    with open(os.devnull, "r+b") as nowhere, tempfile.TemporaryDirectory(prefix="zel-servers.") as directory, \
            Servers(directory) as servers:
        os.dup2(nowhere.fileno(), 0)
        os.dup2(nowhere.fileno(), 1)
        for name, server in vars(Servers).items():
            if isinstance(server, functools.cached_property):
                getattr(servers, name)
        signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGTERM})
        place(owner).write_bytes(written(servers))
        os.write(ready, b"ready")
        os.close(ready)
        os.dup2(nowhere.fileno(), 2)
        while pathlib.Path(f"/proc/{owner}").exists() and not signal.sigtimedwait({signal.SIGTERM}, 0.5):
            pass
    place(owner).unlink()


def start(owner):
    (BUILD / "tests").mkdir(exist_ok=True)
    answer, ready = os.pipe()
    if os.fork() == 0:
        os.close(answer)
        serve(owner, ready)
        os._exit(0)
    os.close(ready)
    return 0 if os.read(answer, 8) else 1


def stop(owner):
    with contextlib.suppress(FileNotFoundError):
        os.kill(Running(place(owner)).pid, signal.SIGTERM)
        while place(owner).exists():
            time.sleep(0.02)
    return 0


if __name__ == "__main__":
    sys.exit({"start": start, "stop": stop}[sys.argv[1]](os.getppid()))
