--- The file of a page, and what surrounds its layers. Its frame, style and script are page.html, page.css and page.js.

local errors = require "zel.ogc.errors"
local facts = require "zel.catalogue.facts"
local html = require "zel.catalogue.html"
local tree = require "zel.catalogue.tree"

local fill = html.fill

-- Parts of the page that are separate files beside this one.
local function part(name)
  local path = assert(package.searchpath("zel.catalogue.page", (package.path:gsub("%.lua", "." .. name))))
  local file <close> = assert(io.open(path, "rb"))
  return file:read("a")
end

local function random_text()
  local source <close> = assert(io.open("/dev/urandom", "rb"))
  return (source:read(16):gsub(".", function(byte) return ("%02x"):format(byte:byte()) end))
end

-- The file that the page is written to; it gets its name once it is complete.
local Page = {}
Page.__index = Page

function Page:need(done, why)
  return done or errors.raise(("cannot write %s: %s"):format(self.to, (why:gsub("^.*: ", ""))))
end

function Page:write(template, values) self:need(self.file:write(fill(template, values))) end

function Page:finish()
  self:need(self.file:close())
  self:need(os.rename(self.to .. ".part", self.to))
  self.done = true
end

function Page:__close()
  if self.done then return end
  if io.type(self.file) == "file" then self.file:close() end
  os.remove(self.to .. ".part")
end

--- Begins a page, so that it is known early whether it can be written. To be closed, which removes what is unfinished.
function Page.new(to)
  local page = setmetatable({to = to, numbers = {}}, Page)
  page.file = page:need(io.open(to .. ".part", "wb"))
  return page
end

--- Writes everything. `shown(layer)` gives its picture, or why there is none, scale, request and legends.
function Page:write_service(service, url, pictures, shown)
  self.shown, self.nonce = shown, random_text()
  local outermost = {}
  for number, layer in ipairs(service.layers) do
    self.numbers[layer] = number
    if not layer.parent then outermost[#outermost + 1] = layer end
  end
  local groups = tree.index(self, outermost)
  local total, inside = tree.count(service.layers)
  self.inside = inside
  self:write(part("html"):match("^(.*){layers}\n"), {
    nonce = self.nonce, style = part("css"), title = service.title or url, version = service.version,
    abstract = service.abstract and fill('<p class="lead">{abstract}</p>', service) or "",
    count = html.count(total, "layer"), pictures = html.count(pictures, "picture"),
    date = os.date("%Y-%m-%d"), facts = facts.service(service, url), link = html.link(url),
    index = groups ~= "" and '<nav aria-label="Groups"><ul>\n' .. groups .. "</ul></nav>\n" or "",
  })
  tree.write(self, outermost)
  self:write(part("html"):match("{layers}\n(.*)$"), {script = part("js"), nonce = self.nonce})
  self:finish()
end

return Page
