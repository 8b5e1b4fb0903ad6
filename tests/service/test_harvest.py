"""Harvests of a server of many hosts, most of which are not what one wishes for, and what is found in the database."""

import collections
import json
import os
import re
import signal
import sqlite3
import subprocess
import threading
import time

import pytest

from conftest import PATIENCE, SOURCE
from responder import HOLD, RESET, Responder, answer
from servers import BUILD

REFUSAL = "<ServiceExceptionReport><ServiceException code='{}' locator='L'>{}</ServiceException></ServiceExceptionReport>"
DOCUMENTS = SOURCE / "tests/service/documents"
ATLAS, EDGES, RELIEF, ROADS = ((DOCUMENTS / f"{name}.xml").read_text() for name in ("atlas", "edges", "relief", "roads"))
BRIEF = re.search("(?s)<CoverageOfferingBrief>.*</CoverageOfferingBrief>", RELIEF)[0]
MANY = 501  # layers or coverages, more than go into a database at once
# By the path of a service; what is stored of them stands in harvest.json.
ANSWERS = {
    "atlas": ATLAS,
    "coverages": RELIEF.replace(BRIEF, BRIEF + "".join(
        BRIEF.replace("<pos>4 3</pos>", place) for place in ("<pos>190 100</pos>", "", "<pos>x 3</pos>"))),
    "many": RELIEF.replace(BRIEF, BRIEF * MANY),
    "many-layers": "<WMS_Capabilities version='1.3.0'><Capability>" + "<Layer/>" * MANY + "</Capability></WMS_Capabilities>",
    "edges": EDGES.encode("utf-16"),
    "bare": "<WMS_Capabilities version='1.3.0'><Service><OnlineResource href='http://x?Key=sesame'/></Service><Capability><Layer/></Capability></WMS_Capabilities>",
    "moved": answer("", status="302 Moved", more="Location: bare?\r\n"),
    "refused": REFUSAL.format("Nope", "Out of ink \u009b31m: http://x/y?a&amp;token=sesame"),
    "refused-400": answer(REFUSAL.format("", "Not today" + "ö" * 3000), status="400 Bad"),
    "page": "<!DOCTYPE html><html><body>Hello</body></html>",
    "other": "\ufeff<rss version='2.0'/>",
    "kind": "<!-- made -->" + RELIEF,
    "broken": ROADS[:400],
    "missing": answer("no", status="404 No"),
    "busy": answer("later", status="500 Later", more="Retry-After: 1\r\n"),
    "hasty": answer("", status="429 Hasty", more="Retry-After: 0\r\n"),
    "newer": ATLAS.replace("1.3.0", "9.9.9"),
    "slow": HOLD,
}


class Server(Responder):
    """Answers as `answers` says; `queries` has what was asked, `overlaps` the hosts that were asked twice at once."""

    def __init__(self):
        super().__init__(self.play, host="")
        self.answers = dict(ANSWERS)
        self.queries, self.busy, self.overlaps = collections.defaultdict(list), set(), set()

    def play(self, head):
        path, name, host = re.match(r"GET (/([^? ]*)\S*)(?s:.*?)Host: (\S+)", head).groups()
        self.overlaps |= {host} & self.busy
        self.queries[name].append(path)
        said = self.answers.get(name, ROADS)
        if said in (HOLD, RESET):
            return [said]
        self.busy.add(host)
        return [0.001, lambda: self.busy.discard(host), said if said[:4] == b"HTTP" else answer(said)]


@pytest.fixture
def server():
    with Server() as server:
        yield server


@pytest.fixture
def run(tmp_path, monkeypatch):
    """run(words): runs zel-ogc. No harvest leaves temporary files."""
    monkeypatch.setenv("ZEL_USER_DIR", str(tmp_path / "user"))
    monkeypatch.setenv("TMPDIR", str(tmp_path))

    def run(*words, status=0):
        done = subprocess.run([BUILD / "zel-ogc", *map(str, words)], cwd=tmp_path, capture_output=True, text=True,
                              timeout=PATIENCE)
        assert done.returncode == status and "traceback" not in done.stderr, done.stderr
        return done

    yield run
    end = time.monotonic() + PATIENCE
    while list(tmp_path.glob("tmp.*")) and time.monotonic() < end:
        time.sleep(0.1)
    assert not list(tmp_path.glob("tmp.*"))


