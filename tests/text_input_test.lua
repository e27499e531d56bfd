-- Write fields that are not what the write needs: a NUL byte inside, bytes that are
-- not UTF-8, a value that is no text or none at all, a secret that does not fit. Each
-- is judged before anything is written: the write answers its failure result (or,
-- for a field that is no text, raises) and the journal holds no write. A clean
-- visible name longer than its field is cut without splitting a character.
local h = require "helpers"
local v = h.velconfig

-- For every write key that reads fields: an input the platform accepts, the fields to
-- spoil (all of them read for that input). Every field is judged before the first
-- platform call, so a refused write leaves only the log's opening and closing.
local WIFI_BASIC = { wifi_dualBand = "1", wifi_2G_enbl = "1", wifi_2G_ssid = "Home", wifi_2G_auth = "WPA2",
  wifi_2G_passwd = "secret123", wifi_2G_strength = "2", wifi_5G_enbl = "1", wifi_5G_ssid = "Home-5G",
  wifi_5G_auth = "WPA3", wifi_5G_passwd = "secret123", wifi_5G_strength = "4" }
local DDNS = { add = "2", enable = "0", provider = "dyndns", domain = "velhome.dyndns.org", hostname = "gw2",
  username = "me", passwd = "pw" }
local AP = { mac = "A4C1E2104B21", modeflg = "3", ssid2g = "Hall", pwd2g = "k1", enbl2g = "1", ssid5g = "Hall-5G",
  pwd5g = "k2", enbl5g = "0" }
local ACCOUNT = { old = "user1234", new = "n3w-pass" }
local MESH = { easymeshEnbl = "1", mesh_2G_enbl = "1", mesh_2G_ssid = "Mesh-24", mesh_2G_auth = "WPA2-PSK",
  mesh_2G_passwd = "key-24", mesh_2G_rssi = "-65", mesh_5G_enbl = "0", mesh_5G_ssid = "Mesh-5", mesh_5G_auth = "SAE",
  mesh_5G_passwd = "key-5", mesh_5G_rssi = "-60" }
