--- The user's defaults: ~/.config/zel/ogc.lua (below XDG_CONFIG_HOME, if that is set) returns a table of options.
--
-- The file can use os.getenv and those functions of Lua that compute, and nothing that reads, writes or runs.

local errors = require "zel.ogc.errors"

local function path()
  local base = os.getenv("XDG_CONFIG_HOME")
  if not base or base:sub(1, 1) ~= "/" then base = (os.getenv("HOME") or "") .. "/.config" end
  return base .. "/zel/ogc.lua"
end

local function copy(library)
  local copied = {}
  for name, value in pairs(library) do copied[name] = value end
  return copied
end

local function surroundings()
  return {string = copy(string), table = copy(table), math = copy(math), tonumber = tonumber, tostring = tostring,
          pairs = pairs, ipairs = ipairs, os = {getenv = os.getenv}}
end

--- Returns the table, an empty one without a file, and the path.
return function()
  local where = path()
  local is_file = zel.is_file(where)
  if is_file == nil then return {}, where end
  if not is_file then errors.raise("your defaults cannot be read: " .. where .. " is no regular file") end
  local chunk, why = loadfile(where, "t", surroundings())
  if not chunk then errors.raise("your defaults cannot be read: " .. why) end
  local done, options = pcall(chunk)
  if not done then errors.raise("your defaults cannot be read: " .. tostring(options)) end
  if type(options) ~= "table" then errors.raise("your defaults, " .. where .. ", must return a table") end
  return options, where
end
