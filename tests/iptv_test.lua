-- IPTV page: the IPTV record read, changed field by field and written back whole.
local h = require "helpers"
local v = h.velconfig

local function written()
  local calls = h.calls("ZoVelSetSubIPTVInfo")
  assert.are.equal(1, #calls)
  return { calls[1].enable, calls[1].vlan_id, calls[1].bound_ports }
end

describe("get iptv", function()
  before_each(function() h.reset() end)

  local cases = {
    { "the default gateway", nil, { enable = 1, vlanOnOff = 1, vlanid = 45, bindlanport = "LAN4" } },
    { "no VLAN and no ports", { enable = 0, vlan_id = -1, bound_ports = "" },
      { enable = 0, vlanOnOff = 0, vlanid = -1, bindlanport = "none" } },
  }
  for _, c in ipairs(cases) do
    it("reports " .. c[1], function()
      if c[2] then h.edit_model(function(m) m.iptv = c[2] end) end
      assert.are.same(c[3], v:get("iptv"))
    end)
  end

  it("reads a failed read as the cleared record", function()
    h.sim.fail("ZoVelGetSubIPTVInfo", -1)
    assert.are.same({ enable = 0, vlanOnOff = 1, vlanid = 0, bindlanport = "none" }, v:get("iptv"))
  end)
end)

describe("set iptv", function()
  before_each(function() h.reset() end)

  local cases = {
    { "enable 0 changes only the flag", { enable = "0" }, { 0, 45, "LAN4" } },
    { "a VLAN and none", { enable = "1", vlanOnOff = "1", vlanid = "100", bindlanport = "none" }, { 1, 100, "" } },
    { "VLAN off keeps the VLAN ID", { enable = "7", vlanOnOff = "0", bindlanport = "LAN1,LAN2" }, { 1, 45, "LAN1,LAN2" } },
    { "31 port characters whole", { enable = "1", vlanOnOff = "0", bindlanport = string.rep("P", 31) },
      { 1, 45, string.rep("P", 31) } },
    { "40 port characters cut at 31", { enable = "1", vlanOnOff = "0", bindlanport = string.rep("Q", 40) },
      { 1, 45, string.rep("Q", 31) } },
  }
  for _, c in ipairs(cases) do
    it(c[1], function()
      assert.are.equal(0, v:set("iptv", c[2]))
      assert.are.same(c[3], written())
    end)
  end

  it("round trip: the page reads back what it wrote", function()
    assert.are.equal(0, v:set("iptv", { enable = "1", vlanOnOff = "1", vlanid = "45", bindlanport = "none" }))
    assert.are.same({ enable = 1, vlanOnOff = 1, vlanid = 45, bindlanport = "none" }, v:get("iptv"))
  end)

  it("returns the read's code and writes nothing; a non-table writes nothing and returns 0", function()
    h.sim.fail("ZoVelGetSubIPTVInfo", -3, 1)
    assert.are.equal(-3, v:set("iptv", { enable = "0" }))
    assert.are.equal(0, v:set("iptv", "1"))
    assert.are.same({}, h.calls("ZoVelSetSubIPTVInfo"))
    h.sim.fail("ZoVelSetSubIPTVInfo", -4)
    assert.are.equal(-4, v:set("iptv", { enable = "0" }))
  end)

  it("raises for a field the path needs, before writing", function()
    assert.matches(h.field_error("nil"), h.set_error("iptv", { enable = "1", vlanOnOff = "1", bindlanport = "LAN1" }))
    assert.are.same({}, h.calls("ZoVelSetSubIPTVInfo"))
  end)
end)
