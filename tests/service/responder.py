"""A TCP server that plays a script, for what no real server can be made to say.

A script is what one connection does, step by step: bytes are sent, a number waits so many seconds, a function is called,
Body(n) reads n bytes, and the words below read or wait. After the last step the connection is closed.
"""

import socket
import struct
import threading
import time

HEAD = "reads up to a blank line"
LINE = "reads one line"
RESET = "ends the connection with a reset"
HOLD = "waits until the client goes"


class Body(int):
    """Reads so many bytes."""


def answer(body, kind="text/xml", status="200 OK", more=""):
    """An answer of HTTP with a text or bytes; `more` are further lines of its header."""
    body = body.encode() if isinstance(body, str) else body
    return (f"HTTP/1.1 {status}\r\nContent-Type: {kind}\r\nContent-Length: {len(body)}\r\n{more}"
            "Connection: close\r\n\r\n").encode() + body


class Responder:
    """Plays one script for each connection, the last one for all further connections, until the end of a `with`.

    A script may also be bytes, which answer a head, or a function that makes the script of a head. What the client sent
    stands in `requests`, one text a connection.
    """

    def __init__(self, *scripts, host="127.0.0.1"):
        self.scripts = scripts
        self.received = []
        self._listener = socket.create_server((host, 0))
        self._connections = []
        self._threads = [threading.Thread(target=self._accept, daemon=True)]
        self._threads[0].start()
        self.port = self._listener.getsockname()[1]
        self.url = f"http://127.0.0.1:{self.port}/"

    @property
    def requests(self):
        return [bytes(data).decode("latin-1") for data in self.received]

    def _accept(self):
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            self._connections.append(connection)
            self.received.append(bytearray())
            script = self.scripts[min(len(self.received), len(self.scripts)) - 1]
            thread = threading.Thread(target=self._play, args=(connection, script, self.received[-1]), daemon=True)
            self._threads.append(thread)
            thread.start()

    @staticmethod
    def _play(connection, script, received):
        def read(end=None, size=1 << 62):
            start = len(received)
            while len(received) - start < size and not (end and received.endswith(end, start)):
                data = connection.recv(1 if end else min(size - (len(received) - start), 65536))
                if not data:
                    return
                received.extend(data)

        try:
            with connection:
                if callable(script):
                    read(end=b"\r\n\r\n")
                    script = script(received.decode("latin-1")) if received else ()
                for step in [HEAD, script] if isinstance(script, bytes) else script:
                    if isinstance(step, bytes):
                        connection.sendall(step)
                    elif isinstance(step, Body):
                        read(size=step)
                    elif isinstance(step, (int, float)):
                        time.sleep(step)
                    elif callable(step):
                        step()
                    elif step == HEAD:
                        read(end=b"\r\n\r\n")
                    elif step == LINE:
                        read(end=b"\n")
                    elif step == HOLD:
                        read()
                    elif step == RESET:
                        connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        except OSError:
            pass  # the client went away

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()
        for connection in self._connections:
            try:
                connection.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass
        for thread in self._threads:
            thread.join(10)
