-- The key tables of docs/keys.md, written from the key catalogue (build/keys.json):
--   lua5.1 tools/catalogue/keys_table.lua build/keys.json                 print them
--   lua5.1 tools/catalogue/keys_table.lua build/keys.json docs/keys.md    replace them
-- The tables, and each key's arguments or fields explained, sit between the
-- "keys:begin" and "keys:end" comment lines.
local cjson = require "cjson"

local function tables(catalogue)
  local out = {}
  for _, call in ipairs({ "get", "set" }) do
    out[#out + 1] = "## " .. call .. "\n"
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
  -- What each argument or field means and accepts.
  out[#out + 1] = "## Arguments and fields\n"
  for _, k in ipairs(catalogue) do
    if k.explain and k.explain[1] then
      out[#out + 1] = "### " .. k.call .. " " .. k.key .. "\n"
      for _, f in ipairs(k.explain) do out[#out + 1] = "- `" .. f.name .. "`: " .. f.text end
      out[#out + 1] = ""
    end
  end
  return table.concat(out, "\n")
end

local catalogue = cjson.decode(assert(io.open((assert(arg[1], "usage: keys_table.lua KEYS.json [FILE.md]")))):read("*a"))
local text = tables(catalogue)
if not arg[2] then
  io.write(text)
  return
end
local doc = assert(io.open(arg[2])):read("*a")
local begin_mark, end_mark = "<!-- keys:begin -->\n", "<!-- keys:end -->"
local a = assert(doc:find(begin_mark, 1, true), arg[2] .. " has no keys:begin line")
local b = assert(doc:find(end_mark, 1, true), arg[2] .. " has no keys:end line")
local f = assert(io.open(arg[2], "w"))
f:write(doc:sub(1, a + #begin_mark - 1), text, doc:sub(b))
f:close()
