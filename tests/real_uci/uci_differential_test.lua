-- The project's uci (tools/uci) against OpenWrt's own, built from the pinned snapshot
-- by tools/deps/build-uci.sh: the same random sequences of commands, from a seed, on
-- two copies of the same files give the same output, exit status and files (the
-- configuration files and the staged changes, byte for byte; no staged file and an
-- empty one are the same). Run by `make real-uci-check`, which names the real program
-- in VELCONFIG_REAL_UCI.
local h = require "helpers"

local REAL = assert(os.getenv("VELCONFIG_REAL_UCI"), "VELCONFIG_REAL_UCI names OpenWrt's uci")
local STANDIN = (os.getenv("VELCONFIG_TOOL"):gsub("velconfig$", "tools/bin/uci"))
-- more sequences, or other ones, by hand: VELCONFIG_UCI_SEEDS=500 VELCONFIG_UCI_FIRST_SEED=1000
local SEEDS = tonumber(os.getenv("VELCONFIG_UCI_SEEDS") or "40")
local FIRST = tonumber(os.getenv("VELCONFIG_UCI_FIRST_SEED") or "1")
local STEPS = 30

local FILES = {
  luci = table.concat({
    "# LuCI settings",
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
  }, "\n"),
  demo = "config app 'main'\n\toption enabled '1'\n\toption note 'it''s'\n\nconfig rule\n\toption port 80\n",
}

-- The two ways to run a command on a root: words after the program.
local function run(root, real, words)
  local line = { real and h.quote(REAL) or h.quote(STANDIN) }
  if real then
    for _, w in ipairs({ "-c", root .. "/etc/config", "-t", root .. "/tmp/.uci", "-C", root .. "/var/run/uci" }) do
      line[#line + 1] = h.quote(w)
    end
  end
  for _, w in ipairs(words) do line[#line + 1] = h.quote(w) end
  local status, out, err = h.shell("VELCONFIG_ROOT=" .. h.quote(root) .. " " .. table.concat(line, " "))
  -- uci names itself as it was called in its messages; a parse error's place is
  -- given by line alone by the project's uci
  if real then err = err:gsub(REAL:gsub("%p", "%%%0"), "uci"):gsub(", byte %d+\n", "\n") end
  return status, out, err
end

local function read(path)
  local f = io.open(path, "rb")
  if not f then return "" end
  local text = f:read("*a")
  f:close()
  return text
end

local NAMES = { "main", "ccache", "extra", "x1", "bad name", "cfg" }
local OPTIONS = { "lang", "enable", "name", "ubuspath", "port", "note", "o1", "bad.o" }
local TYPES = { "core", "internal", "extern", "rule", "app", "new-type", "bad type" }
local VALUES = { "1", "0", "auto", "it's", "a b", "", "x\"y", "\\z", "#h" }
local CONFIGS = { "luci", "demo", "missing" }

local function pick(list) return list[math.random(#list)] end

-- A section address: by name, as @type[n] (negative too) or a name the add printed.
local function section(added)
  local r = math.random(10)
  if r <= 4 then return pick(NAMES) end
  if r <= 8 then return "@" .. pick(TYPES) .. "[" .. (math.random(5) - 3) .. "]" end
  return added[#added] or "cfg010000"
end

local function address(added, with_option)
  local text = pick(CONFIGS) .. "." .. section(added)
  if with_option then text = text .. "." .. pick(OPTIONS) end
  return text
end

local function command(added)
  local r = math.random(100)
  local opt = math.random(3) > 1
  if r <= 14 then return { "get", address(added, opt) } end
  if r <= 34 then
    return { "set", address(added, opt) .. "=" .. (opt and pick(VALUES) or pick(TYPES)) }
  end
  if r <= 42 then return { "add", pick(CONFIGS), pick(TYPES) } end
  if r <= 52 then return { "delete", address(added, opt) } end
  if r <= 60 then return { "rename", address(added, opt) .. "=" .. (opt and pick(OPTIONS) or pick(NAMES)) } end
  if r <= 70 then return math.random(3) == 1 and { "commit" } or { "commit", pick(CONFIGS) } end
  if r <= 78 then
    local n = math.random(3)
    return { "revert", n == 1 and pick(CONFIGS) or address(added, n == 3) }
  end
  if r <= 92 then
    local n = math.random(4)
    return n == 1 and { "show" } or { "show", n == 2 and pick(CONFIGS) or address(added, n == 4) }
  end
  return math.random(2) == 1 and { "export" } or { "export", pick(CONFIGS) }
end

local function fresh(root)
  os.execute("rm -rf " .. h.quote(root))
  os.execute("mkdir -p " .. h.quote(root .. "/etc/config") .. " " .. h.quote(root .. "/tmp"))
  for name, text in pairs(FILES) do
    local f = assert(io.open(root .. "/etc/config/" .. name, "wb"))
    f:write(text)
    f:close()
  end
end

describe("uci against OpenWrt's", function()
  local base = os.tmpname()
  os.remove(base)
  local roots = { real = base .. "/real", standin = base .. "/standin" }
  teardown(function() os.execute("rm -rf " .. h.quote(base)) end)

  it("answers " .. SEEDS .. " random sequences of " .. STEPS .. " commands the same way", function()
    for seed = FIRST, FIRST + SEEDS - 1 do
      math.randomseed(seed)
      fresh(roots.real)
      fresh(roots.standin)
      local added, done = {}, {}
      for _ = 1, STEPS do
        local words = command(added)
        done[#done + 1] = table.concat(words, " ")
        local real = { run(roots.real, true, words) }
        local standin = { run(roots.standin, false, words) }
        -- the usage text names the options each one has
        if real[1] == 255 then real[3], standin[3] = "usage", standin[1] == 255 and "usage" or standin[3] end
        local context = "seed " .. seed .. " after:\n  " .. table.concat(done, "\n  ")
        assert.are.same(real, standin, context)
        if words[1] == "add" and real[1] == 0 then added[#added + 1] = real[2]:match("^(%S+)") end
        for _, name in ipairs({ "luci", "demo" }) do
          assert.are.same(read(roots.real .. "/tmp/.uci/" .. name), read(roots.standin .. "/tmp/.uci/" .. name),
            "changes of " .. name .. ", " .. context)
          assert.are.same(read(roots.real .. "/etc/config/" .. name), read(roots.standin .. "/etc/config/" .. name),
            "file " .. name .. ", " .. context)
        end
      end
    end
  end)
end)
