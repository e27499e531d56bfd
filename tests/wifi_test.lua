-- Wi-Fi pages: "wifiBasic" (read and write), "wifiSsid" and the Wi-Fi timer "wifiAdv".
local h = require "helpers"
local v = h.velconfig

local WIFI_INFO = { "/com/zom/igd1/Info/WiFi", "com.zom.igd1.WiFiInfo" }

-- A write of the 2.4 GHz band switched on, with fields replaced by extra (false removes one).
local function basic(extra)
  local t = { wifi_dualBand = "0", wifi_2G_enbl = "1", wifi_2G_ssid = "Home", wifi_2G_auth = "WPA2",
    wifi_2G_passwd = "secret123", wifi_2G_strength = "3" }
  for k, x in pairs(extra or {}) do t[k] = x ~= false and x or nil end
  return t
end

-- A table that notes every field read from it, in order.
local function watched(fields, seen)
  return setmetatable({}, { __index = function(_, k) seen[#seen + 1] = k; return fields[k] end })
end

local function sent() return h.calls("ZoVelSetWLANDevice") end

-- One test per mapping: every row on a fresh gateway, named in a failure by its row.
local function each_row(rows, check)
  for i, c in ipairs(rows) do
    h.reset()
    check(c, "row " .. i)
  end
end

before_each(function() h.reset() end)

describe("wifiBasic mappings", function()
  it("writes each page mode as its beacon type and, for Open and Shared, basic authentication", function()
    each_row({ { "Open", "None", "OpenSystem" }, { "Shared", "Basic", "Both" }, { "WPA2", "WPA2", "-" },
      { "WPA/WPA2", "WPA/WPA2", "-" }, { "WPA3", "WPA3", "-" }, { "wpa2", "wpa2", "-" } }, function(c, row)
      h.edit_model(function(m) m.wlan[1].basic_auth = "-" end)
      assert.are.equal(0, v:set("wifiBasic", basic { wifi_2G_auth = c[1] }), row)
      assert.are.same({ c[2], c[3] }, { sent()[1].beacon_type, sent()[1].basic_auth }, row)
    end)
  end)

  it("reads each beacon type as the page's mode, exactly as written, Open otherwise", function()
    each_row({ { "Basic", "Shared" }, { "WPA", "WPA" }, { "WPA2", "WPA2" }, { "11i", "WPA2" }, { "WPA/WPA2", "WPA/WPA2" },
      { "WPA3", "WPA3" }, { "WPA2/WPA3", "WPA2/WPA3" }, { "None", "Open" }, { "", "Open" }, { "wpa2", "Open" },
      { "WEP", "Open" } }, function(c, row)
      h.edit_model(function(m) m.wlan[1].beacon_type = c[1] end)
      assert.are.equal(c[2], v:get("wifiBasic").auth1, row)
    end)
  end)

  it("sets a Shared key's WEP level by its length; keeps a known WPA encryption, AES for WPA3, else TKIP and AES", function()
    -- mode, password, WEP level and WPA encryption the record had -> the two written
    each_row({ { "Shared", "abcde", "", "", "40-bit", "" }, { "Shared", ("a"):rep(10), "", "", "40-bit", "" },
      { "Shared", ("a"):rep(13), "40-bit", "", "104-bit", "" }, { "Shared", ("a"):rep(26), "", "", "104-bit", "" },
      { "Shared", ("a"):rep(8), "40-bit", "", "40-bit", "" }, { "Shared", "", "104-bit", "", "104-bit", "" },
      { "WPA2", "abcde", "", "TKIPEncryption", "", "TKIPEncryption" }, { "WPA2", "p", "", "", "", "TKIPandAESEncryption" },
      { "WPA/WPA2", "p", "", "AESEncryption", "", "AESEncryption" },
      { "WPA", "p", "", "aesencryption", "", "TKIPandAESEncryption" },
      { "WPA3", "p", "", "TKIPEncryption", "", "AESEncryption" }, { "WPA2/WPA3", "p", "", "", "", "AESEncryption" },
      { "Open", "p", "", "TKIPEncryption", "", "TKIPEncryption" } }, function(c, row)
      h.edit_model(function(m) m.wlan[1].wep_level = c[3]; m.wlan[1].wpa_encryption = c[4] end)
      v:set("wifiBasic", basic { wifi_2G_auth = c[1], wifi_2G_passwd = c[2] })
      local s = sent()[1]
      assert.are.same({ c[5], c[6], c[2] }, { s.wep_level, s.wpa_encryption, s.passphrase }, row)
    end)
  end)

  it("writes each strength code as a power by band and high-power class, and reads it back", function()
    -- band, strength code, high-power class -> transmit power written, level and through-wall flag read back
    each_row({ { 1, "1", 22, 60, 1, true }, { 1, "2", 0, 80, 2, false }, { 1, "3", 22, 100, 3, true },
      { 1, "0", 0, 100, 3, false }, { 1, "x", 0, 100, 3, false }, { 1, "4", 21, 128, 4, true },
      { 1, "4", 22, 160, 4, true }, { 1, "4", 23, 200, 4, true }, { 1, "4", 24, 100, 3, false },
      { 1, "4", 0, 100, 3, false }, { 2, "4", 24, 125, 4, true }, { 2, "4", 25, 140, 4, true },
      { 2, "4", 26, 200, 4, true }, { 2, "4", 22, 100, 3, false }, { 2, "1", 25, 60, 1, true } }, function(c, row)
      h.edit_model(function(m) m.wlan[1].high_power_class = c[3]; m.wlan[3].high_power_class = c[3] end)
      local t = basic { wifi_dualBand = "1", wifi_2G_enbl = "0", wifi_5G_enbl = "0" }
      local p = c[1] == 1 and "wifi_2G_" or "wifi_5G_"
      for k, x in pairs({ enbl = "1", ssid = "S", auth = "WPA2", passwd = "p", strength = c[2] }) do t[p .. k] = x end
      assert.are.equal(0, v:set("wifiBasic", t), row)
      assert.are.equal(c[4], sent()[c[1]].tx_power, row)
      local r = v:get("wifiBasic")
      assert.are.same({ c[5], c[6] }, { r["powerLevel" .. c[1]], r["wallPower" .. c[1]] }, row)
    end)
  end)

  it("reads each transmit power as its level, above 100 only a high-power class as 4", function()
    each_row({ { 0, 1 }, { 70, 1 }, { 71, 2 }, { 90, 2 }, { 91, 3 }, { 100, 3 }, { 101, 4 }, { 101, 3, 0 } }, function(c, row)
      h.edit_model(function(m)
        m.wlan[1].tx_power = c[1]
        m.wlan[1].high_power_class = c[3] or m.wlan[1].high_power_class
      end)
      assert.are.equal(c[2], v:get("wifiBasic").powerLevel1, row)
    end)
  end)
end)

describe("wifiBasic band procedure", function()
  it("reads each band's fields in order, band by band in list order", function()
    local seen = {}
    local fields = basic { wifi_dualBand = "1", wifi_5G_enbl = "1", wifi_5G_ssid = "Five", wifi_5G_auth = "Open",
      wifi_5G_passwd = "", wifi_5G_strength = "2" }
    assert.are.equal(0, v:set("wifiBasic", watched(fields, seen)))
    assert.are.same({ "wifi_dualBand", "wifi_2G_enbl", "wifi_2G_ssid", "wifi_2G_auth", "wifi_2G_passwd",
      "wifi_2G_strength", "wifi_5G_enbl", "wifi_5G_ssid", "wifi_5G_auth", "wifi_5G_passwd", "wifi_5G_strength" }, seen)
    assert.are.same({ "/com/zom/igd1/Config/WLAN/Devices/1", "/com/zom/igd1/Config/WLAN/Devices/5" },
      { sent()[1].path, sent()[2].path })
    -- without an input the 2.4 GHz fields are looked up on the key text
    local ok, no_input = pcall(function() return v:set("wifiBasic") end)
    assert.is_false(ok)
    assert.matches(h.field_error("nil", "wifi_2G_enbl", true), h.without_position(no_input))
  end)

  it("a band switched off reads nothing else and changes only enable; no dual band leaves 5 GHz alone", function()
    local seen = {}
    local before = h.model().wlan[1]
    assert.are.equal(0, v:set("wifiBasic", watched({ wifi_dualBand = "", wifi_2G_enbl = "0", wifi_5G_enbl = "1" }, seen)))
    assert.are.same({ "wifi_dualBand", "wifi_2G_enbl" }, seen)
    local after = h.model().wlan[1]
    before.enable = 0
    assert.are.same(before, after)
    assert.are.equal(1, #sent())
    -- the record goes back even when nothing changed
    h.sim.clear_journal()
    v:set("wifiBasic", { wifi_dualBand = "2", wifi_2G_enbl = "0" })
    assert.are.equal(1, #sent())
  end)

  it("cuts the SSID at 32 characters, keeps a 63-character password, and keeps the platform's own bytes", function()
    -- every range the record leaves to the platform (3, 8, 23 and 64 bytes)
    local bytes = { ["289"] = ("a1"):rep(3), ["296"] = ("b2"):rep(8), ["465"] = ("c3"):rep(23), ["560"] = ("d4"):rep(64) }
    h.edit_model(function(m) m.wlan[1].reserved = bytes end)
    assert.are.equal(0, v:set("wifiBasic", basic { wifi_2G_ssid = string.rep("s", 40), wifi_2G_passwd = string.rep("p", 63),
      wifi_2G_auth = string.rep("A", 20) }))
    local s = sent()[1]
    assert.are.same({ string.rep("s", 32), string.rep("p", 63), string.rep("A", 15), bytes, "2.4G-1", "b,g,n,ax", 22 },
      { s.ssid, s.passphrase, s.beacon_type, s.reserved, s.band_label, s.standard, s.high_power_class })
    assert.are.same(bytes, h.model().wlan[1].reserved)
    -- a cut never splits a character
    assert.are.equal(0, v:set("wifiBasic", basic { wifi_2G_ssid = ("a"):rep(30) .. "中文" }))
    assert.are.equal(("a"):rep(30), sent()[2].ssid)
  end)

  it("returns the last band's result, the listing's failure, or 0 when nothing is sent", function()
    local both = basic { wifi_dualBand = "1", wifi_5G_enbl = "0" }
    h.sim.fail("ZoVelSetWLANDevice", -7, 1)
    assert.are.equal(0, v:set("wifiBasic", both))
    h.sim.fail("ZoVelSetWLANDevice", -7)
    assert.are.equal(-7, v:set("wifiBasic", both))
    h.sim.clear_faults()
    h.sim.fail("ZoVelGetWLANDeviceObjs", -5)
    assert.are.equal(-5, v:set("wifiBasic", both))
    h.sim.clear_faults()
    h.edit_model(function(m) m.wlan = { { id = 3, band_label = "2.4G-2", ssid = "g" }, { id = 4, band_label = "" } } end)
    assert.are.equal(0, v:set("wifiBasic", both))
    assert.are.equal(0, #sent())
  end)

  it("a write shows in wifiBasic, wifiSsid and gwInfo; switching the network off disconnects its clients", function()
    assert.are.equal(0, v:set("wifiBasic", basic { wifi_2G_ssid = "Renamed", wifi_2G_auth = "Open", wifi_2G_passwd = "" }))
    local r = v:get("wifiBasic")
    assert.are.same({ "Renamed", "Open", "" }, { r.ssid1, r.auth1, r.passwd1 })
    assert.are.same({ "Renamed", "None" }, { v:get("wifiSsid").ssid, v:get("wifiSsid").bType })
    assert.are.same({ "Renamed", 3 }, { v:get("gwInfo", "all").ssid2g, v:get("allInfo").wlcount })
    assert.are.equal(0, v:set("wifiBasic", { wifi_dualBand = "0", wifi_2G_enbl = "0" }))
    r = v:get("allInfo")
    assert.are.same({ 1, "iPad" }, { r.wlcount, r.wifi1.devName })
    assert.are.same({ "", "Velmont-3F10-5G" }, { v:get("gwInfo", "all").ssid2g, v:get("wifiSsid").ssid })
  end)
end)

describe("wifiBasic read", function()
  it("shows both first SSIDs, the later of a repeated label, and no 5 GHz fields without dual band", function()
    h.edit_model(function(m) m.wlan[4] = { id = 9, band_label = "2.4G-1", ssid = "Later", enable = 0, tx_power = 60 } end)
    assert.are.same({ enbl1 = false, ssid1 = "Later", powerLevel1 = 1, wallPower1 = false, auth1 = "Open", passwd1 = "",
      enbl2 = true, ssid2 = "Velmont-3F10-5G", powerLevel2 = 3, wallPower2 = true, standard2 = "a,n,ac,ax",
      auth2 = "WPA2/WPA3", passwd2 = "vel3f10home", dualBand = true, wifi6 = 1 }, v:get("wifiBasic"))
    h.edit_model(function(m) m.wifi.dual_band = false end)
    local r = v:get("wifiBasic")
    for k in pairs(r) do assert.is_nil(k:match("2$"), k) end
    assert.is_false(r.dualBand)
    h.sim.fail("ZoVelGetWLANDeviceObjs", -1)
    assert.are.same({ dualBand = false, wifi6 = 1 }, v:get("wifiBasic"))
    h.sim.clear_faults()
    h.edit_model(function(m) m.wlan = { { id = 2, band_label = "2.4G-2", ssid = "g" }, { id = 3, band_label = "" } } end)
    assert.are.same({ dualBand = false, wifi6 = 1 }, v:get("wifiBasic"))
  end)

  it("counts 802.11ax, else a WPA3 beacon type, as Wi-Fi 6; a wrong-typed or absent value as none", function()
    -- standards, SupportedBeaconType answer (nil: the model's) -> wifi6
    each_row({ { "802.11n,802.11ax", "int32 1", 1 }, { "802.11b/g/n/ax", nil, 1 }, { "802.11b/g/n", "'WPA2,WPA3'", 1 },
      { "802.11b/g/n", "'None,WPA2'", 0 }, { "802.11b/g/n", "int32 3", 0 }, { "802.11b/g/n", false, 0 } }, function(c, row)
      h.edit_model(function(m) m.wifi.standards = c[1] end)
      if c[2] ~= nil then h.sim.answer_property(WIFI_INFO[1], WIFI_INFO[2], "SupportedBeaconType", c[2]) end
      assert.are.equal(c[3], v:get("wifiBasic").wifi6, row)
    end)
  end)
end)

describe("wifiSsid", function()
  it("chooses an enabled 2.4 GHz network, else an enabled 5 GHz one, else the 2.4 GHz one", function()
    -- 2.4 GHz enabled (nil: no such record), 5 GHz enabled -> SSID chosen, also without dual band
    each_row({ { 1, 1, "Velmont-3F10" }, { 0, 1, "Velmont-3F10-5G" }, { 0, 0, "Velmont-3F10" },
      { nil, 0, "Velmont-3F10-5G" } }, function(c, row)
      h.edit_model(function(m)
        m.wifi.dual_band = false
        m.wlan[3].enable = c[2]
        if c[1] then m.wlan[1].enable = c[1] else table.remove(m.wlan, 1) end
      end)
      assert.are.equal(c[3], v:get("wifiSsid").ssid, row)
    end)
  end)

  it("shows the beacon type unmapped within 15 characters; without Wi-Fi or the two SSIDs, no SSID", function()
    h.edit_model(function(m) m.wlan[1].beacon_type = "WPA2/WPA3-Transition" end)
    assert.are.equal("WPA2/WPA3-Trans", v:get("wifiSsid").bType)
    -- product class and LAN address still reported
    h.edit_model(function(m) m.device.has_wifi = false; m.device.product_class = string.rep("P", 30) end)
    assert.are.same({ hasWiFi = 0, ssid = "", bType = "", productCls = string.rep("P", 23), lanIp = "192.168.1.1" },
      v:get("wifiSsid"))
    assert.are.equal(0, #h.calls("ZoVelGetWLANDeviceObjs"))
    h.edit_model(function(m) m.device.has_wifi = true; m.wlan = { { id = 2, band_label = "2.4G-2", ssid = "g" } } end)
    h.sim.answer_property("/com/zom/igd1/Info/Device", "com.zom.igd1.DeviceInfo", "ProductClass", "uint32 5")
    h.sim.answer_property("/com/zom/igd1/Info/Network", "com.zom.igd1.NetworkInfo", "LANIPAddr", false)
    assert.are.same({ hasWiFi = 1, ssid = "", bType = "", productCls = "", lanIp = "" }, v:get("wifiSsid"))
  end)
end)

describe("wifiAdv", function()
  local function timer(fields)
    h.edit_model(function(m) for k, x in pairs(fields) do m.wifi.timer[k] = x end end)
  end
  local function written() return h.calls("ZoVelSetWiFiTimer") end

  it("pads short stored times, shows longer ones as stored, the local time, and a cleared record if unreadable", function()
    each_row({ { "8:5", "08:05" }, { "8:30", "08:30" }, { "08:30", "08:30" }, { "1234", "123:00" }, { "", "00:00" }, { ":30", "00:00" },
      { "7", "07:00" }, { "8:5:1", "8:5:1" }, { "23:59:5", "23:59:5" } }, function(c, row)
      timer { start_time = c[1], end_time = c[1], enable = 3 }
      local r = v:get("wifiAdv")
      assert.are.same({ 3, c[2], c[2] }, { r.timerEnbl, r.startTime, r.endTime }, row)
    end)
    -- the local time
    h.sim.pin_clock(1709967902)
    assert.are.equal(os.date("%Y-%m-%d %H:%M:%S", 1709967902), v:get("wifiAdv").sysTime)
    -- a five-digit year is shown whole; a clock beyond any date shows no time
    h.sim.pin_clock(253402300800 + 86400)
    assert.matches("^10000%-01%-0%d %d%d:%d%d:%d%d$", v:get("wifiAdv").sysTime)
    h.sim.pin_clock(2 ^ 62)
    assert.are.equal("", v:get("wifiAdv").sysTime)
    h.sim.fail("ZoVelGetWiFiTimer", -1)
    local r = v:get("wifiAdv")
    assert.are.same({ 0, "00:00", "00:00" }, { r.timerEnbl, r.startTime, r.endTime })
  end)

  it("off reads no times: staying off writes nothing, switching off keeps the stored times and recomputes the mask", function()
    local seen = {}
    assert.are.equal(0, v:set("wifiAdv", watched({ wifi_timing = "0" }, seen)))
    assert.are.same({ { "wifi_timing" }, 0 }, { seen, #written() })
    local part = { ["0"] = ("5a"):rep(256) }
    timer { enable = 1, ssid_mask = 2, reserved = part, repeat_mode = "WEEK" }
    seen = {}
    assert.are.equal(0, v:set("wifiAdv", watched({ wifi_timing = "0" }, seen)))
    assert.are.same({ "wifi_timing" }, seen)
    -- the platform's part goes back as it was
    assert.are.same({ { op = "ZoVelSetWiFiTimer", start_time = "23:00", end_time = "07:00", repeat_mode = "DAY",
      enable = 0, ssid_mask = 17, reserved = part } }, written())
    assert.are.same(part, h.model().wifi.timer.reserved)
  end)

  it("switching on reads the times, cut at 7 characters, and stores the page's value; failures return their code", function()
    assert.are.equal(0, v:set("wifiAdv", { wifi_timing = "2", start_time = "8:5", end_time = "06:30:00" }))
    local w = written()[1]
    assert.are.same({ 2, "8:5", "06:30:0", "DAY" }, { w.enable, w.start_time, w.end_time, w.repeat_mode })
    assert.are.same({ 2, "08:05", "06:30:0" }, { v:get("wifiAdv").timerEnbl, v:get("wifiAdv").startTime,
      v:get("wifiAdv").endTime })
    assert.matches(h.field_error("nil", "end_time"), h.set_error("wifiAdv", { wifi_timing = "1", start_time = "1:00" }))
    assert.are.equal(1, #written())
    -- a failed timer read writes nothing; a failed write leaves the timer as it was
    h.sim.fail("ZoVelGetWiFiTimer", -9, 1)
    assert.are.equal(-9, v:set("wifiAdv", { wifi_timing = "0" }))
    assert.are.equal(1, #written())
    h.sim.fail("ZoVelSetWiFiTimer", -4)
    assert.are.equal(-4, v:set("wifiAdv", { wifi_timing = "0" }))
    assert.are.equal(2, h.model().wifi.timer.enable)
  end)

  it("switches the main SSIDs by their instance numbers, the 5 GHz one only with dual band", function()
    -- dual band (a GVariant text, false: no value), listing fails, extra records -> mask
    each_row({ { "true", false, nil, 17 }, { "false", false, nil, 1 }, { "int32 1", false, nil, 1 },
      { false, false, nil, 1 }, { "true", true, nil, 0 },
      { "true", false, { { id = 40, band_label = "2.4G-1" }, { id = 32, band_label = "5G-1" } }, 0x80000011 },
      -- without instance 1, so that a 33rd bit wrapping round to bit 0 would show
      { "true", false, { only = true, { id = 33, band_label = "2.4G-1" }, { id = 32, band_label = "5G-1" } },
        0x80000000 } },
      function(c, row)
        if c[3] then
          h.edit_model(function(m)
            if c[3].only then m.wlan = {} end
            for _, e in ipairs(c[3]) do m.wlan[#m.wlan + 1] = e end
          end)
        end
        h.sim.answer_property(WIFI_INFO[1], WIFI_INFO[2], "DualBand", c[1])
        if c[2] then h.sim.fail("ZoVelGetWLANDeviceObjs", -1) end
        assert.are.equal(0, v:set("wifiAdv", { wifi_timing = "1", start_time = "1:00", end_time = "2:00" }), row)
        assert.are.equal(c[4], written()[1].ssid_mask, row)
      end)
  end)
end)
