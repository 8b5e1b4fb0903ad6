--- A process that fetches pictures: takes one task after the other from a directory, until none is left.
--
-- Task N is the file "N.task", its picture becomes "N.picture", a data URI. A line of standard output reports each:
-- its number, then why there is no picture.

local html = require "zel.catalogue.html"
local errors = require "zel.ogc.errors"
local files = require "zel.ogc.files"
local service = require "zel.ogc.service"

local LARGEST = 4000000 -- bytes of a picture
local USUAL = {timeout = 60, retries = 1} -- for a picture

-- By their first bytes, whatever the server calls them.
local PICTURES = {["^\x89PNG\r\n"] = "image/png", ["^\xFF\xD8\xFF"] = "image/jpeg", ["^GIF8"] = "image/gif",
                  ["^RIFF....WEBP"] = "image/webp"}

local DIGITS = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"

local function base64(data)
  local pairs_of_digits = {}
  for i = 0, 4095 do
    pairs_of_digits[i] = DIGITS:sub((i >> 6) + 1, (i >> 6) + 1) .. DIGITS:sub((i & 63) + 1, (i & 63) + 1)
  end
  local out, full = {}, #data - #data % 3
  for i = 1, full, 3 do
    local a, b, c = data:byte(i, i + 2)
    out[#out + 1] = pairs_of_digits[a << 4 | b >> 4]
    out[#out + 1] = pairs_of_digits[(b & 15) << 8 | c]
  end
  if full < #data then
    local a, b = data:byte(full + 1, #data)
    out[#out + 1] = pairs_of_digits[a << 4 | (b or 0) >> 4]
    out[#out + 1] = b and pairs_of_digits[(b & 15) << 8]:sub(1, 1) .. "=" or "=="
  end
  return table.concat(out)
end

-- What libcurl says when a transfer fails, and how people say it.
local REASONS = {
  {"Curl Error Code = 28%D", "The server gave no picture in time."},
  {"Curl Error Code = 7%D", "The server could not be reached."},
  {"Curl Error Code = 6%D", "The server's name is not known."},
  {"Curl Error Code = 60%D", "The server's certificate is not trusted."},
  {"ErrCode%(401%)", "The server asks for a user and a password."},
}

local function reason(why)
  local text = errors.is(why) and why.message or tostring(why)
  for _, row in ipairs(REASONS) do
    if text:find(row[1]) then return row[2] end
  end
  return (text:gsub("^%l", string.upper):gsub("[^.]$", "%0."))
end

-- "https://host:port" of a URL.
local function origin(url) return html.public(url):lower():match("^%a+://[^/?#]*") end

return function(directory)
  local settings = load(files.read(directory .. "/settings"), "settings", "t", {})()
  local base = directory .. "/answer-" .. zel.clock() .. math.random(0, 0xFFFFFFFF)
  local too_large
  local function watch(_, figures)
    too_large = too_large or figures[3] > LARGEST
    return not too_large
  end
  local function open()
    local s = service.open("ZELnetOGCWMS", "catalogue", settings.url, settings.options, USUAL)
    s.object:SetProperty{CALLBACK_FUNCTION = watch, MAP_FILENAME = base, CAPABILITIES_FILENAME = base,
                         WMS_VERSION = settings.version}
    return s
  end
  -- Legends may be on other servers, which must not learn the credentials.
  local own, others = open(), open()
  others.object:SetProperty{USERNAME = "", PASSWORD = "", HEADERS = ""}

  -- Fetches a picture as data URI; nil and why there is none.
  local function fetch(task)
    local kind, what = task:match("^(%a+) (.*)$")
    local is_map = kind == "map"
    local s = (is_map or origin(what) == origin(settings.url)) and own or others
    too_large = false
    local method, argument = "GetMap", what
    if not is_map then method, argument = "GetCapabilities", {FROM_URL = what} end
    local done, why = pcall(service.request, s, method, argument)
    local path = s.object:GetProperty{"LAST_FILE"}.LAST_FILE
    local data = done and files.read(path)
    os.remove(path)
    if too_large then return nil, ("The picture is larger than %d MB."):format(LARGEST // 1000000) end
    if not done then return nil, reason(why) end
    for start, format in pairs(PICTURES) do
      if data:find(start) then return "data:" .. format .. ";base64," .. base64(data) end
    end
    return nil, "The server's answer is not a picture."
  end

  for number = 1, settings.tasks do
    local path = ("%s/%d."):format(directory, number)
    if os.rename(path .. "task", path .. "taken") then -- by one process alone
      local picture, why = fetch(files.read(path .. "taken"))
      if picture then files.write(path .. "picture", picture) end
      io.write(number, " ", picture and "" or html.clean(why):sub(1, 1000), "\n")
      io.flush()
    end
  end
end
