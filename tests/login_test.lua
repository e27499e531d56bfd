-- Web login and account: the platform's verdicts as result codes, and the audit notes.
local h = require "helpers"
local v = h.velconfig

local USER, ADMIN = "user1234", "Adm1n@3F10"
local OK_UA, FAIL_UA, OK_TA = "5 登录网关普通WEB成功。", "5 登录网关WEB失败。", "5 登录网关管理WEB成功。"
local CHECK_FAILED, CHECK_OK = "5 验证普通用户当前密码失败，修改失败。", "5 验证普通用户当前密码成功。"
local CHANGED, CHANGE_FAILED = "5 修改普通用户密码成功。", "5 修改普通用户密码失败。"

before_each(function() h.reset() end)

describe("login checks", function()
  it("checkUAPasswd and checkTAPasswd answer each platform verdict", function()
    local cases = {
      -- key, password, model change, fault, result, log lines
      { "checkUAPasswd", USER, nil, nil, 0, { OK_UA } },
      { "checkUAPasswd", ADMIN, nil, nil, 1, { FAIL_UA } },
      { "checkUAPasswd", USER, function(m) m.system.user_locked = true end, nil, 1, { FAIL_UA } },
      { "checkUAPasswd", USER, nil, -1, 1, { FAIL_UA } },
      { "checkTAPasswd", ADMIN, nil, nil, 0, { OK_TA } },
      { "checkTAPasswd", USER, nil, nil, 1, {} },
      { "checkTAPasswd", ADMIN, function(m) m.system.admin_locked = true end, nil, 1, {} },
      -- the check's own result is not looked at, only the status it wrote
      { "checkTAPasswd", ADMIN, nil, -1, 1, {} },
      { "checkTAPasswd", 1234, function(m) m.system.admin_password = "1234" end, nil, 0, { OK_TA } },
    }
    for _, c in ipairs(cases) do
      h.reset()
      if c[3] then h.edit_model(c[3]) end
      local op = c[1] == "checkUAPasswd" and "ZoVelSysCmdCheckUAPasswd" or "ZoVelSysCmdCheckTAPasswd"
      if c[4] then h.sim.fail(op, c[4]) end
      assert.are.equal(c[5], v:set(c[1], c[2]), c[1] .. " " .. c[2])
      assert.are.same(c[6], h.log_texts())
      assert.are.same({ tostring(c[2]) }, { h.calls(op)[1].password })
    end
  end)

  it("rejects a password that is not a clean text without asking the platform; checks the key without an input", function()
    assert.are.same({ 1, 1 }, { v:set("checkUAPasswd", USER .. "\0x"), v:set("checkTAPasswd", ADMIN .. "\255") })
    assert.are.same({ FAIL_UA }, h.log_texts())
    assert.are.same({}, h.calls("ZoVelSysCmdCheckUAPasswd"))
    assert.are.same({}, h.calls("ZoVelSysCmdCheckTAPasswd"))
    -- no input: the key's own text is the password; a table is no text
    assert.are.equal(1, v:set("checkUAPasswd"))
    assert.are.equal("checkUAPasswd", h.calls("ZoVelSysCmdCheckUAPasswd")[1].password)
    assert.matches(h.field_error("table"), h.set_error("checkTAPasswd", { USER }))
  end)
end)

describe("account", function()
  it("changes the user password, which the next login then accepts; without a table both texts are empty", function()
    assert.are.equal(0, v:set("account", { old = USER, new = "n3w-pass" }))
    assert.are.same({ CHECK_OK, CHANGED }, h.log_texts())
    assert.are.same({ 1, 0 }, { v:set("checkUAPasswd", USER), v:set("checkUAPasswd", "n3w-pass") })
    h.sim.clear_journal()
    assert.are.equal(1, v:set("account", "text"))
    assert.are.same({ "" }, { h.calls("ZoVelSysCmdCheckUAPasswd")[1].password })
  end)

  it("gives 1, 2 or 3 by where it failed and the status", function()
    local cases = {
      { { old = "wrong", new = "x" }, nil, 1, { CHECK_FAILED } },
      { { old = USER, new = "x" }, function(m) m.system.user_locked = true end, 3, { CHECK_FAILED } },
      { { old = USER, new = "x" }, "ZoVelSysCmdCheckUAPasswd", 3, { CHECK_FAILED } },
      { { old = USER, new = "x" }, function(m) m.system.user_password_change_status = 5 end, 2,
        { CHECK_OK, CHANGE_FAILED } },
      { { old = USER, new = "x" }, "ZoVelSysCmdSetUAPasswd", 3, { CHECK_OK, CHANGE_FAILED } },
    }
    for _, c in ipairs(cases) do
      h.reset()
      if type(c[2]) == "function" then h.edit_model(c[2]) elseif c[2] then h.sim.fail(c[2], -1) end
      assert.are.equal(c[3], v:set("account", c[1]))
      assert.are.same(c[4], h.log_texts())
      assert.are.equal(USER, h.model().system.user_password)
    end
  end)
end)

describe("logInfo", function()
  it("notes logout, lock and unlock exactly, nothing else, and returns 0", function()
    local cases = {
      { "logout", { "5 用户退出并注销普通WEB页面访问。" } },
      { "lock", { "5 用户输入密码错误超过3次已锁定，请等待一分钟后再试。" } },
      { "unlock", { "5 已解锁，用户可重新输入密码尝试登录。" } },
      { "LOCK", {} }, { "", {} }, { "logout ", {} }, { "lock\0x", {} }, { 7, {} },
    }
    for _, c in ipairs(cases) do
      h.sim.clear_logs()
      assert.are.equal(0, v:set("logInfo", c[1]))
      assert.are.same(c[2], h.log_texts())
    end
  end)
end)
