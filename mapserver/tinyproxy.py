"""tinyproxy on a free loopback port."""

import contextlib
import os
import pathlib
import signal
import socket
import subprocess
import time


class Tinyproxy:
    """A proxy at `url`, for anyone or for `user` with `password` by Basic authentication. `log()` names requests."""

    def __init__(self, directory, user="", password=""):
        self.directory = pathlib.Path(directory)
        self.directory.mkdir(parents=True, exist_ok=True)
        self._log = self.directory / "log"
        for _ in range(20):  # another process may take the port before the proxy does
            with contextlib.closing(socket.create_server(("127.0.0.1", 0))) as free:
                self.port = free.getsockname()[1]
            self.url = f"http://localhost:{self.port}"
            config = [f"Port {self.port}", "Listen 127.0.0.1", "Timeout 60", f'LogFile "{self._log}"',
                      "LogLevel Connect", "ViaProxyName \"theproxy\""]
            if user:
                config.append(f"BasicAuth {user} {password}")
            (self.directory / "tinyproxy.conf").write_text("\n".join(config) + "\n")
            # setpriv ends the proxy with this process, however that one ends.
            command = ["setpriv", "--pdeathsig", "KILL", "tinyproxy", "-d", "-c", self.directory / "tinyproxy.conf"]
            self._process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                             stderr=subprocess.DEVNULL, start_new_session=True)
            if self._answers():
                return
        raise RuntimeError("tinyproxy did not start: " + self.log())

    def _answers(self):
        deadline = time.monotonic() + 60
        while time.monotonic() < deadline and self._process.poll() is None:
            with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", self.port), 60):
                return True
            time.sleep(0.02)
        self._process.kill()
        self._process.wait()
        return False

    def log(self):
        return self._log.read_text(errors="replace") if self._log.exists() else ""

    def __enter__(self):
        return self

    def __exit__(self, *_):
        with contextlib.suppress(ProcessLookupError):
            os.killpg(self._process.pid, signal.SIGKILL)
        self._process.wait()
