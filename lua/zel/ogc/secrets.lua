--- What is secret in a URL besides user and password: the values of parameters such as token and key.

local unescaped = require "zel.ogc.unescaped"

-- How the names of such parameters end.
local ENDINGS = {"pass", "passwd", "password", "pwd", "token", "key", "secret", "signature", "sig", "auth",
                 "credential"}

local secrets = {}

secrets.HIDDEN = "***"

--- Is a parameter of this name, as it is in a URL, secret?
function secrets.is_secret(name)
  name = unescaped(name):lower()
  for _, ending in ipairs(ENDINGS) do
    if name:sub(-#ending) == ending then return true end
  end
  return false
end

--- The text with "***" in place of the secret values in URLs that it quotes.
function secrets.hidden(text)
  return (text:gsub("([?&;]([^?&;=%s\"'<>]+)=)[^&;%s\"'<>]+", function(start, name)
    return secrets.is_secret(name) and start .. secrets.HIDDEN or nil
  end))
end

return secrets
