"""The installation and the Debian package, used where nothing of the build is in reach."""

import os
import shutil
import subprocess

import pytest

from conftest import BUILD, PATIENCE

SCRIPT = """
local wms <close> = assert(zel.new("ZELnetOGCWMS", {CALLBACK_FUNCTION = require "zel.progress"}))
wms:ParseUrl(arg[1])
print(wms:GetCapabilities())
zel.help("GetMap")
-- A certificate that the bundle does not vouch for, not a bundle that is missing.
wms:ParseUrl(arg[2])
print(select(2, pcall(wms.GetCapabilities, wms)))
"""


def run(*words, **options):
    done = subprocess.run([*map(str, words)], capture_output=True, text=True, timeout=PATIENCE, **options)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def installed(directory):
    prefix = directory / "opt"
    run("cmake", "--install", BUILD, "--prefix", prefix)
    return prefix


def unpacked(directory):
    """The package's files below a root of their own."""
    run("cpack", "--config", BUILD / "CPackConfig.cmake", "-B", directory)
    package, = directory.glob("zel-ogc_*.deb")
    depends = run("dpkg-deb", "--field", package, "Depends")
    assert all(needed in depends for needed in (
        "ca-certificates", "libc6", "libcurl4", "libxerces-c3", "liblua5.4", "libreadline8", "lua-argparse", "gdal-bin"))
    run("dpkg-deb", "--extract", package, directory / "root")
    return directory / "root" / "usr"


@pytest.mark.parametrize("make", [installed, unpacked])
def test_is_used_from_outside_the_build(tmp_path, ogc, make):
    prefix = make(tmp_path)
    env = {"PATH": f"{prefix}/bin:/usr/bin:/bin", "HOME": str(tmp_path), "LANG": "C.UTF-8"}
    env |= {name: value for name, value in os.environ.items() if name.endswith("SAN_OPTIONS")}
    assert run("zel", "--version", env=env, cwd=tmp_path).startswith("zel 1.")
    (tmp_path / "script.lua").write_text(SCRIPT)
    out = run("zel", "script.lua", ogc.service, ogc.secure_service, env=env, cwd=tmp_path)
    assert out.startswith("10\nGetMap\n") and "Curl Error Code = 60" in out

    assert "[places]" in run("zel-ogc", "info", ogc.service, env=env, cwd=tmp_path)
    complete = "source $0; COMP_WORDS=(zel-ogc m); COMP_CWORD=1; _zel-ogc; echo $COMPREPLY"
    assert run("bash", "-c", complete, prefix / "share/bash-completion/completions/zel-ogc", env=env) == "map\n"

    for page, text in (("zel", "run Lua scripts"), ("zel-ogc", "maps and coverages")):
        assert text in run("man", "-l", prefix / f"share/man/man1/{page}.1", env=env)
    run("g++", "-fsyntax-only", "-xc++", "-std=c++20", "-I", prefix / "include", "-",
        input='#include "zel_module.h"\nint main() { return ZEL_TempCount() != 0; }\n')
    assert not [path for path in prefix.rglob("*") if path.is_symlink() and not path.exists()]
    documents = prefix / "share/doc/zel-ogc"
    assert all((documents / name).exists() for name in ("docs/reference.md", "CONTRIBUTING.md", "CHANGELOG.md"))
    assert os.access(documents / "examples/harvest.sbatch", os.X_OK) and "Readline" in (documents / "copyright").read_text()


def test_no_package_without_the_tools_that_find_its_dependencies(tmp_path):
    done = subprocess.run([shutil.which("cpack"), "--config", BUILD / "CPackConfig.cmake", "-B", tmp_path,
                           "-D", "CMAKE_FIND_USE_CMAKE_SYSTEM_PATH=OFF"], env={"PATH": str(tmp_path)}, timeout=PATIENCE,
                          capture_output=True, text=True)
    assert done.returncode != 0 and "Debian packages file and dpkg-dev" in " ".join(done.stderr.split())
    assert not list(tmp_path.rglob("*.deb"))
