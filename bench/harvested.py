"""What databases of a harvest hold, compared with each other and with the truth about the services.

    python3 -m bench.harvested truth.json RETRIES one.db other.db ...

Times, and ids of services, may differ; whatever else does is printed and makes the exit status 1.
"""

import collections
import contextlib
import functools
import hashlib
import json
import re
import sqlite3
import sys

SPAN = 1_000_000  # ids of one service, its own first
# The column by which rows belong to a service, what else is an id, and what is a time.
TABLES = {
    "service": ("id", (), ("harvested",)), "layer": ("id", ("service", "parent"), ()), "coverage": ("id", ("service",), ()),
    "bounds": ("layer", (), ()), "style": ("layer", (), ()), "dimension": ("layer", (), ()), "keyword": ("item", (), ()), "box": ("id", (), ()),
}
READ, LAYERS = {"new", "changed", "unchanged"}, {"wms": "layer", "wcs": "coverage"}
Attempt = collections.namedtuple("Attempt", "result again version bytes words")


class Harvested:
    """What a database holds of each service, by its URL."""

    def __init__(self, path):
        self.path = path
        with contextlib.closing(sqlite3.connect(path)) as self.database:
            self.urls = dict(self.database.execute("SELECT id, url FROM service"))
            self.faults = list(self._faults())
            self.digests = {url: [] for url in self.urls.values()}
            self.counts = {table: collections.Counter() for table in TABLES}
            for table in TABLES:
                self._digest(table)
            self.systems = list(self.database.execute("SELECT * FROM system ORDER BY list, position"))
            self.services = {url: row for url, *row in self.database.execute("SELECT url, version, title FROM service")}
            self.attempts = {url: [] for url in self.services}
            for service, *values, words in self.database.execute(
                    "SELECT service, result, again, version, bytes, words FROM attempt ORDER BY service, started"):
                words = re.sub(r"\d+ milliseconds", "N milliseconds", words or "")
                self.attempts[self.urls[service]].append(Attempt(*values, words))

    def _faults(self):
        """What SQLite finds wrong, in the tables and between them and the indexes."""
        for check in ("PRAGMA integrity_check", "SELECT rtreecheck('box')"):
            yield from (row[0] for row in self.database.execute(check) if row[0] != "ok")
        yield from (f"no row for {row}" for row in self.database.execute("PRAGMA foreign_key_check"))
        try:
            self.database.execute("INSERT INTO words (words, rank) VALUES ('integrity-check', 1)")
        except sqlite3.DatabaseError as error:
            yield f"the index of words: {error}"
        self.database.rollback()
        if self.database.execute("SELECT 1 FROM run WHERE finished IS NULL").fetchone():
            yield "a run has not come to its end"

    def rows(self, table, service=None):
        """Rows with the service's URL first, ids counted within the service, and no times."""
        owner, ids, times = TABLES[table]
        names = [name for _, name, *_ in self.database.execute(f"PRAGMA table_info({table})") if name not in times]
        columns = ", ".join(f"{name} % {SPAN}" if name in (owner, *ids) else name for name in names)
        range_of = f"WHERE {owner} BETWEEN {service} AND {service + SPAN - 1}" if service is not None else ""
        for of, *row in self.database.execute(
                f"SELECT {owner} - {owner} % {SPAN}, {columns} FROM {table} {range_of} ORDER BY {owner}"):
            yield self.urls[of], row

    def _digest(self, table):
        sums = collections.defaultdict(hashlib.sha256)
        for url, row in self.rows(table):
            sums[url].update(repr(row).encode())
            self.counts[table][url] += 1
        for url in self.digests:
            self.digests[url].append(sums[url].hexdigest() if url in sums else None)


def against_truth(harvested, truth, retries):
    """What is not as it must be."""
    if unknown := harvested.services.keys() ^ truth.keys():
        yield f"services that should not be there or are not: {sorted(unknown)[:5]}"
    for url in harvested.services.keys() & truth.keys():
        expected, attempts = truth[url], harvested.attempts[url]
        last = attempts[-1] if attempts else Attempt(None, 0, None, 0, "")
        outcome = "read" if last.result in READ else last.result
        if outcome != expected["outcome"] or not re.search(expected.get("words", "^$"), last.words):
            yield f"{url} should be {expected['outcome']} {expected.get('words', '')}: {attempts}"
        tries = retries + 1 if last.again else 1
        if len(attempts) != tries and "moody" not in expected:
            yield f"{url} was tried {len(attempts)} times, not {tries}: {attempts}"
        found = [*harvested.services[url], *(harvested.counts[table][url] for table in (
            LAYERS[expected["kind"]], "style", "dimension"))]
        wanted = [expected.get(key, default) for key, default in
                  (("version", None), ("title", None), ("layers", 0), ("styles", 0), ("dimensions", 0))]
        if found != wanted:
            yield f"{url} should have {wanted}, not {found}"


def between(one, other, truth):
    """What differs between two databases."""
    if one.systems != other.systems:
        yield "the lists of reference systems differ"
    for url in one.services.keys() & other.services.keys():
        for place, table in enumerate(TABLES):
            if one.digests[url][place] != other.digests[url][place]:
                yield f"{url}: rows of {table} differ"
        if "moody" not in truth[url] and collections.Counter(one.attempts[url]) != collections.Counter(other.attempts[url]):
            yield f"{url}: attempts {one.attempts[url]} and {other.attempts[url]}"


def main():
    truth_path, retries, *paths = sys.argv[1:]
    with open(truth_path) as file:
        truth = json.load(file)
    databases = [Harvested(path) for path in paths]
    differences = []
    for one in databases:
        found = [*one.faults, *against_truth(one, truth, int(retries))]
        found += [] if one is databases[0] else [f"beside {paths[0]}: {line}" for line in between(databases[0], one, truth)]
        results = collections.Counter(attempts[-1].result for attempts in one.attempts.values() if attempts)
        print(f"{one.path}: {len(one.services)} services, {sum(one.counts['layer'].values())} layers,",
              f"{sum(one.counts['coverage'].values())} coverages, {sum(map(len, one.attempts.values()))} attempts;",
              ", ".join(f"{number} {result}" for result, number in results.most_common()), flush=True)
        differences += [f"{one.path}: {line}" for line in found]
    for line in differences[:30]:
        print("  " + line, file=sys.stderr)
    if differences:
        sys.exit(f"{len(differences)} differences")


main()
