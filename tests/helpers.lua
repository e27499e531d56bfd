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

-- A Lua error message without the "file:line: " that luaL_error puts in front.
function M.without_position(err)
  return (tostring(err):gsub("^[^:]*:%d+: ", ""))
end

function M.get(...) return M.velconfig:get(...) end
function M.set(...) return M.velconfig:set(...) end


-- Resetting while the clock is pinned from an earlier test would leave the model's
-- running figures (up times, byte counters) starting at that earlier moment, or at
-- the real time before any pin, so that advancing the clock moved them by a varying
-- amount or not at all. Reload the default model once the clock is pinned, so they
-- start at the pinned moment.
local reset_unpinned = M.reset
function M.reset(at)
  reset_unpinned(at)
  sim.load_model(sim.default_model())
  sim.clear_journal()
end

return M
