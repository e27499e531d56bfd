-- LAN page: the DHCP server read, and one multi-property write.
local h = require "helpers"
local v = h.velconfig

local function lan(fields)
  local t = { dhcpEnbl = "1", oldLanIp = "192.168.1.1", lanIp = "192.168.1.1", poolStart = "192.168.1.2",
    poolEnd = "192.168.1.200", subnetMask = "255.255.255.0" }
  for k, val in pairs(fields or {}) do t[k] = val ~= false and val or nil end
  return t
end

-- The {name, value} entries of the one multi-property write, in order.
local function sent()
  local calls = h.calls("ZoVelDBusSetMultiProperty")
  assert.are.same({ 1, "/com/zom/igd1/Config/DHCPServer", "com.zom.igd1.DHCPServer" },
    { #calls, calls[1].path, calls[1].interface })
  return calls[1].entries
end

describe("lan", function()
  before_each(function() h.reset() end)

  it("reads the DHCP server record, a cleared one as 0, 0.0.0.0 and empty texts", function()
    assert.are.same({ dhcpEnbl = 1, lanIp = "192.168.1.1", poolStart = "192.168.1.2", poolEnd = "192.168.1.254",
      subnetMask = "255.255.255.0" }, v:get("lan"))
    h.sim.fail("ZoVelGetDHCPServer", -1)
    assert.are.same({ dhcpEnbl = 0, lanIp = "0.0.0.0", poolStart = "", poolEnd = "", subnetMask = "" }, v:get("lan"))
  end)

  for _, c in ipairs {
    { "enabled, same address", {}, 0, true },
    { "a new address", { lanIp = "192.168.2.1", poolStart = "192.168.2.2", poolEnd = "192.168.2.200" }, 2, true },
    { "dhcpEnbl 01", { dhcpEnbl = "01" }, 0, true }, { "an empty oldLanIp", { oldLanIp = "" }, 2, true },
    { "dhcpEnbl as the number 1 (read as its text)", { dhcpEnbl = 1 }, 0, true },
    { "dhcpEnbl 0 and no pool", { dhcpEnbl = "0", poolStart = false, poolEnd = false, subnetMask = false }, 0 },
    { "dhcpEnbl 2", { dhcpEnbl = "2" }, 0 }, { "dhcpEnbl on", { dhcpEnbl = "on" }, 0 },
  } do
    it("writes " .. c[1] .. ", returning " .. c[3], function()
      local input = lan(c[2])
      assert.are.equal(c[3], v:set("lan", input))
      local expected = c[4] and { { "MinAddress", input.poolStart }, { "MaxAddress", input.poolEnd },
        { "SubnetMask", input.subnetMask } } or {}
      expected[#expected + 1] = { "Enable", c[4] == true }
      expected[#expected + 1] = { "IPAddr", input.lanIp }
      assert.are.same(expected, sent())
    end)
  end

  it("returns 1 for a non-table, and the platform's code without comparing addresses", function()
    assert.are.equal(1, v:set("lan", "192.168.1.1"))
    assert.are.same({ "ZoVelLogOpen", "ZoVelLogClose" }, h.ops())
    h.sim.fail("ZoVelDBusSetMultiProperty", -7)
    assert.are.equal(-7, v:set("lan", lan { lanIp = "192.168.2.1" }))
  end)

  it("cuts fields at 15 characters and never sends half a character", function()
    v:set("lan", lan { lanIp = "192.168.100.10099", subnetMask = "192.168.1.100中" })
    local entries = sent()
    assert.are.same({ "192.168.1.100", "192.168.100.100" }, { entries[3][2], entries[5][2] })
  end)

  it("moves the gateway: the LAN and port-mapping pages show the new address", function()
    assert.are.equal(2, v:set("lan", lan { lanIp = "10.0.0.1", poolStart = "10.0.0.9", poolEnd = "10.0.0.200",
      subnetMask = "255.0.0.0" }))
    assert.are.same({ dhcpEnbl = 1, lanIp = "10.0.0.1", poolStart = "10.0.0.9", poolEnd = "10.0.0.200",
      subnetMask = "255.0.0.0" }, v:get("lan"))
    assert.are.equal("10.0.0.1", v:get("pmLists").lanIp)
    assert.are.equal(0, v:set("lan", lan { dhcpEnbl = "0", oldLanIp = "10.0.0.1", lanIp = "10.0.0.1" }))
    assert.are.equal(0, v:get("lan").dhcpEnbl)
  end)
end)
