"""The runner: its command line, the script library, and calls between scripts and a small native module."""

import os
import re
import signal
import subprocess

import pytest

from conftest import BUILD, PATIENCE
from lua_json import JSON

MODULE = BUILD / "tests" / "sample_module.so"
SETUP = f"zel.load('{MODULE}')\nlocal o = zel.new('Sample')\n"


@pytest.mark.parametrize("words, status, out, err", [
    (["--help"], 0, "Usage: zel", ""), (["--version"], 0, "zel 1.", ""), (["-"], 0, "piped", ""), ([], 0, "piped", ""),
    (["-m", "zel_ogc.so", "-e", "x = 1", "-e", "print(x, arg[0], arg[1])", "-", "a", "-m"], 0, "1\t-\ta\npiped", ""),
    (["-e", "print(zel.new('zelnetogcwms'))", "--", "/dev/stdin"], 0, "ZELNETOGCWMS object\npiped", ""),
    (["-m", MODULE, "-e", "print(zel.new('sample'))", "-m", MODULE], 0, "SAMPLE object", ""),
    (["-e", "error('boom')"], 1, "", "zel: (command line):1: boom\nstack traceback:"),
    (["-e", "error({})"], 1, "", "(error object is a table value)"), (["-e", "x ="], 1, "", "unexpected symbol near <eof>"),
    (["-e", "pcall(os.exit, 3)"], 3, "", ""), (["-m", "nosuch", "-e", ""], 1, "", 'Module "nosuch" was not found in'),
    (["-x"], 2, "", "unknown option -x"), (["-e"], 2, "", "option -e needs code"), (["/"], 2, "", "cannot read /"),
    (["nosuch.lua"], 2, "", "cannot open nosuch.lua: No such file"),
])
def test_command_line(words, status, out, err):
    done = subprocess.run([BUILD / "zel", *words], input="print('piped')", text=True, capture_output=True, timeout=PATIENCE)
    assert done.returncode == status, done.stderr
    assert out in done.stdout and err in done.stderr and ("piped" in done.stdout) == ("piped" in out)


def test_digests(zel):
    """FIPS 180-4's own examples; a file is read from where it stands, and what cannot be read has none."""
    abc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"
    assert zel("""local file <close> = io.tmpfile()
      file:write("-abc") file:seek("set", 1)
      print(zel.digest("abc"), zel.digest(file), zel.digest(file), (pcall(zel.digest, io.open("/"))))
      file:close()
      print(zel.columns(file), select(2, pcall(zel.digest, file)):match("is closed"))""").out.split() == [
        abc, abc, "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855", "false", "nil", "is", "closed"]


def test_fifo_as_script(zel, tmp_path):
    """It can be opened only once."""
    os.mkfifo(tmp_path / "fifo")
    assert zel(tmp_path / "fifo", wrap=["sh", "-c", 'echo "print(6 * 7)" > fifo & exec "$@"', "sh"]).out == "42\n"


@pytest.mark.parametrize("value, expected", [
    ("7", "7"), ("2^53", "9007199254740992"), ("2.5", "2.5"), ("1e300", "1e+300"), ("true", "1"), ("'ä'", '"ä"'), ("''", '""'),
    ("zel.undefined", "null"), ("{1, 2.5}", "[1.0,2.5]"), ("{'a', ''}", '["a",""]'), ("{true, 3}", "[1,3]"),
    ("{b = 1, a = {X = 'q', y = {1, 2}}}", '{"A":{"X":"q","Y":[1,2]},"B":1}'), ("{{k = 1}, {k = 2}}", '[{"K":1},{"K":2}]'),
    ("(function() local t = 1 for i = 1, 33 do t = {A = t} end return t end)()", '{"A":' * 33 + "1" + "}" * 33),
    ("setmetatable({b = 1, a = 2}, {tags = 'x'})", '{"A":2,"B":1}'),
    ("setmetatable({b = 1, a = 2}, {tags = {'B', 5, {}}})", '{"A":2,"B":1}'),
])
def test_values_come_back_as_they_went(zel, value, expected):
    assert zel(JSON + SETUP + f"print(json(o:Echo({value}, {{}})))", no_leak=True).out == expected + "\n"


