-- Mutation check: how many small faults in the module's feature folders the suite catches.
--   lua5.1 tools/mutate.lua [--count N] [--jobs J] [--dir DIR] [--list] [--timeout S] [--mutants FILE]
--                           [--draw NAME]
-- The tracked tree is copied once per job to DIR/wK/src (default build-mutate; the working
-- tree is never changed) and built in DIR/wK/src/build; the first copy is checked to pass the
-- suite unmutated. The jobs then take mutants one at a time from a shared queue: each is
-- applied to the job's copy, built incrementally and run first against the tests of its
-- folder, then (when those pass) against the rest of the suite, every test's time-out
-- capped at --timeout seconds (a mutant that hangs is killed by it); then the line is
-- put back. A mutant is killed when a test fails, survives when the whole suite passes,
-- and is stillborn when it does not compile (not counted). Which tests a folder starts
-- with only saves time: a survivor has always met the whole suite.
-- Progress and the summary (survivors listed) go to stdout and DIR/report.txt; --list only
-- prints the mutants. --mutants runs the list of an earlier run's DIR/mutants.txt (or
-- some of its lines, such as its survivors) instead of drawing one. --draw NAME draws
-- another sample, independent of the usual one: a draw whose survivors were fixed one
-- by one says less about the rest of the code than one never looked at.
--
-- Mutants are drawn from every site of five kinds in the feature folders and common/, a
-- fixed share of each kind; which sites is decided by a hash of each site's own text:
--   compare  a flipped comparison (== and !=, < and <=, > and >=)
--   bound    an off-by-one bound (a constexpr limit's value, a "- 1" or "+ 1")
--   boolean  a flipped boolean result (return true/false) or connective (&& and ||)
--   call     a dropped call that makes a whole statement (releases included)
--   swap     the two arguments of a two-argument call swapped

local FOLDERS = { "status", "network", "wifi", "loid", "interconnect", "system", "storage", "apps", "common" }
local KINDS = { "compare", "bound", "boolean", "call", "swap" }
local SHARE = { compare = 0.34, bound = 0.18, boolean = 0.18, call = 0.18, swap = 0.12 }

-- The ctest names each folder's mutants meet first (anchored regular expression).
local FIRST_TESTS = {
  status = "status_test|module_test|rate_file_test|fuzz_replay_rate_file|fuzz_replay_capability",
  network = "lan_test|ddns_test|iptv_test|port_mapping_test|host_access_test",
  wifi = "wifi_test|mesh_test|easymesh_export_calls",
  loid = "loid_test",
  interconnect = "interconnect_test|status_helper_check",
  system = "system_test|login_test",
  storage = "storage_test|fuzz_replay_copy_move",
  apps = "app_market_test|app_params_test|app_market_loop_check|app_market_send_check|fuzz_replay_app_frames|"
    .. "fuzz_replay_etc_config",
}

local options = { count = 140, dir = "build-mutate", timeout = 60, list = false, jobs = 2 }
do
  local i = 1
  while i <= #arg do
    local a = arg[i]
    local function value() i = i + 1; return arg[i] end
    if a == "--count" then
      options.count = assert(tonumber(value()), "--count takes a number")
    elseif a == "--jobs" then
      options.jobs = assert(tonumber(value()), "--jobs takes a number")
    elseif a == "--dir" then
      options.dir = assert(value(), "--dir takes a folder")
    elseif a == "--timeout" then
      options.timeout = assert(tonumber(value()), "--timeout takes seconds")
    elseif a == "--worker" then
      options.worker = assert(tonumber(value()), "--worker takes a number")
    elseif a == "--mutants" then
      options.mutants = assert(value(), "--mutants takes a file")
    elseif a == "--draw" then
      options.draw = assert(value(), "--draw takes a name")
    elseif a == "--list" then
      options.list = true
    else
      io.stderr:write("usage: lua5.1 tools/mutate.lua [--count N] [--jobs J] [--dir DIR] [--list] [--timeout S]"
        .. " [--mutants FILE] [--draw NAME]\n")
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
-- Calls whose two arguments may trade places without changing anything a caller sees,
-- and calls whose dropping the compiler would refuse or that only log.
local SYMMETRIC = { strcmp = true, strncmp = true, memcmp = true, g_str_equal = true, min = true, max = true,
  equals_ignoring_case = true }
local NOT_DROPPED = { static_assert = true, assert = true }

-- Two arguments that could trade places and still compile: alike in taking an
-- address, in being a literal, a k-constant or a capitalised name (a macro, a type),
-- and in naming a member or not.
local function alike(a, b)
  local function shape(x)
    return table.concat({ x:sub(1, 1) == "&" and "&" or "", x:match("^[%d%-]") and "n" or "",
      (x == "true" or x == "false" or x == "nullptr") and "l" or "", x:match("^k%u") and "k" or "", x:match("^%u") and "u" or "",
      x:find("[%.%-][%w_>]") and "m" or "" })
  end
  return shape(a) == shape(b)
end

-- A site's place in the draw comes from what it is, not where it is: a hash of its file,
-- kind, line text (indentation aside), column within that text and how many identical
-- lines came before it in the file. Editing one line then changes the draw at that line
-- only, so a survivor's fix can be judged without a new draw of the whole tree.
local PRIME = 4294967291
local function hash(text)
  local h = 2166136261 % PRIME
  for i = 1, #text do h = (h * 65599 + text:byte(i)) % PRIME end
  for _ = 1, 3 do h = (h * 48271 + 11) % PRIME end
  return h
end

-- Every mutation site of a file: {file, line, kind, from, to, column}. A constant that
-- only a compile-time check reads is left alone: changing it changes nothing built.
local function sites_of(file)
  local sites = {}
  local in_block = false
  local constants, reads = {}, {}
  local function add(kind, number, column, from, to)
    sites[#sites + 1] = { file = file, line = number, kind = kind, column = column, from = from, to = to }
  end
  local lines = read_lines(file)
  for number, line in ipairs(lines) do
    local code
    code, in_block = code_of(line, in_block)
    local skip = code:match("^%s*#") or code:match("static_assert")
    if not skip then
      -- Comparisons: clang-format spaces binary operators, not template brackets.
      local start = 1
      while true do
        local s, e, op = code:find(" ([=!<>]=?) ", start)
        if not s then break end
        if FLIP[op] then add("compare", number, s + 1, op, FLIP[op]) end
        start = e
      end
      -- Bounds: a constexpr limit's value, and explicit +1/-1 adjustments.
      local s, _, name, value = code:find("^%s*constexpr [%w_:]+ (k[%w_]+) = (%d+);")
      if s then
        add("bound", number, code:find(value .. ";", 1, true), value, "")  -- up or down: decided by its rank
        constants[#sites] = name
      end
      for word in code:gmatch("k[%w_]+") do
        if word ~= name then reads[word] = true end
      end
      start = 1
      while true do
        local s2, e2, sign = code:find(" ([%+%-]) 1%f[^%w_%.]", start)
        if not s2 then break end
        add("bound", number, s2 + 1, sign .. " 1", sign .. " 0")
        start = e2
      end
      -- Boolean results and connectives.
      local s3 = code:find("return true;", 1, true)
      if s3 then add("boolean", number, s3 + 7, "true", "false") end
      s3 = code:find("return false;", 1, true)
      if s3 then add("boolean", number, s3 + 7, "false", "true") end
      start = 1
      while true do
        local s4, e4, op = code:find(" ([&|][&|]) ", start)
        if not s4 then break end
        if op == "&&" or op == "||" then add("boolean", number, s4 + 1, op, op == "&&" and "||" or "&&") end
        start = e4
      end
      -- A call that makes the whole statement.
      local lead, callee, rest = code:match("^(%s*)([%w_:]+[%w_:%.%->]*)(%b()%s*;%s*)$")
      if lead and not NOT_DROPPED[callee:match("[%w_]+$")] and not callee:match("^return")
        and not callee:match("^delete") then
        add("call", number, #lead + 1, line:sub(#lead + 1, #lead + #callee + #rest:match("^(%b())")) , "(void)0")
      end
      -- A two-argument call whose arguments are plain words, swapped.
      start = 1
      while true do
        local s5, e5, fn, a, b = code:find("([%w_]+)%(([%w_%.&%->%[%]]+), ([%w_%.&%->%[%]]+)%)", start)
        if not s5 then break end
        if not SYMMETRIC[fn] and a ~= b and a ~= "L" and alike(a, b) and not fn:match("^[A-Z_]+$") then
          local column = s5 + #fn + 1
          add("swap", number, column, line:sub(column, e5 - 1), b .. ", " .. a)
        end
        start = e5
      end
    end
  end
  local kept, seen = {}, {}
  for i, site in ipairs(sites) do
    if constants[i] == nil or reads[constants[i]] then
      local text = lines[site.line]
      local indent = #text:match("^%s*")
      local key = table.concat({ file:match("[^/]+/[^/]+$") or file, site.kind, text:sub(indent + 1),
        tostring(site.column - indent), site.from }, "\0")
      seen[key] = (seen[key] or 0) + 1
      site.rank = hash(key .. "\0" .. seen[key] .. (options.draw and "\0" .. options.draw or ""))
      if site.to == "" then site.to = tostring(tonumber(site.from) + ((site.rank % 2 == 0) and 1 or -1)) end
      kept[#kept + 1] = site
    end
  end
  return kept
end

-- The n sites of list that hash lowest, in list order.
local function sample(list, n)
  if n >= #list then return list end
  local order = {}
  for i, site in ipairs(list) do order[i] = { rank = site.rank, i = i } end
  table.sort(order, function(a, b) return a.rank < b.rank or (a.rank == b.rank and a.i < b.i) end)
  local chosen = {}
  for k = 1, n do chosen[k] = order[k].i end
  table.sort(chosen)
  local picked = {}
  for k, i in ipairs(chosen) do picked[k] = list[i] end
  return picked
end

local function choose_mutants(root)
  local by_kind = {}
  for _, kind in ipairs(KINDS) do by_kind[kind] = {} end
  local globs = {}
  for _, f in ipairs(FOLDERS) do globs[#globs + 1] = quote(f .. "/*.cpp") end
  local listing = io.popen("cd " .. quote(root) .. " && git ls-files -- " .. table.concat(globs, " "))
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
  for k, kind in ipairs(KINDS) do
    local want = k == #KINDS and left or math.floor(options.count * SHARE[kind] + 0.5)
    local picked = sample(by_kind[kind], want)
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
  -- A list from an earlier run may name a line that has changed since.
  if tail:sub(1, #m.from) ~= m.from then return nil end
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
local dir = options.dir:sub(1, 1) == "/" and options.dir or root .. "/" .. options.dir
local FIELDS = { "file", "line", "kind", "column", "from", "to" }
-- The jobs read the list the run drew (the tree may change meanwhile): one mutant a
-- line, its fields separated by tabs.
local function save_mutants(path, list)
  local lines = {}
  for i, m in ipairs(list) do
    local values = {}
    for f, name in ipairs(FIELDS) do values[f] = tostring(m[name]) end
    lines[i] = table.concat(values, "\t")
  end
  write_lines(path, lines)
end
local function load_mutants(path)
  local list = {}
  for _, line in ipairs(read_lines(path)) do
    local m, f = {}, 1
    for value in (line .. "\t"):gmatch("([^\t]*)\t") do
      m[FIELDS[f]] = value
      f = f + 1
    end
    m.line, m.column = tonumber(m.line), tonumber(m.column)
    list[#list + 1] = m
  end
  return list
end
local mutants, by_kind
if options.worker then
  mutants = load_mutants(dir .. "/mutants.txt")
else
  mutants, by_kind = choose_mutants(root)
  if options.mutants then mutants = load_mutants(options.mutants) end
end
local function job_dir(k) return dir .. "/w" .. k end
-- Each build sits in its copy as build/ sits in the tree, so that with the tree as ccache's
-- base folder the copies compile from the cache of the tree's own build.
local function build_dir(k) return job_dir(k) .. "/src/build" end
local env = "CCACHE_BASEDIR=" .. quote(root) .. " CCACHE_NOHASHDIR=1 "

local function build_ok(k, log)
  return run(env .. "cmake --build " .. quote(build_dir(k)) .. " -j1 >" .. quote(log) .. " 2>&1")
end
-- ctest over the tests matching (or, with exclude, not matching) pattern.
local function suite_ok(k, log, pattern, exclude)
  local select = pattern and ((exclude and " -E " or " -R ") .. quote("^(" .. pattern .. ")$")) or ""
  return run("cd " .. quote(build_dir(k)) .. " && ctest --stop-on-failure --timeout " .. options.timeout
    .. select .. " >>" .. quote(log) .. " 2>&1")
end

-- A job: takes mutants from the queue (a claim is a folder made atomically) until none is left.
if options.worker then
  local k = options.worker
  local src, log = job_dir(k) .. "/src", job_dir(k) .. "/last.log"
  local results = assert(io.open(job_dir(k) .. "/results.txt", "a"))
  for i, m in ipairs(mutants) do
    if run("mkdir " .. quote(dir .. "/claims/" .. i) .. " 2>/dev/null") then
      local path = src .. "/" .. m.file
      local original = apply(path, m)
      local first = FIRST_TESTS[m.file:match("^[^/]+")]
      local outcome
      if original == nil then
        outcome = "gone"
      elseif not build_ok(k, log) then
        outcome = "stillborn"
      elseif (first == nil or suite_ok(k, log, first)) and suite_ok(k, log, first, true) then
        outcome = "SURVIVED"
      else
        outcome = "killed"
      end
      if original ~= nil then restore(path, m, original) end
      results:write(i, " ", outcome, "\n")
      results:flush()
      print(("[%3d/%d] %-9s %s"):format(i, #mutants, outcome, describe_mutant(m)))
      io.stdout:flush()
    end
  end
  results:close()
  os.exit(0)
end

local counts = {}
for _, kind in ipairs(KINDS) do counts[#counts + 1] = kind .. " " .. #by_kind[kind] end
print(("mutate: sites %s; %d mutants%s, %d jobs"):format(table.concat(counts, ", "), #mutants,
  options.mutants and " from " .. options.mutants or options.draw and " of draw " .. options.draw or "", options.jobs))
if options.list then
  for i, m in ipairs(mutants) do print(("%3d %s"):format(i, describe_mutant(m))) end
  os.exit(0)
end

local started = os.time()
assert(run("rm -rf " .. quote(dir) .. " && mkdir -p " .. quote(dir .. "/claims")))
save_mutants(dir .. "/mutants.txt", mutants)
local ccache = run("command -v ccache >/dev/null 2>&1")
local launcher = ccache and " -DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache" or ""
for k = 1, options.jobs do
  local src, build, log = job_dir(k) .. "/src", build_dir(k), job_dir(k) .. "/last.log"
  assert(run("mkdir -p " .. quote(src) .. " " .. quote(build)))
  assert(run("cd " .. quote(root) .. " && git ls-files -z | tar --null -T - -cf - | tar -xf - -C " .. quote(src)),
    "copying the tree failed")
  assert(run("cmake -S " .. quote(src) .. " -B " .. quote(build) .. launcher
    .. " -DVELCONFIG_TEST_TIMEOUT_CAP=" .. options.timeout
    .. " >" .. quote(log) .. " 2>&1"), "configure failed; see " .. log)
  assert(run(env .. "cmake --build " .. quote(build) .. " -j" .. options.jobs .. " >>" .. quote(log) .. " 2>&1"),
    "the unmutated tree does not build; see " .. log)
end
assert(suite_ok(1, job_dir(1) .. "/last.log"), "the unmutated tree fails its suite; see " .. job_dir(1) .. "/last.log")

local jobs = {}
for k = 1, options.jobs do
  jobs[#jobs + 1] = ("lua5.1 %s --worker %d --count %d --dir %s --timeout %d &"):format(quote(root .. "/tools/mutate.lua"), k, options.count, quote(dir), options.timeout)
end
assert(run("cd " .. quote(root) .. " && " .. table.concat(jobs, " ") .. " wait"))

local outcome_of = {}
for k = 1, options.jobs do
  for _, line in ipairs(read_lines(job_dir(k) .. "/results.txt")) do
    local i, outcome = line:match("^(%d+) (%S+)$")
    if i then outcome_of[tonumber(i)] = outcome end
  end
end
local killed, survived, stillborn, gone = 0, {}, {}, {}
for i, m in ipairs(mutants) do
  local outcome = outcome_of[i]
  if outcome == "killed" then
    killed = killed + 1
  elseif outcome == "SURVIVED" then
    survived[#survived + 1] = m
  elseif outcome == "gone" then
    gone[#gone + 1] = m
  else
    stillborn[#stillborn + 1] = m
  end
end
local counted = killed + #survived
local report = {
  ("mutants: %d, killed %d, survived %d, stillborn %d, gone %d (neither counted); %.1f%% killed; %d s with %d jobs;"
    .. " %s"):format(#mutants, killed, #survived, #stillborn, #gone, counted > 0 and 100 * killed / counted or 0,
    os.time() - started, options.jobs, os.date("!%Y-%m-%d %H:%M UTC")),
}
for _, m in ipairs(survived) do report[#report + 1] = "survived: " .. describe_mutant(m) end
for _, m in ipairs(stillborn) do report[#report + 1] = "stillborn: " .. describe_mutant(m) end
for _, m in ipairs(gone) do report[#report + 1] = "gone (its line has changed): " .. describe_mutant(m) end
print(table.concat(report, "\n"))
write_lines(dir .. "/report.txt", report)
