--- Requests whose answer becomes a user's file.

local files = require "zel.ogc.files"
local service = require "zel.ogc.service"

--- Fetches to the file `path`; without one to that of the property, which names the user's store. Without an extension
-- the file gets that of the answer, if it has one. Until it is complete it has a hidden name beside its own;
-- `place(path)` is called just before it gets its own. Returns the name.
return function(s, method, property, text, path, place)
  local usual = s.object:GetProperty{property}[property]
  path = path or usual
  s.object:SetProperty{[property] = files.partial(path)}
  local done, answer = pcall(service.request, s, method, text)
  local last = s.object:GetProperty{"LAST_FILE"}.LAST_FILE
  s.object:SetProperty{[property] = usual}
  if not done then
    if last ~= "" then os.remove(last) end
    error(answer, 0)
  end
  local unfinished <close> = files.removed_at_end(answer)
  local extension = answer ~= files.partial(path) and files.extension(answer)
  if extension and not files.extension(path) then path = path .. "." .. extension end
  place(path)
  files.rename(answer, path)
  return path
end
