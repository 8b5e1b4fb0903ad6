"""Serves maps and coverages until it is interrupted; its first line of output is the URL of the server."""

import signal
import sys
import tempfile

from mapserver.ogc_server import OgcServer


def main():
    signal.signal(signal.SIGTERM, lambda *_: sys.exit())
    with tempfile.TemporaryDirectory(prefix="ogc-server.") as directory, OgcServer(directory) as server:
        print(server.service, flush=True)
        try:
            signal.pause()
        except KeyboardInterrupt:
            pass


main()
