"""Thousands of services on loopback: good ones of both kinds and all versions, and everything that goes wrong.

    python3 -m bench.fleet DIRECTORY 10000           serves, until it is ended
    python3 -m bench.fleet DIRECTORY 10000 --usual   only services of the usual kind, which answer at once

Writes DIRECTORY/list.txt, the list for a harvest, and DIRECTORY/truth.json, what a harvest must find of each service by
its URL; then DIRECTORY/ready, once all answer. What a service is follows from its number alone: two runs serve the same.
Each has an address in 127.0.0.0/8, which several may share; all have one port.
"""

import argparse
import asyncio
import functools
import json
import pathlib
import socket
import struct
import subprocess
import sys
import time
from urllib.parse import parse_qsl

from bench import make_document

HOLD, RESET = "hold", "reset"  # steps of an answer, beside bytes and seconds to wait


# Documents

@functools.cache
def template(*options):
    return make_document.document(*options).encode()


def title(number):
    return f"Service {number}: \"Größe\" & 'Höhe' der Erde – 地図 [{number % 7}]"


def numbered(number, document):
    """The document as that of one service: titles and names say which."""
    escaped = title(number).replace("&", "&amp;").encode()
    return (document.replace(b"station group", b"group %d of" % number).replace(b"LOCAL:", b"LOCAL:%d." % number)
            .replace(b"Generated service", escaped))


def wms(number, version, layers, *more):
    return numbered(number, template("wms", "--version", version, "--layers", layers, *more))


def wcs(number, briefs):
    section = (b"<Service><name>coverages</name><label>Generated service</label><fees>NONE</fees>"
               b"<accessConstraints>NONE</accessConstraints></Service>\n<ContentMetadata>")
    return numbered(number, template("wcs-briefs", "--briefs", briefs).replace(b"<ContentMetadata>", section))


def refusal(text, code="", version="1.1.1"):
    code = code and f' code="{code}"'
    return (f'<?xml version="1.0"?>\n<ServiceExceptionReport version="{version}">'
            f"<ServiceException{code}>{text}</ServiceException></ServiceExceptionReport>").encode()


# Answers

def answer(body, status="200 OK", kind="text/xml", *headers):
    lines = [f"HTTP/1.1 {status}", f"Content-Type: {kind}", f"Content-Length: {len(body)}", *headers]
    return "\r\n".join(lines).encode() + b"\r\n\r\n" + body


def chunked(body, size=5000):
    chunks = b"".join(b"%x\r\n%s\r\n" % (len(part), part)
                      for part in (body[start:start + size] for start in range(0, len(body), size)))
    return b"HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\nTransfer-Encoding: chunked\r\n\r\n" + chunks + b"0\r\n\r\n"


def html(status, text):
    return answer(f"<!DOCTYPE html><html><body><h1>{text}</h1></body></html>".encode(), status, "text/html")


def redirect(target, status="302 Found"):
    return answer(b"", status, "text/html", f"Location: {target}")


# Services: of each its kind, what a harvest finds, and what a request gets

class Service:
    """What a harvest must find of a service, and what `reply` sends for the query of a request: bytes, or a list of
    steps.

    truth  outcome ("read", "refused", "failed"); of what is read version, title and how many layers (or coverages),
           styles and dimensions there are, of the others a pattern of the words that say why; moody: how often it
           is tried, and what each try says, may differ
    """

    def __init__(self, reply, kind="wms", **truth):
        self.kind, self.truth = kind, truth
        self.reply = reply if callable(reply) else lambda query: reply


def good_wms(number, version="1.3.0", layers=3, styles=1, dimensions=0, depth=1, change=lambda document: document,
             send=answer, when=lambda query: None, **more):
    """A good service; `change` changes the document, `when` may give another answer to a query."""
    # Made before anyone waits for it.
    document = template("wms", "--version", version, "--layers", layers, "--styles", styles, "--dimensions", dimensions,
                        "--depth", depth)

    def reply(query):
        return when(query) or send(change(numbered(number, document)))

    return Service(reply, outcome="read", version=version, title=title(number), layers=layers + 1,
                   styles=layers * styles, dimensions=layers * dimensions, **more)


