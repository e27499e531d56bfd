-- The module's ownership and layering rules, checked on the text of its sources
-- (make lint runs it; it also runs alone):
--   lua5.1 tools/lint_rules.lua FILE...
-- Files outside the module's folders are ignored, so the tree's file list may be
-- passed whole.
--
-- Ownership: a Lua error longjmps over the module's frames, so nothing in them may
-- need a destructor. In module/, common/, platform/ and the feature folders no
-- standard container, owning pointer, std::function or string stream is used and no
-- class declares a destructor. A line that must break this rule (the call scope's
-- own storage) says why with "lint: owner-ok (<reason>)", on that line or the one
-- before it.
--
-- Layering: a feature folder includes its own headers, common/ and platform/;
-- common/ includes common/ and platform/; platform/ includes only platform/;
-- module/ joins everything and may include any of them.

-- Top-level folders that are not part of the module.
local OUTSIDE = { sim = true, ubox = true, tools = true, tests = true, fuzz = true, bench = true, web = true,
  docs = true, cmake = true }

local ALLOWED = {
  module = nil, -- anything
  common = { common = true, platform = true },
  platform = { platform = true },
}

local OWNING = { "vector", "string", "wstring", "basic_string", "map", "multimap", "set", "multiset",
  "unordered_map", "unordered_set", "unordered_multimap", "unordered_multiset", "list", "forward_list", "deque",
  "queue", "priority_queue", "stack", "unique_ptr", "shared_ptr", "weak_ptr", "function", "stringstream",
  "ostringstream", "istringstream" }
local OWNING_SET = {}
for _, name in ipairs(OWNING) do OWNING_SET[name] = true end
local OWNING_HEADERS = { vector = true, string = true, map = true, set = true, unordered_map = true,
  unordered_set = true, list = true, forward_list = true, deque = true, queue = true, stack = true, memory = true,
  ["functional"] = true, sstream = true }

local problems = 0

local function report(file, line, text)
  io.stderr:write(("%s:%d: %s\n"):format(file, line, text))
  problems = problems + 1
end

-- The line with comments and the contents of string and character literals blanked,
-- so a text or a remark that names a container is not taken for code. in_block says
-- whether the line starts inside a /* */ comment; the second result says whether it
-- ends inside one.
local function code_of(line, in_block)
  local out, i, n = {}, 1, #line
  while i <= n do
    if in_block then
      local e = line:find("*/", i, true)
      if not e then return table.concat(out), true end
      i, in_block = e + 2, false
    else
      local c = line:sub(i, i)
      local two = line:sub(i, i + 1)
      if two == "//" then
        break
      elseif two == "/*" then
        in_block, i = true, i + 2
      elseif c == '"' or c == "'" then
        local j = i + 1
        while j <= n and line:sub(j, j) ~= c do
          if line:sub(j, j) == "\\" then j = j + 1 end
          j = j + 1
        end
        out[#out + 1] = c .. c
        i = j + 1
      else
        out[#out + 1] = c
        i = i + 1
      end
    end
  end
  return table.concat(out), in_block
end

local function check_file(file)
  local top = file:match("^([^/]+)/")
  if not top or OUTSIDE[top] then return end
  local handle = io.open(file)
  if not handle then return end
  local allowed = ALLOWED[top]
  if top ~= "module" and not allowed then allowed = { [top] = true, common = true, platform = true } end
  local in_block = false
  local number = 0
  local previous = ""
  for line in handle:lines() do
    number = number + 1
    local included = line:match('^%s*#%s*include%s*"([^"]+)"')
    if included and allowed then
      local folder = included:match("^([^/]+)/") or top
      if not allowed[folder] then
        if top == "platform" then
          report(file, number, ('platform/ includes "%s", from a layer above it; platform/ includes only platform/')
            :format(included))
        elseif top == "common" then
          report(file, number, ('common/ includes "%s"; common/ includes only common/ and platform/'):format(included))
        else
          report(file, number, ('feature folder %s/ includes "%s", another feature\'s header; share it through '
            .. "common/ or platform/"):format(top, included))
        end
      end
    end
    local system = line:match("^%s*#%s*include%s*<([%w_]+)>")
    local exempt = line:find("lint: owner-ok (", 1, true) or previous:find("lint: owner-ok (", 1, true)
    previous = line
    if system and OWNING_HEADERS[system] and not exempt then
      report(file, number, ("<%s> in %s/: the module's frames hold no standard container or owning pointer "
        .. "(a Lua error would skip its destructor); use the call scope (platform/holders.h)"):format(system, top))
    end
    local code
    code, in_block = code_of(line, in_block)
    if not exempt then
      for name in code:gmatch("std%s*::%s*([%a_][%w_]*)") do
        if OWNING_SET[name] then
          report(file, number, ("std::%s in %s/: the module's frames hold no standard container or owning "
            .. "pointer (a Lua error would skip its destructor); use the call scope (platform/holders.h)")
            :format(name, top))
        end
      end
      -- A destructor starts a declaration or follows a brace, a semicolon, an access
      -- label or a class name's "::"; elsewhere "~" is a bitwise not.
      local marked = ";" .. code
      local destructor = marked:match("[{;:]%s*~%s*([%a_][%w_]*)%s*%(")
        or marked:match("[{;:]%s*virtual%s+~%s*([%a_][%w_]*)%s*%(")
      if destructor then
        report(file, number, ("class %s in %s/ declares a destructor: a Lua error would skip it; keep what it "
          .. "releases in the call scope (platform/holders.h) and make the type trivially destructible")
          :format(destructor, top))
      end
    end
  end
  handle:close()
end

for _, file in ipairs(arg) do
  if file:match("%.cpp$") or file:match("%.h$") then check_file(file) end
end
if problems > 0 then
  io.stderr:write(("lint_rules: %d problem%s\n"):format(problems, problems == 1 and "" or "s"))
  os.exit(1)
end
