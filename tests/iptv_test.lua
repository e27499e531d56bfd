-- IPTV page: the IPTV record read, changed field by field and written back whole.
local h = require "helpers"
local v = h.velconfig

describe("iptv", function()
  before_each(function() h.reset() end)

  it("reads the record; no VLAN, no ports and a failed read as the page expects", function()
    assert.are.same({ enable = 1, vlanOnOff = 1, vlanid = 45, bindlanport = "LAN4" }, v:get("iptv"))
    h.edit_model(function(m) m.iptv = { enable = 0, vlan_id = -1, bound_ports = "" } end)
    assert.are.same({ enable = 0, vlanOnOff = 0, vlanid = -1, bindlanport = "none" }, v:get("iptv"))
    h.sim.fail("ZoVelGetSubIPTVInfo", -1)
    assert.are.same({ enable = 0, vlanOnOff = 1, vlanid = 0, bindlanport = "none" }, v:get("iptv"))
  end)

  for _, c in ipairs {
    { "enable 0 changes only the flag", { enable = "0" }, { 0, 45, "LAN4" } },
    { "a VLAN and none", { enable = "1", vlanOnOff = "1", vlanid = "100", bindlanport = "none" }, { 1, 100, "" } },
    { "VLAN off keeps the VLAN ID", { enable = "7", vlanOnOff = "0", bindlanport = "LAN1,LAN2" }, { 1, 45, "LAN1,LAN2" } },
    -- ports the gateway does not have: sent as the page gave them, refused by the platform
    { "31 port characters whole", { enable = "1", vlanOnOff = "0", bindlanport = ("P"):rep(31) }, { 1, 45, ("P"):rep(31) }, -3 },
    { "40 port characters cut at 31", { enable = "1", vlanOnOff = "0", bindlanport = ("Q"):rep(40) }, { 1, 45, ("Q"):rep(31) }, -3 },
  } do
    it("writes " .. c[1], function()
      assert.are.equal(c[4] or 0, v:set("iptv", c[2]))
      local calls = h.calls("ZoVelSetSubIPTVInfo")
      assert.are.same({ 1, c[3] }, { #calls, { calls[1].enable, calls[1].vlan_id, calls[1].bound_ports } })
    end)
  end

  it("returns the platform's codes; a non-table or a missing needed field writes nothing", function()
    h.sim.fail("ZoVelGetSubIPTVInfo", -3, 1)
    assert.are.equal(-3, v:set("iptv", { enable = "0" }))
    assert.are.equal(0, v:set("iptv", "1"))
    assert.matches(h.field_error("nil", "vlanid"), h.set_error("iptv", { enable = "1", vlanOnOff = "1", bindlanport = "LAN1" }))
    assert.are.same({}, h.calls("ZoVelSetSubIPTVInfo"))
    h.sim.fail("ZoVelSetSubIPTVInfo", -4)
    assert.are.equal(-4, v:set("iptv", { enable = "0" }))
  end)
end)
