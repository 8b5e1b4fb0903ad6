"""What goes over the wire, and answers that no real server gives."""

import pytest
from responder import HEAD, HOLD, RESET, Body, Responder
from transfer import transfer

OK = b"HTTP/1.1 200 OK\r\n"


def answer(body=b"body", *lines, status=b"200 OK"):
    head = [b"HTTP/1.1 " + status, *lines, b"Content-Length: %d" % len(body)]
    return b"\r\n".join(head) + b"\r\n\r\n" + body


def fetch(script, tmp_path, *settings, request="get"):
    """The outcome of a request to a responder that plays the script, and the request as it came."""
    with Responder(script) as server:
        outcome = transfer(f"getfile={tmp_path / 'f'}", f"putpostfile={tmp_path / 'f'}", "extvers=1", "host=thehost",
                           f"url={server.url}", *settings, f"request={request}")
    return outcome, server.requests[0] if server.requests else ""


# ---- broken transfers ----


@pytest.mark.parametrize("script, code", [
    ([HEAD, OK + b"Content-Length: 100\r\n\r\nonly this"], 18),
    ([HEAD, OK + b"Content-Length: 100\r\n\r\nonly this", 0.1, RESET], 56),
    ([HEAD, OK + b"\r\nno length", 0.1, RESET], 56),
    ([HEAD, OK + b"Transfer-Encoding: chunked\r\n\r\n9\r\nonly this\r\n"], 18),
    ([HEAD, OK + b"Transfer-Encoding: chunked\r\n\r\nnot hex\r\n"], 56),
    ([HEAD, OK + b"Content-Encoding: gzip\r\nContent-Length: 9\r\n\r\nonly this"], 61),
    ([HEAD, OK + b"Content-Length: 100\r\n\r\nonly this", HOLD], 28),
    ([HEAD, HOLD], 28),
    ([HEAD], 52),
    ([HEAD, RESET], 56),
    ([HEAD, b"not HTTP at all"], 1),
    ([HEAD, answer(b"", b"Location: file:///etc/hostname", status=b"302 Found")], 1),
    ([HEAD, answer(b"", b"Location: ftp://127.0.0.1/", status=b"302 Found")], 1),
])
def test_broken_transfers_leave_no_file(tmp_path, script, code):
    for settings in (["encode=3"], ["encode=3", "tobuf=1"]):
        outcome, _ = fetch(script, tmp_path, "timeout=1", *settings)
        assert outcome.status == code
        assert outcome.result.startswith("Error: Http Get Request Failed. Error = ")
        assert outcome.result.endswith(f", Curl Error Code = {code}..") and outcome.lines[-1] == outcome.result[:-1]
        assert outcome.response["hasBuffer"] == "no" and not list(tmp_path.iterdir())


def test_endless_redirects_end_with_the_time(tmp_path):
    outcome, _ = fetch([HEAD, 0.01, answer(b"", b"Location: /again", b"Connection: close", status=b"302 Found")],
                       tmp_path, "timeout=1")
    assert outcome.status == 28


def test_upload_to_a_server_that_goes_away(tmp_path):
    (tmp_path / "source").write_bytes(bytes(5_000_000))
    outcome, _ = fetch([HEAD, Body(1000), RESET], tmp_path, f"send={tmp_path / 'source'}", "header=Expect:", request="put")
    assert outcome.status in (55, 56) and "Error: Http Put Request Failed. Error = " in outcome.result


def test_file_that_shrinks_while_it_is_sent(tmp_path):
    source = tmp_path / "source"
    source.write_bytes(bytes(5_000_000))
    script = [HEAD, lambda: source.write_bytes(b"short"), Body(5_000_000), answer()]
    outcome, _ = fetch(script, tmp_path, f"send={source}", "header=Expect:", request="put")
    assert f"Error = Failed to read the file to send ({source})" in outcome.result


# ---- headers ----


