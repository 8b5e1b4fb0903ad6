--- A Web Map Service: ogc.wms(url, options).
--
-- s.title, s.abstract, s.version        of the service
-- s.layers                              all layers in document order
-- s.layer[name]                         the layer of that name
-- s.formats, s.info_formats             of maps and of answers about a place
-- s.max_width, s.max_height, s.max_layers  limits of a map; nil without one
-- s.record, s.object                    the service structure (nil without one), the ZELnetOGCWMS object
-- s:map{...}                            fetches a map, see zel.ogc.map
-- s:info{...}                           asks what is at a place, see zel.ogc.info
-- s:close()                             releases the object; `local s <close>` does so, too
--
-- A layer: name, title, abstract, keywords, level (from 1), parent, children, box {west, south, east, north} in
-- degrees, crs (names), bounding_boxes {crs =, box = as in the document}, styles {name, title, abstract, legend},
-- dimensions {name, units, default, values}, scale {min, max} as denominators, queryable, opaque, attribution, record
-- (the layer structure). What a service does not say is nil; lists are lists, also when they are empty.

local arguments = require "zel.ogc.arguments"
local errors = require "zel.ogc.errors"
local make_layers = require "zel.ogc.layers"
local records = require "zel.ogc.records"
local service = require "zel.ogc.service"

local VERSIONS = {"1.3.0", "1.1.1", "1.1.0"} -- the highest first

local Wms = {}
Wms.__index = Wms
Wms.map = require "zel.ogc.map"
Wms.info = require "zel.ogc.info"

function Wms:close() self.object:close() end
Wms.__close = Wms.close

-- Whether a failed request for capabilities may do better in an older version: the server answered, with a refusal or
-- with a version that is not known here.
local function is_about_version(why)
  return errors.is(why) and (why.text or why.message:find("version number", 1, true)) ~= nil
end

local function read_capabilities(s)
  local asked = s.options.version
  if asked and not arguments.find(VERSIONS, asked) then errors.unknown("version", asked, VERSIONS) end
  local versions = asked and {asked} or VERSIONS
  for i, version in ipairs(versions) do
    s.object:SetProperty{WMS_VERSION = version}
    local done, why = pcall(service.read_capabilities, s)
    if done then return end
    if i == #versions or not is_about_version(why) then error(why, 0) end
  end
end

-- Further requests are made in the version that the document has.
local function set_version(s, structures)
  s.version = structures[1] and structures[1].VERSION or s.object:GetProperty{"WMS_VERSION"}.WMS_VERSION
  s.object:SetProperty{WMS_VERSION = s.version}
end

return function(url, given)
  local s = service.open("ZELnetOGCWMS", "ogc.wms", url, given)
  read_capabilities(s)
  local structures = s.object:GetLayers()
  if structures == 0 then structures = {} end
  set_version(s, structures)
  local first, section = structures[1], service.section(s)
  s.record = section
  s.layers, s.layer = make_layers(structures)
  s.formats = first and records.list(first.MAP_FORMAT, first.NUM_MAP_FORMAT) or {}
  s.info_formats = first and records.list(first.FEATURE_FORMAT, first.NUM_FEATURE_FORMAT) or {}
  if section then
    s.title, s.abstract = records.text(section.TITLE), records.text(section.ABSTRACT)
    s.max_width, s.max_height = records.number(section.MAX_WIDTH), records.number(section.MAX_HEIGHT)
    s.max_layers = records.number(section.LAYER_LIMIT)
  end
  return setmetatable(s, Wms)
end
