--- Modules of other packages: packaged("lxp") is require("lxp"), and says which package has it when it is missing.

local errors = require "zel.ogc.errors"

local PACKAGES = {argparse = "lua-argparse", dkjson = "lua-dkjson", ["luasql.sqlite3"] = "lua-sql-sqlite3",
                  lxp = "lua-expat"}

return function(name)
  local found, module = pcall(require, name)
  if found then return module end
  if not tostring(module):find("module '" .. name .. "' not found", 1, true) then error(module, 0) end
  errors.raise(("the Lua module %s is missing: install the package %s"):format(name, PACKAGES[name]))
end
