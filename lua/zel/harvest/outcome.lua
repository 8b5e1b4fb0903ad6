--- What one try to read a service came to.
--
-- result   "new", "changed", "unchanged", "refused" (the server's words) or "failed"
-- words    why, for people; nil when all is well
-- again    true when the same may go well later
-- version, bytes, seconds, started

local errors = require "zel.ogc.errors"
local printable = require "zel.ogc.printable"
local refusal_of = require "zel.ogc.refusal"
local secrets = require "zel.ogc.secrets"
local service = require "zel.ogc.service"

local LONGEST = 2000 -- bytes of words
local UNWRITTEN = "Curl Error Code = 23" -- the fault of this machine, not of a service
local PASSING_CURL = {[7] = true, [18] = true, [28] = true, [52] = true, [55] = true, [56] = true}

local outcome = {}

-- Whether a failure may pass: no connection, one that broke, no answer in time, a server that is out of order.
local function passing(why)
  local status, curl = tonumber(why:match("Http ErrCode%((%d+)%)")), tonumber(why:match("Curl Error Code = (%d+)"))
  return PASSING_CURL[curl] or status == 429 or (status ~= nil and status >= 500) or false
end

local function shortened(text)
  text = secrets.hidden(printable(text))
  if #text <= LONGEST then return text end
  return text:sub(1, (utf8.offset(text, 0, LONGEST + 1) or LONGEST + 1) - 1)
end

--- Of a request that raised `why`; what is no failure of the request is raised again. `s` has the object and options.
function outcome.of_failure(s, why)
  if not service.is_failure(why) then error(why, 0) end
  if why:find(UNWRITTEN, 1, true) then
    errors.raise(service.told(s, why) .. " TMPDIR names another directory for temporary files")
  end
  local refused = refusal_of(s.object)
  if not refused then
    local path = s.object:GetProperty{"LAST_FILE"}.LAST_FILE -- a temporary name
    why = why:gsub(path ~= "" and path:gsub("%p", "%%%0") or "^$", "document")
    return {result = "failed", words = shortened(service.told(s, why)), again = passing(why)}
  end
  return {result = "refused", words = shortened(service.refusal_text(refused)), code = refused.code, again = false}
end

function outcome.failed(words) return {result = "failed", words = words, again = false} end

return outcome