def write_list(tmp_path, server, names, hosts=5):
    """A list of services, each on one of some hosts; the words after a name are kept."""
    lines = [f"http://127.0.0.{1 + i % hosts}:{server.port}/{name}" for i, name in enumerate(names)]
    (tmp_path / "list").write_text("\n".join(lines))


def contents(path):
    """All tables and views but what differs from run to run; raises when an index and its tables differ."""
    with sqlite3.connect(path) as base:
        base.execute("INSERT INTO words (words) VALUES ('integrity-check')")
        assert base.execute("PRAGMA integrity_check").fetchall() == [("ok",)]
        urls = dict(base.execute("SELECT id, kind || ' ' || url FROM service"))

        def told(value):
            if isinstance(value, int) and value - value % 1_000_000 in urls:
                value = f"{urls[value - value % 1_000_000]} {value % 1_000_000}"
            if not isinstance(value, str):
                return value
            value = re.sub(r"http://127[\d.:]+/|\d+ milliseconds", "", value)
            return re.sub(r"(.)\1{99,}", lambda run: f"{len(run[0])} {run[1]}", value)

        found = {}
        for name, in base.execute("SELECT name FROM sqlite_master WHERE type IN ('table', 'view') AND name NOT LIKE 'words%' "
                                  "AND name NOT LIKE 'box_%' AND name NOT IN ('run', 'layer_above')").fetchall():
            rows = base.execute("SELECT * FROM " + name)
            kept = [i for i, column in enumerate(rows.description)
                    if column[0] not in ("run", "started", "seconds", "harvested", "document_hash")]
            found[name] = sorted(([told(row[i]) for i in kept] for row in rows), key=str)
        return found


def test_answers_of_all_kinds(server, run, tmp_path):
    kinds = {"coverages": "coverages?service=WCS", "many": "many?to=a@b/c wcs", "atlas": "atlas # the good one",
             "refused": "refused?tok%65n=sesame", "bare": "bare?key=sesame", "moved": "moved?key=sesame"}
    write_list(tmp_path, server, ["slow"])
    run("harvest", "list", "a.db", "--timeout", 1, "--retries", 0)
    write_list(tmp_path, server, [kinds.get(name, name) for name in ANSWERS if name != "slow"])
    text = (tmp_path / "list").read_text().replace("//", "//anna:secret@", 1)
    text += "\n" + text.replace("http:", "HTTP:")
    (tmp_path / "list").write_text("\ufeffnonsense\nhttp://h/x wms more\n" + text + "\nhttp://h/x?a wfs\n")
    done = run("harvest", "list", "a.db")
    assert b"secret" not in (tmp_path / "a.db").read_bytes() and b"sesame" not in (tmp_path / "a.db").read_bytes()
    assert not server.overlaps
    found = contents(tmp_path / "a.db")
    stored = {name: [row for row in rows if "many" not in str(row)] for name, rows in found.items()}
    stored["many"] = {name: len(rows) - len(stored[name]) for name, rows in found.items()}
    stored["asked"] = {name: sorted(paths) for name, paths in server.queries.items()}
    stored["said"] = [line for line in re.sub("; .* s$", "", done.stderr).splitlines() if not re.match("  (?!17 of)", line)]
    assert stored == json.loads((DOCUMENTS / "harvest.json").read_text())


def runs(path):
    """The runs with the number of their tries, whatever their ids."""
    with sqlite3.connect(path) as base:
        return base.execute("SELECT run.started, list, finished, count(*) FROM run JOIN attempt ON run.id = run GROUP BY run.id "
                            "ORDER BY 1").fetchall()


