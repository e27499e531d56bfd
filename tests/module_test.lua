-- The module frame: loading, argument rules, the platform log around every call, and
-- the queries that belong to no page.
local h = require "helpers"
local v = h.velconfig

describe("loading the module", function()
  it("publishes the table it returns as the global velconfig too", function()
    assert.are.equal(v, _G.velconfig)
  end)
end)

describe("argument rules", function()
  before_each(function() h.reset() end)

  local cases = {
    { "get without a key", function() return v.get(v) end, "Arguments unknown" },
    { "set without a key", function() return v.set(v) end, "Arguments unknown" },
    { "get with four arguments after the module", function() return v:get("a", "b", "c", "d") end,
      "Arguments more than three" },
    { "get with a2 of the wrong type, even with a bad a1", function() return v:get("hasWiFi", {}, {}) end,
      "The third argument is invalid" },
    { "get with a1 of the wrong type", function() return v:get("hasWiFi", true) end, "The second argument is invalid" },
    { "get with a key that is not text", function() return v:get({}) end, "The first argument is invalid" },
    { "get with a nil key", function() return v:get(nil, "1") end, "The first argument is invalid" },
  }
  for _, case in ipairs(cases) do
    it("raise for " .. case[1] .. " without opening the log", function()
      local ok, err = pcall(case[2])
      assert.is_false(ok)
      -- luaL_error prefixes the caller's position
      assert.are.equal(case[3], h.without_position(err))
      assert.are.same({}, h.ops())
    end)
  end

  it("answer an unknown key, a numeric key and a key in another letter case with nil", function()
    assert.is_nil(v:get("noSuchKey", "x"))
    assert.is_nil(v:get(5))
    assert.is_nil(v:get("HASWIFI"))
  end)

  it("open the log with facility 8 and tag velconfig and close it last", function()
    v:get("hasUsb")
    local ops = h.ops()
    assert.are.equal("ZoVelLogOpen", ops[1])
    assert.are.equal("ZoVelLogClose", ops[#ops])
    local open = h.calls("ZoVelLogOpen")[1]
    assert.are.same({ 8, "velconfig" }, { open.facility, open.tag })
  end)

  it("make set return 1 for unknown and non-text keys, logging nothing", function()
    assert.are.equal(1, v:set("noSuchKey", {}))
    assert.are.equal(1, v:set({}, {}))
    assert.are.equal(1, v:set(true))
    assert.are.same({ "ZoVelLogOpen", "ZoVelLogClose", "ZoVelLogOpen", "ZoVelLogClose", "ZoVelLogOpen", "ZoVelLogClose" }, h.ops())
    assert.are.same({}, h.sim.logs())
  end)
end)

describe("capability queries", function()
  before_each(function() h.reset() end)

  it("hasWiFi and hasUsb follow the platform flags, hasWiFi 0 when the platform fails", function()
    assert.are.equal(1, v:get("hasWiFi"))
    assert.are.equal(1, v:get("hasUsb"))
    h.edit_model(function(m) m.device.has_wifi = false; m.device.has_usb = false end)
    assert.are.equal(0, v:get("hasWiFi"))
    assert.are.equal(0, v:get("hasUsb"))
    h.edit_model(function(m) m.device.has_wifi = true end)
    h.sim.fail("ZoVelSupportWiFi", -1)
    assert.are.equal(0, v:get("hasWiFi"))
  end)

  -- Then: a first field of 15 characters (all that is kept) whose last one decides, in
  -- a text longer than the working buffer; and a first field just inside, then just
  -- outside, the 63 characters of the text that are read.
  local pots = {
    { "1;0", 1 }, { "0;1", 0 }, { ";;2", 1 }, { "", 0 }, { "abc;1", 0 }, { " 7", 1 },
    { ("0"):rep(14) .. "1" .. ("2"):rep(185), 1 },
    { (";"):rep(62) .. "1", 1 }, { (";"):rep(63) .. "1", 0 },
  }
  it("hasPots is whether the first field of Capability reads as a number other than 0, or its read fails", function()
    for _, case in ipairs(pots) do
      h.edit_model(function(m) m.device.capability = case[1] end)
      assert.are.equal(case[2], v:get("hasPots"), case[1])
    end
    -- A read that succeeds without a text (or with another type) is no telephony;
    -- only a refused read is taken as telephony.
    local device = { "/com/zom/igd1/Info/Device", "com.zom.igd1.DeviceInfo", "Capability" }
    h.sim.answer_property(device[1], device[2], device[3], false)
    assert.are.equal(0, v:get("hasPots"))
    h.sim.answer_property(device[1], device[2], device[3], "uint32 1")
    assert.are.equal(0, v:get("hasPots"))
    h.sim.answer_property(device[1], device[2], device[3], nil)
    h.edit_model(function(m) m.device.capability = "0" end)
    h.sim.fail("ZoVelDBusGetProperty", -1)
    assert.are.equal(1, v:get("hasPots"))
  end)
end)
