--- Fetches many pictures with several processes at once.

local code = require "zel.lua_code"
local files = require "zel.ogc.files"
local new_progress = require "zel.work_progress"

-- Ctrl-C is for this process alone: the shell and the workers ignore it, and SIGTERM to the shell ends them. If this
-- process is killed, the shell removes what it left.
local COMMAND = [[trap '' INT HUP; trap 'kill $workers; wait' TERM
dir=%s; echo $$ >"$dir/shell"; zel=$(readlink /proc/$PPID/exe); i=0
while [ $i -lt %d ]; do i=$((i + 1))
"$zel" -e 'require("zel.catalogue.worker")(arg[1])' - "$dir" </dev/null 2>>"$dir/errors" &
workers="$workers $!"; done; wait
[ -e /proc/$PPID/exe ] || rm -rf "$dir"]]

local function run(command)
  local pipe <close> = assert(io.popen(command))
  return pipe:read("l")
end

local Pictures = {}
Pictures.__index = Pictures

--- The picture of a task as data URI; nil and the reason when there is none.
function Pictures:get(number)
  local picture = self.done[number] and files.read(("%s/%d.picture"):format(self.directory, number))
  if picture then return picture end
  return nil, self.why[number] or "Not fetched: the catalogue was ended before that."
end

function Pictures:__close()
  os.execute("rm -rf '" .. self.directory .. "'")
end

-- Reads what the processes report.
function Pictures:follow(progress)
  local count = 0
  for line in function() return self.pipe:read("l") end do
    local number, why = line:match("^(%d+) (.*)$")
    number = tonumber(number)
    self.done[number] = why == ""
    if why ~= "" then self.why[number], self.failed = why, self.failed + 1 end
    count = count + 1
    progress(count, self.failed)
  end
  return count
end

--- Fetches what the tasks ask for: "map QUERY" of the service, or "legend URL". Ctrl-C ends it; what has come is kept.
-- settings: url, options (of zel.ogc), version, jobs, quiet. Returns an object to be closed: done (by number of the
-- task), get(number), failed (how many), stopped (whether by Ctrl-C).
return function(tasks, settings)
  local self = setmetatable({done = {}, why = {}, failed = 0}, Pictures)
  self.directory = assert(run("umask 077; mktemp -d"), "There is no place for temporary files")
  files.write(self.directory .. "/settings", "return " .. code{
    url = settings.url, options = settings.options, version = settings.version, tasks = #tasks})
  for number, task in ipairs(tasks) do files.write(("%s/%d.task"):format(self.directory, number), task) end
  local progress = settings.quiet and function() end or new_progress(#tasks, "pictures", "without")
  local complete, count = pcall(function()
    self.pipe = assert(io.popen(COMMAND:format(self.directory, math.min(settings.jobs, #tasks))))
    if #tasks > 0 then progress(0, 0) end
    return self:follow(progress)
  end)
  if not complete then
    os.execute(("kill $(cat '%s/shell')"):format(self.directory))
    pcall(self.follow, self, function() end) -- what came before
  end
  if self.pipe then self.pipe:close() end
  self.stopped = not complete and tostring(count):find("interrupted!$") ~= nil
  if complete and count == #tasks or self.stopped then return self end
  local said = (files.read(self.directory .. "/errors") or ""):match("[^\n]+")
  self:__close()
  error("The processes that fetch pictures ended early: " .. (said or tostring(count)), 0)
end
