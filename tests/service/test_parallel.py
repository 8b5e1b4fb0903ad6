"""Many processes at once, with one user directory for all and with one for each."""

import os
import subprocess

import pytest

from conftest import BUILD

PROCESSES = 8
LAYERS = 400
# Reads its own document and map, which hold its name many times, over and over.
SCRIPT = """
local port, mine, own_names, apart = arg[1], arg[2], arg[3] == "True", arg[4] == "True"
local refused = 0
for _ = 1, 25 do
  local wms <close> = assert(zel.new("ZELnetOGCWMS", {URL_HOSTNAME = "localhost", URL_PORT = port, URL_PATH = mine .. ".xml"}))
  if own_names then wms:SetProperty{MAP_FILENAME = "map-" .. mine, CAPABILITIES_FILENAME = "cap-" .. mine} end
  local ok, why = pcall(wms.GetCapabilities, wms)
  if ok then
    local layers = wms:GetLayers()
    if #layers ~= 400 or layers[1].NAME ~= mine or layers[400].NAME ~= mine then error("mixed: " .. layers[1].NAME) end
  else
    refused = refused + 1
    if not why:find("was replaced by another process", 1, true) and not why:find("failed to retrieve an xml file", 1, true)
       and not why:find("failed to get a capabilities doc", 1, true) then error(why) end
  end
  wms:SetProperty{URL_PATH = mine .. ".png"}
  ok, why = pcall(wms.GetMap, wms, "a=b")
  if apart then
    local file <close> = io.open(why)
    assert(file:read("a") == mine:rep(10000), "the map of another process")
  end
end
print(refused)
"""


@pytest.mark.parametrize("shared, own_names", [(True, False), (True, True), (False, False)],
                         ids=["one directory", "one directory and own names", "own directories"])
def test_contents_are_never_mixed_unnoticed(http, tmp_path, shared, own_names):
    """With the same file names a document that another process replaced is refused; otherwise all is as if alone."""
    apart = own_names or not shared
    running = []
    for number in range(PROCESSES):
        name = f"p{number}"
        (http.root / f"{name}.png").write_text(name * 10000)
        (http.root / f"{name}.xml").write_text("<WMT_MS_Capabilities version='1.1.1'><Capability>" +
                                               f"<Layer><Name>{name}</Name></Layer>" * LAYERS +
                                               "</Capability></WMT_MS_Capabilities>")
        user = tmp_path / ("user" if shared else name)
        running.append(subprocess.Popen([BUILD / "zel", "-e", SCRIPT, "-", str(http.port), name, str(own_names),
                                         str(apart)],
                                        cwd=tmp_path, text=True, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE, env=os.environ | {"ZEL_USER_DIR": str(user)}))
    for one in running:
        out, err = one.communicate(timeout=120)
        assert one.returncode == 0, err
        assert not apart or out == "0\n", out
    readme = (tmp_path / ("user" if shared else "p0")).rglob("README.txt")
    assert all("Version" in file.read_text() or "OGC" in file.read_text() for file in readme)
    assert not list(tmp_path.rglob("*.part-*"))
