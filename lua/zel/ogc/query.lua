--- The query of a request: names and values, escaped and joined.

local errors = require "zel.ogc.errors"

local LONGEST = 4095 -- of a request with its URL: what is longer would be cut

local query = {}

local function escaped(text)
  return (tostring(text):gsub("[^%w%-_.~:,/]", function(c) return ("%%%02X"):format(c:byte()) end))
end

-- A list has commas between its items; those in an item are escaped.
local function value_text(value)
  if type(value) ~= "table" then return escaped(value) end
  local items = {}
  for i, item in ipairs(value) do items[i] = escaped(item):gsub(",", "%%2C") end
  return table.concat(items, ",")
end

--- Text for numbers without needless digits.
function query.number(value)
  return math.type(value) == "integer" and tostring(value) or ("%.15g"):format(value)
end

--- Four numbers with commas between.
function query.box(box)
  local texts = {}
  for i, edge in ipairs(box) do texts[i] = query.number(edge) end
  return table.concat(texts, ",")
end

--- Joins a list of {name, value}; those without a value are left out, a value may be a list. `object` will send it.
function query.join(parameters, object)
  local parts = {}
  for _, parameter in ipairs(parameters) do
    if parameter[2] ~= nil then parts[#parts + 1] = escaped(parameter[1]) .. "=" .. value_text(parameter[2]) end
  end
  local joined = table.concat(parts, "&")
  local p = object:GetProperty{"URL_SCHEME", "URL_HOSTNAME", "URL_PORT", "URL_PATH", "URL_QUERY_PREFIX",
                               "URL_QUERY_SUFFIX"}
  local length = #joined + #"://:/?&&Version=1.1.1&Service=WMS&Request=GetFeatureInfo&"
  for _, text in pairs(p) do length = length + #tostring(text) end
  if length > LONGEST then
    errors.raise(("the request would have %d characters, and %d is the most that can be sent: name fewer layers")
      :format(length, LONGEST))
  end
  return joined
end

return query
