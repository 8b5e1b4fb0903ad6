--- How many processes may work at a time, by what they work for.

return {catalogue = 64, harvest = 256}