@pytest.mark.parametrize("value, why", [
    ("{}", "an empty table cannot be passed"), ("{1, 'a'}", "element 2 differs in type"),
    ("{{1}, {2}}", "element 1 is a list itself"), ("{1, x = 2}", "either a list without holes or have names only"),
    ("{[1] = 1, [3] = 3}", "either a list without holes"), ("print", "a function cannot be passed"),
    ("nil", "it is nil"), ("'a\\0b'", "a text with a zero byte"), ("{['a b'] = 1}", "cannot be the name of a tag"),
    ("{{a = 1}, {b = 1}}", "element 2 differs in type"), ("{a = 1, A = 2}", "the name A appears twice"),
    ("(function() local t = {} t.t = t return t end)()", "nested too deeply"),
    ("(function() local t = {1} for i = 1, 24 do t = {A = t, B = t} end return t end)()", "hold more than 5000000 elements"),
    ("{['a\\0b'] = 1}", '"A?B" cannot be the name of a tag'),
])
def test_values_that_cannot_be_passed(zel, value, why):
    out = zel(SETUP + f"print(select(2, pcall(function() o:Echo({value}, {{}}) end)))", no_leak=True).out
    assert "script.lua:" in out and "SAMPLE::ECHO: argument 1: " in out and why in out


@pytest.mark.parametrize("call, why", [
    ("o:Echo()", "SAMPLE::ECHO: Incorrect number of arguments: 1 wanted besides the object, 0 given."),
    ("o:Call()", "SAMPLE::CALL: Incorrect number of arguments: 1 to 2 wanted besides the object, 0 given."),
    ("o:Call('f', {X = 1})", "SAMPLE::CALL: Keyword X is not allowed: the routine takes no keywords."),
    ("o:Echo(1, {X = 1})", "Keyword X is not allowed. Accepted keywords: COUNT, FAIL, NUMBER, TEXT, WATCH_FUNCTION."),
    ("o:Echo(1, {TEXT = 1, text = 2})", "SAMPLE::ECHO: Keyword TEXT is given twice."),
    ("o:Echo(1, {'TEXT'})", "SAMPLE::ECHO: Keyword TEXT is an input: give it a value."),
    ("o:Echo(1, {COUNT = 1})", "SAMPLE::ECHO: Keyword COUNT is an output"),
    ("o:Echo(1, {['text\\0x'] = 1})", "SAMPLE::ECHO: a keyword cannot have a zero byte."),
    ("o['Echo\\0x'](o)", "a name cannot have a zero byte"), ("zel.new('Sample\\0x')", "a name cannot have a zero byte"),
    ("o:Echo(1, {5})", "SAMPLE::ECHO: the table of keywords holds a number without a keyword"),
    ("o:Echo(1, {NUMBER = {'1', 'abc'}})", 'SAMPLE::ECHO: keyword NUMBER: Unable to read the text "abc" as a number.'),
    ("o:Nosuch()", 'SAMPLE has no method "Nosuch"; it has CALL, '),
    ("o.Echo(5)", "SAMPLE::ECHO: a method is called with its object"),
    ("o:Fault(1)", "SAMPLE::FAULT: The module failed: out of luck."),
    ("o:Fault(2)", "SAMPLE::FAULT: The module failed: unknown exception."),
    ("o:Fault(3)", "SAMPLE::FAULT: Sample:  "),
    ("zel.new('Nosuch')", 'There is no object class "Nosuch", only ZELnetOGCWCS, ZELnetOGCWMS, SAMPLE, '),
    ("zel.new({})", "bad argument #1 to 'new'"), ("zel.new('Sample', 5)", "bad argument #2 to 'new'"),
    ("zel.new('Sample', {[1.5] = 2})", "SAMPLE::INIT: the table of keywords holds"),
    ("zel.new('Sample', {NOPE = 1})", "SAMPLE::INIT: Keyword NOPE is not allowed."),
    ("zel.new('Sample', {'COUNT', FAIL = {}})", "SAMPLE::INIT: keyword FAIL: an empty table cannot be passed."),
])
def test_call_errors_name_routine_and_place(zel, call, why):
    out = zel(SETUP + f"print(select(2, pcall(function()\n {call} end)))", no_leak=True).out
    assert "script.lua:" in out and why in out


