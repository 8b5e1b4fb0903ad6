"""Properties of both classes: defaults, setting, reading back, refusals."""

import dataclasses
import re

import pytest

AUTHENTICATION = "Error: Failed to set Authentictation. Value is not valid.."
PROXY_AUTHENTICATION = "Error: Failed to set ProxyAuthentictation. Value is not valid.."
ENCODE = "Error: Failed to set Encode. Value is not valid.."
PORT = "Error: CurlSetPort failed to convert port value from string to integer: "
NO_PORT = "Error: CurlSetPort failed. Port Number can not be set to a null string.."
NOT_ALLOWED = "is not allowed"
NO_STRING = "A string is required here"
NO_SCALAR = "A single value is required here"
BOTH = ("WCS", "WMS")


@dataclasses.dataclass
class Row:
    """A property. Values are written as in Lua; `sets` tells what they read back as, `refused` what is said."""

    name: str
    default: str  # "/name": that file in the user file store; "bundle": the installation's certificates
    sets: dict = dataclasses.field(default_factory=dict)
    refused: dict = dataclasses.field(default_factory=dict)
    services: tuple = BOTH
    settable: bool = True
    readable: bool = True
    kept: dict = dataclasses.field(default_factory=dict)  # what a refused value leaves, if not the one before
    last: str = ""  # set in the end


def text(name, default="", empty=True, **more):
    """A text; numbers are converted as the host does, without the blanks that it pads them with."""
    sets = {'"  a b"': '"  a b"', '"Größe\\tµ"': '"Größe\\tµ"', "17": '"17"', "2.5": '"2.5"', "-1": '"-1"', "true": '"1"'}
    return Row(name, f'"{default}"', sets | ({'""': '""'} if empty else {}), **more)


def file(name, base, what, service):
    message = {'""': f"Error: {what} Filename can not be null.."}
    return text(name, "/" + base, empty=False, refused=message, services=(service,))


def mode(name, default, message):
    """A number of 0 to 3. What does not fit 16 bits wraps before it is judged."""
    return Row(name, str(default), {"0": "0", "2": "2", "'1'": "1", "3.9": "3", "65538": "2", "-65536": "0"},
               {"4": message, "-1": message, "65535": message, "65540": message})


def seconds(name, default):
    return Row(name, str(default), {"0": "1", "-3": "1", "32767": "32767", "40000": "1", "65546": "10", "' 7'": "7"})


def flag(name, default):
    return Row(name, str(default), {"7": "1", "0": "0", "true": "1", "65536": "0", "-1": "1", "false": "0"})


ROWS = [
    mode("AUTHENTICATION", 3, AUTHENTICATION),
    mode("PROXY_AUTHENTICATION", 3, PROXY_AUTHENTICATION),
    mode("ENCODE", 0, ENCODE),
    seconds("TIMEOUT", 1800),
    seconds("CONNECT_TIMEOUT", 180),
    flag("SSL_VERIFY_PEER", 1),
    flag("SSL_VERIFY_HOST", 1),
    Row("VERBOSE", "0", {"5": "1", "1": "1", "-3": "-3", "0": "0", "65537": "1"}),
    Row("CALLBACK_FUNCTION", '""', {'"on_status"': '"on_status"', '""': '""'}, {"5": NO_STRING}),
    Row("CALLBACK_DATA", "0", {"5": "5", '"text"': '"text"', "{1, 2}": "{1, 2}", "{A = 'x'}": '{A="x"}',
                               "zel.undefined": "0"}),
    Row("HEADERS", '""', {'"  X-A: 1"': '{"  X-A: 1"}', "12": '{"  X-A: 1", "12"}', '""': '""',
                          '{"X-B: 2", "", " X-C: 3"}': '{"X-B: 2", "", " X-C: 3"}', '{"", "X-D: 4"}': '""',
                          "{3, 4.5}": '{"3", "4.5"}'}),
    Row("URL_PORT", '"80"', {"8080": '"8080"', '"   443"': '"443"', '"99999"': '"99999"'},
        {'"abc"': PORT + " abc.", "0": PORT + " 0.", '""': NO_PORT},
        kept={'"abc"': '"abc"', "0": '"0"', '""': '"0"'}, last="80"),
    Row("PROXY_PORT", '"80"', {'"x"': '"x"', "3128": '"3128"', '""': '""'}),
    text("PROXY_HOSTNAME"), text("PROXY_USERNAME"), text("USERNAME"),
    text("URL_HOSTNAME"), text("URL_PATH"), text("URL_QUERY_PREFIX"), text("URL_QUERY_SUFFIX"),
    text("URL_SCHEME", "http"),
    text("SSL_CERTIFICATE_FILE", "bundle"),
    text("PASSWORD", readable=False), text("PROXY_PASSWORD", readable=False),
    text("CONTENT_TYPE", settable=False), text("LAST_FILE", settable=False), text("RESPONSE_HEADER", settable=False),
    file("CAPABILITIES_FILENAME", "cap", "Capabilities", "WCS"),
    file("DESCRIBE_COVERAGE_FILENAME", "descov", "Describe Coverage", "WCS"),
    file("COVERAGE_FILENAME", "cov", "Coverage", "WCS"),
    file("CAPABILITIES_FILENAME", "cap", "Capabilities", "WMS"),
    file("MAP_FILENAME", "map", "Map", "WMS"),
    file("FEATURE_INFO_FILENAME", "feature", "Feature Info", "WMS"),
    text("WCS_VERSION", "1.0.0", services=("WCS",)),
    text("WMS_VERSION", "1.1.1", services=("WMS",)),
]

