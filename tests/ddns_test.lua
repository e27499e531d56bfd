-- DDNS page: listing, and adding, modifying and deleting an entry by its domain.
local h = require "helpers"
local v = h.velconfig

local function req(fields)
  local t = { add = "1", enable = "1", provider = "noip", domain = "new.example.org", hostname = "gw",
    username = "me", passwd = "secret" }
  for k, val in pairs(fields or {}) do t[k] = val ~= false and val or nil end
  return t
end

describe("ddns", function()
  before_each(function() h.reset() end)

  it("lists every entry, or only the count when the listing fails", function()
    assert.are.same({ count = 1, ddnsCfg1 = { provider = "dyndns", domain = "velhome.dyndns.org",
      hostname = "gateway", username = "homeuser", password = "dd-secret", enable = 1 } }, v:get("ddns"))
    h.sim.fail("ZoVelGetDDNSServerObjs", -2)
    assert.are.same({ count = 0 }, v:get("ddns"))
  end)

  it("adds with enable as converted, no provider, and fields cut at their capacities", function()
    assert.are.equal(0, v:set("ddns", req { enable = "5", username = string.rep("u", 40),
      hostname = string.rep("h", 63), domain = string.rep("d", 70), passwd = 12345 }))
    assert.are.same({ { op = "ZoVelAddDDNSServerInstance", enable = 5, provider = "", username = string.rep("u", 31),
      password = "12345", hostname = string.rep("h", 63), domain = string.rep("d", 63) } },
      h.calls("ZoVelAddDDNSServerInstance"))
  end)

  it("modifies or deletes only the first entry with the domain, and nothing without one", function()
    h.edit_model(function(m) m.ddns[2] = { id = 7, provider = "p2", domain = "velhome.dyndns.org", hostname = "2nd" } end)
    assert.are.equal(0, v:set("ddns", req { add = "2", enable = "5", domain = "velhome.dyndns.org", hostname = "gw2" }))
    local s = h.calls("ZoVelSetDDNSServerInstance")[1]
    assert.are.same({ "/com/zom/igd1/Config/DDNS/1", 1, "dyndns", "gw2", "me", "secret" },
      { s.path, s.enable, s.provider, s.hostname, s.username, s.password })
    assert.are.equal(0, v:set("ddns", req { add = "", domain = "velhome.dyndns.org" }))
    assert.are.same({ "/com/zom/igd1/Config/DDNS/1" }, { h.calls("ZoVelDelDDNSServerInstance")[1].path })
    assert.are.same({ 1, "2nd" }, { v:get("ddns").count, v:get("ddns").ddnsCfg1.hostname })
    h.sim.clear_journal()
    assert.are.same({ 0, 0 }, { v:set("ddns", req { add = "0" }), v:set("ddns", req { add = "2" }) })
    assert.are.same({ 2, 6 }, { #h.calls("ZoVelGetDDNSServerObjs"), #h.ops() })
  end)

  it("returns 1 for an unknown operation (logged) or a non-table, else the platform's code", function()
    assert.are.equal(1, v:set("ddns", req { add = "3" }))
    assert.are.same({ "3 Operation[3] error." }, h.log_texts())
    assert.are.equal(1, v:set("ddns", "x"))
    h.sim.fail("ZoVelGetDDNSServerObjs", -6, 1)
    assert.are.equal(-6, v:set("ddns", req { add = "0", domain = "velhome.dyndns.org" }))
    h.sim.fail("ZoVelAddDDNSServerInstance", -8)
    assert.are.equal(-8, v:set("ddns", req()))
    assert.are.equal(1, v:get("ddns").count)
    -- the read's key "password" is not the write's "passwd"
    assert.matches(h.field_error("nil", "passwd"), h.set_error("ddns", req { passwd = false, password = "x" }))
  end)
end)
