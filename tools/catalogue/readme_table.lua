-- The README's key tables, written from the key catalogue (build/keys.json):
--   lua5.1 tools/catalogue/readme_table.lua build/keys.json           print them
--   lua5.1 tools/catalogue/readme_table.lua build/keys.json README.md replace them
-- The tables sit between the "keys:begin" and "keys:end" comment lines.
local cjson = require "cjson"

local function tables(catalogue)
  local out = {}
  for _, call in ipairs({ "get", "set" }) do
    out[#out + 1] = "### " .. call .. "\n"
    out[#out + 1] = "| # | key | " .. (call == "get" and "arguments" or "input") ..
      " | answer | changes the gateway | works |"
    out[#out + 1] = "|---|---|---|---|---|---|"
    local n = 0
    for _, k in ipairs(catalogue) do
      if k.call == call then
        n = n + 1
        local cell = function(s) return (s:gsub("|", "\\|")) end
        out[#out + 1] = string.format("| %d | %s | %s | %s | %s | %s |", n, k.key, cell(k.args), cell(k.fields),
          k.changes and "yes" or "no", k.built and "yes" or "not yet")
      end
    end
    out[#out + 1] = ""
  end
  return table.concat(out, "\n")
end

local catalogue = cjson.decode(assert(io.open((assert(arg[1], "usage: readme_table.lua KEYS.json [README]")))):read("*a"))
local text = tables(catalogue)
if not arg[2] then
  io.write(text)
  return
end
local readme = assert(io.open(arg[2])):read("*a")
local begin_mark, end_mark = "<!-- keys:begin -->\n", "<!-- keys:end -->"
local a = assert(readme:find(begin_mark, 1, true), "README has no keys:begin line")
local b = assert(readme:find(end_mark, 1, true), "README has no keys:end line")
local f = assert(io.open(arg[2], "w"))
f:write(readme:sub(1, a + #begin_mark - 1), text, readme:sub(b))
f:close()
