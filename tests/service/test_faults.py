"""Disks, directories, servers and signals that fail: the message names the thing, no file is left in part, and the same
object completes its next request."""

import concurrent.futures
import itertools
import os
import resource
import shlex
import signal
import subprocess
import time

import pytest

from conftest import BUILD
from responder import HEAD, HOLD, RESET, Responder

OK = b"HTTP/1.1 200 OK\r\nContent-Type: image/png\r\n"
IMAGE = [HEAD, OK + b"Content-Length: 4\r\nConnection: close\r\n\r\ndone"]
LARGE = [HEAD, OK + b"Content-Length: 300000\r\nConnection: close\r\n\r\n" + b"x" * 300_000]
DOCUMENT = "<WMT_MS_Capabilities version='1.1.1'><Capability><Layer><Name>%s</Name></Layer></Capability></WMT_MS_Capabilities>"

OBJECT = """
local wms <close> = zel.new("ZELnetOGCWMS", {URL_HOSTNAME = "127.0.0.1", URL_PORT = arg[1], URL_PATH = "ogc", MAP_FILENAME = "map"})
local function exists(name) local f = io.open(name) if f then f:close() end return f ~= nil end
local function said(f, ...) local ok, why = pcall(f, ...) print(ok and "no error" or (tostring(why):gsub("\\n.*", ""))) end
local function good(port)
  wms:SetProperty{URL_PORT = port, MAP_FILENAME = "good", CAPABILITIES_FILENAME = "cap", CALLBACK_FUNCTION = "", TIMEOUT = 60}
  local file <close> = io.open(wms:GetMap("a=b"))
  print(file:read("a"))
end
"""


def run(script, *arguments, cwd, wrap=(), env=None, **more):
    done = subprocess.run([*wrap, BUILD / "zel", "-e", script, "-", *map(str, arguments)], cwd=cwd, capture_output=True, text=True,
                          timeout=100, stdin=subprocess.DEVNULL,
                          env=os.environ | {"ZEL_USER_DIR": str(cwd / "user")} | (env or {}), **more)
    assert "AddressSanitizer" not in done.stderr and "runtime error" not in done.stderr and done.returncode >= 0, done.stderr
    return done


# ---- disks and directories ----


def limited(size):
    """Keeps files below a size in bytes; to be called in the process."""

    def limit():
        resource.setrlimit(resource.RLIMIT_FSIZE, (size, size))
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)

    return limit


def few_descriptors():
    resource.setrlimit(resource.RLIMIT_NOFILE, (30, 30))


def small_disk(directory, kilobytes):
    """How to run a program that finds little space in the directory, and what it is told: a small disk of its own where
    disks can be mounted, elsewhere a limit to the size of files."""
    mount = f"mount -t tmpfs -o size={kilobytes}k none {shlex.quote(str(directory))}"
    for unshare in (["unshare", "-m"], ["unshare", "-rm"]):
        if subprocess.run([*unshare, "sh", "-c", mount], capture_output=True).returncode == 0:
            return {"wrap": [*unshare, "sh", "-c", mount + ' && exec "$@"', "sh"]}, "No space left on device"
    return {"preexec_fn": limited(kilobytes * 1024)}, "File too large"


def test_full_disk(tmp_path):
    """For the response and for the copy of a document; a smaller file fits."""
    (tmp_path / "full").mkdir()
    (tmp_path / "large.xml").write_text(DOCUMENT % ("x" * 300_000))
    (tmp_path / "small.xml").write_text(DOCUMENT % "x")
    place, why = small_disk(tmp_path / "full", 64)
    with Responder(LARGE, IMAGE) as server:
        lines = run(OBJECT + """
          wms:SetProperty{MAP_FILENAME = "full/map", CAPABILITIES_FILENAME = "full/cap"}
          said(wms.GetMap, wms, "a=b")
          said(wms.GetCapabilities, wms, {FROM_FILE = "large.xml"})
          print(exists("full/map.png"), exists("full/cap.xml"), #io.popen("ls full"):read("a"))
          print(wms:GetMap("a=b"), wms:GetCapabilities{FROM_FILE = "small.xml"}, exists("full/cap.xml"))
        """, server.port, cwd=tmp_path, **place).stdout.splitlines()
    assert "full/map.png" in lines[0] and why in lines[0]
    assert "full/cap.xml" in lines[1] and why in lines[1]
    assert lines[2:] == ["false\tfalse\t0", "full/map.png\t1\ttrue"]


