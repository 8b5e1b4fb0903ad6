#!/usr/bin/python3
"""Runs the system beside its peers and prints their ratios; scripts/bench.sh calls it.

Every figure is that of a whole process. The programs of a row run in turn, several rounds, and the medians count. Time
and memory of a process that does next to nothing are taken off where a row says so.
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

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "scripts"))

from lighttpd import Lighttpd  # noqa: E402

MIB = 1 << 20
OWSLIB = ("import sys; from owslib.wms import WebMapService; "
          "WebMapService('http://localhost/', version='1.1.1', xml=open(sys.argv[1], 'rb').read())")


@dataclasses.dataclass
class Cost:
    """Of one process: seconds on the clock, seconds of computing, bytes resident at most."""

    wall: float
    cpu: float
    memory: float

    def __sub__(self, other):
        return Cost(self.wall - other.wall, self.cpu - other.cpu, self.memory - other.memory)


@dataclasses.dataclass
class Program:
    """A command and what it must print; anything else ends the benchmark."""

    command: list
    prints: str = ""


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
        # The peak of a process counts from its parent's size on: a small parent stands in between.
        peak, out = self.directory / "peak", self.directory / "out"
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

    def measure(self, *programs, rounds=None):
        """Median costs of programs that run in turn."""
        costs = [[self.run(program) for program in programs] for _ in range(rounds or self.rounds)]
        return [Cost(*(statistics.median(dataclasses.astuple(cost)[field] for cost in column) for field in range(3)))
                for column in zip(*costs)]

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

    def parse_row(self, work, target, kind, records, options, times=1):
        """Reading a document `times` times in one process."""
        tiny, document = self.tiny(kind), self.document(*options)
        ours, start, bare, bare_start = self.measure(
            self.zel(kind, document, records, times), self.zel(kind, tiny, 1),
            self.bare_scan(document, times), self.bare_scan(tiny))
        ours, bare = (ours - start).cpu, (bare - bare_start).cpu
        return Row(work, milliseconds(ours / times), f"{milliseconds(bare / times)}, bare scan", ours / bare, target)

    def owslib_row(self, work, options, rounds):
        tiny, document = self.tiny("wms"), self.document(*options)
        theirs, start, bare, bare_start = self.measure(self.owslib(document), self.owslib(tiny),
                                                       self.bare_scan(document), self.bare_scan(tiny), rounds=rounds)
        theirs, bare = theirs - start, bare - bare_start
        return Row(work, milliseconds(theirs.cpu), f"{milliseconds(bare.cpu)}, bare scan", theirs.cpu / bare.cpu)

    def memory_row(self, work, records, options):
        ours, empty = self.measure(self.zel("wms", self.document(*options), records),
                                   Program([self.build / "zel", "-e", ""]), rounds=1)
        used = (ours - empty).memory
        return Row(work, mebibytes(used), "64 MiB, allowed", used / (64 * MIB), 1)

    def results_row(self, work, kind, records, options):
        tiny, document = self.tiny(kind), self.document(*options)
        taken, read, start = self.measure(self.zel(kind, document, records, number=records),
                                          self.zel(kind, document, records), self.zel(kind, tiny, 1))
        taking, reading = (taken - read).cpu, (read - start).cpu
        return Row(work, milliseconds(taking), f"{milliseconds(reading)}, our parse", taking / reading, 2)


def xml(bench):
    """Reading documents, beside a scan that does nothing with them."""
    row, many = bench.parse_row, 6000
    sizes = [row(f"{layers:,} layers with inheritance", 1.5, "wms", layers + 1, ("wms", "--layers", layers), times)
             for layers, times in ((1000, 70), (10000, 7), (70000, 1))]
    yield from sizes
    ratios = [size.ratio for size in sizes]
    yield Row("largest of these ratios beside the smallest", f"{max(ratios):.2f}", f"{min(ratios):.2f}",
              max(ratios) / min(ratios), 1.15)
    yield bench.owslib_row("70,000 layers by OWSLib", ("wms", "--layers", 70000), 1)
    for version in ("1.1.1", "1.3.0"):
        yield row(f"10,000 layers of {version} with 3 styles and 2 dimensions each", 1.5, "wms", 10001,
                  ("wms", "--version", version, "--layers", 10000, "--styles", 3, "--dimensions", 2), 3)

    below = ("wms", "--layers", 1000, "--root-names", many)
    for work, options in (("1,000 layers under 6,000 names", below),
                          ("the same, each layer repeats ten in other case", (*below, "--repeat", 10, "--other-case"))):
        yield row(work, 4, "wms", 1001, options, 20)
        yield bench.memory_row(f"{work}: memory above the empty runner", 1001, options)
    yield bench.owslib_row("1,000 layers under 6,000 names by OWSLib", below, bench.rounds)
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
    hundred, quarter, read = bench.measure(*(bench.zel("wms", document, 1001, number=number)
                                             for number in (100, 25, None)))
    hundred, quarter = hundred - read, quarter - read
    for kind, form in (("cpu", milliseconds), ("memory", mebibytes)):
        large, small = getattr(hundred, kind) / 4, getattr(quarter, kind)
        yield Row(f"100 layers under 6,000 names into a script, a quarter of the {kind}, beside 25 layers", form(large),
                  form(small), large / small, 1.15)


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

        ours, theirs = bench.measure(get_coverage("large"), curl("large"), rounds=3 * bench.rounds)
        yield Row("256 MiB by GetCoverage", milliseconds(ours.wall), f"{milliseconds(theirs.wall)}, curl -o",
                  ours.wall / theirs.wall, 1)
        small, = bench.measure(get_coverage("small"))
        yield Row("256 MiB by GetCoverage: memory, beside 16 MiB", mebibytes(ours.memory), mebibytes(small.memory),
                  ours.memory / small.memory, 1.05)
        for work, name in (("256 MiB into memory", "large"), ("256 MiB, chunked, into memory", "mapserv")):
            ours, theirs = bench.measure(to_buffer(name), curl(name), rounds=2 * bench.rounds)
            yield Row(work, milliseconds(ours.wall), f"{milliseconds(theirs.wall)}, curl -o", ours.wall / theirs.wall,
                      1.5)


PARTS = {part.__name__: part for part in (xml, results, transfer)}

PAGE = """# Benchmarks

Made by `scripts/bench.sh`, which anyone can run again. Each row is one piece of work, done by the system and by what
stands beside it, in turn in one run; the medians of their processes are compared. Reading documents and handing out
records counts computing time above that of a tiny document, small documents many times in one process on both sides;
downloads count time on the clock. The bare scan is the XML parser's default scanner with an empty handler.
Nothing is copied while a document is read: the copy that is kept of it is given its own name.
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
