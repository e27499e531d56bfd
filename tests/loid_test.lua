-- LOID registration page: storing a LOID with the hold-off after a refused
-- registration, registering, and the status queries.
local h = require "helpers"
local v = h.velconfig

-- Our stand-in for uci: keeps luci.ccache.lastregtime in "mark" beside it and notes
-- every call in "calls".
local FAKE_UCI = [[#!/bin/sh
dir=$(dirname "$0")
echo "$*" >> "$dir/calls"
case "$1" in
  get) [ -f "$dir/mark" ] && cat "$dir/mark" ;;
  set) printf '%s\n' "${2#*=}" > "$dir/mark" ;;
esac
exit 0
]]
local GET, CLEAR, COMMIT = "get luci.ccache.lastregtime", "set luci.ccache.lastregtime=0", "commit luci"

local tools
local project_tools = h.sim.tools_dir()

local function write(name, text)
  local f = assert(io.open(tools .. "/" .. name, "wb"))
  f:write(text)
  f:close()
end

-- Takes a file of the tools folder away, returning what it held.
local function take(name)
  local f = io.open(tools .. "/" .. name, "rb")
  if not f then return nil end
  local text = f:read("*a")
  f:close()
  os.remove(tools .. "/" .. name)
  return text
end

local function use_uci(script)
  take("uci")
  if script then
    write("uci", script)
    os.execute("chmod +x " .. tools .. "/uci")
  end
end

