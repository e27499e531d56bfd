-- Interconnect plugin page: the commands it posts, how it reads the replies, the
-- status collection with its early exits and device-list parsing, and the writes.
local h = require "helpers"
local v = h.velconfig

local AP1, AP2 = "A4C1E2104B21", "A4C1E2107C44"

local function commands()
  local texts = {}
  for _, c in ipairs(h.calls("ZoVelPostMsg")) do
    assert.are.equal("inter_conndv3", c.app)
    texts[#texts + 1] = c.command
  end
  return texts
end

local function ap(fields)
  local t = { mac = AP1, modeflg = "3", ssid2g = "Attic", pwd2g = "k24", enbl2g = "1", ssid5g = "Attic-5G",
    pwd5g = "k5", enbl5g = "0" }
  for k, val in pairs(fields or {}) do t[k] = val ~= false and val or nil end
  return t
end

local function set_wifi(mode, ssid, pwd, enable, mac)
  return '{"CmdType":"SetWifiConfig","infos":{"mac":"' .. (mac or AP1) .. '","mode":"' .. mode ..
    '","apidx":0,"ssid":"' .. ssid .. '","pwd":"' .. pwd .. '","enable":' .. enable .. '},"SequenceId":"88888888"}'
end

before_each(function() h.reset() end)

describe("interconnect commands", function()
  it("escapes texts, and cuts commands at their limits", function()
    assert.are.equal(0, v:set("configAP", ap { modeflg = "1", pwd2g = 'a"b\\c\n' }))
    assert.are.same({ set_wifi("2.4g", "Attic", 'a\\"b\\\\c\\u000a', 1) }, commands())
    assert.are.equal('a"b\\c\n', v:get("interConndStatus").ap1.pwd2g)
    -- 63 quotes in each text: the escaped command runs past 279 characters
    h.sim.clear_journal()
    local q = string.rep('"', 70)
    assert.are.equal(1, v:set("configAP", ap { modeflg = "1", mac = string.rep("m", 20), ssid2g = q,
      pwd2g = q:sub(1, 63) }))
    local full = set_wifi("2.4g", string.rep('\\"', 63), string.rep('\\"', 63), 1, string.rep("m", 15))
    assert.are.same({ full:sub(1, 279) }, commands())
    -- a MAC of 300 characters in the device list: entry cut at 255, command at 255
    h.sim.plugin_reply("GetDeviceList", '{"Info":"V|M|' .. string.rep("f", 300) .. '"}')
    h.sim.clear_journal()
    assert.are.equal(string.rep("f", 251), v:get("interConndStatus").ap1.mac)
    local getwifi = commands()[4]
    assert.are.equal(255, #getwifi)
    assert.are.equal('{"CmdType":"GetWifi","mac":"fff', getwifi:sub(1, 31))
  end)

  it("the simulated plugin keeps the mesh-roaming thresholds", function()
    local function roaming() return h.cjson.decode(h.sim.plugin_post('{"CmdType":"GetMeshRoaming","SequenceId":"88888888"}')) end
    assert.are.same({ optimal_path_rcpi_threshold2g = 90, optimal_path_rcpi_threshold = 110 }, roaming().infos)
    for _, c in ipairs {
      { '{"optimal_path_rcpi_threshold2g":70,"optimal_path_rcpi_threshold":80}', 0, 70, 80 },
      { '{"optimal_path_rcpi_threshold2g":60}', 0, 60, 80 },
      { '{"optimal_path_rcpi_threshold":50}', 0, 60, 50 },
      { '{"optimal_path_rcpi_threshold":"40"}', 2, 60, 50 },
    } do
      local reply = h.cjson.decode(h.sim.plugin_post('{"CmdType":"SetMeshRoaming","infos":' .. c[1] .. ',"SequenceId":"88888888"}'))
      assert.are.same({ c[2], "88888888" }, { reply.Status, reply.SequenceId })
      assert.are.same({ c[3], c[4] }, { roaming().infos.optimal_path_rcpi_threshold2g, roaming().infos.optimal_path_rcpi_threshold })
    end
  end)
end)

describe("interConndStatus", function()
  it("reports the running plugin, its switches and every access point with its Wi-Fi", function()
    local s = v:get("interConndStatus")
    assert.are.same({ '{"CmdType":"GetSameWifi","SequenceId":"88888888"}',
      '{"CmdType":"GetSameStatus","SequenceId":"88888888"}', '{"CmdType":"GetDeviceList","SequenceId":"88888888"}',
      '{"CmdType":"GetWifi","mac":"' .. AP1 .. '","SequenceId":"88888888"}',
      '{"CmdType":"GetWifi","mac":"' .. AP2 .. '","SequenceId":"88888888"}' }, commands())
    assert.are.same({ 1, 1, 0, 2 }, { s.appStatus, s.configEnbl, s.onoff, s.devcnt })
    assert.are.same({ vendor = "Velmont", model = "VA-1800M", mac = AP1, hdversion = "HV1.0", swversion = "V1.2.5B03",
      connecttype = 0, onlinetime = 86100, wifiSwitch = 1, flg = 3, ssid2g = "Velmont-3F10", enbl2g = 1,
      pwd2g = "vel3f10home", auth2g = "WPA2", ssid5g = "Velmont-3F10-5G", enbl5g = 1, pwd5g = "vel3f10home",
      auth5g = "WPA2/WPA3" }, s.ap1)
    assert.are.same({ 1, nil }, { s.ap2.flg, s.ap2.ssid5g })
    local logs = h.log_texts()
    assert.are.same({ "5 ############getVelInterConndPluginStatus Start, size: 3##########",
      "5 [0] inter_conndv3 Home access point interconnect 3.0.12 1\n" }, { logs[1], logs[2] })
    assert.are.equal('5 SameWiFiSwitch: {"CmdType":"GetSameWifi","SameWiFiSwitch":1,"Status":0,"SequenceId":"88888888"}', logs[3])
    assert.are.same({ "5 SameStatusSwitch: {", "5 GetDeviceList: {", "5 GetWifi: {", "5 GetWifi: {" },
      { logs[4]:sub(1, 21), logs[5]:sub(1, 18), logs[7]:sub(1, 12), logs[8]:sub(1, 12) })
    assert.are.equal("5 Info: Velmont|VA-1800M|" .. AP1 .. "|HV1.0|V1.2.5B03|0|86100/Velmont|VA-600|" .. AP2 ..
      "|HV2.1|V1.0.9B11|1|5230", logs[6])
  end)

  it("stops before any command when the plugin is missing or not running", function()
    local cases = {
      { function(m) table.remove(m.apps, 1) end, 2, 2 },
      { function(m) m.apps[1].state = 0 end, 0, 1 },
      { function(m) m.apps[1].state = 3 end, 3, 1 },
      { function(m) m.apps = {} end, 2, 0 },
      -- the name only has to contain the plugin's
      { function(m) m.apps[1].name = "x-inter_conndv3-y"; m.apps[1].state = 4 end, 4, 1 },
    }
    for _, c in ipairs(cases) do
      h.reset()
      h.edit_model(c[1])
      assert.are.same({ appStatus = c[2], configEnbl = 0, onoff = 0, devcnt = 0 }, v:get("interConndStatus"))
      assert.are.same({}, commands())
      assert.are.equal(c[3], #h.log_texts() - 1)
    end
    h.reset()
    h.sim.fail("ZoVelListApp", -1)
    assert.are.same({ appStatus = 2, configEnbl = 0, onoff = 0, devcnt = 0 }, v:get("interConndStatus"))
  end)

  it("reads each reply member only with its exact JSON type, each access point's Wi-Fi afresh", function()
    local cases = {
      { "GetSameWifi", '{"SameWiFiSwitch":"1"}', "configEnbl", 0 },
      { "GetSameWifi", '{"SameWiFiSwitch":1.0}', "configEnbl", 0 },
      { "GetSameWifi", '{"SameWiFiSwitch":true}', "configEnbl", 0 },
      { "GetSameWifi", '{"SameWiFiSwitch":4294967298}', "configEnbl", 2 },
      { "GetSameStatus", '{"SameStatusSwitch":-3}', "onoff", -3 },
      { "GetSameStatus", "not json", "onoff", 0 },
      { "GetSameStatus", nil, "onoff", 0 },
      { "GetDeviceList", '{"Info":7}', "devcnt", 0 },
      { "GetDeviceList", '{"Info":"a|b|c"}', "devcnt", 1 },
    }
    for _, c in ipairs(cases) do
      h.reset()
      h.sim.plugin_reply(c[1], c[2])
      assert.are.equal(c[4], v:get("interConndStatus")[c[3]], c[1] .. " " .. tostring(c[2]))
    end
    h.sim.plugin_reply("GetWifi", '{"Status":0,"wifiSwitch":"1","infos":[{"mode":"5G","ap":[{"ssid":"S","enable":1.0,'
      .. '"pwd":5,"auth":"WPA2PSK"}]},{"mode":"6g","ap":[{}]},{"mode":"2.4g","ap":[]},{"ap":[{}]}]}')
    assert.are.same({ mac = "c", vendor = "a", model = "b", wifiSwitch = 0, flg = 2, ssid5g = "S", enbl5g = 0,
      pwd5g = "", auth5g = "WPA/WPA2" }, v:get("interConndStatus").ap1)
    -- each access point's Wi-Fi values start afresh
    h.reset()
    h.sim.plugin_reply("GetDeviceList", '{"Info":"V|M|' .. AP1 .. '/V|M|0000000000AA"}')
    local s = v:get("interConndStatus")
    assert.are.same({ 1, 3 }, { s.ap1.wifiSwitch, s.ap1.flg })
    assert.are.same({ mac = "0000000000AA", vendor = "V", model = "M", wifiSwitch = 0, flg = 0 }, s.ap2)
    h.sim.plugin_reply("GetWifi", nil)
    assert.are.same({ mac = AP1, vendor = "V", model = "M", wifiSwitch = 0, flg = 0 }, v:get("interConndStatus").ap1)
  end)

  it("parses the device list entry by entry, fields by position", function()
    local cases = {
      { "", 0, {} },
      { "V|M|" .. AP1 .. "|H|S|1|60/", 1, { { "V", "M", AP1, "H", "S", 1, 60 } } },
      { "V||M|" .. AP1 .. "|H", 1, { { "V", "M", AP1, "H" } } },
      { "V|M|m|H|S|2|9|extra|more", 1, { { "V", "M", "m", "H", "S", 2, 9 } } },
      { "no separator/V|M//||/|W", 3, { { "V", "M" }, false, { "W" } } },
      { string.rep("x", 1100) .. "|y", 0, {} },
    }
    for _, c in ipairs(cases) do
      h.reset()
      h.sim.plugin_reply("GetDeviceList", h.cjson.encode { Info = c[1] })
      local s = v:get("interConndStatus")
      assert.are.equal(c[2], s.devcnt, c[1])
      for i = 1, c[2] do
        local row, want = s["ap" .. i], c[3][i]
        if want then
          assert.are.same(want, { row.vendor, row.model, row.mac, row.hdversion, row.swversion, row.connecttype, row.onlinetime })
        else
          assert.is_nil(row)
        end
      end
    end
  end)
end)

describe("interconnect writes", function()
  it("startInterConnd starts the listed plugin and returns the platform's result", function()
    h.edit_model(function(m) m.apps[1].state = 0 end)
    assert.are.equal(0, v:set("startInterConnd"))
    assert.are.same({ "5 Start inter_conndv3 plugin" }, h.log_texts())
    assert.are.same({ "inter_conndv3" }, { h.calls("ZoVelStartApp")[1].name })
    assert.are.equal(1, v:get("interConndStatus").appStatus)
    h.edit_model(function(m) table.remove(m.apps, 1) end)
    assert.are.equal(-1, v:set("startInterConnd"))
  end)

  it("syncConfig and syncOnoff set the plugin's switches, log, and always return 1", function()
    assert.are.same({ 1, 1 }, { v:set("syncConfig", { syncConfig = "0" }), v:set("syncOnoff", { syncOnoff = "-7x" }) })
    assert.are.same({ '{"CmdType":"SetSameWifi","SameWiFiSwitch":0,"SequenceId":"88888888"}',
      '{"CmdType":"SetSameStatus","SameStatusSwitch":-7,"SequenceId":"88888888"}' }, commands())
    assert.are.same({ "5 Set SameWiFiSwitch: 0",
      '5 Set SameWiFiSwitch: {"CmdType":"SetSameWifi","Status":0,"SequenceId":"88888888"}',
      "5 Set SameStatusSwitch: -7",
      '5 Set SameStatusSwitch: {"CmdType":"SetSameStatus","Status":0,"SequenceId":"88888888"}' },
      h.log_texts())
    local s = v:get("interConndStatus")
    assert.are.same({ 0, -7 }, { s.configEnbl, s.onoff })
    h.sim.clear_logs()
    h.sim.fail("ZoVelPostMsg", -1)
    assert.are.equal(1, v:set("syncOnoff", { syncOnoff = "0" }))
    assert.are.same({ "5 Set SameStatusSwitch: 0" }, h.log_texts())
  end)

  it("configAP configures the bands modeflg selects, and stops on a failed 2.4 GHz half", function()
    local cases = {
      { { modeflg = "1", ssid5g = false, pwd5g = false, enbl5g = false }, nil, 0, { "2.4g" } },
      { { modeflg = "2", ssid2g = false, pwd2g = false, enbl2g = false }, nil, 0, { "5g" } },
      { { modeflg = "3" }, nil, 0, { "2.4g", "5g" } },
      { { modeflg = "0" }, nil, 0, {} },
      { { modeflg = "4" }, nil, 0, {} },
      { { modeflg = "3" }, '{"Status":5}', 5, { "2.4g" } },
      { { modeflg = "3" }, "busy", 0, { "2.4g", "5g" } },
      { { modeflg = "3" }, nil, 1, { "2.4g" }, true },
      -- the plugin's own refusals: an access point it does not know, a band it lacks
      { { modeflg = "2", mac = "unknown" }, nil, 1, { "5g" } },
      { { modeflg = "2", mac = AP2 }, nil, 2, { "5g" } },
    }
    for _, c in ipairs(cases) do
      h.reset()
      if c[2] then h.sim.plugin_reply("SetWifiConfig", c[2]) end
      if c[5] then h.sim.plugin_reply("SetWifiConfig", nil) end
      assert.are.equal(c[3], v:set("configAP", ap(c[1])))
      local modes = {}
      for _, cmd in ipairs(commands()) do modes[#modes + 1] = cmd:match('"mode":"([^"]*)"') end
      assert.are.same(c[4], modes)
      assert.are.equal("5 WiFi mode: " .. c[1].modeflg, h.log_texts()[1])
    end
    h.reset()
    assert.are.equal(0, v:set("configAP", ap()))
    assert.are.same({ "5 WiFi mode: 3", "5 Set SetWifiConfig 2.4G: " .. set_wifi("2.4g", "Attic", "k24", 1),
      '5 {"CmdType":"SetWifiConfig","Status":0,"SequenceId":"88888888"}',
      "5 Set SetWifiConfig 5G: " .. set_wifi("5g", "Attic-5G", "k5", 0),
      '5 {"CmdType":"SetWifiConfig","Status":0,"SequenceId":"88888888"}' }, h.log_texts())
    local s = v:get("interConndStatus").ap1
    assert.are.same({ "Attic", "k24", 1, "Attic-5G", "k5", 0 }, { s.ssid2g, s.pwd2g, s.enbl2g, s.ssid5g, s.pwd5g, s.enbl5g })
    assert.are.equal("Velmont-3F10", v:get("interConndStatus").ap2.ssid2g)
  end)
end)
