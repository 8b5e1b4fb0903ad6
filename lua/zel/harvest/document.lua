--- What the beginning of a capabilities document says: its outermost element, and that element's attributes.

local HEAD = 65536 -- bytes that are looked at

local ENTITIES = {amp = "&", lt = "<", gt = ">", quot = '"', apos = "'"}

local document = {}

-- Where the text goes on after white space, declarations and comments.
local function skipped(head)
  local place = head:match("^\xEF\xBB\xBF()") or 1
  while true do
    place = head:match("^%s*()", place)
    local next_place = head:match("^<%?.-%?>()", place) or head:match("^<!%-%-.-%-%->()", place)
                       or head:match("^<!DOCTYPE[^%[>]*%[.-%]%s*>()", place)
                       or head:match("^<!DOCTYPE[^%[>]*>()", place)
    if not next_place then return place end
    place = next_place
  end
end

--- Of an open file: the name of the element without its prefix, its updateSequence, and the size of the file in bytes.
-- Without a name the document is in an encoding that is not looked into.
function document.describe(file)
  local head = file:read(HEAD) or ""
  local name, attributes = head:match("^<([%w_:.-]+)([^>]*)", skipped(head))
  local size = file:seek("end")
  if not name then return nil, nil, size end
  local sequence = attributes:match("%supdateSequence%s*=%s*\"([^\"]*)\"")
                   or attributes:match("%supdateSequence%s*=%s*'([^']*)'")
  return name:match("[^:]*$"), sequence and sequence:gsub("&(%a+);", ENTITIES) or nil, size
end

return document
