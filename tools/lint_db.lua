-- Compile database for the static checks: each C++ source of the source tree once,
-- taken from the build's database, plus the tracked sources this build does not
-- compile (the gateway's seams), which borrow the flags of a file in their folder.
-- Usage: lua5.1 tools/lint_db.lua <source root> <build database> <output database>
--        <source file>...   (prints the sources the output covers, one a line)
local cjson = require "cjson"

local root, input, output = arg[1], arg[2], arg[3]
local function read(path)
  local f = assert(io.open(path, "rb"))
  local text = f:read("*a")
  f:close()
  return text
end

local function literal(s) return (s:gsub("[%^%$%(%)%%%.%[%]%*%+%-%?]", "%%%0")) end

local entries, seen, by_folder = {}, {}, {}
local under_root = "^" .. literal(root .. "/")
for _, e in ipairs(cjson.decode(read(input))) do
  local file = e.file
  -- Generated sources live in the build folder; they are data, not our code.
  if file:find(under_root) and not file:find(under_root .. "build") and not seen[file] then
    seen[file] = true
    entries[#entries + 1] = e
    local folder = file:match("^(.*)/[^/]*$")
    by_folder[folder] = by_folder[folder] or e
  end
end

local fallback = entries[1]
for i = 4, #arg do
  local file = root .. "/" .. arg[i]
  if not seen[file] then
    local like = by_folder[file:match("^(.*)/[^/]*$")] or fallback
    seen[file] = true
    entries[#entries + 1] = { directory = like.directory, file = file,
                              command = like.command:gsub(literal(like.file), (file:gsub("%%", "%%%%"))) }
  end
end

local f = assert(io.open(output, "wb"))
f:write(cjson.encode(entries))
f:close()
for _, e in ipairs(entries) do print(e.file) end
