"""Runs the system beside its peers and prints their ratios; scripts/bench.sh calls it.

Every figure is that of a whole process. The programs of a row run in turn, several rounds, and the medians count.
"""

import argparse
import dataclasses
import os
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile
import time

from bench.fleet import Fleet
from mapserver.lighttpd import Lighttpd

HERE = pathlib.Path(__file__).resolve().parent

MIB = 1 << 20
OWSLIB = ("import sys; from owslib.wms import WebMapService; "
          "WebMapService('http://localhost/', version='1.1.1', xml=open(sys.argv[1], 'rb').read())")


@dataclasses.dataclass
class Cost:
    """Of one process: seconds on the clock, seconds of computing, bytes resident at most."""

    wall: float
    cpu: float
    memory: int


@dataclasses.dataclass
class Program:
    """A command and what it must print; anything else ends the benchmark. The file it makes is removed before."""

    command: list
    prints: str = ""
    makes: pathlib.Path = None


@dataclasses.dataclass
class Row:
    work: str
    ours: str
    peer: str
    ratio: float
    target: float = None

    def cells(self):
        verdict = "" if self.target is None else "reached" if self.ratio <= self.target else "MISSED"
        target = "" if self.target is None else f"{self.target:g}"
        return self.work, self.ours, self.peer, f"{self.ratio:.2f}", target, verdict


def milliseconds(seconds):
    return f"{seconds * 1000:,.0f} ms"


def mebibytes(size):
    return f"{size / MIB:,.1f} MiB"


