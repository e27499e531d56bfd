-- The simulator's own promises: injected faults, the pinned clock, figures at the
-- limits, members it does not know, the bytes of a record the module does not read,
-- a bounded journal, and disks whose files stay inside the file root.
local h = require "helpers"
local cjson = h.cjson
local v = h.velconfig

local I64_MAX, I64_MIN = "9223372036854775807", "-9223372036854775808"
local I32_MAX, I32_OVER = "2147483647", "2147483648"

-- A 64-bit integer for the model, which Lua numbers cannot carry exactly: it goes
-- into the JSON text as written.
local function int(text) return "#" .. text .. "#" end

local function load_with_integers(m)
  h.sim.load_model((cjson.encode(m):gsub('"#(%-?%d+)#"', "%1")))
  h.sim.clear_journal()
end

-- A member of the model's JSON text, exactly as saved.
local function model_text_member(name)
  return h.sim.model():match('"' .. name .. '": (%-?%d+)')
end

local function hex(bytes)
  local out = {}
  for i = 1, #bytes do out[i] = string.format("%02x", bytes[i]) end
  return table.concat(out)
end

local function ramp(n)
  local bytes = {}
  for i = 1, n do bytes[i] = (i * 37) % 256 end
  return bytes
end

-- The model's disks, copying at rate bytes a second; the simulator lays each disk's
-- files out under the file root when the disk is first used.
local function use_disks(rate, disks)
  h.edit_model(function(m) m.usb, m.storage = disks, { copy_rate = rate, next_transfer = 1 } end)
end

local function disk(id, mount, files)
  return { id = id, class = 8, name = "Disk", mount_path = mount, total_size = 1000, used_size = 0, label = "",
    files = files }
end

local function big(n) return string.rep("z", n) end

