"""Recorded sessions: statements after "> ", each followed by all that it prints.

They hold what is printed and returned by parts of the Lua library that need no server.
"""

import re

import pytest

from conftest import SOURCE

RUN = """
  io.stderr = io.stdout
  for line in io.lines(arg[1]) do
    local statement = line:match("^> (.*)")
    if statement then
      print(line)
      local done, why = pcall(assert(load(statement)))
      if not done then print(why) end
    end
  end
"""


SESSIONS = sorted((SOURCE / "tests/service/documents").glob("*.session"))


@pytest.mark.parametrize("session", SESSIONS, ids=lambda path: path.stem)
def test_session(zel, session):
    out = zel(RUN, session).out
    assert re.sub(" +\n", "\n", out.replace("\33", "^[")) == session.read_text()
