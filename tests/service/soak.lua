-- zel soak.lua ROUNDS PORT TLS_PORT: requests, parses, failures, cancels and resets in one process. What the process
-- holds after the first hundred rounds it may hold in the end: resident size within 2 MiB, everything else exactly.
local rounds, port, tls_port = tonumber(arg[1]), arg[2], arg[3]
local SETTLED, LIMIT = 100, 2048

local function server(class, path, more)
  local o = assert(zel.new(class, {URL_HOSTNAME = "localhost", URL_PORT = port, URL_PATH = path,
                                   URL_QUERY_PREFIX = "map=earth"}))
  o:SetProperty(more or {})
  return o
end

local wms, wcs = server("ZELnetOGCWMS", "cgi-bin/mapserv"), server("ZELnetOGCWCS", "cgi-bin/mapserv")
local static = server("ZELnetOGCWMS", "hello.txt", {FEATURE_INFO_FILENAME = "static", MAP_FILENAME = "static"})
local MAP = "LAYERS=%s&STYLES=&SRS=EPSG:4326&BBOX=-180,-90,180,90&WIDTH=16&HEIGHT=8&FORMAT=image/png"
local COVERAGE = "COVERAGE=relief&CRS=EPSG:4326&BBOX=-180,-90,180,90&WIDTH=16&HEIGHT=8&FORMAT=GTiff"

local function fails(said, f, ...)
  local ok, why = pcall(f, ...)
  if ok or not tostring(why):find(said, 1, true) then error(("expected %q, got %s"):format(said, why), 2) end
end

local function with_routine(routine)
  static:SetProperty{CALLBACK_FUNCTION = routine, CALLBACK_DATA = {LIST = {1, 2, 3}, TEXT = "x"}}
end

local function begins(name, bytes)
  local file <close> = io.open(name)
  assert(file:read(#bytes) == bytes, name)
end
local function fetch_static() begins(static:GetFeatureInfo("X=1&Y=1"), "hello\n") end

local function write(name, text)
  local file <close> = io.open(name, "w")
  file:write(text)
end
write("small.dtd", [[<!ELEMENT WMT_MS_Capabilities (Layer)> <!ELEMENT Layer EMPTY>
<!ATTLIST WMT_MS_Capabilities version CDATA "1.1.1">]])
write("small.xml", [[<!DOCTYPE WMT_MS_Capabilities SYSTEM "small.dtd">
<WMT_MS_Capabilities><Layer/></WMT_MS_Capabilities>]])
write("broken.xml", '<WMT_MS_Capabilities version="1.1.1"><Service><Name>x</Name></Service><Capability><Layer>')

assert(wms:GetCapabilities() > 0)
for text in io.lines(wms:GetProperty{"LAST_FILE"}.LAST_FILE, "a") do write("caps.xml", text) break end

-- Every fourth round asks the map server, the others need only the web server or files.
local served = {
  function() assert(wms:GetCapabilities() == #wms:GetLayers()) end,
  function()
    local names, out = wcs:DescribeCoverage{NAMES = {"earth", "relief"}, "COUNT"}
    assert(out.COUNT == 2 and #names == 2 and wcs:GetCoverageOffering{INDEX = 1}[1].CO_NAME == "relief")
  end,
  function() begins(wms:GetMap(MAP:format("earth")), "\x89PNG") end,
  function() fails("Recieved an XML file instead of a Map", wms.GetMap, wms, MAP:format("nonsense")) end,
  function() fails("service exception", wcs.GetCoverage, wcs, "COVERAGE=nonsense") end,
  function() begins(wcs:GetCoverage(COVERAGE), "II") end,
}
local light = {
  fetch_static,
  function()
    assert(wms:GetCapabilities{FROM_FILE = "small.xml", VALIDATION_MODE = 1} == 1)
    assert(wms:GetCapabilities{FROM_FILE = "caps.xml"} == #wms:GetLayers() and wms:GetServiceSection()[1].TITLE ~= "")
  end,
  function() static:SetProperty{URL_PATH = "missing"} fails("404", static.GetMap, static, "a=b")
             static:SetProperty{URL_PATH = "hello.txt"} end,
  function() fails("Fatal Error", wms.GetCapabilities, wms, {FROM_FILE = "broken.xml"}) end,
  function() with_routine(function() return 0 end) fails("Operation canceled", fetch_static) with_routine("") end,
  function() with_routine(function() error("my words") end) fails("my words", fetch_static) with_routine("") end,
  function()
    local one <close> = server("ZELnetOGCWCS", "hello.txt", {CALLBACK_DATA = {1, 2}, HEADERS = {"A: b", "C: d"}})
    assert(not zel.new("ZELnetOGCWMS", {ENCODE = 4}))
    assert(one:Init() == 1)
  end,
  function()
    zel.reset()
    static:SetProperty{URL_SCHEME = "https", URL_PORT = tls_port, SSL_VERIFY_PEER = 0, VERBOSE = 1}
    with_routine(function(_, _, data) data.LIST = nil end)
    fetch_static()
    with_routine("")
    static:SetProperty{URL_SCHEME = "http", URL_PORT = port, VERBOSE = 0}
  end,
}

-- What the host could keep for ever: a name for each function, a definition for each shape of a value or result.
local function churn(round)
  for i = 1, 20 do
    with_routine(function() return i end)
    local shape = {["ROUND" .. round] = i, NESTED = {["STEP" .. i] = {i, round}}}
    static:SetProperty{CALLBACK_DATA = shape}
    assert(static:GetProperty{"CALLBACK_DATA"}.CALLBACK_DATA["ROUND" .. round] == i)
  end
  with_routine("")
end

local pid = io.open("/proc/self/stat"):read("n")

local function holds()
  zel.reset() -- connections that may or may not be kept
  collectgarbage()
  collectgarbage()
  local now = {}
  for name, count in pairs(zel.counts()) do now[name] = count end
  for name, command in pairs{resident = ("sed -n 's/^VmRSS:\\s*\\([0-9]*\\).*/\\1/p' /proc/%d/status"):format(pid),
                             files = 'find . "$ZEL_USER_DIR" -type f | wc -l'} do
    local output <close> = io.popen(command)
    now[name] = output:read("n")
  end
  -- as a status: a pipe would be one more
  now.descriptors = select(3, os.execute(("exit $(ls /proc/%d/fd | wc -l)"):format(pid)))
  return now
end

local names = {"resident", "descriptors", "files", "temporaries", "heap", "objects", "leaked"}
local row = "%8s %12s %12s %8s %12s %6s %8s %7s"
print(row:format("round", "resident kB", table.unpack(names, 2)))
io.stdout:setvbuf("line")
local settled, drifted
for round = 1, rounds do
  local steps = round % 4 == 0 and served or light
  local step = (round % 4 == 0 and round // 4 or round - round // 4) % #steps + 1
  local ok, why = xpcall(function() steps[step]() churn(round) end, debug.traceback)
  if not ok then error(("round %d, step %d: %s"):format(round, step, why), 0) end
  if round == rounds or round % math.max(SETTLED, rounds // 20) == 0 or round == SETTLED then
    local now, cells = holds(), {}
    for i, name in ipairs(names) do cells[i] = now[name] end
    print(row:format(round, table.unpack(cells)))
    settled = settled or now
    for _, name in ipairs(names) do
      local more = now[name] - settled[name]
      if more > (name == "resident" and tonumber(arg[4] or LIMIT) or 0) then
        drifted = ("%s drifted from %d to %d"):format(name, settled[name], now[name])
      end
    end
  end
end
assert(not drifted, drifted)