describe("the simulator", function()
  before_each(function() h.reset() end)

  it("makes an operation fail for the given number of calls without touching its out-parameters", function()
    h.sim.fail("ZoVelSupportUSB", -7, 1)
    assert.are.equal(0, v:get("hasUsb"))
    assert.are.equal(1, v:get("hasUsb"))
  end)

  it("rejects a model that is not a JSON object", function()
    assert.has_error(function() h.sim.load_model("[1,2]") end)
    assert.has_error(function() h.sim.load_model("{") end)
    assert.are.equal("VG-8200AX", h.model().device.product_class)
  end)

  it("keeps to integers at every limit of the model: saturating figures, no id given twice", function()
    local m = cjson.decode(h.sim.default_model())
    m.time.base = 1
    m.device.boot_count, m.device.uptime, m.device.cpu_usage = int(I64_MAX), 1e300, int(I64_MIN)
    m.wan.uptime = int(I64_MAX)
    local top = m.hosts[1]
    top.id, top.online_time, top.access, top.connection = int(I64_MAX), int(I64_MAX), int(I64_MIN), int(I32_OVER)
    top.down_bytes, top.down_rate, top.up_bytes, top.up_rate = int(I64_MAX), int(I64_MAX), int(I64_MIN), int(I64_MIN)
    m.hosts[2].id, m.hosts[3].id, m.hosts[4].id, m.hosts[5].id = int(I64_MIN), -1, int(I32_MAX), int(I32_OVER)
    m.ddns[1].id, m.ddns[1].enable = int(I64_MAX), int(I64_MIN)
    m.port_mappings[1].id, m.port_mappings[1].external_port, m.port_mappings[1].internal_port = int(I64_MIN), int(I64_MAX), -1
    m.port_mappings[2].id = -1
    m.iptv.vlan_id, m.iptv.enable = int(I64_MIN), int(I64_MAX)
    m.usb[2].total_size, m.usb[2].used_size = int(I64_MIN), int(I64_MAX)
    m.wlan[1].id, m.wlan[1].tx_power = int(I64_MAX), int(I64_MAX)
    h.sim.pin_clock(2 ^ 63)
    load_with_integers(m)

    for _, call in ipairs({ { "allInfo" }, { "gwStatus" }, { "gwInfo", "all" }, { "hostsInfo", "7" }, { "ddns" },
      { "pmLists" }, { "iptv" }, { "blackHosts" }, { "lan" }, { "gwIPs" } }) do
      assert.are.equal("table", type(v:get(unpack(call))), call[1])
    end
    h.sim.advance_clock(10)
    assert.are.equal("table", type(v:get("hostsInfo", "7")))
    assert.are.equal(4294967295, v:get("gwStatus").sysTime)

    v:set("reboot")
    assert.are.same({ I64_MAX, "0" }, { model_text_member("boot_count"), model_text_member("uptime") })
    -- the largest id is taken: an add fails and changes nothing; the entry itself still works
    assert.are.equal(-1, v:set("ddns", { add = "1", enable = "1", provider = "p", domain = "x.org", hostname = "h",
      username = "u", passwd = "p" }))
    assert.are.equal(0, v:set("ddns", { add = "2", enable = "1", provider = "p", domain = "velhome.dyndns.org",
      hostname = "h", username = "u", passwd = "p" }))
    assert.are.equal("/com/zom/igd1/Config/DDNS/" .. I64_MAX, h.calls("ZoVelSetDDNSServerInstance")[1].path)
    assert.are.equal(1, v:get("ddns").count)
    -- below the negative ids the next one is 1
    assert.are.equal(0, v:set("pmSetSingle", { op = "add", desp = "new", client = "192.168.1.9", protocol = "TCP",
      exPort = "1", inPort = "1" }))
    assert.are.same({ -1, 1 }, { h.model().port_mappings[2].id, h.model().port_mappings[3].id })
    assert.are.equal(0, v:set("hostSettings", { type = "black", mac = "D89EF3A1B201" }))
    assert.are.equal(0, h.model().hosts[1].access)
    assert.are.equal(0, v:set("iptv", { enable = "1", vlanOnOff = "1", vlanid = "45", bindlanport = "LAN1" }))

    h.sim.pin_clock(1e300)
    h.sim.advance_clock(9e18)
    assert.are.equal(2 ^ 63, h.sim.now())
    assert.has_error(function() h.sim.pin_clock(0 / 0) end)
    for _ = 1, 2 do h.sim.advance_monotonic(1e300) end
    h.sim.pin_clock(-1e300)
    assert.are.equal("table", type(v:get("allInfo")))
    h.sim.fail("ZoVelSupportUSB", 1e300, -1e300)
    assert.are.equal(0, v:get("hasUsb"))
  end)

  it("keeps members of unexpected types, and unknown ones, through writes and saves", function()
    local m = cjson.decode(h.sim.default_model())
    m.device.vendor = { 1, 2 }
    m.wifi = 7
    m.extra = { nested = { 1, "x", false } }
    m.iptv.bound_ports, m.iptv.vlan_id = false, "none"
    m.ddns[1].provider, m.ddns[1].enable, m.ddns[1].reserved = 42, true, "not hex"
    m.dhcp.enable, m.hosts = 1, "not a list"
    h.write_file("/state.json", cjson.encode(m))
    h.sim.use_state_file(h.file("/state.json"))
    -- each write gives back what these members read as (nothing, -1, 1, true)
    assert.are.equal(0, v:set("iptv", { enable = "1", vlanOnOff = "0", bindlanport = "none" }))
    assert.are.equal(0, v:set("ddns", { add = "2", enable = "1", provider = "p", domain = "velhome.dyndns.org",
      hostname = "gw2", username = "u", passwd = "p" }))
    assert.are.equal(0, v:set("lan", { dhcpEnbl = "1", oldLanIp = "192.168.1.1", lanIp = "192.168.1.1",
      poolStart = "192.168.1.2", poolEnd = "192.168.1.200", subnetMask = "255.255.255.0" }))
    v:set("reboot")
    h.sim.use_state_file("")
    local after = cjson.decode(h.read_file("/state.json"))
    assert.are.same({ { 1, 2 }, 7, m.extra, false, "none", 42, true, "not hex", 1, "not a list" },
      { after.device.vendor, after.wifi, after.extra, after.iptv.bound_ports, after.iptv.vlan_id,
        after.ddns[1].provider, after.ddns[1].enable, after.ddns[1].reserved, after.dhcp.enable, after.hosts })
    assert.are.same({ "gw2", "192.168.1.200", 2 }, { after.ddns[1].hostname, after.dhcp.max, after.device.boot_count })
  end)

  it("gives the platform back the reserved bytes of a record it handed out, as the model holds them or the bytes they give", function()
    local iptv_reserved = { ["0"] = hex(ramp(256)), ["297"] = "a1b2c3" }
    local ddns_reserved = { ["260"] = "5a", ["389"] = "01020304050607", ["524"] = hex(ramp(80)) }
    h.edit_model(function(m)
      m.iptv.reserved = iptv_reserved
      m.ddns[1].reserved = ddns_reserved
    end)
    assert.are.equal(0, v:set("iptv", { enable = "1", vlanOnOff = "1", vlanid = "7", bindlanport = "LAN1" }))
    assert.are.equal(0, v:set("ddns", { add = "2", enable = "0", provider = "p", domain = "velhome.dyndns.org",
      hostname = "h2", username = "u2", passwd = "p2" }))
    assert.are.same(iptv_reserved, h.calls("ZoVelSetSubIPTVInfo")[1].reserved)
    assert.are.same(ddns_reserved, h.calls("ZoVelSetDDNSServerInstance")[1].reserved)
    local after = h.model()
    assert.are.same({ iptv_reserved, 7, ddns_reserved, "h2" }, { after.iptv.reserved, after.iptv.vlan_id,
      after.ddns[1].reserved, after.ddns[1].hostname })
    -- a short or unreadable reserved text is read as the bytes it gives, and kept as written
    h.edit_model(function(m) m.iptv.reserved = { ["297"] = "AB", ["0"] = "xyz", ["5"] = "kept" } end)
    assert.are.equal(0, v:set("iptv", { enable = "0" }))
    assert.are.same({ ["297"] = "ab0000" }, h.calls("ZoVelSetSubIPTVInfo")[1].reserved)
    assert.are.same({ ["297"] = "AB", ["0"] = "xyz", ["5"] = "kept" }, h.model().iptv.reserved)
    -- a record the module builds from nothing carries no reserved bytes
    assert.are.equal(0, v:set("pmSetSingle", { op = "add", desp = "new", client = "192.168.1.9", protocol = "TCP",
      exPort = "1", inPort = "1" }))
    assert.is_nil(h.calls("ZoVelAddPortMapping")[1].reserved)
    assert.is_nil(h.model().port_mappings[3].reserved)
  end)

  it("keeps the newest journal entries and log lines up to its limit and counts the dropped ones", function()
    h.sim.history_limit(4)
    for _ = 1, 3 do v:set("fwrestore") end
    assert.are.same({ "ZoVelLogClose", "ZoVelLogOpen", "ZoVelDBusCallMethod", "ZoVelLogClose" }, h.ops())
    assert.are.same({ 5, 3, 0 }, { h.sim.journal_dropped(), #h.sim.logs(), h.sim.logs_dropped() })
    h.sim.history_limit(1)
    assert.are.same({ 1, 2, 8 }, { #h.sim.logs(), h.sim.logs_dropped(), h.sim.journal_dropped() })
    h.sim.clear_journal()
    h.sim.clear_logs()
    assert.are.same({ 0, 0 }, { h.sim.journal_dropped(), h.sim.logs_dropped() })
    h.sim.reset()
    for _ = 1, 3 do v:set("fwrestore") end
    assert.are.same({ 9, 0 }, { #h.sim.journal(), h.sim.journal_dropped() })
  end)

  -- What no gateway keeps is refused by the platform (-3) and nothing is stored; the
  -- module passes the code on. The edges that a gateway takes are kept.
  local LAN = { dhcpEnbl = "1", oldLanIp = "192.168.1.1", lanIp = "192.168.1.1", poolStart = "192.168.1.2",
    poolEnd = "192.168.1.200", subnetMask = "255.255.255.0" }
  local IPTV = { enable = "1", vlanOnOff = "1", vlanid = "45", bindlanport = "LAN4" }
  local RULE = { op = "add", desp = "r", client = "192.168.1.50", protocol = "TCP", exPort = "80", inPort = "80" }
  local function with(base, fields)
    local t = {}
    for k, val in pairs(base) do t[k] = val end
    for k, val in pairs(fields) do t[k] = val end
    return t
  end
  for _, c in ipairs({
    { "an address that is not a dotted quad", "lan", with(LAN, { lanIp = "banana", subnetMask = "z" }), -3 },
    { "an address with a number over 255", "lan", with(LAN, { lanIp = "192.168.1.256" }), -3 },
    { "a mask of three numbers", "lan", with(LAN, { subnetMask = "255.255.255" }), -3 },
    { "a pool outside the LAN", "lan", with(LAN, { poolStart = "10.0.0.2" }), -3 },
    { "a pool running backwards", "lan", with(LAN, { poolStart = "192.168.1.200", poolEnd = "192.168.1.2" }), -3 },
    { "a new LAN without moving the pool", "lan", with(LAN, { lanIp = "192.168.2.1" }), -3 },
    { "the server off, a bad address", "lan", with(LAN, { dhcpEnbl = "0", lanIp = "192.168.1" }), -3 },
    { "a pool of one address", "lan", with(LAN, { poolStart = "192.168.1.9", poolEnd = "192.168.1.9" }), 0 },
    { "the server off, the pool left where it is", "lan", with(LAN, { dhcpEnbl = "0", lanIp = "192.168.1.254" }), 2 },
    { "VLAN abc (0)", "iptv", with(IPTV, { vlanid = "abc" }), -3 },
    { "VLAN 4095", "iptv", with(IPTV, { vlanid = "4095" }), -3 },
    { "VLAN 1", "iptv", with(IPTV, { vlanid = "1" }), 0 },
    { "VLAN 4094", "iptv", with(IPTV, { vlanid = "4094" }), 0 },
    { "a port the gateway does not have", "iptv", with(IPTV, { bindlanport = "LAN9" }), -3 },
    { "port LAN0", "iptv", with(IPTV, { bindlanport = "LAN1,LAN0" }), -3 },
    { "ports in lower case", "iptv", with(IPTV, { bindlanport = "lan1" }), -3 },
    { "every port", "iptv", with(IPTV, { bindlanport = "LAN1,LAN2,LAN3,LAN4" }), 0 },
    { "an external port 0", "pmSetSingle", with(RULE, { exPort = "0" }), -3 },
    { "an internal port 65536", "pmSetSingle", with(RULE, { inPort = "65536" }), -3 },
    { "ports 1 and 65535", "pmSetSingle", with(RULE, { exPort = "1", inPort = "65535" }), 0 },
  }) do
    it("platform: " .. c[2] .. " with " .. c[1] .. " answers " .. c[4], function()
      local before = h.model()
      assert.are.equal(c[4], v:set(c[2], c[3]))
      local after = h.model()
      local part = ({ lan = "dhcp", iptv = "iptv", pmSetSingle = "port_mappings" })[c[2]]
      if c[4] ~= 0 and c[4] ~= 2 then
        assert.are.same(before[part], after[part])
      else
        assert.are_not.same(before[part], after[part])
      end
    end)
  end

  it("platform: a LAN port count of the model's own bounds the ports", function()
    h.edit_model(function(m) m.device.lan_ports = 2 end)
    assert.are.same({ -3, 0 }, { v:set("iptv", with(IPTV, { bindlanport = "LAN3" })),
      v:set("iptv", with(IPTV, { bindlanport = "LAN2" })) })
  end)

  describe("its disks", function()
    before_each(function()
      h.fresh_root()
      use_disks(1000, { disk(2, "/mnt/usb1", { ["docs/"] = "", ["docs/a.txt"] = "alpha", ["docs/b.txt"] = "bravo",
        ["docs/sub/"] = "", ["docs/sub/c.txt"] = "charlie", big = big(5000) }), disk(3, "/mnt/usb2", {}) })
      v:get("subFiles", "/mnt/usb1")
      v:get("subFiles", "/mnt/usb2")
    end)

    local function ln(target, at) assert(os.execute("ln -s " .. h.quote(target) .. " " .. h.quote(h.file(at))) == 0) end

    it("keep every file operation inside the disk, through a symbolic link too, and are never made outside the file root", function()
      h.write_file("/outside/secret.txt", "secret")
      h.write_file("/outside/victim.txt", "victim")
      ln(h.file("/outside"), "/mnt/usb1/link")
      assert.are.same({ fileNum = 0, filePath = "/mnt/usb1/link" }, v:get("subFiles", "/mnt/usb1/link"))
      v:get("deleteFiles", "/mnt/usb1/link", "secret.txt/")
      v:get("renameFile", "/mnt/usb1/docs/a.txt", "/mnt/usb1/link/a.txt")
      v:get("renameFile", "/mnt/usb1/link/secret.txt", "/mnt/usb1/docs/stolen.txt")
      v:get("newFolder", "/mnt/usb1/link/new")
      v:get("copyMove", "copy|/mnt/usb1/docs|/mnt/usb1/link|a.txt", "a.txt/")
      v:get("copyMove", "copy|/mnt/usb1/link|/mnt/usb1/docs|secret.txt", "secret.txt/")
      v:get("copyMove", "move|/mnt/usb1/link|/mnt/usb1/docs|x", "secret.txt/")
      -- links at a copy's target: a file outside, a folder outside, the source itself
      ln(h.file("/outside/victim.txt"), "/mnt/usb2/b.txt")
      ln(h.file("/outside"), "/mnt/usb2/sub")
      ln(h.file("/mnt/usb1/docs/a.txt"), "/mnt/usb2/a.txt")
      h.sim.advance_clock(100)
      for _, name in ipairs({ "b.txt", "sub", "a.txt" }) do
        local id = v:get("copyMove", "copy|/mnt/usb1/docs|/mnt/usb2|" .. name, name .. "/").transId
        h.sim.advance_clock(100)
        assert.are.equal(200, v:get("copyProgress", tostring(id)).percent, name)
      end
      assert.are.same({ "secret", "victim", "alpha", "bravo", "charlie" }, { h.read_file("/outside/secret.txt"),
        h.read_file("/outside/victim.txt"), h.read_file("/mnt/usb1/docs/a.txt"), h.read_file("/mnt/usb1/docs/b.txt"),
        h.read_file("/mnt/usb1/docs/sub/c.txt") })
      assert.is_nil(io.open(h.file("/outside/a.txt")))
      assert.is_nil(io.open(h.file("/outside/c.txt")))
      assert.is_nil(io.open(h.file("/outside/new")))
      assert.is_nil(h.read_file("/mnt/usb1/docs/stolen.txt"))
      assert.is_nil(h.read_file("/mnt/usb1/docs/secret.txt"))
      -- a link is removed as itself, never what it leads to
      v:get("deleteFiles", "/mnt/usb1", "link/")
      assert.are.same({ "secret", nil }, { h.read_file("/outside/secret.txt"), h.read_file("/mnt/usb1/link/secret.txt") })
      -- a disk whose mount path leads out of the file root
      local escape = "/../" .. h.root:match("[^/]+$") .. "-escape"
      use_disks(0, { disk(2, escape, { ["a.txt"] = "a" }) })
      assert.are.same({ 0, escape }, { v:get("fileLists").fileNum, v:get("fileLists").filePath })
      assert.are.same({ fileNum = 0, filePath = escape }, v:get("usbFormat", "2"))
      assert.is_nil(io.open(h.root .. "-escape"))
    end)

    it("never reach outside the disk while a folder is swapped for a link and back", function()
      use_disks(0, { disk(2, "/mnt/usb1", { ["docs/"] = "" }) })
      v:get("subFiles", "/mnt/usb1")
      local n = 150
      local names = {}
      for i = 1, n do
        names[#names + 1], names[#names + 2] = "f" .. i, "g" .. i
        h.write_file("/outside/f" .. i, "outside")
        h.write_file("/outside/g" .. i, "outside")
        h.write_file("/mnt/usb1/sub/f" .. i, "inside")
      end
      -- The swapper: "sub" is the real folder, then a link to the folder outside, in a
      -- loop, for at most 20 seconds.
      local folder, out = h.file("/mnt/usb1"), h.file("/outside")
      local script = "cd " .. h.quote(folder) .. " && end=$(($(date +%s) + 20)); while [ $(date +%s) -lt $end ]; do " ..
        "mv sub sub.real; ln -s " .. h.quote(out) .. " sub; rm sub; mv sub.real sub; done"
      local p = io.popen("sh -c " .. h.quote(script) .. " >/dev/null 2>&1 & echo $!")
      local pid = p:read("*l")
      p:close()
      for i = 1, n do
        v:get("deleteFiles", "/mnt/usb1/sub", "f" .. i .. "/")
        v:get("renameFile", "/mnt/usb1/sub/g" .. i, "/mnt/usb1/docs/g" .. i)
        v:get("newFolder", "/mnt/usb1/sub/n" .. i)
        v:get("copyMove", "copy|/mnt/usb1/sub|/mnt/usb1/docs|x", "f" .. i .. "/")
      end
      os.execute("kill " .. pid)
      os.execute("sleep 0.2; cd " .. h.quote(folder) .. " && { [ -d sub.real ] && rm -f sub && mv sub.real sub; true; }")
      local p2 = io.popen("ls " .. h.quote(out))
      local left = {}
      for line in p2:lines() do left[#left + 1] = line end
      p2:close()
      table.sort(names)
      assert.are.same(names, left)
      for i = 1, n do
        assert.are.equal("outside", h.read_file("/outside/f" .. i))
        assert.are_not.equal("outside", h.read_file("/mnt/usb1/docs/f" .. i))
        assert.is_nil(h.read_file("/mnt/usb1/docs/g" .. i))
      end
    end)

    it("never replace an entry, nor copy a file onto itself or a folder into itself", function()
      local r = v:get("copyMove", "copy|/mnt/usb1/docs|/mnt/usb1/docs|a.txt", "a.txt/")
      assert.are.same({ 0, 0 }, { r.transId, r.percent })
      v:get("copyMove", "copy|/mnt/usb1|/mnt/usb1/docs/sub|docs", "docs/")
      v:get("copyMove", "move|/mnt/usb1|/mnt/usb1/docs/sub|docs", "docs/")
      assert.is_nil(h.read_file("/mnt/usb1/docs/sub/docs/a.txt"))
      assert.are.equal("charlie", h.read_file("/mnt/usb1/docs/sub/c.txt"))
      h.write_file("/mnt/usb2/a.txt", "older")
      v:get("copyMove", "move|/mnt/usb1/docs|/mnt/usb2|x", "a.txt/")
      v:get("renameFile", "/mnt/usb1/docs/b.txt", "/mnt/usb1/docs/a.txt")
      assert.are.same({ "older", "alpha", "bravo" }, { h.read_file("/mnt/usb2/a.txt"), h.read_file("/mnt/usb1/docs/a.txt"),
        h.read_file("/mnt/usb1/docs/b.txt") })
    end)

    it("fail a copy whose disk is formatted, or whose target is a FIFO, instead of stalling it", function()
      local function copy() return tostring(v:get("copyMove", "copy|/mnt/usb1|/mnt/usb2|big", "big/").transId) end
      local id = copy()
      assert.are.equal(20, v:get("copyProgress", id).percent)
      v:get("usbFormat", "3")
      assert.are.same({ percent = 200 }, v:get("copyProgress", id))
      assert(os.execute("mkfifo " .. h.quote(h.file("/mnt/usb2/big"))) == 0)
      assert.are.same({ percent = 200 }, v:get("copyProgress", copy()))
    end)

    it("resume a copy the model records as unfinished where it stopped, as the CLI's next run does", function()
      local source = big(2500) .. string.rep("q", 1500)
      use_disks(1000, { disk(2, "/mnt/usb3", { ["in/"] = "", ["in/d/"] = "", ["in/d/a"] = big(2500),
        ["in/d/b"] = string.rep("q", 1500), ["in/f"] = source, ["out/"] = "", ["out/d/"] = "" }) })
      v:get("subFiles", "/mnt/usb3")
      -- what the earlier run had written (marked, to see that it is not copied again)
      h.write_file("/mnt/usb3/out/f", string.rep("p", 1000))
      h.write_file("/mnt/usb3/out/d/a", big(2500))
      h.write_file("/mnt/usb3/out/d/b", string.rep("r", 500))
      local started = (h.sim.now() - 1) * 1000
      h.edit_model(function(m)
        m.storage.transfers = {
          { id = 7, source = "/mnt/usb3/in/f", target = "/mnt/usb3/out/f", total = 4000, copied = 1000,
            state = "copying", started_ms = started, rate = 1000 },
          { id = 8, source = "/mnt/usb3/in/d", target = "/mnt/usb3/out/d", total = 4000, copied = 3000,
            state = "copying", started_ms = started - 2000, rate = 1000 } }
      end)
      assert.are.same({ 25, 75 }, { v:get("copyProgress", "7").percent, v:get("copyProgress", "8").percent })
      h.sim.advance_clock(3)
      assert.are.same({ 100, 100 }, { v:get("copyProgress", "7").percent, v:get("copyProgress", "8").percent })
      assert.are.equal(string.rep("p", 1000) .. source:sub(1001), h.read_file("/mnt/usb3/out/f"))
      assert.are.same({ big(2500), string.rep("r", 500) .. string.rep("q", 1000) }, { h.read_file("/mnt/usb3/out/d/a"),
        h.read_file("/mnt/usb3/out/d/b") })
      local saved = h.model().storage.transfers
      assert.are.same({ "done", 4000, "done", 4000 }, { saved[1].state, saved[1].copied, saved[2].state, saved[2].copied })
    end)
  end)
end)
