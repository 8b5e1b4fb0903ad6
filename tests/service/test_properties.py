"""Properties of both classes: setting, reading back, refusals, and where they go on the wire. Their defaults are compared
with the reference."""

import json

import pytest

from lua_json import JSON
from responder import HEAD, Responder

# A value of its own for every property that can be set.
VALUES = {
    "AUTHENTICATION": 1, "PROXY_AUTHENTICATION": 2, "ENCODE": 3, "TIMEOUT": 11, "CONNECT_TIMEOUT": 12, "SSL_VERIFY_PEER": 0,
    "SSL_VERIFY_HOST": 1, "VERBOSE": 1, "CALLBACK_FUNCTION": "on_status", "CALLBACK_DATA": {"A": "x"},
    "HEADERS": ["X-A: 1", "X-B: 2"], "URL_PORT": "8081", "PROXY_PORT": "8082", "PROXY_HOSTNAME": "the proxy",
    "PROXY_USERNAME": "p user", "USERNAME": "user", "URL_HOSTNAME": "a host", "URL_PATH": "a path",
    "URL_QUERY_PREFIX": "a prefix", "URL_QUERY_SUFFIX": "a suffix", "URL_SCHEME": "a scheme", "PROXY_PASSWORD": "p secret",
    "SSL_CERTIFICATE_FILE": "a bundle", "PASSWORD": "secret", "CAPABILITIES_FILENAME": "a cap"}
OWN = {"WCS": {"COVERAGE_FILENAME": "a cov", "DESCRIBE_COVERAGE_FILENAME": "a descov", "WCS_VERSION": "1.0.7"},
       "WMS": {"MAP_FILENAME": "a map", "FEATURE_INFO_FILENAME": "a feature", "WMS_VERSION": "1.3.0"}}
# What is refused besides two values for one, and why.
REFUSED = {
    "AUTHENTICATION": (4, "Error: Failed to set Authentictation. Value is not valid.."), "CALLBACK_FUNCTION": (5, "A string is"),
    "PROXY_AUTHENTICATION": (65540, "Error: Failed to set ProxyAuthentictation. Value is not valid.."),
    "ENCODE": (-1, "Error: Failed to set Encode. Value is not valid.."),
    "URL_PORT": ("", "Error: CurlSetPort failed. Port Number can not be set to a null string.."),
    **{f"{name}_FILENAME": ("", f"Error: {name.replace('_', ' ').title()} Filename can not be null..")
       for name in ("CAPABILITIES", "COVERAGE", "DESCRIBE_COVERAGE", "MAP", "FEATURE_INFO")}}

# get() prints the value of a property as JSON, set() what is said.
ACCESS = JSON + """
function get(o, name)
  local ok, result = pcall(o.GetProperty, o, {name})
  print(ok and json(result[name]) or result)
end
function set(o, name, value) print(select(2, pcall(o.SetProperty, o, {[name] = value})) or "ok") end
"""


def lua(value):
    """A value as Lua writes it."""
    if isinstance(value, dict):
        return "{" + ", ".join(f"[{json.dumps(name)}] = {lua(item)}" for name, item in value.items()) + "}"
    return "{" + ", ".join(map(lua, value)) + "}" if isinstance(value, list) else json.dumps(value)


@pytest.mark.parametrize("service", OWN)
def test_every_property(zel, service):
    """All are set at once, each to a value of its own; then what is refused changes nothing."""
    values = VALUES | OWN[service]
    refused = {name: row for name, row in REFUSED.items() if name in values}
    single = [name for name in values if name not in ("CALLBACK_DATA", "HEADERS")]
    readable = [name for name in values if "PASSWORD" not in name]
    lines = zel("\n".join([
        ACCESS, f'local o = assert(zel.new("ZELnetOGC{service}"))', f"o:SetProperty{lua(values)}",
        *(f"set(o, {lua(name)}, {{1, 2}})" for name in single),
        *(f"set(o, {lua(name)}, {lua(value)})" for name, (value, _) in refused.items()),
        *(f"get(o, {lua(name)})" for name in readable), "o:close()"]), no_leak=True).out.splitlines()
    for line, name in zip(lines, single):
        assert " single value is required here" in line or "A string is required here" in line, (name, line)
    for line, (name, (_, why)) in zip(lines[len(single):], refused.items()):
        assert why in line, name
    assert dict(zip(readable, map(json.loads, lines[len(single) + len(refused):]), strict=True)) == {
        name: values[name] for name in readable}


