--- What a harvest has while it runs: a place for files, and the right to write. Both go when they are closed, and also
-- when this process is killed.

local errors = require "zel.ogc.errors"
local quoted = require "zel.ogc.programs".quoted

local TAKEN = 75 -- status of flock when another process has the lock

-- A shell that says a line, and then writes to a full pipe: that ends when nobody is left to read it. Returns the line,
-- and the pipe, which ends the shell when it is closed.
local function hold(script)
  local pipe = assert(io.popen("trap '' INT TERM HUP PIPE; " .. script))
  return pipe:read("l"), pipe
end

local guard = {}

--- A new directory, `path`.
function guard.directory()
  local path, pipe = hold('made=$(mktemp -d) && { echo "$made"; yes; rm -rf "$made"; } 2>/dev/null')
  if not path then errors.raise("there is no room for temporary files; name another directory in TMPDIR") end
  return setmetatable({path = path}, {__close = function() pipe:close() end})
end

--- The right to write to a database in WAL mode; raises when another process keeps it. One that was just killed may
-- still have it for a moment. File systems without locks hold nobody off: there it is nil.
function guard.lock(path)
  local said, pipe = hold(("flock -E %d -w 5 %s sh -c 'echo locked; yes' 2>/dev/null"):format(TAKEN,
                                                                                          quoted(path .. "-wal")))
  if said then return pipe end
  if select(3, pipe:close()) == TAKEN then
    errors.raise(path .. " is being written by another harvest or merge: wait until it has ended, or name another file")
  end
end

return guard
