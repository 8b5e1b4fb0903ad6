"""Serves maps and coverages until it is interrupted.

Its output is a line with the URL of the server, and a line with all that docs/guide.md uses, as variables for a shell.
"""

import pathlib
import shlex
import signal
import sys
import tempfile

from mapserver.ogc_server import OgcServer
from mapserver.tinyproxy import Tinyproxy


def main():
    signal.signal(signal.SIGTERM, lambda *_: sys.exit())
    with tempfile.TemporaryDirectory(prefix="ogc-server.") as directory, OgcServer(directory) as server, \
            Tinyproxy(pathlib.Path(directory, "proxy")) as proxy:
        variables = server.variables() | {"PROXY": proxy.url}
        print(server.service, " ".join(f"{name}={shlex.quote(value)}" for name, value in variables.items()), sep="\n",
              flush=True)
        try:
            signal.pause()
        except KeyboardInterrupt:
            pass


main()
