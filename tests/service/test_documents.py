"""The documents: every code block runs as it stands, and prints what the document says it prints.

A block ```lua or ```sh runs in a home directory of its own, with the URL of the map server in OGC_SERVER_URL and other
servers in further variables. The ```text block right after it is its whole output, where "..." matches anything within a
line.
"""

import os
import re
import subprocess

import pytest

from conftest import BUILD, PATIENCE, SOURCE

DOCUMENTS = [SOURCE / "README.md", *sorted((SOURCE / "docs").glob("*.md"))]
BLOCK = re.compile(r"^```(lua|sh)\n(.*?)^```\n(?:\n*```text\n(.*?)^```$)?", re.DOTALL | re.MULTILINE)
SHELL = {"lua": [BUILD / "zel", "-"], "sh": ["bash", "-eu", "-s"]}


def blocks():
    for document in DOCUMENTS:
        text = document.read_text()
        for match in BLOCK.finditer(text):
            line = text.count("\n", 0, match.start()) + 1
            yield pytest.param(*match.groups(), id=f"{document.name}:{line}")


def pattern(text):
    """What matches a text in which "..." stands for anything within a line."""
    return "[^\n]*".join(map(re.escape, text.split("...")))


@pytest.mark.parametrize("language, code, expected", blocks())
def test_block(tmp_path, servers, language, code, expected):
    places = {"PATH": f"{BUILD}:{os.environ['PATH']}", "HOME": str(tmp_path), "XDG_CONFIG_HOME": "",
              "ZEL_USER_DIR": str(tmp_path / "user"), "TMPDIR": str(tmp_path), "PROXY": servers.proxy.url}
    done = subprocess.run(SHELL[language], input=code, cwd=tmp_path, capture_output=True, text=True, timeout=PATIENCE,
                          env=os.environ | servers.web.variables() | places)
    assert done.returncode == 0, done.stderr
    assert re.fullmatch(pattern(expected or ""), done.stdout), done.stdout


def anchors(text):
    """The anchors of a document's headings, as they are made of Markdown."""
    return {re.sub(r"[^\w\- ]", "", title.lower()).replace(" ", "-") for title in re.findall(r"^#+ (.*)$", text, re.M)}


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda document: document.name)
def test_links(document):
    text = document.read_text()
    for target in re.findall(r"\]\((?!https?:)([^)]*)\)", text):
        path, _, anchor = target.partition("#")
        linked = document.parent / path if path else document
        assert linked.exists(), target
        assert not anchor or anchor in anchors(linked.read_text()), target


def section(title):
    """A section of the reference, without those below it."""
    text = (SOURCE / "docs" / "reference.md").read_text()
    return re.search(rf"^#+ {title}\n(.*?)(?=^#|\Z)", text, re.DOTALL | re.MULTILINE)[1]


def rows(title):
    """The tables of a section: cells by each name in a row's first cell."""
    cells = [row.strip("| ").split(" | ") for row in section(title).splitlines() if row.startswith("| `")]
    return {name: rest for first, *rest in cells for name in re.findall(r"`(\w+)`", first)}


CLASSES = {"WMS": ["GetCapabilities", "GetLayers", "GetServiceSection"],
           "WCS": ["GetCapabilities", "GetCoverageOfferingBriefs", "DescribeCoverage", "GetCoverageOffering"]}


@pytest.mark.parametrize("service", CLASSES)
def test_reference_has_the_names_of_the_module(zel, service):
    code = f"""
      local o <close> = zel.new("ZELnetOGC{service}")
      for i = 1, #arg do
        print((select(2, pcall(o[arg[i]], o, {{NO_SUCH = 1}})):match("Accepted keywords: (.*)%.")))
      end
      print(table.concat(zel.methods(o), ", "))
    """
    methods = CLASSES[service]
    *accepted, known = zel(code, "GetProperty", "SetProperty", *methods).out.splitlines()
    properties = {name: kind for name, (kind, *_) in rows("Properties").items()
                  if kind[-3:] not in CLASSES or kind.endswith(service)}
    assert ", ".join(sorted(p for p in properties if "write" not in properties[p])) == accepted[0]
    assert ", ".join(sorted(p for p in properties if "read" not in properties[p])) == accepted[1]
    for method, keywords in zip(methods, accepted[2:]):
        documented = [name for name, (meaning, *_) in rows(method).items()
                      if not meaning.startswith("WMS only") or service == "WMS"]
        assert (", ".join(sorted(documented)) or "none") == keywords, method
    text = (SOURCE / "docs" / "reference.md").read_text()
    for method in known.split(", "):
        assert method in ("INIT", "CLEANUP") or re.search(rf"^### {method}$", text, re.I | re.M), method


@pytest.mark.parametrize("service", CLASSES)
def test_reference_has_the_defaults_of_the_module(zel, service):
    defaults = {name: default for name, (kind, default, _) in rows("Properties").items()
                if "write" not in kind and (kind[-3:] not in CLASSES or kind.endswith(service))}
    out = zel(f"""
      local o <close> = zel.new("ZELnetOGC{service}")
      for i = 1, #arg do print(arg[i], o:GetProperty{{arg[i]}}[arg[i]]) end
    """, *defaults).out
    for name, value in (line.split("\t") for line in out.splitlines()):
        expected = {'""': "", "none": "(0|nil)?", "bundle of the installation": ".*/ca-bundle.crt"}.get(
            defaults[name], defaults[name].replace("store", f".*/user/zel/ogc_user_files_{service.lower()}-100"))
        assert re.fullmatch(expected, value), name


STRUCTURES = {"Layer structure": "wms:GetLayers()", "Service structure of a WMS": "wms:GetServiceSection()",
              "Service structure of a WCS": "wcs:GetServiceSection()", "Brief structure": "wcs:GetCoverageOfferingBriefs()",
              "Coverage offering structure": "wcs:GetCoverageOffering()"}


@pytest.mark.parametrize("title, call", STRUCTURES.items())
def test_reference_has_the_tags_of_the_module(zel, ogc, title, call):
    text = " ".join(re.findall(r"^\| (`.*?) \|", section(title), re.M))
    for kind, tags in re.findall(r"[Aa]n (\w+) is (\{.*?\})", section(title).replace("\n", " ")):
        text = re.sub(rf"\({kind}s?\)", tags, text)
    assert re.findall(r"`(\w+)(?:\[\])?`", text) == zel(f"""
      local function print_tags(value)
        if type(value) ~= "table" then return end
        if #value > 0 then return print_tags(value[1]) end
        for _, tag in ipairs(zel.tags(value)) do print(tag) print_tags(value[tag]) end
      end
      local wms, wcs = zel.new("ZELnetOGCWMS"), zel.new("ZELnetOGCWCS")
      for _, o in ipairs{{wms, wcs}} do o:ParseUrl(arg[1]) o:GetCapabilities() end
      wcs:DescribeCoverage{{NAMES = "earth"}}
      print_tags({call})
    """, ogc.service).out.split()
