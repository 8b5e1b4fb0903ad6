"""Scripts that do what they should not: every failure says what is wrong, and the same object works again."""

import pytest

from responder import HEAD, Responder

DOCUMENTS = {
    "WMS": "<WMT_MS_Capabilities version='1.1.1'><Capability><Layer><Name>a</Name></Layer></Capability>"
           "</WMT_MS_Capabilities>",
    "WCS": "<WCS_Capabilities version='1.0.0'><ContentMetadata><CoverageOfferingBrief><name>a</name>"
           "</CoverageOfferingBrief></ContentMetadata></WCS_Capabilities>",
}
COVERAGES = ("<CoverageDescription version='1.0.0'><CoverageOffering><name>a</name></CoverageOffering>"
             "</CoverageDescription>")
SERVICES = pytest.mark.parametrize("service", DOCUMENTS)

# good(): a request of the object `o` that has to work, whatever came before it.
OBJECT = """
local service = arg[1]
local o = zel.new("ZELnetOGC" .. service)
local function good()
  o:SetProperty{CALLBACK_FUNCTION = "", CALLBACK_DATA = zel.undefined, CAPABILITIES_FILENAME = "kept",
                PROXY_HOSTNAME = "127.0.0.1", PROXY_PORT = "1", URL_HOSTNAME = "localhost", URL_PORT = 1, URL_PATH = "ows"}
  o:SetProperty{[(service == "WCS" and "DESCRIBE_COVERAGE" or "MAP") .. "_FILENAME"] = "described"}
  if o:GetCapabilities{FROM_FILE = "document.xml"} ~= 1 then error("no good request", 2) end
  if service == "WCS" then o:DescribeCoverage{FROM_FILE = "coverages.xml"} end
end
"""


@pytest.fixture
def misuse(zel, tmp_path):
    def run(code, service, *arguments):
        (tmp_path / "document.xml").write_text(DOCUMENTS[service])
        (tmp_path / "coverages.xml").write_text(COVERAGES)
        return zel(OBJECT + code + "\no:close()", service, *arguments, no_leak=True).out.splitlines()

    return run


@SERVICES
def test_every_wrong_type_for_every_keyword(misuse, service):
    """What no conversion helps is refused under the keyword's name; whatever else fails says where."""
    lines = misuse("""
      local never = {OBJECT = o, STRUCTURE = {A = 1}, STRUCTURES = {{A = 1}, {A = 2}}, UNDEFINED = zel.undefined,
                     FUNCTION = print, NUMBERS = {1, 2}, TEXTS = {"a", "b"}}
      local perhaps = {EMPTY = "", WORD = "word", CONTROL = "a\\r\\nb\\1", LONG = ("x"):rep(100000), WIDE = 2^62,
                       HUGE = 1e300, BELOW = -1, PART = 2.5, NAN = 0/0, YES = true}
      local takes = {CALLBACK_DATA = "OBJECT STRUCTURE STRUCTURES UNDEFINED NUMBERS TEXTS", CALLBACK_FUNCTION = "FUNCTION",
                     HEADERS = "NUMBERS TEXTS", NAMES = "TEXTS"}
      local tried = 0
      local function try(method, keyword, kind, value, must)
        good()
        local keywords = {[keyword] = value}
        if method == "DescribeCoverage" and keyword ~= "NAMES" then keywords.FROM_FILE = keywords.FROM_FILE or "coverages.xml" end
        local ok, why = pcall(o[method], o, keywords)
        tried = tried + 1
        local place = ("ZELNETOGC%s::%s: "):format(service, method:upper())
        if method == "Init" and kind ~= "FUNCTION" then return end
        if ok and must or not ok and not why:find(place, 1, true)
           or must and not (why:find(place .. "keyword " .. keyword .. ": ", 1, true) or why:find("Keyword " .. keyword, 1, true))
        then print(method, keyword, kind, why) end
      end
      for method in ("Init SetProperty GetProperty GetCapabilities GetServiceSection " .. (service == "WMS" and "GetLayers"
                     or "DescribeCoverage GetCoverageOffering GetCoverageOfferingBriefs")):gmatch("%a+") do
        local accepted = select(2, pcall(o[method], o, {NONSENSE = 1})):match("Accepted keywords: (.*)")
        for keyword in (accepted or ""):gmatch("[%u_]+") do
          local may = " " .. (takes[keyword] or "") .. " "
          for kind, value in pairs(never) do try(method, keyword, kind, value, not may:find(" " .. kind .. " ", 1, true)) end
          for kind, value in pairs(perhaps) do try(method, keyword, kind, value, method == "GetProperty") end
        end
        good()
      end
      print(tried > 1000 or tried)
    """, service)
    assert lines == ["true"]


ROUTINES = {
    "cancels": "return false", "raises": 'error("at step " .. step)', "raises a table": "error({step = step})",
    "overflows": "local function deeper() return 1 + deeper() end return step < 3 and deeper()",
    "yields": "coroutine.yield()", "returns an object": "return o", "vanishes": "on_status = nil",
    "turns into another": 'o:SetProperty{CALLBACK_FUNCTION = function() error("the other one") end}',
    "asks for what is refused": 'o:GetMap("a=b")', "resets the session": "zel.reset()"}
IMAGE = (b"HTTP/1.1 200 OK\r\nContent-Type: image/png\r\nContent-Length: 4\r\nConnection: close\r\n\r\ndone")
DOCUMENT = (b"HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\nContent-Length: %d\r\nConnection: close\r\n\r\n"
            % len(DOCUMENTS["WMS"])) + DOCUMENTS["WMS"].encode()


@pytest.mark.parametrize("routine", ROUTINES)
def test_routine_that_goes_wrong_at_every_step(misuse, routine):
    """From the first line that it is told to the last: no file in part, and the next request of the object works."""
    with Responder([HEAD, IMAGE]) as images, Responder([HEAD, DOCUMENT]) as documents:
        lines = misuse(f"""
          local function attempt(port, request, name, content)
            local failed = 0
            for wanted_step = 1, 200 do
              local step = 0
              os.remove(name)
              function on_status()
                step = step + 1
                if step == wanted_step then {ROUTINES[routine]} end
              end
              o:SetProperty{{CALLBACK_FUNCTION = "on_status", PROXY_HOSTNAME = "", URL_HOSTNAME = "127.0.0.1", URL_PORT = port,
                            URL_PATH = "ows", VERBOSE = 1, MAP_FILENAME = "map", CAPABILITIES_FILENAME = "cap"}}
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
          attempt(arg[2], function() return o:GetMap("a=b") end, "map.png", "done")
          attempt(arg[3], function() return o:GetCapabilities() end, "cap.xml", arg[4])
          on_status = nil
          good()
        """, "WMS", images.port, documents.port, DOCUMENTS["WMS"])
    assert lines == ["true\ttrue"] * 2
