"""Lets scripts print their values as JSON, makes documents of markers, and follows these."""

import re

# json(v): texts, numbers, booleans, nil, lists and structures.
JSON = r"""
function json(v)
  if type(v) == "string" then
    return '"' .. v:gsub('[%c"\\]', function(c) return ("\\u%04x"):format(c:byte()) end) .. '"'
  elseif type(v) ~= "table" then
    return v == nil and "null" or tostring(v)
  end
  local parts = {}
  for i = 1, #v do parts[i] = json(v[i]) end
  if #v > 0 then return "[" .. table.concat(parts, ",") .. "]" end
  for _, tag in ipairs(zel.tags(v)) do parts[#parts + 1] = json(tag) .. ":" .. json(v[tag]) end
  return "{" .. table.concat(parts, ",") .. "}"
end
"""


def element(name, place, values, *inside):
    """An element whose values name the places where a script finds them, below `place`.

    values: "attribute=TAG", "Child>TAG" for its text, "Child/attribute=TAG", ">TAG" for the element's own text.
    """
    attributes, content = "", ""
    for target, kind, tag in re.findall(r"([\w/]*)([=>])(\S+)", values):
        child, _, attribute = target.rpartition("/")
        if kind == ">":
            content += f"<{target}>{place}.{tag}</{target}>" if target else f"{place}.{tag}"
        elif child:
            content += f"<{child} {attribute}='{place}.{tag}'/>"
        else:
            attributes += f" {target}='{place}.{tag}'"
    return f"<{name}{attributes}>{content}{''.join(inside)}</{name}>"


def leaves(value, path):
    """(path, text) of each text that is not empty, as in layer.STYLE[0].NAME. NUM_X counts the list X."""
    if isinstance(value, dict):
        for tag, item in value.items():
            counted = value.get(tag.removeprefix("NUM_")) if tag.startswith("NUM_") else None
            if isinstance(counted, list):
                assert item == str(sum(any(leaves(entry, "")) for entry in counted)), path + tag
            else:
                yield from leaves(item, f"{path}.{tag}")
    elif isinstance(value, list):
        for i, item in enumerate(value):
            yield from leaves(item, f"{path}[{i}]")
    elif value:
        yield path, value


def check_markers(document, **structures):
    """Each marker of a document, a path like layer.STYLE[0].NAME, has arrived at that path and nothing else anywhere.

    structures: values by the first name of their paths. Returns what is no marker.
    """
    found = dict(leaf for name, value in structures.items() for leaf in leaves(value, name))
    markers = set(re.findall(rf"(?:{'|'.join(structures)})[.\[][\w.\[\]]+", document))
    astray = {path: found.get(path) for path in markers if found.get(path) != path}
    assert markers and not astray, astray
    return {path: text for path, text in found.items() if path not in markers}
