-- The simulator's state file shared by processes: every operation works on the
-- file's current contents under its lock, a change that cannot be saved fails and is
-- undone, and a file that cannot be read is never overwritten.
local h = require "helpers"
local cjson = h.cjson
local v = h.velconfig

local lua = assert(os.getenv("VELCONFIG_LUA"), "VELCONFIG_LUA names the interpreter the suite runs under")
local quote, shell, cli = h.quote, h.shell, h.cli

-- A Lua program run by the suite's own interpreter, as a long-lived process (a web
-- console) would use the module: one process, many calls, one state file.
local function lua_program(source)
  local path = os.tmpname()
  local f = assert(io.open(path, "w"))
  f:write("local sim = require 'velconfig_simctl'\n", "sim.set_root(", string.format("%q", h.root), ")\n",
    "sim.use_state_file(arg[1])\n", "local v = require 'velconfig'\n", source)
  f:close()
  return path
end

local function saved(state)
  local f = assert(io.open(state))
  local m = cjson.decode(f:read("*a"))
  f:close()
  return m
end

-- Files may not grow beyond 1 KiB (EFBIG instead of a signal): every save of a whole
-- gateway fails, while the state file stays readable and a message still fits.
local function no_file_growth(line) return "trap '' XFSZ; ulimit -f 2; " .. line end

