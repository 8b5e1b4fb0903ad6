"""Runs a harvest and watches its memory:

    python3 -m bench.resident 500 DATABASE zel-ogc harvest LIST DATABASE ...

Its size and its peak may grow by 16 MiB once 500 services are in the database; more makes the exit status 1.
"""

import pathlib
import re
import sqlite3
import subprocess
import sys
import time

MORE = 16 * 1024  # KiB


def sizes(pid):
    """VmRSS and VmHWM in KiB; None when the process has ended."""
    try:
        text = pathlib.Path(f"/proc/{pid}/status").read_text()
    except ProcessLookupError:
        return None
    found = dict(re.findall(r"^(VmRSS|VmHWM):\s*(\d+)", text, re.MULTILINE))
    return (int(found["VmRSS"]), int(found["VmHWM"])) if found else None


def harvested(path):
    try:
        with sqlite3.connect(f"file:{path}?mode=ro", uri=True, timeout=0) as database:
            return database.execute("SELECT count(DISTINCT service) FROM attempt").fetchone()[0]
    except sqlite3.OperationalError:
        return 0


def main():
    few, path, *command = sys.argv[1:]
    child = subprocess.Popen(command)
    settled, last, seen = None, None, 0
    while child.poll() is None:
        now = sizes(child.pid)
        if now and not settled:
            seen = harvested(path)
            settled = now if seen >= int(few) else None
        last = now or last
        time.sleep(0.05)
    if child.returncode != 0:
        sys.exit(child.returncode)
    if not settled:
        return print("these are too few services to watch the memory")
    for name, before, after in zip(("resident", "peak"), settled, last):
        print(f"{name} {before / 1024:.1f} MiB after {seen} services, {after / 1024:.1f} MiB in the end")
        if after > before + MORE:
            sys.exit(f"{name} grew by more than {MORE // 1024} MiB")


main()
