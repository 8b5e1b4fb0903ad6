--- A catalogue of a Web Map Service: one HTML page with all its layers and their pictures.
--
--   require("zel.catalogue").write{url = "https://maps.example.org/wms", to = "page.html"}
--
--   url          of the service
--   to           the file to write
--   jobs         how many processes fetch pictures; 4
--   pictures     how many layers get one; all
--   properties   options of zel.ogc and properties of its object: {user = "me", password = "...", TIMEOUT = 20}
--   quiet        true: nothing on standard error
--
-- Returns {layers, pictures, stopped}: the numbers of both, and whether Ctrl-C ended the fetching; the page then has
-- the pictures that have arrived.

local html = require "zel.catalogue.html"
local Page = require "zel.catalogue.page"
local fetch = require "zel.catalogue.pictures"
local request = require "zel.catalogue.request"
local arguments = require "zel.ogc.arguments"
local errors = require "zel.ogc.errors"
local most_jobs = require "zel.most_jobs"
local ogc = require "zel.ogc"
local secrets = require "zel.ogc.secrets"

local JOBS = 4
local SIZE, SMALL_SIZE = {720, 450}, {360, 225} -- of pictures
local MANY = 100                         -- layers; pages with more have small pictures
local LINKED_SIZE = {1440, 900}          -- of the map that a link asks for

local TYPES = {
  url = "string", to = "string", jobs = "number", pictures = "number", properties = "table", quiet = "boolean",
}

-- The address of the service without what is secret, and without what requests write themselves.
local function public_address(url)
  local address, query = html.public(url):match("^([^?]*)%??(.*)$")
  local kept = {}
  for parameter in query:gmatch("[^&]+") do
    local name = parameter:lower():match("^[^=]*")
    local ours = name == "service" or name == "request" or name == "version"
    if not ours and not secrets.is_secret(name) then kept[#kept + 1] = parameter end
  end
  return html.clean(#kept == 0 and address or address .. "?" .. table.concat(kept, "&"))
end

-- The options that other processes can be given: all but functions.
local function plain(options)
  local rest = {quiet = true}
  for name, value in pairs(options) do
    local about_status = name == "status" or name == "verbose" or name:find("^CALLBACK_")
    if type(value) ~= "function" and not about_status then rest[name] = value end
  end
  return rest
end

local function open(url, address, options, quiet)
  if not quiet then io.stderr:write("Asking ", address, " for its layers\n") end
  local given = {quiet = quiet}
  for name, value in pairs(options) do given[name] = value end
  local s = ogc.wms(url, given)
  if #s.layers == 0 then errors.raise("the service at " .. address .. " offers no layers") end
  return s
end

-- What is to be fetched: a list of tasks, and the numbers of the tasks of each layer.
local Plan = {}
Plan.__index = Plan

function Plan:add(task)
  self.tasks[#self.tasks + 1] = task
  return #self.tasks
end

function Plan:add_map(s, layer, address, most)
  local draw, why = request.map(s, layer)
  if not draw then return {legends = {}, why = why} end
  local query, scale = draw(table.unpack(#s.layers > MANY and SMALL_SIZE or SIZE))
  if not query then return {legends = {}, why = scale} end
  local entry = {legends = {}, scale = scale, request = ("%s%sSERVICE=WMS&VERSION=%s&REQUEST=GetMap&%s"):format(
    address, address:find("?", 1, true) and "&" or "?", s.version, scale and query or draw(table.unpack(LINKED_SIZE)))}
  if self.maps < most then
    entry.map = self:add("map " .. query)
    self.maps = #self.tasks
  else
    entry.why = ("Only %d pictures were asked for."):format(most)
  end
  return entry
end

-- The legends of a layer's own styles, and those of the group around it when that has no picture to show them with.
function Plan:add_legends(layer, entry)
  local group, inherited = self.entries[layer.parent], {}
  for _, style in ipairs(group and group.map and layer.parent.styles or {}) do inherited[style.legend or ""] = true end
  for _, style in ipairs(layer.styles) do
    local url = style.legend
    if url and html.is_web_address(url) and not inherited[url] then
      self.legends[url] = self.legends[url] or self:add("legend " .. url)
      table.insert(entry.legends, {title = style.title or style.name, task = self.legends[url]})
    end
  end
end

local function new_plan(s, address, most)
  local plan = setmetatable({tasks = {}, legends = {}, maps = 0, entries = {}}, Plan)
  for _, layer in ipairs(s.layers) do plan.entries[layer] = plan:add_map(s, layer, address, most) end
  for _, layer in ipairs(s.layers) do
    if plan.entries[layer].map then plan:add_legends(layer, plan.entries[layer]) end
  end
  return plan
end

local catalogue = {}

--- Writes a catalogue.
function catalogue.write(options)
  arguments.check("catalogue.write", options, TYPES)
  local url, to, properties = options.url, options.to, options.properties or {}
  local jobs = arguments.check_count("jobs", options.jobs, most_jobs.catalogue) or JOBS
  local most = options.pictures or math.huge
  if not url or not to then errors.raise("catalogue.write wants a url and the file to write to") end
  local address = public_address(url)

  local page <close> = Page.new(to)
  local s <close> = open(url, address, properties, options.quiet)
  local plan = new_plan(s, address, most)
  local pictures <close> = fetch(plan.tasks, {
    url = url, options = plain(properties), version = s.version, jobs = jobs, quiet = options.quiet})
  local drawn = 0
  for number = 1, plan.maps do drawn = drawn + (pictures.done[number] and 1 or 0) end
  page:write_service(s, address, drawn, function(layer)
    local entry = plan.entries[layer]
    if entry.map then entry.picture, entry.why = pictures:get(entry.map) end
    for _, legend in ipairs(entry.legends) do legend.picture, legend.why = pictures:get(legend.task) end
    plan.entries[layer] = nil -- pictures are large
    return entry
  end)
  return {layers = #s.layers, pictures = drawn, stopped = pictures.stopped}
end

return catalogue
