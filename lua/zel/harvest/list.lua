--- The list of services to harvest: a URL a line, optionally followed by its kind, "#" begins a comment.
--
-- A service has one URL, however a list writes it: host in small letters, the port only when it is not the usual one,
-- without parameters that every request has, without a "?" or "&" at its end.

local errors = require "zel.ogc.errors"
local files = require "zel.ogc.files"
local printable = require "zel.ogc.printable"
local secrets = require "zel.ogc.secrets"
local service = require "zel.ogc.service"

local KINDS = {wms = "WMS", wcs = "WCS"}
local PORTS = {http = ":80", https = ":443"}
local OWN = {service = true, request = true, version = true} -- parameters of every request
local MOST_COMPLAINTS = 20

-- The URL as it may be stored and shown; its host, whose other ports are the same machine; and what it has in common
-- with URLs that say the same in another order.
local function public(url)
  local scheme, place, path, query = url:gsub("#.*$", ""):match("^(%a+)://([^/?]*)([^?]*)%??(.*)$")
  scheme, place = scheme:lower(), place:gsub("^.*@", ""):lower()
  local host, port = place:match("^(.*)(:%d*)$")
  host, port = host or place, port or ""
  if port == ":" or port == PORTS[scheme] then port = "" end
  local kept = {}
  for parameter in query:gmatch("[^&]+") do
    local name = parameter:match("^[^=]*")
    if secrets.is_secret(name) then parameter = name .. "=" .. secrets.HIDDEN end
    if not OWN[name:lower()] then kept[#kept + 1] = parameter end
  end
  local shown = scheme .. "://" .. host .. port .. path
  local written = #kept > 0 and "?" .. table.concat(kept, "&") or ""
  table.sort(kept)
  return shown .. written, host, shown .. "?" .. table.concat(kept, "&")
end

local function kind_of(url, word)
  if word then return KINDS[word:lower()] end
  return KINDS[(url:lower():match("[?&]service=([^&]*)") or "wms")] or "WMS"
end

-- The URL with the bytes escaped that a database would not keep as they are.
local function escaped(url)
  return (url:gsub(utf8.len(url) and "%c" or "[%c\x80-\xFF]", function(c) return ("%%%02X"):format(c:byte()) end))
end

-- An entry {url, public, kind, host, name}; nil and why the line is none.
local function entry(line)
  local url, word, more = line:match("^(%S+)%s*(%S*)%s*(.-)$")
  local wrong = service.url_fault(url)
  if wrong then return nil, wrong end
  if more ~= "" then return nil, ('"%s" follows the kind: a line is a URL and WMS or WCS'):format(more) end
  url = escaped(url)
  local kind = kind_of(url, word ~= "" and word or nil)
  if not kind then return nil, ('"%s" is no kind of service: WMS and WCS are known'):format(word) end
  local shown, host, sorted = public(url)
  return {url = url, public = shown, kind = kind, host = host, name = kind .. " " .. sorted}
end

--- Reads a list from a file, "-" for standard input. `complain(text)` is told of lines that cannot be used.
-- Returns the entries in their order, each service of a kind once: url (to ask), public (to store and show), kind,
-- host. And how many lines cannot be used.
return function(path, complain)
  if path ~= "-" and files.exists(path .. "/.") then errors.raise(("the list %s is a directory"):format(path)) end
  local file <close>, why = table.unpack(path == "-" and {io.stdin} or {io.open(path)})
  if not file then errors.raise("the list cannot be read: " .. why) end
  local entries, seen, number, useless = {}, {}, 0, 0
  for line in file:lines() do
    number = number + 1
    if number == 1 and (line:find("^\xFF\xFE") or line:find("^\xFE\xFF")) then
      errors.raise(("the list %s is in UTF-16: save it as UTF-8"):format(path))
    end
    if number == 1 and line:find("^SQLite format 3") then
      errors.raise(path .. " is a database, not a list: the list comes first, then the database")
    end
    line = line:gsub("^\xEF\xBB\xBF", ""):gsub("^%s*#.*$", ""):gsub("%s#.*$", ""):match("^%s*(.-)%s*$")
    if line ~= "" then
      local made, wrong = entry(line)
      if not made then
        useless = useless + 1
        if useless <= MOST_COMPLAINTS then
          complain(("%s, line %d: %s"):format(path == "-" and "standard input" or path, number, printable(wrong)))
        end
      end
      if made and not seen[made.name] then
        entries[#entries + 1] = made
        seen[made.name] = true
      end
    end
  end
  if useless > MOST_COMPLAINTS then complain(("%d further lines cannot be used"):format(useless - MOST_COMPLAINTS)) end
  if #entries == 0 then errors.raise(("the list %s names no service"):format(path)) end
  return entries, useless
end
