-- The status pages: "hostsInfo", "allInfo", "gwStatus", "gwInfo", "gwIPs", "devType".
local h = require "helpers"
local v = h.velconfig

local function host(id, extra)
  local t = { id = id, mac = string.format("%012X", id), name = "n" .. id, access = 2, type = "pc",
              ip = "10.0.0." .. id, ipv6 = "fd::" .. id, connection = 0, brand = "b" .. id, model = "m" .. id,
              system = "s" .. id, online = true, online_time = 100 + id }
  for k, x in pairs(extra or {}) do t[k] = x end
  return t
end

local function rows(r, prefix, field)
  local out = {}
  for i = 1, 20 do if r[prefix .. i] then out[i] = r[prefix .. i][field] end end
  return out
end

local function keys(t)
  local out = {}
  for k in pairs(t) do out[#out + 1] = k end
  table.sort(out)
  return out
end

local MIXED = { host(1, { connection = 0 }), host(2, { connection = 1 }), host(3, { connection = 2 }),
                host(4, { connection = 3 }), host(5, { access = 0 }), host(6, { online = false }),
                host(7, { connection = 1, access = 1 }) }

describe("hostsInfo", function()
  before_each(function()
    h.reset()
    h.edit_model(function(m) m.hosts = MIXED end)
    os.remove(h.file("/tmp/curhostip"))
  end)

  local filters = { { "0", { "n1", "n3" } }, { "1", { "n2", "n7" } }, { "7", { "n1", "n2", "n3", "n4", "n7" } },
                    { "abc", { "n1", "n3" } }, { nil, { "n1", "n3" } } }
  for _, f in ipairs(filters) do
    it("filter " .. tostring(f[1]) .. " lists " .. table.concat(f[2], ","), function()
      local r = f[1] and v:get("hostsInfo", f[1]) or v:get("hostsInfo")
      local names = {}
      for i, ip in ipairs(rows(r, "dev", "ip")) do names[i] = "n" .. ip:match("%d+$") end
      assert.are.same(f[2], names)
      assert.are.equal(#f[2], r.count)
    end)
  end

  it("fills a row from the record and marks restricted devices", function()
    local r = v:get("hostsInfo", "1")
    assert.are.same({ ip = "10.0.0.7", ipv6 = "fd::7", type = "pc", system = "s7", mac = "000000000007",
                      upSpeed = 0, downSpeed = 0, restrict = true, black = false }, r.dev2)
    assert.is_false(r.dev1.restrict)
  end)

  it("reports the web client's address without its line feed", function()
    h.write_file("/tmp/curhostip", "192.168.1.5\nsecond\n")
    assert.are.equal("192.168.1.5", v:get("hostsInfo", "0").curip)
    h.write_file("/tmp/curhostip", "")
    assert.are.equal("", v:get("hostsInfo", "0").curip)
  end)

  it("with nothing passing the filter gives count 0, no curip and leaves the rate file alone", function()
    h.edit_model(function(m) m.hosts = { host(1, { connection = 1 }) } end)
    h.write_file("/tmp/curhostip", "192.168.1.5\n")
    local kept = string.format("%23s 1 2 %d\n", "000000000001", h.sim.now() - 5)
    h.write_file("/tmp/lanhostsrate", kept)
    assert.are.same({ curip = "", count = 0 }, v:get("hostsInfo", "0"))
    assert.are.equal(kept, h.read_file("/tmp/lanhostsrate"))
  end)

  it("gives only curip and count when the platform fails", function()
    h.sim.fail("ZoVelGetOnlineDeviceListExtWithIPv6", -1)
    assert.are.same({ curip = "", count = 0 }, v:get("hostsInfo", "7"))
  end)
end)

describe("allInfo devices", function()
  before_each(function() h.reset() end)

  it("splits wired and wireless rows, skips other connection types and sums speeds", function()
    h.edit_model(function(m) m.hosts = MIXED; m.hosts[1].up_rate = 800; m.hosts[3].down_rate = 80 end)
    v:get("allInfo")
    h.sim.advance_clock(10)
    local r = v:get("allInfo")
    assert.are.same({ "n1", "n3" }, rows(r, "pc", "devName"))
    assert.are.same({ "n2", "n7" }, rows(r, "wifi", "devName"))
    assert.are.same({ 2, 2, 800, 80, 0, 0 }, { r.wcount, r.wlcount, r.tWUp, r.tWDown, r.tWlUp, r.tWlDown })
    assert.are.same({ type = "pc", brand = "b1", model = "m1", devName = "n1", ip = "10.0.0.1",
                      upSpeed = 800, downSpeed = 0, onlineTime = 111 }, r.pc1)
  end)

  it("keeps known types in their own letter case and shows others as pc", function()
    local types = { "PHONE", "tablet", "", "iTv", "Mobile", "pc" }
    h.edit_model(function(m)
      m.hosts = {}
      for i, t in ipairs(types) do m.hosts[i] = host(i, { type = t }) end
    end)
    assert.are.same({ "PHONE", "pc", "pc", "iTv", "Mobile", "pc" }, rows(v:get("allInfo"), "pc", "type"))
  end)

  it("without wireless devices has no wireless totals; a failed list gives only the counts", function()
    h.edit_model(function(m) m.hosts = { host(1) } end)
    local r = v:get("allInfo")
    assert.is_nil(r.tWlUp); assert.is_nil(r.tWlDown); assert.are.equal(0, r.wlcount)
    h.sim.fail("ZoVelGetOnlineDeviceList", -1)
    r = v:get("allInfo")
    assert.are.same({ 0, 0 }, { r.wcount, r.wlcount })
    assert.is_nil(r.tWUp)
  end)
end)

describe("service flags", function()
  before_each(function() h.reset() end)

  -- dev_type, iptv.enable, loid status, services, itv, voip, LOID checked
  local cases = {
    { "13", 1, 200, "VOIP", true, false, false },
    { "13", 0, 200, "IPTV,VOIP", false, false, false },
    { "1", 0, 200, "IPTV,VOIP", true, true, true },
    { "1", 0, 203, "VOIP", false, true, true },
    { "1", 0, 200, "", false, false, true },
    { "1", 0, 201, "IPTV,VOIP", false, false, true },
    { "1", 0, 200, "iptv,voip", false, false, true },
    { "", 1, 200, h.cjson.null, false, false, true },
    { string.rep(" ", 40) .. "13", 1, 200, "VOIP", true, false, false },
  }
  for _, c in ipairs(cases) do
    for _, key in ipairs({ "allInfo", "gwStatus" }) do
      it(string.format("%s: type %q, IPTV %d, status %d, %q", key, c[1], c[2], c[3], tostring(c[4])), function()
        h.edit_model(function(m)
          m.device.dev_type = c[1]; m.iptv.enable = c[2]; m.loid.status = c[3]; m.loid.services = c[4]
        end)
        local r = v:get(key)
        assert.are.same({ c[5], c[6] }, { r.itv, r.voip })
        assert.are.equal(c[7] and 1 or 0, #h.calls("ZoVelSysCmdCheckLOID"))
        assert.are.equal(c[7] and 0 or 1, #h.calls("ZoVelGetSubIPTVInfo"))
      end)
    end
  end

  it("are both false when the LOID check fails", function()
    h.sim.fail("ZoVelSysCmdCheckLOID", -1)
    local r = v:get("allInfo")
    assert.are.same({ false, false }, { r.itv, r.voip })
  end)
end)

local USB = {
  { id = 1, class = 8, name = "Disk A", total_size = 1000, used_size = 999, label = "" },
  { id = 2, class = 9, name = "Hub" },
  { id = 3, class = 8, name = "Disk B", total_size = 0, used_size = 5, label = "Backup" },
  { id = 4, class = 3, name = "Printer", label = "" },
  { id = 12, class = 8, name = "Disk C", total_size = 2 ^ 40, used_size = 2 ^ 39, label = "" },
}

describe("storage rows", function()
  before_each(function()
    h.reset()
    h.edit_model(function(m) m.usb = USB end)
  end)

  it("allInfo numbers mass-storage devices and names unlabelled ones USB_disc1, 2", function()
    local r = v:get("allInfo")
    assert.are.same({ "USB_disc1", "Backup", "USB_disc2" }, rows(r, "storage", "name"))
    assert.are.same({ maxSize = 2 ^ 40, usedSize = 2 ^ 39, name = "USB_disc2", usbdev = 12 }, r.storage3)
    assert.are.equal(3, r.scount)
  end)

  it("gwStatus shows device names and whole percent used, 0 for an empty disk", function()
    local r = v:get("gwStatus")
    assert.are.same({ { name = "Disk A", usedPer = 99 }, { name = "Disk B", usedPer = 0 },
                      { name = "Disk C", usedPer = 50 } }, { r.storage1, r.storage2, r.storage3 })
    assert.are.equal(3, r.scount)
  end)

  it("gives scount 0 without devices or when the list fails", function()
    h.sim.fail("ZoVel_GetUSBDeviceObjs", -1)
    assert.are.same({ 0, 0 }, { v:get("allInfo").scount, v:get("gwStatus").scount })
    assert.is_nil(v:get("gwStatus").storage1)
  end)
end)

describe("WAN state", function()
  before_each(function() h.reset() end)

  local cases = { { "Disconnected", "Connected", "CONNECTED" }, { "Connecting", "Connecting", "Connecting" },
                  { "CONNECTED", "", "CONNECTED" }, { "", "", "" } }
  for _, c in ipairs(cases) do
    it(string.format("IPv4 %q and IPv6 %q show %q", c[1], c[2], c[3]), function()
      h.edit_model(function(m) m.wan.ipv4_status = c[1]; m.wan.ipv6_status = c[2] end)
      assert.are.equal(c[3], v:get("allInfo").wanConnect)
    end)
  end

  it("reports the WAN up time, and empty figures when the network record fails", function()
    h.sim.advance_clock(5)
    assert.are.equal(86405, v:get("allInfo").wanUpTime)
    h.sim.fail("ZoVelGetNetworkInfo", -1)
    local r = v:get("allInfo")
    assert.are.same({ "", 0 }, { r.wanConnect, r.wanUpTime })
  end)
end)

describe("gwStatus figures", function()
  before_each(function() h.reset() end)

  it("counts snapshot devices, unknown connection types as wireless", function()
    h.edit_model(function(m)
      m.hosts = { host(1), host(2, { connection = 2 }), host(3, { connection = 1 }), host(4, { connection = 5 }),
                  host(5, { online = false }) }
    end)
    h.sim.advance_clock(7)
    local r = v:get("gwStatus")
    assert.are.same({ 2, 2, 86407, 93791, 12 }, { r.wcount, r.wlcount, r.upTime, r.sysTime, r.cpuUsed })
  end)

  it("gives 0 figures when the property and the records cannot be read", function()
    h.sim.fail("ZoVelDBusGetProperty", -1)
    h.sim.fail("ZoVelGetDeviceInfo", -1)
    h.sim.fail("ZoVelGetOnlineDevicesSnapShot", -1)
    local r = v:get("gwStatus")
    assert.are.same({ 0, 0, 0, 0, 0 }, { r.upTime, r.sysTime, r.cpuUsed, r.wcount, r.wlcount })
  end)
end)

describe("gwInfo", function()
  before_each(function() h.reset() end)

  local BASE = { "DevType", "DeviceModel", "LANIP", "LANIPv6", "MAC", "MarkType", "NASN", "ProductCls",
                 "ProductSN", "SWVer", "Vendor", "WANIP", "WANIPv6" }

  it("reports identity, addresses and access marks, without Wi-Fi keys unless asked with all", function()
    for _, arg in ipairs({ "ALL", "x" }) do assert.are.same(BASE, keys(v:get("gwInfo", arg))) end
    local r = v:get("gwInfo")
    assert.are.same(BASE, keys(r))
    assert.are.same({ "HGU-4GE2WIFI-1POTS-1USB", "VLMG8200AX0001234", "A4C1E2003F10", "fe80::1/64", "100.72.18.45",
                      "2408:8207:1850:3a1::1/64", 1, "VG-8200AX", "NA20240817003F10" },
                    { r.DevType, r.ProductSN, r.MAC, r.LANIPv6, r.WANIP, r.WANIPv6, r.MarkType, r.DeviceModel, r.NASN })
  end)

  -- has_wifi, dual_band, 5G-1 enable, expected ssid2g, ssid5g, wifiOnOff
  local wifi = {
    { true, true, 1, "Velmont-3F10", "Velmont-3F10-5G", true },
    { true, false, 1, "Velmont-3F10", "", true },
    { true, true, 0, "Velmont-3F10", "", true },
    { false, true, 1, nil, nil, nil },
  }
  for _, c in ipairs(wifi) do
    it(string.format("all: Wi-Fi %s, dual band %s, 5G-1 enable %d", tostring(c[1]), tostring(c[2]), c[3]), function()
      h.edit_model(function(m) m.device.has_wifi = c[1]; m.wifi.dual_band = c[2]; m.wlan[3].enable = c[3] end)
      local r = v:get("gwInfo", "all")
      assert.are.same({ c[4], c[5], c[6], "0755ab1234567@isp" }, { r.ssid2g, r.ssid5g, r.wifiOnOff, r.wanAcnt })
    end)
  end

  it("all: a later enabled 2.4G-1 wins; nothing enabled turns wifiOnOff off", function()
    h.edit_model(function(m) m.wlan[2].band_label = "2.4G-1"; m.wlan[3].enable = 0 end)
    assert.are.equal("Velmont-Guest", v:get("gwInfo", "all").ssid2g)
    h.edit_model(function(m) for _, w in ipairs(m.wlan) do w.enable = 0 end end)
    assert.is_false(v:get("gwInfo", "all").wifiOnOff)
  end)

  it("shows WAN addresses only when connected and not empty", function()
    h.edit_model(function(m) m.wan.ipv4 = ""; m.wan.ipv6_status = "Disconnected" end)
    local r = v:get("gwInfo")
    assert.are.same({ "0.0.0.0", "::" }, { r.WANIP, r.WANIPv6 })
  end)

  it("keeps cleared figures when the platform fails", function()
    h.sim.fail("ZoVelDBusGetProperty", -1)
    h.sim.fail("ZoVelDBusGetAllProperty", -1)
    h.sim.fail("ZoVelSupportWiFi", -1)
    h.sim.fail("ZoVelGetPPPoEConfig", -1)
    local r = v:get("gwInfo", "all")
    assert.are.same({ "", 0, "", "", "", "Velmont-3F10", "" },
                    { r.DevType, r.MarkType, r.DeviceModel, r.NASN, r.ssid5g, r.ssid2g, r.wanAcnt })
  end)
end)

describe("gwIPs and devType", function()
  before_each(function() h.reset() end)

  local ips = { { "fd00::1/64", "fd00::1" }, { "", "fe80::1" }, { "fd00::9", "fd00::9" } }
  for _, c in ipairs(ips) do
    it("LAN IPv6 " .. c[1] .. " shows as " .. c[2], function()
      h.edit_model(function(m) m.lan.ipv6 = c[1] end)
      assert.are.equal(c[2], v:get("gwIPs").LAN6IP)
    end)
  end

  it("cuts the WAN IPv6 at 62 characters and shows v4 addresses as stored even when down", function()
    h.edit_model(function(m) m.wan.ipv6 = string.rep("a", 70) .. "/64"; m.wan.ipv4_status = "Disconnected" end)
    assert.are.same({ LANIP = "192.168.1.1", WANIP = "100.72.18.45", LAN6IP = "fe80::1", WAN6IP = string.rep("a", 62) },
                    v:get("gwIPs"))
    h.edit_model(function(m) m.wan.ipv6 = "" end)
    assert.are.equal("", v:get("gwIPs").WAN6IP)
  end)

  local types = { { "13", 13 }, { "", 0 }, { "abc", 0 }, { "  42x", 42 },
    { string.rep(" ", 40) .. "13", 13 }, { string.rep("0", 40) .. "13", 13 },
    -- beyond 32 bits, as glibc's atoi: a long's value, saturated, cut to int
    { "4294967309", 13 }, { "18446744073709551617", -1 }, { "-9223372036854775809", 0 } }
  for _, c in ipairs(types) do
    it("devType of " .. string.format("%q", c[1]) .. " is " .. c[2], function()
      h.edit_model(function(m) m.device.dev_type = c[1] end)
      assert.are.equal(c[2], v:get("devType"))
    end)
  end

  it("devType is 0 when the device record cannot be read", function()
    h.sim.fail("ZoVelGetDeviceInfo", -1)
    assert.are.equal(0, v:get("devType"))
  end)
end)
