"""The life of the objects: INIT, CLEANUP, what they refuse, and that nothing stays behind."""

import re

import pytest

SERVICES = pytest.mark.parametrize("service", ["WCS", "WMS"])

# What a method says when it is called on these.
NO_OBJECT = "a method is called with its object"
SELVES = {"5": NO_OBJECT, '"o"': NO_OBJECT, "{}": NO_OBJECT, "print": NO_OBJECT, "true": NO_OBJECT,
          "closed": "the object is closed", "other": "Unable to acquire OGC {} object",
          "cleaned": "The object has no OGC {} client. Call INIT first."}


@SERVICES
def test_methods_need_an_object_with_a_client(zel, service):
    """After CLEANUP an object is empty; it can be cleaned up again and initialised again."""
    *lines, again = zel(f"""
      local function new() return zel.new("ZELnetOGC{service}") end
      local o, closed, cleaned, other = new(), new(), new(), zel.new(arg[1])
      closed:close() closed:close() cleaned:Cleanup()
      local query = {{GETMAP = "a=b", GETFEATUREINFO = "a=b", GETCOVERAGE = "a=b", PARSEURL = "http://a/b?"}}
      for i, self in ipairs{{{', '.join(SELVES)}}} do
        for _, method in ipairs(zel.methods(o)) do
          local ok, why = pcall(o[method], table.unpack{{self, query[method]}})
          print(i, method, (tostring(why):gsub("\\n.*", "")))
          if ok and method == "INIT" then self:Cleanup() end
        end
      end
      print(cleaned:Init(), cleaned:GetProperty{{"URL_PORT"}}.URL_PORT)
    """, "ZELnetOGCWMS" if service == "WCS" else "ZELnetOGCWCS", no_leak=True).out.splitlines()
    assert again == "1\t80" and len(lines) >= 80
    for i, method, said in (line.split("\t") for line in lines):
        self = list(SELVES)[int(i) - 1]
        works = self == "cleaned" and {"INIT": "1", "CLEANUP": "nil"}.get(method)
        assert said == works or SELVES[self].format(service) in said and f"ZELNETOGC{service}::{method}" in said


@SERVICES
def test_file_store_tells_what_it_is(zel, service):
    done = zel(f'print(zel.new("ZELnetOGC{service}"):GetProperty{{"CAPABILITIES_FILENAME"}}.CAPABILITIES_FILENAME)',
               env={"ZEL_USER_DIR": "user"})
    store = done.user_dir / f"zel/ogc_user_files_{service.lower()}-100"
    text = (store / "README.txt").read_text()
    assert done.out == f"{store}/cap\n"
    assert "hold ogc related files" in text and text.endswith("\nVersion 1.00\n")


@SERVICES
def test_second_init_is_a_fresh_start(zel, service):
    assert zel(f"""
      local o = zel.new("ZELnetOGC{service}", {{URL_HOSTNAME = "a", CALLBACK_DATA = {{1, 2}}, HEADERS = "X: 1", TIMEOUT = 9}})
      print(o:Init{{URL_PORT = 81}}, zel.counts().heap)
      local p = o:GetProperty{{"URL_HOSTNAME", "CALLBACK_DATA", "HEADERS", "TIMEOUT", "URL_PORT"}}
      print(p.URL_HOSTNAME .. "|", p.CALLBACK_DATA, p.HEADERS .. "|", p.TIMEOUT, p.URL_PORT)
    """, no_leak=True).out.splitlines() == ["1\t0", "|\t0\t|\t1800\t81"]


def test_refused_init(zel):
    """A bad property is an informational message and 0; a misuse of the call is an error. Nothing is left."""
    done = zel("""
      local none, why = zel.new("ZELnetOGCWMS", {URL_HOSTNAME = "a", ENCODE = 4})
      print(none, why, zel.counts().objects)
      print(pcall(zel.new, "ZELnetOGCWMS", {CALLBACK_DATA = 1, TIMEOUT = {1, 2}}))
      local left, o = zel.counts().objects, zel.new("ZELnetOGCWMS")
      print(o:Init{URL_HOSTNAME = "b", URL_PORT = "none"}, o:GetProperty{"URL_HOSTNAME"}.URL_HOSTNAME, left)
    """, no_leak=True)
    refused, misused, again = done.out.splitlines()
    assert refused.startswith("nil\t") and refused.endswith("\t0") and "CCurlException:  Error: Failed to set Encode." in refused
    assert misused.startswith("false") and "single value is required" in misused and again == "0\tb\t0"
    assert "ZELNETOGCWMS::INIT" in done.err and "CurlSetPort failed to convert" in done.err


