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

before_each(function() h.reset() end)

describe("hostsInfo", function()
  before_each(function()
    h.edit_model(function(m) m.hosts = MIXED end)
    os.remove(h.file("/tmp/curhostip"))
  end)

  it("filter 0 (or no number) lists wired hosts, 1 wireless, 7 all, each counted", function()
    for _, f in ipairs({ { "0", { "n1", "n3" } }, { "1", { "n2", "n7" } }, { "7", { "n1", "n2", "n3", "n4", "n7" } },
                         { "abc", { "n1", "n3" } }, { nil, { "n1", "n3" } } }) do
      local r = f[1] and v:get("hostsInfo", f[1]) or v:get("hostsInfo")
      local names = {}
      for i, ip in ipairs(rows(r, "dev", "ip")) do names[i] = "n" .. ip:match("%d+$") end
      assert.are.same({ f[2], #f[2] }, { names, r.count }, tostring(f[1]))
    end
  end)

  it("fills a row from the record, marks restricted devices and gives the web client's address", function()
    h.write_file("/tmp/curhostip", "192.168.1.5\nsecond\n")
    local r = v:get("hostsInfo", "1")
    assert.are.same({ ip = "10.0.0.7", ipv6 = "fd::7", type = "pc", system = "s7", mac = "000000000007",
                      upSpeed = 0, downSpeed = 0, restrict = true, black = false }, r.dev2)
    assert.are.same({ false, "192.168.1.5" }, { r.dev1.restrict, r.curip })
    h.write_file("/tmp/curhostip", "")
    assert.are.equal("", v:get("hostsInfo", "0").curip)
    -- a first line longer than the 47 characters read
    h.write_file("/tmp/curhostip", ("fe80::1"):rep(10))
    assert.are.equal(("fe80::1"):rep(10):sub(1, 47), v:get("hostsInfo", "0").curip)
    -- a folder in its place opens but never reads: no address, and no retrying
    os.remove(h.file("/tmp/curhostip"))
    assert(os.execute("mkdir " .. h.quote(h.file("/tmp/curhostip"))) == 0)
    assert.are.equal("", v:get("hostsInfo", "0").curip)
  end)

  it("with nothing passing the filter, or a failed list, gives count 0, no curip, and leaves the rate file", function()
    h.edit_model(function(m) m.hosts = { host(1, { connection = 1 }) } end)
    h.write_file("/tmp/curhostip", "192.168.1.5\n")
    local kept = string.format("%23s 1 2 %d\n", "000000000001", h.sim.now() - 5)
    h.write_file("/tmp/lanhostsrate", kept)
    assert.are.same({ curip = "", count = 0 }, v:get("hostsInfo", "0"))
    assert.are.equal(kept, h.read_file("/tmp/lanhostsrate"))
    h.sim.fail("ZoVelGetOnlineDeviceListExtWithIPv6", -1)
    assert.are.same({ curip = "", count = 0 }, v:get("hostsInfo", "7"))
  end)
end)

describe("allInfo devices", function()
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

  it("keeps known types in their own letter case, others as pc; no wireless totals without wireless devices", function()
    local types = { "PHONE", "tablet", "", "iTv", "Mobile", "pc" }
    h.edit_model(function(m)
      m.hosts = {}
      for i, t in ipairs(types) do m.hosts[i] = host(i, { type = t }) end
    end)
    local r = v:get("allInfo")
    assert.are.same({ "PHONE", "pc", "pc", "iTv", "Mobile", "pc" }, rows(r, "pc", "type"))
    assert.are.same({ 0 }, { r.wlcount, r.tWlUp, r.tWlDown })
    -- a failed list gives only the counts
    h.sim.fail("ZoVelGetOnlineDeviceList", -1)
    r = v:get("allInfo")
    assert.are.same({ 0, 0 }, { r.wcount, r.wlcount, r.tWUp })
  end)
end)

describe("service flags", function()
  it("come from the IPTV record on type 13, else from a registered LOID's services, on both pages", function()
    -- dev_type, iptv.enable, loid status, services -> itv, voip, LOID checked
    for _, c in ipairs({
      { "13", 1, 200, "VOIP", true, false, false },
      { "13", 0, 200, "IPTV,VOIP", false, false, false },
      { "1", 0, 200, "IPTV,VOIP", true, true, true },
      { "1", 0, 203, "VOIP", false, true, true },
      { "", 1, 200, h.cjson.null, false, false, true },
      { string.rep(" ", 40) .. "13", 1, 200, "VOIP", true, false, false },
    }) do
      for _, key in ipairs({ "allInfo", "gwStatus" }) do
        h.reset()
        h.edit_model(function(m)
          m.device.dev_type = c[1]; m.iptv.enable = c[2]; m.loid.status = c[3]; m.loid.services = c[4]
        end)
        local r = v:get(key)
        local checked, iptv_read = #h.calls("ZoVelSysCmdCheckLOID"), #h.calls("ZoVelGetSubIPTVInfo")
        assert.are.same({ c[5], c[6], c[7] and 1 or 0, c[7] and 0 or 1 }, { r.itv, r.voip, checked, iptv_read },
          key .. " " .. c[1])
      end
    end
    -- a failed check shows neither
    h.reset()
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
    h.edit_model(function(m) m.usb = USB end)
  end)

  it("allInfo numbers mass-storage devices, naming unlabelled ones USB_disc1, 2; gwStatus shows percent used", function()
    local r = v:get("allInfo")
    assert.are.same({ "USB_disc1", "Backup", "USB_disc2" }, rows(r, "storage", "name"))
    assert.are.same({ maxSize = 2 ^ 40, usedSize = 2 ^ 39, name = "USB_disc2", usbdev = 12 }, r.storage3)
    -- whole percent, 0 for an empty disk, by device name
    local g = v:get("gwStatus")
    assert.are.same({ { name = "Disk A", usedPer = 99 }, { name = "Disk B", usedPer = 0 },
                      { name = "Disk C", usedPer = 50 } }, { g.storage1, g.storage2, g.storage3 })
    assert.are.same({ 3, 3 }, { r.scount, g.scount })
    -- no rows when the list fails
    h.sim.fail("ZoVel_GetUSBDeviceObjs", -1)
    assert.are.same({ 0, 0 }, { v:get("allInfo").scount, v:get("gwStatus").scount })
    assert.is_nil(v:get("gwStatus").storage1)
  end)
end)

describe("WAN state", function()
  it("shows the up time, CONNECTED when either family is, else the IPv4 state; empty when unreadable", function()
    h.sim.advance_clock(5)
    assert.are.equal(86405, v:get("allInfo").wanUpTime)
    for _, c in ipairs({ { "", "", "" }, { "Disconnected", "Connected", "CONNECTED" },
                         { "Connecting", "Connecting", "Connecting" }, { "CONNECTED", "", "CONNECTED" } }) do
      h.edit_model(function(m) m.wan.ipv4_status = c[1]; m.wan.ipv6_status = c[2] end)
      assert.are.equal(c[3], v:get("allInfo").wanConnect, c[1] .. "/" .. c[2])
    end
    h.sim.fail("ZoVelGetNetworkInfo", -1)
    local r = v:get("allInfo")
    assert.are.same({ "", 0 }, { r.wanConnect, r.wanUpTime })
  end)
end)

describe("gwStatus figures", function()
  it("counts snapshot devices, unknown connection types as wireless; 0 figures when unreadable", function()
    h.edit_model(function(m)
      m.hosts = { host(1), host(2, { connection = 2 }), host(3, { connection = 1 }), host(4, { connection = 5 }),
                  host(5, { online = false }) }
    end)
    h.sim.advance_clock(7)
    local r = v:get("gwStatus")
    assert.are.same({ 2, 2, 86407, 93791, 12 }, { r.wcount, r.wlcount, r.upTime, r.sysTime, r.cpuUsed })
    h.sim.fail("ZoVelDBusGetProperty", -1)
    h.sim.fail("ZoVelGetDeviceInfo", -1)
    h.sim.fail("ZoVelGetOnlineDevicesSnapShot", -1)
    r = v:get("gwStatus")
    assert.are.same({ 0, 0, 0, 0, 0 }, { r.upTime, r.sysTime, r.cpuUsed, r.wcount, r.wlcount })
    -- a read without a value, as a failed one
    h.sim.clear_faults()
    h.sim.answer_property("/com/zom/igd1/Info/Network", "com.zom.igd1.NetworkInfo", "PPPOEDuration", false)
    assert.are.equal(0, v:get("gwStatus").upTime)
  end)
end)

describe("gwInfo", function()
  local BASE = { "DevType", "DeviceModel", "LANIP", "LANIPv6", "MAC", "MarkType", "NASN", "ProductCls",
                 "ProductSN", "SWVer", "Vendor", "WANIP", "WANIPv6" }

  it("reports identity, addresses and access marks, without Wi-Fi keys unless asked with all", function()
    for _, arg in ipairs({ "ALL", "x" }) do assert.are.same(BASE, keys(v:get("gwInfo", arg))) end
    local r = v:get("gwInfo")
    assert.are.same(BASE, keys(r))
    assert.are.same({ "HGU-4GE2WIFI-1POTS-1USB", "VLMG8200AX0001234", "A4C1E2003F10", "fe80::1/64", "100.72.18.45",
                      "2408:8207:1850:3a1::1/64", 1, "VG-8200AX", "NA20240817003F10" },
                    { r.DevType, r.ProductSN, r.MAC, r.LANIPv6, r.WANIP, r.WANIPv6, r.MarkType, r.DeviceModel, r.NASN })
    -- WAN addresses only when connected and not empty
    h.edit_model(function(m) m.wan.ipv4 = ""; m.wan.ipv6_status = "Disconnected" end)
    r = v:get("gwInfo")
    assert.are.same({ "0.0.0.0", "::" }, { r.WANIP, r.WANIPv6 })
  end)

  it("all: the enabled first SSIDs, 5 GHz only with dual band, the later 2.4G-1 winning; none without Wi-Fi", function()
    -- has_wifi, dual_band, 5G-1 enable -> ssid2g, ssid5g, wifiOnOff
    for _, c in ipairs({ { true, true, 1, "Velmont-3F10", "Velmont-3F10-5G", true },
                         { true, false, 1, "Velmont-3F10", "", true }, { true, true, 0, "Velmont-3F10", "", true },
                         { false, true, 1, nil, nil, nil } }) do
      h.edit_model(function(m) m.device.has_wifi = c[1]; m.wifi.dual_band = c[2]; m.wlan[3].enable = c[3] end)
      local r = v:get("gwInfo", "all")
      assert.are.same({ c[4], c[5], c[6], "0755ab1234567@isp" }, { r.ssid2g, r.ssid5g, r.wifiOnOff, r.wanAcnt })
    end
    h.edit_model(function(m) m.device.has_wifi = true; m.wlan[2].band_label = "2.4G-1" end)
    assert.are.equal("Velmont-Guest", v:get("gwInfo", "all").ssid2g)
    h.edit_model(function(m) for _, w in ipairs(m.wlan) do w.enable = 0 end end)
    assert.is_false(v:get("gwInfo", "all").wifiOnOff)
  end)

  it("keeps cleared figures when the platform fails", function()
    h.sim.fail("ZoVelDBusGetProperty", -1)
    h.sim.fail("ZoVelDBusGetAllProperty", -1)
    h.sim.fail("ZoVelSupportWiFi", -1)
    h.sim.fail("ZoVelGetPPPoEConfig", -1)
    local r = v:get("gwInfo", "all")
    assert.are.same({ "", 0, "", "", "", "Velmont-3F10", "" },
                    { r.DevType, r.MarkType, r.DeviceModel, r.NASN, r.ssid5g, r.ssid2g, r.wanAcnt })
    -- "DevType2" read without a value, as a failed read
    h.sim.clear_faults()
    h.sim.answer_property("/com/zom/igd1/Info/Device", "com.zom.igd1.DeviceInfo", "DevType2", false)
    assert.are.equal("", v:get("gwInfo").DevType)
  end)
end)

describe("gwIPs and devType", function()
  it("shows v4 addresses as stored even when down, IPv6 ones without prefix length, cut at 62, LAN fe80::1 if empty", function()
    h.edit_model(function(m) m.wan.ipv6 = string.rep("a", 70) .. "/64"; m.wan.ipv4_status = "Disconnected" end)
    assert.are.same({ LANIP = "192.168.1.1", WANIP = "100.72.18.45", LAN6IP = "fe80::1", WAN6IP = string.rep("a", 62) },
                    v:get("gwIPs"))
    h.edit_model(function(m) m.wan.ipv6 = "" end)
    assert.are.equal("", v:get("gwIPs").WAN6IP)
    for _, c in ipairs({ { "fd00::1/64", "fd00::1" }, { "", "fe80::1" }, { "fd00::9", "fd00::9" } }) do
      h.edit_model(function(m) m.lan.ipv6 = c[1] end)
      assert.are.equal(c[2], v:get("gwIPs").LAN6IP)
    end
  end)

  it("devType reads the device type as atoi does, 0 when the record cannot be read", function()
    for _, c in ipairs({ { "13", 13 }, { "", 0 }, { "abc", 0 }, { "  42x", 42 },
      { string.rep(" ", 40) .. "13", 13 }, { string.rep("0", 40) .. "13", 13 },
      -- beyond 32 bits, as glibc's atoi: a long's value, saturated, cut to int
      { "4294967309", 13 }, { "18446744073709551617", -1 }, { "-9223372036854775809", 0 } }) do
      h.edit_model(function(m) m.device.dev_type = c[1] end)
      assert.are.equal(c[2], v:get("devType"), c[1])
    end
    h.sim.fail("ZoVelGetDeviceInfo", -1)
    assert.are.equal(0, v:get("devType"))
  end)
end)
