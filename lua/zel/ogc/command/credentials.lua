--- The password of --user: from a file, the environment or a prompt that does not show it.

local errors = require "zel.ogc.errors"

local function prompt(user)
  local terminal <close> = io.open("/dev/tty", "r+")
  if not terminal then
    errors.raise("there is no terminal to ask for the password: set ZEL_OGC_PASSWORD, or use --password-file")
  end
  os.execute("stty -echo </dev/tty")
  terminal:write("Password of " .. user .. ": ")
  terminal:flush()
  local read, password = pcall(terminal.read, terminal, "l")
  os.execute("stty echo </dev/tty")
  terminal:write("\n")
  if not read then error(password, 0) end
  return password or ""
end

return function(user, path)
  if path then
    local file <close> = io.open(path)
    local password = file and file:read("l")
    if not password then errors.raise("there is no password in " .. path) end
    return password
  end
  return os.getenv("ZEL_OGC_PASSWORD") or prompt(user)
end
