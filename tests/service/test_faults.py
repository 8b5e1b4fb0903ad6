"""Disks, directories, memory and signals that fail: the message names the thing, no file is left in part, and the same
object completes its next request."""

import os
import resource
import signal
import time

import pytest
from conftest import PATIENCE, limited
from responder import HEAD, HOLD, Responder

OK = b"HTTP/1.1 200 OK\r\nContent-Type: image/png\r\n"
IMAGE = [HEAD, OK + b"Content-Length: 4\r\nConnection: close\r\n\r\ndone"]
LARGE = [HEAD, OK + b"Content-Length: 300000\r\nConnection: close\r\n\r\n" + b"x" * 300_000]
DOCUMENT = "<WMT_MS_Capabilities version='1.1.1'><Capability><Layer><Name>%s</Name></Layer></Capability></WMT_MS_Capabilities>"
UNLIMITED = resource.RLIM_INFINITY

OBJECT = """
local wms <close> = zel.new("ZELnetOGCWMS", {URL_HOSTNAME = "127.0.0.1", URL_PORT = arg[1], URL_PATH = "ogc", MAP_FILENAME = "map"})
local function exists(name) local f = io.open(name) if f then f:close() end return f ~= nil end
local function said(f, ...) local ok, why = pcall(f, ...) print(ok and "no error" or (tostring(why):gsub("\\n.*", ""))) end
local function good()
  wms:SetProperty{MAP_FILENAME = "good", CAPABILITIES_FILENAME = "cap", CALLBACK_FUNCTION = ""}
  local file <close> = io.open(wms:GetMap("a=b"))
  print(file:read("a"))
end
"""


def resources(kind, most):
    return lambda: resource.setrlimit(kind, (most, most))


# ---- disks and directories ----


def test_full_disk(zel, tmp_path):
    """For the response and for the copy of a document; a smaller file fits, and a device is never removed."""
    (tmp_path / "large.xml").write_text(DOCUMENT % ("x" * 300_000))
    (tmp_path / "small.xml").write_text(DOCUMENT % "x")
    (tmp_path / "device.xml").symlink_to("/dev/full")
    with Responder(LARGE, IMAGE) as server:
        response, copy, device, left, fits, good = zel(OBJECT + """
          said(wms.GetMap, wms, "a=b")
          for _, case in ipairs{{"copy", "large.xml"}, {"device", "small.xml"}} do
            wms:SetProperty{CAPABILITIES_FILENAME = case[1]}
            said(wms.GetCapabilities, wms, {FROM_FILE = case[2]})
          end
          print(exists("map.png"), exists("copy.xml"), io.popen("ls -A | grep -c part"):read("a"))
          wms:SetProperty{CAPABILITIES_FILENAME = "copy"}
          print(wms:GetCapabilities{FROM_FILE = "small.xml"}, exists("copy.xml"))
          good()
        """, server.port, preexec_fn=limited(65536)).out.replace("\n\n", "\n").splitlines()
    assert "map.png" in response and "copy.xml" in copy and all("File too large" in line for line in (response, copy))
    assert "No space left on device" in device and "/dev/full" in device and (tmp_path / "device.xml").is_symlink()
    assert (left, fits, good) == ("false\tfalse\t0", "1\ttrue", "done")


def test_descriptors(zel):
    """A finished request closes its file; without a free descriptor the older file stays; a program that the status
    routine starts inherits none."""
    with Responder(IMAGE) as server:
        inherited, *lines = zel(OBJECT + """
          local inherited
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
            for _ = 1, left do table.remove(none):close() end
            said(wms.GetMap, wms, "a=b")
            table.remove(none):close()
            local file <close> = io.open("map.png")
            print(file:read("a"))
          end
        """, server.port, preexec_fn=resources(resource.RLIMIT_NOFILE, 30)).out.splitlines()
    assert inherited == "0\tnil" and set(lines[1::2]) == {"done"} and lines[-2] == "no error"
    assert "Too many open files" in lines[0] or "Http Get Request Failed" in lines[0]


# Without its capabilities also the superuser meets the permissions of a directory.
POWERLESS = ["setpriv", "--bounding-set=-all"] if os.geteuid() == 0 else []


def test_names_that_cannot_be_written(zel, tmp_path):
    (tmp_path / "document.xml").write_text(DOCUMENT % "x")
    (tmp_path / "read-only").mkdir(mode=0o555)
    for name in ("directory.png", "directory.xml"):
        (tmp_path / name).mkdir()
    cases = {"read-only/f": "Permission denied", "directory": "Is a directory", "missing/f": "No such file or directory",
             "document.xml/f": "Not a directory", "n" * 300: "File name too long", "d/" * 2500 + "n": "File name too long"}
    with Responder(IMAGE) as server:
        *lines, directory, deep = zel(OBJECT + """
          for i = 2, #arg do
            wms:SetProperty{MAP_FILENAME = arg[i], CAPABILITIES_FILENAME = arg[i]}
            said(wms.GetMap, wms, "a=b")
            said(wms.GetCapabilities, wms, {FROM_FILE = "document.xml"})
            good()
          end
          said(wms.GetCapabilities, wms, {FROM_FILE = "read-only"})
          said(wms.GetCapabilities, wms, {FROM_FILE = ("d/"):rep(2500)})
        """, server.port, *cases, wrap=POWERLESS).out.splitlines()
    for (name, why), got, copied, good in zip(cases.items(), lines[::3], lines[1::3], lines[2::3], strict=True):
        assert name[:200] in got and name[:200] in copied
        assert why in copied and (why in got or len(name) > 400) and good == "done"
    assert "unable to read data from file" in directory and "d/d/d/" in deep and not list(tmp_path.glob("*part*"))