local function uci_calls()
  local calls = {}
  for line in (take("calls") or ""):gmatch("[^\n]+") do calls[#calls + 1] = line end
  return calls
end

local function loid(fields)
  local t = { loid = "NEWLOID01", loidPsd = "pw01", hasWiFi = "0" }
  for k, val in pairs(fields or {}) do t[k] = val ~= false and val or nil end
  return t
end

-- While the clock is pinned the running time ("SysDuration") is the model's uptime.
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

  it("setloid holds off for 180 seconds after the mark, and clears the mark once it is over", function()
    -- mark, running time, answer, uci calls after the get
    for _, c in ipairs({
      { "1000\n", 900, 280 }, { "1000\n", 1179, 1 }, { "1000\n", 1180, 0, { CLEAR, COMMIT } },
      { "1000\n", 1181, 0, { CLEAR, COMMIT } }, { "1000abc", 999, 181 }, { "0\n", 5, 0 }, { "-20\n", 5, 0 },
      { "abc\n", 5, 0 }, { "\n1000\n", 5, 0 }, { "", 5, 0 },
      -- the gateway's 32-bit arithmetic: both ways round the wrap
      { "2147483647\n", 0, 0, { CLEAR, COMMIT } }, { "100\n", 4294967000, 576 },
    }) do
      h.sim.clear_journal()
      write("mark", c[1])
      h.edit_model(function(m) m.device.uptime = c[2] end)
      assert.are.equal(c[3], v:set("setloid", loid()), c[1] .. " at " .. c[2])
      assert.are.same({ GET, unpack(c[4] or {}) }, uci_calls())
      assert.are.same(c[3] == 0 and { "NEWLOID01/pw01" } or {}, h.stored_loids())
    end
    write("mark", "1000\n")
    h.sim.fail("ZoVelDBusGetProperty", -1)
    assert.are.same({ 1000, {} }, { v:set("setloid", loid()), h.stored_loids() })
    -- a read that comes back without a value is taken as one that fails
    h.sim.clear_faults()
    h.sim.answer_property("/com/zom/igd1/Info/Device", "com.zom.igd1.DeviceInfo", "SysDuration", false)
    assert.are.same({ 1000, {} }, { v:set("setloid", loid()), h.stored_loids() })
  end)

  it("keeps the mark in the gateway's stock luci configuration through the project's uci", function()
    h.sim.set_tools_dir(project_tools)
    os.remove(h.file("/etc/config/luci"))
    os.remove(h.file("/tmp/.uci/luci"))
    h.edit_model(function(m) m.device.uptime = 700; m.loid.status = 409 end)
    v:get("regProcess")
    assert.matches("config internal 'ccache'\n\toption enable '1'\n\toption lastregtime '700'\n",
      h.read_file("/etc/config/luci"), 1, true)
    h.sim.advance_clock(30)
    assert.are.equal(150, v:set("setloid", loid()))
    h.sim.advance_clock(150)
    assert.are.same({ 0, { "NEWLOID01/pw01" } }, { v:set("setloid", loid()), h.stored_loids() })
    assert.matches("option lastregtime '0'", h.read_file("/etc/config/luci"), 1, true)
  end)

  it("finds uci in the gateway's /sbin when the web server has no PATH or one without it", function()
    -- The server's own process, started with an empty environment: the file root's
    -- /sbin holds the project's uci, its /bin one that fails, and no tools folder helps.
    for _, path in ipairs({ false, "PATH=/usr/bin:/bin" }) do
      h.fresh_root()
      h.write_file("/bin/uci", "#!/bin/sh\nexit 1\n")
      os.execute("chmod +x " .. h.quote(h.file("/bin/uci")) .. " && mkdir -p " .. h.quote(h.file("/sbin")) ..
        " && ln -s " .. h.quote(project_tools .. "/uci") .. " " .. h.quote(h.file("/sbin/uci")))
      local status, out, err = h.holdoff_without_environment(tools .. "/none", path)
      assert.are.same({ 0, "150", "" }, { status, out, err })
      assert.matches("option lastregtime '700'", h.read_file("/etc/config/luci"), 1, true)
    end
  end)

  it("setloid stores the LOID when uci is missing, prints nothing, fails or hangs", function()
    for _, script in ipairs({ false, "#!/bin/sh\nexit 0\n", "#!/bin/sh\necho 1000 >&2\nexit 1\n",
      "#!/bin/sh\nexec sleep 30\n" }) do
      h.sim.clear_journal()
      use_uci(script)
      local started = os.time()
      assert.are.same({ 0, { "NEWLOID01/pw01" } }, { v:set("setloid", loid()), h.stored_loids() })
      assert.is_true(os.time() - started <= 10)
    end
  end)

  it("setloid sets the first 2.4 GHz SSID's name and password unless hasWiFi is 0 or the password empty", function()
    -- request, what was written to "SSID" and "PWD", log
    local wifi = { hasWiFi = "1", wifiSsid = "", wifiPsd = "newpass99" }
    for _, c in ipairs({
      { {}, {} },
      { wifi, { "SSID=", "PWD=newpass99" } },
      { { hasWiFi = "-1", wifiSsid = "Home", wifiPsd = "x" }, { "SSID=Home", "PWD=x" } },
      { { hasWiFi = "1", wifiSsid = "Home", wifiPsd = "" }, {}, { "5 SSID and password don't change" } },
      { { hasWiFi = "1", wifiSsid = ("s"):rep(70), wifiPsd = ("w"):rep(63) }, { "SSID=" .. ("s"):rep(63), "PWD=" .. ("w"):rep(63) } },
    }) do
      h.reset()
      assert.are.equal(0, v:set("setloid", loid(c[1])))
      local written = {}
      for _, w in ipairs(h.calls("ZoVelDBusSetProperty")) do
        assert.are.same({ "/com/zom/igd1/Config/WLAN/Devices/1", "com.zom.igd1.WLANConfiguration" }, { w.path, w.interface })
        written[#written + 1] = w.property .. "=" .. w.value
      end
      assert.are.same(c[2], written)
      assert.are.same(c[3] or {}, h.log_texts())
    end
    assert.are.same({ "NEWLOID01", "pw01" }, { h.model().loid.loid, h.model().loid.password })
    h.edit_model(function(m) m.wlan[1].band_label = "2.4G-9" end)
    assert.are.same({ 0, {} }, { v:set("setloid", loid(wifi)), h.calls("ZoVelDBusSetProperty") })
  end)

  it("setloid answers the platform's refusal leaving Wi-Fi alone, and judges every field before running uci", function()
    h.sim.fail("ZoVelSysCmdSetLOID", -9, 1)
    assert.are.same({ -9, {} }, { v:set("setloid", loid { hasWiFi = "1", wifiSsid = "S", wifiPsd = "P" }),
      h.calls("ZoVelGetWLANDeviceObjs") })
    uci_calls()
    h.sim.clear_journal()
    assert.matches(h.field_error("nil", "hasWiFi"), h.set_error("setloid", loid { hasWiFi = false }))
    assert.are.same({ {}, {} }, { uci_calls(), h.stored_loids() })
  end)

  it("checkLoid reads the status unsigned; registerloid and regProcess keep it signed", function()
    for _, c in ipairs({ { 200, 200 }, { 0, 0 }, { -1, 4294967295 }, { -2147483648, 2147483648 } }) do
      h.reset()
      h.edit_model(function(m) m.loid.status = c[1]; m.loid.register_status = c[1] end)
      assert.are.same({ c[2], ('checkLoidStatus({"result":%d,"msg":"IPTV,VOIP"})'):format(c[1]), c[1] },
        { v:get("checkLoid"), v:get("regProcess"), v:set("registerloid") })
      assert.are.same({ false, true }, { h.calls("ZoVelSysCmdCheckLOID")[1].with_text, h.calls("ZoVelSysCmdCheckLOID")[2].with_text })
    end
    h.sim.fail("ZoVelSysCmdRegisterLOID", -5)
    assert.are.equal(0, v:set("registerloid"))
  end)

  it("regProcess shows status and message verbatim within 255 characters and marks 405, 407 and 409", function()
    h.edit_model(function(m) m.device.uptime = 5000 end)
    for _, c in ipairs({ { 200, "IPTV,VOIP" }, { 203, "VOIP" }, { 404, "x" }, { 406, "" }, { 408, "" }, { 410, "" },
      { 405, "refused", true }, { 407, "IPTV,VOIP", true }, { 409, "", true }, { 200, 'a"b' } }) do
      h.edit_model(function(m) m.loid.status = c[1]; m.loid.services = c[2] end)
      assert.are.equal(('checkLoidStatus({"result":%d,"msg":"%s"})'):format(c[1], c[2]), v:get("regProcess"))
      assert.are.same(c[3] and { "set luci.ccache.lastregtime=5000", COMMIT } or {}, uci_calls())
      assert.are.equal(c[3] and "5000\n" or nil, take("mark"))
    end
    h.edit_model(function(m) m.loid.status = 200; m.loid.services = ("M"):rep(300) end)
    assert.are.equal('checkLoidStatus({"result":200,"msg":"' .. ("M"):rep(218), v:get("regProcess"))
    h.edit_model(function(m) m.loid.services = h.cjson.null end)
    assert.are.equal('checkLoidStatus({"result":200,"msg":""})', v:get("regProcess"))
    -- a failed check still marks when its status variable holds a refusal; no running time, no mark
    h.sim.fail("ZoVelSysCmdCheckLOID", -1)
    assert.are.equal('checkLoidStatus({"result":-1,"msg":"failed"})', v:get("regProcess"))
    -- a check that succeeds without writing leaves the status it started from
    h.sim.fail("ZoVelSysCmdCheckLOID", 0)
    assert.are.equal('checkLoidStatus({"result":201,"msg":""})', v:get("regProcess"))
    h.sim.clear_faults()
    h.edit_model(function(m) m.loid.status = 407 end)
    h.sim.fail("ZoVelDBusGetProperty", -1)
    v:get("regProcess")
    assert.are.same({}, uci_calls())
  end)

  it("itvVoipReg takes IPTV and voice from the registration, or IPTV from the IPTV record on type 13", function()
    -- device type, status, message, IPTV enable, itv, voip
    for _, c in ipairs({
      { "1", 200, "IPTV,VOIP", 1, true, true }, { "1", 203, "", 1, false, false }, { "1", 200, "VOIP", 1, false, true },
      { "1", 203, "IPTV", 0, true, false }, { "1", 201, "IPTV,VOIP", 1, false, false },
      { "1", 200, "iptv,voip", 1, false, false }, { "13", 200, "IPTV,VOIP", 1, true, false },
      { "13abc", 407, "", 0, false, false },
    }) do
      h.edit_model(function(m) m.device.dev_type = c[1]; m.loid.status = c[2]; m.loid.services = c[3]; m.iptv.enable = c[4] end)
      assert.are.same({ itv = c[5], voip = c[6] }, v:get("itvVoipReg"))
    end
  end)

  it("the simulated registration advances with the clock; a refusal holds the next LOID off", function()
    assert.are.equal(0, v:set("registerloid"))
    local seen = {}
    for _ = 1, 5 do
      seen[#seen + 1] = v:get("regProcess"):match('"result":(%d+)')
      h.sim.advance_clock(6)
    end
    assert.are.same({ "201", "202", "202", "202", "200" }, seen)

    h.edit_model(function(m)
      m.device.uptime = 3000
      m.loid.registration = { { after = 0, status = 201 }, { after = 10, status = 407, msg = "" } }
    end)
    assert.are.equal(0, v:set("registerloid"))
    h.sim.advance_clock(10)
    assert.are.equal('checkLoidStatus({"result":407,"msg":""})', v:get("regProcess"))
    h.sim.advance_clock(100)
    assert.are.equal(80, v:set("setloid", loid()))
    v:get("regProcess") -- every poll that sees the refusal moves the mark
    assert.are.equal(180, v:set("setloid", loid()))
    h.sim.advance_clock(180)
    assert.are.same({ 0, "0\n", 1 }, { v:set("setloid", loid()), take("mark"), #h.stored_loids() })
    -- a committed mark outlives a reboot: the running time starts again from 0
    write("mark", "50000\n")
    v:set("reboot")
    h.sim.advance_clock(60)
    assert.are.equal(50120, v:set("setloid", loid()))
  end)
end)
