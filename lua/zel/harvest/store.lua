--- Stores what services brought: each in one transaction, and several together, since a transaction costs as much as
-- the rows of a service.

local MOST = 32          -- services of one transaction
local LONGEST = 0.5      -- seconds that a service waits for others
local LARGEST = 8000000  -- bytes of statements that wait

local Store = {}
Store.__index = Store

--- Writes what waits.
function Store:flush()
  local statements = self.statements
  self.statements, self.count, self.size, self.began = {}, 0, 0, nil
  if #statements > 0 then self.database:transaction(statements) end
end

--- Takes the statements of a service.
function Store:add(statements)
  local list = self.statements
  for _, statement in ipairs(statements) do
    list[#list + 1] = statement
    self.size = self.size + #statement
  end
  self.count, self.began = self.count + 1, self.began or zel.clock()
  if self.count >= MOST or self.size >= LARGEST or zel.clock() - self.began >= LONGEST then self:flush() end
end

function Store:__close() self:flush() end

--- `local store <close> = new(database)`: closing it writes what waits.
return function(database)
  return setmetatable({database = database, statements = {}, count = 0, size = 0}, Store)
end
