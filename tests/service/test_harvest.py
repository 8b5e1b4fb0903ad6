"""Harvests of a server of many hosts, most of which are not what one wishes for, and what is found in the database."""

import collections
import contextlib
import http.server
import json
import os
import re
import signal
import sqlite3
import subprocess
import threading
import time

import pytest

from servers import BUILD

LAYER = "<Layer><Name>{0}</Name><Title>{1}</Title><Abstract>About {0}.</Abstract>{2}</Layer>"
BOX = ("<EX_GeographicBoundingBox><westBoundLongitude>{}</westBoundLongitude><southBoundLatitude>{}</southBoundLatitude>"
       "<eastBoundLongitude>{}</eastBoundLongitude><northBoundLatitude>{}</northBoundLatitude></EX_GeographicBoundingBox>")
REFUSAL = "<ServiceExceptionReport><ServiceException code='{}'>{}</ServiceException></ServiceExceptionReport>"
MANY = 501  # coverages, more than go into a database at once
WCS = ("<WCS_Capabilities version='1.0.0'><Service><name>c</name><label>Coverages</label></Service><ContentMetadata>"
       + "<CoverageOfferingBrief><name>relief</name><label>Relief</label><lonLatEnvelope><pos>5 45</pos><pos>10 48</pos>"
       "</lonLatEnvelope></CoverageOfferingBrief>" * MANY + "</ContentMetadata></WCS_Capabilities>")


def wms(inside, title="Atlas", version="1.3.0", attributes="", service=True):
    section = f"<Service><Title>{title}</Title><KeywordList><Keyword>maps</Keyword></KeywordList></Service>" * service
    return (f"<?xml version='1.0'?><!-- made --><WMS_Capabilities version='{version}' {attributes}>{section}<Capability>"
            f"<Layer queryable='1' opaque='0'><Title>All</Title><CRS>EPSG:4326</CRS><CRS>CRS:84</CRS>{BOX.format(5, 45, 10, 48)}"
            f"<Style><Name>plain</Name></Style>{inside}</Layer></Capability></WMS_Capabilities>")


ATLAS = wms(LAYER.format("roads", "Straßen der Höhe", "<CRS>EPSG:2056</CRS><Style><Name>bold</Name></Style>")
            + LAYER.format("fiji", "It's &#x9b;31m", BOX.format(177, -20, -178, -15)))
# By the path of a service: its answer, a text or (status, text, headers), the result, and what its words contain.
ANSWERS = {
    "atlas": (ATLAS, "new", None),
    "coverages": (WCS, "new", None),
    "bare": (wms("", service=False).replace("WMS_", "w:WMS_").replace(" version='1.3", " xmlns:w='w' version='1.3"), "new", None),
    "boxes": (wms("".join(LAYER.format(f"b{i}", "B", BOX.format(*box)) for i, box in enumerate(
        [("NaN", 1, 2, 3), (1, 50, 2, 40), (0, -90, 360, 90), (1e400, 0, 1, 1), (190, 0, 200, 1), (3, 3, 3, 3)]))),
              "new", None),
    "moved": ((302, "", {"Location": "atlas?"}), "new", None),
    "refused": (REFUSAL.format("Nope", "Out of ink \u009b31m"), "refused", "Out of ink  31m (Nope)"),
    "refused-400": ((400, REFUSAL.format("", "Not today" + "." * 3000), {}), "refused", "Not today"),
    "page": ("<!DOCTYPE html><html><body>Hello</body></html>", "failed", ""),
    "other": ("\ufeff<rss version='2.0'/>", "failed", 'a document "rss", not the capabilities of a WMS'),
    "kind": (WCS, "failed", 'a document "WCS_Capabilities"'),
    "broken": (ATLAS[:400], "failed", "SAX Parser"),
    "missing": ((404, "no", {}), "failed", "404"),
    "busy": ((500, "later", {"Retry-After": "1"}), "failed", "500"),
    "slow": (3, "failed", "time"),
}
TWICE = {"busy", "slow"}


class Server(http.server.ThreadingHTTPServer):
    """Answers as `answers` says; `queries` has what was asked, `overlaps` the hosts that were asked twice at once."""

    request_queue_size, daemon_threads = 100, True
    handle_error = lambda *_: None  # clients that went away

    def __init__(self):
        super().__init__(("", 0), Handler)
        self.answers = {name: answer for name, (answer, *_) in ANSWERS.items()}
        self.queries, self.busy, self.overlaps = collections.defaultdict(list), set(), set()


