--- A table of texts, numbers, booleans and such tables as Lua code: what one process gives to another.

local function code(values)
  local parts = {}
  for name, value in pairs(values) do
    parts[#parts + 1] = ("[%q]=%s"):format(name, type(value) == "table" and code(value) or ("%q"):format(value))
  end
  return "{" .. table.concat(parts, ",") .. "}"
end

return code