def test_device_without_space(tmp_path):
    (tmp_path / "cap.xml").symlink_to("/dev/full")
    (tmp_path / "document.xml").write_text(DOCUMENT % "x")
    with Responder(IMAGE) as server:
        lines = run(OBJECT + """
          wms:SetProperty{CAPABILITIES_FILENAME = "cap"}
          said(wms.GetCapabilities, wms, {FROM_FILE = "document.xml"})
          good(arg[1])
        """, server.port, cwd=tmp_path).stdout.splitlines()
    assert "No space left on device" in lines[0] and "/dev/full" in lines[0] and lines[1] == "done"
    assert (tmp_path / "cap.xml").is_symlink()


def test_descriptors(tmp_path):
    """A finished request closes its file; without a free descriptor the older file stays; a program that the status
    routine starts inherits none."""
    with Responder(IMAGE) as server:
        lines = run(OBJECT + """
          wms:SetProperty{CALLBACK_FUNCTION = function(text, progress)
            if text:find("^Http: get") and progress[3] > 0 then
              inherited = io.popen("readlink /proc/self/fd/*; cat /proc/net/tcp"):read("a")
            end
          end}
          wms:GetMap("a=b")
          local connected = 0
          for socket in inherited:gmatch("socket:%[(%d+)%]") do
            if inherited:find(" " .. socket .. " ", 1, true) then connected = connected + 1 end
          end
          print(connected, inherited:find("map"))
          wms:SetProperty{CALLBACK_FUNCTION = ""}
          local objects, none = {}, {}
          for i = 1, 30 do
            objects[i] = zel.new("ZELnetOGCWMS", {URL_HOSTNAME = "127.0.0.1", URL_PORT = arg[1], URL_PATH = "p", MAP_FILENAME = "m" .. i})
            objects[i]:GetMap("a=b")
          end
          for left = 0, 9 do
            while true do
              local file = io.open("/dev/null")
              if not file then break end
              none[#none + 1] = file
            end
            for _ = 1, left do none[#none]:close() none[#none] = nil end
            said(wms.GetMap, wms, "a=b")
            none[#none]:close() none[#none] = nil
            local file <close> = io.open("map.png")
            print(file:read("a"))
          end
        """, server.port, cwd=tmp_path, preexec_fn=few_descriptors).stdout.splitlines()
    assert lines[0] == "0\tnil" and set(lines[2::2]) == {"done"}, lines
    assert "Too many open files" in lines[1] or "Http Get Request Failed" in lines[1], lines
    assert lines[-2] == "no error", lines


# Without its capabilities also the superuser meets the permissions of a directory.
POWERLESS = ["setpriv", "--bounding-set=-all"] if os.geteuid() == 0 else []


def test_names_that_cannot_be_written(tmp_path):
    (tmp_path / "document.xml").write_text(DOCUMENT % "x")
    (tmp_path / "read-only").mkdir(mode=0o555)
    for name in ("directory.png", "directory.xml"):
        (tmp_path / name).mkdir()
    long, deep = "n" * 300, "d/" * 2500 + "n"
    cases = {"read-only/f": "Permission denied", "directory": "Is a directory", "missing/f": "No such file or directory",
             "document.xml/f": "Not a directory", long: "File name too long", deep: "File name too long"}
    with Responder(IMAGE) as server:
        lines = run(OBJECT + """
          for i = 2, #arg do
            wms:SetProperty{URL_PORT = arg[1], MAP_FILENAME = arg[i], CAPABILITIES_FILENAME = arg[i]}
            said(wms.GetMap, wms, "a=b")
            said(wms.GetCapabilities, wms, {FROM_FILE = "document.xml"})
            good(arg[1])
          end
          said(wms.GetCapabilities, wms, {FROM_FILE = "read-only"})
          said(wms.GetCapabilities, wms, {FROM_FILE = ("d/"):rep(2500)})
        """, server.port, *cases, cwd=tmp_path, wrap=POWERLESS).stdout.splitlines()
    assert len(lines) == 3 * len(cases) + 2
    for (name, why), got, copied, good in zip(cases.items(), lines[0::3], lines[1::3], lines[2::3]):
        shown = name[:200]
        assert shown in got and shown in copied, (got, copied)
        assert why in copied and (why in got or len(name) > 400) and good == "done", (got, copied, good)
    assert "unable to read data from file" in lines[-2] and "d/d/d/" in lines[-1]
    assert sorted(path.name for path in tmp_path.iterdir() if "part" in path.name) == []


