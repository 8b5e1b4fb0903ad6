"""The status routine that comes with the runner, on a terminal and elsewhere."""

import fcntl
import os
import pty
import re
import struct
import subprocess
import termios

import pytest

from conftest import BUILD

# One transfer on a clock of the test's own: {seconds, total, now} or a status text, one after the other.
PLAY = """
local status, now = require "zel.progress", 0
zel.clock = function() return now end
for _, step in ipairs(%s) do
  if type(step) == "string" then
    assert(status(step, {0, 0, 0, 0, 0}) == 1)
  else
    now = step[1]
    assert(status("x", {1, step[2], step[3], step[4] or 0, step[5] or 0}) == 1)
  end
end
"""

HALF = '{0, 0, 0}, {1, 4000000, 1000000}, {2, 4000000, 2000000}'
BAR = {0: "[" + "." * 27 + "]", 25: "[" + "#" * 6 + "." * 21 + "]", 50: "[" + "#" * 13 + "." * 14 + "]",
       100: "[" + "#" * 27 + "]"}


def on_terminal(code, environment=None, columns=80):
    """Runs Lua code on a terminal. Returns the status and the lines that stay on the screen."""
    parent, child = pty.openpty()
    fcntl.ioctl(child, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
    run = subprocess.Popen([BUILD / "zel", "-e", code], stdin=child, stdout=child, stderr=child, close_fds=True,
                           env=os.environ | {"TERM": "xterm"} | (environment or {}))
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
    return run.wait(30), lines


@pytest.mark.parametrize("steps, screen", [
    (HALF, [BAR[50] + "  50 %  2.0 MB of 4.0 MB  1.0 MB/s  0:02 left"]),
    (HALF + ', {4, 4000000, 4000000}, "written"', [BAR[100] + " 4.0 MB in 0:04 (1.0 MB/s)"]),
    ('{0, 0, 0}, {1, 0, 500}, {2, 0, 1000}, "written"', ["1.0 kB in 0:02 (500 B/s)"]),
    ('{0, 0, 0}, {9, 0, 0}', ["[###" + "." * 24 + "] waiting 0:09"]),
    ('{0, 0, 0}, {0.4, 900, 900}, "Map file written to: "', []),
    # A speed that changes shows at once, but not at once in full.
    (HALF + ', {3, 4000000, 2000000}', [BAR[50] + "  50 %  2.0 MB of 4.0 MB  552 kB/s  0:04 left"]),
    # An upload, an hour long.
    ('{0, 0, 0}, {1, 0, 0, 3661000, 1000}', [BAR[0] + "   0 %  1.0 kB of 3.7 MB  1.0 kB/s  1:01:00 left"]),
    # A redirect starts anew on the same line.
    ('{0, 0, 0}, {1, 100, 100}, {1, 4000, 0}, {3, 4000, 1000}', [BAR[25] + "  25 %  1.0 kB of 4.0 kB  500 B/s  0:06 left"]),
    (HALF + ', "Error: no\\27[2J\\194\\155more", "Warning: w", "other"',
     ["2.0 MB in 0:02 (1.0 MB/s)", "  Error: no [2J more", "  Warning: w"]),
    # One that broke off stays as it is, and so does what was printed since.
    (HALF + ', "Sending Http Get Request: "', [BAR[50] + "  50 %  2.0 MB of 4.0 MB  1.0 MB/s  0:02 left"]),
])
def test_terminal(steps, screen):
    status, lines = on_terminal(PLAY % ("{" + steps + "}"))
    assert status == 0 and lines == screen + [""]


@pytest.mark.parametrize("more, options, line, shown", [
    ("", {"columns": 30}, 0, r" 50 %  2.0 MB of 4.0 MB  1.0 "),
    ("", {"environment": {"TERM": "dumb"}}, -2, r"   50 %  2.0 MB of 4.0 MB  1.0 MB/s  0:02 left"),
    (' error("failed")', {}, 1, r"zel: \(command line\):\d+: failed")])
def test_other_terminals_and_ends(more, options, line, shown):
    """A narrow terminal gets no bar, a dumb one plain lines; an error begins on a line of its own."""
    assert re.fullmatch(shown, on_terminal(PLAY % ("{" + HALF + "}") + more, **options)[1][line])


def test_elsewhere_at_most_a_line_a_second(zel):
    steps = '"Sending", ' + ", ".join(f"{{{i / 10}, 0, {i * 100}}}" for i in range(40)) + ', "done"'
    lines = zel(PLAY % ("{" + steps + "}")).err.splitlines()
    assert lines == ["  Sending", "  500 B  1.0 kB/s", "  1.5 kB  1.0 kB/s", "  2.5 kB  1.0 kB/s",
                     "  3.5 kB  1.0 kB/s", "  done"]


def test_time_left_of_tiles_and_other_parts(zel):
    """By those that were fetched, not by those that were there."""
    said = zel("""
      local now = 0 zel.clock = function() return now end
      local shown <close> = require "zel.ogc.tile_progress"({options = {}}, 10)
      for i = 1, 5 do shown:step(true) end
      local progress = require "zel.work_progress"(10, "parts", "without", 5)
      for done = 5, 6 do now = now + 6 progress(done, 1, "host", 8) end
      now = 6 shown:step()
    """).err
    assert said == "  6 of 10 parts, 1 without, 0:48 left, waiting 0:08 for host\ntile 6 of 10, 0:24 left\n"
