"""HTTP requests against a real web server."""

import json
import os
import re
import socket

import pytest
from conftest import limited
from mapserver.lighttpd import PASSWORD, REDIRECTS, USER
from transfer import transfer

BIG = 3_000_000
LOGIN = f"user={USER}", f"password={PASSWORD}"


@pytest.fixture(scope="module", autouse=True)
def content(http):
    (http.root / "big.bin").write_bytes(os.urandom(BIG // 2) + bytes(BIG // 2))
    (http.root / "page.xml").write_text("<x/>" * 1000)


@pytest.fixture
def ask(http, tmp_path):
    """ask(path, settings...): what came of a request; its file is below tmp_path, `f` and an extension."""

    def run(path, *settings, request="get", **options):
        return transfer(f"getfile={tmp_path}/f", f"putpostfile={tmp_path}/f", "host=localhost",
                        path if path.startswith("url=") else f"url={http.url}/{path}", *settings, f"request={request}",
                        **options)

    return run


@pytest.fixture
def echo(ask):
    """echo(settings...): what the server received."""

    def run(*settings, path="cgi-bin/echo", **options):
        got = ask(path, "tobuf=1", *settings, **options)
        assert got.result == "ok"
        return json.loads(got.buffer)

    return run


@pytest.fixture
def source(tmp_path):
    source = tmp_path / "source"
    source.write_bytes(os.urandom(5_000_000))
    return source


def test_file_is_named_after_its_type_and_replaced(ask, http, tmp_path):
    for name, setting, written in (("page.xml", "extvers=0", "f.xml"), ("hello.txt", "extvers=1", "f")):
        (tmp_path / written).write_text("old" * 10_000)
        got = ask(name, setting)
        assert (got.result, got.status, got.text, got.file) == ("ok", "200", "OK", str(tmp_path / written))
        assert (tmp_path / written).read_bytes() == (http.root / name).read_bytes()


def test_failed_status_keeps_the_servers_page(ask, tmp_path):
    said = "http: Client Error. Remote Host(localhost), Http ErrCode(404), Http Err(Not Found) Http ErrMsg({})"
    plain, page = said.format("No HTML found"), tmp_path / "f.html"
    for to_buffer in (1, 0):
        got = ask("dav/missing", f"tobuf={to_buffer}")
        assert (got.status, got.buffer, got.page) == ("404", "none", "" if to_buffer else str(page))
        assert got.result == f"Error: Http Get Request Failed. Error =  {plain}." and got.lines.count(plain) == 1
        deleted = ask("dav/missing", f"tobuf={to_buffer}", request="delete")
        assert deleted.result.startswith("Error: Http Delete Request Failed. Error =  " + said[:-3])
        assert ("<title>404 Not Found</title>" if to_buffer else "No HTML found") in deleted.result
        assert len(deleted.lines) == 1 and deleted.buffer == "none"
    assert got.lines[-1] == f"http: Error: Http Get Request Failed. see file: ({page})" and "404" in page.read_text()


def test_headers_serve_one_request(ask):
    got = ask("cgi-bin/echo", "tobuf=1", "header=X-Mine: 1", "header=", "header=X-Other: 2", "request=get")
    first, second = (json.loads(buffer)["environment"] for buffer in got.all["buffer"])
    assert (first["HTTP_X_MINE"], first["HTTP_X_OTHER"]) == ("1", "2")
    assert not {"HTTP_X_MINE", "HTTP_X_OTHER"} & set(second)


def test_put_and_delete_change_the_servers_files(ask, http, source):
    target = http.dav / "new.bin"
    chunked = "header=Transfer-Encoding: chunked"
    for settings, size, body in (([f"send={source}", chunked], 5_000_000, source.read_bytes()),
                                 ([f"send={source}", "sendmemory=from memory"], 11, b"from memory"), ([], 0, b"")):
        got = ask("dav/new.bin", "tobuf=1", *settings, "request=put", request="put")
        assert got.all["result"] == ["ok"] * 2 and target.read_bytes() == body
        assert f"Http: put: sent ({size}), total to send ({size})" in got.lines or not size
    got = ask("dav/new.bin", request="delete")
    assert (got.result, got.status, got.lines, target.exists()) == ("ok", "204", [], False)


@pytest.mark.parametrize("path", ["cgi-bin/echo", "digest/cgi-bin/echo"])
def test_post_sends_its_data(echo, source, path):
    """Also again, after a challenge."""
    source.write_text("from file")
    for data, body in (([f"send={source}"], "from file"), (["sendmemory=memory"], "memory"), ([], "")):
        got = echo(*LOGIN, "authent=2", *data, "header=Content-Type: text/xml", path=path, request="post")
        assert (got["method"], got["body"], got["environment"]["CONTENT_TYPE"]) == ("POST", body, "text/xml")


@pytest.mark.parametrize("request_type", ["put", "post"])
def test_missing_file_to_send_is_named(ask, http, request_type):
    """Neither its header lines nor its login stay for the next request."""
    got = ask("", "send=/none", "header=X-Once: 1", "user=me", "authent=1", f"request={request_type}", "user=", "tobuf=1",
              f"url={http.url}/cgi-bin/echo")
    text = "Error: The file to send (http put/post) to the remote server failed to open: /none"
    assert (got.all["result"], got.lines[0]) == ([text + ".", "ok"], text)
    assert "X_ONCE" not in got.buffer and "AUTHORIZATION" not in got.buffer


@pytest.mark.parametrize("kind, accepted", [("basic", {1, 3}), ("digest", {2, 3})])
def test_authentication_methods(ask, kind, accepted):
    for method in range(4):
        got = ask(f"{kind}/hello.txt", *LOGIN, f"authent={method}", "tobuf=1")
        assert (got.status, got.buffer) == (("200", "hello\n") if method in accepted else ("401", "none")), method
    wrong = ask(f"{kind}/hello.txt", f"user={USER}", "password=wrong")
    assert wrong.status == "401" and "wrong" not in wrong.result


def test_encodings(ask, echo):
    for encode, accepted, used in ((0, None, ""), (1, "deflate", "deflate"), (2, "gzip", "gzip"), (3, "gzip", "gzip")):
        offered = echo(f"encode={encode}")["environment"].get("HTTP_ACCEPT_ENCODING")
        assert offered == accepted or (encode == 3 and {"deflate", "gzip"} < set(offered.split(", ")))
        got = ask("deflate/page.xml", f"encode={encode}", "tobuf=1")
        assert (got.encoding, got.buffer) == (used, "<x/>" * 1000)


@pytest.mark.parametrize("host, settings, works", [
    ("localhost", ["cainfo={ca}"], True), ("localhost", [], False), ("localhost", ["verifypeer=0"], True),
    ("other.localhost", ["cainfo={ca}"], False), ("other.localhost", ["cainfo={ca}", "verifyhost=0"], True),
    ("localhost", ["cainfo={ca}", "sslversion=1"], True), ("localhost", ["cainfo={ca}.missing"], False)])
def test_tls_trusts_the_given_bundle_alone(ask, http, tmp_path, host, settings, works):
    settings = [setting.format(ca=http.ca) for setting in settings]
    got = ask(f"url=https://{host}:{http.tls_port}/hello.txt", "verbose=1", *settings)
    if works:
        assert got.result == "ok" and got.header.startswith("HTTP/1.1 200 ")
        assert "CApath: none" in got.told or "verifypeer=0" in settings
    else:
        assert got.status in ("60", "77") and not list(tmp_path.iterdir())


@pytest.mark.parametrize("code", REDIRECTS)
def test_redirects_are_followed(ask, echo, http, source, code):
    source.write_text("sent")
    path = f"to/{code}/echo"
    assert echo(path=path)["environment"]["HTTP_REFERER"] == f"{http.url}/{path}"
    got = echo(f"send={source}", path=path, request="post")
    assert (got["method"], got["body"]) == (("POST", "sent") if code in (307, 308) else ("GET", ""))
    got = echo(f"send={source}", path=path, request="put")
    assert (got["method"], got["body"]) == (("GET", "") if code == 303 else ("PUT", "sent"))
    assert ask(f"to/{code}/tls", f"cainfo={http.ca}", "tobuf=1").buffer == "hello\n"


def test_redirects_have_no_limit(ask):
    assert ask("chain/30").status == "200"


def test_buffer_mode(ask):
    """All of the first piece goes beyond the announced capacity less one. File names serve one request all the same."""
    got = ask("page.xml", "tobuf=1")
    assert (got.buffer, got.length, got.capacity, got.names) == ("<x/>" * 1000, "4000", "8000", "")
    assert ask("big.bin", "tobuf=1").length == str(BIG)


# ---- what the status routine may do ----

CANCELLED = "Cancel request detected...Operation canceled.."


@pytest.mark.parametrize("action, result", [
    ("cancel", CANCELLED), ("interrupt", CANCELLED), ("throw", "ScriptError"), ("fault", "fault of the routine.")])
@pytest.mark.parametrize("line", ["Http: get: received", "Verbose: Header In:", f"received ({BIG})"])
def test_routine_ends_a_transfer(ask, http, tmp_path, action, result, line):
    got = ask("big.bin", "verbose=1", "header=X-Once: 1", f"on={line}:{action}", "request=get", f"getfile={tmp_path}/g",
              "tobuf=1", f"url={http.url}/cgi-bin/echo")
    assert got.all["result"] == [result, "ok"] and not list(tmp_path.iterdir()) and "X_ONCE" not in got.buffer
    assert ("Cancel Request Detected...Operation Cancelled." in got.lines) == (result == CANCELLED)
    assert got.all["status"][0] == "42" or (action in ("throw", "fault") and "Header In" in line)


@pytest.mark.parametrize("action, result", [("cancel", CANCELLED), ("throw", "ScriptError")])
@pytest.mark.parametrize("request_type", ["put", "post"])
def test_routine_ends_an_upload(ask, tmp_path, action, result, request_type):
    (tmp_path / "source").write_bytes(bytes(30_000_000))
    got = ask("dav/cancelled", f"send={tmp_path}/source", f"on=: sent (:{action}", request=request_type)
    assert got.result == result and not list(tmp_path.glob("f*"))
    assert any(line.startswith(f"Http: {request_type}: sending ") for line in got.lines)


@pytest.mark.parametrize("path, action, request_type", [
    ("dav/missing", "Header Out:interrupt", "delete"), ("hello.txt", "left intact:cancel", "get")])
def test_a_delete_and_the_last_line_end_too(ask, tmp_path, path, action, request_type):
    assert ask(path, "verbose=1", f"on={action}", request=request_type).result == CANCELLED and not list(tmp_path.iterdir())


@pytest.mark.parametrize("line", ["Http: get: received", "Verbose: Header Out", f"received ({BIG})"])
def test_handle_in_use_is_left_alone(ask, http, tmp_path, line):
    """Connections are closed when the request has ended."""
    refused = {"nested": "another request is running", "shutdown": "the transfer library can not be shut down while",
               "cleanup": "the object is still needed by its running request", "destroy": "ok", "close": "ok"}
    got = ask("big.bin", "verbose=1", "extvers=1", *(f"on={line}:{action}" for action in refused), *["request=get"] * 2)
    assert got.all["result"] == ["ok"] * 3 and (tmp_path / "f").read_bytes() == (http.root / "big.bin").read_bytes()
    assert all(why in getattr(got, action) for action, why in refused.items())
    assert got.told.count("Connected to") == 2


def test_connections_are_kept_until_they_are_closed(ask):
    assert ask("hello.txt", "tobuf=1", "verbose=1", "request=get").told.count("Connected to") == 1
    assert ask("hello.txt", "tobuf=1", "verbose=1", "request=get", "closeconnections=1").told.count("Connected to") == 2


# ---- what can not be written, reached or asked for ----


@pytest.mark.parametrize("name, limit", [("big.bin", 1_000_000), ("page.xml", 1000)], ids=["write", "close"])
def test_full_disk_is_an_error_and_leaves_no_partial_file(ask, tmp_path, name, limit):
    got = ask(name, "extvers=1", preexec_fn=limited(limit))
    text = f"Failed to write the data into file, ({tmp_path}/f)"
    assert got.result == f"Error: Http Get Request Failed. Error = {text}: File too large, Curl Error Code = 23.."
    assert got.lines.count("Error: " + text) == 1 and got.message == "Error: " + text
    assert got.status == "23" and not list(tmp_path.iterdir())


@pytest.mark.parametrize("settings, code, text", [
    (["url=http://localhost:1/"], 7, "Failed to connect to localhost port 1"),
    (["url=http://no.such.host.invalid/"], 6, "Could not resolve host: no.such.host.invalid"),
    (["url=file:///etc/hostname"], 1, "file"), (["url=ftp://localhost/"], 1, "ftp"), (["url=http://localhost:99999/"], 3, ""),
    (["url=http://localhost/", "sslversion=3"], 43, "(CURLOPT_SSLVERSION)"),
    (["url=http://localhost/", "proxy=localhost", "proxyport=70000"], 43, "(CURLOPT_PROXYPORT)"),
    (["url=http://localhost/", "proxy=localhost", "proxyport=x"], 43, "(CURLOPT_PROXYPORT)")])
def test_impossible_requests_say_why(ask, tmp_path, settings, code, text):
    for request in ("get", "put", "post", "delete"):
        got = ask(*settings, request=request)
        assert got.result.startswith(f"Error: Http {request.title()} Request Failed. Error = ") and text in got.result
        assert got.result.endswith(f", Curl Error Code = {code}" + ("." if request == "delete" else ".."))
        assert (got.result[:-1] in got.lines) == (request != "delete")
        assert got.status == str(code) and not list(tmp_path.iterdir())


def test_connect_timeout(ask):
    with socket.create_server(("127.0.0.1", 0), backlog=0) as full:
        waiting = [socket.socket() for _ in range(4)]
        for one in waiting:
            one.setblocking(False)
            one.connect_ex(full.getsockname())
        got = ask(f"url=http://127.0.0.1:{full.getsockname()[1]}/", "connectto=1")
        for one in waiting:
            one.close()
    assert got.status == "28" and re.search(r"Failed to connect to 127.0.0.1 port \d+ after \d{4,} ms", got.result)


def test_environment_names_no_proxy(ask):
    dead = {name: "http://127.0.0.1:1" for name in ("http_proxy", "HTTPS_PROXY", "ALL_PROXY")}
    assert ask("hello.txt", environment=dead).result == "ok"
