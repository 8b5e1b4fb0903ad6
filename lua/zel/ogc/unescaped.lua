--- A part of a URL as plain text: "%41" becomes "A".

return function(text)
  return (text:gsub("%%(%x%x)", function(digits) return string.char(tonumber(digits, 16)) end))
end
