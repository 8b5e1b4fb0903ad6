--- A server's text for people: without control characters, C1 and those that turn the direction of what follows them
-- included. Characters of `kept` stay.

return function(text, kept)
  return (tostring(text):gsub("%c", function(c) return kept and kept:find(c, 1, true) and c or " " end)
          :gsub("\xC2[\x80-\x9F]", " "):gsub("\xE2\x80[\xAA-\xAE]", ""):gsub("\xE2\x81[\xA6-\xA9]", ""))
end