def good_wcs(number, briefs):
    return Service(lambda _: answer(wcs(number, briefs)), "wcs", outcome="read", version="1.0.0", title=title(number),
                   layers=briefs, styles=0, dimensions=0)


def failed(reply, words, kind="wms", **more):
    return Service(reply, kind, outcome="failed", words=words, **more)


def refused(words, status="200 OK", code=""):
    return Service(answer(refusal(words, code), status), outcome="refused", words=words)


def replaced(*pairs):
    def change(document):
        for old, new in pairs:
            document = document.replace(old.encode(), new.encode())
        return document
    return change


SIZES = (1, 40, 3, 12, 5, 8, 20, 2, 60, 5, 12, 3, 8, 1, 5, 3, 8, 2, 3, 100, 1, 5, 2, 8, 3, 12)


def usual(number):
    """A service of the usual kinds."""
    size, turn = SIZES[number // 6 % len(SIZES)], number % 12
    if turn in (3, 8):
        return good_wcs(number, size)
    version = "1.1.0" if turn == 5 else ("1.3.0", "1.1.1")[number % 2]
    return good_wms(number, version, size, styles=number % 4, dimensions=number % 3 // 2, depth=1 + number % 5)


def knows_only(number, version):
    def when(query):
        asked = query.get("VERSION")
        if asked != version:
            return answer(refusal(f"version {asked} is not served here", "VersionNegotiation"))
    return good_wms(number, version, when=when)


def busy(number):
    """Tells its first client to come again."""
    first = iter([answer(b"", "503 Service Unavailable", "text/plain", "Retry-After: 0")])
    return good_wms(number, when=lambda query: next(first, None), moody=True)


def moved(target):
    def when(query):
        if "MOVED" not in query:
            pairs = "&".join(f"{name}={value}" for name, value in query.items())
            return redirect(f"{target.format(port=query['PORT'])}?moved=1&{pairs}")
    return when


def bomb():
    levels = "".join(f'<!ENTITY {name} "{f"&{below};" * 10}">' for below, name in zip("abcdefghi", "bcdefghij"))
    return answer(f'<?xml version="1.0"?><!DOCTYPE WMS_Capabilities [<!ENTITY a "lol">{levels}]>'
                  '<WMS_Capabilities version="1.3.0"><Service><Title>&j;</Title></Service></WMS_Capabilities>'.encode())


BOXES = (("-150.25", "nonsense"), ("-149.25", "1e999"), ("-148.25", "NaN"), ("-58.25", "-1000"), ("-59.25", ""))
FOREIGN = answer(b'<?xml version="1.0"?><rss version="2.0"><channel><title>News</title></channel></rss>')

# How many of 200 services are of each unusual kind.
RARE = [
    # good all the same
    (3, lambda n: knows_only(n, "1.1.1")),
    (1, lambda n: knows_only(n, "1.1.0")),
    (2, lambda n: good_wms(n, send=chunked)),
    (2, lambda n: good_wms(n, when=moved(f"/{n}/further"))),
    (1, lambda n: good_wms(n, when=moved(f"http://127.255.0.{1 + n % 250}:{{port}}/{n}"))),
    (1, busy),
    (1, lambda n: good_wms(n, send=lambda body: [0.5, answer(body)])),
    (1, lambda n: good_wms(n, send=lambda body: [part for start in range(0, len(body), 1000)
                                                 for part in (answer(body)[start:start + 1000], 0.05)])),
    (1, lambda n: good_wms(n, layers=300, depth=300)),
    (1, lambda n: good_wms(n, change=replaced(*BOXES))),
    (1, lambda n: good_wms(n, change=replaced(("Temperature", "Te\tmp\n\n&#x9b;31m&#x202e; a'b\"); DROP TABLE layer;-- NEAR(")))),
    (1, lambda n: good_wms(n, change=replaced(("temperature_", "same&amp;name_")))),
    (1, lambda n: good_wms(n, change=lambda body: body.decode().replace("UTF-8", "UTF-16").encode("utf-16"))),
    (1, lambda n: good_wms(n, change=replaced(("Monthly", "Monthly " * 100_000)))),
    # refused
    (4, lambda n: refused(f"Service {n} is closed for the night", code="Closed")),
    (3, lambda n: refused(f"User of {n} is not known", "400 Bad Request")),
    (2, lambda n: failed(html("401 Unauthorized", "Login"), "401")),
    (4, lambda n: failed(html("404 Not Found", "Not found"), "404")),
    (2, lambda n: failed(html("500 Internal Server Error", "Oops"), "500")),
    (1, lambda n: failed(answer(b"", "503 Service Unavailable", "text/plain", "Retry-After: 0"), "503")),
    # no capabilities
    (4, lambda n: failed(html("200 OK", "Welcome"), r"did not succeed.*\(200\)")),
    (1, lambda n: failed(FOREIGN, 'document "rss"')),
    (1, lambda n: failed(answer(b""), "failed to get a capabilities doc")),
    (2, lambda n: failed(lambda _: answer(wcs(n, 3)), "not the capabilities of a WMS")),
    (1, lambda n: failed(lambda _: answer(wms(n, "1.1.1", 3)), "not the capabilities of a WCS", "wcs")),
    # broken
    (2, lambda n: failed(lambda _: [answer(wms(n, "1.3.0", 8))[:4000]], "bytes remaining")),
    (1, lambda n: failed(lambda _: [chunked(wms(n, "1.3.0", 8))[:7000]], "outstanding read data")),
    (1, lambda n: failed(lambda _: answer(wms(n, "1.3.0", 8)[:4000]), "Fatal Error: SAX Parser")),
    (1, lambda n: failed([RESET], "reset by peer")),
    (1, lambda n: failed([b""], "Empty reply")),
    (1, lambda n: failed([b"SSH-2.0-OpenSSH_9.2p1 Debian-2\r\n"], "HTTP/0.9")),
    # hostile
    (1, lambda n: failed(bomb(), "refused: .*entity expands to more")),
    (1, lambda n: failed(lambda _: answer(wms(n, "1.1.1", 10_050, "--depth", 10_050)), "deeply nested")),
    (1, lambda n: failed(lambda _: answer(wms(n, "1.3.0", 3).replace(b"Monthly", b"\x07\x1b[2J")), "invalid character 0x7")),
    (1, lambda n: failed(lambda _: answer(wms(n, "1.3.0", 3).replace(b"Monthly", b"&#27;[2J")), "invalid character reference")),
    (1, lambda n: failed(lambda _: answer(wms(n, "1.3.0", 3).replace(b"Monthly", b"\xff\xfe\xc0")), "invalid byte")),
]
CYCLE = [make for count, make in RARE for _ in range(count)]
CYCLE += [usual] * (200 - len(CYCLE))
# Rarer ones: one of so many services, from the second number on.
RARER = [(2000, 148, lambda n: good_wms(n, "1.1.1", 10_000, styles=0)),
         (800, 44, lambda n: good_wms(n, "1.1.1", 2_000, depth=4)),
         (400, 123, lambda n: good_wms(n, "1.3.0", 1_000, dimensions=1)),
         (1000, 51, lambda n: failed([HOLD], "timed out")),
         (1000, 251, lambda n: failed(lambda _: [answer(wms(n, "1.3.0", 8))[:4000], HOLD], "timed out")),
         (2000, 111, lambda n: failed(redirect(f"/{n}/loop"), "redirects again and again|timed out", moody=True))]


def service(number):
    for step, first, make in RARER:
        if number % step == first:
            return make(number)
    return CYCLE[number * 77 % 200](number)


def service_of_the_usual_kind(number):
    """40 layers, 60 kB."""
    reply = answer(numbered(number, template("wms", "--layers", 40, "--styles", 2, "--names", 0, "--repeat", "all")))
    return Service(reply, outcome="read", version="1.1.1", title=title(number), layers=41, styles=80, dimensions=0)


# The server

class Connection(asyncio.Protocol):
    def __init__(self, services):
        self.services, self.received, self.playing = services, b"", None

    def connection_made(self, transport):
        self.transport = transport

    def data_received(self, data):
        self.received += data
        if self.received.endswith(b"\r\n\r\n"):
            path, _, query = self.received.split(b" ", 2)[1].decode("latin-1").partition("?")
            self.received = b""
            number = int(path.split("/")[1])
            pairs = {name.upper(): value for name, value in parse_qsl(query)}
            reply = self.services[number].reply(pairs | {"PORT": self.transport.get_extra_info("sockname")[1]})
            if isinstance(reply, bytes):
                self.transport.write(reply)
            else:
                self.playing = asyncio.ensure_future(self.play(reply))

    async def play(self, steps):
        for step in steps:
            if isinstance(step, bytes):
                self.transport.write(step)
            elif step == HOLD:
                return
            elif step == RESET:
                wire = self.transport.get_extra_info("socket")
                wire.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
                self.transport.abort()
            else:
                await asyncio.sleep(step)
        self.transport.close()

    def connection_lost(self, _):
        if self.playing:
            self.playing.cancel()


def address(number):
    """Of a service's host: one host has a twentieth of the services, four share each of the others."""
    host = 0 if number % 20 == 7 else 1 + number // 4
    return f"127.{1 + host // 62_500}.{host // 250 % 250}.{1 + host % 250}"


async def serve(directory, services):
    loop = asyncio.get_running_loop()
    listener = socket.create_server(("0.0.0.0", 0), backlog=1000)
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_BINDTODEVICE, b"lo")  # all of 127.0.0.0/8, and no other machine
    port = listener.getsockname()[1]
    server = await loop.create_server(lambda: Connection(services), sock=listener)
    urls = [f"http://{address(number)}:{port}/{number}/ows" for number in range(len(services))]
    lines = (f"{url} {one.kind}" if one.kind == "wcs" else url for url, one in zip(urls, services))
    (directory / "list.txt").write_text("# Services of all kinds\n\n" + "".join(f"{line}\n" for line in lines))
    (directory / "truth.json").write_text(json.dumps({url: {"kind": one.kind} | one.truth
                                                      for url, one in zip(urls, services)}, indent=1))
    (directory / "ready").touch()
    await server.serve_forever()


class Fleet:
    """The services of `python3 -m bench.fleet DIRECTORY ...`, until the end of a `with`: `list` is the list's path."""

    def __init__(self, directory, *arguments):
        self.list = directory / "list.txt"
        directory.mkdir()
        command = ["setpriv", "--pdeathsig", "KILL", sys.executable, "-B", "-m", "bench.fleet", directory,
                   *map(str, arguments)]
        self._process = subprocess.Popen(command, cwd=pathlib.Path(__file__).resolve().parents[1])
        while not (directory / "ready").exists():
            if self._process.poll() is not None:
                raise RuntimeError("the services did not start")
            time.sleep(0.02)

    @property
    def urls(self):
        return [line.split()[0] for line in self.list.read_text().splitlines() if line.startswith("http")]

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._process.kill()
        self._process.wait()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("directory", type=pathlib.Path)
    parser.add_argument("number", type=int)
    parser.add_argument("--usual", action="store_true")
    options = parser.parse_args()
    make = service_of_the_usual_kind if options.usual else service
    asyncio.run(serve(options.directory, [make(number) for number in range(options.number)]))


if __name__ == "__main__":
    main()
