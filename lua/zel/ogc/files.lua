--- Files and their names.

local errors = require "zel.ogc.errors"

local files = {}

function files.directory(path) return path:match("^(.*/)") or "./" end
function files.name(path) return path:match("[^/]*$") end

--- The extension in lower case, without its dot; nil without one.
function files.extension(path)
  local extension = files.name(path):match(".%.([%w]+)$")
  return extension and extension:lower()
end

--- The path without its extension.
function files.stem(path) return files.extension(path) and path:match("^(.*)%.%w+$") or path end

function files.exists(path)
  local file = io.open(path, "rb")
  return file and file:close() and true or false
end

--- Raises unless the directory of a file to be written exists.
function files.check_directory(path)
  if not files.exists(files.directory(path) .. ".") then
    errors.raise(("there is no directory %s to write %s to"):format(files.directory(path), files.name(path)))
  end
end

--- Where to write what becomes `path` once it is complete: a hidden name beside it.
function files.partial(path) return files.directory(path) .. "." .. files.name(path) .. ".part" end

--- `local unfinished <close>`: removes a file at the end of the scope, if it still has that name.
function files.removed_at_end(path)
  return setmetatable({}, {__close = function() os.remove(path) end})
end

function files.rename(from, to)
  local done, why = os.rename(from, to)
  if not done then errors.raise(("%s cannot be written: %s"):format(to, why)) end
end

--- Writes a text so that the file is complete or not there.
function files.write(path, text)
  local partial = files.partial(path)
  local unfinished <close> = files.removed_at_end(partial)
  local file, why = io.open(partial, "wb")
  local done = file
  if file then
    done, why = file:write(text)
    local closed, unwritten = file:close()
    if not closed then done, why = nil, unwritten end
  end
  if not done then errors.raise(("%s cannot be written: %s"):format(path, why)) end
  files.rename(partial, path)
end

--- The whole file, or its first bytes; nil without a file.
function files.read(path, count)
  local file <close> = io.open(path, "rb")
  return file and file:read(count or "a")
end

return files