local LOID_WIFI = { loid = "NEWLOID01", loidPsd = "pw01", hasWiFi = "1", wifiSsid = "Home", wifiPsd = "pw" }
local CASES = {
  { "lan", { dhcpEnbl = "1", oldLanIp = "192.168.1.1", lanIp = "192.168.1.7", poolStart = "192.168.1.2",
    poolEnd = "192.168.1.200", subnetMask = "255.255.255.0" },
    { "dhcpEnbl", "oldLanIp", "lanIp", "poolStart", "poolEnd", "subnetMask" } },
  { "ddns", DDNS, { "add", "enable", "provider", "domain", "hostname", "username", "passwd" } },
  { "iptv", { enable = "1", vlanOnOff = "1", vlanid = "46", bindlanport = "LAN1" },
    { "enable", "vlanOnOff", "vlanid", "bindlanport" } },
  { "pmSetSingle", { op = "add", desp = "SSH", client = "192.168.1.20", protocol = "TCP", exPort = "2222",
    inPort = "22" }, { "op", "desp", "client", "protocol", "exPort", "inPort" } },
  { "pmSetSingle", { op = "del", desp = "NAS-Web" }, { "op", "desp" } },
  { "pmSetAll", { op = "del" }, { "op" } },
  { "hostSettings", { type = "black", mac = "D89EF3A1B201" }, { "type", "mac" } },
  { "hostSettings", { type = "restrict", mac = "D89EF3A1B201", onOff = "1" }, { "onOff" } },
  { "rmBlackHost", { mac = "B827EB5A9C07" }, { "mac" } },
  { "syncConfig", { syncConfig = "0" }, { "syncConfig" } },
  { "syncOnoff", { syncOnoff = "1" }, { "syncOnoff" } },
  -- both bands are judged before the first is sent
  { "configAP", AP, { "mac", "modeflg", "ssid2g", "pwd2g", "enbl2g", "ssid5g", "pwd5g", "enbl5g" } },
  { "account", ACCOUNT, { "old", "new" } },
  { "easymesh_config", MESH,
    { "easymeshEnbl", "mesh_2G_enbl", "mesh_2G_ssid", "mesh_2G_auth", "mesh_2G_passwd", "mesh_2G_rssi",
      "mesh_5G_enbl", "mesh_5G_ssid", "mesh_5G_auth", "mesh_5G_passwd", "mesh_5G_rssi" } },
  { "easymesh_config", { easymeshEnbl = "0" }, { "easymeshEnbl" } },
  { "setloid", { loid = "NEWLOID01", loidPsd = "pw01", hasWiFi = "0" }, { "loid", "loidPsd", "hasWiFi" } },
  -- the Wi-Fi fields are judged before the LOID is stored
  { "setloid", LOID_WIFI, { "wifiSsid", "wifiPsd" } },
  { "wifiBasic", WIFI_BASIC, { "wifi_dualBand" } },
  { "wifiBasic", WIFI_BASIC, { "wifi_2G_enbl", "wifi_2G_ssid", "wifi_2G_auth", "wifi_2G_passwd", "wifi_2G_strength",
    "wifi_5G_enbl", "wifi_5G_ssid", "wifi_5G_auth", "wifi_5G_passwd", "wifi_5G_strength" } },
  { "usbModifyLabel", { instno = "2", newLabel = "Photos" }, { "instno", "newLabel" } },
  { "wifiAdv", { wifi_timing = "1", start_time = "1:00", end_time = "2:00" }, { "wifi_timing", "start_time", "end_time" } },
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

local UNTOUCHED = { "ZoVelLogOpen", "ZoVelLogClose" }

-- Values that are no text, by type name: each raises the field reader's error, as
-- the Lua library words it, before any write.
local NOT_TEXT = { { "table", {} }, { "boolean", true }, { "nil", nil } }

describe("a write field that is not a clean text, or no text at all", function()
  before_each(function() h.reset() end)

  for _, c in ipairs(CASES) do
    local key, input, fields = c[1], c[2], c[3]
    local name = key .. " " .. (input.op or input.type or input.hasWiFi or "")
    it("makes " .. name .. " answer 1, or raise, and write nothing", function()
      local before = h.model()
      for _, field in ipairs(fields) do
        for _, spoiler in ipairs(SPOILERS) do
          h.sim.clear_journal()
          local what = key .. " " .. field .. " with " .. spoiler[1]
          assert.are.equal(1, v:set(key, copy_with(input, field, spoiler[2](input[field]))), what)
          assert.are.same(UNTOUCHED, h.ops(), what)
        end
        for _, bad in ipairs(NOT_TEXT) do
          h.sim.clear_journal()
          local what = key .. " " .. field .. " as " .. bad[1]
          assert.matches(h.field_error(bad[1], field), h.set_error(key, copy_with(input, field, bad[2])), what)
          assert.are.same(UNTOUCHED, h.ops(), what)
        end
      end
      assert.are.same(before, h.model())
      -- the same input, clean, does write: the refusals above came from the field alone
      v:set(key, input)
      assert.are_not.same(before, h.model())
    end)
  end
end)

-- Secrets, with the capacity of their fields and the key's failure result: one byte
-- too long is refused whole (never cut), while one that just fits goes to the platform.
local SECRETS = {
  { "account", ACCOUNT, "new", 31, 3 },
  { "account", ACCOUNT, "old", 255, 3 },
  { "wifiBasic", WIFI_BASIC, "wifi_2G_passwd", 63, 1 },
  { "wifiBasic", WIFI_BASIC, "wifi_5G_passwd", 63, 1 },
  { "easymesh_config", MESH, "mesh_2G_passwd", 79, 1 },
  { "easymesh_config", MESH, "mesh_5G_passwd", 79, 1 },
  { "setloid", LOID_WIFI, "loid", 127, 1 },
  { "setloid", LOID_WIFI, "loidPsd", 127, 1 },
  { "setloid", LOID_WIFI, "wifiPsd", 63, 1 },
  { "configAP", AP, "pwd2g", 63, 1 },
  { "configAP", AP, "pwd5g", 63, 1 },
  { "ddns", DDNS, "passwd", 31, 1 },
}

describe("a secret longer than its field", function()
  before_each(function() h.reset() end)

  for _, c in ipairs(SECRETS) do
    local key, input, field, capacity, failure = c[1], c[2], c[3], c[4], c[5]
    it("makes " .. key .. " answer " .. failure .. " for " .. field .. " and send nothing", function()
      local before = h.model()
      -- the last character straddling the capacity must not be cut to what fits
      for _, long in ipairs { ("k"):rep(capacity + 1), ("k"):rep(capacity - 1) .. "é" } do
        h.sim.clear_journal()
        assert.are.equal(failure, v:set(key, copy_with(input, field, long)), field .. " of " .. #long)
        assert.are.same(UNTOUCHED, h.ops(), field .. " of " .. #long)
      end
      assert.are.same(before, h.model())
      h.sim.clear_journal()
      v:set(key, copy_with(input, field, ("k"):rep(capacity)))
      assert.are_not.same(UNTOUCHED, h.ops())
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
  end)
end)
