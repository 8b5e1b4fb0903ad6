--- A whole number as people read it: 17,573.
return function(n)
  return (("%.0f"):format(n):reverse():gsub("(%d%d%d)", "%1,"):reverse():gsub("^,", ""))
end
