-- LOID registration page: storing a LOID with the hold-off after a refused
-- registration, registering, and the status queries.
local h = require "helpers"
local v = h.velconfig

-- A folder holding our own stand-in for uci: it keeps luci.ccache.lastregtime in
-- the file "mark" beside it and notes every call in "calls".
local FAKE_UCI = [[#!/bin/sh
dir=$(dirname "$0")
echo "$*" >> "$dir/calls"
case "$1" in
  get) [ -f "$dir/mark" ] && cat "$dir/mark" ;;
  set) printf '%s\n' "${2#*=}" > "$dir/mark" ;;
esac
exit 0
]]

local tools

local function write(path, text)
  local f = assert(io.open(path, "wb"))
  f:write(text)
  f:close()
end

local function read(path)
  local f = io.open(path, "rb")
  if not f then return nil end
  local text = f:read("*a")
  f:close()
  return text
end

-- Puts a uci script into the tools folder (nil: no uci at all).
local function use_uci(script)
  os.remove(tools .. "/uci")
  if script then
    write(tools .. "/uci", script)
    os.execute("chmod +x " .. tools .. "/uci")
  end
end

local function set_mark(text) write(tools .. "/mark", text) end
local function mark() return read(tools .. "/mark") end

-- uci's calls since the last look.
local function uci_calls()
  local calls = {}
  for line in (read(tools .. "/calls") or ""):gmatch("[^\n]+") do calls[#calls + 1] = line end
  os.remove(tools .. "/calls")
  return calls
end

local GET = "get luci.ccache.lastregtime"
local COMMIT = "commit luci"

local function loid_req(fields)
  local t = { loid = "NEWLOID01", loidPsd = "pw01", hasWiFi = "0" }
  for k, val in pairs(fields or {}) do t[k] = val ~= false and val or nil end
  return t
end

local function stored_loids()
  local found = {}
  for _, c in ipairs(h.calls("ZoVelSysCmdSetLOID")) do found[#found + 1] = { c.loid, c.password } end
  return found
end

-- The running time ("SysDuration") is the model's uptime while the clock is pinned.
local function at_uptime(seconds)
  h.edit_model(function(m) m.device.uptime = seconds end)
end

describe("LOID", function()
  before_each(function()
    h.reset()
    tools = os.tmpname()
    os.remove(tools)
    os.execute("mkdir -p " .. tools)
    h.sim.set_tools_dir(tools)
    use_uci(FAKE_UCI)
  end)
  after_each(function() os.execute("rm -rf " .. tools) end)

  describe("setloid hold-off", function()
    -- mark text, running time, result, LOID stored, uci calls after the get
    local cases = {
      { "1000\n", 900, 280, false, {} },
      { "1000\n", 1179, 1, false, {} },
      { "1000\n", 1180, 0, true, { "set luci.ccache.lastregtime=0", COMMIT } },
      { "1000\n", 1181, 0, true, { "set luci.ccache.lastregtime=0", COMMIT } },
      { "1000", 0, 1180, false, {} },
      { "1000abc\n", 999, 181, false, {} },
      { "0\n", 5, 0, true, {} },
      { "-20\n", 5, 0, true, {} },
      { "abc\n", 5, 0, true, {} },
      { "\n1000\n", 5, 0, true, {} },
      { "", 5, 0, true, {} },
      -- the gateway's 32-bit arithmetic: mark + 180 wraps below 0, so the hold-off is over
      { "2147483647\n", 0, 0, true, { "set luci.ccache.lastregtime=0", COMMIT } },
      -- a running time past 2^31 wraps the other way
      { "100\n", 4294967000, 576, false, {} },
    }
    for _, c in ipairs(cases) do
      it(("with mark %q at running time %d answers %d"):format(c[1], c[2], c[3]), function()
        set_mark(c[1])
        at_uptime(c[2])
        assert.are.equal(c[3], v:set("setloid", loid_req()))
        local calls = uci_calls()
        assert.are.equal(GET, calls[1])
        assert.are.same(c[5], { select(2, unpack(calls)) })
        assert.are.same(c[4] and { { "NEWLOID01", "pw01" } } or {}, stored_loids())
      end)
    end

    it("answers the mark itself when the running time cannot be read", function()
      set_mark("1000\n")
      h.sim.fail("ZoVelDBusGetProperty", -1)
      assert.are.equal(1000, v:set("setloid", loid_req()))
      assert.are.same({}, stored_loids())
      assert.are.equal("1000\n", mark())
    end)

    it("goes straight to the LOID when uci is missing, prints nothing, or fails", function()
      for _, script in ipairs({ false, "#!/bin/sh\nexit 0\n", "#!/bin/sh\necho 1000 >&2\nexit 1\n" }) do
        h.sim.clear_journal()
        use_uci(script or nil)
        at_uptime(10)
        assert.are.equal(0, v:set("setloid", loid_req()))
        assert.are.equal(1, #stored_loids())
      end
    end)

    it("gives up on a uci that hangs and stores the LOID", function()
      use_uci("#!/bin/sh\nexec sleep 30\n")
      local started = os.time()
      assert.are.equal(0, v:set("setloid", loid_req()))
      assert.is_true(os.time() - started <= 10)
      assert.are.equal(1, #stored_loids())
    end)
  end)

  describe("setloid", function()
    before_each(function() os.remove(tools .. "/mark") end)

    it("with hasWiFi 0 stores only the LOID and needs no Wi-Fi fields", function()
      assert.are.equal(0, v:set("setloid", loid_req()))
      assert.are.same({ { "NEWLOID01", "pw01" } }, stored_loids())
      assert.are.same({}, h.calls("ZoVelGetWLANDeviceObjs"))
      assert.are.same({ "NEWLOID01", "pw01" }, { h.model().loid.loid, h.model().loid.password })
    end)

    it("with any other hasWiFi sets the first 2.4 GHz SSID's name, then its password", function()
      for _, flag in ipairs({ "1", "2", "-1" }) do
        h.sim.clear_journal()
        assert.are.equal(0, v:set("setloid", loid_req { hasWiFi = flag, wifiSsid = "", wifiPsd = "newpass99" }))
        local writes = h.calls("ZoVelDBusSetProperty")
        assert.are.same({ { "/com/zom/igd1/Config/WLAN/Devices/1", "com.zom.igd1.WLANConfiguration", "SSID", "" },
          { "/com/zom/igd1/Config/WLAN/Devices/1", "com.zom.igd1.WLANConfiguration", "PWD", "newpass99" } },
          { { writes[1].path, writes[1].interface, writes[1].property, writes[1].value },
            { writes[2].path, writes[2].interface, writes[2].property, writes[2].value } })
      end
      local wlan = h.model().wlan[1]
      assert.are.same({ "", "newpass99" }, { wlan.ssid, wlan.passphrase })
    end)

    it("with an empty Wi-Fi password logs that nothing changes and touches no SSID", function()
      assert.are.equal(0, v:set("setloid", loid_req { hasWiFi = "1", wifiSsid = "Other", wifiPsd = "" }))
      assert.are.same({ "5 SSID and password don't change" }, h.log_texts())
      assert.are.same({}, h.calls("ZoVelGetWLANDeviceObjs"))
      assert.are.equal("Velmont-3F10", h.model().wlan[1].ssid)
    end)

    it("answers 0 without a write when there is no 2.4G-1 SSID or no SSID at all", function()
      for _, edit in ipairs({ function(m) m.wlan[1].band_label = "2.4G-9" end, function(m) m.wlan = {} end }) do
        h.reset()
        h.edit_model(edit)
        assert.are.equal(0, v:set("setloid", loid_req { hasWiFi = "1", wifiSsid = "A", wifiPsd = "B" }))
        assert.are.same({}, h.calls("ZoVelDBusSetProperty"))
      end
    end)

    it("returns the platform's code and touches no Wi-Fi when the LOID is refused", function()
      h.sim.fail("ZoVelSysCmdSetLOID", -9)
      assert.are.equal(-9, v:set("setloid", loid_req { hasWiFi = "1", wifiSsid = "A", wifiPsd = "B" }))
      assert.are.same({}, h.calls("ZoVelGetWLANDeviceObjs"))
    end)

    it("raises for a missing LOID field after the hold-off check, for a Wi-Fi field after storing", function()
      assert.matches(h.field_error("nil"), h.set_error("setloid", loid_req { hasWiFi = false }))
      assert.are.same({ GET }, uci_calls())
      assert.are.same({}, stored_loids())
      assert.matches(h.field_error("nil"), h.set_error("setloid", loid_req { hasWiFi = "1", wifiPsd = "x" }))
      assert.are.equal(1, #stored_loids())
    end)

    it("keeps every text within its capacity and refuses a LOID that is not UTF-8", function()
      assert.are.equal(0, v:set("setloid", loid_req { loid = string.rep("L", 200), loidPsd = string.rep("p", 128),
        hasWiFi = "1", wifiSsid = string.rep("s", 70), wifiPsd = string.rep("w", 64) }))
      assert.are.same({ { string.rep("L", 127), string.rep("p", 127) } }, stored_loids())
      local writes = h.calls("ZoVelDBusSetProperty")
      assert.are.same({ string.rep("s", 63), string.rep("w", 63) }, { writes[1].value, writes[2].value })

      h.sim.clear_journal()
      assert.are.equal(1, v:set("setloid", loid_req { loid = "LO\255ID" }))
      assert.are.same({}, stored_loids())
      -- the LOID is stored by then: a broken Wi-Fi text is not sent, and the answer stays 0
      assert.are.equal(0, v:set("setloid", loid_req { hasWiFi = "1", wifiSsid = "\200", wifiPsd = "ok" }))
      assert.are.equal(1, #stored_loids())
      assert.are.same({}, h.calls("ZoVelDBusSetProperty"))
    end)
  end)

  describe("status queries", function()
    it("checkLoid reports the status unsigned and asks for no text", function()
      for _, c in ipairs({ { 200, 200 }, { 0, 0 }, { -1, 4294967295 }, { -2147483648, 2147483648 } }) do
        h.edit_model(function(m) m.loid.status = c[1] end)
        assert.are.equal(c[2], v:get("checkLoid"))
        assert.are.same({ { op = "ZoVelSysCmdCheckLOID", with_text = false } }, h.calls("ZoVelSysCmdCheckLOID"))
      end
    end)

    it("registerloid answers the status the request reports, signed", function()
      for _, status in ipairs({ 0, 3, -1 }) do
        h.edit_model(function(m) m.loid.register_status = status end)
        assert.are.equal(status, v:set("registerloid", { ignored = "x" }))
      end
      h.sim.fail("ZoVelSysCmdRegisterLOID", -5)
      assert.are.equal(0, v:set("registerloid"))
    end)

    it("regProcess formats the status and message, and refreshes the mark on 405, 407 and 409", function()
      at_uptime(5000)
      local cases = {
        { 200, "IPTV,VOIP", false }, { 203, "VOIP", false }, { 201, "", false }, { -1, "", false },
        { 404, "x", false }, { 406, "", false }, { 408, "", false }, { 410, "", false },
        { 405, "refused", true }, { 407, "IPTV,VOIP", true }, { 409, "", true },
      }
      for _, c in ipairs(cases) do
        os.remove(tools .. "/mark")
        h.edit_model(function(m) m.loid.status = c[1]; m.loid.services = c[2] end)
        assert.are.equal(('checkLoidStatus({"result":%d,"msg":"%s"})'):format(c[1], c[2]), v:get("regProcess"))
        assert.are.same(c[3] and { "set luci.ccache.lastregtime=5000", COMMIT } or {}, uci_calls())
        assert.are.equal(c[3] and "5000\n" or nil, mark())
      end
    end)

    it("regProcess shows no message as empty, cuts the text at 255 characters, and inserts it verbatim", function()
      for _, none in ipairs({ h.cjson.null, false }) do
        h.edit_model(function(m) m.loid.services = none or nil end)
        assert.are.equal('checkLoidStatus({"result":200,"msg":""})', v:get("regProcess"))
      end
      h.edit_model(function(m) m.loid.services = string.rep("M", 300) end)
      local text = v:get("regProcess")
      assert.are.equal(255, #text)
      assert.are.equal('checkLoidStatus({"result":200,"msg":"' .. string.rep("M", 255 - 37), text)
      h.edit_model(function(m) m.loid.services = 'a"b' end)
      assert.are.equal('checkLoidStatus({"result":200,"msg":"a"b"})', v:get("regProcess"))
    end)

    it("regProcess gives the failure text when the check fails, and no mark without a running time", function()
      h.sim.fail("ZoVelSysCmdCheckLOID", -1)
      assert.are.equal('checkLoidStatus({"result":-1,"msg":"failed"})', v:get("regProcess"))
      assert.are.same({}, uci_calls())
      h.sim.clear_faults()
      h.edit_model(function(m) m.loid.status = 407 end)
      h.sim.fail("ZoVelDBusGetProperty", -1)
      assert.are.equal('checkLoidStatus({"result":407,"msg":"IPTV,VOIP"})', v:get("regProcess"))
      assert.are.same({}, uci_calls())
    end)

    it("itvVoipReg reads the services from the registration, or IPTV from the IPTV record on type 13", function()
      -- device type, status, message, IPTV enable, itv, voip
      local cases = {
        { "1", 200, "IPTV,VOIP", 1, true, true },
        { "1", 203, "", 1, false, false },
        { "1", 200, "VOIP", 1, false, true },
        { "1", 203, "IPTV", 0, true, false },
        { "1", 201, "IPTV,VOIP", 1, false, false },
        { "1", 200, "iptv,voip", 1, false, false },
        { "13", 200, "IPTV,VOIP", 1, true, false },
        { "13", 200, "IPTV,VOIP", 0, false, false },
        { "13abc", 407, "", 2, true, false },
      }
      for _, c in ipairs(cases) do
        h.edit_model(function(m)
          m.device.dev_type = c[1]; m.loid.status = c[2]; m.loid.services = c[3]; m.iptv.enable = c[4]
        end)
        assert.are.same({ itv = c[5], voip = c[6] }, v:get("itvVoipReg"))
      end
    end)
  end)

  describe("registration on the simulated gateway", function()
    it("advances with the clock to success while the page polls", function()
      at_uptime(2000)
      assert.are.equal(0, v:set("registerloid"))
      local seen = {}
      for _ = 1, 5 do
        seen[#seen + 1] = v:get("regProcess")
        h.sim.advance_clock(6)
      end
      local polling = 'checkLoidStatus({"result":202,"msg":""})'
      assert.are.same({ 'checkLoidStatus({"result":201,"msg":""})', polling, polling, polling,
        'checkLoidStatus({"result":200,"msg":"IPTV,VOIP"})' }, seen)
      assert.are.same({}, uci_calls())
    end)

    it("holds new LOIDs off for 180 seconds after a refused registration, counted from the last poll", function()
      h.edit_model(function(m)
        m.device.uptime = 3000
        m.loid.registration = { { after = 0, status = 201 }, { after = 10, status = 407, msg = "" } }
      end)
      assert.are.equal(0, v:set("registerloid"))
      h.sim.advance_clock(10)
      assert.are.equal('checkLoidStatus({"result":407,"msg":""})', v:get("regProcess"))
      assert.are.equal("3010\n", mark())
      h.sim.advance_clock(100)
      assert.are.equal(80, v:set("setloid", loid_req()))
      -- polling again refreshes the mark
      v:get("regProcess")
      assert.are.equal(180, v:set("setloid", loid_req()))
      h.sim.advance_clock(179)
      assert.are.equal(1, v:set("setloid", loid_req()))
      h.sim.advance_clock(1)
      assert.are.equal(0, v:set("setloid", loid_req()))
      assert.are.equal("0\n", mark())
      assert.are.equal(1, #stored_loids())
    end)

    it("keeps a committed mark across a reboot until the new running time passes it", function()
      set_mark("50000\n")
      assert.are.equal(0, v:set("reboot"))
      h.sim.advance_clock(60)
      assert.are.equal(50120, v:set("setloid", loid_req()))
    end)
  end)
end)