class Bench:
    def __init__(self, build, directory, rounds):
        self.build, self.directory, self.rounds = build, directory, rounds
        self.environment = os.environ | {"ZEL_USER_DIR": str(directory)}
        self.documents = {}

    def document(self, *options):
        """A generated document; one of the same options is made once."""
        if options not in self.documents:
            path = self.directory / f"document_{len(self.documents)}.xml"
            with open(path, "wb") as out:
                subprocess.run([HERE / "make_document.py", *map(str, options)], stdout=out, check=True)
            self.documents[options] = path
        return self.documents[options]

    def run(self, program):
        # A process starts with the peak of its parent: time is a small one.
        peak, out = self.directory / "peak", self.directory / "out"
        if program.makes:
            program.makes.unlink(missing_ok=True)
        with open(out, "wb") as output:
            begin = time.monotonic()
            child = subprocess.Popen(["time", "-q", "-f", "%M", "-o", peak, *program.command], stdout=output,
                                     env=self.environment)
            _, status, usage = os.wait4(child.pid, 0)
            wall = time.monotonic() - begin
        child.returncode = os.waitstatus_to_exitcode(status)
        printed = out.read_text().strip()
        if child.returncode != 0 or printed != program.prints:
            sys.exit(f"{' '.join(map(str, program.command))}\nprinted {printed!r}, not {program.prints!r}, "
                     f"and ended with {child.returncode}")
        return Cost(wall, usage.ru_utime + usage.ru_stime, int(peak.read_text()) * 1024)

    def compare(self, programs, figures, rounds=None):
        """Runs the programs in turn. `figures` makes ours and the peer's of their costs; medians of both and of their
        ratio in each round, in which load from elsewhere weighs alike on both.
        """
        pairs = [figures(*map(self.run, programs)) for _ in range(rounds or self.rounds)]
        ours, peer, ratio = zip(*((ours, peer, ours / peer) for ours, peer in pairs))
        return statistics.median(ours), statistics.median(peer), statistics.median(ratio)

    # The programs

    def zel(self, kind, document, records, times=1, number=None):
        script = [self.build / "zel", HERE / "read_document.lua", kind, document, str(times)]
        records = (records + 0x8000) % 0x10000 - 0x8000  # a count is the host's 16-bit integer
        return Program(script + ([str(number)] if number else []), str(number or records))

    def bare_scan(self, document, times=1):
        return Program([self.build / "bare_scan", document, str(times)])

    def owslib(self, document):
        return Program(["/usr/bin/python3", "-c", OWSLIB, document])

    # The comparisons

    def tiny(self, kind):
        """A document with one record."""
        return self.document(*{"wms": ("wms", "--layers", 0), "briefs": ("wcs-briefs", "--briefs", 1),
                               "offerings": ("wcs-offerings", "--offerings", 1)}[kind])

    def beside_scan(self, program, tiny_program, tiny, document, times=1, rounds=None):
        """Reading a document `times` times, above reading a tiny one, beside the bare scan: seconds each time."""
        return self.compare(
            (program, tiny_program, self.bare_scan(document, times), self.bare_scan(tiny)),
            lambda ours, start, bare, bare_start: ((ours.cpu - start.cpu) / times, (bare.cpu - bare_start.cpu) / times),
            rounds)

    def parse_row(self, work, target, kind, records, options, times=1):
        tiny, document = self.tiny(kind), self.document(*options)
        ours, bare, ratio = self.beside_scan(self.zel(kind, document, records, times), self.zel(kind, tiny, 1), tiny,
                                             document, times)
        return Row(work, milliseconds(ours), f"{milliseconds(bare)}, bare scan", ratio, target)

    def owslib_row(self, work, options, rounds=None):
        tiny, document = self.tiny("wms"), self.document(*options)
        theirs, bare, ratio = self.beside_scan(self.owslib(document), self.owslib(tiny), tiny, document, rounds=rounds)
        return Row(work, milliseconds(theirs), f"{milliseconds(bare)}, bare scan", ratio)

    def memory_row(self, work, records, options):
        used, allowed, ratio = self.compare(
            (self.zel("wms", self.document(*options), records), Program([self.build / "zel", "-e", ""])),
            lambda ours, empty: (ours.memory - empty.memory, 64 * MIB), rounds=1)
        return Row(work, mebibytes(used), f"{mebibytes(allowed)}, allowed", ratio, 1)

    def results_row(self, work, kind, records, options):
        tiny, document = self.tiny(kind), self.document(*options)
        taking, reading, ratio = self.compare(
            (self.zel(kind, document, records, number=records), self.zel(kind, document, records),
             self.zel(kind, tiny, 1)),
            lambda taken, read, start: (taken.cpu - read.cpu, read.cpu - start.cpu))
        return Row(work, milliseconds(taking), f"{milliseconds(reading)}, our parse", ratio, 2)

    def proportion_row(self, work, cost, form, document, records, many, few):
        """Taking `many` records, for each `few`, beside taking so few."""
        times = many // few
        large, small, ratio = self.compare(
            [self.zel("wms", document, records, number=number) for number in (many, few, None)],
            lambda large, small, read: ((getattr(large, cost) - getattr(read, cost)) / times,
                                        getattr(small, cost) - getattr(read, cost)))
        return Row(work, form(large), form(small), ratio, 1.15)

    def download_row(self, work, program, peer, target, rounds):
        ours, theirs, ratio = self.compare((program, peer), lambda ours, theirs: (ours.wall, theirs.wall), rounds)
        return Row(work, milliseconds(ours), f"{milliseconds(theirs)}, curl -o", ratio, target)


