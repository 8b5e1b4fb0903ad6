"""What goes over the wire, and answers that no real server gives."""

import concurrent.futures
import itertools

import pytest
from responder import HEAD, HOLD, RESET, Body, Responder
from transfer import transfer

OK = b"HTTP/1.1 200 OK\r\n"
PNG = OK + b"Content-Type: image/png\r\n"
HALF = PNG + b"Content-Length: 100\r\n\r\nhalf"
CHUNKED = PNG + b"Transfer-Encoding: chunked\r\n\r\n"


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


class Endless:
    """The steps of a server that never comes to an end, with a pause between them."""

    def __init__(self, *first, then, pause=0.01):
        self.first, self.then, self.pause = first, then, pause

    def __iter__(self):
        return itertools.chain(self.first, itertools.cycle([self.then, self.pause]))


BROKEN = {
    "says nothing": ([HEAD, HOLD], 28),
    "stalls in the header": ([HEAD, PNG + b"X-Half", HOLD], 28),
    "stalls in the body": ([HEAD, HALF, HOLD], 28),
    "trickles its header": (Endless(HEAD, PNG, then=b"X"), 28),
    "trickles its body": (Endless(HEAD, PNG + b"Content-Length: 100000\r\n\r\n", then=b"x"), 28),
    "sends endless headers": (Endless(HEAD, PNG, then=b"X-Line: more of the same\r\n" * 200), 56),
    "sends an endless body": (Endless(HEAD, PNG + b"\r\n", then=b"x" * 10000), 28),
    "sends endless interim answers": (Endless(HEAD, then=b"HTTP/1.1 102 Processing\r\n\r\n"), 28),
    "redirects for ever": ([HEAD, 0.01, answer(b"", b"Location: /on", b"Connection: close", status=b"302 Found")], 28),
    "promises more": ([HEAD, HALF], 18),
    "resets in the body": ([HEAD, HALF, 0.1, RESET], 56),
    "resets a body of unknown length": ([HEAD, PNG + b"\r\nno length", 0.1, RESET], 56),
    "ends between chunks": ([HEAD, CHUNKED + b"9\r\nonly this\r\n"], 18),
    "sends a chunk of no size": ([HEAD, CHUNKED + b"not hex\r\n"], 56),
    "sends no gzip": ([HEAD, OK + b"Content-Encoding: gzip\r\nContent-Length: 9\r\n\r\nonly this"], 61),
    "promises nonsense": ([HEAD, PNG + b"Content-Length: many\r\n\r\nhalf"], 8),
    "promises a negative length": ([HEAD, PNG + b"Content-Length: -5\r\n\r\nhalf"], 8),
    "promises two lengths": ([HEAD, PNG + b"Content-Length: 4\r\nContent-Length: 9\r\n\r\ndone"], 18),
    "goes after the request": ([HEAD], 52),
    "resets after the request": ([HEAD, RESET], 56),
    "is no web server": ([HEAD, b"not HTTP at all"], 1),
    "redirects to a file": ([HEAD, answer(b"", b"Location: file:///etc/hostname", status=b"302 Found")], 1),
    "redirects to FTP": ([HEAD, answer(b"", b"Location: ftp://127.0.0.1/", status=b"302 Found")], 1),
    "announces a huge body": ([HEAD, PNG + b"Content-Length: 2000000000\r\n\r\nonly this", HOLD], 28),
}


def test_servers_that_break_their_word_or_never_end(tmp_path):
    """TIMEOUT ends it; no part of a file or buffer stays, and the next request works."""

    def attempt(how):
        script, code = BROKEN[how]
        with Responder(script) as server, Responder([HEAD, answer()]) as sound:
            broken = [f"url={server.url}", "request=get"]
            return transfer(f"getfile={tmp_path / how}", "extvers=1", "encode=3", f"timeout={1 if code == 28 else 600}",
                            *broken, "tobuf=1", *broken, "timeout=600", f"url={sound.url}", "request=get")

    with concurrent.futures.ThreadPoolExecutor(len(BROKEN)) as pool:
        for (how, (_, code)), got in zip(BROKEN.items(), pool.map(attempt, BROKEN)):
            assert (got.all["status"], got.all["buffer"], got.all["file"]) == (
                [str(code)] * 2 + ["200"], ["none"] * 2 + ["body"], [""] * 3), how
            for said in got.all["result"][:2]:
                assert said.startswith("Error: Http Get Request Failed. Error = ") and said[:-1] in got.lines
                assert said.endswith(f", Curl Error Code = {code}.."), (how, said)
    assert not list(tmp_path.iterdir())


