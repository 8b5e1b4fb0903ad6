"""HTTP requests against a real web server."""

import json
import os
import resource
import signal
import socket

import pytest
from mapserver.lighttpd import PASSWORD, REDIRECTS, USER
from transfer import transfer

BIG = 3_000_000


@pytest.fixture(scope="module", autouse=True)
def content(http):
    (http.root / "big.bin").write_bytes(os.urandom(BIG // 2) + bytes(BIG // 2))
    (http.root / "page.xml").write_text("<x/>" * 1000)
    (http.root / "text").write_text("no extension")


@pytest.fixture
def echo(http, tmp_path):
    """echo(arguments...): a request to the echo program; what it received, and the outcome."""

    def run(*arguments, path="cgi-bin/echo", file="getfile"):
        answer = tmp_path / "echo"
        outcome = transfer("extvers=1", f"{file}={answer}", f"url={http.url}/{path}", *arguments)
        assert outcome.result == "ok"
        return json.loads(answer.read_text()), outcome

    return run


# ---- GET ----


def test_get_names_the_file_after_its_type_and_replaces_it(http, tmp_path):
    for name, old, written in (("page.xml", "answer", "answer.xml"), ("page.xml", "answer.XML", "answer.XML"),
                               ("hello.txt", "answer.", "answer.plain")):
        (tmp_path / written).write_text("old" * 10_000)
        outcome = transfer(f"getfile={tmp_path / old}", f"url={http.url}/{name}", "request=get")
        assert (outcome.result, outcome.status, outcome.response["text"]) == ("ok", 200, "OK")
        assert outcome.response["file"] == str(tmp_path / written)
        assert (tmp_path / written).read_bytes() == (http.root / name).read_bytes()
    outcome = transfer(f"getfile={tmp_path / 'as.is'}", "extvers=1", f"url={http.url}/page.xml", "request=get")
    assert (tmp_path / "as.is").exists() and outcome.response["parsedType"] == "xml"


def test_failed_status_keeps_the_servers_page(http, tmp_path):
    outcome = transfer("host=localhost", f"getfile={tmp_path / 'f'}", f"url={http.url}/missing", "request=get")
    page = tmp_path / "f.html"
    said = "http: Client Error. Remote Host(localhost), Http ErrCode(404), Http Err(Not Found) Http ErrMsg(No HTML found)"
    assert outcome.result == f"Error: Http Get Request Failed. Error =  {said}."
    assert outcome.lines.count(said) == 1
    assert outcome.lines[-1] == f"http: Error: Http Get Request Failed. see file: ({page})"
    assert outcome.response["errorFile"] == str(page) and "404" in page.read_text()
    assert outcome.status == 404


def test_headers_serve_one_request(http):
    outcome = transfer("tobuf=1", f"url={http.url}/cgi-bin/echo", "header=X-Mine: 1", "header=", "header=X-Other: 2",
                       "request=get", "request=get")
    first, second = (json.loads(response["buffer"])["environment"] for response in outcome.responses)
    assert (first["HTTP_X_MINE"], first["HTTP_X_OTHER"]) == ("1", "2")
    assert not {"HTTP_X_MINE", "HTTP_X_OTHER"} & set(second)


# ---- PUT, POST, DELETE ----


def test_put_and_delete_change_the_servers_files(http, tmp_path):
    source, answer, target = tmp_path / "source", tmp_path / "answer", http.dav / "new.bin"
    source.write_bytes(os.urandom(1_500_000))
    url = f"url={http.url}/dav/new.bin"
    outcome = transfer(f"putpostfile={answer}", f"send={source}", url, "request=put")
    assert (outcome.result, outcome.status) == ("ok", 201)
    assert target.read_bytes() == source.read_bytes()
    assert "Http: put: sending file data..." in outcome.lines
    assert "Http: put: sent (1500000), total to send (1500000)" in outcome.lines
    outcome = transfer(f"putpostfile={answer}", f"send={source}", "sendmemory=from memory", url, "request=put")
    assert (outcome.result, target.read_text()) == ("ok", "from memory")
    outcome = transfer(f"putpostfile={answer}", url, "request=put")
    assert (outcome.result, target.read_bytes()) == ("ok", b"")

    outcome = transfer(url, "request=delete")
    assert (outcome.result, outcome.status, outcome.lines) == ("ok", 204, [])
    assert not target.exists()


@pytest.mark.parametrize("to_buffer", [0, 1])
def test_delete_reports_what_the_server_says(http, to_buffer):
    outcome = transfer("host=localhost", f"tobuf={to_buffer}", f"url={http.url}/dav/missing", "request=delete")
    assert outcome.result.startswith("Error: Http Delete Request Failed. Error =  http: Client Error. Remote Host"
                                     "(localhost), Http ErrCode(404), Http Err(Not Found) Http ErrMsg(")
    assert ("No HTML found" if to_buffer == 0 else "<title>404 Not Found</title>") in outcome.result
    assert len(outcome.lines) == 1 and outcome.response["hasBuffer"] == "no"


def test_post_sends_its_data(echo, tmp_path):
    (tmp_path / "source").write_text("from file")
    for source, body in (([f"send={tmp_path / 'source'}"], "from file"), (["sendmemory=memory"], "memory"), ([], "")):
        got, outcome = echo(*source, "header=Content-Type: text/xml", "request=post", file="putpostfile")
        assert (got["method"], got["body"]) == ("POST", body)
        assert got["environment"]["CONTENT_TYPE"] == "text/xml"
        assert outcome.response["putPostFile"].endswith("echo")


@pytest.mark.parametrize("request_type", ["put", "post"])
def test_missing_file_to_send_is_named(http, tmp_path, request_type):
    outcome = transfer(f"putpostfile={tmp_path / 'a'}", f"send={tmp_path / 'none'}", "header=X-Once: 1", f"url={http.url}/",
                       f"request={request_type}", "tobuf=1", f"url={http.url}/cgi-bin/echo", "request=get")
    text = f"Error: The file to send (http put/post) to the remote server failed to open: {tmp_path / 'none'}"
    assert (outcome.results, outcome.lines[0]) == ([text + ".", "ok"], text)
    assert "X_ONCE" not in outcome.response["buffer"]


# ---- authentication ----


@pytest.mark.parametrize("kind, accepted", [("basic", {1, 3}), ("digest", {2, 3})])
def test_authentication_methods(http, tmp_path, kind, accepted):
    for method in range(4):
        outcome = transfer(f"user={USER}", f"password={PASSWORD}", f"authent={method}", f"getfile={tmp_path / 'f'}",
                           f"url={http.url}/{kind}/hello.txt", "request=get")
        assert outcome.status == (200 if method in accepted else 401), method
    assert (tmp_path / "f.plain").read_text() == "hello\n"
    wrong = transfer(f"user={USER}", "password=wrong", f"getfile={tmp_path / 'f'}",
                     f"url={http.url}/{kind}/hello.txt", "request=get")
    assert wrong.status == 401 and "wrong" not in wrong.result


@pytest.mark.parametrize("method", [2, 3])
def test_post_is_sent_again_after_a_challenge(echo, tmp_path, method):
    (tmp_path / "source").write_text("body of a file")
    for source, body in ((f"send={tmp_path / 'source'}", "body of a file"), ("sendmemory=memory", "memory")):
        got, _ = echo(f"user={USER}", f"password={PASSWORD}", f"authent={method}", source, "request=post",
                      path="digest/cgi-bin/echo", file="putpostfile")
        assert (got["body"], got["environment"]["REMOTE_USER"]) == (body, USER)


# ---- encodings, TLS ----


def test_encodings(http, echo, tmp_path):
    for encode, accepted, used in ((0, None, ""), (1, "deflate", "deflate"), (2, "gzip", "gzip"), (3, "gzip", "gzip")):
        got, _ = echo(f"encode={encode}", "request=get")
        offered = got["environment"].get("HTTP_ACCEPT_ENCODING")
        assert offered == accepted or (encode == 3 and {"deflate", "gzip"} < set(offered.split(", ")))
        outcome = transfer(f"encode={encode}", f"getfile={tmp_path / 'f'}", f"url={http.url}/deflate/page.xml",
                           "request=get")
        assert outcome.response["contentEncoding"] == used
        assert (tmp_path / "f.xml").read_text() == "<x/>" * 1000


@pytest.mark.parametrize("host, settings, works", [
    ("localhost", ["cainfo={ca}"], True), ("localhost", [], False), ("localhost", ["verifypeer=0"], True),
    ("other.localhost", ["cainfo={ca}"], False), ("other.localhost", ["cainfo={ca}", "verifyhost=0"], True),
    ("localhost", ["cainfo={ca}", "sslversion=1"], True), ("localhost", ["cainfo={ca}.missing"], False)])
def test_tls_trusts_the_given_bundle_alone(http, tmp_path, host, settings, works):
    settings = [setting.format(ca=http.ca) for setting in settings]
    outcome = transfer(*settings, "verbose=1", f"getfile={tmp_path / 'f'}", f"url=https://{host}:{http.tls_port}/hello.txt",
                       "request=get")
    if works:
        assert outcome.result == "ok" and outcome.response["header"].startswith("HTTP/1.1 200 ")
        assert "CApath: none" in outcome.trace or "verifypeer=0" in settings
    else:
        assert outcome.status in (60, 77) and not list(tmp_path.iterdir())
        assert outcome.result.startswith("Error: Http Get Request Failed. Error = ")


# ---- redirects ----


@pytest.mark.parametrize("code", REDIRECTS)
def test_redirects_are_followed(http, echo, tmp_path, code):
    got, _ = echo("request=get", path=f"to/{code}/echo")
    assert got["environment"]["HTTP_REFERER"] == f"{http.url}/to/{code}/echo"
    (tmp_path / "source").write_text("sent")
    got, _ = echo(f"send={tmp_path / 'source'}", "request=post", path=f"to/{code}/echo", file="putpostfile")
    assert (got["method"], got["body"]) == (("POST", "sent") if code in (307, 308) else ("GET", ""))
    got, _ = echo(f"send={tmp_path / 'source'}", "request=put", path=f"to/{code}/echo", file="putpostfile")
    assert got["method"] == ("GET" if code == 303 else "PUT") and got["body"] == ("" if code == 303 else "sent")
    outcome = transfer(f"cainfo={http.ca}", f"getfile={tmp_path / 'f'}", f"url={http.url}/to/{code}/tls", "request=get")
    assert (outcome.result, (tmp_path / "f.plain").read_text()) == ("ok", "hello\n")


def test_redirects_have_no_limit(http, tmp_path):
    outcome = transfer(f"getfile={tmp_path / 'f'}", f"url={http.url}/chain/30", "request=get")
    assert (outcome.result, outcome.status) == ("ok", 200)


# ---- buffer mode ----


def test_buffer_mode(http, tmp_path):
    outcome = transfer("tobuf=1", f"url={http.url}/page.xml", "request=get")
    assert outcome.response["buffer"] == "<x/>" * 1000
    # all of the first piece goes beyond the announced capacity less one
    assert (outcome.response["bufferLength"], outcome.response["bufferCapacity"]) == ("4000", "8000")
    outcome = transfer("tobuf=1", f"url={http.url}/big.bin", "request=get")
    assert outcome.response["bufferLength"] == str(BIG)
    outcome = transfer("tobuf=1", f"url={http.url}/missing", "request=get")
    assert outcome.response["hasBuffer"] == "no" and outcome.lines.count(
        "http: Client Error. Remote Host(), Http ErrCode(404), Http Err(Not Found) Http ErrMsg(No HTML found)") == 1
    outcome = transfer("tobuf=1", "sendmemory=x", f"url={http.url}/cgi-bin/echo", "request=post")
    assert json.loads(outcome.response["buffer"])["body"] == "x"


def test_file_names_are_released_when_no_file_was_opened(http, tmp_path):
    names = ["getfile", "putpostfile", "ftpgetfile", "ftpfile"]
    outcome = transfer(*(f"{name}={tmp_path / name}" for name in names), "tobuf=1", f"url={http.url}/hello.txt",
                       "request=get")
    assert [outcome.response[field] for field in ("getFile", "putPostFile", "ftpGetFile", "ftpFile")] == [""] * 4


# ---- what the status routine may do ----

CANCELLED = "Cancel request detected...Operation canceled.."


@pytest.mark.parametrize("action, result", [
    ("cancel", CANCELLED), ("interrupt", CANCELLED), ("throw", "ScriptError"),
    ("fault", "fault of the routine.")])
@pytest.mark.parametrize("line", ["Http: get: received", "Verbose: Header In:", f"received ({BIG})"])
def test_routine_ends_a_transfer(http, tmp_path, action, result, line):
    outcome = transfer("verbose=1", "header=X-Once: 1", f"getfile={tmp_path / 'f'}", f"url={http.url}/big.bin",
                       f"on={line}:{action}", "request=get", f"getfile={tmp_path / 'g'}", "tobuf=1",
                       f"url={http.url}/cgi-bin/echo", "request=get")
    assert outcome.results == [result, "ok"]
    assert not list(tmp_path.iterdir())
    assert "X_ONCE" not in outcome.response["buffer"]
    told = "Cancel Request Detected...Operation Cancelled." in outcome.lines
    assert told == (result == CANCELLED)
    assert outcome.responses[0]["status"] == "42" or (action in ("throw", "fault") and "Header In" in line)


@pytest.mark.parametrize("action", ["cancel", "throw"])
@pytest.mark.parametrize("request_type", ["put", "post"])
def test_routine_ends_an_upload(http, tmp_path, action, request_type):
    (tmp_path / "source").write_bytes(bytes(30_000_000))
    outcome = transfer(f"putpostfile={tmp_path / 'f'}", f"send={tmp_path / 'source'}", f"on=: sent (:{action}",
                       f"url={http.url}/dav/cancelled", f"request={request_type}")
    assert outcome.result == (CANCELLED if action == "cancel" else "ScriptError")
    assert not (tmp_path / "f").exists()


def test_interrupt_ends_a_delete_too(http):
    outcome = transfer("verbose=1", "on=Header Out:interrupt", f"url={http.url}/dav/missing", "request=delete")
    assert outcome.result == CANCELLED


@pytest.mark.parametrize("line", ["Http: get: received", "Verbose: Header Out", f"received ({BIG})"])
def test_handle_in_use_is_left_alone(http, tmp_path, line):
    wait = "Wait until it has ended.."
    outcome = transfer("verbose=1", f"getfile={tmp_path / 'f'}", "extvers=1", f"url={http.url}/big.bin",
                       *(f"on={line}:{action}" for action in ("request", "shutdown", "cleanup", "destroy", "close")),
                       "request=get", "request=get")
    assert outcome.results == ["ok", "ok"]
    assert outcome.did == {
        "nested": "Error: another request is running. " + wait,
        "shutdown": "Error: the transfer library can not be shut down while a request is running. " + wait,
        "cleanup": "Error: the object is still needed by its running request. " + wait,
        "destroy": "ok", "close": "ok"}
    assert (tmp_path / "f").read_bytes() == (http.root / "big.bin").read_bytes()
    assert outcome.trace.count("Connected to") == 2, "the connections were closed when the request had ended"


def test_settings_changed_meanwhile_serve_the_next_request(http, tmp_path):
    (tmp_path / "source").write_bytes(os.urandom(5_000_000))
    for line in ("Http: put: sending", "Http: put: sent"):
        outcome = transfer(f"putpostfile={tmp_path / 'f'}", f"send={tmp_path / 'source'}", f"on={line}:settings",
                           f"url={http.url}/dav/changed", "request=put")
        assert outcome.result == "ok"
        assert (http.dav / "changed").read_bytes() == (tmp_path / "source").read_bytes()
    outcome = transfer(f"getfile={tmp_path / 'f'}", f"on=received ({BIG}):settings", f"url={http.url}/big.bin",
                       "request=get")
    assert outcome.result == "ok"


def test_connections_are_kept_until_they_are_closed(http):
    get = ["tobuf=1", "verbose=1", f"url={http.url}/hello.txt", "request=get"]
    assert transfer(*get, *get).trace.count("Connected to") == 1
    assert transfer(*get, "closeconnections=1", *get).trace.count("Connected to") == 2


# ---- what can not be written, reached or asked for ----


def limited(size):
    def limit():
        resource.setrlimit(resource.RLIMIT_FSIZE, (size, size))
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)

    return limit


@pytest.mark.parametrize("name, limit", [("big.bin", 1_000_000), ("page.xml", 1000)], ids=["write", "close"])
def test_full_disk_is_an_error_and_leaves_no_partial_file(http, tmp_path, name, limit):
    file = tmp_path / "f"
    outcome = transfer(f"getfile={file}", "extvers=1", f"url={http.url}/{name}", "request=get", preexec_fn=limited(limit))
    text = f"Failed to write the data into file, ({file})"
    assert outcome.lines.count("Error: " + text) == 1 and outcome.response["message"] == "Error: " + text
    assert outcome.result == f"Error: Http Get Request Failed. Error = {text}: File too large, Curl Error Code = 23.."
    assert outcome.status == 23 and not file.exists()


@pytest.mark.parametrize("settings, code, text", [
    (["url=http://localhost:1/"], 7, "Failed to connect to localhost port 1"),
    (["url=http://no.such.host.invalid/"], 6, "Could not resolve host: no.such.host.invalid"),
    (["url=file:///etc/hostname"], 1, "file"), (["url=ftp://localhost/"], 1, "ftp"),
    (["url=http://localhost:99999/"], 3, ""),
    (["url=http://localhost/", "sslversion=3"], 43, "(CURLOPT_SSLVERSION)"),
    (["url=http://localhost/", "proxy=localhost", "proxyport=70000"], 43, "(CURLOPT_PROXYPORT)"),
    (["url=http://localhost/", "proxy=localhost", "proxyport=x"], 43, "(CURLOPT_PROXYPORT)")])
def test_impossible_requests_say_why(tmp_path, settings, code, text):
    for request, name in (("get", "Get"), ("put", "Put"), ("post", "Post"), ("delete", "Delete")):
        outcome = transfer(f"getfile={tmp_path / 'f'}", f"putpostfile={tmp_path / 'f'}", *settings, f"request={request}")
        assert outcome.result.startswith(f"Error: Http {name} Request Failed. Error = ") and text in outcome.result
        assert outcome.result.endswith(f", Curl Error Code = {code}" + ("." if request == "delete" else ".."))
        assert (outcome.result[:-1] in outcome.lines) == (request != "delete")
        assert outcome.status == code and not list(tmp_path.iterdir())


def test_connect_timeout(tmp_path):
    with socket.create_server(("127.0.0.1", 0), backlog=0) as full:
        address = full.getsockname()
        waiting = [socket.socket() for _ in range(4)]
        for one in waiting:
            one.setblocking(False)
            one.connect_ex(address)
        outcome = transfer("connectto=1", "timeout=60", f"getfile={tmp_path / 'f'}", f"url=http://127.0.0.1:{address[1]}/",
                           "request=get")
        for one in waiting:
            one.close()
    assert outcome.status == 28 and "Failed to connect to 127.0.0.1" in outcome.result


def test_environment_names_no_proxy(http, tmp_path):
    dead = {name: "http://127.0.0.1:1" for name in ("http_proxy", "HTTPS_PROXY", "ALL_PROXY")}
    outcome = transfer(f"getfile={tmp_path / 'f'}", f"url={http.url}/hello.txt", "request=get", environment=dead)
    assert outcome.result == "ok"
