-- Checks the module's stack use from what GCC wrote while compiling it with
-- -fstack-usage (.su: one frame per function) and -fcallgraph-info=su (.ci: the
-- same frames plus the calls each function makes). Fails when a frame is larger
-- than the frame budget, when a frame's size is not bounded, or when the deepest
-- chain of the module's own frames from an entry point is larger than the chain
-- budget. Usage:
--   lua5.1 tools/stack-check.lua [--frame BYTES] [--chain BYTES] OBJECT_DIR
--
-- The chain is an upper bound of the module's own frames: a call through a function
-- pointer or through lua_pcall may reach any module function that no module function
-- calls directly (the handlers in the dispatch tables, the protected halves of the
-- entry points). A call passes two such hops (the entry's protected call, then the
-- handler table); a third would be a page calling the module again from a
-- metamethod, which is a new call on top of the first. Frames of the interpreter, GLib, libc
-- and the platform library below the module are not in the files and not counted.

local frame_budget, chain_budget, dir = 4096, 8192, nil
local i = 1
while i <= #arg do
  if arg[i] == "--frame" then
    frame_budget = tonumber(arg[i + 1]); i = i + 2
  elseif arg[i] == "--chain" then
    chain_budget = tonumber(arg[i + 1]); i = i + 2
  else
    dir = arg[i]; i = i + 1
  end
end
if not dir or not frame_budget or not chain_budget then
  io.stderr:write("usage: stack-check.lua [--frame BYTES] [--chain BYTES] OBJECT_DIR\n")
  os.exit(2)
end

-- Functions the interpreter calls: the chains start there.
local ENTRY = { ["luaopen_velconfig"] = true, ["lua_get"] = true, ["lua_set"] = true, ["get_entry"] = true,
                ["set_entry"] = true }
-- Calls that may come back into the module somewhere we cannot see statically.
local HOP = { ["__indirect_call"] = true, ["lua_pcall"] = true, ["lua_call"] = true, ["lua_cpcall"] = true }
-- Functions whose calls through pointers reach only library release functions
-- (g_free, free, g_variant_unref ...): the call scope keeps what the platform handed
-- over together with the library function that gives it back.
local RELEASERS = { ["velconfig::call_scope::keep"] = true, ["velconfig::call_scope::release"] = true,
                    ["velconfig::call_scope::release_to"] = true,
                    ["velconfig::call_scope::{anonymous}::release_entry"] = true }

local function files(suffix)
  -- The directory is ours (the build tree); its name goes to find as one argument.
  local quoted = "'" .. dir:gsub("'", "'\\''") .. "'"
  local p = assert(io.popen("find " .. quoted .. " -name '*" .. suffix .. "' | sort"))
  local list = {}
  for name in p:lines() do list[#list + 1] = name end
  p:close()
  return list
end

local failures = {}
local function fail(text) failures[#failures + 1] = text end

-- Frames, from the .su files.
local su_files = files(".su")
if #su_files == 0 then
  io.stderr:write("stack-check: no .su files under " .. dir .. " (build with -DVELCONFIG_STACK_USAGE=ON)\n")
  os.exit(2)
end
local frames = {}
for _, name in ipairs(su_files) do
  for line in io.lines(name) do
    local where, bytes, kind = line:match("^(.-)\t(%d+)\t(%S+)$")
    if where then
      bytes = tonumber(bytes)
      frames[#frames + 1] = { where = where, bytes = bytes, kind = kind }
      if kind == "dynamic" then fail("frame of unbounded size: " .. where) end
      if bytes > frame_budget then fail(string.format("frame of %d bytes > %d: %s", bytes, frame_budget, where)) end
    end
  end
end
table.sort(frames, function(a, b) return a.bytes > b.bytes end)

-- The call graph, from the .ci files. A node with a size is defined in the module;
-- one without is outside (library, interpreter, platform).
local size, label, calls, called = {}, {}, {}, {}
for _, name in ipairs(files(".ci")) do
  for line in io.lines(name) do
    local title, text = line:match('^node: { title: "(.-)" label: "(.-)"')
    if title then
      local bytes = text:match("\\n(%d+) bytes %(")
      if bytes then
        size[title] = tonumber(bytes)
        label[title] = text:match("^(.-)\\n")
      end
    end
    local from, to = line:match('^edge: { sourcename: "(.-)" targetname: "(.-)"')
    if from then
      calls[from] = calls[from] or {}
      calls[from][to] = true
      called[to] = true
    end
  end
end

local function short(title)
  local name = label[title] or title
  return (name:gsub("%(.*$", ""):gsub("^.* ", ""))
end
local function is_entry(title) return ENTRY[(short(title):gsub("^.*::", ""))] == true end

-- Where a call through a pointer or through the interpreter may land.
local roots = {}
for title in pairs(size) do
  if not called[title] and not is_entry(title) then roots[#roots + 1] = title end
end

-- best[k][f]: the deepest chain from f with at most k calls through pointers or the
-- interpreter ("hops"); a hop lands on the deepest root of level k - 1, and at
-- level 0 it adds nothing. nxt[k][f] remembers where the deepest chain goes on.
local HOPS = 2
local best, nxt = {}, {}
local visiting = {}
local function deepest(f, k)
  if best[k][f] then return best[k][f] end
  if visiting[f] then
    fail("recursive call, depth unbounded: " .. short(f))
    return 0
  end
  visiting[f] = true
  local d, go = 0, nil
  for to in pairs(calls[f] or {}) do
    -- A release function of a library calls through a pointer into that library,
    -- not into the module: nothing of ours lies beyond it.
    local into_library = HOP[to] and RELEASERS[short(f)] and to == "__indirect_call"
    if not into_library and HOP[to] and k > 0 then
      if best[k - 1].root > d then d, go = best[k - 1].root, { best[k - 1].root_title, k - 1 } end
    elseif not into_library and size[to] then
      local e = deepest(to, k)
      if e > d then d, go = e, { to, k } end
    end
  end
  visiting[f] = nil
  best[k][f], nxt[k][f] = size[f] + d, go
  return best[k][f]
end
for k = 0, HOPS do
  best[k], nxt[k] = {}, {}
  for f in pairs(size) do deepest(f, k) end
  best[k].root, best[k].root_title = 0, nil
  for _, r in ipairs(roots) do
    if best[k][r] > best[k].root then best[k].root, best[k].root_title = best[k][r], r end
  end
end

print(string.format("largest frames (budget %d bytes each):", frame_budget))
for n = 1, math.min(5, #frames) do print(string.format("  %6d  %s", frames[n].bytes, frames[n].where)) end

local entries = {}
for title in pairs(size) do
  if is_entry(title) and not called[title] then entries[#entries + 1] = title end
end
table.sort(entries)
if #entries == 0 then fail("no entry point found in the call graph") end
print(string.format("deepest chain of the module's own frames (budget %d bytes):", chain_budget))
for _, e in ipairs(entries) do
  local bytes, names = best[HOPS][e], {}
  local at = { e, HOPS }
  while at do
    names[#names + 1] = short(at[1]) .. " " .. size[at[1]]
    at = nxt[at[2]][at[1]]
  end
  print(string.format("  %6d  %s", bytes, table.concat(names, " > ")))
  if bytes > chain_budget then fail(string.format("chain of %d bytes > %d from %s", bytes, chain_budget, short(e))) end
end

for _, text in ipairs(failures) do io.stderr:write("stack-check: " .. text .. "\n") end
if #failures > 0 then os.exit(1) end
print("stack-check: ok")
