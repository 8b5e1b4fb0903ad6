--- What a service is opened with: the user's defaults, and over them what the script gives.

local arguments = require "zel.ogc.arguments"
local config = require "zel.ogc.config"
local errors = require "zel.ogc.errors"

local options = {}

options.LONGEST_TIMEOUT = 32767 -- seconds; the properties have 16 bits

-- Options of the library, and the properties that some of them set.
local TYPES = {
  version = "string", retries = "number", pause = "number", quiet = "boolean", verbose = "boolean",
  user = "string", password = "string", proxy = "string", ca = "string", timeout = "number",
  connect_timeout = "number", status = "function|string",
}
local PROPERTIES = {
  user = "USERNAME", password = "PASSWORD", ca = "SSL_CERTIFICATE_FILE", timeout = "TIMEOUT",
  connect_timeout = "CONNECT_TIMEOUT", status = "CALLBACK_FUNCTION",
}
local OPTIONS = {} -- by the properties that they set
for option, property in pairs(PROPERTIES) do OPTIONS[property] = option end
local DEFAULTS = {retries = 3, pause = 0}

-- Checks the options; names in capitals are properties of the objects, which judge them.
local function check(call, given)
  local own = {}
  for name, value in pairs(given) do
    if type(name) ~= "string" or not name:find("^[A-Z][A-Z_]*$") then own[name] = value end
  end
  arguments.check(call, own, TYPES)
  for _, name in ipairs{"retries", "pause"} do
    if own[name] and not (own[name] >= 0 and own[name] < math.huge) then
      errors.raise(("%s: %s = %s is not a number from 0 on"):format(call, name, own[name]))
    end
  end
  for _, name in ipairs{"timeout", "connect_timeout"} do
    if own[name] and not (own[name] > 0 and own[name] <= options.LONGEST_TIMEOUT) then
      errors.raise(("%s: %s = %s is not a number of seconds above 0, at most %d"):format(call, name, own[name],
                                                                                     options.LONGEST_TIMEOUT))
    end
  end
end

-- [http://][user[:password]@]host[:port] as properties.
local function proxy_properties(text)
  local rest = text:gsub("^http://", ""):gsub("/$", "")
  local credentials, place = rest:match("^(.*)@(.-)$")
  local host, port = (place or rest):match("^([^:/]+):?(%d*)$")
  if not host then errors.raise(('"%s" is no proxy: give http://host:port'):format(text)) end
  local user, password = (credentials or ""):match("^([^:]*):?(.*)$")
  return {PROXY_HOSTNAME = host, PROXY_PORT = port ~= "" and port or nil, PROXY_USERNAME = user ~= "" and user or nil,
          PROXY_PASSWORD = password ~= "" and password or nil}
end

--- The options of a new service: those given, else the user's defaults, else those of `usual`, else the library's.
-- proxy_file is the file that gives its proxy, nil when the script does.
function options.merge(call, given, usual)
  given = given or {}
  if type(given) ~= "table" then errors.raise(call .. " wants a table of options") end
  local defaults, path = config()
  check(path, defaults)
  check(call, given)
  local merged = {}
  for _, source in ipairs{DEFAULTS, usual or {}, defaults, given} do
    for name, value in pairs(source) do
      merged[name] = value
      merged[PROPERTIES[name] or OPTIONS[name] or ""] = nil -- the other name of the same
    end
  end
  merged.proxy_file = not given.proxy and defaults.proxy and path or nil
  return merged
end

--- The properties of the object that the options ask for.
function options.properties(merged)
  local properties = {VERBOSE = merged.verbose and 1 or nil}
  if not merged.status and not merged.quiet and zel.columns(io.stderr) then
    properties.CALLBACK_FUNCTION = require "zel.progress"
  end
  for name, value in pairs(merged.proxy and proxy_properties(merged.proxy) or {}) do properties[name] = value end
  for name, value in pairs(merged) do
    local property = PROPERTIES[name] or name:find("^[A-Z]") and name
    if property then properties[property] = value end
  end
  return properties
end

return options
