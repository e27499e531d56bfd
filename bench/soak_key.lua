-- One key called many times in one interpreter; prints how much the resident memory
-- grew between call 20 000 and the last call. For telling a key that keeps memory
-- from the allocator's noise in the mixed soak.
--   VELCONFIG_ROOT=DIR lua5.1 bench/soak_key.lua KEY [A1 [CALLS]]
local sim = require "velconfig_simctl"
sim.set_root(assert(os.getenv("VELCONFIG_ROOT"), "VELCONFIG_ROOT names a scratch folder"))
sim.use_state_file("")
sim.reset()
local v = require "velconfig"
local key, a1, calls = arg[1], arg[2], tonumber(arg[3]) or 60000

local function rss_kib()
  local f = io.open("/proc/self/statm")
  local _, resident = f:read("*n", "*n")
  f:close()
  return resident * 4
end

local first
for i = 1, calls do
  sim.pin_clock(1700000000 + i)
  pcall(v.get, v, key, a1)
  if i % 5000 == 0 then sim.load_model(sim.default_model()) end
  if i % 1000 == 0 then
    sim.clear_journal()
    sim.clear_logs()
  end
  if i == 20000 then
    collectgarbage("collect")
    first = rss_kib()
  end
end
collectgarbage("collect")
print(string.format("%-18s %6d KiB", key, rss_kib() - (first or rss_kib())))
