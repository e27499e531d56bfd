-- The world changes under a running console: each event, applied by the CLI in a
-- process of its own on the shared state file, shows in the console's next answer;
-- the scenarios shipped in examples/scenarios play through the same way.
local h = require "helpers"
local cjson = h.cjson
local console = require "console"
local json = require "velconfig_json"

local sim = h.sim
local catalogue = cjson.decode(assert(io.open(os.getenv("VELCONFIG_CATALOGUE"))):read("*a"))
local handle = console.handler({ velconfig = h.velconfig, json = json, cjson = cjson,
                                 web_dir = os.getenv("VELCONFIG_SOURCE_DIR") .. "/web", catalogue = catalogue })
local state = os.tmpname()

-- Read keys that change something (a folder made, a hold-off noted) go by POST.
local POSTED = { newFolder = true, regProcess = true }

-- The console's answer to a read key, as a page gets it.
local function page(key, a1)
  local method = POSTED[key] and "POST" or "GET"
  local status, _, body = handle({ method = method, path = "/api/get/" .. key, headers = { host = "127.0.0.1:8080", ["content-type"] = "application/json" },
                                   query = method == "GET" and { a1 = a1 } or {},
                                   body = method == "POST" and cjson.encode({ a1 = a1 }) or "" })
  assert.are.equal(200, status)
  return cjson.decode(body).answer
end

-- Runs velconfig in another process on the console's state file; returns the exit
-- status and what it printed.
local function velconfig(...)
  local rc, out, err = h.shell(h.cli(state, ...))
  return rc, out, err
end

local function event(...)
  local rc, out, err = velconfig("event", ...)
  assert(rc == 0, err)
  return out
end

-- The overview's device rows by name: "wired" or "wireless" and the address.
local function devices()
  local info, found = page("allInfo"), {}
  for _, kind in ipairs({ { "pc", "wired" }, { "wifi", "wireless" } }) do
    for i = 1, 64 do
      local d = info[kind[1] .. i]
      if d then found[d.devName] = { kind[2], d.ip } end
    end
  end
  return found
end

local function loid_status() return tonumber(page("regProcess"):match('"result":(%-?%d+)')) end

