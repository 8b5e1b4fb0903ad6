"""The status routine: what it is told, how it cancels, and what scripts may do inside it."""

import re

import pytest

from responder import HEAD, HOLD, Responder

IMAGE = b"HTTP/1.1 200 OK\r\nContent-Type: image/png\r\nContent-Length: "
LAYER = "<WMT_MS_Capabilities version='1.1.1'><Layer/></WMT_MS_Capabilities>"
DOCUMENT = IMAGE.replace(b"image/png", b"text/xml") + f"{len(LAYER)}\r\nConnection: close\r\n\r\n{LAYER}".encode()

# An object for the server in arg[1]; `now(progress)` tells that some of the body has come.
OBJECT = """
wms = zel.new("ZELnetOGCWMS", {URL_HOSTNAME = "127.0.0.1", URL_PORT = arg[1], URL_PATH = "ogc", MAP_FILENAME = "map",
                               FEATURE_INFO_FILENAME = "feature"})
other = zel.new("ZELnetOGCWCS", {URL_HOSTNAME = "127.0.0.1", URL_PORT = arg[1], URL_PATH = "ogc"})
function now(progress) return progress[1] == 1 and progress[3] > 0 end
function try(f, ...) return select(2, pcall(f, ...)) end
"""


@pytest.fixture
def script(zel):
    """Runs a script with OBJECT before it; in the end nothing is left of its objects."""
    return lambda code, *ports: zel(OBJECT + code + "\nwms:close() other:close() wms, other = nil", *ports,
                                    no_leak=True)


def test_what_the_routine_is_told(script):
    """Texts in their order, whole figures, and a copy of the data when there is one. A reset ends connections, so does
    the end of an object."""
    with Responder([HEAD, IMAGE + b"4\r\n\r\ndone"] * 2) as server:
        done = script("""
          function on_status(...)
            local text, progress, data = ...
            print(select("#", ...) .. " " .. text .. " " .. table.concat(progress, ",") .. " " .. (data and data.N or ""))
            if data then data.N = data.N + 1 end
          end
          wms:SetProperty{CALLBACK_FUNCTION = "on_status"}
          wms:GetMap("LAYERS=a b")
          wms:SetProperty{CALLBACK_DATA = {N = 7}}
          zel.reset()
          print(wms:GetFeatureInfo("X=1"))
          wms:SetProperty{CALLBACK_FUNCTION = ""}
          zel.new("ZELnetOGCWCS"):close()
          wms:GetMap("a=b")
        """, server.port)
        assert len(server.requests) == 3
    lines = done.out.splitlines()
    url = f"http://127.0.0.1:{server.port}/ogc?Version=1.1.1&Service=WMS&Request="
    plain = [line[:-len(" 0,0,0,0,0 ")] for line in lines if line.endswith(" 0,0,0,0,0 ")]
    assert plain[:2] == ["2 Sending Http Get Request: ", f"2 {url}GetMap&LAYERS=a b"]
    assert plain[-3:] == ["2 Map file written to: ", "2 map.png", "2 Get Map request completed."]
    assert "2 Http: get: received (4), total expected (4) 1,4,4,0,0 " in lines
    *second, file = lines[lines.index("2 Get Map request completed. 0,0,0,0,0 ") + 1:]
    assert second and all(line.startswith("3 ") and line.endswith(" 7") for line in second) and file == "feature.png"


@pytest.mark.parametrize("other", ["<WMT_MS_Capabilities version='1.1.0'/>", "<broken>"])
def test_an_answer_replaced_while_it_is_read(script, other):
    with Responder([HEAD, DOCUMENT]) as server:
        done = script(f"""
          wms:SetProperty{{CAPABILITIES_FILENAME = "answer", CALLBACK_FUNCTION = function(text)
            if text:find("^XML Schema") then
              io.open("other", "w"):write("{other}"):close()
              os.rename("other", "answer.xml")
            end
          end}}
          print((try(wms.GetCapabilities, wms)))""", server.port)
    assert "was replaced by another process" in done.out


# What the routine tries while a map is being transferred or a document read, and what is said to it.
INSIDE = {
    'wms.GetMap, wms, "a=b"': "still running",
    "wms.GetCapabilities, wms": "still running",
    "wms.Init, wms": "^0$",
    "wms.Cleanup, wms": "CLEANUP has to wait",
    "wms.close, wms": "CLEANUP has to wait",
    'other.GetCoverage, other, "a=b"': "another request is running",
    "zel.reset": "ZELNETOGCWMS::[A-Z]+: The session cannot be reset while a routine runs.",
}


