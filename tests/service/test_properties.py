"""Properties of both classes: defaults, setting, reading back, refusals, and where they go on the wire."""

import pytest

from responder import HEAD, Responder

AUTHENTICATION, PROXY_AUTHENTICATION, ENCODE = (
    f"Error: Failed to set {name}. Value is not valid.." for name in ("Authentictation", "ProxyAuthentictation", "Encode"))
NOT_ALLOWED = "is not allowed"

# The default ("/name": that file in the user file store), a value of its own, and a value that is refused with its reason.
PROPERTIES = {
    "AUTHENTICATION": ("3", "1", "4", AUTHENTICATION), "PROXY_AUTHENTICATION": ("3", "2", "65540", PROXY_AUTHENTICATION),
    "ENCODE": ("0", "3", "-1", ENCODE), "TIMEOUT": ("1800", "11"), "CONNECT_TIMEOUT": ("180", "12"),
    "SSL_VERIFY_PEER": ("1", "0"), "SSL_VERIFY_HOST": ("1", "1"), "VERBOSE": ("0", "1"),
    "CALLBACK_FUNCTION": ('""', '"on_status"', "5", "A string is required here"), "CALLBACK_DATA": ("0", '{A="x"}'),
    "HEADERS": ('""', '{"X-A: 1", "X-B: 2"}'),
    "URL_PORT": ('"80"', '"8081"', '""', "Error: CurlSetPort failed. Port Number can not be set to a null string.."),
    "PROXY_PORT": ('"80"', '"8082"'), "PROXY_HOSTNAME": ('""', '"the proxy"'), "PROXY_USERNAME": ('""', '"p user"'),
    "USERNAME": ('""', '"user"'), "URL_HOSTNAME": ('""', '"a host"'), "URL_PATH": ('""', '"a path"'),
    "URL_QUERY_PREFIX": ('""', '"a prefix"'), "URL_QUERY_SUFFIX": ('""', '"a suffix"'), "URL_SCHEME": ('"http"', '"a scheme"'),
    "SSL_CERTIFICATE_FILE": ("bundle", '"a bundle"'), "PASSWORD": (None, '"secret"'), "PROXY_PASSWORD": (None, '"p secret"'),
    "CONTENT_TYPE": ('""', None), "LAST_FILE": ('""', None), "RESPONSE_HEADER": ('""', None)}


def file(default, what):
    return "/" + default, f'"a {default}"', '""', f"Error: {what} Filename can not be null.."


OWN = {"WCS": {"CAPABILITIES_FILENAME": file("cap", "Capabilities"), "COVERAGE_FILENAME": file("cov", "Coverage"),
               "DESCRIBE_COVERAGE_FILENAME": file("descov", "Describe Coverage"), "WCS_VERSION": ('"1.0.0"', '"1.0.7"')},
       "WMS": {"CAPABILITIES_FILENAME": file("cap", "Capabilities"), "MAP_FILENAME": file("map", "Map"),
               "FEATURE_INFO_FILENAME": file("feature", "Feature Info"), "WMS_VERSION": ('"1.1.1"', '"1.3.0"')}}

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


@pytest.mark.parametrize("service", OWN)
def test_every_property(zel, service):
    """All are set at once, each to a value of its own; then those that are refused change nothing."""
    rows = PROPERTIES | OWN[service]
    values = {name: value for name, (_, value, *_) in rows.items() if value}
    lines, expected = [], []

    def step(code, says):
        lines.append(code)
        expected.append(says)

    for name, (default, *_) in rows.items():
        step(f'get(o, "{name}")', default or NOT_ALLOWED)
    lines.append("o:SetProperty{" + ", ".join(f"{name} = {value}" for name, value in values.items()) + "}")
    for name, (default, value, *refused) in rows.items():
        if not value:
            step(f'set(o, "{name}", "x")', NOT_ALLOWED)
            continue
        if name not in ("CALLBACK_DATA", "HEADERS"):
            step(f'set(o, "{name}", {{1, 2}})', "A s")
        if refused:
            step(f'set(o, "{name}", {refused[0]})', refused[1])
        step(f'get(o, "{name}")', value if default else NOT_ALLOWED)
    step('set(o, "NONSENSE", 1)', "Accepted keywords: " + ", ".join(sorted(values)) + ".")
    step('get(o, "NONSENSE")', "Accepted keywords: " + ", ".join(sorted(name for name, row in rows.items() if row[0])) + ".")
    done = zel("\n".join([SHOW, f'local o = assert(zel.new("ZELnetOGC{service}"))', *lines, "o:close()"]), no_leak=True)
    for code, line, says in zip([line for line in lines if line[0] in "gs"], done.out.splitlines(), expected, strict=True):
        store = f"{done.user_dir}/zel/ogc_user_files_{service.lower()}-100"
        if says == "bundle":
            assert line.endswith('/bin/bin.linux.x86_64/ca-bundle.crt"')
        elif says[0] in '"{/' or says.isdigit():
            assert line == (f'"{store}{says}"' if says[0] == "/" else says), code
        else:
            assert says in line, code


