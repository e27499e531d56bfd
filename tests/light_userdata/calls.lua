-- Every call path of the module with the guard preloaded: a read, a write, a write
-- whose field is missing (the argument error path) and an unknown key.
local v = require "velconfig"
assert(v:get("hasWiFi") ~= nil, "get answered nothing")
assert(type(v:set("nosuchkey", {})) == "number", "set did not answer a number")
assert(type(v:get("lan")) == "table", "lan is not a table")
local ok, err = pcall(v.set, v, "lan", {})
assert(not ok and tostring(err):find("string expected"), "missing field: " .. tostring(err))
print("calls ok")
