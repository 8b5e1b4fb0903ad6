--- The terminal that standard output is, and text that suits it.
--
-- size()              its width and height; 80 and nothing when it is no terminal
-- paint(style, text)  text in a style ("title", "name", "note") where the terminal has colours
-- printable(text)     text without control characters: those of a server must not reach a terminal
-- length(text)        how many characters a text has

local getenv, tostring, gsub, len = os.getenv, tostring, string.gsub, utf8.len
local columns, stdout = zel.columns, io.stdout

local STYLES = {title = "\27[1m", name = "\27[36m", note = "\27[2m"}

local terminal = {}

function terminal.size()
  local width, height = columns(stdout)
  return width or 80, height
end

function terminal.paint(style, text)
  local refused = getenv("NO_COLOR")
  if (refused and refused ~= "") or not columns(stdout) or (getenv("TERM") or "dumb") == "dumb" then return text end
  return STYLES[style] .. text .. "\27[0m"
end

function terminal.printable(text) return (gsub(gsub(tostring(text), "%c", " "), "\xC2[\x80-\x9F]", " ")) end

function terminal.length(text) return len(text) or #text end

return terminal
