--- What the two kinds of service share: the object, its URL, and requests that are tried again and whose errors have
-- the server's own words.

local errors = require "zel.ogc.errors"
local options = require "zel.ogc.options"
local refusal_of = require "zel.ogc.refusal"
local unescaped = require "zel.ogc.unescaped"

local RETRIED_STATUS = {[429] = true, [502] = true, [503] = true, [504] = true}
local RETRIED_CURL = {[7] = true, [28] = true} -- no connection; the time is up
local FIRST_PAUSE = 1 -- seconds before the second try; each further pause is twice as long
local LONGEST_PAUSE = 60

local service = {}

local function without_frame(why)
  local text = why:match("CCurlException:%s*(.*)$") or why:match("ZELNETOGC%w+::%w+: (.*)$") or why
  return (text:gsub("^Error: ", ""):gsub("%.%.+$", "."))
end

--- A method's error as people read it. A connection that failed was one to the proxy, if there is one.
function service.told(s, why)
  local options, text = s.options, without_frame(why)
  if not options.proxy or not why:find("Curl Error Code = [57]%D") then return text end
  return ("%s The proxy is %s%s."):format(text, options.proxy:gsub("^.*@", ""), options.proxy_file and
    ", from " .. options.proxy_file or "")
end

-- Whether trying again may help after a failure.
local function passing(why)
  local status, curl = why:match("Http ErrCode%((%d+)%)"), why:match("Curl Error Code = (%d+)")
  return RETRIED_STATUS[tonumber(status)] or RETRIED_CURL[tonumber(curl)] or false
end

--- Seconds to wait: those that the server asks for, else twice as long from try to try.
function service.pause_after(object, try)
  local header = object:GetProperty{"RESPONSE_HEADER"}.RESPONSE_HEADER
  local asked = tonumber(header:lower():match("\nretry%-after:%s*(%d+)"))
  return math.min(asked or FIRST_PAUSE * 2 ^ (try - 1), LONGEST_PAUSE)
end

--- Tells the user something besides the results, unless `quiet` is set.
function service.tell(s, text)
  if not s.options.quiet then io.stderr:write(text, "\n") end
end

--- The words of a refusal, with its code and locator.
function service.refusal_text(refused)
  local place = (refused.code or "") .. (refused.code and refused.locator and ", " or "") .. (refused.locator or "")
  return refused.text .. (place ~= "" and " (" .. place .. ")" or "")
end

--- Raises the server's words when its last answer was a refusal.
function service.check_answer(s)
  local refused = refusal_of(s.object)
  if refused then errors.raise("the server refused: " .. service.refusal_text(refused), refused) end
end

--- Whether it was the request that failed, and not Ctrl-C, an error of the script's own status routine or a cancel that
-- ended it.
function service.is_failure(why)
  return type(why) == "string" and why:find("ZELNETOGC", 1, true) ~= nil
         and not why:find("Cancel request detected", 1, true)
end

-- Raises what went wrong in a method; what is no failure of the request is raised again as it is.
local function fail(s, why)
  if not service.is_failure(why) then error(why, 0) end
  service.check_answer(s)
  errors.raise(service.told(s, why))
end

--- Calls a method of the service's object, again where that may help.
function service.request(s, method, ...)
  for try = 1, math.huge do
    if s.requested and s.options.pause > 0 then zel.sleep(s.options.pause) end
    s.requested = true
    local results = table.pack(pcall(s.object[method], s.object, ...))
    if results[1] then return table.unpack(results, 2, results.n) end
    local why = results[2]
    if try > s.options.retries or type(why) ~= "string" or not passing(why) then fail(s, why) end
    local seconds = service.pause_after(s.object, try)
    service.tell(s, ("%s Trying again in %g s."):format(service.told(s, why), seconds))
    zel.sleep(seconds)
  end
end

--- What is wrong with the URL of a service; nil when nothing is.
function service.url_fault(url)
  local scheme, rest = url:match("^(%a+)://(.+)$")
  local shown = url:gsub("%?.*$", ""):gsub("^(%a*:?/*)[^/]*@", "%1") -- without what is secret
  if not scheme or not scheme:lower():find("^https?$") then
    return ('"%s" is no URL: it should begin with http:// or https://'):format(shown)
  end
  rest = rest:gsub("^[^/?]*@", "")
  if rest:find("^[:/?]") then
    return ('"%s" names no host: a service is at an address like http://host/path'):format(shown)
  end
  if not rest:find("^[^/?]+/[^?]") then
    return ('"%s" has no path: a service is at an address like http://host/path'):format(shown)
  end
  local port = rest:match("^[^/?]*"):gsub("^%[.*%]", ""):match(":.*$")
  if port and not port:find("^:%d+$") then
    return 'the port of the URL is no number; in a user or password write "%2F" for a "/"'
  end
end

--- Sets a URL as people have it: with or without "?", with a user in it.
function service.set_url(object, url)
  local wrong = service.url_fault(url)
  if wrong then errors.raise(wrong) end
  local scheme, place, rest = url:match("^(%a+://)([^/?]*)(.*)$")
  local user, password = place:match("^([^:]*):?(.*)@")
  if user then
    object:SetProperty{USERNAME = unescaped(user), PASSWORD = password ~= "" and unescaped(password) or nil}
  end
  rest = rest:gsub("@", "%%40") -- the object looks for its host behind any "@"
  object:ParseUrl(scheme .. place:gsub("^.*@", "") .. rest .. (rest:find("?", 1, true) and "" or "?"))
end

local function is_file(name)
  local file = not name:find("://", 1, true) and io.open(name)
  return file and file:close() and true or false
end

--- A new service: an object of the class for a URL, or for a file with its capabilities. `usual` are options in place
-- of the library's defaults.
function service.open(class, call, url, given, usual)
  if type(url) ~= "string" then errors.raise(call .. " wants the URL of a service") end
  local s = {url = url:gsub("//[^/?]*@", "//"), options = options.merge(call, given, usual)}
  local made, object, why = pcall(zel.new, class, options.properties(s.options))
  if not made or not object then errors.raise(without_frame(tostring(why or object))) end
  s.object = object
  if is_file(url) then s.file = url else service.set_url(object, url) end
  return s
end

--- Raises when the service is only a file.
function service.check_online(s)
  if s.file then errors.raise("the service was read from the file " .. s.file .. ": give its URL to send requests") end
end

--- Reads the capabilities.
function service.read_capabilities(s)
  return service.request(s, "GetCapabilities", {FROM_FILE = s.file})
end

--- The service section as a structure; nil without one.
function service.section(s)
  local section = s.object:GetServiceSection()
  return section ~= 0 and section[1] or nil
end

return service
