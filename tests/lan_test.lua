-- LAN page: the DHCP server read, the one multi-property write, and the table field
-- reader that every write page goes through.
local h = require "helpers"
local v = h.velconfig

local function lan(fields)
  local t = { dhcpEnbl = "1", oldLanIp = "192.168.1.1", lanIp = "192.168.1.1",
    poolStart = "192.168.1.2", poolEnd = "192.168.1.200", subnetMask = "255.255.255.0" }
  for k, val in pairs(fields or {}) do t[k] = val ~= false and val or nil end
  return t
end

-- The entries of the one multi-property write, as {name, value} pairs in order.
local function sent()
  local calls = h.calls("ZoVelDBusSetMultiProperty")
  assert.are.equal(1, #calls)
  assert.are.same({ "com.zom.igd1", "/com/zom/igd1/Config/DHCPServer", "com.zom.igd1.DHCPServer" },
    { calls[1].service, calls[1].path, calls[1].interface })
  return calls[1].entries
end

describe("get lan", function()
  before_each(function() h.reset() end)

  it("reports the DHCP server record", function()
    assert.are.same({ dhcpEnbl = 1, lanIp = "192.168.1.1", poolStart = "192.168.1.2",
      poolEnd = "192.168.1.254", subnetMask = "255.255.255.0" }, v:get("lan"))
  end)

  it("reads a record the platform left cleared as 0, 0.0.0.0 and empty texts", function()
    h.sim.fail("ZoVelGetDHCPServer", -1)
    assert.are.same({ dhcpEnbl = 0, lanIp = "0.0.0.0", poolStart = "", poolEnd = "", subnetMask = "" },
      v:get("lan"))
  end)
end)

describe("set lan", function()
  before_each(function() h.reset() end)

  local full = { { "MinAddress", "192.168.1.2" }, { "MaxAddress", "192.168.1.200" },
    { "SubnetMask", "255.255.255.0" }, { "Enable", true } }
  local cases = {
    { "enabled, same address", {}, 0, true },
    { "enabled, new address", { lanIp = "192.168.2.1" }, 2, true },
    { "dhcpEnbl 01 counts as 1", { dhcpEnbl = "01" }, 0, true },
    { "empty oldLanIp", { oldLanIp = "" }, 2, true },
    { "dhcpEnbl 0 without pool fields", { dhcpEnbl = "0", poolStart = false, poolEnd = false, subnetMask = false }, 0 },
    { "dhcpEnbl 2 keeps the pool unsent", { dhcpEnbl = "2" }, 0 },
    { "non-numeric dhcpEnbl", { dhcpEnbl = "on" }, 0 },
  }
  for _, c in ipairs(cases) do
    it(c[1] .. " returns " .. c[3] .. " and sends the entries in order", function()
      local input = lan(c[2])
      assert.are.equal(c[3], v:set("lan", input))
      local expected = c[4] and { full[1], full[2], full[3], full[4] } or { { "Enable", false } }
      expected[#expected + 1] = { "IPAddr", input.lanIp }
      assert.are.same(expected, sent())
    end)
  end

  it("returns 1 for a non-table input without calling the platform", function()
    assert.are.equal(1, v:set("lan", "192.168.1.1"))
    assert.are.equal(1, v:set("lan"))
    assert.are.same({ "ZoVelLogOpen", "ZoVelLogClose", "ZoVelLogOpen", "ZoVelLogClose" }, h.ops())
  end)

  it("returns the platform's code and skips the address comparison", function()
    h.sim.fail("ZoVelDBusSetMultiProperty", -7)
    assert.are.equal(-7, v:set("lan", lan { lanIp = "192.168.2.1" }))
    assert.are.equal("192.168.1.1", h.model().dhcp.ip)
  end)

  it("cuts over-long fields and never sends a character cut in half", function()
    v:set("lan", lan { lanIp = "192.168.100.100" .. "99", subnetMask = "192.168.1.100中" })
    local entries = sent()
    assert.are.same({ "SubnetMask", "192.168.1.100" }, entries[3])
    assert.are.same({ "IPAddr", "192.168.100.100" }, entries[5])
  end)

  it("moves the gateway: the LAN page, the port-mapping page and the network record follow", function()
    assert.are.equal(2, v:set("lan", lan { lanIp = "10.0.0.1", poolStart = "10.0.0.10", poolEnd = "10.0.0.99",
      subnetMask = "255.0.0.0" }))
    assert.are.same({ dhcpEnbl = 1, lanIp = "10.0.0.1", poolStart = "10.0.0.10", poolEnd = "10.0.0.99",
      subnetMask = "255.0.0.0" }, v:get("lan"))
    assert.are.same({ "10.0.0.1", "255.0.0.0" }, { v:get("pmLists").lanIp, v:get("pmLists").mask })
    assert.are.equal(0, v:set("lan", lan { dhcpEnbl = "0", oldLanIp = "10.0.0.1", lanIp = "10.0.0.1" }))
    assert.are.equal(0, v:get("lan").dhcpEnbl)
  end)
end)

describe("table field reader", function()
  before_each(function() h.reset() end)

  for _, c in ipairs { { "missing", false, "nil" }, { "a table", {}, "table" }, { "a boolean", true, "boolean" } } do
    it("raises the library's own error for a field that is " .. c[1] .. ", sending nothing", function()
      assert.matches(h.field_error(c[3]), h.set_error("lan", lan { lanIp = c[2] }))
      assert.are.same({}, h.calls("ZoVelDBusSetMultiProperty"))
      local ops = h.ops()
      assert.are.equal("ZoVelLogClose", ops[#ops])
    end)
  end

  it("reads a number as its text", function()
    assert.are.equal(0, v:set("lan", lan { dhcpEnbl = 1 }))
    assert.are.equal(5, #sent())
  end)
end)