MISTAKES = [
    ('object:GetProperty("URL_PORT")', 'names are given in a table: object:GetProperty{"URL_PORT"}.'),
    ('object:GetProperty("URL_PORT", "URL_PATH")', 'object:GetProperty{"URL_PORT", "URL_PATH"}.'),
    ('object:setProperty("URL_PORT", 5)', "object:setProperty{URL_PORT = value}."),
    ('object:GetMap("a", "b")', "Incorrect number of arguments: 1 wanted besides the object, 2 given."),
    ("object.URL_PORT = 5", "cannot be set by assignment; properties are set by object:SetProperty{URL_PORT = value}."),
    ("return object.URL_PORT", 'close. A property is read by object:GetProperty{"URL_PORT"}.URL_PORT.'),
    ("return object:GetMaps()", ", SETPROPERTY, close."),
    ('zel.new("WMS")', 'There is no object class "WMS", only ZELnetOGCWCS, ZELnetOGCWMS. A class of another module'),
    ("answer = function() return 'x' end return object:GetMap('x')",
     r"The function at \S+script.lua:3 returned a string, not a number or a boolean.$"),
]


@pytest.mark.parametrize("code, message", MISTAKES)
def test_mistake_is_answered_by_the_right_form(zel, code, message):
    out = zel(f"""
      object = zel.new("ZELnetOGCWMS", {{URL_HOSTNAME = "localhost", URL_PATH = "x", CALLBACK_FUNCTION = "answer"}})
      print(select(2, pcall(function() {code} end)))""").out
    assert re.search(r"script.lua:\d+: .*" + (message if "\\" in message else re.escape(message)), out), out


def test_object_as_callback_data_lives_as_long_as_it_is_set(zel):
    """Also in a list or a structure; a ring of objects is still collected."""
    done = zel("""
      local o = zel.new("ZELnetOGCWMS")
      local function set(data) o:SetProperty{CALLBACK_DATA = data} collectgarbage() end
      local function get() return o:GetProperty{"CALLBACK_DATA"}.CALLBACK_DATA end
      set(zel.new("ZELnetOGCWCS"))
      print(get(), zel.counts().objects)
      set{A = 1, OBJECTS = {zel.new("ZELnetOGCWCS"), zel.new("ZELnetOGCWCS")}}
      print(get().OBJECTS[2], zel.counts().objects)
      pcall(o.SetProperty, o, {CALLBACK_DATA = zel.new("ZELnetOGCWCS"), ENCODE = "none"})
      collectgarbage()
      print(get(), zel.counts().objects)
      set(o)
      o = nil
      collectgarbage()
      print(zel.counts().objects)
    """, no_leak=True)
    assert done.out.splitlines() == ["ZELNETOGCWCS object\t2", "ZELNETOGCWCS object\t3", "ZELNETOGCWCS object\t4", "0"]


def test_dropped_objects_do_not_fill_the_memory(zel, tmp_path):
    """The collector is told what their documents weigh: what the script itself holds is too much for it to come round."""
    layers = "".join(f"<Layer><Name>layer {i}</Name><Title>{'t' * 60}</Title></Layer>" for i in range(30_000))
    (tmp_path / "large.xml").write_text(f"<WMT_MS_Capabilities version='1.1.1'><Capability>{layers}</Capability>"
                                        "</WMT_MS_Capabilities>")
    done = zel("""
      local most, held = 0, {}
      for i = 1, 500000 do held[i] = {} end
      for i = 1, 12 do
        zel.new("ZELnetOGCWMS"):GetCapabilities{FROM_FILE = "large.xml"}
        most = math.max(most, zel.counts().objects)
      end
      print(most)
    """)
    assert int(done.out) <= 4
