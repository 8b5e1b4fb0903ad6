"""Runs the transfer driver and sorts what it prints."""

import collections
import os
import subprocess

from conftest import BUILD, PATIENCE


class Outcome:
    """Each name that the driver printed is an attribute, its last value; `all` has the values that were printed before."""

    def __init__(self, output):
        self.all = collections.defaultdict(list)
        for record in output.split("\x1e")[:-1]:
            name, value = record.split("\x1f")
            self.all[name].append(value)

    def __getattr__(self, name):
        return self.all[name][-1]

    @property
    def lines(self):
        return self.all["line"]

    @property
    def told(self):
        """All that is shown to anyone."""
        return "".join([*self.lines, *self.all["result"], *self.all["message"]])


def transfer(*arguments, environment=None, preexec_fn=None):
    """transfer("url=...", "request=get", ...): see transfer_driver.cpp for what it understands."""
    done = subprocess.run([BUILD / "tests" / "transfer_driver", *map(str, arguments)], capture_output=True, timeout=PATIENCE,
                          stdin=subprocess.DEVNULL, preexec_fn=preexec_fn, env=os.environ | (environment or {}))
    assert done.returncode == 0 and not done.stderr, done.stdout + done.stderr
    return Outcome(done.stdout.decode("latin-1"))
