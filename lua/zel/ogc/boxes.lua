--- Boxes: lists of four numbers, west, south, east, north, or the same in the units of another reference system.

local boxes = {}

function boxes.union(a, b)
  if not a or not b then return a or b end
  return {math.min(a[1], b[1]), math.min(a[2], b[2]), math.max(a[3], b[3]), math.max(a[4], b[4])}
end

--- What two boxes share; nil when that is nothing.
function boxes.intersection(a, b)
  local c = {math.max(a[1], b[1]), math.max(a[2], b[2]), math.min(a[3], b[3]), math.min(a[4], b[4])}
  return c[1] < c[3] and c[2] < c[4] and c or nil
end

--- Whether this is a list of four finite numbers with an extent.
function boxes.valid(box)
  for i = 1, 4 do
    if math.type(box[i]) == nil or box[i] ~= box[i] or math.abs(box[i]) == math.huge then return false end
  end
  return #box == 4 and box[1] < box[3] and box[2] < box[4]
end

--- A box in degrees whose west is beyond its east crosses the date line: its east counts on beyond 180.
function boxes.unrolled(box)
  return box[1] > box[3] and {box[1], box[2], box[3] + 360, box[4]} or box
end

--- The parts of a box of degrees within another, in the other's degrees: the two may lie a turn of the Earth apart.
function boxes.shared_degrees(box, other)
  box, other = boxes.unrolled(box), boxes.unrolled(other)
  local parts = {}
  for turn = -360, 360, 360 do
    parts[#parts + 1] = boxes.intersection({box[1] + turn, box[2], box[3] + turn, box[4]}, other)
  end
  return parts
end

--- The box with its axes swapped.
function boxes.turned(box) return {box[2], box[1], box[4], box[3]} end

--- Points of a grid over the box, edges included, as a list of {x, y}.
function boxes.grid(box, steps)
  local points = {}
  for i = 0, steps do
    for j = 0, steps do
      points[#points + 1] = {box[1] + (box[3] - box[1]) * i / steps, box[2] + (box[4] - box[2]) * j / steps}
    end
  end
  return points
end

--- The smallest box around points; nil without any.
function boxes.around(points)
  local box
  for _, p in ipairs(points) do box = boxes.union(box, {p[1], p[2], p[1], p[2]}) end
  return box
end

return boxes
