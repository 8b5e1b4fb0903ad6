"""Many processes at once, with one user directory for all and with one for each."""

import pytest

from conftest import PATIENCE

NAMES = [f"p{number}" for number in range(8)]
# Reads its own document and map, which hold its name many times, over and over.
SCRIPT = """
local port, mine, own_names, apart, refused = arg[1], arg[2], arg[3] == "True", arg[4] == "True", 0
for _ = 1, 25 do
  local wms <close> = assert(zel.new("ZELnetOGCWMS", {URL_HOSTNAME = "localhost", URL_PORT = port, URL_PATH = mine .. ".xml"}))
  if own_names then wms:SetProperty{MAP_FILENAME = "map-" .. mine, CAPABILITIES_FILENAME = "cap-" .. mine} end
  local ok, why = pcall(wms.GetCapabilities, wms)
  local layers = ok and wms:GetLayers() or {}
  assert(not ok or #layers == 400 and layers[1].NAME == mine and layers[400].NAME == mine, "mixed")
  assert(ok or why:find("was replaced by another process", 1, true) or why:find("failed to retrieve an xml file", 1, true)
         or why:find("failed to get a capabilities doc", 1, true), why)
  refused = refused + (ok and 0 or 1)
  wms:SetProperty{URL_PATH = mine .. ".png"}
  ok, why = pcall(wms.GetMap, wms, "a=b")
  assert(not apart or io.open(why):read("a") == mine:rep(10000), "the map of another process")
end
print(refused)
"""


@pytest.mark.parametrize("shared, own_names", [(True, False), (True, True), (False, False)],
                         ids=["one directory", "one directory and own names", "own directories"])
def test_contents_are_never_mixed_unnoticed(http, zel_running, tmp_path, shared, own_names):
    """With the same file names a document that another process replaced is refused; otherwise all is as if alone."""
    apart = own_names or not shared
    for name in NAMES:
        (http.root / f"{name}.png").write_text(name * 10000)
        layers = f"<Layer><Name>{name}</Name></Layer>" * 400
        (http.root / f"{name}.xml").write_text(f"<WMT_MS_Capabilities version='1.1.1'>{layers}</WMT_MS_Capabilities>")
    running = [zel_running(SCRIPT, http.port, name, own_names, apart,
                           env={"ZEL_USER_DIR": str(tmp_path / ("user" if shared else name))}) for name in NAMES]
    for one in running:
        out, err = one.communicate(timeout=PATIENCE)
        assert one.returncode == 0, err
        assert not apart or out == "0\n", out
    texts = [file.read_text() for file in tmp_path.rglob("README.txt")]
    assert texts and all("Version" in text or "OGC" in text for text in texts) and not list(tmp_path.rglob("*.part-*"))