def test_what_is_unchanged_costs_a_row(server, run, tmp_path):
    server.answers |= {"b": ROADS.replace("a&amp;1", "b"), "roads": ATLAS}
    write_list(tmp_path, server, ["a", "b?\x01", "bare", "roads", "a wcs"], hosts=1)
    (tmp_path / "less").write_text((tmp_path / "list").read_text().rsplit("\n", 1)[0])
    run("harvest", "list", "a.db")
    run("harvest", "less", "o'ld.db")
    server.answers |= {"a": REFUSAL.format("CurrentUpdateSequence", "no news"), "b": server.answers["b"].replace("Roads", "B"),
                       "roads": ATLAS[:ATLAS.rindex("<Layer>")].replace('"u"', '"v"').replace("<Name>b", "<Name>ways")
                       + "</Layer></Capability></WMS_Capabilities>"}
    done = run("harvest", "list", "a.db")
    assert "0 new, 1 changed, 3 unchanged" in done.stderr and "&UPDATESEQUENCE=a%261" in str(server.queries["a"])
    found = contents(tmp_path / "a.db")
    histories = []
    for merged, newer in (("b.db", "a.db", "o'ld.db"), ["5", "4", "4", "3"]), (("c.db", "o'ld.db", "a.db"), ["4", "4", "5", "1"]):
        assert re.findall(r"\b\d\b", run("merge", *merged).stderr) == newer  # the later reading counts
        both = contents(tmp_path / merged[0])
        histories.append((both.pop("attempt"), both.pop("latest_attempt"), runs(tmp_path / merged[0]), both.pop("system")))
        assert both == {name: rows for name, rows in found.items() if name in both}
    assert histories[0][:3] == histories[1][:3] and len(histories[0][0]) == 14
    assert histories[0][2] == sorted(runs(tmp_path / "a.db") + runs(tmp_path / "o'ld.db"))
    server.answers["a"] = ROADS
    run("harvest", "list", "fresh.db")
    fresh = contents(tmp_path / "fresh.db")
    run("merge", "d.db", "fresh.db", "a.db")
    assert runs(tmp_path / "d.db") == sorted(runs(tmp_path / "a.db") + runs(tmp_path / "fresh.db"))
    for name in both:  # nothing is left of what a service said before
        stored, wanted = ([row for row in one[name] if "WMS roads" in str(row)] for one in (found, fresh))
        assert stored == wanted
    assert "changed" in [row[3] for row in found["latest_attempt"]]
    assert len(found["attempt"]) == 10 and ["WMS roads 2", "WMS roads 0", "layer", "ways"] in [row[:4] for row in found["item"]]
    for name, age, aged, left in (("o'ld.db", "-20 hours", "new", 4), ("a.db", "-2 days", "new", 4),
                                  ("a.db", "-2 days", "unchanged", 1)):
        with sqlite3.connect(tmp_path / name) as base:
            base.execute("INSERT INTO words (words, rank) VALUES ('integrity-check', 1)")
            base.execute("UPDATE attempt SET started = strftime('%Y-%m-%dT%H:%M:%fZ', 'now', ?) WHERE result = ?", [age, aged])
        assert f", {left} not asked again; " in run("harvest", "list", name, "--older", 1).stderr


