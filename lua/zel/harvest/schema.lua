--- The tables of a harvest's database.
--
-- A service has the id N * 1,000,000, its Kth layer or coverage that plus K: what belongs to a service is one range of
-- ids, in the full-text index and the index of boxes too.
--
-- Layers inherit: boxes in degrees, scales and flags stand with every layer, since a search wants them; names of
-- systems, boxes in their units, styles and dimensions stand where the document has them, and the views layer_system,
-- layer_bounds, layer_style and layer_dimension add what comes from the layers around. Layers with the same names of
-- systems share one list.

local schema = {}

schema.APPLICATION = 0x5A4F4743 -- in the file's header
schema.VERSION = 2
schema.SPAN = 1000000 -- ids of a service

-- The columns of a service besides id, url and kind, with the tags of the two service structures.
schema.CONTACT = {
  {"name", "NAME", "NAME"}, {"title", "TITLE", "LABEL"}, {"abstract", "ABSTRACT", "DESCRIPTION"},
  {"online", "ONLINE", "ONLINE"}, {"person", "PERSON", "INDIVIDUAL"},
  {"organization", "ORGANIZATION", "ORGANIZATION"}, {"position", "POSITION", "POSITION"},
  {"address", "ADDRESS", "DELIVERY"}, {"city", "CITY", "CITY"}, {"state", "STATE", "ADMINISTRATIVE"},
  {"postal_code", "POSTAL_CODE", "POSTAL"}, {"country", "COUNTRY", "COUNTRY"}, {"voice", "VOICE", "VOICE"},
  {"fax", "FAX", "FAX"}, {"email", "EMAIL", "EMAIL"}, {"fees", "FEES", "FEES"}, {"access", "ACCESS", "ACCESS"},
}

local contact = {}
for i, row in ipairs(schema.CONTACT) do contact[i] = row[1] .. " TEXT" end

local BOX = "west REAL, south REAL, east REAL, north REAL"

-- From a layer up to the outermost one; steps is 0 for itself.
local ABOVE = [[CREATE VIEW layer_above AS
SELECT layer.id AS layer, above.value AS above, above.key AS steps
FROM layer, json_each((WITH RECURSIVE up(id, parent) AS (
  SELECT layer.id, layer.parent UNION ALL SELECT next.id, next.parent FROM up JOIN layer AS next ON next.id = up.parent)
  SELECT json_group_array(id) FROM up)) AS above]]

-- A view of what layers have themselves, and of what the layers around them have that nothing nearer replaces.
local function nearest(view, owner, columns, same)
  local values = {view = view, owner = owner, columns = columns, same = same}
  return (([[CREATE VIEW $view AS SELECT above.layer, $columns, above.steps
FROM layer_above AS above JOIN $owner AS own ON own.layer = above.above
WHERE NOT EXISTS (SELECT 1 FROM layer_above AS way JOIN $owner AS nearer ON nearer.layer = way.above
  WHERE way.layer = above.layer AND $same AND (way.steps, nearer.position) < (above.steps, own.position))]]):gsub(
    "%$(%a+)", values))
end

