--- Seconds as people read them: 0:05, 1:01:00; less than a hundred hours.
return function(seconds)
  local s = math.ceil(math.min(seconds, 359999))
  if s < 3600 then return ("%d:%02d"):format(s // 60, s % 60) end
  return ("%d:%02d:%02d"):format(s // 3600, s // 60 % 60, s % 60)
end