@pytest.mark.parametrize("how, line", [("says nothing", "Http: get: "), ("stalls in the body", "received (4)")])
def test_cancel_while_a_server_stalls(tmp_path, how, line):
    got, _ = fetch(BROKEN[how][0], tmp_path, f"on={line}:cancel")
    assert got.result == "Cancel request detected...Operation canceled.." and not list(tmp_path.iterdir())


@pytest.mark.parametrize("length, body", [(b"4", b"done"), (b"99999999999999999999", b"done and more")])
def test_length_ends_a_body_unless_there_can_be_none_such(tmp_path, length, body):
    fetch([HEAD, PNG + b"Content-Length: " + length + b"\r\n\r\ndone and more"], tmp_path)
    assert (tmp_path / "f").read_bytes() == body


def test_source_or_server_that_goes_away(tmp_path):
    source = tmp_path / "source"
    for script, said in (([HEAD, Body(1000), RESET], "Error: Http Put Request Failed. Error = "),
                         ([HEAD, lambda: source.write_bytes(b"short"), Body(5_000_000), answer()],
                          f"Error = Failed to read the file to send ({source})")):
        source.write_bytes(bytes(5_000_000))
        got, _ = fetch(script, tmp_path, f"send={source}", "header=Expect:", request="put")
        assert said in got.result


# ---- headers ----


@pytest.mark.parametrize("blocks", [b"HTTP/1.1 100 Continue\r\nServer: first\r\n\r\n" * 3,
                                    b"HTTP/1.1 103 Early\r\nServer: first\r\nHTTP/2-Link: x\r\n\r\n"])
def test_only_the_last_header_block_counts(tmp_path, blocks):
    """And trailers are none."""
    trailed = (b"Transfer-Encoding: chunked\r\nTrailer: Server\r\n\r\n4\r\nbody\r\n0\r\nServer: trailer\r\n"
               b"HTTP/2-Trailer: yes\r\nHTTP/1.1 500 Not: a status\r\n\r\n")
    got, _ = fetch([HEAD, blocks + OK + trailed], tmp_path)
    assert (got.result, got.status, got.server, got.lines[-1]) == ("ok", "200", "", "Http: get: received (4)")
    assert got.header.startswith("HTTP/1.1 200 OK") and "trailer" not in got.header
    assert (tmp_path / "f").read_text() == "body"


CLOSE = b"Connection: close"
CHALLENGES = {
    "server": (answer(b"no", b'WWW-Authenticate: Basic realm="r"', CLOSE, status=b"401 No"), ["user=me", "password=pw"]),
    "proxy": (answer(b"", b'Proxy-Authenticate: Basic realm="r"', CLOSE, status=b"407 No"),
              ["proxyuser=me", "proxypassword=pw", "proxy=127.0.0.1"]),
    "redirect": (answer(b"gone", b"Location: /next", CLOSE, status=b"307 Stay"), [])}


@pytest.mark.parametrize("who", CHALLENGES)
@pytest.mark.parametrize("request_type", ["put", "post"])
@pytest.mark.parametrize("data", ["send={file}", "sendmemory=sent again"])
def test_uploads_are_sent_again(tmp_path, who, request_type, data):
    file = tmp_path / "source"
    file.write_text("sent again")
    challenge, settings = CHALLENGES[who]
    with Responder([HEAD, Body(10), challenge], [HEAD, Body(10), answer(b"body", b"Content-Type: image/png")]) as server:
        got = transfer(f"putpostfile={tmp_path / 'f'}", f"proxyport={server.port}", *settings, data.format(file=file),
                       "header=Expect:", f"url={server.url}", f"request={request_type}")
    assert got.result == "ok" and len(server.requests) == 2 and server.requests[1].endswith("\r\n\r\nsent again")
    assert (tmp_path / "f").read_text() == "body"


def test_error_status_keeps_the_page_and_names_the_word(tmp_path):
    got, _ = fetch([HEAD, answer(b"the page", b"X: <html>gone</html>", status=b"500 Broken")], tmp_path)
    assert got.result.endswith("Remote Host(thehost), Http ErrCode(500), Http Err(Broken) Http ErrMsg(gone</html>).")
    assert (tmp_path / "f").read_text() == "the page" and got.page == str(tmp_path / "f")
    for request in ("put", "post", "delete"):
        got, _ = fetch([HEAD, answer(status=b"300 Choices")], tmp_path, request=request)
        failed = f"Error: Http {request.title()} Request Failed."
        assert got.result.startswith(failed + " Error =  http: Redirection Status.")
        assert (f"http: {failed} see file: ({tmp_path / 'f'})" in got.lines) == (request != "delete" and got.page != "")


