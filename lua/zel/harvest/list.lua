--- The list of services to harvest: a URL a line, optionally followed by its kind, "#" begins a comment.

local errors = require "zel.ogc.errors"
local service = require "zel.ogc.service"

local KINDS = {wms = "WMS", wcs = "WCS"}
local HIDDEN = "***"

-- Parameters of a URL that nobody else should see.
local SECRETS = {}
for _, name in ipairs{"password", "passwd", "pass", "pwd", "token", "access_token", "apikey", "api_key", "key",
                      "secret", "signature", "sig", "auth", "authkey"} do
  SECRETS[name] = true
end

-- The URL as it may be stored and shown.
local function public(url)
  local base, query = url:gsub("^(%a+://)[^/?#]*@", "%1"):gsub("#.*$", ""):match("^([^?]*)(.*)$")
  return base .. query:gsub("([?&])([^=&]*)=([^&]*)", function(mark, name)
    if SECRETS[name:lower()] then return mark .. name .. "=" .. HIDDEN end
  end)
end

local function kind_of(url, word)
  if word then return KINDS[word:lower()] end
  return KINDS[(url:lower():match("[?&]service=([^&]*)") or "wms")] or "WMS"
end

-- An entry {url, public, kind, host}; nil and why the line is none.
local function entry(line)
  local url, word, more = line:match("^(%S+)%s*(%S*)%s*(.-)$")
  local wrong = service.url_fault(url)
  if wrong then return nil, wrong end
  if more ~= "" then return nil, ('"%s" follows the kind: a line is a URL and WMS or WCS'):format(more) end
  local kind = kind_of(url, word ~= "" and word or nil)
  if not kind then return nil, ('"%s" is no kind of service: WMS and WCS are known'):format(word) end
  local shown = public(url)
  return {url = url, public = shown, kind = kind, host = shown:match("^%a+://([^/?]*)"):lower()}
end

--- Reads a list from a file, "-" for standard input. `complain(text)` is told of every line that cannot be used.
-- Returns the entries in their order, each service of a kind once: url (to ask), public (to store and show), kind,
-- host.
return function(path, complain)
  local file <close> = path == "-" and io.stdin or io.open(path)
  if not file then errors.raise(("the list %s cannot be read"):format(path)) end
  local entries, seen, number = {}, {}, 0
  for line in file:lines() do
    number = number + 1
    line = line:gsub("^\xEF\xBB\xBF", ""):gsub("^%s*#.*$", ""):gsub("%s#.*$", ""):match("^%s*(.-)%s*$")
    if line ~= "" then
      local made, wrong = entry(line)
      if not made then complain(("%s, line %d: %s"):format(path == "-" and "standard input" or path, number, wrong)) end
      local name = made and made.kind .. " " .. made.public
      if made and not seen[name] then
        entries[#entries + 1] = made
        seen[name] = true
      end
    end
  end
  if #entries == 0 then errors.raise(("the list %s names no service"):format(path)) end
  return entries
end
