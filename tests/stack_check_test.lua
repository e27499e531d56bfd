-- tools/stack-check.lua over small call graphs written the way GCC writes them
-- (-fstack-usage, -fcallgraph-info=su): what passes, what fails and why.
local TOOL = (os.getenv("VELCONFIG_SOURCE_DIR") or "..") .. "/tools/stack-check.lua"

-- funcs: { name, bytes[, kind] }; calls: { from, to }. Names without "::" are
-- outside the module (no frame) unless listed in funcs.
local function write_graph(dir, funcs, calls)
  local su, ci = {}, { 'graph: { title: "m.cpp"' }
  for n, f in ipairs(funcs) do
    su[#su + 1] = string.format("m.cpp:%d:1:int %s(lua_State*)\t%d\t%s", n, f[1], f[2], f[3] or "static")
    ci[#ci + 1] = string.format('node: { title: "%s" label: "int %s(lua_State*)\\nm.cpp:%d:1\\n%d bytes (%s)\\n0 dynamic objects" }',
                                f[1], f[1], n, f[2], f[3] or "static")
  end
  for _, c in ipairs(calls) do
    ci[#ci + 1] = string.format('edge: { sourcename: "%s" targetname: "%s" label: "m.cpp:1:1" }', c[1], c[2])
  end
  ci[#ci + 1] = "}"
  local out = assert(io.open(dir .. "/m.cpp.su", "w"))
  out:write(table.concat(su, "\n"), "\n")
  out:close()
  out = assert(io.open(dir .. "/m.cpp.ci", "w"))
  out:write(table.concat(ci, "\n"), "\n")
  out:close()
end

-- Runs the tool with fixed budgets over the graph, or over an empty folder without
-- one; returns the exit status and everything printed.
local function check(funcs, calls)
  local dir = os.tmpname()
  os.remove(dir)
  assert(os.execute("mkdir " .. dir) == 0)
  if funcs then write_graph(dir, funcs, calls) end
  local p = io.popen("lua5.1 " .. TOOL .. " --frame 1000 --chain 2000 " .. dir .. " 2>&1; echo \"exit $?\"")
  local text = p:read("*a")
  p:close()
  os.execute("rm -r " .. dir)
  return tonumber(text:match("exit (%d+)%s*$")), text
end

-- The entry's protected call and the handler table are hops to any function nothing
-- calls directly; the deepest one counts.
local ENTRY = { { "velconfig::get_entry", 300 }, { "velconfig::protected_get", 100 }, { "velconfig::small", 50 } }
local ENTRY_CALLS = { { "velconfig::get_entry", "lua_pcall" }, { "velconfig::protected_get", "__indirect_call" } }

local function with(funcs, calls)
  local f, c = {}, {}
  for _, x in ipairs(ENTRY) do f[#f + 1] = x end
  for _, x in ipairs(funcs) do f[#f + 1] = x end
  for _, x in ipairs(ENTRY_CALLS) do c[#c + 1] = x end
  for _, x in ipairs(calls) do c[#c + 1] = x end
  return f, c
end

describe("stack-check", function()
  local cases = {
    { "passes a chain within budget through both hops", { { "velconfig::handler", 900 }, { "velconfig::leaf", 600 } },
      { { "velconfig::handler", "velconfig::leaf" }, { "velconfig::leaf", "g_free" } }, 0, "1900  velconfig::get_entry 300 > velconfig::protected_get 100 > velconfig::handler 900 > velconfig::leaf 600" },
    { "fails a chain over budget", { { "velconfig::handler", 900 }, { "velconfig::leaf", 800 } },
      { { "velconfig::handler", "velconfig::leaf" } }, 1, "chain of 2100 bytes > 2000" },
    { "fails a frame over budget", { { "velconfig::handler", 1001 } }, {}, 1, "frame of 1001 bytes > 1000" },
    { "fails a frame of unbounded size", { { "velconfig::handler", 64, "dynamic" } }, {}, 1, "frame of unbounded size" },
    { "fails a recursion", { { "velconfig::a", 10 }, { "velconfig::b", 10 } },
      { { "velconfig::a", "velconfig::b" }, { "velconfig::b", "velconfig::a" }, { "velconfig::small", "velconfig::a" } }, 1,
      "recursive call" },
    { "does not follow the call scope's calls to library release functions",
      { { "velconfig::handler", 900 }, { "velconfig::call_scope::release_to", 16 } },
      { { "velconfig::get_entry", "velconfig::call_scope::release_to" },
        { "velconfig::handler", "velconfig::call_scope::release_to" },
        { "velconfig::call_scope::release_to", "__indirect_call" } }, 0, "1316  velconfig::get_entry" },
  }
  for _, c in ipairs(cases) do
    it(c[1], function()
      local status, text = check(with(c[2], c[3]))
      assert.are.equal(c[4], status, text)
      assert.truthy(text:find(c[5], 1, true), text)
    end)
  end

  it("refuses a folder without frames", function()
    local status, text = check()
    assert.are.equal(2, status, text)
    assert.truthy(text:find("no .su files", 1, true), text)
  end)
end)