def test_header_blocks(tmp_path):
    """Only the last block counts, and trailers are none."""
    for blocks in (b"HTTP/1.1 100 Continue\r\nServer: first\r\n\r\n" * 3,
                   b"HTTP/1.1 103 Early Hints\r\nLink: <x>\r\nServer: first\r\nHTTP/2-Link: x\r\n\r\n"):
        trailed = (b"Transfer-Encoding: chunked\r\nTrailer: Server\r\n\r\n4\r\nbody\r\n0\r\nServer: trailer\r\n"
                   b"HTTP/2-Trailer: yes\r\nHTTP/1.1 500 Not: a status\r\n\r\n")
        outcome, _ = fetch([HEAD, blocks + OK + trailed], tmp_path)
        assert (outcome.result, outcome.status, outcome.response["server"]) == ("ok", 200, "")
        assert outcome.response["header"].startswith("HTTP/1.1 200 OK") and "trailer" not in outcome.response["header"]
        assert (tmp_path / "f").read_text() == "body"
        assert outcome.lines[-1] == "Http: get: received (4)"


@pytest.mark.parametrize("challenge, settings", [
    (answer(b"<html>no</html>", b"WWW-Authenticate: Basic realm=\"r\"", b"Connection: close", status=b"401 No"),
     ["user=me", "password=pw"]),
    (answer(b"", b"Proxy-Authenticate: Basic realm=\"r\"", b"Connection: close", status=b"407 No"),
     ["proxyuser=me", "proxypassword=pw"]),
    (answer(b"gone", b"Location: /next", b"Connection: close", status=b"307 Stay"), [])],
    ids=["server", "proxy", "redirect"])
@pytest.mark.parametrize("request_type", ["put", "post"])
@pytest.mark.parametrize("source", ["send={file}", "sendmemory=sent again"], ids=["file", "memory"])
def test_uploads_are_sent_again(tmp_path, challenge, settings, request_type, source):
    file = tmp_path / "source"
    file.write_text("sent again")
    with Responder([HEAD, Body(10), challenge], [HEAD, Body(10), answer()]) as server:
        place = ["proxy=127.0.0.1", f"proxyport={server.port}"] if b"407" in challenge else []
        outcome = transfer(f"putpostfile={tmp_path / 'f'}", *place, *settings, source.format(file=file), "header=Expect:",
                           f"url={server.url}", f"request={request_type}")
    assert outcome.result == "ok" and len(server.requests) == 2
    assert server.requests[1].endswith("\r\n\r\nsent again")


def test_server_error_keeps_its_page_and_its_word(tmp_path):
    outcome, _ = fetch([HEAD, answer(b"the page", b"X: <html>gone</html>", status=b"500 Broken")], tmp_path)
    assert outcome.result == ("Error: Http Get Request Failed. Error =  http: Server Error. Remote Host(thehost), "
                              "Http ErrCode(500), Http Err(Broken) Http ErrMsg(gone</html>).")
    assert (tmp_path / "f").read_text() == "the page" and outcome.response["errorFile"] == str(tmp_path / "f")
    for request, name in (("put", "Put"), ("post", "Post"), ("delete", "Delete")):
        outcome, _ = fetch([HEAD, answer(status=b"300 Choices")], tmp_path, request=request)
        assert outcome.result.startswith(f"Error: Http {name} Request Failed. Error =  http: Redirection Status.")
        assert (f"http: Error: Http {name} Request Failed. see file: ({tmp_path / 'f'})" in outcome.lines) == (
            request != "delete" and outcome.response["errorFile"] != "")


def test_buffer_of_unknown_size(tmp_path):
    chunks = b"".join(b"1000\r\n" + b"x" * 4096 + b"\r\n" for _ in range(50)) + b"0\r\n\r\n"
    outcome, _ = fetch([HEAD, OK + b"Transfer-Encoding: chunked\r\n\r\n" + chunks], tmp_path, "tobuf=1")
    length, capacity = int(outcome.response["bufferLength"]), int(outcome.response["bufferCapacity"])
    assert length == 204_800 and length < capacity <= length + 16384 + 4096
    # a lie about the length costs nothing
    outcome, _ = fetch([HEAD, OK + b"Content-Length: 2000000000\r\n\r\nonly this", HOLD], tmp_path, "tobuf=1", "timeout=1")
    assert outcome.status == 28


# ---- credentials stay at home ----