describe("events", function()
  before_each(function()
    h.reset()
    sim.unpin_clock()
    os.remove(state)
    sim.use_state_file(state)
  end)
  teardown(function()
    sim.use_state_file("")
    os.remove(state)
    os.remove(state .. ".lock")
  end)

  it("join: a phone on 2.4 GHz and a PC on a LAN port appear; a known MAC comes back under its name", function()
    assert.is_nil(devices()["Guest-phone"])
    assert.matches('Guest%-phone joined %(7C:2A:31:4F:00:09%) on 2.4 GHz Wi%-Fi "Velmont%-3F10" at 192.168.1.150',
      event("join", "--2.4g", "--name", "Guest-phone", "--mac", "7c:2a:31:4f:00:09", "--ip", "192.168.1.150"))
    event("join", "--wired")
    local now = devices()
    assert.are.same({ "wireless", "192.168.1.150" }, now["Guest-phone"])
    assert.are.same({ "wired", "192.168.1.2" }, now["pc-10"])
    local model = h.model()
    assert.are.same({ 2000000, 250000, 1, 1 }, { model.hosts[9].down_rate, model.hosts[9].up_rate,
      model.hosts[9].wlan, model.hosts[9].connection })
    -- refused: an address off the LAN, one in use, a band whose network is off; nothing stored
    for _, words in ipairs({ { "--ip", "10.0.0.9" }, { "--ip", "192.168.1.150" }, { "--mac", "7C2A314F0009" } }) do
      assert.are.equal(2, (velconfig("event", "join", unpack(words))))
    end
    assert.are.equal(10, #h.model().hosts)
    event("leave", "Guest-phone")
    assert.matches('Guest%-phone joined again %(7C:2A:31:4F:00:09%) on 2.4 GHz Wi%-Fi "Velmont%-3F10" at 192.168.1.150',
      event("join", "--mac", "7C-2A-31-4F-00-09", "--down", "5000"))
    assert.are.same({ "wireless", "192.168.1.150" }, devices()["Guest-phone"])
    assert.are.same({ 5000, 250000 }, { h.model().hosts[9].down_rate, h.model().hosts[9].up_rate })
  end)

  it("leave: the device goes from the overview and the host list shows it offline", function()
    assert.are.same({ "wireless", "192.168.1.101" }, devices()["Redmi-Note-12"])
    assert.matches("Redmi%-Note%-12 %(F0:C4:A7:E9:13:0A, 192.168.1.101%) left", event("leave", "F0C4A7E9130A"))
    assert.is_nil(devices()["Redmi-Note-12"])
    assert.are.equal(2, (velconfig("event", "leave", "Redmi-Note-12")))
  end)

  it("wan-down and wan-up: the overview and the information page lose the link and its address, then get them back", function()
    assert.are.same({ "CONNECTED", "100.72.18.45" }, { page("allInfo").wanConnect, page("gwInfo", "all").WANIP })
    assert.matches("WAN disconnected", event("wan-down"))
    local info = page("allInfo")
    assert.are_not.equal("CONNECTED", info.wanConnect)
    assert.are.same({ 0, "0.0.0.0" }, { info.wanUpTime, page("gwInfo", "all").WANIP })
    assert.are.equal(2, (velconfig("event", "wan-down")))
    assert.matches("WAN connected with 100.72.18.45", event("wan-up"))
    assert.are.same({ "CONNECTED", "100.72.18.45" }, { page("allInfo").wanConnect, page("gwInfo", "all").WANIP })
    assert.is_true(page("allInfo").wanUpTime < 60)
  end)

  it("usb-unplug and usb-plug: the disk leaves the USB page and the file manager, and comes back with its files", function()
    assert.are.equal(2, page("usbDevices").usbCount)
    page("newFolder", "/mnt/usb1_1/made-before")
    assert.matches('disk 2 "SanDisk Ultra Fit" at /mnt/usb1_1 unplugged', event("usb-unplug", "SanDisk Ultra Fit"))
    assert.are.same({ 1, "Backup" }, { page("usbDevices").usbCount, page("usbDevices").storage1.label })
    assert.are.same({ fileNum = 0 }, page("subFiles", "/mnt/usb1_1"))
    assert.are.equal("/mnt/usb2_1", page("fileLists").filePath)
    assert.matches("plugged in again", event("usb-plug"))
    assert.are.equal(2, page("usbDevices").usbCount)
    local listed = cjson.encode(page("subFiles", "/mnt/usb1_1"))
    assert.matches("made%-before", listed)
    assert.matches("Photos", listed)
    assert.are.equal(2, (velconfig("event", "usb-plug")))
  end)

  it("loid-next, loid-stall and loid-fail: the registration page follows each step", function()
    assert.are.equal(200, loid_status())
    assert.matches("started: status 201", event("loid-next"))
    assert.are.equal(201, loid_status())
    assert.matches("stalls at status 201", event("loid-stall"))
    sim.pin_clock(os.time() + 60) -- long after the next step was due
    assert.are.equal(201, loid_status())
    sim.unpin_clock()
    assert.matches("moved on: status 202", event("loid-next"))
    assert.are.equal(202, loid_status())
    assert.matches("failed: status 409", event("loid-fail", "409"))
    assert.are.equal(409, loid_status())
    assert.are.equal(2, (velconfig("event", "loid-fail", "500")))
  end)

  it("plugin-stop and plugin-answer: the interconnect page loses its access points and gets them back", function()
    assert.are.same({ 1, 2 }, { page("interConndStatus").appStatus, page("interConndStatus").devcnt })
    assert.matches("stops answering", event("plugin-stop"))
    assert.are.same({ 1, 0 }, { page("interConndStatus").appStatus, page("interConndStatus").devcnt })
    assert.matches("answers again", event("plugin-answer"))
    assert.are.equal(2, page("interConndStatus").devcnt)
  end)

  it("reboot: the status page's running time starts again", function()
    assert.is_true(page("gwStatus").sysTime > 90000)
    assert.matches("rebooted %(boot 2%)", event("reboot"))
    assert.is_true(page("gwStatus").sysTime < 60)
  end)

  it("clock: the Wi-Fi timer page's system time jumps; the running time does not", function()
    local function moment(text)
      local y, mo, d, hh, mi, s = text:match("^(%d+)-(%d+)-(%d+) (%d+):(%d+):(%d+)$")
      return os.time({ year = y, month = mo, day = d, hour = hh, min = mi, sec = s })
    end
    local before, running = moment(page("wifiAdv").sysTime), page("gwStatus").sysTime
    assert.matches("jumped forward 86400 s", event("clock", "1d"))
    local after = moment(page("wifiAdv").sysTime)
    assert.is_true(math.abs(after - before - 86400) < 30)
    assert.is_true(page("gwStatus").sysTime - running < 30)
    assert.matches("jumped back 3600 s", event("clock", "-1h"))
    assert.is_true(math.abs(moment(page("wifiAdv").sysTime) - before - 82800) < 30)
    assert.are.equal(2, (velconfig("event", "clock", "soon")))
  end)

  it("lists every event in its help, and refuses an unknown one", function()
    local rc, out = velconfig("event", "--help")
    assert.are.equal(0, rc)
    for _, name in ipairs({ "join", "leave", "wan-down", "wan-up", "usb-unplug", "usb-plug", "loid-next", "loid-stall",
                            "loid-fail", "plugin-stop", "plugin-answer", "reboot", "clock" }) do
      assert.matches("\n  " .. name:gsub("%-", "%%-"), out)
    end
    assert.are.equal(2, (velconfig("event", "flood")))
  end)
end)

describe("scenarios", function()
  local examples = os.getenv("VELCONFIG_SOURCE_DIR") .. "/examples/scenarios/"
  before_each(function()
    h.reset()
    sim.unpin_clock()
    os.remove(state)
    sim.use_state_file(state)
  end)

  it("a family evening: four devices join one by one, the games console is black-listed, the tablet leaves", function()
    assert.is_nil(devices()["Anna-phone"])
    local rc, out = velconfig("play", "--no-wait", examples .. "family-evening.json")
    assert.are.equal(0, rc)
    assert.matches("played 6 steps", out)
    local now = devices()
    assert.are.same({ "wireless", "wired" }, { now["Anna-phone"][1], now["Dad-laptop"][1] })
    -- the overview leaves out a black-listed device, and the tablet has left
    assert.are.same({}, { now["Game-console"], now["Kids-tablet"] })
    local black = page("blackHosts")
    assert.are.equal("7C2A314F0004", black["dev" .. black.count].mac)
  end)

  it("a bad day: the WAN is back at the end, the disk is not, and the registration shows its failure", function()
    assert.are.same({ 2, 200 }, { page("usbDevices").usbCount, loid_status() })
    local rc, out = velconfig("play", "--no-wait", examples .. "bad-day.json")
    assert.are.equal(0, rc)
    assert.matches("wan%-down: WAN disconnected.*usb%-unplug.*loid%-fail: .*407.*wan%-up", out)
    assert.are.same({ "CONNECTED", 1, 407 }, { page("allInfo").wanConnect, page("usbDevices").usbCount, loid_status() })
  end)

  it("Ctrl-C stops a scenario at once, with what was done kept and nothing after it", function()
    local dir = os.tmpname()
    local q = h.quote
    -- the inner shell notes its process id, then becomes the tool (same process)
    local line = h.cli(state, "play", examples .. "family-evening.json")
    os.execute("(sh -c " .. q("echo $$ > " .. q(dir .. ".pid") .. "; exec env " .. line) .. " > " .. q(dir .. ".out") ..
      " 2>&1; echo $? > " .. q(dir .. ".rc") .. ") &")
    local function read(suffix)
      local f = io.open(dir .. suffix)
      local text = f and f:read("*a")
      if f then f:close() end
      return text
    end
    for _ = 1, 100 do
      if (read(".out") or ""):find("Anna-phone joined", 1, true) then break end
      os.execute("sleep 0.05")
    end
    assert.is_truthy(tonumber(read(".pid")))
    os.execute("kill -INT " .. tonumber(read(".pid")))
    for _ = 1, 100 do
      if read(".rc") and read(".rc") ~= "" then break end
      os.execute("sleep 0.05")
    end
    assert.are.same({ 130, true }, { tonumber(read(".rc")), read(".out"):find("stopped by Ctrl-C after 1 of 6 steps", 1, true) ~= nil })
    assert.are.same({ { "wireless", "192.168.1.2" }, nil }, { devices()["Anna-phone"], devices()["Dad-laptop"] })
    for _, suffix in ipairs({ ".pid", ".out", ".rc" }) do os.remove(dir .. suffix) end
    os.remove(dir)
  end)

  it("refuses a scenario whose steps go back in time or name no event, before doing anything", function()
    local file = os.tmpname()
    local function write_file(path, text)
      local f = assert(io.open(path, "wb"))
      f:write(text)
      f:close()
    end
    write_file(file, '{"steps":[{"at":5,"event":"reboot"},{"at":2,"event":"reboot"}]}')
    local rc, _, err = velconfig("play", "--no-wait", file)
    assert.are.same({ 2, true }, { rc, err:find("step 2", 1, true) ~= nil })
    write_file(file, '{"steps":[{"at":0,"event":"reboot"},{"after":1,"event":"flood"}]}')
    assert.are.equal(2, (velconfig("play", "--no-wait", file)))
    os.remove(file)
    assert.are.equal(1, h.model().device.boot_count)
  end)
end)
