-- Mutation check: how many small faults in the module's handlers the suite catches.
--   lua5.1 tools/mutate.lua [--count N] [--dir DIR] [--list] [--timeout S]
-- The tracked tree is copied to DIR/src (default build-mutate/src; the working tree
-- is never changed), built once in DIR/build and checked to pass the suite unmutated.
-- Then each mutant is applied to the copy, built incrementally (-j2) and run against
-- the suite (ctest, stopping at the first failure, each test under a time-out), and
-- the line is put back. A mutant is killed when the build's suite fails, survives
-- when it passes, and is stillborn when it does not compile (not counted). The
-- summary goes to stdout and DIR/report.txt; --list only prints the mutants.
--
-- Mutants are drawn evenly, in a fixed order, from every site of three kinds in the
-- feature folders and common/:
--   compare  a flipped comparison (== and !=, < and <=, > and >=)
--   limit    an off-by-one limit (a constant of a constexpr bound, a "- 1" or "+ 1")
--   release  a dropped release call (.release(), .finish(), g_free, g_variant_unref,
--            json_decref)

local FOLDERS = { "status", "network", "wifi", "loid", "interconnect", "system", "storage", "apps", "common" }
local SHARE = { compare = 0.45, limit = 0.25, release = 0.30 }

local options = { count = 60, dir = "build-mutate", timeout = 120, list = false }
do
  local i = 1
  while i <= #arg do
    local a = arg[i]
    if a == "--count" then
      options.count = assert(tonumber(arg[i + 1]), "--count takes a number"); i = i + 1
    elseif a == "--dir" then
      options.dir = assert(arg[i + 1], "--dir takes a folder"); i = i + 1
    elseif a == "--timeout" then
      options.timeout = assert(tonumber(arg[i + 1]), "--timeout takes seconds"); i = i + 1
    elseif a == "--list" then
      options.list = true
    else
      io.stderr:write("usage: lua5.1 tools/mutate.lua [--count N] [--dir DIR] [--list] [--timeout S]\n")
      os.exit(2)
    end
    i = i + 1
  end
end

-- One shell word, whatever the text holds.
local function quote(text)
  return "'" .. tostring(text):gsub("'", "'\\''") .. "'"
end

local function run(command)
  local ok = os.execute(command)
  return ok == 0 or ok == true
end