TEXT = {'"  a b"': '"  a b"', '"Größe\\tµ"': '"Größe\\tµ"', "17": '"17"', "2.5": '"2.5"', "-1": '"-1"', "true": '"1"', '""': '""'}
# What values become: numbers wrap to 16 bits before they are judged.
CONVERTED = {
    "URL_HOSTNAME": TEXT, "PASSWORD": dict.fromkeys(TEXT, NOT_ALLOWED), "MAP_FILENAME": {"5": '"5"'},
    "ENCODE": {"'1'": "1", "3.9": "3", "65538": "2", "-65536": "0"},
    "TIMEOUT": {"0": "1", "-3": "1", "32767": "32767", "40000": "1", "65546": "10", "' 7'": "7"},
    "SSL_VERIFY_HOST": {"7": "1", "0": "0", "true": "1", "65536": "0", "-1": "1", "false": "0"},
    "VERBOSE": {"5": "1", "-3": "-3", "0": "0", "65537": "1"}, "URL_PORT": {"8080": '"8080"', '"   443"': '"443"'},
    "PROXY_PORT": {'"x"': '"x"', "3128": '"3128"', '""': '""'},
    "CALLBACK_DATA": {"5": "5", '"text"': '"text"', "{1, 2}": "{1, 2}", "zel.undefined": "0"},
    "HEADERS": {'"  X-A: 1"': '{"  X-A: 1"}', "12": '{"  X-A: 1", "12"}', '""': '""', "{3, 4.5}": '{"3", "4.5"}',
                '{"", "X-D: 4"}': '""', '{"X-B: 2", "", " X-C: 3"}': '{"X-B: 2", "", " X-C: 3"}'}}


def test_conversions(zel):
    rows = [(name, given, value) for name, values in CONVERTED.items() for given, value in values.items()]
    lines = iter(zel(SHOW + 'local o = zel.new("ZELnetOGCWMS")\n' + "\n".join(
        f'set(o, "{name}", {given}) get(o, "{name}")' for name, given, _ in rows)).out.splitlines())
    for (name, given, value), said, read in zip(rows, lines, lines, strict=True):
        assert said == "ok" and (read == value or value == NOT_ALLOWED and value in read), (name, given)


