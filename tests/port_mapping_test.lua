-- Port-mapping page: the rule list, one rule by its description, and all rules.
local h = require "helpers"
local v = h.velconfig

local function add(desp, fields)
  local t = { op = "add", desp = desp, client = "192.168.1.50", protocol = "TCP", exPort = "2222", inPort = "22" }
  for k, val in pairs(fields or {}) do t[k] = val end
  return v:set("pmSetSingle", t)
end

local function enable_writes()
  local seen = {}
  for _, c in ipairs(h.calls("ZoVelDBusSetProperty")) do
    assert.are.same({ "com.zom.igd1.PortMapping", "Enable" }, { c.interface, c.property })
    seen[#seen + 1] = { c.path, c.value }
  end
  return seen
end

local function rules()
  local list, rows = v:get("pmLists"), {}
  for i = 1, list.count do rows[i] = list["pmRule" .. i] end
  return rows
end

describe("pmLists", function()
  before_each(function() h.reset() end)

  it("lists rules with unsigned ports, then the LAN address and mask", function()
    h.edit_model(function(m) m.port_mappings[2].external_port = 4000000000 end)
    local l = v:get("pmLists")
    assert.are.same({ desp = "NAS-Web", client = "192.168.1.21", protocol = "TCP", exPort = 8080, inPort = 5000,
      enable = 1 }, l.pmRule1)
    assert.are.same({ 2, 4000000000, "192.168.1.1", "255.255.255.0" }, { l.count, l.pmRule2.exPort, l.lanIp, l.mask })
  end)

  it("still shows the LAN when the listing fails, and 0.0.0.0 for empty addresses", function()
    h.edit_model(function(m) m.dhcp.ip = ""; m.dhcp.mask = "" end)
    h.sim.fail("ZoVelGetPortMappingObjs", -1)
    assert.are.same({ count = 0, lanIp = "0.0.0.0", mask = "0.0.0.0" }, v:get("pmLists"))
  end)
end)

describe("pmSetSingle", function()
  before_each(function() h.reset() end)

  it("adds an enabled rule with ports read as atoi and the description cut at 31", function()
    assert.are.equal(0, add(string.rep("n", 40), { exPort = "80abc", inPort = "" }))
    local c = h.calls("ZoVelAddPortMapping")[1]
    assert.are.same({ 1, 80, 0, "TCP", "192.168.1.50", string.rep("n", 31) },
      { c.enable, c.external_port, c.internal_port, c.protocol, c.client, c.description })
    assert.are.same({}, h.calls("ZoVelGetPortMappingObjs"))
  end)

  it("acts on the first rule with the description only, whatever its state", function()
    h.edit_model(function(m) m.port_mappings[2].description = "NAS-Web" end)
    for _, c in ipairs { { "enable", true }, { "disable", false } } do
      h.sim.clear_journal()
      assert.are.equal(0, v:set("pmSetSingle", { op = c[1], desp = "NAS-Web" }))
      assert.are.same({ { "/com/zom/igd1/Config/PortMapping/1", c[2] } }, enable_writes())
    end
    assert.are.equal(0, v:set("pmSetSingle", { op = "del", desp = "NAS-Web" }))
    assert.are.same({ { op = "ZoVelDelPortMapping", path = "/com/zom/igd1/Config/PortMapping/1" } },
      h.calls("ZoVelDelPortMapping"))
  end)

  it("returns 0 changing nothing for no match, an unknown word, or a non-table input", function()
    for _, input in ipairs { { op = "del", desp = "nope" }, { op = "Enable", desp = "NAS-Web" }, "x" } do
      h.sim.clear_journal()
      assert.are.equal(0, v:set("pmSetSingle", input))
      assert.are.same({ "ZoVelLogOpen", "ZoVelGetPortMappingObjs", "ZoVelLogClose" }, h.ops())
    end
  end)

  it("returns the platform's code", function()
    h.sim.fail("ZoVelGetPortMappingObjs", -2, 1)
    assert.are.equal(-2, v:set("pmSetSingle", { op = "del", desp = "NAS-Web" }))
    h.sim.fail("ZoVelDBusSetProperty", -9)
    assert.are.equal(-9, v:set("pmSetSingle", { op = "enable", desp = "Remote-Desktop" }))
  end)

  it("raises for an add without its ports, adding nothing", function()
    assert.matches(h.field_error("nil"), h.set_error("pmSetSingle", { op = "add", desp = "x", client = "1.2.3.4",
      protocol = "UDP" }))
    assert.are.same({}, h.calls("ZoVelAddPortMapping"))
  end)

  it("round trip: a rule is added, listed, disabled, enabled and deleted", function()
    assert.are.equal(0, add("SSH"))
    assert.are.same({ desp = "SSH", client = "192.168.1.50", protocol = "TCP", exPort = 2222, inPort = 22, enable = 1 },
      rules()[3])
    assert.are.equal(0, v:set("pmSetSingle", { op = "disable", desp = "SSH" }))
    assert.are.equal(0, rules()[3].enable)
    assert.are.equal(0, v:set("pmSetSingle", { op = "enable", desp = "SSH" }))
    assert.are.equal(1, rules()[3].enable)
    assert.are.equal(0, v:set("pmSetSingle", { op = "del", desp = "SSH" }))
    assert.are.equal(2, #rules())
  end)
end)

describe("pmSetAll", function()
  before_each(function() h.reset() end)

  it("enables and disables only the rules not yet in that state", function()
    assert.are.equal(0, v:set("pmSetAll", { op = "enable" }))
    assert.are.same({ { "/com/zom/igd1/Config/PortMapping/2", true } }, enable_writes())
    h.sim.clear_journal()
    assert.are.equal(0, v:set("pmSetAll", { op = "enable" }))
    assert.are.same({}, enable_writes())
    assert.are.equal(0, v:set("pmSetAll", { op = "disable" }))
    assert.are.same({ 0, 0 }, { rules()[1].enable, rules()[2].enable })
  end)

  it("deletes every rule; with none left it returns 0 without reading op", function()
    assert.are.equal(0, v:set("pmSetAll", { op = "del" }))
    assert.are.equal(2, #h.calls("ZoVelDelPortMapping"))
    assert.are.equal(0, v:get("pmLists").count)
    assert.are.equal(0, v:set("pmSetAll", {}))
  end)

  it("stops at the first failing rule and returns its code; a listing failure is the result", function()
    h.sim.fail("ZoVelDelPortMapping", -3, 1)
    assert.are.equal(-3, v:set("pmSetAll", { op = "del" }))
    assert.are.equal(1, #h.calls("ZoVelDelPortMapping"))
    h.sim.fail("ZoVelGetPortMappingObjs", -5)
    assert.are.equal(-5, v:set("pmSetAll", { op = "del" }))
    assert.are.equal(2, #h.model().port_mappings)
  end)

  it("changes nothing for an unknown word or a non-table input", function()
    assert.are.equal(0, v:set("pmSetAll", { op = "toggle" }))
    assert.are.equal(0, v:set("pmSetAll", "del"))
    assert.are.same({}, enable_writes())
    assert.are.same({}, h.calls("ZoVelDelPortMapping"))
  end)
end)