NOT_ALLOWED = "is not allowed"
TEXT = {'"  a b"': '"  a b"', '"Größe\\tµ"': '"Größe\\u0009µ"', "17": '"17"', "2.5": '"2.5"', "-1": '"-1"', "true": '"1"', '""': '""'}
# What values become: numbers wrap to 16 bits before they are judged.
CONVERTED = {
    "URL_HOSTNAME": TEXT, "PASSWORD": dict.fromkeys(TEXT, NOT_ALLOWED), "MAP_FILENAME": {"5": '"5"'},
    "ENCODE": {"'1'": "1", "3.9": "3", "65538": "2", "-65536": "0"}, "CONNECT_TIMEOUT": {"0": "1", "-9": "1", "7": "7"},
    "TIMEOUT": {"0": "1", "-3": "1", "32767": "32767", "40000": "1", "65546": "10", "' 7'": "7"},
    "SSL_VERIFY_HOST": {"7": "1", "0": "0", "true": "1", "65536": "0", "-1": "1", "false": "0"},
    "VERBOSE": {"5": "1", "-3": "-3", "0": "0", "65537": "1"}, "URL_PORT": {"8080": '"8080"', '"   443"': '"443"'},
    "PROXY_PORT": {'"x"': '"x"', "3128": '"3128"', '""': '""'}, "SSL_VERIFY_PEER": {"7": "1", "0": "0", "-1": "1"},
    "CALLBACK_DATA": {"5": "5", '"text"': '"text"', "{1, 2}": "[1,2]", "zel.undefined": "0"},
    "HEADERS": {'"  X-A: 1"': '["  X-A: 1"]', "12": '["  X-A: 1","12"]', '""': '""', "{3, 4.5}": '["3","4.5"]',
                '{"", "X-D: 4"}': '""', '{"X-B: 2", "", " X-C: 3"}': '["X-B: 2",""," X-C: 3"]'}}


def test_conversions(zel):
    rows = [(name, given, value) for name, values in CONVERTED.items() for given, value in values.items()]
    lines = iter(zel(ACCESS + 'local o = zel.new("ZELnetOGCWMS")\n' + "\n".join(
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
          print(wms:GetMap("q=1" .. (" "):rep(500) .. "2"))
          print(told)
          print((wms:GetProperty{"RESPONSE_HEADER"}.RESPONSE_HEADER:gsub("\\r\\n", "|")))
        """, proxy.port).out.splitlines()
    sent = proxy.requests[0].split("\r\n")
    query = "prefix=1&Version=1.3.0&Service=WMS&Request=GetMap&q=1" + 500 * "%20" + "2&suffix=1"
    assert sent[0] == f"GET http://thehost:81/path?{query} HTTP/1.1"
    assert {"Host: thehost:81", "Authorization: Basic dXNlcjpzZWNyZXQ=", "Proxy-Authorization: Basic Y2xlcms6czNjcmV0",
            "Accept-Encoding: gzip", "X-A: 1", "X-B: 2"} <= set(sent)
    assert (file, told) == ("themap.png", "7") and header.startswith("HTTP/1.1 200 OK|Content-Type: image/png|")


def test_order_of_application(zel):
    """A property that fails stops those that come after it, whatever the order in the call."""
    first, *values, last, proxy = zel(ACCESS + """
      local o = zel.new("ZELnetOGCWMS")
      print(pcall(o.SetProperty, o, {VERBOSE = 1, TIMEOUT = 9, ENCODE = 7, URL_PATH = "p", HEADERS = "X: y"}))
      for _, name in ipairs{"HEADERS", "URL_PATH", "ENCODE", "TIMEOUT", "VERBOSE"} do get(o, name) end
      pcall(o.SetProperty, o, {URL_PORT = "0"})
      print(pcall(o.SetProperty, o, {PROXY_PORT = 3128}))
      o:SetProperty{PROXY_PORT = 3129, URL_PORT = 80}
      get(o, "PROXY_PORT")
    """, no_leak=True).out.splitlines()
    assert REFUSED["ENCODE"][1] in first and "ZELNETOGCWMS::SETPROPERTY" in first and "CCurlException:  " in first
    assert values == ['["X: y"]', '"p"', "0", "1800", "0"] and proxy == '"3129"'
    assert "Error: CurlSetProxyPort failed to convert port value from string to integer:  3128." in last