def test_properties_on_the_wire(zel):
    """A request over a proxy shows all that are sent."""
    with Responder([HEAD, b"HTTP/1.1 200 OK\r\nContent-Type: image/png\r\nConnection: close\r\n\r\nx"]) as proxy:
        file, told, header = zel("""
          local told
          local wms = zel.new("ZELnetOGCWMS", {
            URL_HOSTNAME = "thehost", URL_PORT = 81, URL_PATH = "path", URL_QUERY_PREFIX = "prefix=1", URL_QUERY_SUFFIX = "suffix=1",
            USERNAME = "user", PASSWORD = "secret", AUTHENTICATION = 1, PROXY_HOSTNAME = "127.0.0.1", PROXY_PORT = arg[1],
            PROXY_USERNAME = "clerk", PROXY_PASSWORD = "s3cret", PROXY_AUTHENTICATION = 1, ENCODE = 2, HEADERS = {"X-A: 1", "X-B: 2"},
            WMS_VERSION = "1.3.0", MAP_FILENAME = "themap", CALLBACK_DATA = {N = 7},
            CALLBACK_FUNCTION = function(_, _, data) told = data.N end})
          print(wms:GetMap("q=1 2"))
          print(told)
          print((wms:GetProperty{"RESPONSE_HEADER"}.RESPONSE_HEADER:gsub("\\r\\n", "|")))
        """, proxy.port).out.splitlines()
    sent = proxy.requests[0].split("\r\n")
    assert sent[0] == ("GET http://thehost:81/path?prefix=1&Version=1.3.0&Service=WMS&Request=GetMap&q=1%202&suffix=1 HTTP/1.1")
    assert {"Host: thehost:81", "Authorization: Basic dXNlcjpzZWNyZXQ=", "Proxy-Authorization: Basic Y2xlcms6czNjcmV0",
            "Accept-Encoding: gzip", "X-A: 1", "X-B: 2"} <= set(sent)
    assert (file, told) == ("themap.png", "7") and header.startswith("HTTP/1.1 200 OK|Content-Type: image/png|")


def test_order_of_application(zel):
    """A property that fails stops those that come after it, whatever the order in the call."""
    first, *values, last, proxy = zel(SHOW + """
      local o = zel.new("ZELnetOGCWMS")
      print(pcall(o.SetProperty, o, {VERBOSE = 1, TIMEOUT = 9, ENCODE = 7, URL_PATH = "p", HEADERS = "X: y"}))
      for _, name in ipairs{"HEADERS", "URL_PATH", "ENCODE", "TIMEOUT", "VERBOSE"} do get(o, name) end
      pcall(o.SetProperty, o, {URL_PORT = "none"})
      print(pcall(o.SetProperty, o, {PROXY_PORT = 3128}))
      o:SetProperty{PROXY_PORT = 3129, URL_PORT = 80}
      get(o, "PROXY_PORT")
    """, no_leak=True).out.splitlines()
    assert ENCODE in first and "ZELNETOGCWMS::SETPROPERTY" in first and "CCurlException:  " in first
    assert values == ['{"X: y"}', '"p"', "0", "1800", "0"] and proxy == '"3129"'
    assert "Error: CurlSetProxyPort failed to convert port value from string to integer:  3128." in last


def test_callback_data_is_a_copy_with_one_owner(zel):
    assert zel(SHOW + """
      local o = zel.new("ZELnetOGCWCS")
      local data = {A = 1, B = {1, 2}}
      for i = 1, 3 do data.A = i; o:SetProperty{CALLBACK_DATA = data} end
      data.A = 7
      o:GetProperty{"CALLBACK_DATA"}.CALLBACK_DATA.A = 8
      get(o, "CALLBACK_DATA")
      print(zel.counts().heap)
      o:SetProperty{CALLBACK_DATA = zel.undefined}
      print(zel.counts().heap)
    """, no_leak=True).out.splitlines() == ["{A=3, B={1, 2}}", "1", "0"]


@pytest.mark.parametrize("url, said", [
    ("https://localhost:8443/cgi-bin/wms?map=a.map&SERVICE=WMS&VERSION=1.1.1&REQUEST=GetCapabilities&token=x",
     '"https" "localhost" "8443" "cgi-bin/wms" "map=a.map" "token=x"'),
    ("http://localhost/wms?", '"http" "localhost" "80" "wms" "" ""'), ("http://localhost/wms", "does not contain a ?")])
def test_parse_url(zel, url, said):
    out = zel(SHOW + """
      local o, names = zel.new("ZELnetOGCWMS"), {"URL_SCHEME", "URL_HOSTNAME", "URL_PORT", "URL_PATH", "URL_QUERY_PREFIX",
                                                 "URL_QUERY_SUFFIX"}
      local ok, why = pcall(o.ParseURL, o, arg[1])
      if not ok then print(why) return end
      local p = o:GetProperty(names)
      for i, name in ipairs(names) do names[i] = show(p[name]) end
      print(table.concat(names, " "))
    """, url).out
    assert said in out
