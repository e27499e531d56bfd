-- DDNS page: listing, and adding, modifying and deleting an entry by its domain.
local h = require "helpers"
local v = h.velconfig

local function req(fields)
  local t = { add = "1", enable = "1", provider = "noip", domain = "new.example.org", hostname = "gw",
    username = "me", passwd = "secret" }
  for k, val in pairs(fields or {}) do t[k] = val ~= false and val or nil end
  return t
end

local function two_entries_same_domain()
  h.edit_model(function(m)
    m.ddns[2] = { id = 7, enable = 0, provider = "p2", domain = m.ddns[1].domain, hostname = "second" }
  end)
end

describe("get ddns", function()
  before_each(function() h.reset() end)

  it("lists every entry with the password the platform holds", function()
    assert.are.same({ count = 1, ddnsCfg1 = { provider = "dyndns", domain = "velhome.dyndns.org",
      hostname = "gateway", username = "homeuser", password = "dd-secret", enable = 1 } }, v:get("ddns"))
  end)

  it("carries only the count when the listing fails", function()
    h.sim.fail("ZoVelGetDDNSServerObjs", -2)
    assert.are.same({ count = 0 }, v:get("ddns"))
  end)
end)

describe("set ddns", function()
  before_each(function() h.reset() end)

  it("adds with enable as converted, no provider, and fields cut at their capacities", function()
    local long = string.rep("u", 40)
    assert.are.equal(0, v:set("ddns", req { enable = "5", username = long, hostname = string.rep("h", 63),
      domain = string.rep("d", 70), passwd = 12345 }))
    local add = h.calls("ZoVelAddDDNSServerInstance")[1]
    assert.are.same({ enable = 5, provider = "", username = long:sub(1, 31), password = "12345",
      hostname = string.rep("h", 63), domain = string.rep("d", 63), op = "ZoVelAddDDNSServerInstance" }, add)
    assert.are.same({}, h.calls("ZoVelGetDDNSServerObjs"))
  end)

  it("modifies the first entry with the domain: enable reduced to 1, domain and provider kept", function()
    two_entries_same_domain()
    assert.are.equal(0, v:set("ddns", req { add = "2", enable = "5", domain = "velhome.dyndns.org",
      provider = "other", hostname = "gw2", username = "u2", passwd = "p2" }))
    local set = h.calls("ZoVelSetDDNSServerInstance")
    assert.are.equal(1, #set)
    assert.are.same({ "/com/zom/igd1/Config/DDNS/1", 1, "dyndns", "velhome.dyndns.org", "gw2", "u2", "p2" },
      { set[1].path, set[1].enable, set[1].provider, set[1].domain, set[1].hostname, set[1].username, set[1].password })
    assert.are.equal("second", v:get("ddns").ddnsCfg2.hostname)
  end)

  it("deletes the first entry with the domain; an empty add counts as delete", function()
    two_entries_same_domain()
    assert.are.equal(0, v:set("ddns", req { add = "", domain = "velhome.dyndns.org" }))
    assert.are.same({ { op = "ZoVelDelDDNSServerInstance", path = "/com/zom/igd1/Config/DDNS/1" } },
      h.calls("ZoVelDelDDNSServerInstance"))
    assert.are.equal("second", v:get("ddns").ddnsCfg1.hostname)
  end)

  it("returns 0 for a domain not listed, calling nothing but the listing", function()
    for _, add in ipairs { "0", "2" } do
      h.sim.clear_journal()
      assert.are.equal(0, v:set("ddns", req { add = add, domain = "nope.example.org" }))
      assert.are.same({ "ZoVelLogOpen", "ZoVelGetDDNSServerObjs", "ZoVelLogClose" }, h.ops())
    end
  end)

  it("logs an unknown operation and returns 1", function()
    assert.are.equal(1, v:set("ddns", req { add = "3" }))
    assert.are.same({ "3 Operation[3] error." }, h.log_texts())
    assert.are.same({ "ZoVelLogOpen", "ZoVelLogClose" }, h.ops())
  end)

  it("returns 1 for a non-table input and the platform's code on failure", function()
    assert.are.equal(1, v:set("ddns", "x"))
    h.sim.fail("ZoVelGetDDNSServerObjs", -6, 1)
    assert.are.equal(-6, v:set("ddns", req { add = "0", domain = "velhome.dyndns.org" }))
    h.sim.fail("ZoVelAddDDNSServerInstance", -8)
    assert.are.equal(-8, v:set("ddns", req()))
    assert.are.equal(1, v:get("ddns").count)
  end)

  it("rejects the read's key password in place of passwd before sending anything", function()
    assert.matches(h.field_error("nil"), h.set_error("ddns", req { passwd = false, password = "x" }))
    assert.are.same({}, h.calls("ZoVelAddDDNSServerInstance"))
  end)

  it("adds, modifies and deletes an entry on the gateway by its domain", function()
    assert.are.equal(0, v:set("ddns", req()))
    assert.are.same({ provider = "", domain = "new.example.org", hostname = "gw", username = "me",
      password = "secret", enable = 1 }, v:get("ddns").ddnsCfg2)
    assert.are.equal(0, v:set("ddns", req { add = "2", enable = "0", hostname = "gw-renamed" }))
    local row = v:get("ddns").ddnsCfg2
    assert.are.same({ "gw-renamed", 0 }, { row.hostname, row.enable })
    assert.are.equal(0, v:set("ddns", req { add = "0" }))
    assert.are.equal(1, v:get("ddns").count)
  end)
end)
