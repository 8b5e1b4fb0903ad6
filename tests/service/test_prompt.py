"""The prompt and what helps there: completion, zel.help and zel.show."""

import fcntl
import os
import pty
import select
import shutil
import signal
import struct
import subprocess
import termios

import pytest

from conftest import BUILD, PATIENCE
from mapserver.lighttpd import PASSWORD, USER

def test_completion_runs_no_code_of_scripts(zel):
    """Neither metamethods nor functions in the place of a library's."""
    out = zel("""
      local complete, print, next, all, ran = require "zel.complete", print, next, _G, false
      local function run() ran = true end
      local trap = {__index = run, __pairs = run, __eq = run, __name = "trap", __tostring = run}
      setmetatable(_G, trap)
      local globals = {x = setmetatable({key = setmetatable({inner = 1}, trap)}, trap), wms = zel.new("ZELnetOGCWMS")}
      for _, library in next, {string, table, zel} do
        for name in next, library do library[name] = run end
      end
      for name in next, all do all[name] = run end
      for name, value in next, globals do all[name] = value end
      for _, place in next, {"x.", "x.key.", "wms:GetLayers{", "nothing.", "wms:GetProperty{'", ""} do
        print(place, complete(place, "")[1], ran)
      end
    """).out
    assert out == ("x.\tkey\tfalse\nx.key.\tinner\tfalse\nwms:GetLayers{\tCOUNT\tfalse\nnothing.\tnil\tfalse\n"
                   "wms:GetProperty{'\tAUTHENTICATION\tfalse\n\t_G\tfalse\n")


@pytest.fixture
def prompt(tmp_path):
    """prompt(columns, rows, words=..., **environment): the runner at a terminal of its own; it ends with the test."""
    started = []
    yield lambda *size, **options: started.append(Prompt(tmp_path, *size, **options)) or started[-1]
    for one in started:
        one.process.kill()
        one.process.wait()


class Prompt:
    def __init__(self, user_dir, columns=80, rows=24, words=("zel",), ready="> ", **env):
        self.terminal, terminal = pty.openpty()
        fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))
        self.process = subprocess.Popen([BUILD / words[0], *words[1:]], stdin=terminal, stdout=terminal, stderr=terminal,
                                        start_new_session=True,
                                        preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0),  # Ctrl-C signals
                                        env={name: value for name, value in (os.environ | {
                                            "ZEL_USER_DIR": str(user_dir), "TERM": "dumb"} | env).items() if value})
        os.close(terminal)
        self.greeting = self.type("", ready)

    def type(self, keys, answer="\r\n> "):
        """Types keys and returns what is shown up to the answer."""
        os.write(self.terminal, keys.encode())
        seen = ""
        while answer not in seen:
            assert select.select([self.terminal], [], [], PATIENCE)[0], seen
            seen += os.read(self.terminal, 4096).decode(errors="replace")
        return seen

    def end(self, keys="\x04", status=0):
        os.write(self.terminal, keys.encode())
        assert self.process.wait(PATIENCE) == status


def test_tab_completes_and_history_is_kept(prompt, tmp_path):
    first = prompt()
    assert first.greeting.startswith("zel 1.") and "zel.help()" in first.greeting and "Ctrl-D" in first.greeting
    assert "zel.new(" in first.type('wms = zel.n\t("ZELnetOGCWM\t)\n')
    first.type("wms:SetProperty{URL_PORT = 8080,\n", ">> ")
    first.type('URL_HOSTN\t= "here"}\n')
    assert "here" in first.type('wms:GetProperty{"URL_H\t}.URL_HOSTNAME\n', "\r\nhere\r\n> ")
    beside = prompt()
    beside.type(" secret = 1\nbeside = 1\nbeside = 1\n", "beside = 1\r\n> beside = 1\r\n> ")
    first.type("for i = 7, 7 do\n", ">> ")
    first.type("last = i end\n")
    first.process.send_signal(signal.SIGHUP)
    assert first.process.wait(PATIENCE) == -signal.SIGHUP
    beside.end("os.exit(7)\n", 7)

    again = prompt()
    for keys, answer in (("\x10", "os.exit(7)"), ("\x10", "for i = 7, 7 do"), ("\nlast\n", "\r\n7\r\n> "),  # both of its lines
                         ("\x10" * 5, "beside = 1"), ("\x10", "URL_HOSTNAME"), ("\x01\x0b40 + 2\n", "\r\n42\r\n> ")):
        again.type(keys, answer)
    again.end("quit\n")
    history = tmp_path / "history"
    assert history.stat().st_mode & 0o777 == 0o600 and "secret" not in history.read_text()


