#!/bin/bash
# Compiles every source of the release build with clang++, for its warnings alone.
set -euo pipefail
cd "$(dirname "$0")/.."

commands() {
    python3 - <<'PYTHON'
import json, shlex
for entry in json.load(open("build-all/compile_commands.json")):
    flags = shlex.split(entry["command"])[1:]
    print(shlex.join(["clang++", *flags[:flags.index("-o")], "-Werror", "-fsyntax-only", entry["file"]]))
PYTHON
}

commands | xargs -d '\n' -P "$(nproc)" -I{} bash -c '{}'
