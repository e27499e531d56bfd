-- The project's `uci` for the PC (tools/uci, first on the suite's PATH) on the files
-- under $VELCONFIG_ROOT/etc/config, answering and writing as the gateway's uci does
-- (each answer below is OpenWrt's; tests/real_uci compares the two at random).
local h = require "helpers"

-- Runs uci on the test's file root; returns status, stdout, stderr.
local function uci(...)
  local words = { "VELCONFIG_ROOT=" .. h.quote(h.root), "uci" }
  for _, a in ipairs({ ... }) do words[#words + 1] = h.quote(a) end
  return h.shell(table.concat(words, " "))
end

local function config(name) return h.read_file("/etc/config/" .. name) end

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
    h.fresh_root()
    h.write_file("/etc/config/luci", LUCI)
  end)
  teardown(function() os.execute("rm -rf " .. h.quote(h.root)) end)

  local reads = {
    { "luci.main.lang", "auto\n" },
    { "luci.main.mediaurlbase", "/luci-static/\"boot\"\n" },
    { "luci.main.ubuspath", "/ubus/ '/x y/'\n" },
    { "luci.ccache", "internal\n" },
    { "luci.ccache.enable", "1\n" },
    { "luci.@extern[0].name", "first\n" },
    { "luci.@extern[1].name", "second\n" },
    { "luci.@extern[-1].name", "second\n" },
    { "luci.@core[0]", "core\n" },
    { "luci.@[2]", "extern\n" },
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
    { { "set", "luci.nosection.x=1" }, 1, "uci: Invalid argument\n" },
    { { "get", "luci.bad-name.x" }, 1, "uci: Invalid argument\n" },
    { { "get", "luci.main.x.y" }, 1, "uci: Parse error\n" },
    { { "get", "luci.@extern[x].name" }, 1, "uci: Invalid argument\n" },
    { { "get", "../luci.main" }, 1, "uci: Parse error\n" },
    { { "set", "luci.main.lang" }, 1, "uci: Invalid argument\n" },
    { { "set", "luci.main=bad type" }, 1, "uci: Invalid argument\n" },
    { { "set", "luci.main.lang=ctl\1" }, 1, "uci: Parse error\n" },
    { { "commit", "noconfig" }, 1, "uci: Entry not found\n" },
    -- OpenWrt's takes a value over several lines; this one refuses it (docs/cli.md)
    { { "set", "luci.main.lang=two\nlines" }, 1, "uci: Invalid argument\n" },
    { { "add", "noconfig", "x" }, 3, "uci: Entry not found\n" },
    { { "delete", "luci" }, 1, "uci: Invalid argument\n" },
    { { "rename", "luci.main" }, 1, "uci: Invalid argument\n" },
    { { "rename", "luci.none=x" }, 1, "uci: Entry not found\n" },
    { { "-q", "get", "luci.main.none" }, 1, "" },
  }
  for _, c in ipairs(failures) do
    it("fails: " .. table.concat(c[1], " "), function()
      local status, out, err = uci(unpack(c[1]))
      assert.are.same({ c[2], "", c[3] }, { status, out, err })
      assert.are.equal(LUCI, config("luci"))
    end)
  end

  it("commits every staged configuration, untroubled by a set that failed, each file replaced whole", function()
    h.write_file("/etc/config/other", "config a 's'\n")
    os.execute("chmod 600 " .. h.quote(h.file("/etc/config/luci")))
    local before = assert(io.open(h.file("/etc/config/luci")))
    assert.are.equal(1, uci("set", "noconfig.s.o=1"))
    assert.are.equal(0, uci("set", "other.s.o=1"))
    assert.are.equal(0, uci("set", "luci.main.lang=en"))
    assert.are.same({ 0, "", "" }, { uci("commit") })
    assert.are.equal("\nconfig a 's'\n\toption o '1'\n\n", config("other"))
    assert.truthy(config("luci"):find("\toption lang 'en'\n", 1, true))
    -- a reader that opened the old file still reads all of the old one; the mode is
    -- kept, and no temporary file is left
    assert.are.equal(LUCI, before:read("*a"))
    before:close()
    local _, out = h.shell("ls -A " .. h.quote(h.file("/etc/config")) .. "; stat -c %a " .. h.quote(h.file("/etc/config/luci")))
    assert.are.equal("luci\nother\n600\n", out)
  end)

  it("prints its usage and exits 255 for an unknown command, and reports a parse error with its line", function()
    local status, _, err = uci("frobnicate")
    assert.are.equal(255, status)
    assert.truthy(err:find("Usage: uci", 1, true))
    h.write_file("/etc/config/broken", "option x 1\n")
    assert.are.same({ 1, "", "uci: Parse error (option/list command found before the first section) at line 1\n" },
                    { uci("get", "broken.a.x") })
  end)

  it("stages changes across runs, and commit writes the whole file as uci does", function()
    assert.are.equal(0, uci("set", "luci.ccache.lastregtime=123"))
    assert.are.equal(0, uci("set", "luci.main.lang=en"))
    assert.are.equal(0, uci("set", "luci.@extern[-1].name=it's \"quoted\" $HOME"))
    assert.are.equal(0, uci("set", "luci.fresh=thing"))
    assert.are.equal(0, uci("set", "luci.fresh.opt=v"))
    assert.are.equal(0, uci("set", "luci.main.ubuspath="))
    assert.are.equal(0, uci("set", "luci.main.lang=en")) -- no change, nothing staged
    -- staged under the anonymous section's made name: the file is untouched, and get
    -- already answers with the changes
    assert.are.equal(table.concat({ "luci.ccache.lastregtime='123'", "luci.main.lang='en'",
      "luci.cfg04e17b.name='it'\\''s \"quoted\" $HOME'", "luci.fresh='thing'", "luci.fresh.opt='v'",
      "-luci.main.ubuspath", "" }, "\n"), h.read_file("/tmp/.uci/luci"))
    assert.are.equal(LUCI, config("luci"))
    assert.are.same({ 0, "123\n", "" }, { uci("get", "luci.ccache.lastregtime") })
    assert.are.same({ 1, "", "uci: Entry not found\n" }, { uci("get", "luci.main.ubuspath") })

    assert.are.equal(0, uci("commit", "luci"))
    assert.are.equal(table.concat({
      "",
      "config core 'main'",
      "\toption lang 'en'",
      "\toption mediaurlbase '/luci-static/\"boot\"'",
      "",
      "config internal 'ccache'",
      "\toption enable '1'",
      "\toption lastregtime '123'",
      "",
      "config extern",
      "\toption name 'first'",
      "",
      "config extern",
      "\toption name 'it'\\''s \"quoted\" $HOME'",
      "",
      "config thing 'fresh'",
      "\toption opt 'v'",
      "",
      "",
    }, "\n"), config("luci"))
    assert.are.equal("", h.read_file("/tmp/.uci/luci"))
    assert.are.same({ 0, "it's \"quoted\" $HOME\n", "" }, { uci("get", "luci.@extern[1].name") })
  end)

  it("adds, renames, deletes and reverts, naming anonymous sections as uci does", function()
    assert.are.same({ 0, "cfg05e17b\n", "" }, { uci("add", "luci", "extern") })
    assert.are.equal(0, uci("rename", "luci.@extern[0]=one"))
    assert.are.equal(0, uci("rename", "luci.one.name=title"))
    assert.are.equal(0, uci("delete", "luci.@extern[-1]"))
    assert.are.same({ 0, "luci.cfg05e17b='extern'\nluci.cfg03e17b='one'\nluci.one.name='title'\n-luci.cfg05e17b\n", "" },
      { uci("changes", "luci") })
    assert.are.same({ 0, "luci.one=extern\nluci.one.title='first'\n", "" }, { uci("show", "luci.one") })
    assert.are.same({ 0, "luci.cfg04e17b=extern\nluci.cfg04e17b.name='second'\n", "" },
      { uci("show", "luci.@extern[1]") })
    -- revert takes a section's changes (or an option's) out, leaving the others
    assert.are.equal(0, uci("revert", "luci.cfg05e17b"))
    assert.are.equal("@luci.cfg03e17b='one'\n@luci.one.name='title'\n", h.read_file("/tmp/.uci/luci"))
    assert.are.equal(0, uci("revert", "luci"))
    assert.are.equal("", h.read_file("/tmp/.uci/luci"))
    local status, out = uci("export", "luci.ccache")
    local head, tail = "package luci\n\nconfig core 'main'\n\toption lang 'auto'\n", "\nconfig extern\n\toption name 'second'\n\n"
    assert.are.same({ 0, head, tail }, { status, out:sub(1, #head), out:sub(-#tail) })
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

  it("keeps every one of many sets run at once with commits", function()
    local script, env = {}, "VELCONFIG_ROOT=" .. h.quote(h.root)
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
