-- The module frame: loading, registration, argument rules, the platform log
-- around every call, and the queries that belong to no page.
local h = require "helpers"
local v = h.velconfig

describe("loading the module", function()
  it("publishes one table as the global and the result, with get and set only", function()
    assert.are.equal(v, _G.velconfig)
    local names = {}
    for k, f in pairs(v) do names[#names + 1] = k; assert.are.equal("function", type(f)) end
    table.sort(names)
    assert.are.same({ "get", "set" }, names)
    assert.is_nil(getmetatable(v))
  end)

  it("registers velconfig.meta whose __index is itself and which carries get and set", function()
    local meta = debug.getregistry()["velconfig.meta"]
    assert.are.equal(meta, meta.__index)
    assert.are.equal("function", type(meta.get))
    assert.are.equal("function", type(meta.set))
  end)
end)

describe("get argument validation", function()
  before_each(function() h.reset() end)

  local cases = {
    { "no key", function() return v.get(v) end, "Arguments unknown" },
    { "four arguments after the module", function() return v:get("a", "b", "c", "d") end, "Arguments more than three" },
    { "a2 of the wrong type, even with a bad a1", function() return v:get("hasWiFi", {}, {}) end, "The third argument is invalid" },
    { "a1 of the wrong type", function() return v:get("hasWiFi", true) end, "The second argument is invalid" },
    { "a key that is not text", function() return v:get({}) end, "The first argument is invalid" },
    { "a nil key", function() return v:get(nil, "1") end, "The first argument is invalid" },
  }
  for _, case in ipairs(cases) do
    it("raises for " .. case[1] .. " without opening the log", function()
      local ok, err = pcall(case[2])
      assert.is_false(ok)
      -- luaL_error prefixes the caller's position
      assert.are.equal(case[3], h.without_position(err))
      assert.are.same({}, h.ops())
    end)
  end

  it("answers an unknown key, a numeric key and a key not built yet with nil", function()
    assert.is_nil(v:get("noSuchKey", "x"))
    assert.is_nil(v:get(5))
    assert.is_nil(v:get("HASWIFI"))
  end)

  it("opens the log with facility 8 and tag velconfig and closes it last", function()
    v:get("hasUsb")
    local ops = h.ops()
    assert.are.equal("ZoVelLogOpen", ops[1])
    assert.are.equal("ZoVelLogClose", ops[#ops])
    local open = h.calls("ZoVelLogOpen")[1]
    assert.are.same({ 8, "velconfig" }, { open.facility, open.tag })
  end)
end)

describe("set argument rules", function()
  before_each(function() h.reset() end)

  it("raises Arguments unknown without a key and opens no log", function()
    local ok, err = pcall(v.set, v)
    assert.is_false(ok)
    assert.are.equal("Arguments unknown", h.without_position(err))
    assert.are.same({}, h.ops())
  end)

  it("returns 1 for unknown keys, non-text keys and keys not built yet, logging nothing", function()
    assert.are.equal(1, v:set("noSuchKey", {}))
    assert.are.equal(1, v:set({}, {}))
    assert.are.equal(1, v:set(true))
    assert.are.same({ "ZoVelLogOpen", "ZoVelLogClose", "ZoVelLogOpen", "ZoVelLogClose", "ZoVelLogOpen", "ZoVelLogClose" }, h.ops())
    assert.are.same({}, h.sim.logs())
  end)
end)

describe("capability queries", function()
  before_each(function() h.reset() end)

  it("hasWiFi and hasUsb follow the platform flags", function()
    assert.are.equal(1, v:get("hasWiFi"))
    assert.are.equal(1, v:get("hasUsb"))
    h.edit_model(function(m) m.device.has_wifi = false; m.device.has_usb = false end)
    assert.are.equal(0, v:get("hasWiFi"))
    assert.are.equal(0, v:get("hasUsb"))
  end)

  it("hasWiFi reads 0 when the platform fails without writing the flag", function()
    h.sim.fail("ZoVelSupportWiFi", -1)
    assert.are.equal(0, v:get("hasWiFi"))
  end)

  local pots = {
    { "1;0", 1 }, { "0;1", 0 }, { ";;2", 1 }, { "", 0 }, { "abc;1", 0 }, { " 7", 1 },
    { string.rep("1", 200), 1 },
  }
  for _, case in ipairs(pots) do
    it("hasPots with Capability '" .. case[1]:sub(1, 20) .. "' gives " .. case[2], function()
      h.edit_model(function(m) m.device.capability = case[1] end)
      assert.are.equal(case[2], v:get("hasPots"))
    end)
  end

  it("hasPots gives 1 when the Capability read fails", function()
    h.edit_model(function(m) m.device.capability = "0" end)
    h.sim.fail("ZoVelDBusGetProperty", -1)
    assert.are.equal(1, v:get("hasPots"))
  end)
end)

describe("getAppConfig", function()
  it("is the fixed table, touching no platform service", function()
    h.reset()
    assert.are.same({ app1 = { name = "test", title = "APP TEST", src = "test" }, appCnt = 0 }, v:get("getAppConfig"))
    assert.are.same({ "ZoVelLogOpen", "ZoVelLogClose" }, h.ops())
  end)
end)