local function read_lines(path)
  local lines = {}
  for line in assert(io.open(path)):lines() do lines[#lines + 1] = line end
  return lines
end

local function write_lines(path, lines)
  local f = assert(io.open(path, "w"))
  f:write(table.concat(lines, "\n"), "\n")
  f:close()
end

-- The line with comments and the insides of literals turned into spaces, so every
-- column still matches the line; in_block as in a /* */ comment that spans lines.
local function code_of(line, in_block)
  local out, i, n = {}, 1, #line
  while i <= n do
    if in_block then
      local e = line:find("*/", i, true)
      local stop = e and e + 1 or n
      out[#out + 1] = string.rep(" ", stop - i + 1)
      i = stop + 1
      in_block = e == nil
    else
      local c, two = line:sub(i, i), line:sub(i, i + 1)
      if two == "//" then
        out[#out + 1] = string.rep(" ", n - i + 1)
        break
      elseif two == "/*" then
        out[#out + 1] = "  "
        in_block, i = true, i + 2
      elseif c == '"' or c == "'" then
        local j = i + 1
        while j <= n and line:sub(j, j) ~= c do
          if line:sub(j, j) == "\\" then j = j + 1 end
          j = j + 1
        end
        out[#out + 1] = c .. string.rep(" ", math.max(0, math.min(j, n) - i - 1)) .. (j <= n and c or "")
        i = j + 1
      else
        out[#out + 1] = c
        i = i + 1
      end
    end
  end
  return table.concat(out), in_block
end

local FLIP = { ["=="] = "!=", ["!="] = "==", ["<"] = "<=", ["<="] = "<", [">"] = ">=", [">="] = ">" }
local RELEASE_CALLS = { "%.release%(%)%s*;", "%.finish%(%)%s*;", "g_free%b()%s*;", "g_variant_unref%b()%s*;",
  "json_decref%b()%s*;" }

-- Every mutation site of a file: {file, line, kind, from, to, column}.
local function sites_of(file)
  local sites = {}
  local in_block = false
  for number, line in ipairs(read_lines(file)) do
    local code
    code, in_block = code_of(line, in_block)
    local skip = code:match("^%s*#") or code:match("static_assert")
    if not skip then
      -- Comparisons: clang-format spaces binary operators, not template brackets.
      local start = 1
      while true do
        local s, e, op = code:find(" ([=!<>]=?) ", start)
        if not s then break end
        if FLIP[op] then
          sites[#sites + 1] = { file = file, line = number, kind = "compare", column = s + 1, from = op, to = FLIP[op] }
        end
        start = e
      end
      -- Limits: a constexpr bound's value, and explicit +1/-1 adjustments.
      local s, _, value = code:find("^%s*constexpr [%w_:]+ k[%w_]+ = (%d+);")
      if s then
        local column = code:find(value .. ";", 1, true)
        sites[#sites + 1] = { file = file, line = number, kind = "limit", column = column, from = value,
          to = tostring(tonumber(value) + ((#sites % 2 == 0) and 1 or -1)) }
      end
      start = 1
      while true do
        local s2, e2, sign = code:find(" ([%+%-]) 1%f[^%w_%.]", start)
        if not s2 then break end
        sites[#sites + 1] = { file = file, line = number, kind = "limit", column = s2 + 1, from = sign .. " 1",
          to = sign .. " 0" }
        start = e2
      end
      -- Release calls that make a whole statement.
      for _, pattern in ipairs(RELEASE_CALLS) do
        local s3, e3 = code:find(pattern)
        if s3 and code:sub(1, s3 - 1):match("^%s*[%w_%.%->%[%]]*$") then
          local stmt_start = code:find("%S")
          sites[#sites + 1] = { file = file, line = number, kind = "release", column = stmt_start,
            from = line:sub(stmt_start, e3), to = ";" }
          break
        end
      end
    end
  end
  return sites
end

-- n items spread evenly over list, in list order.
local function spread(list, n)
  local picked = {}
  if n >= #list then return list end
  for i = 1, n do picked[#picked + 1] = list[math.floor((i - 0.5) * #list / n) + 1] end
  return picked
end

local function choose_mutants(root)
  local by_kind = { compare = {}, limit = {}, release = {} }
  local listing = io.popen("cd " .. quote(root) .. " && git ls-files -- " .. table.concat(
    (function()
      local globs = {}
      for _, f in ipairs(FOLDERS) do globs[#globs + 1] = quote(f .. "/*.cpp") end
      return globs
    end)(), " "))
  local files = {}
  for file in listing:lines() do files[#files + 1] = file end
  listing:close()
  table.sort(files)
  for _, file in ipairs(files) do
    for _, site in ipairs(sites_of(root .. "/" .. file)) do
      site.file = file
      table.insert(by_kind[site.kind], site)
    end
  end
  local mutants = {}
  local left = options.count
  for _, kind in ipairs({ "compare", "limit", "release" }) do
    local want = kind == "release" and left or math.floor(options.count * SHARE[kind] + 0.5)
    local picked = spread(by_kind[kind], want)
    for _, m in ipairs(picked) do mutants[#mutants + 1] = m end
    left = left - #picked
  end
  return mutants, by_kind
end

local function describe_mutant(m)
  return ("%s:%d %s: %s -> %s"):format(m.file, m.line, m.kind, m.from, m.to)
end

local function apply(path, m)
  local lines = read_lines(path)
  local original = lines[m.line]
  local head, tail = original:sub(1, m.column - 1), original:sub(m.column)
  assert(tail:sub(1, #m.from) == m.from, "mutant does not match its line: " .. describe_mutant(m))
  lines[m.line] = head .. m.to .. tail:sub(#m.from + 1)
  write_lines(path, lines)
  return original
end

local function restore(path, m, original)
  local lines = read_lines(path)
  lines[m.line] = original
  write_lines(path, lines)
end

local root = assert(io.popen("git rev-parse --show-toplevel")):read("*l")
local mutants, by_kind = choose_mutants(root)
print(("mutate: %d sites (compare %d, limit %d, release %d); %d mutants"):format(
  #by_kind.compare + #by_kind.limit + #by_kind.release, #by_kind.compare, #by_kind.limit, #by_kind.release,
  #mutants))
if options.list then
  for i, m in ipairs(mutants) do print(("%2d %s"):format(i, describe_mutant(m))) end
  os.exit(0)
end

local dir = options.dir:sub(1, 1) == "/" and options.dir or root .. "/" .. options.dir
local src, build = dir .. "/src", dir .. "/build"
local log = dir .. "/last.log"
assert(run("rm -rf " .. quote(src) .. " && mkdir -p " .. quote(src) .. " " .. quote(build)))
assert(run("cd " .. quote(root) .. " && git ls-files -z | tar --null -T - -cf - | tar -xf - -C " .. quote(src)),
  "copying the tree failed")

local function build_ok()
  return run("cmake --build " .. quote(build) .. " -j2 >" .. quote(log) .. " 2>&1")
end
local function suite_ok()
  return run("cd " .. quote(build) .. " && ctest -j2 --stop-on-failure --timeout " .. options.timeout
    .. " >>" .. quote(log) .. " 2>&1")
end

assert(run("cmake -S " .. quote(src) .. " -B " .. quote(build) .. " >" .. quote(log) .. " 2>&1"), "configure failed")
assert(build_ok(), "the unmutated tree does not build; see " .. log)
assert(suite_ok(), "the unmutated tree fails its suite; see " .. log)

local killed, survived, stillborn = 0, {}, {}
local started = os.time()
for i, m in ipairs(mutants) do
  local path = src .. "/" .. m.file
  local original = apply(path, m)
  local outcome
  if not build_ok() then
    outcome = "stillborn"
    stillborn[#stillborn + 1] = m
  elseif suite_ok() then
    outcome = "SURVIVED"
    survived[#survived + 1] = m
  else
    outcome = "killed"
    killed = killed + 1
  end
  restore(path, m, original)
  print(("[%2d/%d] %-9s %s"):format(i, #mutants, outcome, describe_mutant(m)))
  io.stdout:flush()
end

local counted = killed + #survived
local report = {
  ("mutants: %d, killed %d, survived %d, stillborn %d (not counted); %d%% killed; %d s"):format(#mutants, killed,
    #survived, #stillborn, counted > 0 and math.floor(100 * killed / counted + 0.5) or 0, os.time() - started),
}
for _, m in ipairs(survived) do report[#report + 1] = "survived: " .. describe_mutant(m) end
for _, m in ipairs(stillborn) do report[#report + 1] = "stillborn: " .. describe_mutant(m) end
print(table.concat(report, "\n"))
write_lines(dir .. "/report.txt", report)