schema.STATEMENTS = {
  ("PRAGMA application_id = %d"):format(schema.APPLICATION),
  ("PRAGMA user_version = %d"):format(schema.VERSION),
  "CREATE TABLE run (id INTEGER PRIMARY KEY, list TEXT NOT NULL, started TEXT NOT NULL, finished TEXT, "
    .. "UNIQUE (list, started))",
  "CREATE TABLE service (id INTEGER PRIMARY KEY, url TEXT NOT NULL, kind TEXT NOT NULL, version TEXT, "
    .. table.concat(contact, ", ") .. ", max_width INTEGER, max_height INTEGER, layer_limit INTEGER, "
    .. "map_formats TEXT, info_formats TEXT, " .. BOX
    .. ", update_sequence TEXT, document_hash TEXT, bytes INTEGER, harvested TEXT, UNIQUE (url, kind))",
  "CREATE TABLE layer (id INTEGER PRIMARY KEY, service INTEGER NOT NULL REFERENCES service (id), "
    .. "parent INTEGER REFERENCES layer (id), level INTEGER, position INTEGER, name TEXT, title TEXT, abstract TEXT, "
    .. "attribution TEXT, queryable INTEGER, opaque INTEGER, cascaded INTEGER, " .. BOX
    .. ", min_scale REAL, max_scale REAL, systems INTEGER)",
  "CREATE INDEX layer_service ON layer (service)",
  "CREATE TABLE coverage (id INTEGER PRIMARY KEY, service INTEGER NOT NULL REFERENCES service (id), position INTEGER, "
    .. "name TEXT, title TEXT, abstract TEXT, " .. BOX .. ", time_begin TEXT, time_end TEXT)",
  "CREATE INDEX coverage_service ON coverage (service)",
  "CREATE TABLE system (list INTEGER, position INTEGER, name TEXT NOT NULL, PRIMARY KEY (list, position)) "
    .. "WITHOUT ROWID",
  "CREATE INDEX system_name ON system (name)",
  "CREATE TABLE bounds (layer INTEGER, position INTEGER, system TEXT, min_x REAL, min_y REAL, max_x REAL, max_y REAL, "
    .. "PRIMARY KEY (layer, position)) WITHOUT ROWID",
  "CREATE TABLE style (layer INTEGER, position INTEGER, name TEXT, title TEXT, abstract TEXT, legend TEXT, "
    .. "PRIMARY KEY (layer, position)) WITHOUT ROWID",
  "CREATE TABLE dimension (layer INTEGER, position INTEGER, name TEXT, units TEXT, preset TEXT, extent TEXT, "
    .. "PRIMARY KEY (layer, position)) WITHOUT ROWID",
  "CREATE TABLE keyword (item INTEGER, position INTEGER, word TEXT NOT NULL, PRIMARY KEY (item, position)) "
    .. "WITHOUT ROWID",
  "CREATE TABLE attempt (service INTEGER REFERENCES service (id), started TEXT, run INTEGER REFERENCES run (id), "
    .. "seconds REAL, bytes INTEGER, version TEXT, result TEXT NOT NULL, again INTEGER NOT NULL, words TEXT, "
    .. "PRIMARY KEY (service, started)) WITHOUT ROWID",
  [[CREATE VIEW item AS
SELECT id, id AS service, 'service' AS kind, name, title, abstract, (SELECT group_concat(word, ', ') FROM keyword
  WHERE item = service.id) AS keywords, west, south, east, north FROM service WHERE harvested IS NOT NULL
UNION ALL SELECT id, service, 'layer', name, title, abstract, (SELECT group_concat(word, ', ') FROM keyword
  WHERE item = layer.id), west, south, east, north FROM layer
UNION ALL SELECT id, service, 'coverage', name, title, abstract, (SELECT group_concat(word, ', ') FROM keyword
  WHERE item = coverage.id), west, south, east, north FROM coverage]],
  "CREATE VIRTUAL TABLE words USING fts5 (title, name, keywords, abstract, content = 'item', content_rowid = 'id', "
    .. "tokenize = 'unicode61 remove_diacritics 2')",
  "INSERT INTO words (words, rank) VALUES ('rank', 'bm25(10.0, 6.0, 4.0, 1.0)')",
  "CREATE VIRTUAL TABLE box USING rtree (id, west, east, south, north)",
  ABOVE,
  -- Each layer for itself, here and in nearest(): DISTINCT or GROUP BY around all layers would make a join for a few of
  -- them go through all.
  [[CREATE VIEW layer_system AS SELECT layer.id AS layer, each.value AS name
FROM layer, json_each((WITH RECURSIVE up(list, parent) AS (SELECT layer.systems, layer.parent
  UNION ALL SELECT next.systems, next.parent FROM up JOIN layer AS next ON next.id = up.parent)
  SELECT json_group_array(DISTINCT system.name) FROM up JOIN system ON system.list = up.list)) AS each]],
  nearest("layer_bounds", "bounds", "system, min_x, min_y, max_x, max_y", "own.system IS nearer.system"),
  [[CREATE VIEW layer_style AS SELECT above.layer, style.name, style.title, style.abstract, style.legend
FROM layer_above AS above JOIN style ON style.layer = above.above]],
  nearest("layer_dimension", "dimension", "name, units, preset, extent", "lower(own.name) IS lower(nearer.name)"),
  [[CREATE VIEW latest_attempt AS SELECT service.url, service.kind, service.title, max(attempt.started) AS started,
attempt.result, attempt.words, attempt.seconds FROM attempt JOIN service ON service.id = attempt.service
GROUP BY attempt.service]],
}

return schema