def test_search(server, run, tmp_path):
    server.answers["coverages"] = RELIEF
    (tmp_path / "list").write_text(f"http://localhost:{server.port}/roads\nhttp://LOCALHOST:{server.port}/coverages wcs")
    done = run("harvest", "list", "file:a.db", "--pause", 0.6, "--wms", "1.1.1")
    assert float(re.search(r"; (\S+) s", done.stderr)[1]) >= 0.6 and "ersion=1.1.1" in server.queries["roads"][0]

    def search(*words, **options):
        return run("search", "file:a.db", *words, **options)

    url = f"http://localhost:{server.port}"
    assert search("höhe").stdout == f"Straßen der Höhe [roads], layer of Roads\n  {url}/roads\n  5 45 10 48\n"
    assert search("hohe straße").stdout.startswith("Straßen")  # the beginning of a word, last of all
    assert search('"der hoh"').stdout.startswith("Straßen")
    for words in ('"', "a AND", "NOT", "-", "title:x", "(", "roads*", "'; DROP", "^x", "x NEAR y", "\udcff"):
        search(words)
    pacific, _ = json.loads(search("--bbox", 179, -19, 181, -18, "--geojson").stdout)["features"]
    assert pacific["geometry"]["type"] == "MultiPolygon" and pacific["properties"]["name"] == "fiji"
    assert "\x9b" not in search("fiji").stdout
    relief, = json.loads(search("k", "--kind", "wcs", "--json").stdout)
    assert relief.pop("score") > 0 and relief == {
        "kind": "coverage", "type": "WCS", "name": "c", "title": "C", "abstract": "D", "keywords": "k, l", "service": "l",
        "url": url + "/coverages", "box": [0, 1, 4, 3]}
    assert "[roads]" in search("--bbox", 365, 40, 370, 60).stdout  # the same place
    with sqlite3.connect(tmp_path / "file:a.db", check_same_thread=False) as base:  # another process needs it for a moment
        base.execute("BEGIN EXCLUSIVE")
        threading.Timer(0.3, base.rollback).start()
        nothing = search("c", "--kind", "wms")
    assert nothing.stdout == "" and nothing.stderr == "zel-ogc: nothing was found\n"
    assert search("--bbox", 5, 45, 10, 48, "--json", "--limit", 2).stderr == "zel-ogc: 2 of 3; --limit shows more\n"


def test_all_ways_lead_to_the_same(server, run, tmp_path):
    """One process, one that is killed again and again, several, one of which is killed, and shards."""
    server.answers |= {"busy": answer("", status="503 Busy", more="Retry-After: 0\r\n"), "slow": ROADS}
    write_list(tmp_path, server, [*(f"s{i}" for i in range(150)), *ANSWERS], hosts=20)
    run("harvest", "list", "one.db")
    expected = contents(tmp_path / "one.db")
    server.answers["slow"] = HOLD  # so that none comes to its end before it is killed
    for seconds in (0.05, 0.1, 0.2, 0.3):
        with subprocess.Popen([BUILD / "zel-ogc", "harvest", "list", "killed.db", "--quiet"], cwd=tmp_path) as killed:
            time.sleep(seconds)
            killed.kill()
    server.answers["slow"] = ROADS
    run("harvest", "list", "killed.db")
    server.overlaps.clear()  # with what the server had still to answer to the dead
    run("harvest", "list", "jobs.db", "--jobs", 3)
    for i in (1, 2, 3):
        run("harvest", "list", f"{i}.db", "--shard", f"{i}/3")
    for _ in range(2):
        run("merge", "merged.db", "1.db", "2.db", "3.db", "--quiet")
    for name in ("killed", "jobs", "merged"):
        assert contents(tmp_path / f"{name}.db") == expected, name
    assert not server.overlaps


def workers(directory):
    listed = subprocess.run(["ps", "-ww", "-eo", "pid,args"], capture_output=True, text=True, check=True).stdout
    return [int(line.split()[0]) for line in listed.splitlines() if "zel.harvest.worker" in line and directory in line]


def test_processes_end(server, run, zel_running, tmp_path):
    """A process that is killed loses the service that it asks; Ctrl-C leaves no process, and the next run goes on."""
    write_list(tmp_path, server, ["a", "b", "slow", "slow", "c", "d"], hosts=2)  # each of two processes comes to a slow one
    for stop, status in (signal.SIGKILL, 0), (signal.SIGTERM, 0), (signal.SIGINT, 130):
        server.queries.clear()
        harvest = zel_running("", "harvest", "list", "a.db", "--jobs", 2, "--timeout", 600, program="zel-ogc")
        while len(server.queries["slow"]) < 2 and harvest.poll() is None:
            time.sleep(0.05)
        if stop == signal.SIGINT:
            assert "written by another harvest" in run("merge", "a.db", "a.db", status=1).stderr
        for pid in [harvest.pid] if stop == signal.SIGINT else workers(str(tmp_path)):
            os.kill(pid, stop)
        _, said = harvest.communicate(timeout=PATIENCE)
        assert harvest.returncode == status and not workers(str(tmp_path)), said
    server.answers["slow"] = ROADS
    assert "6 services: 2 new" in run("harvest", "list", "a.db").stderr
    said = str(contents(tmp_path / "a.db")["attempt"])
    assert re.findall(r"the process that read it was killed \(status (\d+)\)", said) == ["137", "137", "143", "143"]


