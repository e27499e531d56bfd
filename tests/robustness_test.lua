-- Every key with every kind of argument: the documented result or a Lua error, never
-- a crash. Also keeps inputs that once crashed as regression cases.
local h = require "helpers"
local v = h.velconfig

-- Every key the dispatchers know, from the catalogue the build generates.
local GET_KEYS, SET_KEYS = {}, {}
for _, k in ipairs(h.cjson.decode(assert(io.open(os.getenv("VELCONFIG_CATALOGUE"))):read("*a"))) do
  table.insert(k.call == "get" and GET_KEYS or SET_KEYS, k.key)
end
assert(#GET_KEYS == 37 and #SET_KEYS == 25, "the catalogue lists every key")

local long = string.rep("x", 5000)
local binary = "\0\1\2\255\254" .. string.rep("\0", 40)
local TEXTS = { "", "0", "1", "-1", "7", "all", "99999999999999999999", long, binary, "/mnt/usb1_1", 42 }

-- A table whose every field is the same hostile text.
local function hostile_table(text)
  return setmetatable({}, { __index = function() return text end })
end

local INPUTS = { nil, true, 12, "text", long, binary, {}, function() end, coroutine.create(function() end),
  hostile_table(long), hostile_table(binary), hostile_table(""), { a = {} } }

-- A field that is no text, or an input that cannot be indexed.
local function acceptable_set_error(err)
  local text = tostring(err)
  return text:find("string expected", 1, true) ~= nil or text:find("attempt to index", 1, true) ~= nil
end

describe("hostile input", function()
  before_each(function()
    h.reset()
    -- no platform operation can block or reach outside while keys are hammered
    h.sim.fail("ZoVelSysCmdReboot", 0)
  end)

  it("get answers every key with any texts without failing", function()
    for _, key in ipairs(GET_KEYS) do
      for _, a1 in ipairs(TEXTS) do
        for _, a2 in ipairs({ "1", long, binary }) do
          local ok, err = pcall(v.get, v, key, a1, a2)
          assert(ok, key .. ": " .. tostring(err))
        end
      end
    end
  end)

  it("set gives a number or a Lua argument error for every key and input", function()
    for _, key in ipairs(SET_KEYS) do
      for i = 1, #INPUTS + 1 do
        local input = INPUTS[i]
        local ok, result = pcall(v.set, v, key, input)
        if ok then
          assert.are.equal("number", type(result), key)
        else
          assert(acceptable_set_error(result), key .. ": " .. tostring(result))
        end
        -- the log is closed whatever happened
        local ops = h.ops()
        assert.are.equal("ZoVelLogClose", ops[#ops], key)
        h.sim.clear_journal()
      end
    end
  end)

  it("every key keeps working when every platform operation it calls fails", function()
    -- the login checks and notes take a text, not a table
    local TEXT_INPUT = { checkTAPasswd = true, checkUAPasswd = true, logInfo = true }
    local function every_key()
      for _, key in ipairs(GET_KEYS) do
        local ok, err = pcall(v.get, v, key, "1", "1")
        assert(ok, key .. ": " .. tostring(err))
      end
      for _, key in ipairs(SET_KEYS) do
        local ok, result = pcall(v.set, v, key, TEXT_INPUT[key] and "1" or hostile_table("1"))
        assert(ok, key .. ": " .. tostring(result))
        assert.are.equal("number", type(result), key)
      end
    end
    -- a first round names the operations these calls reach; the log is left working
    every_key()
    for _, e in ipairs(h.sim.journal()) do
      if not e.op:find("^ZoVelLog") then h.sim.fail(e.op, -9) end
    end
    every_key()
  end)
end)

describe("a Lua error in the middle of a call", function()
  before_each(function() h.reset() end)
  after_each(function()
    collectgarbage("setpause", 200)
    collectgarbage("setstepmul", 200)
  end)

  -- Off under LuaJIT: an error raised from a __gc metamethod in the middle of an
  -- allocation crashes LuaJIT itself (with or without this module), so there is
  -- nothing of ours to check there.
  local it_unless_luajit = rawget(_G, "jit") == nil and it or pending
  it_unless_luajit("still releases the platform's lists, closes the log and comes back as raised", function()
    -- Finalizers that fail while the module builds a result: each allocation of the
    -- call may run one, and its error jumps out of the middle of the handler.
    local inside = false
    local function failing_garbage(n)
      for _ = 1, n do
        local p = newproxy(true)
        getmetatable(p).__gc = function() if inside then error("finalizer failed", 0) end end
      end
    end
    local calls = {
      { "get", "hostsInfo", "7" }, { "get", "allInfo" }, { "get", "gwStatus" }, { "get", "gwInfo", "all" },
      { "get", "ddns" }, { "get", "pmLists" }, { "get", "blackHosts" }, { "set", "pmSetAll", { op = "enable" } },
    }
    -- A finalizer runs only in the collector's last phase, so whether one falls inside
    -- a call depends on where the cycle stands. Short cycles (no pause, large steps)
    -- bring that phase round often; the calls go round, with a different amount of
    -- garbage before each, until enough of them were cut short (the rate depends on
    -- the heap's size, so the count of attempts is not fixed).
    collectgarbage("setpause", 0)
    collectgarbage("setstepmul", 2000)
    local raised, attempts = 0, 0
    while raised < 5 and attempts < 50000 do
      attempts = attempts + 1
      local call = calls[attempts % #calls + 1]
      failing_garbage(1 + attempts % 37)
      h.sim.clear_journal()
      local ok, err = pcall(function()
        inside = true
        v[call[1]](v, unpack(call, 2))
        inside = false
      end)
      inside = false
      if not ok then assert.are.equal("finalizer failed", err) end
      -- a finalizer may also fail before the call reaches the module at all
      local ops = h.ops()
      if #ops > 0 then
        assert.are.equal("ZoVelLogClose", ops[#ops])
        if not ok then raised = raised + 1 end
      end
    end
    assert.are.equal(5, raised)
  end)

  it("a metamethod that calls the module again leaves the outer call's lists alone", function()
    local input = setmetatable({}, { __index = function()
      v:get("ddns")
      v:get("blackHosts")
      return "del"
    end })
    assert.are.equal(0, v:set("pmSetAll", input))
    assert.are.equal(0, v:get("pmLists").count)
  end)

  it("passes an error object raised while reading a field on unchanged", function()
    local object = { code = 7 }
    local input = setmetatable({}, { __index = function() error(object) end })
    local ok, err = pcall(function() return v:set("lan", input) end)
    assert.is_false(ok)
    assert.are.equal(object, err)
    local ops = h.ops()
    assert.are.equal("ZoVelLogClose", ops[#ops])
  end)
end)

describe("a key holding a NUL byte", function()
  before_each(function() h.reset() end)

  it("is an unknown key to get and set, whatever it starts with, and runs nothing", function()
    local input = hostile_table("1")
    local before = h.model()
    for _, suffix in ipairs({ "\0", "\0x", "\0\0" }) do
      for _, key in ipairs(GET_KEYS) do
        h.sim.clear_journal()
        assert.is_nil(v:get(key .. suffix, "1", "1"), key)
        assert.are.same({ "ZoVelLogOpen", "ZoVelLogClose" }, h.ops(), key)
      end
      for _, key in ipairs(SET_KEYS) do
        h.sim.clear_journal()
        assert.are.equal(1, v:set(key .. suffix, input), key)
        assert.are.same({ "ZoVelLogOpen", "ZoVelLogClose" }, h.ops(), key)
      end
    end
    assert.are.same(before, h.model())
  end)
end)
