"""A long life of one process; scripts/soak.sh makes it longer and shows its lines as they come."""

import os
import subprocess

from conftest import BUILD, SOURCE


def test_nothing_is_kept(ogc, tmp_path):
    rounds = os.environ.get("SOAK_ROUNDS", "300")
    done = subprocess.run([BUILD / "zel", SOURCE / "tests" / "service" / "soak.lua", rounds, str(ogc.port), str(ogc.tls_port)],
                          cwd=tmp_path, env=os.environ | {"ZEL_USER_DIR": str(tmp_path / "user")},
                          stdin=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    assert done.returncode == 0, done.stderr
