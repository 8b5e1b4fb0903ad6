"""Lets scripts print their values as JSON."""

# json(v): texts, numbers, booleans, nil, lists and structures.
JSON = r"""
function json(v)
  if type(v) == "string" then
    return '"' .. v:gsub('[%c"\\]', function(c) return ("\\u%04x"):format(c:byte()) end) .. '"'
  elseif type(v) ~= "table" then
    return v == nil and "null" or tostring(v)
  end
  local parts = {}
  for i = 1, #v do parts[i] = json(v[i]) end
  if #v > 0 then return "[" .. table.concat(parts, ",") .. "]" end
  for _, tag in ipairs(zel.tags(v)) do parts[#parts + 1] = json(tag) .. ":" .. json(v[tag]) end
  return "{" .. table.concat(parts, ",") .. "}"
end
"""