def test_history_of_another_kind(prompt, tmp_path):
    """Plain lines are taken as they are, the last thousand of them; a link in the file's place is not followed."""
    (tmp_path / "history").write_text("x = 0\n" * 2000 + "x = 1\nx = 2\n")
    one = prompt()
    one.type("\x10\x10\n")
    one.type("x\n", "\r\n1\r\n> ")
    one.end("exit\n")
    assert (tmp_path / "history").read_text().count("x = 0") < 1000
    (tmp_path / "history").unlink()
    (tmp_path / "other").write_text("kept\n")
    (tmp_path / "history").symlink_to(tmp_path / "other")
    prompt().end(f"io.open('{tmp_path}/made', 'w')\n\x04")
    assert (tmp_path / "made").stat().st_mode == (tmp_path / "other").stat().st_mode
    assert (tmp_path / "other").read_text() == "kept\n"


def test_prompt_without_its_library(prompt, tmp_path):
    shutil.copy(BUILD / "zel", tmp_path)
    prompt(words=(tmp_path / "zel",), ready="module 'zel.prompt' not found").end("", 1)


LOOP = "while true do pcall(function() print('on') while true do end end) end\n"
INTERRUPTED = [("\x03", "on\r\n"), "\x03", "zel.reset() return 42\n"]


@pytest.mark.parametrize("keys, shown, hidden", [
    ([("wms:GetLayers{\n", ">> "), "\x03", "pri\t(6 * 7)\n"], "\r\n42\r\n", "<eof>"),
    (["1\n", ("drop this", "drop this"), "\x03", "3 / 2\n"], "\r\n1.5\r\n", "syntax"),
    ([(LOOP, "\non\r\n"), *INTERRUPTED], "interrupted!\r\n> zel.reset() return 42\r\n42", "traceback"),
    ([(f"f = coroutine.wrap(function() {LOOP.strip()} end) coroutine.wrap(function() while true do pcall(f) end end)()\n",
       "\non\r\n"), *INTERRUPTED], "interrupted!\r\n> zel.reset() return 42\r\n42", "PANIC"),
    (["zel.show(setmetatable({7}, {__len = function() return 1e9 end, __index = function() return 1 end}))\n"],
     "[1]: 7\r\n> ", "[2]"),
    (["error('no')\n"], "zel: prompt:1: no\r\n> ", "traceback"),
    (["function f() error('no') end f()\n"], "stack traceback:", "x = x"),
    (["table.unpack({}, 1, 999980)\n", "6 * 7\n"], "\r\n42\r\n", "PANIC"),
    (["print, require, zel.show = nil\n", "6 * 7, nil\n", "{1, {2}}\n"], "42\tnil\r\n", "table:"),
    (["1, {2}\n"], "\r\n1\r\n[1]: 2\r\n", "table:"),
    (["'a\\27[2J\\155b\\nc'\n"], "\r\na [2J", "\33"),
    (["help\n", "zel.help\n", "help GetMap\n"], "\r\nGetMap\r\n\r\nfile = wms:GetMap(query) ", "function: "),
    (["help = 5\n", "help\n"], "\r\n5\r\n", "Methods"),
    (["\x1b[200~a = 5\nb = 6\na * b\x1b[201~\n"], "\r\n30\r\n", "syntax"),
    (["local x = 1\n"], "x ends with this line", "nil"), (["local x = 1 do local y = x end\n"], "done", "ends with"),
])
def test_statements(prompt, keys, shown, hidden):
    one, text = prompt(), ""
    for key in keys:
        text += one.type(*(key if isinstance(key, tuple) else [key]))
    text += one.type("'done'\n", "\r\ndone\r\n> ")
    assert shown in text and hidden not in text