def test_refused_inside_the_routine(script, tmp_path):
    """The transfer goes on undisturbed, so does the reading, during which another object may transfer."""
    (tmp_path / "caps.xml").write_text(LAYER)
    with Responder([HEAD, IMAGE + b"4\r\nConnection: close\r\n\r\ndo", 0.2, b"ne"]) as server:
        done = script("\n".join(f"""
          do
            local tried
            wms:SetProperty{{CALLBACK_FUNCTION = function(_, progress)
              if now(progress) and not tried then tried = true print((tostring(try({call})):gsub("\\n.*", ""))) end
            end}}
            print(io.open(wms:GetMap("a=b")):read("a"))
            wms:SetProperty{{CALLBACK_FUNCTION = function(text)
              if text:find("^XML Schema") then print((tostring(try({call})):gsub("\\n.*", ""))) end
            end}}
            print(wms:GetCapabilities{{FROM_FILE = "caps.xml"}})
          end""" for call in INSIDE), server.port)
    lines = iter(done.out.splitlines())
    for line, body, again, count, (call, said) in zip(lines, lines, lines, lines, INSIDE.items(), strict=True):
        assert re.search(said, line) and re.search("cov.png" if "other" in call else said, again), call
        assert (body, count) == ("done", "1")
    assert done.err.count("INIT has to wait") == 2


def test_allowed_inside_the_routine(script):
    """Properties change at once for what comes next; another object may come, go and read a file."""
    with Responder([HEAD, IMAGE + b"4\r\n\r\ndo", 0.3, b"ne", HOLD]) as server:
        done = script("""
          local told, tried = 0
          local function second(text) told = told + 1 end
          wms:SetProperty{CALLBACK_DATA = {1, 2, 3}, HEADERS = "X-A: 1", CALLBACK_FUNCTION = function(_, progress)
            if tried or not now(progress) then return end
            tried = true
            wms:SetProperty{CALLBACK_FUNCTION = second, CALLBACK_DATA = "new", MAP_FILENAME = "elsewhere", HEADERS = "",
                            URL_HOSTNAME = "nowhere", URL_PATH = "", SSL_CERTIFICATE_FILE = "", USERNAME = "u"}
            wms:ParseURL("http://else.where/path?map=x")
            print(wms:GetProperty{"LAST_FILE"}.LAST_FILE, wms:GetLayers())
            zel.new("ZELnetOGCWCS", {CALLBACK_DATA = 1}):close()
            collectgarbage()
          end}
          print(wms:GetMap("a=b"), told > 0)
          print(wms:GetProperty{"MAP_FILENAME"}.MAP_FILENAME, wms:GetProperty{"CALLBACK_DATA"}.CALLBACK_DATA)
        """, server.port)
    assert done.out.splitlines() == ["map.png\t0", "map.png\ttrue", "elsewhere\tnew"]


ROUTINES = {
    "cancels": "return false", "raises": 'error("at step " .. step)', "raises a table": "error({step = step})",
    "overflows": "local function deeper() return 1 + deeper() end return step < 3 and deeper()",
    "yields": "coroutine.yield()", "returns an object": "return o", "vanishes": "on_status = nil",
    "turns into another": 'o:SetProperty{CALLBACK_FUNCTION = function() error("the other one") end}',
    "asks for what is refused": 'o:GetMap("a=b")', "resets the session": "zel.reset()"}


@pytest.mark.parametrize("routine", ROUTINES)
def test_routine_that_goes_wrong_at_every_step(zel, routine):
    """From the first line that it is told to the last: no file in part, and the next request of the object works."""
    with Responder([HEAD, IMAGE + b"4\r\nConnection: close\r\n\r\ndone"]) as images, Responder([HEAD, DOCUMENT]) as documents:
        assert zel(f"""
          local o <close> = zel.new("ZELnetOGCWMS")
          local function attempt(port, request, name, content)
            local failed = 0
            for wanted_step = 1, 200 do
              local step = 0
              os.remove(name)
              function on_status()
                step = step + 1
                if step == wanted_step then {ROUTINES[routine]} end
              end
              o:SetProperty{{CALLBACK_FUNCTION = "on_status", URL_HOSTNAME = "127.0.0.1", URL_PORT = port, URL_PATH = "ows",
                            VERBOSE = 1, MAP_FILENAME = "map", CAPABILITIES_FILENAME = "cap"}}
              if not pcall(request) then failed = failed + 1 end
              local file <close> = io.open(name)
              local text = file and file:read("a") or content
              if text ~= content then print("in part", wanted_step, text) end
              o:SetProperty{{CALLBACK_FUNCTION = ""}}
              local again, result = pcall(request)
              if not again then print("not again", wanted_step, result) end
              if step < wanted_step then return print(failed > 0, wanted_step > 5) end
            end
          end
          attempt(arg[1], function() return o:GetMap("a=b") end, "map.png", "done")
          attempt(arg[2], function() return o:GetCapabilities() end, "cap.xml", arg[3])
          on_status = nil
        """, images.port, documents.port, LAYER, no_leak=True).out.splitlines() == ["true\ttrue"] * 2