def test_user_directories_that_cannot_be_used(tmp_path):
    """The message names the directory and what to do; a script goes on with another object."""
    (tmp_path / "read-only").mkdir(mode=0o555)
    (tmp_path / "file").write_text("")
    store = tmp_path / "half" / "zel" / "ogc_user_files_wms-100"
    store.parent.mkdir(parents=True)
    store.write_text("not a directory")
    cases = {"read-only": "Permission denied", "read-only/below": "Permission denied", "file": "Not a directory",
             "file/below": "Not a directory", "half": "Not a directory", "n" * 300: "File name too long"}
    for name, why in cases.items():
        done = run('print(zel.new("ZELnetOGCWMS"))', cwd=tmp_path, wrap=POWERLESS, env={"ZEL_USER_DIR": str(tmp_path / name)})
        told = done.stdout + done.stderr
        assert name[:200] in told and why in told and "Set ZEL_USER_DIR to a directory that can be written" in told, told
    done = run('print(zel.new("ZELnetOGCWMS"))', cwd=tmp_path, preexec_fn=limited(2))
    assert "README.txt" in done.stdout + done.stderr and "File too large" in done.stdout + done.stderr


# ---- memory ----


def test_memory_that_runs_out(tmp_path):
    """In a parse, in a result and in a script's own tables it is an error, and the object goes on."""
    for name, layers in {"large": 200_000, "middle": 60_000, "small": 3_000}.items():
        layer = '<Layer queryable="1"><Name>layer_%d</Name><Title>A layer</Title><SRS>EPSG:4326</SRS></Layer>'
        (tmp_path / f"{name}.xml").write_text(DOCUMENT.replace("<Name>%s</Name>", "".join(layer % i for i in range(layers))))
    limit = (150_000 * 1024,) * 2 if "ASAN_OPTIONS" not in os.environ else (resource.RLIM_INFINITY,) * 2
    lines = run("""
      local wms = zel.new("ZELnetOGCWMS", {CAPABILITIES_FILENAME = "cap"})
      local function try(f, ...) local ok, why = pcall(f, ...) print(ok, (tostring(why):gsub(".*: ", ""))) end
      try(wms.GetCapabilities, wms, {FROM_FILE = "large.xml"})
      wms:GetCapabilities{FROM_FILE = "middle.xml"}
      try(wms.GetLayers, wms)
      wms:GetCapabilities{FROM_FILE = "small.xml"}
      try(function() local kept = {} for i = 1, 1000000 do kept[i] = ("x"):rep(200) .. i end end)
      collectgarbage()
      print(wms:GetCapabilities{FROM_FILE = "small.xml"}, #wms:GetLayers{NUMBER = 5})
    """, cwd=tmp_path, preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, limit)).stdout.splitlines()
    assert lines.pop() == "3001\t5" and len(lines) == 3
    if "ASAN_OPTIONS" not in os.environ:
        assert all(line.startswith("false") for line in lines) and lines[2].endswith("not enough memory"), lines


# ---- servers ----


class Endless:
    """The steps of a server that never comes to an end, with a pause between them."""

    def __init__(self, *first, then, pause=0.0):
        self.first, self.then, self.pause = first, then, pause

    def __iter__(self):
        return itertools.chain(self.first, itertools.cycle([self.then, self.pause]))


HALF = [HEAD, OK + b"Content-Length: 100\r\n\r\nhalf"]
SERVERS = {
    "says nothing": [HEAD, HOLD],
    "stalls in the header": [HEAD, OK + b"X-Half", HOLD],
    "stalls in the body": [*HALF, HOLD],
    "trickles its header": Endless(HEAD, OK, then=b"X", pause=0.02),
    "trickles its body": Endless(HEAD, OK + b"Content-Length: 100000\r\n\r\n", then=b"x", pause=0.02),
    "sends endless headers": Endless(HEAD, OK, then=b"X-Line: more of the same\r\n" * 20, pause=0.001),
    "sends an endless body": Endless(HEAD, OK + b"\r\n", then=b"x" * 10000, pause=0.01),
    "sends endless interim answers": Endless(HEAD, then=b"HTTP/1.1 102 Processing\r\n\r\n", pause=0.01),
    "redirects for ever": Endless(then=b"HTTP/1.1 302 Found\r\nLocation: /on\r\nContent-Length: 0\r\n\r\n", pause=0.01),
    "resets": [*HALF, 0.1, RESET],
    "promises more": HALF,
    "promises less": [HEAD, OK + b"Content-Length: 4\r\n\r\ndone and more"],
    "promises nonsense": [HEAD, OK + b"Content-Length: many\r\n\r\nhalf"],
    "promises a negative length": [HEAD, OK + b"Content-Length: -5\r\n\r\nhalf"],
    "promises two lengths": [HEAD, OK + b"Content-Length: 4\r\nContent-Length: 9\r\n\r\ndone"],
    "promises more than there is": [HEAD, OK + b"Content-Length: 99999999999999999999\r\n\r\nhalf"],
    "goes at once": [],
}
# What arrives when a length is no limit, or none that there can be: the body ends with the connection.
LIKE_NONE = {"promises less": "done", "promises more than there is": "half"}


