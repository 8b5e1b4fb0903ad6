"""Harvests WMS services with OWSLib into the tables of a harvest, for bench/compare.py to compare with.

    owslib_harvest.py LIST DATABASE TABLES.db

TABLES.db is a database of `zel-ogc harvest`, from which the tables are taken.
"""

import contextlib
import hashlib
import sqlite3
import sys
import time

from owslib.wms import WebMapService

SPAN = 1_000_000  # ids of a service
ITEMS = "(SELECT id, title, name, keywords, abstract FROM item WHERE id BETWEEN ? AND ?)"
BOXES = "SELECT id, west, east, south, north FROM item WHERE id BETWEEN ? AND ? AND west IS NOT NULL"


def make_tables(database, model):
    database.execute("PRAGMA journal_mode = WAL")
    database.execute("PRAGMA synchronous = NORMAL")
    with contextlib.closing(sqlite3.connect(model)) as tables:
        inner = ("words_", "box_", "sqlite_")  # what SQLite makes itself
        for name, statement in tables.execute("SELECT name, sql FROM sqlite_master ORDER BY rowid"):
            if statement and not name.startswith(inner):
                database.execute(statement)


def insert(cursor, table, rows):
    if rows:
        places = ", ".join("?" * len(rows[0]))
        cursor.executemany(f"INSERT OR IGNORE INTO {table} VALUES ({places})", rows)


class Rows:
    """The rows of one service."""

    def __init__(self, service, identity, known_lists):
        self.known_lists = known_lists
        self.layers, self.bounds, self.styles, self.dimensions, self.keywords, self.systems = [], [], [], [], [], []
        self.identity = identity
        self.seen = {}
        for layer in service.contents.values():
            self.layer(layer)

    def layer(self, layer):
        place = self.identity + len(self.layers) + 1
        self.seen[id(layer)] = place
        parent = self.seen.get(id(layer.parent)) if layer.parent else None
        box = layer.boundingBoxWGS84 or (None,) * 4
        level, outer = 1, layer.parent
        while outer:
            level, outer = level + 1, outer.parent
        names = sorted(layer.crsOptions or ())
        self.layers.append((place, self.identity, parent, level, len(self.layers) + 1, layer.name, layer.title,
                            layer.abstract, getattr(layer, "attribution", {}).get("title"), layer.queryable, layer.opaque,
                            layer.cascaded, *box, None, None, self.system_list(names)))
        if layer.boundingBox:
            *edges, system = layer.boundingBox
            self.bounds.append((place, 1, system, *edges))
        for number, (name, style) in enumerate(layer.styles.items(), 1):
            self.styles.append((place, number, name, style.get("title"), None, style.get("legend")))
        for number, (name, dimension) in enumerate(getattr(layer, "dimensions", {}).items(), 1):
            self.dimensions.append((place, number, name, dimension["units"], dimension["default"],
                                    ",".join(dimension["values"] or ())))
        self.keywords += ((place, number, word) for number, word in enumerate(layer.keywords, 1))

    def system_list(self, names):
        key = "\n".join(names)
        number = int(hashlib.sha256(key.encode()).hexdigest()[:15], 16)
        if number not in self.known_lists:
            self.known_lists.add(number)
            self.systems += ((number, place, name) for place, name in enumerate(names, 1))
        return number


def harvest(database, identity, url, known_lists):
    started, began = time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime()), time.monotonic()
    service = WebMapService(url, version="1.1.1")
    rows = Rows(service, identity, known_lists)
    about, digest = service.identification, hashlib.sha256(service.getServiceXML()).hexdigest()
    cursor = database.cursor()
    cursor.execute("BEGIN IMMEDIATE")
    cursor.execute("INSERT INTO service (id, url, kind, version, name, title, abstract, fees, access, document_hash, "
                   "harvested) VALUES (?, ?, 'WMS', ?, ?, ?, ?, ?, ?, ?, ?)",
                   (identity, url, about.version, about.type, about.title, about.abstract, about.fees,
                    about.accessconstraints, digest, started))
    for table, values in (("layer", rows.layers), ("bounds", rows.bounds), ("style", rows.styles), ("dimension", rows.dimensions),
                          ("keyword", rows.keywords), ("system", rows.systems)):
        insert(cursor, table, values)
    ids = identity, identity + SPAN - 1
    cursor.execute(f"INSERT INTO words (rowid, title, name, keywords, abstract) SELECT * FROM {ITEMS}", ids)
    cursor.execute(f"INSERT INTO box {BOXES}", ids)
    cursor.execute("INSERT INTO attempt VALUES (?, ?, 1, ?, ?, ?, 'new', 0, NULL)",
                   (identity, started, time.monotonic() - began, 0, about.version))
    cursor.execute("COMMIT")


def main():
    path, target, model = sys.argv[1:]
    with open(path) as lines:
        urls = [line.strip() for line in lines if line.startswith("http")]
    known_lists = set()
    with contextlib.closing(sqlite3.connect(target, isolation_level=None)) as database:
        make_tables(database, model)
        database.execute("INSERT INTO run VALUES (1, 'list', '', NULL)")
        for number, url in enumerate(urls, 1):
            harvest(database, number * SPAN, url, known_lists)


main()
