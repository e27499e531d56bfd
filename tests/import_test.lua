-- A dump becomes a simulated gateway: round trips over random gateways, the dump's
-- header and hidden secrets, and the dumps import refuses.
local h = require "helpers"
local json = require "velconfig_json"
local dump = require "velconfig_dump"
local import = require "velconfig_import"
local gen = require "velconfig_gen"

local sim = h.sim

local function catalogue()
  local f = assert(io.open(assert(os.getenv("VELCONFIG_CATALOGUE"))))
  local text = f:read("*a")
  f:close()
  return json.decode(text)
end

describe("a dump imported into the simulator", function()
  -- 200 by default; the emulated arm64 run takes fewer (VELCONFIG_IMPORT_SEEDS), its
  -- own point being the other processor, not more gateways.
  local seeds = tonumber(os.getenv("VELCONFIG_IMPORT_SEEDS")) or 200
  it("answers every key as dumped, for " .. seeds .. " random gateways", function()
    h.reset()
    h.fresh_root()
    local keys = catalogue()
    local default = json.decode(sim.default_model())
    local function take() return dump.take(h.velconfig, keys, { with_secrets = true }).answers end
    local compared = 0
    for seed = 1, seeds do
      sim.load_model(json.encode(gen.model(seed, default)))
      sim.clear_disks()
      local before = take()
      local model = import.build(import.decode(json.encode({ format = 1, answers = before })), default)
      sim.load_model(json.encode(model))
      sim.clear_disks()
      local after = take()
      local differing = dump.differences(before, after)
      assert(#differing == 0, "seed " .. seed .. " (replay: velconfig_gen.model(" .. seed ..
        ")): these keys answer differently after import: " .. table.concat(differing, ", "))
      for _ in pairs(before) do compared = compared + 1 end
    end
    assert.are.equal(seeds * 31, compared)
  end)
end)

describe("an import keeps what a page shows in one place only", function()
  it("the wired hosts' measured rates, and a beacon type the Wi-Fi page reads as Open", function()
    h.reset()
    h.fresh_root()
    h.edit_model(function(m) m.wlan[1].beacon_type = "WPA2-PSK" end)
    h.velconfig:get("allInfo")
    sim.advance_clock(5) -- the overview has measured the rates; the host list answers 0 on its first call
    local answers = dump.take(h.velconfig, catalogue(), { with_secrets = true }).answers
    assert.are.equal("Open", answers.wifiBasic.auth1)
    local model = import.build(import.decode(json.encode({ format = 1, answers = answers })),
      json.decode(sim.default_model()))
    local default = json.decode(sim.default_model())
    for i = 1, 2 do
      assert.are.same({ default.hosts[i].name, 0, default.hosts[i].down_rate, default.hosts[i].up_rate },
        { model.hosts[i].name, model.hosts[i].connection, model.hosts[i].down_rate, model.hosts[i].up_rate })
    end
    assert.are.equal("WPA2-PSK", model.wlan[1].beacon_type)
  end)
end)

