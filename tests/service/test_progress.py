"""The status routine that comes with the runner on real terminals; progress.session has what it draws."""

import fcntl
import os
import pty
import re
import struct
import subprocess
import termios

import pytest

from conftest import BUILD, PATIENCE

HALF = """
local status, now = require "zel.progress", 0
zel.clock = function() return now end
for seconds = 0, 2 do
  now = seconds
  status("x", {1, 4000000, now * 1000000, 0, 0})
end
"""


def on_terminal(code, environment=None, columns=80):
    """Runs Lua code on a terminal. Returns the status and the lines that stay on the screen."""
    parent, child = pty.openpty()
    fcntl.ioctl(child, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
    run = subprocess.Popen([BUILD / "zel", "-e", code], stdin=child, stdout=child, stderr=child, close_fds=True,
                           env=os.environ | (environment or {}))
    os.close(child)
    shown = b""
    try:
        while data := os.read(parent, 4096):
            shown += data
    except OSError:
        pass  # the terminal is gone
    os.close(parent)
    lines = []
    for line in shown.decode().replace("\r\n", "\n").split("\n"):
        if line.startswith("\x1b[A\r\x1b[K"):
            lines.pop()
            line = line.removeprefix("\x1b[A\r\x1b[K")
        lines.append(line)
    return run.wait(PATIENCE), lines


@pytest.mark.parametrize("more, options, line, shown", [
    ("", {}, 0, r"\[#{13}\.{14}\]  50 %  2.0 MB of 4.0 MB  1.0 MB/s  0:02 left"),
    ("", {"columns": 30}, 0, r" 50 %  2.0 MB of 4.0 MB  1.0 "),
    ("", {"environment": {"TERM": "dumb"}}, -2, r"   50 %  2.0 MB of 4.0 MB  1.0 MB/s  0:02 left"),
    (' error("failed")', {}, 1, r"zel: \(command line\):\d+: failed")])
def test_other_terminals_and_ends(more, options, line, shown):
    """A narrow terminal gets no bar, a dumb one plain lines; an error begins on a line of its own."""
    assert re.fullmatch(shown, on_terminal(HALF + more, **options)[1][line])
