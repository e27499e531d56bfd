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
      { "a NUL in a text", variant(function(a) a.lan.lanIp = "10.0.0.1\0x" end), "^lan%.lanIp: text holds a NUL character$" },
      { "files too big together", variant(function(a)
          local f = a.fileLists
          for i = 1, 20 do f["file" .. i] = { name = "f" .. i, isFolder = false, size = 60000, time = "" } end
          f.fileNum = 20
        end), "^fileLists%.file18%.size: the files so far add up to more than a simulated disk holds" },
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
    assert.truthy(err:find("huge.json: larger than 16777216 bytes", 1, true))
    -- a device or a FIFO is refused at once, neither read for ever nor waited on
    assert(os.execute("mkfifo " .. h.quote(h.file("/fifo.json"))) == 0)
    for _, path in ipairs({ "/dev/zero", h.file("/fifo.json") }) do
      status, _, err = run("import", path)
      assert.are.same({ 2, true }, { status, err:find(": not a regular file\n$") ~= nil }, path)
    end
    assert.are.equal(before, h.read_file("/gateway.json"))
    assert.is_nil(h.read_file("/gateway.json.bak"))
  end)

  it("replaces the state in one step under its lock, keeps it privately, and touches only its own gateway's disks", function()
    local state = h.file("/gateway.json")
    local _, good = run("dump")
    h.write_file("/good.json", good)
    -- a folder made on the default gateway's disk, and one on another gateway's
    local other = h.file("/other.json")
    local function other_cli(...) return h.shell(h.cli(other, ...):gsub("^VELCONFIG_ROOT=%S+ ", "")) end
    assert.are.equal(0, (run("get", "newFolder", "/mnt/usb1_1/mine")))
    assert.are.equal(0, (other_cli("get", "newFolder", "/mnt/usb1_1/theirs")))
    assert.truthy(io.open(h.file("/other.root/mnt/usb1_1/theirs")))
    -- 40 port mappings added one by one while the state is imported again and again
    local words = h.cli(state, "set", "pmSetSingle", "op=add", "client=192.168.1.9", "protocol=TCP", "exPort=1",
      "inPort=1")
    local answered = h.file("/answered")
    local loop = "for i in $(seq 1 40); do [ \"$(" .. words .. " desp=r$i)\" = 0 ] && echo r$i; done > " ..
      h.quote(answered) .. "; echo done >> " .. h.quote(answered)
    local p = io.popen("sh -c " .. h.quote(loop) .. " >/dev/null 2>&1 & echo $!")
    p:close()
    local kept = {}
    local function collect(text)
      for name in (text or ""):gmatch('"(r%d+)"') do kept[name] = true end
    end
    for _ = 1, 200 do
      local st = run("import", h.file("/good.json"))
      assert.are.equal(0, st)
      collect(h.read_file("/gateway.json.bak"))
      local log = h.read_file("/answered") or ""
      if log:find("done\n$") then break end
    end
    collect(h.read_file("/gateway.json"))
    local made = 0
    for name in h.read_file("/answered"):gmatch("r%d+") do
      made = made + 1
      assert(kept[name], name .. " answered 0 but is neither in a backup nor in the state")
    end
    assert.are.equal(40, made)
    -- the backup is as private as the state; the other gateway's disks are untouched;
    -- this gateway's old disk folders are gone
    local _, mode = h.shell("stat -c %a " .. h.quote(state .. ".bak"))
    assert.are.equal("600\n", mode)
    assert.truthy(io.open(h.file("/other.root/mnt/usb1_1/theirs")))
    assert.is_nil(io.open(h.root .. "/mnt/usb1_1/mine"))
  end)
end)
