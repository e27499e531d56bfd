-- The project's `uci` for the PC (tools/uci): get, set, commit and show on the files
-- under $VELCONFIG_ROOT/etc/config, answering as the gateway's uci does.
local root = os.tmpname()
os.remove(root)
local CONFIG = root .. "/etc/config"
local STAGED = root .. "/tmp/.uci"

-- Every argument goes to the shell single-quoted; the tests pass only fixed texts.
local function sh_quote(s) return "'" .. s:gsub("'", "'\\''") .. "'" end

-- Runs uci (found on PATH) with the arguments; returns status, stdout, stderr.
local function uci(...)
  local words = { "env", "VELCONFIG_ROOT=" .. sh_quote(root), "uci" }
  for _, a in ipairs({ ... }) do words[#words + 1] = sh_quote(a) end
  local err = os.tmpname()
  local p = io.popen(table.concat(words, " ") .. " 2>" .. sh_quote(err) .. "; echo \"exit $?\"")
  local out = p:read("*a")
  p:close()
  local f = io.open(err)
  local errtext = f:read("*a")
  f:close()
  os.remove(err)
  local status = tonumber(out:match("exit (%d+)\n$"))
  return status, out:gsub("exit %d+\n$", ""), errtext
end

local function read(path)
  local f = io.open(path)
  if not f then return nil end
  local t = f:read("*a")
  f:close()
  return t
end

local function write(path, text)
  local f = assert(io.open(path, "w"))
  f:write(text)
  f:close()
end

local LUCI = table.concat({
  "# LuCI settings: keep this comment",
  "config core 'main'",
  "\toption lang auto   # trailing note",
  "\toption mediaurlbase \"/luci-static/\\\"boot\\\"\"",
  "\tlist ubuspath '/ubus/'",
  "\tlist ubuspath \"/x y/\"",
  "",
  "config internal 'ccache'",
  "\toption enable '1'",
  "",
  "config extern",
  "\toption name 'first'",
  "config extern",
  "\toption name second",
  "",
}, "\n")

describe("uci", function()
  before_each(function()
    os.execute("rm -rf " .. sh_quote(root) .. " && mkdir -p " .. sh_quote(CONFIG))
    write(CONFIG .. "/luci", LUCI)
  end)
  teardown(function() os.execute("rm -rf " .. sh_quote(root)) end)

  it("is the project's own, first on PATH", function()
    local p = io.popen("command -v uci")
    local path = p:read("*l")
    p:close()
    assert.truthy(path:find("/tools/bin/uci$"), path)
  end)

  local reads = {
    { "luci.main.lang", "auto\n" },
    { "luci.main.mediaurlbase", "/luci-static/\"boot\"\n" },
    { "luci.main.ubuspath", "/ubus/ /x y/\n" },
    { "luci.ccache", "internal\n" },
    { "luci.ccache.enable", "1\n" },
    { "luci.@extern[0].name", "first\n" },
    { "luci.@extern[1].name", "second\n" },
    { "luci.@extern[-1].name", "second\n" },
    { "luci.@core[0]", "core\n" },
  }
  for _, c in ipairs(reads) do
    it("get " .. c[1], function()
      local status, out, err = uci("get", c[1])
      assert.are.same({ 0, c[2], "" }, { status, out, err })
    end)
  end

  local failures = {
    { { "get", "luci.ccache.lastregtime" }, 1, "uci: Entry not found\n" },
    { { "get", "luci.nosection.x" }, 1, "uci: Entry not found\n" },
    { { "get", "luci.@extern[2].name" }, 1, "uci: Entry not found\n" },
    { { "get", "noconfig.a.b" }, 1, "uci: Entry not found\n" },
    { { "set", "luci.nosection.x=1" }, 1, "uci: Entry not found\n" },
    { { "get", "luci.bad-name.x" }, 1, "uci: Invalid argument\n" },
    { { "get", "luci.main.x.y" }, 1, "uci: Invalid argument\n" },
    { { "get", "luci.@extern[x].name" }, 1, "uci: Invalid argument\n" },
    { { "get", "../luci.main" }, 1, "uci: Invalid argument\n" },
    { { "set", "luci.main.lang" }, 1, "uci: Invalid argument\n" },
    { { "set", "luci.main.la ng=1" }, 1, "uci: Invalid argument\n" },
    { { "commit", "lu/ci" }, 1, "uci: Invalid argument\n" },
    { { "set", "luci.main.lang=two\nlines" }, 1, "uci: Invalid argument\n" },
    { { "commit", "noconfig" }, 1, "uci: Entry not found\n" },
    { { "-q", "get", "luci.main.none" }, 1, "" },
  }
  for _, c in ipairs(failures) do
    it("fails: " .. table.concat(c[1], " "), function()
      local status, out, err = uci(unpack(c[1]))
      assert.are.same({ c[2], "", c[3] }, { status, out, err })
      assert.are.equal(LUCI, read(CONFIG .. "/luci"))
    end)
  end

  it("commits every staged configuration, untroubled by a set that failed", function()
    write(CONFIG .. "/other", "config a 's'\n")
    assert.are.equal(1, uci("set", "noconfig.s.o=1"))
    assert.are.equal(0, uci("set", "other.s.o=1"))
    assert.are.equal(0, uci("set", "luci.main.lang=en"))
    assert.are.same({ 0, "", "" }, { uci("commit") })
    assert.are.equal("config a 's'\n\toption o '1'\n", read(CONFIG .. "/other"))
    assert.truthy(read(CONFIG .. "/luci"):find("\toption lang 'en'\n", 1, true))
  end)

  it("prints its usage and exits 255 for an unknown command", function()
    local status, _, err = uci("frobnicate")
    assert.are.equal(255, status)
    assert.truthy(err:find("Usage: uci", 1, true))
  end)

  it("reports a parse error with its line", function()
    write(CONFIG .. "/broken", "option x 1\n")
    assert.are.same({ 1, "", "uci: Parse error (option/list command found before the first section) at line 1\n" },
                    { uci("get", "broken.a.x") })
  end)

  it("stages a set across runs, and commit writes only what changed", function()
    assert.are.equal(0, uci("set", "luci.ccache.lastregtime=123"))
    assert.are.equal(0, uci("set", "luci.main.lang=en"))
    assert.are.equal(0, uci("set", "luci.@extern[-1].name=it's \"quoted\" $HOME"))
    assert.are.equal(0, uci("set", "luci.fresh=thing"))
    assert.are.equal(0, uci("set", "luci.fresh.opt=v"))
    assert.are.equal(0, uci("set", "luci.main.ubuspath="))
    -- staged: the file is untouched, get already answers with the change
    assert.are.equal(LUCI, read(CONFIG .. "/luci"))
    assert.are.same({ 0, "123\n", "" }, { uci("get", "luci.ccache.lastregtime") })
    assert.are.same({ 1, "", "uci: Entry not found\n" }, { uci("get", "luci.main.ubuspath") })

    assert.are.equal(0, uci("commit", "luci"))
    assert.are.equal(table.concat({
      "# LuCI settings: keep this comment",
      "config core 'main'",
      "\toption lang 'en'",
      "\toption mediaurlbase \"/luci-static/\\\"boot\\\"\"",
      "",
      "config internal 'ccache'",
      "\toption enable '1'",
      "\toption lastregtime '123'",
      "",
      "config extern",
      "\toption name 'first'",
      "config extern",
      "\toption name 'it'\\''s \"quoted\" $HOME'",
      "",
      "config thing 'fresh'",
      "\toption opt 'v'",
      "",
    }, "\n"), read(CONFIG .. "/luci"))
    assert.are.equal("", read(STAGED .. "/luci"))
    assert.are.same({ 0, "it's \"quoted\" $HOME\n", "" }, { uci("get", "luci.@extern[1].name") })
    assert.are.same({ 0, "thing\n", "" }, { uci("get", "luci.fresh") })
  end)

  it("shows a configuration with anonymous sections by type and index", function()
    uci("set", "luci.main.lang=en")
    local status, out = uci("show", "luci")
    assert.are.equal(0, status)
    assert.are.equal(table.concat({
      "luci.main=core", "luci.main.lang='en'", "luci.main.mediaurlbase='/luci-static/\"boot\"'",
      "luci.main.ubuspath='/ubus/' '/x y/'", "luci.ccache=internal", "luci.ccache.enable='1'",
      "luci.@extern[0]=extern", "luci.@extern[0].name='first'", "luci.@extern[1]=extern",
      "luci.@extern[1].name='second'", "" }, "\n"), out)
  end)

  it("replaces the file whole, keeping its mode, with no temporary file left", function()
    os.execute("chmod 600 " .. sh_quote(CONFIG .. "/luci"))
    local before = assert(io.open(CONFIG .. "/luci"))
    uci("set", "luci.main.lang=en")
    uci("commit")
    -- a reader that opened the old file still reads all of the old one
    assert.are.equal(LUCI, before:read("*a"))
    before:close()
    local p = io.popen("ls -A " .. sh_quote(CONFIG) .. "; stat -c %a " .. sh_quote(CONFIG .. "/luci"))
    assert.are.equal("luci\n600\n", p:read("*a"))
    p:close()
  end)

  it("keeps every one of many sets run at once with commits", function()
    local script, env = {}, "env VELCONFIG_ROOT=" .. sh_quote(root)
    for i = 1, 40 do
      script[#script + 1] = env .. " uci set luci.ccache.o" .. i .. "=v" .. i .. " &"
      if i % 2 == 0 then script[#script + 1] = env .. " uci commit luci &" end
    end
    os.execute(table.concat(script, "\n") .. "\nwait")
    assert.are.equal(0, uci("commit", "luci"))
    for i = 1, 40 do
      assert.are.same({ 0, "v" .. i .. "\n", "" }, { uci("get", "luci.ccache.o" .. i) })
    end
  end)
end)
