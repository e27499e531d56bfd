-- Application parameters: /etc/config files read as tables, and changed through uci
-- from a JSON text, working from a backup copy that is removed again.
local h = require "helpers"
local v = h.velconfig
local sim = h.sim

-- A folder holding one program called uci: records each call's arguments (each
-- followed by "|") and the module's backups in /etc/config at that moment (hidden
-- files, their random ending shown as *), then exits with status.
local function fake_uci(status)
  local dir = os.tmpname()
  os.remove(dir)
  os.execute("mkdir -p " .. dir)
  local f = assert(io.open(dir .. "/uci", "w"))
  f:write('#!/bin/sh\nlog="$VELCONFIG_ROOT/uci-calls"\nfor a in "$@"; do printf "%s|" "$a" >>"$log"; done\n',
    'printf " backups:%s\\n" "$(cd "$VELCONFIG_ROOT/etc/config" && ls -A | grep "^\\." | sed "s/\\.[^.]*$/.*/")" ',
    '>>"$log"\nexit ',
    status, "\n")
  f:close()
  os.execute("chmod +x " .. dir .. "/uci")
  return dir
end
local working_uci, failing_uci = fake_uci(0), fake_uci(1)

local function uci_calls()
  local text = h.read_file("/uci-calls") or ""
  local calls = {}
  for line in text:gmatch("[^\n]+") do calls[#calls + 1] = line end
  return calls
end

local FILE = table.concat({
  "config app 'main'",
  "\toption enabled '1'",
  "\toption mode 'auto'",
  "config empty 'between'",
  "config app",
  "\toption hidden '1'",
  "config rule ''",
  "\toption hidden '2'",
  "config rule 'r1'",
  "\tlist mac 'AA'",
  "\t# option commented '1'",
  "\toption blank ''",
  "\toption note 'x'",
  "",
}, "\n")

-- The module's backups left in /etc/config (hidden files), one name a line.
local function backups_left()
  local _, out = h.shell("ls -A " .. h.quote(h.file("/etc/config")) .. " | grep '^\\.' || true")
  return out
end

local function config(name, text)
  h.write_file("/etc/config/" .. name, text or FILE)
end

local function paras(json)
  os.remove(h.file("/uci-calls"))
  return v:set("setAppParas", json)
end

describe("getAppParas", function()
  before_each(function() h.reset() end)

  it("keeps quotes, skips unnamed sections, short values and other lines, and splits words at 63 characters, lines at 127", function()
    config("demo")
    assert.are.same({ ret = 1, ["'main'"] = { enabled = "'1'", mode = "'auto'" }, ["'r1'"] = { note = "'x'" } },
      v:get("getAppParas", "demo"))
    local long = string.rep("v", 100)
    config("words", "config app 'main'\n\toption key '" .. long .. "'\n\toption " .. string.rep("n", 40) ..
      " '" .. string.rep("w", 120) .. "'\noption " .. string.rep("k", 70) .. " 'tail'\n")
    assert.are.same({ ret = 1, ["'main'"] = { key = "'" .. long:sub(1, 62),
      [string.rep("n", 40)] = "'" .. string.rep("w", 62), [string.rep("k", 63)] = string.rep("k", 7) } },
      v:get("getAppParas", "words"))
  end)

  it("answers only ret 0 for no name, a missing file, a cut path or a name that leaves the folder", function()
    h.write_file("/etc/secret", FILE)
    config("-x")
    config("  ")
    config(string.rep("a", 50))
    config(string.rep("b", 51))
    config("my app")
    assert.are.equal(1, v:get("getAppParas", string.rep("a", 50)).ret)
    -- a blank inside a name is an ordinary character of a file's name
    assert.are.equal(1, v:get("getAppParas", "my app").ret)
    for _, name in ipairs({ "", "nothere", string.rep("b", 51), "../secret", "/etc/secret", "-x", "  ", "." }) do
      assert.are.same({ ret = 0 }, v:get("getAppParas", name))
    end
    assert.are.same({ ret = 0 }, v:get("getAppParas"))
  end)
end)

describe("setAppParas", function()
  before_each(function()
    h.reset()
    sim.set_tools_dir(working_uci)
    config("demo")
  end)
  after_each(function() sim.set_tools_dir(os.getenv("VELCONFIG_TOOLS_DIR") or "") end)

  it("sets each named option with the backup in place, commits once, and removes the backup", function()
    -- the user's own demo.bak is no business of the write
    h.write_file("/etc/config/demo.bak", "mine")
    assert.are.equal(0, paras('{"config":"demo","main.mode":"' .. string.rep("m", 63) ..
      '","r1.note":"n; rm -rf / #","main.enabled":"0"}'))
    assert.are.same({ "set|demo.main.enabled=0| backups:.demo.*",
      "set|demo.main.mode=" .. string.rep("m", 63) .. "| backups:.demo.*",
      "set|demo.r1.note=n; rm -rf / #| backups:.demo.*", "commit|demo| backups:" }, uci_calls())
    assert.are.same({ FILE, "mine" }, { h.read_file("/etc/config/demo"), h.read_file("/etc/config/demo.bak") })
    -- nor is a link of that name, or what it points to
    os.remove(h.file("/etc/config/demo.bak"))
    h.write_file("/etc/other", "other")
    os.execute("ln -s " .. h.quote(h.file("/etc/other")) .. " " .. h.quote(h.file("/etc/config/demo.bak")))
    assert.are.equal(-1, paras('{"config":"demo","main.enabled":"0"}'))
    assert.are.same({ 0, "other", "other" }, { (h.shell("test -L " .. h.quote(h.file("/etc/config/demo.bak")))),
      h.read_file("/etc/config/demo.bak"), h.read_file("/etc/other") })
    os.remove(h.file("/etc/config/demo.bak"))
  end)

  it("reads the backup in pieces of 159 characters, each parsed as a line", function()
    -- the second option starts at the 159th character: it is cut, so it is no option
    local first = "\toption a 'x'"
    config("long", "config app 'main'\n" .. first .. (" "):rep(158 - #first) .. "option b 'yy'\n")
    assert.are.equal(0, paras('{"config":"long","main.a":"1","main.b":"2"}'))
    assert.are.same({ "set|long.main.a=1| backups:.long.*", "commit|long| backups:" }, uci_calls())
  end)

  it("answers the outcome of the last lookup", function()
    assert.are.equal(-1, paras('{"config":"demo","main.enabled":"0"}'))
    assert.are.same({ "set|demo.main.enabled=0| backups:.demo.*", "commit|demo| backups:" }, uci_calls())
    -- unnamed sections are skipped, and a member that is not text does not count
    assert.are.equal(-1, paras('{"config":"demo","main.enabled":0,"rule.hidden":"3","r1.blank":"x"}'))
    assert.are.same({}, uci_calls())
    config("plain", "config app 'main'\n\tlist x 'y'\n")
    assert.are.equal(0, paras('{"config":"plain","main.x":"z"}'))
    assert.are.same({}, uci_calls())
  end)

  it("answers 1 without JSON, a text config or values that fit, 0 for a name it will not use, touching nothing", function()
    config("-demo")
    config("  ")
    config("de mo")
    config("de.mo")
    config("de")
    local cases = {
      { "not json", 1 }, { '{"main.enabled":"0"}', 1 }, { '{"config":7}', 1 }, { '["config"]', 1 },
      { '{"config":"demo\\u0000x","main.enabled":"0"}', 1 },
      { '{"config":"","main.enabled":"0"}', 0 }, { '{"config":"  ","main.enabled":"0"}', 0 },
      { '{"config":"nothere","main.enabled":"0"}', 0 }, { '{"config":"../config/demo","main.enabled":"0"}', 0 },
      { '{"config":"-demo","main.enabled":"0"}', 0 }, { '{"config":"de\\nmo","main.enabled":"0"}', 0 },
      { '{"config":"..","main.enabled":"0"}', 0 },
      -- uci cannot name "de mo", and would take "de.mo.main.enabled" for the file "de"
      { '{"config":"de mo","main.enabled":"0"}', 0 }, { '{"config":"de.mo","main.enabled":"0"}', 0 },
      -- a value over 63 bytes is never stored cut, half a character least of all
      { '{"config":"demo","main.mode":"' .. string.rep("m", 64) .. '","main.enabled":"0"}', 1 },
      { '{"config":"demo","main.mode":"' .. string.rep("\\u00e9", 32) .. '"}', 1 },
      { '{"config":"' .. string.rep("d", 64) .. '","main.enabled":"0"}', 1 },
    }
    for _, c in ipairs(cases) do
      assert.are.equal(c[2], paras(c[1]), c[1])
      assert.are.same({}, uci_calls())
      assert.are.same({ FILE, FILE, FILE }, { h.read_file("/etc/config/demo"), h.read_file("/etc/config/de mo"),
        h.read_file("/etc/config/de") }, c[1])
    end
    assert.are.equal("", backups_left())
    -- the input is a JSON text: a table or no input at all is not JSON
    assert.are.same({ 1, 1 }, { v:set("setAppParas", { config = "demo" }), v:set("setAppParas") })
    assert.are.equal("", backups_left())
  end)

  it("answers as written whatever uci does, and never leaves the backup", function()
    sim.set_tools_dir(failing_uci)
    assert.are.equal(0, paras('{"config":"demo","main.mode":"m","r1.note":"n","main.enabled":"e"}'))
    assert.are.equal(4, #uci_calls())
    -- a uci that cannot be started at all
    local broken = os.tmpname()
    os.remove(broken)
    os.execute("mkdir -p " .. broken .. "/uci")
    sim.set_tools_dir(broken)
    assert.are.equal(-1, paras('{"config":"demo","main.enabled":"0"}'))
    assert.are.equal("", backups_left())
    assert.are.equal(FILE, h.read_file("/etc/config/demo"))
  end)

  it("changes a default application through the project's uci, seen by the next read and by uci", function()
    local tools = (os.getenv("VELCONFIG_TOOL"):gsub("velconfig$", "tools/bin"))
    sim.set_tools_dir(tools)
    os.remove(h.file("/etc/config/familycare"))
    assert.are.equal(-1, paras('{"config":"familycare","main.enabled":"0","night.start":"23:15"}'))
    local after = v:get("getAppParas", "familycare")
    assert.are.same({ "'0'", "'23:15'", "'07:00'" }, { after["'main'"].enabled, after["'night'"].start,
      after["'night'"].stop })
    assert.are.equal("", backups_left())
    assert.are.equal("23:15\n",
      select(2, h.shell("VELCONFIG_ROOT=" .. h.quote(h.root) .. " " .. h.quote(tools .. "/uci") .. " get familycare.night.start")))
  end)
end)