# Scripts with `base`, a new database, and `given` for a harvest of three services, the first of which is busy; what they
# print.
PARTS = [
    ("""local entry = "{host = 'h', kind = 'WMS', url = 'http://localhost:1/x', known = {id = %d, kind = 'WMS'}, tries = 0},"
        local texts = {settings = "{run = 1, offset = 0, options = {pause = 0, retries = 1}, properties = {}}",
                       ["x.log"] = "asking 1\\nagain 1\\nasking 2\\n", ["x.batch"] = ("{" .. entry .. entry .. "}"):format(1, 2)}
        for name, text in pairs(texts) do io.open(name, "w"):write(text):close() end
        require 'zel.harvest.worker'('.', 'x', 137)""", "x 2 failed last\nx 3 failed last"),
    ("""given.options.status = function(_, figures) figures[3] = 1e9 end
        print(harvest(given).failed, base:value('SELECT max(words) FROM attempt'))""", "3\tthe document is larger than 256 MB"),
    ("""local settings = {file = 'document', options = {pause = 0}, properties = {}, now = os.date, lists = {bytes = 0, numbers = {}}}
        for _, name in ipairs{'reset', 'a', 'circle'} do
          local entry = {kind = 'WMS', url = io.open('list'):read():gsub('busy', name), tries = 1}
          local tried = require 'zel.harvest.read'(entry, {id = 1}, settings)
          print(tried.wait, zel.is_file('document.xml'), (tried.words or ''):match('redirects.*'))
        end""", "2.0\tnil\tnil\nnil\tnil\tnil\nnil\tnil\tredirects again and again"),
    ("""given.options.retries = 1
        local rows, count = require 'zel.harvest.rows', 0
        local of = rows.of
        function rows.of(...) count = count + 1 return of(count ~= 2 and ... or error('interrupted!', 0), select(2, ...)) end
        print(pcall(harvest, given))
        io.open('less', 'w'):write(io.open('list'):read()):close()
        for _, list in ipairs{'less', 'list'} do given.list = list print(harvest(given).skipped) end
        print(base:value('SELECT max(title) FROM service'))""", "false\tinterrupted!\n0\n1\nRoads"),
]


@pytest.mark.parametrize("code, printed", PARTS)
def test_parts(zel, server, tmp_path, code, printed):
    server.answers |= {"reset": RESET, "circle": answer("", status="307 On", more="Location: circle?\r\n")}
    write_list(tmp_path, server, ["busy", "a", "b"])
    said = zel("local harvest, open = require 'zel.harvest'.run, require 'zel.harvest.database'.open "
               "open('a.db', true):__close() local base = open('a.db') "
               "local given = {list = 'list', database = 'a.db', quiet = true, options = {retries = 0}} " + code)
    assert said.out.strip() == printed


@pytest.mark.parametrize("words, says", [
    ("harvest /dev/null a.db", "/dev/null names no service"), ("search nosuch.db x", "no database nosuch.db"),
    ("merge sound.db ./sound.db", "sound.db cannot be merged with itself"), ("harvest list .", ". is a directory"),
    ("harvest list b.db --jobs 256", "the processes that ask the services ended early: no room"),
    ("merge a.db text", "text is no database of a harvest"),
])
def test_faults_of_the_run(run, tmp_path, monkeypatch, words, says):
    (tmp_path / "list").write_text("http://localhost:1/x\n")
    (tmp_path / "text").write_text("text " * 1000)
    (tmp_path / "parallel").write_text("#!/bin/sh\necho GNU parallel\necho no room >&2\nexit 1\n")
    (tmp_path / "parallel").chmod(0o755)
    monkeypatch.setenv("PATH", f"{tmp_path}:{os.environ['PATH']}")
    run("harvest", "list", "sound.db", "--retries", "0")
    assert says in run(*words.split(), status=1).stderr and not (tmp_path / "a.db").exists()
