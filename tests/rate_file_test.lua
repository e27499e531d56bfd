-- The LAN host rate file behind the speeds of "hostsInfo" and "allInfo".
local h = require "helpers"
local v = h.velconfig

local T0 = 1700000000
local RATES = "/tmp/lanhostsrate"

local function host(id, extra)
  local t = { id = id, mac = string.format("%012X", id), access = 2, connection = 0, online = true,
              down_bytes = 0, up_bytes = 0, down_rate = 0, up_rate = 0 }
  for k, x in pairs(extra or {}) do t[k] = x end
  return t
end

local function with_hosts(hosts) h.edit_model(function(m) m.hosts = hosts end) end
local function line(mac, down, up, stamp) return string.format("%23s %d %d %d\n", mac, down, up, stamp) end
local function speeds(filter)
  local r, out = v:get("hostsInfo", filter or "7"), {}
  for i = 1, r.count do out[i] = { r["dev" .. i].upSpeed, r["dev" .. i].downSpeed } end
  return out
end

describe("rate file baseline", function()
  before_each(function()
    h.reset(T0)
    os.remove(h.file(RATES))
  end)

  it("gives 0 without a file and then stores every listed device's counters and now, leaving no descriptor", function()
    with_hosts({ host(1, { down_bytes = 1000, up_bytes = 2000 }), host(2, { mac = "ab", access = 0 }), host(3) })
    local open = h.sim.open_descriptors()
    assert.are.same({ { 0, 0 }, { 0, 0 } }, speeds())
    assert.are.equal(open, h.sim.open_descriptors())
    assert.are.equal(line("000000000001", 1000, 2000, T0) .. line("000000000003", 0, 0, T0), h.read_file(RATES))
  end)

  it("matches the model's rates over 10 seconds for every default host", function()
    v:get("hostsInfo", "7")
    h.sim.advance_clock(10)
    local r, rates = v:get("hostsInfo", "7"), {}
    for _, hm in ipairs(h.model().hosts) do rates[hm.mac] = { hm.up_rate, hm.down_rate } end
    assert.are.equal(6, r.count)
    for i = 1, r.count do
      assert.are.same(rates[r["dev" .. i].mac], { r["dev" .. i].upSpeed, r["dev" .. i].downSpeed })
    end
  end)

  -- Stored 1000 down and 2000 up; the device now has 60 and 90 bytes more.
  local cases = {
    { "30 s old: used over 30 s", 30, { { 24, 16 } } },
    { "31 s old: thrown away", 31, { { 0, 0 } } },
    { "written in the same second", 0, { { 0, 0 } } },
    { "stamped in the future", -5, { { 0, 0 } } },
  }
  for _, c in ipairs(cases) do
    it("a baseline " .. c[1], function()
      with_hosts({ host(1, { down_bytes = 1060, up_bytes = 2090 }) })
      h.write_file(RATES, line("000000000001", 1000, 2000, T0 - c[2]))
      assert.are.same(c[3], speeds())
      assert.are.equal(line("000000000001", 1060, 2090, T0), h.read_file(RATES))
    end)
  end

  it("deletes a stale file even when no device is listed", function()
    with_hosts({ host(1, { connection = 1 }) })
    h.write_file(RATES, line("000000000001", 0, 0, T0 - 31))
    assert.are.equal(0, v:get("hostsInfo", "0").count)
    assert.is_nil(h.read_file(RATES))
  end)

  it("gives 0 to both speeds when either counter went down", function()
    with_hosts({ host(1, { down_bytes = 5000, up_bytes = 10 }), host(2, { down_bytes = 10, up_bytes = 5000 }) })
    h.write_file(RATES, line("000000000001", 1000, 20, T0 - 10) .. line("000000000002", 20, 1000, T0 - 10))
    assert.are.same({ { 0, 0 }, { 0, 0 } }, speeds())
  end)

  -- As strtoul reads them: beyond 64 bits the largest whatever the sign, a minus
  -- wraps a number that fits. The device now has 81 bytes, 10 s later.
  for _, c in ipairs({
    { "beyond 64 bits with a minus is the largest", "-99999999999999999999", { { 0, 0 } } },
    { "of exactly 2^64-1 is the largest", "18446744073709551615", { { 0, 0 } } },
    { "of exactly 2^64 is the largest", "18446744073709551616", { { 0, 0 } } },
    { "of minus (2^64-1) wraps to 1", "-18446744073709551615", { { 0, 64 } } },
  }) do
    it("reads a stored counter " .. c[1], function()
      with_hosts({ host(1, { down_bytes = 81 }) })
      h.write_file(RATES, string.format("%23s %s 0 %d\n", "000000000001", c[2], T0 - 10))
      assert.are.same(c[3], speeds())
    end)
  end

  it("reads a stamp beyond 64 bits with a minus as the smallest, never as its digits wrapped", function()
    -- wrapped to 64 bits, these digits would read as 10 s ago
    with_hosts({ host(1, { up_bytes = 80 }) })
    h.write_file(RATES, string.format("%23s 0 0 -18446744076304518922\n", "000000000001"))
    assert.are.same({ { 0, 0 } }, speeds())
  end)

  -- The file system under the rate file: a write that cannot finish leaves the old
  -- file whole; short or interrupted writes that can finish leave the new one whole.
  -- 60 devices make a file of several write chunks. Never a temporary file left.
  for _, c in ipairs({
    { "a full disk", { { "write", 28 } }, false },
    { "a full disk after a short write", { { "write_short", 0, 1 }, { "write", 28 } }, false },
    { "every write short", { { "write_short", 0 } }, true },
    { "an interrupted write", { { "write", 4, 1 } }, true },
    { "a write that takes nothing", { { "write", 0, 1 } }, false },
  }) do
    it("keeps a whole file with " .. c[1], function()
      local hosts, old, new = {}, "", ""
      for i = 1, 60 do
        hosts[i] = host(i, { up_bytes = 80 })
        old = old .. line(string.format("%012X", i), 0, 0, T0 - 10)
        new = new .. line(string.format("%012X", i), 0, 80, T0)
      end
      with_hosts(hosts)
      h.write_file(RATES, old)
      for _, f in ipairs(c[2]) do h.sim.fail(f[1], f[2], f[3]) end
      local s = speeds()
      h.sim.clear_faults()
      assert.are.same({ 64, 0 }, s[60])
      assert.are.equal(c[3] and new or old, h.read_file(RATES))
      assert.is_nil(io.popen("ls " .. h.file("/tmp")):read("*a"):find("lanhostsrate%."))
    end)
  end

  -- The temporary name is the rate file's with this process's id: one left behind by
  -- an earlier writer, or a link planted there, is replaced, never written through.
  it("writes its new file past a leftover temporary file or a link under that name", function()
    local pid = assert(io.open("/proc/self/stat")):read("*l"):match("^(%d+)")
    local temp, elsewhere = h.file(RATES .. "." .. pid .. ".tmp"), h.file("/tmp/elsewhere")
    with_hosts({ host(1) })
    for _, plant in ipairs({ function() h.write_file(RATES .. "." .. pid .. ".tmp", "old") end,
      function() os.execute("ln -s " .. elsewhere .. " " .. temp) end }) do
      h.write_file("/tmp/elsewhere", "not ours")
      plant()
      speeds()
      assert.are.same({ line("000000000001", 0, 0, T0), "not ours" }, { h.read_file(RATES), h.read_file("/tmp/elsewhere") })
      assert.is_nil(io.open(temp))
      os.remove(h.file(RATES))
    end
  end)

  it("finds a MAC stored in another letter case, but nothing after a blank line", function()
    with_hosts({ host(1, { mac = "AABBCCDDEE01", up_bytes = 80 }), host(2, { mac = "AABBCCDDEE02", up_bytes = 80 }) })
    h.write_file(RATES, line("aabbccddee01", 0, 0, T0 - 10) .. "\n" .. line("AABBCCDDEE02", 0, 0, T0 - 10))
    assert.are.same({ { 64, 0 }, { 0, 0 } }, speeds())
  end)

  it("finds both of two MACs that share an index slot, listed in another order than stored", function()
    -- 00000000001D and 000000000058 hash to the same slot of the table's index
    with_hosts({ host(0x58, { up_bytes = 80 }), host(0x1D, { up_bytes = 80 }) })
    -- (told apart by their counters, so that taking one for the other shows)
    h.write_file(RATES, line("00000000001D", 0, 40, T0 - 10) .. line("000000000058", 0, 0, T0 - 10))
    assert.are.same({ { 64, 0 }, { 32, 0 } }, speeds())
  end)

  it("takes the first of two lines with one MAC, even when the device is listed at the second", function()
    with_hosts({ host(2), host(1, { up_bytes = 80 }) })
    h.write_file(RATES, line("000000000001", 0, 0, T0 - 10) .. line("000000000001", 0, 40, T0 - 10))
    assert.are.same({ { 0, 0 }, { 64, 0 } }, speeds())
  end)

  it("takes at most 23 characters as the MAC word, the next one starting the counters", function()
    -- read as "Z"*23, 1, 5 and a stamp 10 s old: a 24-character word would make the stamp 999
    with_hosts({ host(1, { up_bytes = 80 }) })
    h.write_file(RATES, ("Z"):rep(23) .. "1 5 " .. (T0 - 10) .. " 999\n" .. line("000000000001", 0, 0, T0 - 10))
    assert.are.same({ { 64, 0 } }, speeds())
  end)

  it("reads a long line in 127-character pieces, each taking a record", function()
    with_hosts({ host(1, { up_bytes = 80 }) })
    h.write_file(RATES, line("FFFFFFFFFFFF", 0, 0, T0 - 10) .. string.rep("x", 127) .. line("000000000001", 0, 0, T0 - 10))
    assert.are.same({ { 64, 0 } }, speeds())
  end)

  -- A first line for the stamp, then 31 lines of 1,001 characters: 248 pieces of at
  -- most 127 that cross many read chunks; short filler lines bring the wanted MAC to
  -- the 254th record or past it.
  for _, c in ipairs({ { 4, "is found as the 254th record", { { 64, 0 } } }, { 5, "is past the 254th record", { { 0, 0 } } } }) do
    it("a MAC after long lines read in pieces " .. c[2], function()
      with_hosts({ host(1, { up_bytes = 80 }) })
      local text = (string.rep("x", 1000) .. "\n"):rep(31) .. ("zz 0 0 " .. (T0 - 10) .. "\n"):rep(c[1])
      h.write_file(RATES, string.format("%23s 0 0 %d\n", "zz", T0 - 10) .. text .. line("000000000001", 0, 0, T0 - 10))
      assert.are.same(c[3], speeds())
    end)
  end

  it("lists more than 254 devices but remembers only the first 254", function()
    local hosts = {}
    for i = 1, 300 do hosts[i] = host(i, { up_rate = 800 }) end
    with_hosts(hosts)
    assert.are.equal(300, #speeds())
    local _, lines = h.read_file(RATES):gsub("\n", "")
    assert.are.equal(254, lines)
    h.sim.advance_clock(10)
    local s = speeds()
    assert.are.same({ { 800, 0 }, { 0, 0 }, { 0, 0 } }, { s[254], s[255], s[300] })
  end)

  local junk = {
    binary = (function() local b = {} for i = 0, 255 do b[#b + 1] = string.char(i) end return table.concat(b):rep(200) end)(),
    ["over-long"] = string.rep("A", 5000) .. " 1 2 3\n",
    ["someone else's"] = "root:x:0:0:root:/root:/bin/bash\ndaemon:x:1:1::/usr/sbin:/usr/sbin/nologin\n",
    ["huge numbers"] = line("000000000001", 0, 0, T0 - 10):gsub(" 0 0 ", " 99999999999999999999999 -99999999999999999999999 "),
  }
  for name, text in pairs(junk) do
    it("gives 0 for a " .. name .. " file and replaces it with a good one", function()
      with_hosts({ host(1, { down_bytes = 7, up_bytes = 9 }) })
      h.write_file(RATES, text)
      assert.are.same({ { 0, 0 } }, speeds())
      assert.are.equal(line("000000000001", 7, 9, T0), h.read_file(RATES))
    end)
  end

  it("does not wait on a FIFO in its place, and replaces it with a good file", function()
    with_hosts({ host(1) })
    os.execute("mkfifo " .. h.file(RATES))
    assert.are.same({ { 0, 0 } }, speeds())
    assert.are.equal(line("000000000001", 0, 0, T0), h.read_file(RATES))
  end)

  it("is shared with allInfo: a call of one sets the other's baseline", function()
    with_hosts({ host(1, { up_rate = 800 }) })
    v:get("allInfo")
    h.sim.advance_clock(25)
    assert.are.same({ { 800, 0 } }, speeds())
    h.sim.advance_clock(10)
    -- a baseline of its own from 35 s ago would be stale
    assert.are.equal(800, v:get("allInfo").pc1.upSpeed)
  end)
end)
