-- LAN host access control: black-listing, restricting and releasing a host by its
-- MAC, and the list of black-listed hosts.
local h = require "helpers"
local v = h.velconfig
local DESKTOP, KIDS = "D89EF3A1B201", "5CE0C5B27F16" -- host 1 normal, host 6 restricted

local function access_writes()
  local seen = {}
  for _, c in ipairs(h.calls("ZoVelDBusSetProperty")) do
    assert.are.same({ "com.zom.igd1", "com.zom.igd1.LANHost", "InternetAccess" }, { c.service, c.interface, c.property })
    seen[#seen + 1] = { c.path, c.value }
  end
  return seen
end

before_each(function() h.reset() end)

describe("hostSettings and rmBlackHost", function()
  it("black-lists only for type black, else restricts by onOff; rmBlackHost gives normal access", function()
    -- what, key, input -> access written
    for _, c in ipairs {
      { "type black, onOff absent", "hostSettings", { type = "black", mac = DESKTOP }, 0 },
      { "a capital B and onOff 1", "hostSettings", { type = "Black", mac = DESKTOP, onOff = "1" }, 1 },
      { "another type and onOff 0", "hostSettings", { type = "limit", mac = DESKTOP, onOff = "0" }, 2 },
      { "rmBlackHost on a restricted host", "rmBlackHost", { mac = KIDS }, 2 },
    } do
      h.reset()
      assert.are.equal(0, v:set(c[2], c[3]), c[1])
      local path = "/com/zom/igd1/Info/LANHost/" .. (c[3].mac == KIDS and 6 or 1)
      assert.are.same({ { path, c[4] } }, access_writes(), c[1])
    end
  end)

  it("logs the MAC before the lookup, returns 1 for an unknown host, else the write's code", function()
    assert.are.equal(1, v:set("hostSettings", { type = "black", mac = "000000000000" }))
    assert.are.equal(1, v:set("rmBlackHost", "x"))
    assert.are.same({ "5 Set LAN host [000000000000] to black or restrict", "5 Remove LAN host [] out of black lists." },
      h.log_texts())
    assert.are.same({}, access_writes())
    h.sim.fail("ZoVelDBusSetProperty", -4)
    assert.are.equal(-4, v:set("rmBlackHost", { mac = KIDS }))
  end)
end)

describe("blackHosts", function()
  it("lists black-listed hosts only, numbered without gaps", function()
    h.edit_model(function(m) m.hosts[4].access = 0 end)
    local list = v:get("blackHosts")
    assert.are.same({ ip = "192.168.1.102", ipv6 = "fd00::66", type = "mobile", system = "iPadOS 17",
      mac = "A85B78C0D1E4" }, list.dev1)
    assert.are.same({ 2, "B827EB5A9C07" }, { list.count, list.dev2.mac })
  end)

  it("gives count 0 when the listing fails or no host is black-listed", function()
    h.sim.fail("ZoVelGetLANHostExtWithIPv6Objs", -1, 1)
    local failed = v:get("blackHosts")
    h.edit_model(function(m) m.hosts[7].access = 1 end)
    assert.are.same({ { count = 0 }, { count = 0 } }, { failed, v:get("blackHosts") })
  end)

  it("round trip: a black-listed host is listed and leaves the LAN host list and the overview until removed", function()
    local function listed()
      local hosts, overview, found = v:get("hostsInfo", "0"), v:get("allInfo"), {}
      for i = 1, hosts.count do found[#found + 1] = hosts["dev" .. i].mac end
      return found, overview.wcount
    end
    local before, wired = listed()
    assert.are.equal(DESKTOP, before[1])
    assert.are.equal(0, v:set("hostSettings", { type = "black", mac = DESKTOP }))
    local list = v:get("blackHosts")
    assert.are.same({ 0, 2, DESKTOP }, { h.model().hosts[1].access, list.count, list.dev1.mac })
    local during, wired_during = listed()
    assert.are.same({ #before - 1, wired - 1 }, { #during, wired_during })
    assert.are_not.equal(DESKTOP, during[1])
    assert.are.equal(0, v:set("rmBlackHost", { mac = DESKTOP }))
    assert.are.same({ 2, 1 }, { h.model().hosts[1].access, v:get("blackHosts").count })
    assert.are.same(before, (listed()))
  end)
end)
