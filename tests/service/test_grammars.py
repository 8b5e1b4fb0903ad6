"""DTDs and schemas that lie on a server: fetched with the client's settings, and only when asked for."""

import pytest

from mapserver.lighttpd import PASSWORD, USER
from responder import HEAD, HOLD, Responder

# Reads the capabilities in arg[2] with schema checking arg[1] and an object for the server at arg[3]:arg[4]; the status
# routine has an answer to arg[5].
READ = """
function on_status(text)
  print(text)
  if arg[5] and text:find(arg[5]) then {answer} end
end
local wms <close> = zel.new("ZELnetOGCWMS", {URL_HOSTNAME = arg[3], URL_PORT = arg[4], USERNAME = "{user}",
                                             PASSWORD = "{password}", AUTHENTICATION = 1, ENCODE = 3, SSL_VERIFY_PEER = 0,
                                             CALLBACK_FUNCTION = "on_status"})
print(pcall(wms.GetCapabilities, wms, {FROM_FILE = arg[2], SCHEMA_CHECKING = tonumber(arg[1]), VALIDATION_MODE = 1}))
""".replace("{user}", USER).replace("{password}", PASSWORD)
XSD = '<xs:schema xmlns:xs="http://www.w3.org/2001/XMLSchema">%s</xs:schema>'
OK = b"HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\n"


@pytest.fixture
def read(zel, tmp_path):
    """read(url, host, port, no=line, answer=code, dtd=False): what a run prints with a document whose grammar is at `url`."""

    def run(url, host, port, no=None, answer="return false", dtd=False):
        document = tmp_path / "capabilities.xml"
        document.write_text((f'<!DOCTYPE WMT_MS_Capabilities SYSTEM "{url}">' if dtd else "") +
                            '<WMT_MS_Capabilities version="1.1.1"' +
                            ("" if dtd else ' xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"'
                                            f' xsi:noNamespaceSchemaLocation="{url}"') + "/>")
        arguments = [0 if dtd else 1, document, host, port] + ([no] if no else [])
        return zel(READ.replace("{answer}", answer), *arguments).out

    return run


@pytest.fixture(scope="module")
def grammars(http):
    """A schema in two files and a DTD, both wanting an attribute that the document has not."""
    (http.root / "parts").mkdir(exist_ok=True)
    (http.root / "outer.xsd").write_text(XSD % '<xs:include schemaLocation="parts/inner.xsd"/>')
    (http.root / "parts" / "inner.xsd").write_text(XSD % (
        '<xs:element name="WMT_MS_Capabilities"><xs:complexType><xs:attribute name="version"/>'
        '<xs:attribute name="updateSequence" use="required"/></xs:complexType></xs:element>'))
    (http.root / "wms.dtd").write_text("<!ELEMENT WMT_MS_Capabilities EMPTY><!ATTLIST WMT_MS_Capabilities "
                                       "version CDATA #IMPLIED updateSequence CDATA #REQUIRED>")
    return http


def test_grammars_are_fetched_from_servers(read, grammars):
    for url, dtd in (("/outer.xsd", False), ("/wms.dtd", True)):
        out = read(grammars.url + url, "localhost", grammars.port, dtd=dtd)
        assert "Error SAX Parser: Message (" in out and "updateSequence" in out, out
        assert out.splitlines()[-1].startswith("true")


def test_what_is_imported_again_is_fetched_once(read, http):
    diamond = {"top": ("left", "right", "none"), "left": ("shared", "none"), "right": ("shared", "./shared")}
    for name in ("top", "left", "right", "shared"):
        parts = "".join(f'<xs:include schemaLocation="{part}.xsd"/>' for part in diamond.get(name, ()))
        (http.root / f"{name}.xsd").write_text(XSD % parts)
    out = read(http.url + "/top.xsd", "localhost", http.port)
    assert out.count("Sending Http Get Request") == 5 and out.count("is not used") == 1, out
    assert all(out.count(f"/{name}.xsd\n") == 1 for name in ("top", "left", "right", "shared", "none")), out


def test_the_files_of_grammars_are_limited(read, http):
    (http.root / "part.xsd").write_text(XSD % "")
    for count in (255, 256):
        (http.root / f"top{count}.xsd").write_text(
            XSD % "".join(f'<xs:include schemaLocation="part.xsd?{i}"/>' for i in range(count)))
        out = read(f"{http.url}/top{count}.xsd", "localhost", http.port)
        assert ("part.xsd?255) is too much: at most 8 MiB in 256 files are read" in out) == (count == 256), out


def test_credentials_go_to_the_clients_own_server_only(read, grammars):
    schema = grammars.url + "/basic/outer.xsd"
    assert "updateSequence" in read(schema, "localhost", grammars.port)
    secure = grammars.tls_url + "/basic/outer.xsd"
    for url, host, port in ((schema, "127.0.0.1", grammars.port), (schema, "localhost", grammars.second_port),
                            (secure, "localhost", grammars.tls_port)):
        out = read(url, host, port)
        assert "Warning: XML Schema is not used: (" + url in out and "ErrCode(401)" in out and "updateSequence" not in out, out
    with Responder([HEAD, OK + b"Content-Length: 0\r\n\r\n"]) as other:
        read(f"http://127.0.0.1:{other.port}/@localhost:{grammars.port}/x.xsd", "localhost", grammars.port)
    assert "Authorization" not in other.requests[0] and "Accept-Encoding" not in other.requests[0]


def test_an_endless_schema_is_given_up(read):
    with Responder([HEAD, OK + b"\r\n"] + [b" " * 1_000_000] * 200) as server:
        out = read(server.url + "x.xsd", "localhost", 1)
    assert "x.xsd) is too long" in out and out.splitlines()[-1].startswith("true")


def test_a_cancel_ends_the_request(read):
    with Responder([HEAD, OK + b"Content-Length: 1000\r\n\r\n" + b" " * 500, HOLD]) as server:
        out = read(server.url + "x.xsd", "localhost", 1, no="received %(500%)")
    assert out.splitlines()[-1].startswith("false") and "ancel" in out.splitlines()[-1], out


@pytest.mark.parametrize("line", ["XML Schema", "Sending Http", "Http Get Request Failed"])
def test_errors_in_the_routine_pass_through(read, line):
    out = read("http://127.0.0.1:1/x.xsd", "localhost", 1, no=line, answer='error("mine", 0)')
    assert out.splitlines()[-1] == "false\tmine"