@pytest.mark.parametrize("name, why", [
    ("read-only", "Permission denied"), ("read-only/below", "Permission denied"), ("file", "Not a directory"),
    ("file/below", "Not a directory"), ("half", "Not a directory"), ("n" * 300, "File name too long"),
    ("user", "File too large")])
def test_user_directories_that_cannot_be_used(zel, tmp_path, name, why):
    """The message names the place and what to do; a script goes on with another object."""
    (tmp_path / "read-only").mkdir(mode=0o555)
    (tmp_path / "file").touch()
    (tmp_path / "half/zel").mkdir(parents=True)
    (tmp_path / "half/zel/ogc_user_files_wms-100").touch()
    done = zel('zel.new("ZELnetOGCWMS")', ok=False, wrap=POWERLESS, env={"ZEL_USER_DIR": str(tmp_path / name)},
               preexec_fn=limited(2) if name == "user" else None)
    assert done.status == 1 and name[:200] in done.err and why in done.err
    assert ("README.txt" if name == "user" else "Set ZEL_USER_DIR to a directory that can be written") in done.err


# ---- memory ----


def test_memory_that_runs_out(zel, tmp_path):
    """In a parse, in a result and in a script's own tables it is an error, and the object goes on."""
    for name, layers in {"large": 200_000, "middle": 60_000, "small": 3_000}.items():
        layer = '<Layer queryable="1"><Name>layer_%d</Name><Title>A layer</Title><SRS>EPSG:4326</SRS></Layer>'
        (tmp_path / f"{name}.xml").write_text(DOCUMENT.replace("<Name>%s</Name>", "".join(layer % i for i in range(layers))))
    sanitized = "ASAN_OPTIONS" in os.environ
    *lines, again = zel("""
      local wms = zel.new("ZELnetOGCWMS", {CAPABILITIES_FILENAME = "cap"})
      local function try(f, ...) local ok, why = pcall(f, ...) print(ok, (tostring(why):gsub(".*: ", ""))) end
      try(wms.GetCapabilities, wms, {FROM_FILE = "large.xml"})
      wms:GetCapabilities{FROM_FILE = "middle.xml"}
      try(wms.GetLayers, wms)
      wms:GetCapabilities{FROM_FILE = "small.xml"}
      try(function() local kept = {} for i = 1, 1000000 do kept[i] = ("x"):rep(200) .. i end end)
      collectgarbage()
      print(wms:GetCapabilities{FROM_FILE = "small.xml"}, #wms:GetLayers{NUMBER = 5})
    """, preexec_fn=resources(resource.RLIMIT_AS, UNLIMITED if sanitized else 150_000 * 1024)).out.splitlines()
    assert again == "3001\t5" and len(lines) == 3
    if not sanitized:
        assert all(line.startswith("false") for line in lines) and lines[2].endswith("not enough memory"), lines


# ---- signals ----


def test_interrupted_system_calls(zel_running, tmp_path):
    """Stopping and going on again disturbs neither transfers nor reading and copying."""
    body = [step for _ in range(60) for step in (b"x" * 500, 0.01)]
    (tmp_path / "document.xml").write_text(DOCUMENT % ("x" * 3_000_000))
    with Responder([HEAD, OK + b"Content-Length: 30000\r\n\r\n", *body]) as server:
        run = zel_running(OBJECT + """
          print("ready") io.stdout:flush()
          for _ = 1, 2 do
            local file <close> = io.open(wms:GetMap("a=b"))
            print(#file:read("a"))
            wms:SetProperty{CAPABILITIES_FILENAME = "copy"}
            print(wms:GetCapabilities{FROM_FILE = "document.xml"})
          end
        """, server.port)
        assert run.stdout.readline() == "ready\n"
        while run.poll() is None:
            run.send_signal(signal.SIGSTOP)
            time.sleep(0.002)
            run.send_signal(signal.SIGCONT)
            time.sleep(0.01)
        out, err = run.communicate(timeout=PATIENCE)
    assert (out.split(), err) == (["30000", "1"] * 2, "")
    assert (tmp_path / "copy.xml").read_bytes() == (tmp_path / "document.xml").read_bytes()


@pytest.mark.parametrize("routine, sign", [
    ('""', "map*"), ('require "zel.progress"', "map*"), ("function() end", "map*"),
    ("function(_, p) while p[3] > 0 do io.open('inside', 'w'):close() end end", "inside")],
    ids=["none", "progress", "quick", "endless"])
def test_interrupt_while_transferring(zel_running, tmp_path, routine, sign):
    """Ctrl-C leaves no file, and the script ends there."""
    with Responder([HEAD, OK + b"Content-Length: 100000\r\n\r\n" + b"x" * 5000, HOLD]) as server:
        run = zel_running(OBJECT + f"""
          wms:SetProperty{{CALLBACK_FUNCTION = {routine}}}
          wms:GetMap("a=b")
          print("not reached")
        """, server.port)
        while not list(tmp_path.glob(sign)) and run.poll() is None:
            time.sleep(0.01)
        run.send_signal(signal.SIGINT)
        out, err = run.communicate(timeout=PATIENCE)
    assert run.returncode == 1 and "not reached" not in out and "interrupted!" in err
    assert not list(tmp_path.glob("map*"))
