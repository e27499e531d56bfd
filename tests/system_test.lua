-- System actions: reboot, local recovery and the framework restore.
local h = require "helpers"
local v = h.velconfig

describe("system actions", function()
  before_each(function() h.reset() end)

  it("reboot asks the platform once, returns 0 (also when it fails) and restarts the up-time figures", function()
    h.sim.advance_clock(100)
    assert.are.equal(0, v:set("reboot", { ignored = "x" }, "extra"))
    assert.are.equal(1, #h.calls("ZoVelSysCmdReboot"))
    local m = h.model()
    assert.are.equal(0, m.device.uptime)
    assert.are.equal(2, m.device.boot_count)
    h.sim.fail("ZoVelSysCmdReboot", -5)
    assert.are.equal(0, v:set("reboot"))
  end)

  it("fwrestore logs its note, calls Restore on the framework service and returns 0, also when it fails", function()
    assert.are.equal(0, v:set("fwrestore"))
    assert.are.same({ "5 Framework do restore." }, h.log_texts())
    local call = h.calls("ZoVelDBusCallMethod")[1]
    assert.are.same({ "com.zom.saf1", "/com/zom/saf1", "com.zom.saf1.framework", "Restore", -1 },
      { call.service, call.path, call.interface, call.method, call.timeout })
    h.sim.fail("ZoVelDBusCallMethod", -5)
    assert.are.equal(0, v:set("fwrestore"))
  end)

  it("restore returns the status the platform wrote, or 1 when it wrote none", function()
    assert.are.equal(0, v:set("restore"))
    h.edit_model(function(m) m.system.local_recovery_status = 7 end)
    assert.are.equal(7, v:set("restore"))
    h.sim.fail("ZoVelSysCmdLocalRecovery", -1)
    assert.are.equal(1, v:set("restore"))
  end)
end)