describe("a state file shared by processes", function()
  local state
  before_each(function()
    h.reset()
    state = os.tmpname()
    os.remove(state)
  end)
  after_each(function()
    h.sim.use_state_file("")
    os.remove(state)
    os.remove(state .. ".lock")
  end)

  it("loses no write of two CLI runs in parallel, 200 each", function()
    assert.are.equal(0, (shell(cli(state, "get", "devType"))))
    local writers = {}
    for _, w in ipairs({ "a", "b" }) do
      local runs = {}
      for i = 1, 100 do
        runs[#runs + 1] = cli(state, "set", "pmSetSingle", "op=add", "desp=" .. w .. i, "client=192.168.1.20",
          "protocol=TCP", "exPort=" .. i, "inPort=22") .. " >/dev/null || echo " .. w .. i
        runs[#runs + 1] = cli(state, "set", "reboot") .. " >/dev/null || echo reboot"
      end
      writers[#writers + 1] = "( " .. table.concat(runs, "; ") .. " ) &"
    end
    local status, failed, err = shell(table.concat(writers, " ") .. " wait")
    assert.are.same({ 0, "", "" }, { status, failed, err })
    local m = saved(state)
    assert.are.equal(201, m.device.boot_count)
    local ids, names = {}, {}
    for _, rule in ipairs(m.port_mappings) do
      assert.is_nil(ids[rule.id])
      ids[rule.id] = true
      names[rule.description] = true
    end
    assert.are.equal(202, #m.port_mappings)
    for i = 1, 100 do assert.is_true(names["a" .. i] and names["b" .. i]) end
  end)

  it("loses no write of two long-lived processes in parallel, 200 each, each seeing the other's", function()
    local program = lua_program([[
      local tag = arg[2]
      for i = 1, 100 do
        local code = v:set("ddns", { add = "1", enable = "1", provider = "p", domain = tag .. i .. ".example.org",
          hostname = "gw", username = "u", passwd = "p" })
        assert(code == 0, "ddns add " .. code)
        assert(v:set("reboot") == 0)
      end
      -- whatever the other process saved is part of this one's model now
      print(v:get("ddns").count)
    ]])
    h.sim.use_state_file(state)
    local line = ""
    for _, w in ipairs({ "a", "b" }) do
      line = line .. lua .. " " .. quote(program) .. " " .. quote(state) .. " " .. w .. " & "
    end
    local status, out, err = shell(line .. "wait")
    os.remove(program)
    assert.are.same({ 0, "" }, { status, err })
    local counts = {}
    for n in out:gmatch("%d+") do counts[#counts + 1] = tonumber(n) end
    table.sort(counts)
    assert.are.equal(201, counts[2])
    assert.is_true(counts[1] >= 101)
    -- and this process, which loaded the file before both, sees their writes too
    assert.are.equal(201, h.model().device.boot_count)
    assert.are.equal(201, v:get("ddns").count)
  end)

  it("fails an operation, never overwriting it, while the file cannot be read; goes on once it can", function()
    h.sim.use_state_file(state)
    local f = assert(io.open(state, "w"))
    f:write("{ half a gateway")
    f:close()
    h.sim.clear_journal()
    assert.are.equal(0, v:set("reboot"))
    local reboots = h.calls("ZoVelSysCmdReboot")
    assert.are.equal(1, #reboots)
    assert.matches("cannot read state file " .. state, h.sim.state_error(), 1, true)
    assert.are.equal(-5, v:set("ddns", { add = "1", enable = "1", provider = "p", domain = "x.org", hostname = "h",
      username = "u", passwd = "p" }))
    assert.matches("cannot read state file", h.sim.state_error(), 1, true)
    f = assert(io.open(state))
    assert.are.equal("{ half a gateway", f:read("*a"))
    f:close()
    local m = cjson.decode(h.sim.default_model())
    m.device.boot_count = 7
    f = assert(io.open(state, "w"))
    f:write(cjson.encode(m))
    f:close()
    v:set("reboot")
    assert.are.equal(8, saved(state).device.boot_count)
    assert.is_nil(h.sim.state_error())
  end)

  it("fails a change that cannot be saved (the CLI exits 1 with the reason, a process undoes it), keeping the file", function()
    assert.are.equal(0, (shell(cli(state, "get", "devType"))))
    local status, out, err = shell(no_file_growth(cli(state, "set", "reboot")))
    assert.are.same({ 1, "0\n" }, { status, out })
    assert.matches("^velconfig: cannot save state file " .. state:gsub("%p", "%%%0") .. ": .*File too large\n$", err)
    status, out, err = shell(no_file_growth(cli(state, "set", "ddns", "add=1", "enable=1", "provider=p",
      "domain=x.org", "hostname=h", "username=u", "passwd=p")))
    assert.are.same({ 1, "-5\n" }, { status, out })
    assert.matches("cannot save state file", err, 1, true)
    local program = lua_program([[
      local add = { add = "1", enable = "1", provider = "p", domain = "x.org", hostname = "h", username = "u",
        passwd = "p" }
      print(v:set("ddns", add), v:get("ddns").count, sim.state_error() ~= nil, (sim.state_error()))
    ]])
    status, out, err = shell(no_file_growth(lua .. " " .. quote(program) .. " " .. quote(state)))
    os.remove(program)
    assert.are.same({ 0, "-5\t1\ttrue\tnil\n", "" }, { status, out, err })
    local m = saved(state)
    assert.are.same({ 1, 1 }, { m.device.boot_count, #m.ddns })
    -- a lock another process holds is waited on for a bounded time, then reported
    status, out, err = shell("flock " .. quote(state .. ".lock") .. " sleep 3 & sleep 0.3; VELCONFIG_SIM_LOCK_WAIT_MS=300 " ..
      cli(state, "get", "devType"))
    assert.are.same({ 1, "" }, { status, out })
    assert.matches("another process has held its lock for 300 ms", err, 1, true)
    -- and a state file that cannot even be created fails the run before anything
    status, out, err = shell(cli("/proc/velconfig-none/gateway.json", "set", "reboot"))
    assert.are.same({ 1, "" }, { status, out })
    assert.matches("^velconfig: cannot use state file /proc/velconfig%-none/gateway.json: ", err)
  end)

  it("is one default gateway for a page script and the CLI, with a private root beside it, refused when others can write it", function()
    local home = os.tmpname()
    os.remove(home)
    local env = "env -u VELCONFIG_SIM_STATE -u VELCONFIG_ROOT XDG_STATE_HOME=" .. quote(home) .. " "
    local tool = quote(os.getenv("VELCONFIG_TOOL"))
    local page = os.tmpname()
    local f = assert(io.open(page, "w"))
    f:write('local v = require "velconfig"\n',
      'print(v:set("usbModifyLabel", { instno = "2", newLabel = arg[1] }), v:get("newFolder", "/mnt/usb1_1/" .. arg[1]).fileNum)\n')
    f:close()
    local function script(word, extra) return shell(env .. (extra or "") .. lua .. " " .. quote(page) .. " " .. word) end
    local status, out, err = script("FromPage")
    assert.are.same({ 0, "", true }, { status, err, tonumber(out:match("^0\t(%d+)\n$")) > 1 })
    local _, listed = shell(env .. tool .. " get usbDevices")
    assert.are.equal("FromPage", cjson.decode(listed).storage1.label)
    local root = home .. "/velconfig/gateway.root"
    assert.truthy(io.open(root .. "/mnt/usb1_1/FromPage"))
    assert.are.equal("700 700\n", select(2, shell("stat -c %a " .. quote(root) .. " " .. quote(home .. "/velconfig") .. " | paste -sd ' '")))
    -- another state file is another gateway, with its own root, for both alike
    local other = home .. "/other.json"
    status, out = script("Other", "VELCONFIG_SIM_STATE=" .. quote(other) .. " ")
    assert.are.same({ 0, true }, { status, tonumber(out:match("^0\t(%d+)\n$")) > 1 })
    _, listed = shell(env .. tool .. " --state " .. quote(other) .. " get usbDevices")
    assert.are.equal("Other", cjson.decode(listed).storage1.label)
    assert.truthy(io.open(home .. "/other.root/mnt/usb1_1/Other"))
    assert.is_nil(io.open(root .. "/mnt/usb1_1/Other"))
    -- a root others can write is refused with the reason, by the CLI and the page alike
    shell("chmod 0777 " .. quote(root))
    status, out, err = shell(env .. tool .. " get subFiles /mnt/usb1_1")
    assert.are.same({ 1, "" }, { status, out })
    assert.matches("^velconfig: file root " .. root:gsub("%p", "%%%0") .. " is writable by others %(mode 0777%)", err)
    status, out, err = script("Refused")
    assert.are.same({ 0, "0\t0\n" }, { status, out })
    assert.matches("velconfig simulator: file root .* is writable by others", err)
    shell("rm -rf " .. quote(home) .. " " .. quote(page))
  end)
end)
