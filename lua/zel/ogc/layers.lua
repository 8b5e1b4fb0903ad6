--- The layers of a Web Map Service as tables.

local layer = require "zel.ogc.layer"

--- Makes layers from structures: a list in document order, and a table by name.
return function(structures)
  local list, by_name = {}, {}
  for i, record in ipairs(structures) do
    local parent = list[tonumber(record.PARENT) + 1]
    local made = layer.of(record, parent)
    if parent then table.insert(parent.children, made) end
    list[i] = made
    if made.name and not by_name[made.name] then by_name[made.name] = made end
  end
  return list, by_name
end
