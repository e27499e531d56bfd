-- Port-mapping page: the rule list, one rule by its description, and all rules.
local h = require "helpers"
local v = h.velconfig
local RULE1, RULE2 = "/com/zom/igd1/Config/PortMapping/1", "/com/zom/igd1/Config/PortMapping/2"

local function add(desp, fields)
  local t = { op = "add", desp = desp, client = "192.168.1.50", protocol = "TCP", exPort = "2222", inPort = "22" }
  for k, val in pairs(fields or {}) do t[k] = val end
  return v:set("pmSetSingle", t)
end

-- The "Enable" writes as {path, value}, and the deleted paths.
local function changes()
  local enables, deleted = {}, {}
  for _, c in ipairs(h.calls("ZoVelDBusSetProperty")) do
    assert.are.same({ "com.zom.igd1.PortMapping", "Enable" }, { c.interface, c.property })
    enables[#enables + 1] = { c.path, c.value }
  end
  for _, c in ipairs(h.calls("ZoVelDelPortMapping")) do deleted[#deleted + 1] = c.path end
  return enables, deleted
end

local function rules()
  local list, rows = v:get("pmLists"), {}
  for i = 1, list.count do rows[i] = list["pmRule" .. i] end
  return rows
end

before_each(function() h.reset() end)

describe("pmLists", function()
  it("lists rules with unsigned ports, then the LAN; a failed listing keeps the LAN", function()
    h.edit_model(function(m) m.port_mappings[2].external_port = 4000000000 end)
    local l = v:get("pmLists")
    assert.are.same({ desp = "NAS-Web", client = "192.168.1.21", protocol = "TCP", exPort = 8080, inPort = 5000,
      enable = 1 }, l.pmRule1)
    assert.are.same({ 2, 4000000000, "192.168.1.1", "255.255.255.0" }, { l.count, l.pmRule2.exPort, l.lanIp, l.mask })
    h.edit_model(function(m) m.dhcp.ip = ""; m.dhcp.mask = "" end)
    h.sim.fail("ZoVelGetPortMappingObjs", -1)
    assert.are.same({ count = 0, lanIp = "0.0.0.0", mask = "0.0.0.0" }, v:get("pmLists"))
  end)
end)

describe("pmSetSingle", function()
  it("adds an enabled rule (ports as atoi, description cut at 31) without listing; it lists, toggles and deletes", function()
    assert.are.equal(0, add(("n"):rep(40), { exPort = "80abc", inPort = "8080 " }))
    local c = h.calls("ZoVelAddPortMapping")[1]
    assert.are.same({ 1, 80, 8080, "TCP", "192.168.1.50", ("n"):rep(31) },
      { c.enable, c.external_port, c.internal_port, c.protocol, c.client, c.description })
    assert.are.same({}, h.calls("ZoVelGetPortMappingObjs"))
    assert.are.equal(0, add("SSH"))
    assert.are.same({ desp = "SSH", client = "192.168.1.50", protocol = "TCP", exPort = 2222, inPort = 22, enable = 1 },
      rules()[4])
    for _, step in ipairs { { "disable", 0 }, { "enable", 1 }, { "del" } } do
      assert.are.equal(0, v:set("pmSetSingle", { op = step[1], desp = "SSH" }))
      assert.are.equal(step[2], (rules()[4] or {}).enable)
    end
  end)

  it("acts on the first rule with the description only, whatever its state", function()
    h.edit_model(function(m) m.port_mappings[2].description = "NAS-Web" end)
    for _, op in ipairs { "enable", "disable", "del" } do
      assert.are.equal(0, v:set("pmSetSingle", { op = op, desp = "NAS-Web" }))
    end
    local enables, deleted = changes()
    assert.are.same({ { { RULE1, true }, { RULE1, false } }, { RULE1 } }, { enables, deleted })
  end)

  it("returns 0 changing nothing for no match, an unknown word or a non-table; else the platform's code", function()
    for _, input in ipairs { { op = "del", desp = "nope" }, { op = "Enable", desp = "NAS-Web" }, "x" } do
      h.sim.clear_journal()
      assert.are.equal(0, v:set("pmSetSingle", input))
      assert.are.same({ "ZoVelLogOpen", "ZoVelGetPortMappingObjs", "ZoVelLogClose" }, h.ops())
    end
    h.sim.fail("ZoVelGetPortMappingObjs", -2, 1)
    assert.are.equal(-2, v:set("pmSetSingle", { op = "del", desp = "NAS-Web" }))
    h.sim.fail("ZoVelDBusSetProperty", -9)
    assert.are.equal(-9, v:set("pmSetSingle", { op = "enable", desp = "Remote-Desktop" }))
  end)
end)

describe("pmSetAll", function()
  it("enables and disables only the rules not in that state yet", function()
    assert.are.equal(0, v:set("pmSetAll", { op = "enable" }))
    assert.are.equal(0, v:set("pmSetAll", { op = "enable" }))
    assert.are.equal(0, v:set("pmSetAll", { op = "disable" }))
    assert.are.same({ { RULE2, true }, { RULE1, false }, { RULE2, false } }, (changes()))
    assert.are.same({ 0, 0 }, { rules()[1].enable, rules()[2].enable })
  end)

  it("deletes every rule, stopping at the first failure with its code; changes nothing for other words", function()
    h.sim.fail("ZoVelDelPortMapping", -3, 1)
    assert.are.equal(-3, v:set("pmSetAll", { op = "del" }))
    h.sim.fail("ZoVelGetPortMappingObjs", -5, 1)
    assert.are.equal(-5, v:set("pmSetAll", { op = "del" }))
    assert.are.same({ 0, 0 }, { v:set("pmSetAll", { op = "toggle" }), v:set("pmSetAll", "del") })
    assert.are.same({ 1, 2 }, { #h.calls("ZoVelDelPortMapping"), #h.model().port_mappings })
    h.sim.clear_journal()
    assert.are.equal(0, v:set("pmSetAll", { op = "del" }))
    assert.are.same({ RULE1, RULE2 }, select(2, changes()))
    assert.are.same({ 0, 0 }, { v:get("pmLists").count, v:set("pmSetAll", { op = "del" }) })
  end)

  it("a failing Enable write stops the loop with its code; a later call finishes the job", function()
    h.edit_model(function(m)
      m.port_mappings[1].enable = 0
      m.port_mappings[3] = { id = 3, enable = 0, external_port = 1, internal_port = 1, protocol = "UDP",
        client = "192.168.1.9", description = "third" }
    end)
    h.sim.fail("ZoVelDBusSetProperty", -6, 1)
    assert.are.equal(-6, v:set("pmSetAll", { op = "enable" }))
    assert.are.equal(1, #h.calls("ZoVelDBusSetProperty"))
    assert.are.equal(0, v:set("pmSetAll", { op = "enable" }))
    assert.are.same({ 1, 1, 1 }, { rules()[1].enable, rules()[2].enable, rules()[3].enable })
  end)
end)
