--- Asks services with several processes at once, through GNU parallel; this process alone writes to the database.

local batches_of = require "zel.harvest.batches"
local code = require "zel.lua_code"
local errors = require "zel.ogc.errors"
local files = require "zel.ogc.files"
local quoted = require "zel.ogc.programs".quoted

-- A batch, by its number and its place among those that run: a process that was killed is followed by one that goes on
-- with the next service. The batch ends when all are to end, and when processes are killed again and again before they
-- ask anything.
local BATCH = [[
batch=$1 status=0 log=$dir/$1.log idle=0
export ZEL_USER_DIR="$dir/user-$2"
mkdir -p "$ZEL_USER_DIR"
while :; do
  size=$(stat -c %s "$log" 2>/dev/null)
  "$ZEL" -e 'require("zel.harvest.worker")(arg[1], arg[2], math.tointeger(arg[3]))' - "$dir" "$batch" "$status" \
    </dev/null 2>>"$dir/errors"
  status=$?
  [ "$status" -ne 0 ] || exit 0
  [ "$status" -gt 128 ] && [ "$status" -ne 141 ] && [ ! -e "$dir/ending" ] || exit 1
  [ "$(stat -c %s "$log" 2>/dev/null)" = "$size" ] && idle=$((idle + 1)) || idle=0
  [ "$idle" -lt 3 ] || exit 1
done
]]

-- All batches. Ctrl-C is for the harvest alone, which ends this by SIGTERM; when the harvest is killed, so is this, and
-- clears away what it left. parallel keeps what it found out about this machine in the user's directory, since finding
-- it out takes as long as tens of services.
local ALL = [[
export dir=$1
trap '' INT HUP
trap ': >"$dir/ending"; kill -TERM $work 2>/dev/null; wait $work' TERM
echo $$ >"$dir/shell"
export ZEL=$(readlink /proc/$PPID/exe)
[ -w "$HOME" ] || export PARALLEL_HOME="$dir"
seq "$2" | setsid parallel --plain --will-cite --tmpdir "$dir" -j "$3" --ungroup --halt now,fail=1 \
  --termseq TERM,500,KILL,25 'sh "$dir/batch.sh" {} {%}' 2>>"$dir/errors" &
work=$!
wait $work
[ -e /proc/$PPID/exe ] || rm -rf "$dir"
]]

local function check_parallel()
  if not os.execute('grep -q "GNU parallel" "$(command -v parallel)" 2>/dev/null') then -- others have that name, too
    errors.raise("several jobs need GNU parallel, the package parallel; one job does without")
  end
end

-- The statements that a process left for a try.
local function take(path)
  local file <close> = assert(io.open(path, "rb"))
  local statements = {}
  for size in file:lines("n") do
    file:read(1)
    statements[#statements + 1] = file:read(size)
  end
  os.remove(path)
  return statements
end

-- Everything that a process can be given: no functions.
local function plain(values)
  local rest = {}
  for name, value in pairs(values) do
    if type(value) ~= "function" then rest[name] = value end
  end
  return rest
end

--- Asks all entries by `jobs` processes; settings and store() are those of zel.harvest.work, and get a batch for the
-- entry. `directory` is for files; to be removed by the caller.
return function(entries, settings, jobs, directory, store)
  check_parallel()
  local batches = batches_of(entries, jobs)
  for number, batch in ipairs(batches) do files.write(("%s/%d.batch"):format(directory, number), code(batch)) end
  files.write(directory .. "/settings", code{run = settings.run, offset = settings.offset,
                                             options = plain(settings.options),
                                             properties = plain(settings.properties)})
  files.write(directory .. "/batch.sh", BATCH)
  files.write(directory .. "/all.sh", ALL)
  local left = #entries
  local pipe = assert(io.popen(("exec setpriv --pdeathsig TERM sh %s %s %d %d"):format(
    quoted(directory .. "/all.sh"), quoted(directory), #batches, jobs)))
  local complete, why = pcall(function()
    for line in function() return pipe:read("l") end do -- lines() raises at Ctrl-C, before that is known here
      local batch, number, result, word = line:match("^(%d+) (%d+) (%a+) (%a+)$")
      if batch then
        store(batch, {result = result}, take(("%s/%s.%s.sql"):format(directory, batch, number)), word == "last")
        left = left - (word == "last" and 1 or 0)
      end
      local slow, host, seconds = line:match("^(%d+) waiting (%S+) (%d+)$")
      if slow then settings.waiting(slow, host, tonumber(seconds)) end
    end
  end)
  if not complete then
    os.execute(("kill $(cat %s)"):format(quoted(directory .. "/shell")))
    pcall(pipe.read, pipe, "a") -- until all have ended
  end
  pipe:close()
  if not complete then error(why, 0) end
  if left > 0 then
    local said = (files.read(directory .. "/errors") or ""):match("[^\n]+")
    errors.raise("the processes that ask the services ended early: " .. (said or "no reason is known"))
  end
end