def test_servers_that_never_end_or_break_their_word(tmp_path):
    """TIMEOUT ends it, a cancel ends it; no part of a file stays, and the next request works."""

    def attempt(how):
        place = tmp_path / how
        place.mkdir()
        with Responder(SERVERS[how]) as server, Responder(IMAGE) as sound:
            return run(OBJECT + """
              for _, timeout in ipairs{1, 60} do
                local began = os.time()
                wms:SetProperty{URL_PORT = arg[1], MAP_FILENAME = "map", TIMEOUT = timeout, CALLBACK_FUNCTION = function()
                  return timeout == 1 or os.time() - began < 2
                end}
                said(wms.GetMap, wms, "a=b")
                print(exists("map"), exists("map.png") and io.open("map.png"):read("a"))
                good(arg[2])
              end
            """, server.port, sound.port, cwd=place).stdout.splitlines()

    began = time.monotonic()
    with concurrent.futures.ThreadPoolExecutor(len(SERVERS)) as pool:
        for how, lines in zip(SERVERS, pool.map(attempt, SERVERS)):
            left = LIKE_NONE.get(how, "false")
            assert lines[1:3] == lines[4:6] == [f"false\t{left}", "done"], (how, lines)
            for line in lines[::3]:
                assert line == "no error" if how in LIKE_NONE else (
                    "Http Get Request Failed. Error = " in line or "Cancel request detected...Operation canceled." in line)
            assert how in LIKE_NONE or "Http Get Request Failed" in lines[0]
    assert time.monotonic() - began < 60


# ---- signals ----


def start(script, port, tmp_path):
    return subprocess.Popen([BUILD / "zel", "-e", OBJECT + script, "-", str(port)], cwd=tmp_path, text=True, stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                            env=os.environ | {"ZEL_USER_DIR": str(tmp_path / "user")})


def test_interrupted_system_calls(tmp_path):
    """Stopping and going on again disturbs neither transfers nor reading and copying."""
    body = [step for _ in range(60) for step in (b"x" * 500, 0.02)]
    (tmp_path / "document.xml").write_text(DOCUMENT % ("x" * 3_000_000))
    with Responder([HEAD, OK + b"Content-Length: 30000\r\n\r\n", *body]) as server:
        run = start("""
          print("ready") io.stdout:flush()
          for _ = 1, 2 do
            local file <close> = io.open(wms:GetMap("a=b"))
            print(#file:read("a"))
            wms:SetProperty{CAPABILITIES_FILENAME = "copy"}
            print(wms:GetCapabilities{FROM_FILE = "document.xml"})
          end
        """, server.port, tmp_path)
        assert run.stdout.readline() == "ready\n"
        while run.poll() is None:
            run.send_signal(signal.SIGSTOP)
            time.sleep(0.002)
            run.send_signal(signal.SIGCONT)
            time.sleep(0.01)
        out, err = run.communicate(timeout=60)
    assert (out.split(), err) == (["30000", "1"] * 2, "")
    assert (tmp_path / "copy.xml").read_bytes() == (tmp_path / "document.xml").read_bytes()


@pytest.mark.parametrize("routine", [
    "nil", "function(_, progress) if progress[3] > 0 then tell() end end",
    "function(_, progress) if progress[3] > 0 then tell() while true do end end end"],
    ids=["none", "quick", "endless"])
def test_interrupt_while_transferring(tmp_path, routine):
    with Responder([HEAD, OK + b"Content-Length: 100000\r\n\r\n" + b"x" * 5000, HOLD]) as server:
        run = start(f"""
          function tell() io.stdout:write("half\\n") io.stdout:flush() end
          wms:SetProperty{{CALLBACK_FUNCTION = {routine} or "", TIMEOUT = 60}}
          tell()
          wms:GetMap("a=b")
          print("not reached")
        """, server.port, tmp_path)
        for _ in range(1 if routine == "nil" else 2):
            assert run.stdout.readline() == "half\n"
        deadline = time.monotonic() + 30
        while not list(tmp_path.glob("map*")) and time.monotonic() < deadline:
            time.sleep(0.01)
        run.send_signal(signal.SIGINT)
        out, err = run.communicate(timeout=30)
    assert run.returncode == 1 and "not reached" not in out and "interrupted!" in err, (out, err)
    assert not list(tmp_path.glob("map*"))