def xml(bench):
    """Reading documents, beside a scan that does nothing with them."""
    row, many = bench.parse_row, 6000
    sizes = [row(f"{layers:,} layers with inheritance", 1.5, "wms", layers + 1, ("wms", "--layers", layers), times)
             for layers, times in ((1000, 70), (10000, 7), (70000, 1))]
    yield from sizes
    ratios = [size.ratio for size in sizes]
    yield Row("largest of these ratios beside the smallest", f"{max(ratios):.2f}", f"{min(ratios):.2f}",
              max(ratios) / min(ratios), 1.15)
    yield bench.owslib_row("70,000 layers by OWSLib", ("wms", "--layers", 70000), rounds=3)
    for version in ("1.1.1", "1.3.0"):
        yield row(f"10,000 layers of {version} with 3 styles and 2 dimensions each", 1.5, "wms", 10001,
                  ("wms", "--version", version, "--layers", 10000, "--styles", 3, "--dimensions", 2), 3)

    below = ("wms", "--layers", 1000, "--root-names", many)
    for work, options in (("1,000 layers under 6,000 names", below),
                          ("the same, each layer repeats ten in other case", (*below, "--repeat", 10, "--other-case"))):
        yield row(work, 4, "wms", 1001, options, 20)
        yield bench.memory_row(f"{work}: memory above the empty runner", 1001, options)
    yield bench.owslib_row("1,000 layers under 6,000 names by OWSLib", below)
    for work, target, more in (
            ("300 layers that list all 6,000 names of the root", 1.5, ("--names", 0, "--repeat", "all")),
            ("300 layers with 6,000 names of their own each", None, ("--names", many))):
        yield row(work, target, "wms", 301, ("wms", "--layers", 300, "--root-names", many, *more))

    for depth, times in ((1000, 40), (2000, 20)):
        yield row(f"{depth:,} layers nested in each other", 1.5, "wms", depth + 1,
                  ("wms", "--layers", depth, "--depth", depth), times)

    yield row("10,000 coverage offering briefs", 1.5, "briefs", 10000, ("wcs-briefs", "--briefs", 10000), 10)
    yield row("10,000 coverage offerings", 1.5, "offerings", 10000, ("wcs-offerings", "--offerings", 10000), 3)


def results(bench):
    """Handing records to scripts."""
    yield bench.results_row("10,000 layers into a script", "wms", 10001, ("wms", "--layers", 10000))
    yield bench.results_row("10,000 briefs into a script", "briefs", 10000, ("wcs-briefs", "--briefs", 10000))

    document = bench.document("wms", "--layers", 1000, "--root-names", 6000)
    for cost, form in (("cpu", milliseconds), ("memory", mebibytes)):
        yield bench.proportion_row(f"100 layers under 6,000 names into a script, a quarter of the {cost}, beside 25",
                                   cost, form, document, 1001, 100, 25)


class StreamingLighttpd(Lighttpd):
    """Passes on what a CGI program writes as it comes, which makes it a chunked answer."""

    def _config(self, environment):
        return super()._config(environment) + "server.stream-response-body = 2\n"


