"""The life of the objects: INIT, CLEANUP, what they refuse, and that nothing stays behind."""

import re

import pytest

# What every script below uses: one line for each call, its results or its message.
TRY = """
function try(f, ...) print(select(2, pcall(f, ...))) end
"""
CLASSES = pytest.mark.parametrize("name", ["ZELnetOGCWCS", "ZELnetOGCWMS"])


@CLASSES
def test_second_init_is_a_fresh_start(zel, name):
    done = zel(f"""
      local o = zel.new("{name}", {{URL_HOSTNAME = "a", CALLBACK_DATA = {{1, 2}}, HEADERS = "X: 1", TIMEOUT = 9}})
      print(o:Init{{URL_PORT = 81}}, zel.counts().heap)
      local p = o:GetProperty{{"URL_HOSTNAME", "CALLBACK_DATA", "HEADERS", "TIMEOUT", "URL_PORT"}}
      print(p.URL_HOSTNAME .. "|", p.CALLBACK_DATA, p.HEADERS .. "|", p.TIMEOUT, p.URL_PORT)
    """, no_leak=True)
    assert done.out.splitlines() == ["1\t0", "|\t0\t|\t1800\t81"]


@CLASSES
def test_without_client_every_method_says_so(zel, name):
    """After CLEANUP the object is empty; it can be cleaned up again and initialised again."""
    needs_client = {"ZELnetOGCWCS": 'GetCapabilities GetServiceSection GetCoverageOffering GetCoverageOfferingBriefs',
                    "ZELnetOGCWMS": 'GetCapabilities GetServiceSection GetLayers'}[name]
    query = "GetCoverage" if name.endswith("WCS") else "GetMap"
    done = zel(TRY + f"""
      local o = zel.new("{name}")
      o:Cleanup()
      for method in ("{needs_client}"):gmatch("%a+") do try(o[method], o) end
      try(o.{query}, o, "x=y")
      try(o.ParseURL, o, "http://a/b?")
      try(o.SetProperty, o, {{URL_PORT = 1}})
      try(o.GetProperty, o, {{"URL_PORT"}})
      o:Cleanup()
      print(o:Init(), o:GetProperty{{"URL_PORT"}}.URL_PORT)
    """, no_leak=True)
    lines = done.out.splitlines()
    assert len(lines) == len(needs_client.split()) + 5 and lines.pop() == "1\t80"
    assert all(f"The object has no OGC {name[-3:]} client. Call INIT first." in line for line in lines)


def test_refused_init(zel):
    """A bad property is an informational message and 0; a misuse of the call is an error. Nothing is left."""
    done = zel(TRY + """
      print(zel.new("ZELnetOGCWMS", {URL_HOSTNAME = "a", ENCODE = 4}))
      print(pcall(zel.new, "ZELnetOGCWMS", {CALLBACK_DATA = 1, TIMEOUT = {1, 2}}))
      print(pcall(zel.new, "ZELnetOGCWMS", {NO_SUCH = 1}))
      local o = zel.new("ZELnetOGCWMS")
      print(o:Init{URL_HOSTNAME = "b", URL_PORT = "none"}, o:GetProperty{"URL_HOSTNAME"}.URL_HOSTNAME)
      o:close()
      try(o.GetLayers, o)
    """, no_leak=True)
    lines = done.out.splitlines()
    assert lines[0].startswith("nil\t") and "CCurlException:  Error: Failed to set Encode." in lines[0]
    assert lines[1].startswith("false") and "single value is required" in lines[1]
    assert lines[2].startswith("false") and "Keyword NO_SUCH is not allowed" in lines[2]
    assert lines[3] == "0\tb"
    assert "closed" in lines[4]
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


def test_object_of_the_other_class(zel):
    done = zel(TRY + """
      local wcs, wms = zel.new("ZELnetOGCWCS"), zel.new("ZELnetOGCWMS")
      try(wms.GetMap, wcs, "x=y")
      try(wcs.GetServiceSection, wms)
      try(wcs.Cleanup, wms)
      try(wcs.SetProperty, wms, {TIMEOUT = 1})
      print(wcs.Init(wms))
      print(wms:GetProperty{"WMS_VERSION"}.WMS_VERSION)
    """, ok=False)
    lines = done.out.splitlines()
    assert "Unable to acquire OGC WMS object" in lines[0]
    assert all("Unable to acquire OGC WCS object" in line for line in lines[1:4])
    assert "Unable to acquire OGC WCS object" in done.out + done.err and done.status != 0


def test_file_store(zel):
    """One directory for each service below one author, with a read-me; INIT overrides every default in it."""
    done = zel("""
      local wcs, wms = zel.new("ZELnetOGCWCS"), zel.new("ZELnetOGCWMS", {MAP_FILENAME = "here", CAPABILITIES_FILENAME = 5})
      print(wcs:GetProperty{"COVERAGE_FILENAME"}.COVERAGE_FILENAME)
      local p = wms:GetProperty{"FEATURE_INFO_FILENAME", "MAP_FILENAME", "CAPABILITIES_FILENAME"}
      print(p.FEATURE_INFO_FILENAME)
      print(p.MAP_FILENAME, p.CAPABILITIES_FILENAME)
    """)
    cov, feature, given = done.out.splitlines()
    assert cov.endswith("/cov") and feature.endswith("/feature") and given.split() == ["here", "5"]
    stores = [done.user_dir / name for name in (cov.rsplit("/", 1)[0], feature.rsplit("/", 1)[0])]
    assert stores[0].parent.parent == stores[1].parent.parent or stores[0].parent == stores[1].parent
    assert all("hold ogc related files" in "".join(f.read_text() for f in store.rglob("*") if f.is_file()) or
               "hold ogc related files" in "".join(f.read_text() for f in store.parent.glob("*") if f.is_file())
               for store in stores) and stores[0] != stores[1]


def test_session_reset_keeps_objects(zel, http):
    done = zel(f"""
      local o = zel.new("ZELnetOGCWMS", {{URL_HOSTNAME = "localhost", URL_PORT = {http.port}, URL_PATH = "cgi-bin/echo"}})
      for i = 1, 3 do
        zel.reset() zel.reset()
        print(io.open(o:GetFeatureInfo("round=" .. i)):read("a"):match("round=%d"))
      end
      o:close()
      zel.reset()
    """, no_leak=True)
    assert done.out.split() == ["round=1", "round=2", "round=3"]


def test_collected_objects_leave_nothing(zel):
    done = zel("""
      for i = 1, 50 do
        local o = zel.new(i % 2 == 0 and "ZELnetOGCWMS" or "ZELnetOGCWCS", {CALLBACK_DATA = {i}, HEADERS = {"A: b", "C: d"}})
        if i % 5 == 0 then o = nil collectgarbage() end
      end
      do local o <close> = zel.new("ZELnetOGCWCS", {CALLBACK_DATA = "x"}) end
    """, no_leak=True)
    assert done.out == ""


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
    """The collector is told what their documents weigh."""
    layers = "".join(f"<Layer><Name>layer {i}</Name><Title>{'t' * 60}</Title></Layer>" for i in range(30_000))
    (tmp_path / "large.xml").write_text(f"<WMT_MS_Capabilities version='1.1.1'><Capability>{layers}</Capability>"
                                        "</WMT_MS_Capabilities>")
    done = zel("""
      local most = 0
      for i = 1, 12 do
        zel.new("ZELnetOGCWMS"):GetCapabilities{FROM_FILE = "large.xml"}
        most = math.max(most, zel.counts().objects)
      end
      print(most)
    """)
    assert int(done.out) <= 4
