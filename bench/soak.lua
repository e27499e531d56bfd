-- Soak: one interpreter makes many mixed calls over every key of the catalogue
-- (reads, writes, injected platform failures, Lua argument errors) against the
-- simulated gateway, and reports its resident memory as it goes.
--   bench/soak.sh [CALLS [SAMPLE_EVERY [no-slope]]]
-- Prints "calls rss_kib" samples after the warm-up, then the first and last figure
-- and the slope in KiB per 100 000 calls. Exits 1 if memory kept growing.
local calls = tonumber(arg[1]) or 1000000
local every = tonumber(arg[2]) or 50000
local warmup = math.min(100000, math.floor(calls / 10))

local cjson = require "cjson"
local sim = require "velconfig_simctl"
sim.set_root(assert(os.getenv("VELCONFIG_ROOT"), "VELCONFIG_ROOT names a scratch folder"))
sim.use_state_file("")
sim.reset()
local v = require "velconfig"

-- The calls meet a full gateway rather than the small built-in one: a generated
-- gateway (tools/velconfig_gen.lua) with 254 hosts, three WLANs, EasyMesh, four disks,
-- port-mapping and DDNS rules, and texts at their limits in multi-byte UTF-8.
local json = require "velconfig_json"
local kGatewaySeed = 29
local gateway = json.encode(require("velconfig_gen").model(kGatewaySeed, json.decode(sim.default_model())))
sim.load_model(gateway)
sim.clear_disks()

local catalogue = cjson.decode(assert(io.open(assert(os.getenv("VELCONFIG_CATALOGUE")))):read("*a"))

-- Arguments a page might send, good and bad.
local texts = { "1", "0", "all", "/mnt/usb1_1", "/mnt/usb1_1/photos", "x/", "copy|/mnt/usb1_1|/mnt/usb1_1/a|b", "7" }
local inputs = {
  { op = "add", desp = "soak", client = "192.168.1.9", protocol = "TCP", exPort = "81", inPort = "80" },
  { op = "del", desp = "soak" },
  { dhcpEnbl = "1", oldLanIp = "192.168.1.1", lanIp = "192.168.1.1", poolStart = "192.168.1.2",
    poolEnd = "192.168.1.200", subnetMask = "255.255.255.0" },
  { type = "black", mac = "D89EF3A1B201", onOff = "1" },
  { mac = "D89EF3A1B201" },
  { wifi_dualBand = "1", wifi_2G_enbl = "1", wifi_2G_ssid = "soak", wifi_2G_auth = "WPA2", wifi_2G_passwd = "12345678" },
  { syncConfig = "1", syncOnoff = "0", instno = "1", newLabel = "soak" },
  "logout",
}
local bad_inputs = { { lanIp = true }, { op = {} }, { mac = 5 }, function() end }
-- Keys that reset or restart the simulated gateway are called rarely, like a user would.
local rare = { reboot = true, restore = true, fwrestore = true, usbFormat = true, registerloid = true }

local gets, sets = {}, {}
for _, k in ipairs(catalogue) do
  if k.built then table.insert(k.call == "get" and gets or sets, k.key) end
end
local ops = { "ZoVelGetOnlineDeviceListExtWithIPv6", "ZoVelGetDHCPServer", "ZoVelGetPortMappingObjs",
              "ZoVelDBusGetProperty", "ZoVelGetNetworkInfo", "ZoVel_GetUSBDeviceObjs", "ZoVelPostMsg" }

local function rss_kib()
  local f = io.open("/proc/self/statm")
  -- statm: total size, then the resident set, in pages.
  local _, resident = f:read("*n", "*n")
  f:close()
  return resident * 4
end

local seed = 12345
local function rand(n)
  seed = (seed * 1103515245 + 12345) % 2147483648
  return seed % n + 1
end

local samples = {}
for i = 1, calls do
  sim.pin_clock(1700000000 + i)
  local r = rand(100)
  if r <= 5 then
    sim.fail(ops[rand(#ops)], -1, 1)
  end
  if r <= 50 then
    local key = gets[rand(#gets)]
    pcall(v.get, v, key, texts[rand(#texts)], rand(3) == 1 and texts[rand(#texts)] or nil)
  elseif r <= 90 then
    local key = sets[rand(#sets)]
    if not rare[key] or rand(200) == 1 then pcall(v.set, v, key, inputs[rand(#inputs)]) end
  elseif r <= 97 then
    pcall(v.set, v, sets[rand(#sets)], bad_inputs[rand(#bad_inputs)])
  else
    pcall(v.get, v) -- a malformed call: Lua error
  end
  -- The simulated gateway's own state (rules added, hosts black-listed) would grow
  -- with the writes; the gateway is set back now and then so that what is measured
  -- is the interpreter and the module.
  if i % 5000 == 0 then sim.load_model(gateway) end
  if i % 1000 == 0 then
    sim.clear_journal()
    sim.clear_logs()
    sim.clear_faults()
  end
  if i > warmup and i % every == 0 then
    collectgarbage("collect")
    samples[#samples + 1] = { i, rss_kib() }
    io.write(string.format("%d %d\n", i, samples[#samples][2]))
    io.flush()
  end
end

-- Least-squares slope over the samples, in KiB per 100 000 calls.
local n, sx, sy, sxx, sxy = #samples, 0, 0, 0, 0
for _, s in ipairs(samples) do
  sx, sy, sxx, sxy = sx + s[1], sy + s[2], sxx + s[1] * s[1], sxy + s[1] * s[2]
end
local slope = n > 1 and (n * sxy - sx * sy) / (n * sxx - sx * sx) * 100000 or 0
io.write(string.format("first %d KiB, last %d KiB, slope %.1f KiB per 100000 calls\n",
  samples[1] and samples[1][2] or 0, samples[n] and samples[n][2] or 0, slope))
-- A short run (under the sanitizers) is judged by LeakSanitizer, not by the slope.
os.exit((slope > 64 and arg[3] ~= "no-slope") and 1 or 0)
