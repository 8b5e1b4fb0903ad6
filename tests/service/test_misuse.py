"""Scripts that do what they should not: every failure says what is wrong, and the same object works again."""

import pytest

from responder import HEAD, Responder

LAYER = "<WMT_MS_Capabilities version='1.1.1'><Capability><Layer><Name>a</Name></Layer></Capability></WMT_MS_Capabilities>"


ROUTINES = {
    "cancels": "return false", "raises": 'error("at step " .. step)', "raises a table": "error({step = step})",
    "overflows": "local function deeper() return 1 + deeper() end return step < 3 and deeper()",
    "yields": "coroutine.yield()", "returns an object": "return o", "vanishes": "on_status = nil",
    "turns into another": 'o:SetProperty{CALLBACK_FUNCTION = function() error("the other one") end}',
    "asks for what is refused": 'o:GetMap("a=b")', "resets the session": "zel.reset()"}
IMAGE = (b"HTTP/1.1 200 OK\r\nContent-Type: image/png\r\nContent-Length: 4\r\nConnection: close\r\n\r\ndone")
DOCUMENT = (b"HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\nContent-Length: %d\r\nConnection: close\r\n\r\n"
            % len(LAYER)) + LAYER.encode()


@pytest.mark.parametrize("routine", ROUTINES)
def test_routine_that_goes_wrong_at_every_step(zel, routine):
    """From the first line that it is told to the last: no file in part, and the next request of the object works."""
    with Responder([HEAD, IMAGE]) as images, Responder([HEAD, DOCUMENT]) as documents:
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
