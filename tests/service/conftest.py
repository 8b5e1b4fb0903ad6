"""What all service tests share: the real web server, the OGC server behind it, and the runner.

    http(...)          lighttpd on loopback, see mapserver/lighttpd.py for what it serves
    ogc                the same with MapServer behind it, see mapserver/ogc_server.py
    zel(script, ...)   runs a Lua script with the runner
"""

import dataclasses
import os
import pathlib
import subprocess

import pytest

from mapserver.lighttpd import Lighttpd
from mapserver.ogc_server import OgcServer

SOURCE = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("ZEL_BUILD", SOURCE / "build"))


@pytest.fixture(scope="session")
def http(tmp_path_factory):
    """The web server: `.url`, `.tls_url`, `.ca`, `.root` (served), `.dav` (written)."""
    with Lighttpd(tmp_path_factory.mktemp("lighttpd")) as server:
        yield server


@pytest.fixture(scope="session")
def ogc(tmp_path_factory):
    """The web server with MapServer: `.service` and `.secure_service` are its URLs, `.data` holds the rasters."""
    with OgcServer(tmp_path_factory.mktemp("ogc")) as server:
        yield server


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
