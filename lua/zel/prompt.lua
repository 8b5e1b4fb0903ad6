--- The part of the prompt that is written in Lua. It keeps the functions it calls: statements may change any global.

local show_value, terminal = require "zel.show", require "zel.terminal"
local match, gsub, format, find = string.match, string.gsub, string.format, string.find
local rawget, rawlen, select, tostring, type, globals = rawget, rawlen, select, tostring, type, _G
local concat, stdout, stderr, write, refusal = table.concat, io.stdout, io.stderr, io.stdout.write, zel.refusal

local KEPT_ROWS = 3 -- of the screen, for the statement and what follows

local prompt = {}

--- The code for a line that is meant for the prompt itself, such as `help GetMap`; false when it ends the session, nil
-- for every other line. A script's own variable of that name takes precedence.
function prompt.translate(line)
  if match(line, "^%s*zel%.help[%s;]*$") then return "zel.help()" end
  local word, rest = match(line, "^%s*(%a+)(.-)[%s;]*$")
  if not word or rawget(globals, word) ~= nil then return nil end
  local name = match(rest, "^%s*%(?%s*[\"']?([%w_.: ]-)[\"']?%s*%)?$")
  if word == "help" and name then return name == "" and "zel.help()" or format("zel.help(%q)", name) end
  if (word == "quit" or word == "exit") and name == "" then return false end
end

-- Values other than tables as they are, but for control characters that move the cursor.
local function plain(value)
  if type(value) ~= "string" then return tostring(value) end
  return (gsub(gsub(value, "[\0-\8\11-\31\127]", " "), "\xC2[\x80-\x9F]", " "))
end

--- Shows the results of a statement: tables by their entries, cut to the screen.
function prompt.show(statement, ...)
  local count, line = select("#", ...), {}
  local function flush()
    if #line > 0 then write(stdout, concat(line, "\t"), "\n") end
    line = {}
  end
  local _, height = terminal.size()
  local rows = height and height - KEPT_ROWS
  for i = 1, count do
    local value = select(i, ...)
    if type(value) == "table" then
      flush()
      if show_value(value, rows) then
        local entries = rawlen(value) > 1 and format(", %d entries", rawlen(value)) or ""
        local source = count == 1 and not find(statement, "\n") and statement or "value"
        local note = format("... cut to the screen%s; zel.show(%s) prints all", entries, source)
        write(stdout, terminal.paint("note", note), "\n")
      end
    else
      line[#line + 1] = plain(value)
    end
  end
  flush()
  local kept = match(statement, "^%s*local%s+([%a_][%w_]*)[^\n]*$")
  if kept and kept ~= "function" and not find(statement, "[%s;]do%s") then
    write(stdout, terminal.paint("note", format("(%s ends with this line: leave out local to keep it)", kept)), "\n")
  end
end

--- Prints the words of the server that refused an object's last request, unless the error has them.
function prompt.explain(message, object)
  local refused = object and refusal(object)
  if not refused or find(message, refused.text, 1, true) then return end
  local code = refused.code and format(" (%s)", refused.code) or ""
  write(stderr, "The server says: ", terminal.printable(refused.text .. code), "\n")
end

return prompt
