"""What all service tests share: real servers, and the runner.

    servers            all servers, see servers.py
    http, ogc          the web server
    zel(script, ...)   runs a Lua script with the runner, zel_running(script, ...) goes on beside it
"""

import contextlib
import os
import pathlib
import resource
import signal
import subprocess
import types

import pytest

from servers import BUILD, attached_or_started

SOURCE = pathlib.Path(__file__).resolve().parents[2]
PATIENCE = 600  # seconds for what takes moments: only a test that fails waits so long
# What tests see is the same whatever terminal and network they are run from; the browser is driven without a proxy.
for name in "COLUMNS", "NO_COLOR", "http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY":
    os.environ.pop(name, None)
os.environ["TERM"] = "xterm"


@pytest.fixture(scope="session")
def servers(tmp_path_factory):
    with attached_or_started(tmp_path_factory.mktemp) as servers:
        yield servers


@pytest.fixture(scope="session")
def ogc(servers):
    """The web server with MapServer, see mapserver/ogc_server.py."""
    return servers.web


http = ogc


def limited(size):
    """For a process to call: its files cannot grow beyond this many bytes, as on a small disk."""

    def limit():
        resource.setrlimit(resource.RLIMIT_FSIZE, (size, size))
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)

    return limit


# Around the code of a script: once its objects are gone the host must hold nothing of them.
NO_LEAK = """local function script(...) {}
end
script(...)
collectgarbage() collectgarbage()
for name, count in pairs(zel.counts()) do
  if count ~= 0 then error("leaked: " .. count .. " " .. name) end
end
"""


@pytest.fixture
def zel(tmp_path):
    """zel(script, *arguments, ok=True, no_leak=False, env={}, wrap=[], ...): runs a script, a path or Lua code.

    Every test has its own directory for user files. With `ok` a failing script fails the test, with `no_leak` also
    Lua code that leaves variables or objects in the host. `wrap` runs the runner, other options are those of subprocess.
    """

    def run(script, *arguments, ok=True, no_leak=False, env=None, wrap=(), **options):
        if not isinstance(script, pathlib.Path):
            code, script = script, tmp_path / "script.lua"
            script.write_text(NO_LEAK.replace("{}", code) if no_leak else code)
        user_dir = tmp_path / "user"
        user_dir.mkdir(exist_ok=True)
        done = subprocess.run([*wrap, BUILD / "zel", script, *map(str, arguments)], cwd=tmp_path, timeout=PATIENCE,
                              capture_output=True, text=True, stdin=subprocess.DEVNULL,
                              env=os.environ | {"ZEL_USER_DIR": str(user_dir)} | (env or {}), **options)
        assert not ok or done.returncode == 0, done.stdout + done.stderr
        return types.SimpleNamespace(status=done.returncode, out=done.stdout, err=done.stderr, user_dir=user_dir)

    return run


@pytest.fixture
def zel_running(tmp_path):
    """zel_running(script, *arguments): a runner that is not waited for; it ends with the test."""
    with contextlib.ExitStack() as ends:

        def run(script, *arguments, program="zel", **options):
            words = ["-e", script, "-"] if program == "zel" else []
            running = ends.enter_context(subprocess.Popen(
                [BUILD / program, *words, *map(str, arguments)], cwd=tmp_path, text=True, stdin=subprocess.DEVNULL,
                stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                env=os.environ | {"ZEL_USER_DIR": str(tmp_path / "user")} | options.pop("env", {}), **options))
            ends.callback(running.kill)
            return running

        yield run