class Handler(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        host, name = self.headers["Host"], self.path.strip("/").split("?")[0]
        if host in self.server.busy:
            self.server.overlaps.add(host)
        self.server.queries[name].append(self.path)
        answer = self.server.answers.get(name, ATLAS)
        if not isinstance(answer, int):
            self.server.busy.add(host)
        else:
            time.sleep(answer)
            answer = ""
        status, text, headers = answer if isinstance(answer, tuple) else (200, answer, {})
        self.send_response(status)
        for header, value in ({"Content-Type": "text/xml", "Content-Length": len(text.encode())} | headers).items():
            self.send_header(header, str(value))
        self.server.busy.discard(host)
        self.end_headers()
        self.wfile.write(text.encode())

    def log_message(self, *_):
        pass


@pytest.fixture
def server():
    with Server() as server:
        threading.Thread(target=server.serve_forever, daemon=True).start()
        yield server
        server.shutdown()


@pytest.fixture
def run(tmp_path, monkeypatch):
    """run(words): runs zel-ogc. No harvest leaves temporary files."""
    monkeypatch.setenv("ZEL_USER_DIR", str(tmp_path / "user"))
    monkeypatch.setenv("TMPDIR", str(tmp_path))

    def run(*words, status=0):
        done = subprocess.run([BUILD / "zel-ogc", *map(str, words)], cwd=tmp_path, capture_output=True, text=True,
                              timeout=120)
        assert done.returncode == status and "traceback" not in done.stderr, done.stderr
        return done

    yield run
    end = time.monotonic() + 20
    while list(tmp_path.glob("tmp.*")) and time.monotonic() < end:
        time.sleep(0.1)
    assert not list(tmp_path.glob("tmp.*"))


def write_list(tmp_path, server, names, hosts=5):
    """A list of services, each on one of some hosts; the words after a name are kept."""
    lines = [f"http://127.0.0.{1 + i % hosts}:{server.server_port}/{name}" for i, name in enumerate(names)]
    (tmp_path / "list").write_text("\n".join(lines))


QUERIES = {
    "services": "SELECT url, kind, version, title, west, south, east, north FROM service",
    "attempts": "SELECT url, result, again, attempt.bytes, CASE WHEN words LIKE '%timed out%' THEN 'time' ELSE words END "
                "FROM attempt JOIN service ON id = service",
    "layers": "SELECT url, layer.id % 1000000, parent % 1000000, level, layer.name, layer.title, layer.west, layer.east, "
              "queryable, opaque, (SELECT group_concat(y.name) FROM layer_system AS y WHERE y.layer = layer.id) FROM layer "
              "JOIN service ON service.id = service",
    "found": "SELECT url, item.kind, item.name FROM words JOIN item ON item.id = words.rowid JOIN service "
             "ON service.id = service WHERE words MATCH 'strassen OR straßen OR relief OR maps'",
    "boxes": "SELECT url, box.id % 1000000, box.west, box.east, box.south FROM box JOIN service "
             "ON service.id = box.id - box.id % 1000000",
}


def contents(path):
    """All that is the same whoever harvested; raises when an index and its tables differ."""
    with sqlite3.connect(path) as base:
        base.execute("INSERT INTO words (words) VALUES ('integrity-check')")
        assert base.execute("PRAGMA integrity_check").fetchall() == [("ok",)]
        return {name: sorted(base.execute(query), key=str) for name, query in QUERIES.items()}


def test_answers_of_all_kinds(server, run, tmp_path):
    kinds = {"coverages": "coverages?service=WCS", "atlas": "atlas # the good one"}
    write_list(tmp_path, server, [kinds.get(name, name) for name in ANSWERS])
    text = (tmp_path / "list").read_text().replace("/refused\n", "/refused?token=sesame\n").replace("//", "//anna:secret@", 1)
    (tmp_path / "list").write_text("\ufeffnonsense\nhttp://h/x wms more\n" + text + "\n" + text + "\nhttp://h/x wfs\n")
    done = run("harvest", "list", "a.db", "--timeout", 1)
    assert 'list, line 1: "nonsense" is no URL' in done.stderr and '"wfs" is no kind of service' in done.stderr
    assert 'line 2: "more" follows the kind' in done.stderr
    assert "14 services: 5 new, 0 changed, 0 unchanged, 2 refused, 7 failed" in done.stderr
    assert b"secret" not in (tmp_path / "a.db").read_bytes() and b"sesame" not in (tmp_path / "a.db").read_bytes()
    assert "token=sesame" in server.queries["refused"][0] and not server.overlaps
    found = contents(tmp_path / "a.db")
    assert all(len(row[4] or "") <= 2000 and "tmp" not in (row[4] or "") for row in found["attempts"])
    assert len(server.queries["refused"]) == 3 and sum(row[2] == "relief" for row in found["found"]) == MANY
    tries = collections.defaultdict(list)
    for url, *tried in found["attempts"]:
        tries[url.split("/")[3].split("?")[0]].append(tried)
    for name, (_, result, words) in ANSWERS.items():
        assert len(tries[name]) == (2 if name in TWICE else 1), name
        assert tries[name][0][0] == result and (words or "") in (tries[name][0][3] or ""), tries[name]
    layers = {row[4]: row for row in found["layers"] if "atlas" in row[0]}
    assert layers["roads"][2:4] == (1, 2) and layers["roads"][6:10] == (5, 10, 1, 0)
    assert set(layers["roads"][10].split(",")) == {"EPSG:4326", "CRS:84", "EPSG:2056"}
    edges = {row[4]: row[6:8] for row in found["layers"] if "boxes" in row[0]}
    assert edges == {None: (5, 10), "b0": (5, 10), "b1": (1, 2), "b2": (-180, 180), "b3": (5, 10), "b4": (-170, -160),
                     "b5": (3, 3)}


def test_what_is_unchanged_costs_a_row(server, run, tmp_path):
    server.answers |= {"a": wms("", "One", attributes="updateSequence='a&amp;1'"), "b": wms("", "Two")}
    write_list(tmp_path, server, ["a", "b", "atlas"])
    run("harvest", "list", "a.db")
    run("harvest", "list", "old.db")
    server.answers |= {"a": REFUSAL.format("CurrentUpdateSequence", "no news"), "atlas": wms("", "Other maps")}
    done = run("harvest", "list", "a.db")
    assert "0 new, 1 changed, 2 unchanged" in done.stderr and "&UPDATESEQUENCE=a%261" in server.queries["a"][2]
    found = contents(tmp_path / "a.db")
    for merged, newer in (("b.db", "a.db", "old.db"), ["3", "2"]), (("c.db", "old.db", "a.db"), ["3", "1"]):
        assert re.findall(r": (\d) of 3 ", run("merge", *merged).stderr) == newer  # the later reading counts
        assert contents(tmp_path / merged[0])["layers"] == found["layers"]
    assert len(found["attempts"]) == 6 and not [row for row in found["found"] if row[2] == "roads"]
    assert "3 not asked again" in run("harvest", "list", "a.db", "--older", 1).stderr


def test_search(server, run, tmp_path):
    write_list(tmp_path, server, ["atlas", "coverages wcs"], hosts=1)
    run("harvest", "list", "a.db", "--pause", 0.4, "--wms", "1.1.1")
    with sqlite3.connect(tmp_path / "a.db") as base:
        (pause,), = base.execute("SELECT 86400 * (julianday((SELECT max(started) FROM attempt)) - julianday(min(started))) - seconds "
                                 "FROM attempt")
    assert pause > 0.39 and "ersion=1.1.1" in server.queries["atlas"][0]
    assert run("search", "a.db", "höhe").stdout.startswith("Straßen der Höhe [roads], layer of Atlas\n  http://127.0.0.1:")
    assert run("search", "a.db", "hohe straße").stdout.startswith("Straßen")  # the beginning of a word, last of all
    for words in ('"', "a AND", "NOT", "-", "title:x", "(", "roads*", "'; DROP", "^x", "x NEAR y", "\udcff"):
        run("search", "a.db", words)
    pacific, _ = json.loads(run("search", "a.db", "--bbox", 179, -19, 181, -18, "--geojson").stdout)["features"]
    assert pacific["geometry"]["type"] == "MultiPolygon" and pacific["properties"]["name"] == "fiji"
    assert "\x9b" not in run("search", "a.db", "fiji").stdout
    relief = json.loads(run("search", "a.db", "relief", "--kind", "wcs", "--json").stdout)
    assert {item["name"] for item in relief} == {"relief"} and relief[0]["score"] > 0 and relief[0]["box"] == [5, 45, 10, 48]
    assert run("search", "a.db", "--bbox", 365, 45, 370, 48).stdout  # the same place
    nothing = run("search", "a.db", "relief", "--kind", "wms")
    assert nothing.stdout == "" and nothing.stderr == "zel-ogc: nothing was found\n"
    assert "south is beyond its north" in run("search", "a.db", "--bbox", 0, 9, 1, 8, status=1).stderr
    assert len(json.loads(run("search", "a.db", "--bbox", 5, 45, 10, 48, "--json", "--limit", 2).stdout)) == 2


def test_all_ways_lead_to_the_same(server, run, tmp_path):
    """One process, one that is killed again and again, several, one of which is killed, and shards."""
    server.answers |= {"busy": (503, "", {"Retry-After": "0"}), "slow": ATLAS}
    write_list(tmp_path, server, [*(f"s{i}" for i in range(150)), *ANSWERS], hosts=20)
    run("harvest", "list", "one.db")
    expected = contents(tmp_path / "one.db")
    server.answers["slow"] = 60  # so that none comes to its end before it is killed
    for seconds in (0.05, 0.1, 0.2, 0.3):
        with subprocess.Popen([BUILD / "zel-ogc", "harvest", "list", "killed.db", "--quiet"], cwd=tmp_path) as killed:
            time.sleep(seconds)
            killed.kill()
    server.answers["slow"] = ATLAS
    run("harvest", "list", "killed.db")
    run("harvest", "list", "jobs.db", "--jobs", 3)
    for i in (1, 2, 3):
        run("harvest", "list", f"{i}.db", "--shard", f"{i}/3")
    for _ in range(2):
        run("merge", "merged.db", "1.db", "2.db", "3.db", "--quiet")
    for name in ("killed", "jobs", "merged"):
        assert contents(tmp_path / f"{name}.db") == expected, name
    assert not server.overlaps


def workers(directory):
    listed = subprocess.run(["ps", "-eo", "pid,args"], capture_output=True, text=True, check=True).stdout
    return [int(line.split()[0]) for line in listed.splitlines() if "zel.harvest.worker" in line and directory in line]


def test_processes_end(server, run, tmp_path):
    """A process that is killed loses one service; Ctrl-C leaves no process, and the next run goes on."""
    write_list(tmp_path, server, ["slow", *(f"s{i}" for i in range(60))], hosts=30)
    command = [BUILD / "zel-ogc", "harvest", "list", "a.db", "--jobs", "2", "--timeout", "10"]
    server.answers["slow"] = 30
    for stop in (signal.SIGKILL, signal.SIGTERM, signal.SIGINT):
        with subprocess.Popen(command, cwd=tmp_path, stderr=subprocess.PIPE, text=True) as process:
            while len(server.queries) < 50 and process.poll() is None:  # beside the one that does not answer
                time.sleep(0.05)
            if stop != signal.SIGINT:
                for pid in workers(str(tmp_path)):
                    with contextlib.suppress(ProcessLookupError):
                        os.kill(pid, stop)
            else:
                process.send_signal(stop)
            assert process.wait(5) == (130 if stop == signal.SIGINT else 0), process.stderr.read()
        assert not workers(str(tmp_path))
        server.queries.clear()
    said = {(result, words) for _, result, _, _, words in contents(tmp_path / "a.db")["attempts"]}
    assert {("failed", f"the process that read it was killed (status {status})") for status in (137, 143)} <= said


@pytest.mark.parametrize("words, says", [
    ("harvest nosuch a.db", "the list nosuch cannot be read"), ("harvest empty a.db", "the list empty names no service"),
    ("harvest list text", "text: file is not a database"), ("harvest list .", ". is a directory"),
    ("harvest list foreign.db", "foreign.db is no database of a harvest"), ("search nosuch.db x", "no database nosuch.db"),
    ("harvest list a.db --jobs 300", "jobs must be 256 or less"),
    ("harvest list no/a.db", "there is no directory no/"), ("merge a.db text", "text: file is not a database"),
])
def test_faults_of_the_run(run, tmp_path, words, says):
    (tmp_path / "list").write_text("http://localhost:1/x\n")
    (tmp_path / "empty").write_text("# nothing\n")
    (tmp_path / "text").write_text("text " * 1000)
    with sqlite3.connect(tmp_path / "foreign.db") as base:
        base.execute("CREATE TABLE t (a)")
    assert says in run(*words.split(), status=1).stderr
