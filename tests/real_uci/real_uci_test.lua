-- The module's uci paths with OpenWrt's own uci in the project's uci's place (a
-- program in VELCONFIG_REAL_UCI_TOOLS that runs it on the file root with -c, -t and
-- -C): the LOID hold-off mark and the application parameters, and the mark found
-- with an empty environment. Run by `make real-uci-check`.
local h = require "helpers"
local v = h.velconfig
local sim = h.sim

local TOOLS = assert(os.getenv("VELCONFIG_REAL_UCI_TOOLS"), "VELCONFIG_REAL_UCI_TOOLS holds the real uci's wrapper")
local LOID = { loid = "NEWLOID01", loidPsd = "pw01", hasWiFi = "0" }

local function real_uci(...)
  local words = { "VELCONFIG_ROOT=" .. h.quote(h.root), h.quote(TOOLS .. "/uci") }
  for _, a in ipairs({ ... }) do words[#words + 1] = h.quote(a) end
  return h.shell(table.concat(words, " "))
end

describe("with OpenWrt's uci", function()
  before_each(function()
    h.fresh_root()
    h.reset()
    sim.set_tools_dir(TOOLS)
  end)
  after_each(function() sim.set_tools_dir(os.getenv("VELCONFIG_TOOLS_DIR") or "") end)

  it("keeps the LOID hold-off mark in the stock luci configuration", function()
    h.edit_model(function(m) m.device.uptime = 700; m.loid.status = 409 end)
    v:get("regProcess")
    assert.are.same({ 0, "700\n", "" }, { real_uci("get", "luci.ccache.lastregtime") })
    assert.matches("config internal 'ccache'\n\toption enable '1'\n\toption lastregtime '700'\n",
      h.read_file("/etc/config/luci"), 1, true)
    assert.are.equal("", h.read_file("/tmp/.uci/luci") or "")
    sim.advance_clock(30)
    assert.are.same({ 150, {} }, { v:set("setloid", LOID), h.stored_loids() })
    sim.advance_clock(150)
    assert.are.same({ 0, { "NEWLOID01/pw01" } }, { v:set("setloid", LOID), h.stored_loids() })
    assert.are.same({ 0, "0\n", "" }, { real_uci("get", "luci.ccache.lastregtime") })
  end)

  it("changes an application's parameters, seen by the next read and by uci", function()
    local json = '{"config":"familycare","main.enabled":"0","night.start":"23:15","night.stop":"x\';reboot"}'
    -- the file's last option is among those named: the answer is 0
    assert.are.equal(0, v:set("setAppParas", json))
    local after = v:get("getAppParas", "familycare")
    assert.are.same({ "'0'", "'23:15'", "'x'\\'';reboot'" },
      { after["'main'"].enabled, after["'night'"].start, after["'night'"].stop })
    assert.are.same({ 0, "23:15\n", "" }, { real_uci("get", "familycare.night.start") })
    assert.are.same({ 0, "x';reboot\n", "" }, { real_uci("get", "familycare.night.stop") })
    local _, hidden = h.shell("ls -A " .. h.quote(h.file("/etc/config")) .. " | grep '^\\.' || true")
    assert.are.equal("", hidden)
  end)

  it("is found in the gateway's /sbin by a server with an empty environment", function()
    os.execute("mkdir -p " .. h.quote(h.file("/sbin")) .. " && ln -s " .. h.quote(TOOLS .. "/uci") .. " " ..
      h.quote(h.file("/sbin/uci")))
    local status, out, err = h.holdoff_without_environment(h.root .. "/no-tools")
    assert.are.same({ 0, "150", "" }, { status, out, err })
    assert.are.same({ 0, "700\n", "" }, { real_uci("get", "luci.ccache.lastregtime") })
  end)
end)