def test_buffer_of_unknown_size(tmp_path):
    chunks = (b"1000\r\n" + b"x" * 4096 + b"\r\n") * 50 + b"0\r\n\r\n"
    got, _ = fetch([HEAD, CHUNKED + chunks], tmp_path, "tobuf=1")
    assert int(got.length) == 204_800 < int(got.capacity) <= 204_800 + 16384 + 4096


# ---- credentials stay at home ----


@pytest.mark.parametrize("method", [1, 2, 3])
@pytest.mark.parametrize("code", [b"301 Moved", b"302 Found", b"307 Stay"])
def test_redirect_to_another_server_takes_no_credentials(tmp_path, method, code):
    with Responder([HEAD, answer()]) as other:
        location = other.url.replace("http://", "http://them:geheim@").encode()
        moved = answer(b"", b"Location: " + (location if method == 1 else other.url.encode()),
                       b'WWW-Authenticate: Basic realm="r"', status=code)
        got, first = fetch([HEAD, moved], tmp_path, "verbose=1", "user=me", "password=geheim", f"authent={method}",
                           "header=Cookie: id=geheim", "header=X-Key: open", "header=Proxy-Authorization: geheim")
    second, = other.requests
    assert got.result == "ok" and ("Authorization: Basic" in first) == (method == 1)
    assert "Cookie: id=geheim" in first and "X-Key: open" in first
    assert "Cookie" not in second and "\r\nAuthorization" not in second
    assert "X-Key: open" in second and "Referer: http://127.0.0.1" in second
    assert "geheim" not in got.told and "bWU6Z2VoZWlt" not in got.told


# A setting with a line break, and what it is called; the parts of a URL are looked at when it is composed of them.
LINE_BREAKS = [
    (["header=X: y\r\nInjected: 1"], "header line 2"), (["header=\nX: y"], "header line 2"), (["user=me\r\nX: y"], "user name"),
    (["password=pw\n"], "password"), (["proxyuser=me\r"], "proxy user name"), (["proxypassword=\n"], "proxy password"),
    (["proxy=a\r\nb"], "PROXY_HOSTNAME"), (["url=http://127.0.0.1:1/x\r\ny"], "URL"),
    *[(["url=", f"{name}=a\nb"], called) for name, called in (
        ("scheme", "URL_SCHEME"), ("host", "URL_HOSTNAME"), ("path", "URL_PATH"), ("prefix", "URL_QUERY_PREFIX"),
        ("query", "query"), ("suffix", "URL_QUERY_SUFFIX"))]]


@pytest.mark.parametrize("settings, name", LINE_BREAKS)
def test_line_breaks_are_refused_by_name(tmp_path, settings, name):
    got, sent = fetch([HEAD, answer()], tmp_path, "header=A: b", "path=p", "query=q", *settings)
    text = f"Error: The {name} must not contain a line break."
    assert (got.result, got.lines, sent) == (text + ".", [text], "")


def test_no_control_character_reaches_message_or_file_name(tmp_path):
    """Neither from the status line nor from the content type."""
    hostile = answer(b"x", b"Content-Type: text/a\x1b]0;b\xc2\x9bc", status=b"500 \x1b[31m\xc2\x9b2JRed")
    got, _ = fetch([HEAD, hostile], tmp_path, "extvers=0", "verbose=1")
    assert "Http Err(?[31m?2JRed)" in got.result
    told = "".join(got.lines).replace("\r\n", "") + got.result
    assert not any(c < " " or "\x7f" <= c < "\xa0" for c in told), told
    assert [path.name for path in tmp_path.iterdir()] == ["f.a_]0"]


def test_requests_say_no_more_than_needed(tmp_path):
    """No cookies, no credentials without a method, no accepted encodings that were not asked for."""
    script = [HEAD, answer(b"", b"Set-Cookie: a=b; path=/", b"Location: /", status=b"302 Found"), HEAD, answer()]
    got, sent = fetch(script, tmp_path, "user=me", "password=pw", "authent=0")
    assert got.result == "ok" and "GET / HTTP/1.1\r\n" in sent
    assert not any(absent in sent for absent in ("Cookie", "Authorization", "Accept-Encoding", "User-Agent"))
    got, sent = fetch([HEAD, answer()], tmp_path, "url=http://127.0.0.1:1/\x7f")
    assert (got.result, sent) == ("Error: The URL must not contain a control character..", "")
