#!/bin/bash
# Compiles every header alone: each includes what it needs.
set -euo pipefail
[ $# -eq 0 ] || { echo "usage: $0" >&2; exit 2; }
cd "$(dirname "$0")/.."

# A header is compiled like the source of its name, or else like a source of its folder or of the next one above.
commands() {
    python3 - <<'PYTHON'
import json, pathlib, shlex

flags = {}
for entry in json.load(open("build-all/compile_commands.json")):
    _, _, options = entry["command"].partition(" -")
    source = pathlib.Path(entry["file"])
    flags[source] = flags[source.parent] = shlex.split("-" + options.partition(" -o ")[0])
for folder in ("src", "curl", "host", "derived"):
    for header in pathlib.Path(folder).absolute().rglob("*.h"):
        found = next(flags[place] for place in (header.with_suffix(".cpp"), *header.parents) if place in flags)
        print(shlex.join(["c++", *found, "-fsyntax-only", "-include", str(header), "-xc++", "/dev/null"]))
PYTHON
}

[ -e build-all/compile_commands.json ] || cmake --preset all >/dev/null
commands | xargs -d '\n' -P "$(nproc)" -I{} bash -c '{}'