# Prints values so that types show: strings quoted, lists and structures in braces.
SHOW = """
function show(v)
  if type(v) == "string" then return '"' .. v:gsub("\\t", "\\\\t") .. '"' end
  if type(v) ~= "table" then return tostring(v) end
  local parts = {}
  for _, tag in ipairs(#v == 0 and zel.tags(v) or {}) do parts[#parts + 1] = tag .. "=" .. show(v[tag]) end
  for _, item in ipairs(v) do parts[#parts + 1] = show(item) end
  return "{" .. table.concat(parts, ", ") .. "}"
end
function get(o, name)
  local ok, result = pcall(o.GetProperty, o, {name})
  print(ok and show(result[name]) or result)
end
function set(o, name, value)
  local ok, why = pcall(o.SetProperty, o, {[name] = value})
  print(ok and "ok" or why)
end
"""


def steps(service):
    """Lua lines that print one line each, with what they are about and what they print."""

    def setting(row, given, says="ok"):
        return f'set(o, "{row.name}", {given})', f"{row.name} = {given}", says

    def reading(row, after, value):
        return f'get(o, "{row.name}")', f"{row.name} after {after}", value if row.readable else NOT_ALLOWED

    for row in (row for row in ROWS if service in row.services):
        yield reading(row, "INIT", row.default)
        if not row.settable:
            yield setting(row, "'x'", NOT_ALLOWED)
            continue
        for given, value in row.sets.items():
            yield setting(row, given)
            yield reading(row, given, value)
        for given, message in row.refused.items():
            yield setting(row, given, message)
            yield reading(row, given, row.kept.get(given, value))
        if row.name not in ("CALLBACK_DATA", "HEADERS"):
            yield setting(row, "{1, 2}", NO_STRING if row.name == "CALLBACK_FUNCTION" else NO_SCALAR)
        yield setting(row, row.last) if row.last else None


@pytest.mark.parametrize("service", BOTH)
def test_every_property(zel, service):
    lines, about, expected = zip(*filter(None, steps(service)))
    done = zel("\n".join([SHOW, f'local o = assert(zel.new("ZELnetOGC{service}"))', *lines, "o:close()"]), no_leak=True)
    wrong = []
    for what, value, line in zip(about, expected, done.out.splitlines(), strict=True):
        if value.startswith('"/'):
            fits = re.fullmatch(f'"{done.user_dir}/.*ogc_user_files_{service.lower()}[^/]*{value[1:]}', line)
        elif value == '"bundle"':
            fits = line.endswith('/bin/bin.linux.x86_64/ca-bundle.crt"')
        elif value[0] in '"{' or value == "ok" or value.lstrip("-").isdigit():
            fits = line == value
        else:
            fits = value in line
        if not fits:
            wrong.append(f"{what}: {line}, not {value}")
    assert not wrong, "\n".join(wrong)


