-- Write fields whose text is not what it seems: a NUL byte inside, or bytes that are
-- not UTF-8. Such a write is refused whole before anything is written; a clean text
-- longer than its field is cut without splitting a character.
local h = require "helpers"
local v = h.velconfig

-- For every write key that reads fields: an input the platform accepts, the fields to
-- spoil, and the reads the handler makes before it reaches them.
local WIFI_BASIC = { wifi_dualBand = "1", wifi_2G_enbl = "1", wifi_2G_ssid = "Home", wifi_2G_auth = "WPA2",
  wifi_2G_passwd = "secret123", wifi_2G_strength = "2", wifi_5G_enbl = "1", wifi_5G_ssid = "Home-5G",
  wifi_5G_auth = "WPA3", wifi_5G_passwd = "secret123", wifi_5G_strength = "4" }
local CASES = {
  { "lan", { dhcpEnbl = "1", oldLanIp = "192.168.1.1", lanIp = "192.168.1.7", poolStart = "192.168.1.2",
    poolEnd = "192.168.1.200", subnetMask = "255.255.255.0" },
    { "dhcpEnbl", "oldLanIp", "lanIp", "poolStart", "poolEnd", "subnetMask" }, {} },
  { "ddns", { add = "2", enable = "0", provider = "dyndns", domain = "velhome.dyndns.org", hostname = "gw2",
    username = "me", passwd = "pw" }, { "add", "enable", "provider", "domain", "hostname", "username", "passwd" }, {} },
  { "iptv", { enable = "1", vlanOnOff = "1", vlanid = "46", bindlanport = "LAN1" },
    { "enable", "vlanOnOff", "vlanid", "bindlanport" }, { "ZoVelGetSubIPTVInfo" } },
  { "pmSetSingle", { op = "add", desp = "SSH", client = "192.168.1.20", protocol = "TCP", exPort = "2222",
    inPort = "22" }, { "op", "desp", "client", "protocol", "exPort", "inPort" }, {} },
  { "pmSetSingle", { op = "del", desp = "NAS-Web" }, { "op", "desp" }, {} },
  { "pmSetAll", { op = "del" }, { "op" }, { "ZoVelGetPortMappingObjs" } },
  { "hostSettings", { type = "black", mac = "D89EF3A1B201" }, { "type", "mac" }, {} },
  { "hostSettings", { type = "restrict", mac = "D89EF3A1B201", onOff = "1" }, { "onOff" },
    { "ZoVelGetLANHostByMAC" } },
  { "rmBlackHost", { mac = "B827EB5A9C07" }, { "mac" }, {} },
  { "syncConfig", { syncConfig = "0" }, { "syncConfig" }, {} },
  { "syncOnoff", { syncOnoff = "1" }, { "syncOnoff" }, {} },
  -- both bands are judged before the first is sent
  { "configAP", { mac = "A4C1E2104B21", modeflg = "3", ssid2g = "Hall", pwd2g = "k1", enbl2g = "1", ssid5g = "Hall-5G",
    pwd5g = "k2", enbl5g = "0" }, { "mac", "modeflg", "ssid2g", "pwd2g", "enbl2g", "ssid5g", "pwd5g", "enbl5g" }, {} },
  { "account", { old = "user1234", new = "n3w-pass" }, { "old", "new" }, {} },
  { "easymesh_config", { easymeshEnbl = "1", mesh_2G_enbl = "1", mesh_2G_ssid = "Mesh-24", mesh_2G_auth = "WPA2-PSK",
    mesh_2G_passwd = "key-24", mesh_2G_rssi = "-65", mesh_5G_enbl = "0", mesh_5G_ssid = "Mesh-5", mesh_5G_auth = "SAE",
    mesh_5G_passwd = "key-5", mesh_5G_rssi = "-60" },
    { "easymeshEnbl", "mesh_2G_enbl", "mesh_2G_ssid", "mesh_2G_auth", "mesh_2G_passwd", "mesh_2G_rssi",
      "mesh_5G_enbl", "mesh_5G_ssid", "mesh_5G_auth", "mesh_5G_passwd", "mesh_5G_rssi" }, {} },
  { "easymesh_config", { easymeshEnbl = "0" }, { "easymeshEnbl" }, {} },
  -- the hold-off check before the fields runs only uci (no mark here: nothing to wait for)
  { "setloid", { loid = "NEWLOID01", loidPsd = "pw01", hasWiFi = "0" }, { "loid", "loidPsd", "hasWiFi" }, {} },
  { "wifiBasic", WIFI_BASIC, { "wifi_dualBand" }, {} },
  { "wifiBasic", WIFI_BASIC, { "wifi_2G_enbl", "wifi_2G_ssid", "wifi_2G_auth", "wifi_2G_passwd", "wifi_2G_strength",
    "wifi_5G_enbl", "wifi_5G_ssid", "wifi_5G_auth", "wifi_5G_passwd", "wifi_5G_strength" },
    { "ZoVelGetWLANDeviceObjs" } },
  { "wifiAdv", { wifi_timing = "1", start_time = "1:00", end_time = "2:00" }, { "wifi_timing", "start_time", "end_time" },
    { "ZoVelDBusGetProperty", "ZoVelGetWLANDeviceObjs", "ZoVelGetWiFiTimer" } },
}
-- "restore", "fwrestore" and "reboot" read no input at all.