@pytest.mark.parametrize("method", [1, 2, 3])
@pytest.mark.parametrize("code", [b"301 Moved", b"302 Found", b"307 Stay"])
def test_redirect_to_another_server_takes_no_credentials(tmp_path, method, code):
    with Responder([HEAD, answer()]) as other:
        moved = answer(b"", b"Location: " + other.url.encode(), b"WWW-Authenticate: Basic realm=\"r\"", status=code)
        outcome, first = fetch([HEAD, moved], tmp_path, "verbose=1", "user=me", "password=geheim",
                               f"authent={method}", "header=Cookie: id=geheim", "header=X-Key: open",
                               "header=Proxy-Authorization: geheim")
    assert outcome.result == "ok"
    assert ("Authorization: Basic" in first) == (method == 1)
    assert "Cookie: id=geheim" in first and "X-Key: open" in first
    assert "Cookie" not in other.requests[0] and "\r\nAuthorization" not in other.requests[0]
    assert "X-Key: open" in other.requests[0] and "Referer: http://127.0.0.1" in other.requests[0]
    told = "".join(outcome.lines) + outcome.result + outcome.response["message"]
    assert "geheim" not in told and "bWU6Z2VoZWlt" not in told


def test_credentials_of_a_location_do_not_show(tmp_path):
    with Responder([HEAD, answer()]) as other:
        location = other.url.replace("http://", "http://them:geheim@").encode()
        outcome, _ = fetch([HEAD, answer(b"", b"Location: " + location, status=b"302 Found")], tmp_path, "verbose=1")
    assert outcome.result == "ok" and "geheim" not in "".join(outcome.lines)


@pytest.mark.parametrize("setting, name", [
    ("header=X: y\r\nInjected: 1", "header line 2"), ("header=\nX: y", "header line 2"), ("user=me\r\nX: y", "user name"),
    ("password=pw\n", "password"), ("proxyuser=me\r", "proxy user name"), ("proxypassword=\n", "proxy password"),
    ("proxy=a\r\nb", "PROXY_HOSTNAME"), ("url=http://127.0.0.1:1/x\r\ny", "URL"),
    *[(f"url= {name}=a\nb", called) for name, called in (
        ("scheme", "URL_SCHEME"), ("host", "URL_HOSTNAME"), ("path", "URL_PATH"), ("prefix", "URL_QUERY_PREFIX"),
        ("query", "query"), ("suffix", "URL_QUERY_SUFFIX"))]])
def test_line_breaks_are_refused_by_name(tmp_path, setting, name):
    parts = ["path=p", "query=q"] if setting.startswith("url= ") else []
    outcome, got = fetch([HEAD, answer()], tmp_path, "header=A: b", *parts, *setting.split(" ", len(parts) // 2))
    text = f"Error: The {name} must not contain a line break."
    assert (outcome.result, outcome.lines, got) == (text + ".", [text], "")
    outcome = transfer("getfile=/dev/null", "url=http://127.0.0.1:1/\x7f", "request=get")
    assert outcome.result == "Error: The URL must not contain a control character.."
    outcome = transfer("ftpfile=/dev/null", "header=PWD\r\nDELE x", "url=ftp://127.0.0.1:1/", "request=ftpcmd")
    assert outcome.result == "Error: The FTP command 1 must not contain a line break..", outcome.result


def test_no_control_character_reaches_message_or_file_name(tmp_path):
    """Neither from the status line nor from the content type."""
    hostile = answer(b"x", b"Content-Type: text/a\x1b]0;b\xc2\x9bc", status=b"500 \x1b[31m\xc2\x9b2JRed")
    outcome, _ = fetch([HEAD, hostile], tmp_path, "extvers=0", "verbose=1")
    assert "Http Err(?[31m?2JRed)" in outcome.result
    told = "".join(outcome.lines).replace("\r\n", "") + outcome.result
    assert not any(c < " " or "\x7f" <= c < "\xa0" for c in told), told
    assert [path.name for path in tmp_path.iterdir()] == ["f.a_]0"]


def test_requests_say_no_more_than_needed(tmp_path):
    """No cookies, no credentials without a method, no accepted encodings that were not asked for."""
    script = [HEAD, answer(b"", b"Set-Cookie: a=b; path=/", b"Location: /", status=b"302 Found"), HEAD, answer()]
    outcome, got = fetch(script, tmp_path, "user=me", "password=pw", "authent=0")
    assert outcome.result == "ok"
    for absent in ("Cookie", "Authorization", "Accept-Encoding", "User-Agent"):
        assert absent not in got
    assert "GET / HTTP/1.1\r\n" in got