@pytest.mark.parametrize("columns, rows", [(80, 24), (200, 50)])
def test_tables_are_cut_to_the_screen(prompt, columns, rows):
    one = prompt(columns, rows)
    one.type("t = {} for i = 1, 99 do t[i] = {NAME = 'n' .. i, text = ('word '):rep(30)} end\n")
    lines = one.type("t\n").splitlines()
    used = sum(-(-len(line) // columns) or 1 for line in lines)
    assert used == rows
    assert lines[-2] == "... cut to the screen, 99 entries; zel.show(t) prints all"
    assert "zel.show(value) prints all" in one.type("1, t\n")
    assert one.type("{}, {a = {}}, 5\n").splitlines()[1:-1] == ["{}", "a: {}", "5"]


@pytest.mark.parametrize("environment, colours", [({"TERM": "xterm"}, True), ({"TERM": "dumb"}, False), ({"TERM": None}, False),
                                                  ({"TERM": "xterm", "NO_COLOR": "1"}, False)])
def test_colours(prompt, environment, colours):
    one = prompt(**environment)
    shown = one.type("{key = 1}\n", "> ") + one.type("error('no', 0)\n", "> ")
    assert ("\33[36mkey" in shown) == colours and ("\33[31mzel:" in shown) == colours


def test_refusal_is_shown_in_the_words_of_the_server(prompt, ogc):
    one = prompt(200, OGC_SERVER_URL=ogc.service)
    one.type("wms = zel.new('ZELnetOGCWMS')\n")
    one.type("wms:ParseUrl(os.getenv('OGC_SERVER_URL'))\n")
    query = "LAYERS=nosuch&STYLES=&SRS=EPSG:4326&BBOX=0,0,9,9&WIDTH=64&HEIGHT=32&FORMAT=image/png"
    assert "The server says: msWMSLoadGetMapParams(): WMS server error. Invalid layer(s)" in one.type(f"wms:GetMap('{query}')\n")
    one.type("wcs = zel.new('ZELnetOGCWCS') wcs:ParseUrl(os.getenv('OGC_SERVER_URL'))\n")
    for statement in (f"pcall(wms.GetMap, wms, '{query}') wms:GetProperty{{'URL_PORT'}} error('mine')",
                      "wms:SetProperty{URL_PORT = 1}", "wms:GetMap('x')", "error('other')",
                      "wcs:GetCoverage('COVERAGE=x&CRS=EPSG:4326&BBOX=0,0,9,9&WIDTH=9&HEIGHT=9&FORMAT=GTiff')"):
        assert "says" not in one.type(statement + "\n")


def test_answers_on_a_terminal(prompt, http):
    """The password is asked for without being shown, and control characters of what a server says are left out."""
    (http.root / "caps.xml").write_text('<WMS_Capabilities version="1.3.0"><Capability><Layer queryable="1"><Name>a</Name>'
                                        "<CRS>CRS:84</CRS></Layer></Capability></WMS_Capabilities><!-- \x9b2J -->")
    words = ("zel-ogc", "feature", http.url + "/basic/caps.xml", "a", "1", "2", "--user", USER)
    one = prompt(words=words, ready=f"Password of {USER}: ")
    said = one.type(PASSWORD + "\n", "-->")
    assert PASSWORD not in said and "\x9b" not in said and termios.tcgetattr(one.terminal)[3] & termios.ECHO
    one.end("")


def test_help_fits_the_width(zel):
    """Every section, as wide as the terminal allows; a word longer than that stands alone."""
    code = """
      columns = tonumber(arg[1])
      zel.columns = function() return columns, 24 end
      for _, section in ipairs(require "zel.reference".sections) do zel.help(section.title) end
    """
    for columns, widest in ((40, 40), (200, 100)):
        lines = [line for line in zel(code, columns, env={"TERM": "dumb"}).out.splitlines() if not line.startswith("    ")]
        assert [line for line in lines if len(line) > widest and " " in line.strip()] == []
        assert max(map(len, lines)) > widest - 10