def test_keywords_and_results(zel):
    out = zel(JSON + SETUP + """
      local value, outputs = o:eCHO({1, 2, 3}, {'count', TEXT = 8080})
      print(value, outputs.COUNT)
      print(o:Echo(1, {NUMBER = '  12'}), select('#', o:Echo(1)), select('#', o:Configure{}))
      print(json(o:Configure{'COUNT'}.COUNT), o:Echo(o) == o)
    """, no_leak=True).out
    assert out == ("                  8080\t3\n12\t1\t0\n"
                   '[{"BYTE":255,"INT":-1,"UINT":65535,"LONG":-1,"ULONG":4294967295,"LONG64":-1,"ULONG64":1.844674407371e+19}]\ttrue\n')


def test_objects_live_and_die(zel):
    done = zel(SETUP + """
      local none, why = zel.new('SampleDerived', {FAIL = 'no luck'})
      print(none, why)
      do local d <close> = zel.new('SampleDerived') print(d, d:Echo('inherited'), d:Fault{}, #zel.methods(d) == #zel.methods(o)) end
      print(zel.counts().objects)
      o:Close() o:close()
      print(o, pcall(o.Echo, o, 1))
      for i = 1, 10 do zel.new('Sample') end
    """, no_leak=True)
    assert done.out == ("nil\tSAMPLE::INIT: no luck\nSAMPLEDERIVED object\tinherited\t1\ttrue\n1\n"
                        "SAMPLE object (closed)\tfalse\tSAMPLE::ECHO: the object is closed.\n")
    assert "no luck" not in done.err and done.err.count("SAMPLE::INIT: hello\n") == 12
    assert done.err.count("SAMPLEDERIVED::FAULT: hello\n") == 1


@pytest.mark.parametrize("body, answer", [
    ("", "1"), ("return nil", "1"), ("return false", "0"), ("return true", "1"), ("return 65536", "0"),
    ("return -3", "-3"), ("return 2.9", "2"), ("return coroutine.wrap(function() return 4 end)()", "4"),
])
def test_status_routine_answers(zel, body, answer):
    assert zel(SETUP + f"function f() {body} end print(o:Call('f'))", no_leak=True).out == answer + "\n"


def test_status_routine_errors_arrive_as_they_were_raised(zel):
    out = zel(SETUP + """
      local fault = setmetatable({}, {})
      function table_error() error(fault) end
      function text_error() error('boom') end
      function nested() return o:Call('text_error') end
      function yields() coroutine.yield() end
      function wrong()
        return {} end
      print(select(2, pcall(o.Call, o, 'table_error')) == fault)
      for _, name in ipairs{'text_error', 'nested', 'nosuch', 'wrong'} do print(select(2, pcall(function() o:Call(name) end))) end
      print(select(2, pcall(coroutine.wrap(function() o:Call('yields') end))))
      nested = nil
    """, no_leak=True).out.splitlines()
    assert out[0] == "true"
    assert out[1] == out[2] and out[1].endswith(": boom") and out[1].count(":") == 2
    assert out[3].endswith('SAMPLE::CALL: There is no global function "nosuch" to call.') and "script.lua:" in out[3]
    assert re.search(r"The function at \S+script.lua:9 returned a table", out[4]) and "yield across" in out[5]


def test_function_values_as_routines(zel):
    out = zel(SETUP + """
      local kept = setmetatable({}, {__mode = 'v'})
      do
        local d = zel.new('Sample')
        kept.object = d
        kept.first = function(text) print('first', text, d) end
        d:Configure{WATCH_FUNCTION = kept.first, TEXT = ''}
        d:Configure{WATCH_FUNCTION = function() print('second') end, TEXT = ''}
        collectgarbage()
        print(kept.first)
        pcall(d.Configure, d, {WATCH_FUNCTION = function() end, NOPE = 1})
        d:Configure{TEXT = ''}
      end
      collectgarbage() collectgarbage()
      print(kept.object)
      print(select(2, pcall(o.Configure, o, {TEXT = ''})))
      kept.last = function() end
      o:Configure{WATCH_FUNCTION = kept.last}
      o:close()
      collectgarbage()
      print(kept.last)
    """, no_leak=True).out.splitlines()
    assert out[:4] == ["first\tworking\tSAMPLE object", "second", "nil", "second"]
    assert out[4] == out[6] == "nil" and "There is no global function" in out[5]


