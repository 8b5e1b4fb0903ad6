--- The server's words in the answer to the last request of an object: zel.refusal(object).
--
-- Returns {text =, code =, locator =, exceptions = {...}} with the first exception's fields and all of them as a list,
-- and nil when the answer was none of the exception documents of the Web Map, Coverage and other OGC services.

local lxp = require "zel.ogc.packaged" "lxp"

local REPORTS = {ServiceExceptionReport = true, ExceptionReport = true}
local LARGEST = 1024 * 1024 -- a refusal is a text for people

local function localname(name) return name:match("[^:]*$") end
local function trimmed(text) return text:gsub("%s+", " "):match("^ ?(.-) ?$") end
local function filled(text) return text ~= "" and text or nil end

-- Fills `found` from the elements of a report: ServiceException (WMS, WCS), Exception with ExceptionText (OWS).
local function handlers(found)
  local current
  local function start(_, name, attributes)
    name = localname(name)
    if found.report == nil then found.report = REPORTS[name] or false end
    if name == "ServiceException" or name == "Exception" then
      current = {runs = {}, code = filled(attributes.code or attributes.exceptionCode or ""),
                 locator = filled(attributes.locator or "")}
      table.insert(found, current)
    end
  end
  local function finish(_, name)
    if localname(name):find("Exception$") then current = nil end
  end
  local function text(_, characters)
    if current then table.insert(current.runs, characters) end
  end
  return {StartElement = start, EndElement = finish, CharacterData = text}
end

local function exceptions(document)
  local found = {}
  local parser = lxp.new(handlers(found))
  local well = parser:parse(document) and parser:parse()
  pcall(parser.close, parser) -- which raises what made the document ill-formed
  if not well or not found.report or #found == 0 then return nil end
  for _, exception in ipairs(found) do
    exception.text, exception.runs = trimmed(table.concat(exception.runs)), nil
  end
  return found
end

return function(object)
  local path = object:GetProperty{"LAST_FILE"}.LAST_FILE
  local file = path ~= "" and io.open(path, "rb")
  if not file then return nil end
  local document = file:read(LARGEST) or ""
  file:close()
  local found = document:find("^[\xEF\xBB\xBF%s]*<") and exceptions(document)
  if not found then return nil end
  return {text = found[1].text, code = found[1].code, locator = found[1].locator, exceptions = {table.unpack(found)}}
end
