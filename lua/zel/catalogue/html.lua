--- Text into HTML: everything that a server says passes through here on its way to the page.

local html = {}

local ESCAPES = {["&"] = "&amp;", ["<"] = "&lt;", [">"] = "&gt;", ['"'] = "&quot;", ["'"] = "&#39;"}

html.clean = require "zel.ogc.printable"

function html.escape(text) return (html.clean(text):gsub("[&<>\"']", ESCAPES)) end

--- {name} becomes the value with everything escaped that means something to HTML, {*name} a value that is HTML.
function html.fill(template, values)
  return (template:gsub("{(%*?)(%w+)}", function(raw, name)
    local value = values[name]
    return raw == "*" and tostring(value) or html.escape(value)
  end))
end

--- A template filled with each of the values, joined.
function html.each(values, template, between)
  local filled = {}
  for i, value in ipairs(values) do filled[i] = html.fill(template, {value = value}) end
  return table.concat(filled, between or " ")
end

--- A URL without "user:password@".
function html.public(url) return (url:gsub("^(%a[%w+.-]*://)[^/?#]*@", "%1")) end

--- Is this the address of something on the web that can be written into a link?
function html.is_web_address(url) return url:find("^[Hh][Tt][Tt][Pp][Ss]?://[^%s%c\"'<>\\]+$") ~= nil end

--- A link; plain text for a URL that a browser should not follow.
function html.link(url, text)
  url = html.public(url)
  if not text or text == "" then text = url end
  if not html.is_web_address(url) then return html.escape(text) end
  return html.fill('<a href="{url}" rel="noopener noreferrer" target="_blank">{text}</a>', {url = url, text = text})
end

html.number = require "zel.thousands"

--- "1 layer", "2,000 layers".
function html.count(n, what) return html.number(n) .. " " .. what .. (n == 1 and "" or "s") end

return html
