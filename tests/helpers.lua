-- Shared set-up for the suites: the module, the simulator companion, and small
-- readers for what the platform saw.
local cjson = require "cjson"
local sim = require "velconfig_simctl"

local M = { sim = sim, cjson = cjson }

local root = os.tmpname()
os.remove(root)
sim.set_root(root)
M.root = root

M.velconfig = require "velconfig"

-- A fresh default gateway, empty journal and log, no faults, clock pinned.
function M.reset(at)
  sim.use_state_file("")
  sim.reset()
  sim.pin_clock(at or 1700000000)
  -- loaded again once the clock is pinned, so the running figures start at that moment
  sim.load_model(sim.default_model())
  sim.clear_journal()
  sim.clear_logs()
end

-- Edits the model: fn receives the decoded model and may change it in place.
function M.edit_model(fn)
  local m = cjson.decode(sim.model())
  fn(m)
  sim.load_model(cjson.encode(m))
  sim.clear_journal()
end

function M.model()
  return cjson.decode(sim.model())
end

-- Journal entries of one operation, in call order.
function M.calls(op)
  local found = {}
  for _, e in ipairs(sim.journal()) do
    if e.op == op then found[#found + 1] = e end
  end
  return found
end

-- Operation names in call order.
function M.ops()
  local names = {}
  for _, e in ipairs(sim.journal()) do names[#names + 1] = e.op end
  return names
end

function M.log_texts()
  local texts = {}
  for _, l in ipairs(sim.logs()) do texts[#texts + 1] = l.level .. " " .. l.text end
  return texts
end

-- Gives the test a new, empty file root (removing the one the previous call made).
function M.fresh_root()
  if M.own_root then os.execute("rm -rf '" .. M.own_root .. "'") end
  root = os.tmpname()
  os.remove(root)
  assert(os.execute("mkdir -p '" .. root .. "'") == 0)
  M.root, M.own_root = root, root
  sim.set_root(root)
end

-- Path of a gateway file inside the simulated file root.
function M.file(path)
  return root .. path
end

function M.read_file(path)
  local f = io.open(M.file(path), "rb")
  if not f then return nil end
  local text = f:read("*a")
  f:close()
  return text
end

function M.write_file(path, text)
  os.execute("mkdir -p " .. root .. path:match("^(.*)/[^/]*$"))
  local f = assert(io.open(M.file(path), "wb"))
  f:write(text)
  f:close()
end

-- A word for the shell, quoted.
function M.quote(s) return "'" .. tostring(s):gsub("'", "'\\''") .. "'" end

-- Runs a shell command line; returns its exit status, stdout and stderr.
function M.shell(line)
  local err_file = os.tmpname()
  local p = io.popen("(" .. line .. ") 2>" .. M.quote(err_file) .. "; echo \"#$?\"")
  local out = p:read("*a")
  p:close()
  local f = io.open(err_file)
  local err = f:read("*a")
  f:close()
  os.remove(err_file)
  local body, status = out:match("^(.*)#(%d+)\n$")
  return tonumber(status), body, err
end

-- The command line running the built CLI on a state file with words.
-- The LOID hold-off (regProcess seeing 409 at uptime 700, setloid 30 s later) in a
-- web server's own interpreter started with an empty environment (env -i, keeping
-- only the sanitizers' variables; path, when given, is a PATH=... word), its gateway
-- in memory on this file root and its tools folder tools_dir. Returns the status,
-- what setloid answered ("150": the mark was stored and read back) and stderr.
function M.holdoff_without_environment(tools_dir, path)
  local server = os.tmpname()
  local f = assert(io.open(server, "w"))
  f:write([=[
local cpath, root, tools = ...
package.cpath = cpath
local sim, cjson = require "velconfig_simctl", require "cjson"
sim.set_root(root)
sim.set_tools_dir(tools)
sim.use_state_file("")
sim.reset()
sim.pin_clock(1700000000)
local m = cjson.decode(sim.default_model())
m.device.uptime, m.loid.status = 700, 409
sim.load_model(cjson.encode(m))
local v = require "velconfig"
v:get("regProcess")
sim.advance_clock(30)
io.write(v:set("setloid", { loid = "L1", loidPsd = "p", hasWiFi = "0" }))
]=])
  f:close()
  local words = { "env -i" }
  for _, name in ipairs({ "LD_PRELOAD", "ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS" }) do
    if os.getenv(name) then words[#words + 1] = M.quote(name .. "=" .. os.getenv(name)) end
  end
  if path then words[#words + 1] = path end
  for _, w in ipairs({ os.getenv("VELCONFIG_LUA"), server, package.cpath, M.root, tools_dir }) do
    words[#words + 1] = M.quote(w)
  end
  local status, out, err = M.shell(table.concat(words, " "))
  os.remove(server)
  return status, out, err
end

-- The LOIDs the platform was asked to store, as "loid/password".
function M.stored_loids()
  local found = {}
  for _, c in ipairs(M.calls("ZoVelSysCmdSetLOID")) do found[#found + 1] = c.loid .. "/" .. c.password end
  return found
end

function M.cli(state, ...)
  local tool = assert(os.getenv("VELCONFIG_TOOL"), "VELCONFIG_TOOL names the built tool")
  local words = { "VELCONFIG_ROOT=" .. M.quote(root), M.quote(tool), "--state", M.quote(state) }
  for _, w in ipairs({ ... }) do words[#words + 1] = M.quote(w) end
  return table.concat(words, " ")
end

-- A Lua error message without the "file:line: " that luaL_error puts in front.
function M.without_position(err)
  return (tostring(err):gsub("^[^:]*:%d+: ", ""))
end

-- The message of the Lua error that v:set(key, input) raises, called as a page calls
-- it (method syntax); fails the test when the call does not raise.
function M.set_error(key, input)
  local ok, err = pcall(function() return M.velconfig:set(key, input) end)
  assert(not ok, "expected set " .. key .. " to raise")
  return M.without_position(err)
end

-- How this interpreter's own library words an argument error about the input of
-- v:set(key, input) called as set_error calls it (Lua 5.1 and LuaJIT name the
-- argument and the function differently): a stand-in for set, called the same way,
-- raises luaL_argerror with message.
function M.library_set_error(message, without_input)
  local probe = { set = sim.argument_error(message) }
  local ok, err = pcall(function()
    if without_input then return probe:set("key") end
    return probe:set("key", {})
  end)
  assert(not ok)
  return M.without_position(err)
end

-- The field reader's complaint about field that is not text, in luaL_checklstring's
-- wording with the field named (nil: a text input, which has no field), as a pattern
-- of the whole message.
-- without_input: the call gave the key only (the field is then looked up on it).
function M.field_error(got, field, without_input)
  local message = field and ("string expected for field '" .. field .. "', got " .. got) or ("string expected, got " .. got)
  return "^" .. M.library_set_error(message, without_input):gsub("%p", "%%%0") .. "$"
end

return M