def test_an_object_dropped_while_its_method_runs(zel):
    out = zel(SETUP + """
      function drop() o = nil collectgarbage() collectgarbage() return 5 end
      local count = zel.counts().objects
      print(o:Call('drop'), zel.counts().objects == count)
      local p <close> = zel.new('Sample')
      function shut() p:close() return zel.counts().objects end
      print(p:Echo('usable'), p:Call('shut') - zel.counts().objects)
    """, no_leak=True).out
    assert out == "5\ttrue\nusable\t1\n"


COROUTINE = "local f = function() os.exit(7) end pcall(function() {} end) while true do end"


@pytest.mark.parametrize("body, status", [
    ("os.exit(7)", 7), ("pcall(os.exit, true)", 0), ("os.exit(false, true) --closes", 1), (COROUTINE.format("coroutine.wrap(f)()"), 7),
    (COROUTINE.format("coroutine.resume(coroutine.create(f))"), 7),
    (COROUTINE.format("pcall(coroutine.wrap(function() pcall(coroutine.wrap(f)) while true do end end))"), 7)])
def test_exit_below_native_code_unwinds_first(zel, body, status):
    done = zel(SETUP + f"""
      closing = setmetatable({{}}, {{__gc = function() print("closes") end}})
      function stop() {body}
      end
      function outer() pcall(o.Call, o, 'stop') print('not reached') end
      coroutine.wrap(function() pcall(o.Call, o, 'outer') print('not reached') end)()
      print('not reached')
    """, ok=False)
    assert (done.status, done.out) == (status, "closes\n" * ("closes" in body)) and "traceback" not in done.err


def test_session_reset_and_leaks(zel):
    assert zel(SETUP + "zel.reset() o:Leak() print(zel.counts().leaked, zel.counts().temporaries)").out == "1\t0\n"


@pytest.mark.parametrize("code", ["ready() while true do end", "function f() ready() while true do end end o:Call('f')",
                                  "pcall(function() ready() while true do end end) error('caught')",
                                  "coroutine.wrap(function() coroutine.wrap(ready)() while true do end end)()",
                                  "ready() repeat until zel.is_file('go on') error('ignored')"])
def test_interrupt(zel_running, tmp_path, code):
    """Where it is not ignored, as it is by jobs in the background."""
    run = zel_running(SETUP + "function ready() print('ready') io.stdout:flush() end\n" + code,
                      preexec_fn=lambda: "ignored" in code and signal.signal(signal.SIGINT, signal.SIG_IGN))
    assert run.stdout.readline() == "ready\n"
    run.send_signal(signal.SIGINT)
    (tmp_path / "go on").touch()
    _, err = run.communicate(timeout=PATIENCE)
    assert run.returncode == 1 and (re.findall("caught|ignored", code) + ["interrupted!"])[0] in err


def test_tables_stay_as_they_are_while_they_are_read(zel):
    """No finalizer changes them; many names are looked up; a host's order of tags survives a change of the table."""
    out = zel(SETUP + """
      local names = {}
      for i = 1, 16000 do names['N' .. i] = i end
      local wide = o:Echo(names, {})
      names = {A = 1, TEXT = 'x'}
      for i = 1, 400 do
        names['B' .. i] = i
        setmetatable({}, {__gc = function() names.A = nil names.TEXT = {} end})
        o:Echo(names, {})
        names.A, names.TEXT = 1, 'x'
      end
      local two = o:Echo({TAG1 = 'x', TAG5 = 'x', TAG6 = 'x'}, {})
      two.TAG5, two.AA = nil, 1
      local tags = zel.tags(o:Echo(two, {}))
      for _, v in pairs(debug.getmetatable(two)) do
        if type(v) == 'table' then v[1] = false end
      end
      o:Echo(two, {})
      print(wide.N16000, table.concat(tags, ','), pcall(zel.tags, setmetatable({}, {tags = {'A'}})))
    """, no_leak=True).out
    assert out.startswith("16000\tTAG1,TAG6,AA\tfalse\tbad argument #1") and "host made" in out
