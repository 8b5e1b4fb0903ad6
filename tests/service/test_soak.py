"""A long life of one process; scripts/soak.sh makes it longer and shows its lines as they come."""

import os
import subprocess

from conftest import BUILD, SOURCE


def test_nothing_is_kept(ogc, tmp_path):
    rounds = os.environ.get("SOAK_ROUNDS", "300")
    # A sanitizer build holds freed memory back, which is not what is counted here.
    sanitizer = os.environ.get("ASAN_OPTIONS", "") + ":quarantine_size_mb=1:thread_local_quarantine_size_kb=64"
    done = subprocess.run([BUILD / "zel", SOURCE / "tests" / "service" / "soak.lua", rounds, str(ogc.port), str(ogc.tls_port)],
                          cwd=tmp_path, env=os.environ | {"ZEL_USER_DIR": str(tmp_path / "user"), "ASAN_OPTIONS": sanitizer},
                          stdin=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    assert done.returncode == 0, done.stderr
