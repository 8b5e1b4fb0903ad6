--- Reads a service: asks for its capabilities in the highest version that both sides know.

local errors = require "zel.ogc.errors"
local document = require "zel.harvest.document"
local outcome = require "zel.harvest.outcome"
local rows = require "zel.harvest.rows"
local secrets = require "zel.ogc.secrets"
local service = require "zel.ogc.service"

local LARGEST = 256000000 -- bytes of a document; the largest that are known have 75 million
local PATIENCE = 2 -- seconds that are no waiting
-- Reports without a byte of a document: some ten for each redirect, and while a server is slow a few a second.
local MOST_EMPTY, MOST_EMPTY_A_SECOND = 200, 10
local CLASSES = {WMS = "ZELnetOGCWMS", WCS = "ZELnetOGCWCS"}
local VERSIONS = {WMS = {"1.3.0", "1.1.1", "1.1.0"}, WCS = {"1.0.0"}} -- the highest first
local ROOTS = {WMS = {WMS_Capabilities = true, WMT_MS_Capabilities = true}, WCS = {WCS_Capabilities = true}}

-- Whether another version may do better: the server answered, with a refusal or in a version that is not known here.
local function is_about_version(tried)
  return tried.result == "refused" or tried.words:find("version number", 1, true) ~= nil
end

local function escaped(text)
  return (text:gsub("[^%w%-._~]", function(c) return ("%%%02X"):format(c:byte()) end))
end

local Request = {}
Request.__index = Request

function Request:__close() self.object:close() end

-- Why a request is to be ended while it runs; nil when it is not.
function Request:fault(progress, seconds)
  if progress[3] > LARGEST then return ("the document is larger than %d MB"):format(LARGEST // 1000000) end
  self.empty = progress[3] == 0 and self.empty + progress[1] or 0 -- a line of the trace adds nothing
  if self.empty <= MOST_EMPTY + MOST_EMPTY_A_SECOND * seconds then return nil end
  self.empty = 0
  local header = self.object:GetProperty{"RESPONSE_HEADER"}.RESPONSE_HEADER
  return header:find("^HTTP/%S+ 3") and "the server redirects again and again" or nil
end

-- A new object for every service, so that nothing of another one is left in it.
local function open(entry, settings)
  local request = setmetatable({entry = entry, options = settings.options, began = zel.clock()}, Request)
  local properties = {}
  for name, value in pairs(settings.properties) do properties[name] = value end
  local status = properties.CALLBACK_FUNCTION
  properties.CAPABILITIES_FILENAME = settings.file
  properties.CALLBACK_FUNCTION = function(text, progress)
    if type(status) == "function" then status(text, progress) end
    local seconds = zel.clock() - request.began
    if seconds > PATIENCE then settings.waiting(entry, entry.host, seconds) end
    request.ended = request.ended or request:fault(progress, seconds)
    return not request.ended
  end
  request.object = assert(zel.new(CLASSES[entry.kind], properties))
  service.set_url(request.object, entry.url)
  request.suffix = request.object:GetProperty{"URL_QUERY_SUFFIX"}.URL_QUERY_SUFFIX
  return request
end

-- Asks once. Returns an outcome when that fails.
function Request:ask(version, sequence)
  if self.asked and self.options.pause > 0 then zel.sleep(self.options.pause) end
  self.asked, self.version, self.empty = true, version, 0
  local object, changed = self.object, {}
  if self.entry.kind == "WMS" then changed.WMS_VERSION = version end
  changed.URL_QUERY_SUFFIX = self.suffix .. (sequence and "&UPDATESEQUENCE=" .. escaped(sequence) or "")
  object:SetProperty(changed)
  local inheritance = self.entry.kind == "WMS" and {DISABLE_INHERITANCE = 1} or {}
  local done, why = pcall(object.GetCapabilities, object, inheritance)
  if done then return end
  if self.ended then return outcome.failed(self.ended) end
  return outcome.of_failure(self, why)
end

function Request:versions()
  local asked = self.entry.kind == "WMS" and self.options.version
  return asked and {asked} or VERSIONS[self.entry.kind]
end

-- Asks for what is newer than what is known, or in one version after the other.
function Request:ask_versions(known)
  if known.update_sequence then
    local tried = self:ask(known.version, known.update_sequence)
    if not tried or tried.result ~= "refused" then return tried end
    if tried.code == "CurrentUpdateSequence" then return {result = "unchanged", again = false} end
  end
  local tried
  for _, version in ipairs(self:versions()) do
    tried = self:ask(version)
    if not tried or not is_about_version(tried) then return tried end
  end
  return tried
end

-- What came: compared with what is known, and made into rows when it is new.
function Request:take(known, file, settings)
  local name, sequence, size = document.describe(file)
  if name and not ROOTS[self.entry.kind][name] then
    return outcome.failed(('the answer is a document "%s", not the capabilities of a %s'):format(name, self.entry.kind))
  end
  file:seek("set")
  local hash = zel.digest(file)
  if known.harvested and (hash == known.document_hash or sequence and sequence == known.update_sequence) then
    return {result = "unchanged", again = false}
  end
  local facts = {version = self.version, update_sequence = sequence, document_hash = hash, bytes = size,
                 harvested = settings.now()}
  local statements = rows.of(self.object, known, facts, settings.lists)
  if self.entry.public:find(secrets.HIDDEN, 1, true) then -- documents repeat the URL by which they were asked for
    for i, statement in ipairs(statements) do statements[i] = secrets.hidden(statement) end
  end
  return {result = known.harvested and "changed" or "new", again = false, version = facts.version}, statements
end

-- Raises again what is to end the run, and makes an outcome of what concerns this service alone.
local function failed(why, settings)
  local words = tostring(why)
  if words:find("interrupted!", 1, true) or words:find("Cancel request detected", 1, true) then error(why, 0) end
  return outcome.failed(errors.is(why) and why.message or service.told(settings, words))
end

--- Reads the service of an entry. `known` is its row in the database; `settings` has file (where documents go),
-- options (of zel.ogc), properties (of the object), now() (the time as it is stored), lists (of systems that are
-- stored), waiting(entry, host, seconds), which is called while a server is slow. Returns the outcome, and the
-- statements that store what is new. An outcome with `again` has `wait`, the seconds until then.
return function(entry, known, settings)
  local opened, result = pcall(open, entry, settings)
  if not opened then return failed(result, settings) end
  local request <close> = result
  local tried, statements = request:ask_versions(known), nil
  local path = request.object:GetProperty{"LAST_FILE"}.LAST_FILE
  local file <close> = path ~= "" and io.open(path, "rb") or nil
  local size = file and file:seek("end") or 0
  if not tried then
    file:seek("set")
    local done, first, second = pcall(request.take, request, known, file, settings)
    if done then tried, statements = first, second else tried = failed(first, settings) end
  end
  if tried.again then tried.wait = service.pause_after(request.object, entry.tries + 1) end
  tried.version, tried.bytes = tried.version or request.version, size
  if path ~= "" then os.remove(path) end
  return tried, statements
end