def transfer(bench):
    """Downloads over loopback, on the clock."""
    sizes = {"large": 256 * MIB, "small": 16 * MIB}
    with StreamingLighttpd(bench.directory / "server") as server:
        for name, size in sizes.items():
            with open(server.root / name, "wb") as file:
                for _ in range(size // MIB):
                    file.write(os.urandom(MIB))
        chunked = server.root / "mapserv"
        chunked.write_text("#!/bin/sh\nprintf 'Content-Type: application/octet-stream\\r\\n\\r\\n'\n"
                           f"exec cat '{server.root}/large'\n")
        chunked.chmod(0o755)

        def curl(name):
            return Program(["curl", "-s", "-o", bench.directory / "curl.out", f"{server.url}/{name}"])

        def get_coverage(name):
            return Program([bench.build / "zel", HERE / "get_coverage.lua", str(server.port), f"/{name}",
                            bench.directory / "coverage"], str(sizes[name]))

        def to_buffer(name):
            return Program([bench.build / "buffer_download", f"{server.url}/{name}"], str(sizes["large"]))

        yield bench.download_row("256 MiB by GetCoverage", get_coverage("large"), curl("large"), 1, 3 * bench.rounds)
        large, small, ratio = bench.compare((get_coverage("large"), get_coverage("small")),
                                            lambda large, small: (large.memory, small.memory))
        yield Row("256 MiB by GetCoverage: memory, beside 16 MiB", mebibytes(large), mebibytes(small), ratio, 1.05)
        for work, name in (("256 MiB into memory", "large"), ("256 MiB, chunked, into memory", "mapserv")):
            yield bench.download_row(work, to_buffer(name), curl(name), 1.5, 2 * bench.rounds)


def harvest(bench):
    """Services of the usual kind into a database, from a server that answers at once."""
    services = 300

    def rate(seconds):
        return f"{services / seconds:,.0f} services a second"

    with Fleet(bench.directory / "fleet", services, "--usual") as fleet:
        database, peer_database = bench.directory / "harvest.db", bench.directory / "owslib.db"
        command = [bench.build / "zel-ogc", "harvest", fleet.list, database, "--quiet"]
        alone, two = Program(command, makes=database), Program([*command, "--jobs", "2"], makes=database)
        bench.run(alone)
        tables = database.rename(bench.directory / "tables.db")
        owslib = Program(["/usr/bin/python3", HERE / "owslib_harvest.py", fleet.list, peer_database, tables],
                         makes=peer_database)
        fetches = bench.directory / "fetches"
        fetches.write_text("".join(f'url = "{url}?REQUEST=GetCapabilities"\noutput = "{bench.directory}/answer"\n'
                                   for url in fleet.urls))
        fetch = Program(["curl", "-s", "-K", fetches])

        for work, program, target in (("a harvest by one process", alone, 0.1), ("the same by two processes", two, None)):
            ours, theirs, ratio = bench.compare((program, owslib), lambda ours, theirs: (ours.wall, theirs.wall))
            yield Row(work, rate(ours), f"{rate(theirs)}, OWSLib", ratio, target)
        ours, theirs, ratio = bench.compare((alone, owslib), lambda ours, theirs: (ours.memory, theirs.memory), 1)
        yield Row("a harvest: memory", mebibytes(ours), f"{mebibytes(theirs)}, OWSLib", ratio, 0.1)
        ours, fetched, ratio = bench.compare((alone, fetch), lambda ours, fetch: (ours.cpu - fetch.cpu, fetch.cpu))
        yield Row("a harvest: reading and storing, beside fetching", milliseconds(ours), f"{milliseconds(fetched)}, curl -o",
                  ratio)


PARTS = {part.__name__: part for part in (xml, results, transfer, harvest)}

PAGE = """# Benchmarks

Made by `scripts/bench.sh`, which anyone can run again. Each row is one piece of work, done by the system and by what
it is compared with, in turn in one run; times, memory and ratios are the medians of the rounds. Reading documents and
handing out records counts computing time above that of a tiny document, small documents many times in one process on
both sides; downloads and harvests count time on the clock. The bare scan is the XML parser's default scanner with an
empty handler. The copy that is kept of a document is not timed: it is given the document's own name, so that nothing is
copied. A harvest is of 300 services with 40 layers and 60 kB each, which a server on the same machine has ready; OWSLib
fills the same tables and indexes.

Measured on {processor}.

"""


def processor():
    models = re.findall(r"^model name\s*: (.*)$", pathlib.Path("/proc/cpuinfo").read_text(), re.MULTILINE)
    return f"{os.cpu_count()} processors" + (f", {models[0]}" if models else "")


def table(rows):
    head = ("work", "time or memory", "beside", "ratio", "target", "")
    lines = [head, ("---",) * len(head), *(row.cells() for row in rows)]
    return "".join("| " + " | ".join(line) + " |\n" for line in lines)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("part", choices=(*PARTS, "all"))
    parser.add_argument("--build", type=pathlib.Path, required=True, help="directory with the programs")
    parser.add_argument("--rounds", type=int, default=5, help="runs of each program (5)")
    parser.add_argument("--page", type=pathlib.Path, help="Markdown page to write")
    options = parser.parse_args()

    rows = []
    with tempfile.TemporaryDirectory(prefix="zel-bench-") as directory:
        bench = Bench(options.build.resolve(), pathlib.Path(directory), options.rounds)
        for part in PARTS if options.part == "all" else [options.part]:
            for row in PARTS[part](bench):
                rows.append(row)
                print("  ".join(row.cells()), file=sys.stderr, flush=True)
    print(table(rows), end="")
    if options.page:
        options.page.write_text(PAGE.format(processor=processor()) + table(rows))


main()
