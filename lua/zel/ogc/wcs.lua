--- A Web Coverage Service: ogc.wcs(url, options).
--
-- c.title, c.abstract            of the service
-- c.coverages                    all in order: name, title, abstract, keywords, box in degrees, record (the brief)
-- c.coverage[name]               the coverage of that name
-- c:describe(name)               everything about one, see zel.ogc.description
-- c:get{...}                     fetches one, see zel.ogc.coverage
-- c.record, c.object             the service structure (nil without one), the ZELnetOGCWCS object
-- c:close()                      releases the object; `local c <close>` does so, too

local description = require "zel.ogc.description"
local errors = require "zel.ogc.errors"
local records = require "zel.ogc.records"
local service = require "zel.ogc.service"

local Wcs = {}
Wcs.__index = Wcs
Wcs.get = require "zel.ogc.coverage"

function Wcs:close() self.object:close() end
Wcs.__close = Wcs.close

--- What the service says about one coverage; asked for once.
function Wcs:describe(name)
  if not self.coverage[name] then
    local names = {}
    for i, coverage in ipairs(self.coverages) do names[i] = coverage.name end
    errors.unknown("coverage", tostring(name), names)
  end
  if not self.descriptions[name] then
    service.check_online(self)
    service.request(self, "DescribeCoverage", {NAMES = name})
    self.descriptions[name] = description(self.object:GetCoverageOffering()[1])
  end
  return self.descriptions[name]
end

local function coverage(brief)
  local low, high = records.numbers(brief.POS1), records.numbers(brief.POS2)
  return {record = brief, name = records.text(brief.NAME), title = records.text(brief.LABEL),
          abstract = records.text(brief.DESCRIPTION), keywords = records.list(brief.KEYWORDS),
          box = high[2] and {low[1], low[2], high[1], high[2]} or nil}
end

return function(url, given)
  local c = service.open("ZELnetOGCWCS", "ogc.wcs", url, given)
  if c.options.version then c.object:SetProperty{WCS_VERSION = c.options.version} end
  service.read_capabilities(c)
  local briefs = c.object:GetCoverageOfferingBriefs()
  c.record = service.section(c)
  c.title, c.abstract = c.record and records.text(c.record.LABEL), c.record and records.text(c.record.DESCRIPTION)
  c.coverages, c.coverage, c.descriptions = {}, {}, {}
  for i, brief in ipairs(briefs ~= 0 and briefs or {}) do
    c.coverages[i] = coverage(brief)
    if c.coverages[i].name then c.coverage[c.coverages[i].name] = c.coverages[i] end
  end
  return setmetatable(c, Wcs)
end