-- The state file (/gateway.json) and the dumps are files in the test's own file root.
describe("velconfig dump and import", function()
  before_each(function() h.fresh_root() end)
  teardown(function() os.execute("rm -rf " .. h.quote(h.root)) end)

  local function run(...) return h.shell(h.cli(h.file("/gateway.json"), ...)) end

  it("hides secrets unless asked, heads the dump, and imports either form", function()
    local status, out = run("dump")
    assert.are.equal(0, status)
    local hidden = json.decode(out)
    assert.are.same({ 1, "sim", "hidden" }, { hidden.format, hidden.platform, hidden.secrets })
    assert.truthy(hidden.taken:match("^%d%d%d%d%-%d%d%-%d%dT%d%d:%d%d:%d%dZ$"))
    assert.truthy(hidden.version:match("^%d+%.%d+"))
    local a = hidden.answers
    for _, secret in ipairs({ a.wifiBasic.passwd1, a.easymesh_config.key2, a.interConndStatus.ap1.pwd2g,
                              a.ddns.ddnsCfg1.password }) do
      assert.are.equal(dump.PLACEHOLDER, secret)
    end
    assert.truthy(a.getMallUrl.url:find("token=" .. dump.PLACEHOLDER .. "&", 1, true))

    local _, kept = run("dump", "--with-secrets")
    assert.are.equal("vel3f10home", json.decode(kept).answers.wifiBasic.passwd1)

    -- A customer's dump without secrets: the simulated gateway now holds the placeholder.
    h.write_file("/customer.json", out)
    local seeded = h.read_file("/gateway.json")
    local st, said = run("import", h.file("/customer.json"))
    assert.are.equal(0, st)
    assert.truthy(said:find("filled from the dump: device, wan", 1, true))
    assert.are.equal(seeded, h.read_file("/gateway.json.bak"))
    local _, again = run("dump")
    assert.are.same({}, dump.differences(hidden.answers, json.decode(again).answers))
    local _, ssid = run("get", "wifiBasic")
    assert.are.equal(dump.PLACEHOLDER, json.decode(ssid).passwd1)

    -- An older dump: bare answers, one key; the rest stays the default gateway's.
    h.write_file("/old.json", '{"lan": {"dhcpEnbl": 0, "lanIp": "10.0.0.1", "poolStart": "", "poolEnd": "", "subnetMask": "255.0.0.0"}}')
    st, said = run("import", h.file("/old.json"))
    assert.are.equal(0, st)
    assert.truthy(said:find("filled from the dump: wan, lan, dhcp\n", 1, true))
    assert.truthy(said:find("kept from the default model: device, hosts,", 1, true))
    local _, lan = run("get", "lan")
    assert.are.same({ dhcpEnbl = 0, lanIp = "10.0.0.1", poolStart = "", poolEnd = "", subnetMask = "255.0.0.0" },
      json.decode(lan))
  end)

  it("refuses a bad dump with one line naming the key, exit 2, the state untouched", function()
    local _, good = run("dump")
    local before = h.read_file("/gateway.json")
    local function variant(edit)
      local d = json.decode(good)
      edit(d.answers)
      return json.encode(d)
    end
    local cases = {
      { "not JSON", '{"answers": {', "^%(file%): not JSON: at byte %d+" },
      { "a wrong type", variant(function(a) a.allInfo.wifi2.ip = 7 end), "^allInfo%.wifi2%.ip: expected a text, got a number$" },
      { "a wrong top type", variant(function(a) a.lan = "x" end), "^lan: expected an object" },
      { "a count that disagrees", variant(function(a) a.pmLists.count = 5 end), "^pmLists%.count: says 5 but there are 2 pmRule rows$" },
      { "a gap in the rows", variant(function(a) a.ddns.ddnsCfg2, a.ddns.ddnsCfg1, a.ddns.count = a.ddns.ddnsCfg1, nil, 1 end),
        "^ddns%.ddnsCfg1: missing" },
      { "a path outside the disks", variant(function(a) a.fileLists.filePath = "/mnt/../etc" end), "^fileLists%.filePath: not a disk's folder" },
      { "a name leaving its folder", variant(function(a) a.fileLists.file1.name = "../../x" end), "^fileLists%.file1%.name: not a file name" },
    }
    for _, c in ipairs(cases) do
      h.write_file("/bad.json", c[2])
      local status, out, err = run("import", h.file("/bad.json"))
      assert.are.equal(2, status, c[1])
      assert.are.equal("", out, c[1])
      local line = err:match("^velconfig: import refused: (.*)\n$")
      assert(line and line:match(c[3]), c[1] .. ": " .. err)
      assert.are.equal(before, h.read_file("/gateway.json"), c[1])
    end
    -- 100 MB, refused by its size before it is read.
    local f = assert(io.open(h.file("/huge.json"), "wb"))
    f:seek("set", 100 * 1024 * 1024 - 1)
    f:write("}")
    f:close()
    local status, _, err = run("import", h.file("/huge.json"))
    assert.are.equal(2, status)
    assert.truthy(err:find("(file): 104857600 bytes, more than a dump can be", 1, true))
    assert.are.equal(before, h.read_file("/gateway.json"))
  end)
end)
