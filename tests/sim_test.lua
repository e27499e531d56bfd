-- The simulator's own promises: state files, injected faults, the pinned clock.
local h = require "helpers"
local v = h.velconfig

describe("the simulator", function()
  before_each(function() h.reset() end)

  it("saves every change to the state file and reads it back in a later load", function()
    local path = os.tmpname()
    os.remove(path)
    h.sim.use_state_file(path)
    v:set("reboot")
    h.sim.use_state_file("")
    h.sim.reset()
    assert.are.equal(1, h.model().device.boot_count)
    h.sim.use_state_file(path)
    assert.are.equal(2, h.model().device.boot_count)
    h.sim.use_state_file("")
    os.remove(path)
  end)

  it("makes an operation fail for the given number of calls without touching its out-parameters", function()
    h.sim.fail("ZoVelSupportUSB", -7, 1)
    assert.are.equal(0, v:get("hasUsb"))
    assert.are.equal(1, v:get("hasUsb"))
  end)

  it("runs the gateway's clock from the pinned time", function()
    h.sim.pin_clock(1700000000)
    h.sim.advance_clock(90)
    assert.are.equal(1700000090, h.sim.now())
  end)

  it("keeps members of an unexpected type through writes, and survives figures at the limits", function()
    h.edit_model(function(m)
      m.hosts = "not a list"
      m.time.base = -9.2e18
      m.device.uptime = 9223372036854775807
      m.wan.uptime = 1e300
    end)
    assert.are.equal(0, v:get("hostsInfo", "7").count)
    assert.are.equal("number", type(v:get("gwStatus").sysTime))
    v:set("reboot")
    assert.are.equal("not a list", h.model().hosts)
    h.sim.pin_clock(1e300)
    h.sim.advance_clock(9e18)
    assert.is_true(h.sim.now() > 0)
    assert.has_error(function() h.sim.pin_clock(0 / 0) end)
  end)

  it("rejects a model that is not a JSON object", function()
    assert.has_error(function() h.sim.load_model("[1,2]") end)
    assert.has_error(function() h.sim.load_model("{") end)
    assert.are.equal("VG-8200AX", h.model().device.product_class)
  end)
end)
