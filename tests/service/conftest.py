"""What all service tests share: real servers, and the runner.

    servers            all servers, see servers.py
    http, ogc          the web server: lighttpd with MapServer, see mapserver/ for what it serves
    zel(script, ...)   runs a Lua script with the runner
"""

import dataclasses
import os
import pathlib
import subprocess

import pytest

from servers import BUILD, attached_or_started

SOURCE = pathlib.Path(__file__).resolve().parents[2]


@pytest.fixture(scope="session")
def servers(tmp_path_factory):
    with attached_or_started(tmp_path_factory.mktemp) as servers:
        yield servers


@pytest.fixture(scope="session")
def http(servers):
    """`.url`, `.tls_url`, `.ca`, `.root` (served), `.dav` (written)."""
    return servers.web


@pytest.fixture(scope="session")
def ogc(servers):
    """`.service` and `.secure_service` are the URLs of MapServer, `.data` holds its rasters."""
    return servers.web


@dataclasses.dataclass
class Run:
    """What a program left behind."""

    status: int
    out: str
    err: str
    user_dir: pathlib.Path


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
    """zel(script, *arguments, ok=True, no_leak=False, env={}): runs a script, given as a path or as Lua code.

    Every test has its own directory for user files. With `ok` a failing script fails the test, with `no_leak` also
    Lua code that leaves variables or objects in the host.
    """

    def run(script, *arguments, ok=True, no_leak=False, env=None, timeout=120):
        if not isinstance(script, pathlib.Path):
            code, script = script, tmp_path / "script.lua"
            script.write_text(NO_LEAK.replace("{}", code) if no_leak else code)
        user_dir = tmp_path / "user"
        user_dir.mkdir(exist_ok=True)
        done = subprocess.run([BUILD / "zel", script, *map(str, arguments)], cwd=tmp_path, timeout=timeout,
                              capture_output=True, text=True, stdin=subprocess.DEVNULL,
                              env=os.environ | {"ZEL_USER_DIR": str(user_dir)} | (env or {}))
        if ok:
            assert done.returncode == 0, done.stdout + done.stderr
        return Run(done.returncode, done.stdout, done.stderr, user_dir)

    return run