@pytest.mark.parametrize("service", BOTH)
def test_no_other_property(zel, service):
    rows = [row for row in ROWS if service in row.services]
    done = zel(f"""
      local o = zel.new("ZELnetOGC{service}")
      print(select(2, pcall(o.SetProperty, o, {{NONSENSE = 1}})))
      print(select(2, pcall(o.GetProperty, o, {{"NONSENSE"}})))
    """)
    for line, wanted in zip(done.out.splitlines(), ({row.name for row in rows if row.settable},
                                                    {row.name for row in rows if row.readable})):
        assert set(re.findall("[A-Z_]{5,}", line.split("Accepted keywords:")[1])) == wanted


def test_order_of_application(zel):
    """A property that fails stops the ones behind it, whatever the order in the call."""
    done = zel(SHOW + """
      local o = zel.new("ZELnetOGCWMS")
      print(pcall(o.SetProperty, o, {VERBOSE = 1, TIMEOUT = 9, ENCODE = 7, URL_PATH = "p", HEADERS = "X: y"}))
      for _, name in ipairs{"HEADERS", "URL_PATH", "ENCODE", "TIMEOUT", "VERBOSE"} do get(o, name) end
      pcall(o.SetProperty, o, {URL_PORT = "none"})
      print(pcall(o.SetProperty, o, {PROXY_PORT = 3128}))
      o:SetProperty{PROXY_PORT = 3129, URL_PORT = 80}
      get(o, "PROXY_PORT")
    """, no_leak=True)
    lines = done.out.splitlines()
    assert ENCODE in lines[0] and "ZELNETOGCWMS::SETPROPERTY" in lines[0] and "CCurlException:  " in lines[0]
    assert lines[1:6] == ['{"X: y"}', '"p"', "0", "1800", "0"]
    assert "Error: CurlSetProxyPort failed to convert port value from string to integer:  3128." in lines[6]
    assert lines[7] == '"3129"'


def test_callback_data_is_a_copy_with_one_owner(zel):
    done = zel(SHOW + """
      local o = zel.new("ZELnetOGCWCS")
      local data = {A = 1, B = {1, 2}}
      for i = 1, 3 do data.A = i; o:SetProperty{CALLBACK_DATA = data} end
      data.A = 7
      o:GetProperty{"CALLBACK_DATA"}.CALLBACK_DATA.A = 8
      get(o, "CALLBACK_DATA")
      print(zel.counts().heap)
      o:SetProperty{CALLBACK_DATA = zel.undefined}
      print(zel.counts().heap)
    """, no_leak=True)
    assert done.out.splitlines() == ["{A=3, B={1, 2}}", "1", "0"]


@pytest.mark.parametrize("url, said, settings", [
    ("https://localhost:8443/cgi-bin/wms?map=a.map&SERVICE=WMS&VERSION=1.1.1&REQUEST=GetCapabilities&token=x", None,
     '"https" "localhost" "8443" "cgi-bin/wms" "map=a.map" "token=x"'),
    ("http://localhost/wms?", None, '"http" "localhost" "80" "wms" "" ""'),
    ("http://localhost/wms", "does not contain a ?", None),
])
def test_parse_url(zel, url, said, settings):
    done = zel(SHOW + f"""
      local o = zel.new("ZELnetOGCWMS")
      local ok, why = pcall(o.ParseURL, o, "{url}")
      if not ok then print(why) return end
      local p = o:GetProperty{{"URL_SCHEME", "URL_HOSTNAME", "URL_PORT", "URL_PATH", "URL_QUERY_PREFIX",
                              "URL_QUERY_SUFFIX"}}
      print(show(p.URL_SCHEME), show(p.URL_HOSTNAME), show(p.URL_PORT), show(p.URL_PATH), show(p.URL_QUERY_PREFIX),
            show(p.URL_QUERY_SUFFIX))
    """)
    assert done.out.split() == settings.split() if settings else said in done.out


def test_parse_url_takes_a_string(zel):
    done = zel("""
      local o = zel.new("ZELnetOGCWCS")
      print(select(2, pcall(o.ParseURL, o, 5)), select(2, pcall(o.ParseURL, o)),
            select(2, pcall(o.ParseURL, o, "http://a/b?", {X = 1})))
    """)
    assert "A string is required here" in done.out and "takes no keywords" in done.out
    assert "Incorrect number of arguments" in done.out
