"""Runs the transfer driver and sorts what it prints."""

import json
import os
import subprocess

from conftest import BUILD


class Outcome:
    """What happened: `lines` told to the status routine, `figures` of progress, `result` and `response` of the last
    request (`results`, `responses` of all), `did` what actions inside the routine gave."""

    def __init__(self, output):
        self.lines, self.figures, self.results, self.responses, self.did = [], [], [], [], {}
        for record in map(json.loads, output.splitlines()):
            if "line" in record:
                self.lines.append(record["line"])
                if "figures" in record:
                    self.figures.append([int(value) for value in record["figures"].split()])
            elif "result" in record:
                self.results.append(record["result"])
            elif "status" in record:
                self.responses.append(record)
            else:
                self.did |= record
        self.result, self.response = self.results[-1], self.responses[-1]

    @property
    def status(self):
        return int(self.response["status"])

    @property
    def trace(self):
        return "\n".join(line for line in self.lines if line.startswith("Verbose: "))


def transfer(*arguments, environment=None, preexec_fn=None):
    """transfer("url=...", "request=get", ...): see transfer_driver.cpp for what it understands."""
    done = subprocess.run([BUILD / "tests" / "transfer_driver", *map(str, arguments)], capture_output=True, text=True,
                          timeout=120, stdin=subprocess.DEVNULL, preexec_fn=preexec_fn,
                          env=os.environ | (environment or {}))
    assert done.returncode == 0 and not done.stderr, done.stdout + done.stderr
    return Outcome(done.stdout)
