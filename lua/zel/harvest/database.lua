--- The database of a harvest: opened, made, refused.

local errors = require "zel.ogc.errors"
local files = require "zel.ogc.files"
local guard = require "zel.harvest.guard"
local schema = require "zel.harvest.schema"

local PATIENCE = 30000 -- ms that another process may hold the database

-- What SQLite says, in words that name the remedy; %s is the database.
local REMEDIES = {
  {"file is not a database", "%s is no database of a harvest; name another file, which zel-ogc harvest creates"},
  {"malformed", "%s is damaged: harvest into a new file"},
  {"disk is full", "there is no space left to write to %s; it holds whole services, and the next run continues it"},
  {"readonly database", "%s is read-only: check the permissions of the file and its directory"},
  {"unable to open database file", "%s cannot be opened: check the permissions of the file and its directory"},
  {"table run already exists", "%s is being created by another process: try again when that has ended"},
  {"database is locked", "%s is in use by another process: try again when that has ended"},
}

-- A name that begins with "file:" or ":" is a file's, too.
local function place(path) return path:find("^/") and path or "./" .. path end

local function fail(path, why)
  for _, row in ipairs(REMEDIES) do
    if why:find(row[1], 1, true) then errors.raise(row[2]:format(path)) end
  end
  errors.raise(("%s: %s"):format(path, (why:gsub("^LuaSQL: ", ""))))
end

local Database = {}
Database.__index = Database

--- Runs a statement that returns no rows.
function Database:run(statement)
  local done, why = self.connection:execute(statement)
  if not done then fail(self.path, why) end
  if type(done) == "userdata" then done:close() end
end

--- The rows of a query, as tables by column name, in a loop; however that ends.
function Database:rows(query)
  local cursor, why = self.connection:execute(query)
  if not cursor then fail(self.path, why) end
  local closing = setmetatable({}, {__close = function() cursor:close() end})
  return function() return cursor:fetch({}, "a") end, nil, nil, closing
end

--- The first value of a query's first row.
function Database:value(query)
  local value
  for row in self:rows(query) do value = value == nil and select(2, next(row)) or value end
  return value
end

--- Runs statements as one transaction: all of them or none.
function Database:transaction(statements)
  if not os.rename(self.path, self.path) then -- to open and close the file would end the locks on it
    errors.raise(self.path .. " was removed while it was being written: harvest again")
  end
  self:run("BEGIN IMMEDIATE")
  local done, why = pcall(function()
    for _, statement in ipairs(statements) do self:run(statement) end
    self:run("COMMIT")
  end)
  if not done then
    self.connection:execute("ROLLBACK")
    error(why, 0)
  end
end

--- The name of its file, whatever it was opened by.
function Database:file() return self:value("SELECT file FROM pragma_database_list WHERE name = 'main'") end

--- Attaches another database, by the name "other".
function Database:attach(path) self:run(("ATTACH '%s' AS other"):format((place(path):gsub("'", "''")))) end

--- Makes the database one file, which a place that is only read can hold, too; not while somebody else reads it. To be
-- called after the last change.
function Database:finish() pcall(self.run, self, "PRAGMA journal_mode = DELETE") end

function Database:__close()
  self.connection:close()
  self.environment:close()
  local _ <close> = self.lock
end

-- Makes the tables in an empty file, and refuses what is none of these databases.
local function prepare(database, create)
  local application, version = database:value("PRAGMA application_id"), database:value("PRAGMA user_version")
  local tables = database:value("SELECT count(*) FROM sqlite_master") -- fails when they cannot be read
  if application == 0 and version == 0 and create and tables == 0 then
    database:run("PRAGMA journal_mode = WAL")
    database:transaction(schema.STATEMENTS)
  elseif application ~= schema.APPLICATION then
    errors.raise(database.path .. " is no database of a harvest; name another file, which zel-ogc harvest creates")
  elseif version ~= schema.VERSION then
    errors.raise(("%s has tables of version %d, and this program knows version %d: harvest into a new file"):format(
      database.path, version, schema.VERSION))
  end
end

local database = {}

--- Opens a database; with `create` it is made where there is none, and written to, by nobody else meanwhile. With
-- `alone` nobody else can read it, and it needs no memory shared with others, which file systems of a network do not
-- have.
function database.open(path, create, alone)
  if files.exists(path .. "/.") then errors.raise(path .. " is a directory, not a database") end
  if not create and not files.exists(path) then
    errors.raise(("there is no database %s; zel-ogc harvest makes one"):format(path))
  end
  files.check_directory(path)
  local environment = require("zel.ogc.packaged")("luasql.sqlite3").sqlite3()
  local connection, why = environment:connect(place(path), PATIENCE)
  if not connection then fail(path, why) end
  local opened = setmetatable({path = path, environment = environment, connection = connection}, Database)
  local done, wrong = pcall(function()
    if alone then opened:run("PRAGMA locking_mode = EXCLUSIVE") end
    prepare(opened, create)
    if create then
      opened:run("PRAGMA journal_mode = WAL")
      opened:run("PRAGMA synchronous = NORMAL") -- enough when the process is killed
      opened:run("PRAGMA temp_store = MEMORY")  -- what undoes a statement
      opened.lock = guard.lock(opened:file())
    end
  end)
  if not done then
    opened:__close()
    error(wrong, 0)
  end
  return opened
end

return database