-- Ways to spoil a clean text: a NUL with a tail, a byte that is not UTF-8, and one that
-- lies beyond the field's capacity, after a part that would fit.
local SPOILERS = {
  { "a NUL byte", function(text) return text .. "\0junk" end },
  { "a byte that is not UTF-8", function(text) return text .. "\255" end },
  { "a bad byte past the capacity", function(text) return text .. ("a"):rep(80) .. "\192" end },
}

local function copy_with(input, name, text)
  local t = {}
  for k, val in pairs(input) do t[k] = val end
  t[name] = text
  return t
end

local function expected_ops(reads)
  local ops = { "ZoVelLogOpen" }
  for _, op in ipairs(reads) do ops[#ops + 1] = op end
  ops[#ops + 1] = "ZoVelLogClose"
  return ops
end

describe("a write field that is not a clean text", function()
  before_each(function() h.reset() end)

  for _, c in ipairs(CASES) do
    local key, input, fields, reads = c[1], c[2], c[3], c[4]
    it("makes " .. key .. " " .. (input.op or input.type or "") .. " answer 1 and write nothing", function()
      local before = h.model()
      for _, field in ipairs(fields) do
        for _, spoiler in ipairs(SPOILERS) do
          h.sim.clear_journal()
          local what = key .. " " .. field .. " with " .. spoiler[1]
          assert.are.equal(1, v:set(key, copy_with(input, field, spoiler[2](input[field]))), what)
          assert.are.same(expected_ops(reads), h.ops(), what)
        end
      end
      assert.are.same(before, h.model())
      -- the same input, clean, does write: the refusal above came from the text alone
      v:set(key, input)
      assert.are_not.same(before, h.model())
    end)
  end
end)

describe("a clean text longer than its field", function()
  before_each(function() h.reset() end)

  it("is cut at the capacity, backing off to the last whole character", function()
    local a62, a61 = ("a"):rep(62), ("a"):rep(61)
    -- hostname holds 63 bytes: "é" is two bytes, "中" three
    for _, c in ipairs {
      { a62 .. "é", a62 }, { a61 .. "é", a61 .. "é" }, { a61 .. "中", a61 }, { a61 .. "éx", a61 .. "é" },
    } do
      h.sim.clear_journal()
      assert.are.equal(0, v:set("ddns", { add = "1", enable = "1", provider = "p", domain = "d.example.org",
        hostname = c[1], username = "u", passwd = "p" }))
      assert.are.equal(c[2], h.calls("ZoVelAddDDNSServerInstance")[1].hostname)
    end
    assert.are.equal(0, v:set("pmSetSingle", { op = "add", desp = ("d"):rep(30) .. "中", client = "192.168.1.9",
      protocol = "TCP", exPort = "1", inPort = "1" }))
    assert.are.equal(("d"):rep(30), h.calls("ZoVelAddPortMapping")[1].description)
  end)
end)
