-- EasyMesh page: the settings write and its roaming commands, "hasMesh", and the
-- exported reader as a C program on the gateway calls it.
local h = require "helpers"
local v = h.velconfig
local cjson = h.cjson

local MESH = { service = "com.brimvale.easymesh1", path = "/com/zom/map1/Management",
  interface = "com.zom.map1.Management" }

local function req(fields)
  local t = { easymeshEnbl = "1",
    mesh_2G_enbl = "1", mesh_2G_ssid = "Mesh-24", mesh_2G_auth = "WPA2-PSK", mesh_2G_passwd = "key-24",
    mesh_2G_rssi = "0",
    mesh_5G_enbl = "1", mesh_5G_ssid = "Mesh-5", mesh_5G_auth = "SAE", mesh_5G_passwd = "key-5",
    mesh_5G_rssi = "0" }
  for k, val in pairs(fields or {}) do t[k] = val ~= false and val or nil end
  return t
end

local function multi_write_entries()
  local calls = h.calls("ZoVelDBusSetMultiProperty")
  assert.are.equal(1, #calls)
  assert.are.same(MESH, { service = calls[1].service, path = calls[1].path, interface = calls[1].interface })
  return calls[1].entries
end

local function roaming_commands()
  local sent = {}
  for _, c in ipairs(h.calls("ZoVelPostMsg")) do
    assert.are.equal("inter_conndv3", c.app)
    sent[#sent + 1] = c.command
  end
  return sent
end

describe("easymesh_config write", function()
  before_each(function() h.reset() end)

  it("with mesh not exactly 1 writes only Enable false, reads no other field and sends nothing", function()
    for _, off in ipairs({ "0", "2", "", "-1", "10" }) do
      h.sim.clear_journal()
      assert.are.equal(0, v:set("easymesh_config", { easymeshEnbl = off }))
      local writes = h.calls("ZoVelDBusSetProperty")
      assert.are.same({ { op = "ZoVelDBusSetProperty", service = MESH.service, path = MESH.path,
        interface = MESH.interface, property = "Enable", value = false } }, writes)
      assert.are.same({}, h.calls("ZoVelDBusSetMultiProperty"))
      assert.are.same({}, h.calls("ZoVelPostMsg"))
    end
    assert.is_false(h.model().easymesh.enable)
    h.sim.fail("ZoVelDBusSetProperty", -7)
    assert.are.equal(-7, v:set("easymesh_config", { easymeshEnbl = "0" }))
  end)

  it("writes Enable, the band flags, then each band that is on, in that order", function()
    assert.are.equal(0, v:set("easymesh_config", req()))
    assert.are.same({ { "Enable", true }, { "enable2G", true }, { "enable5G", true },
      { "ssid2G", "Mesh-24" }, { "authMode2G", "WPA2-PSK" }, { "key2G", "key-24" },
      { "ssid5G", "Mesh-5" }, { "authMode5G", "SAE" }, { "key5G", "key-5" } }, multi_write_entries())
    local m = h.model().easymesh
    assert.are.same({ "Mesh-24", "SAE", "key-5" }, { m.ssid_2g, m.auth_5g, m.key_5g })
  end)

  it("leaves out the texts of a band that is off, yet still needs its fields", function()
    assert.are.equal(0, v:set("easymesh_config", req { mesh_2G_enbl = "0" }))
    assert.are.same({ { "Enable", true }, { "enable2G", false }, { "enable5G", true },
      { "ssid5G", "Mesh-5" }, { "authMode5G", "SAE" }, { "key5G", "key-5" } }, multi_write_entries())
    assert.are.equal("Velmont-3F10", h.model().easymesh.ssid_2g)

    h.sim.clear_journal()
    assert.are.equal(0, v:set("easymesh_config", req { mesh_2G_enbl = "1.0", mesh_5G_enbl = "true" }))
    assert.are.same({ { "Enable", true }, { "enable2G", true }, { "enable5G", false },
      { "ssid2G", "Mesh-24" }, { "authMode2G", "WPA2-PSK" }, { "key2G", "key-24" } }, multi_write_entries())

    for _, missing in ipairs({ "mesh_2G_ssid", "mesh_2G_rssi", "mesh_5G_passwd" }) do
      h.sim.clear_journal()
      assert.matches(h.field_error("nil"), h.set_error("easymesh_config", req { mesh_2G_enbl = "0", [missing] = false }))
      assert.are.same({}, h.calls("ZoVelDBusSetMultiProperty"))
      assert.are.same({}, h.calls("ZoVelPostMsg"))
    end
  end)

  it("sends the roaming command of the bands whose RSSI converts to a non-zero RCPI", function()
    local both = '{"CmdType":"SetMeshRoaming","infos":{"optimal_path_rcpi_threshold2g":%d,' ..
      '"optimal_path_rcpi_threshold":%d},"SequenceId":"88888888"}'
    local only2g = '{"CmdType":"SetMeshRoaming","infos":{"optimal_path_rcpi_threshold2g":%d},"SequenceId":"88888888"}'
    local only5g = '{"CmdType":"SetMeshRoaming","infos":{"optimal_path_rcpi_threshold":%d},"SequenceId":"88888888"}'
    local cases = {
      { "-65", "0", only2g:format(90) },
      { "-65", "-60", both:format(90, 100) },
      { "0", "-60", only5g:format(100) },
      { "0", "0", nil },
      { "", "abc", nil },
      -- -110 dBm is RCPI 0: that band gives no value
      { "-110", "-60", only5g:format(100) },
      { "-110", "-110", nil },
      { "-55dBm", " -70", both:format(110, 80) },
      { "+20", "-1", both:format(260, 218) },
      -- figures no page sends wrap as the gateway's 32-bit arithmetic does
      { "2147483647", "-2147483648", both:format(218, 220) },
    }
    for _, c in ipairs(cases) do
      h.reset()
      assert.are.equal(0, v:set("easymesh_config", req { mesh_2G_rssi = c[1], mesh_5G_rssi = c[2] }))
      assert.are.same(c[3] and { c[3] } or {}, roaming_commands(), c[1] .. " / " .. c[2])
      -- the command is logged before it is posted (a reply, when one comes, after it)
      assert.are.equal(c[3] and "5 Set SetMeshRoaming: " .. c[3] or nil, h.log_texts()[1])
    end
  end)

  it("sends the thresholds even when the band is off, and after a failed settings write", function()
    h.sim.fail("ZoVelDBusSetMultiProperty", -3)
    assert.are.equal(-3, v:set("easymesh_config", req { mesh_2G_enbl = "0", mesh_2G_rssi = "-65" }))
    assert.are.equal(1, #roaming_commands())
    -- no plugin reply: the result is still the settings write's
    h.sim.clear_faults()
    h.sim.fail("ZoVelPostMsg", 0)
    assert.are.equal(0, v:set("easymesh_config", req { mesh_5G_rssi = "-60" }))
  end)

  it("keeps every text within its field and refuses one that is not UTF-8", function()
    local long = { mesh_2G_ssid = string.rep("s", 70), mesh_2G_auth = string.rep("a", 20),
      mesh_2G_passwd = string.rep("k", 100), mesh_5G_rssi = "-60" .. string.rep("0", 20) }
    assert.are.equal(0, v:set("easymesh_config", req(long)))
    local e = multi_write_entries()
    assert.are.same({ string.rep("s", 63), string.rep("a", 15), string.rep("k", 79) }, { e[4][2], e[5][2], e[6][2] })
    -- "-60" followed by zeros is cut to 15 characters before it is converted
    assert.are.same({ '{"CmdType":"SetMeshRoaming","infos":{"optimal_path_rcpi_threshold":1386250460},' ..
      '"SequenceId":"88888888"}' }, roaming_commands())

    for _, bad in ipairs({ { mesh_5G_ssid = "Mesh\255" }, { mesh_2G_passwd = "\192\175" } }) do
      h.sim.clear_journal()
      assert.are.equal(1, v:set("easymesh_config", req(bad)))
      assert.are.same({}, h.calls("ZoVelDBusSetMultiProperty"))
      assert.are.same({}, h.calls("ZoVelPostMsg"))
    end
  end)

  it("answers the platform's code when the service is absent", function()
    h.edit_model(function(m) m.easymesh = nil end)
    assert.are_not.equal(0, v:set("easymesh_config", req()))
    assert.are_not.equal(0, v:set("easymesh_config", { easymeshEnbl = "0" }))
    assert.is_nil(h.model().easymesh)
  end)
end)

describe("hasMesh", function()
  before_each(function() h.reset() end)

  local cases = {
    { "no Wi-Fi at all", function(m) m.device.has_wifi = false end, 1, false },
    { "a MAP agent that reads true", nil, 1, false },
    { "a MAP agent that reads false", function(m) m.wifi.map_agent = false end, 1, false },
    { "a MAP agent of another type", function(m) m.wifi.map_agent = "agent" end, 1, false },
    { "no MAP agent, mesh on", function(m) m.wifi.map_agent = nil end, 1, true },
    { "no MAP agent, mesh off", function(m) m.wifi.map_agent = nil; m.easymesh.enable = false end, 0, true },
    { "no MAP agent, mesh Enable of another type", function(m) m.wifi.map_agent = nil; m.easymesh.enable = 1 end, 0, true },
    { "no MAP agent, no mesh service", function(m) m.wifi.map_agent = nil; m.easymesh = nil end, 0, true },
  }
  for _, c in ipairs(cases) do
    it("with " .. c[1] .. " answers " .. c[3], function()
      if c[2] then h.edit_model(c[2]) end
      assert.are.equal(c[3], v:get("hasMesh"))
      assert.are.same(c[4] and { "5 Get MAPAgent failed.\n" } or {}, h.log_texts())
      local reads = h.calls("ZoVelDBusGetProperty")
      local expected = {}
      if c[1] ~= "no Wi-Fi at all" then expected[1] = "MAPAgent" end
      if c[4] then expected[2] = "Enable" end
      local names = {}
      for _, r in ipairs(reads) do names[#names + 1] = r.property end
      assert.are.same(expected, names)
    end)
  end

  it("answers 0 when the MAP agent read fails and the mesh read fails too", function()
    h.sim.fail("ZoVelDBusGetProperty", -1)
    assert.are.equal(0, v:get("hasMesh"))
  end)
end)

describe("the exported EasyMesh reader", function()
  local program = assert(os.getenv("VELCONFIG_EASYMESH_EXPORT"), "VELCONFIG_EASYMESH_EXPORT names the C program")
  local module = assert(os.getenv("VELCONFIG_MODULE"), "VELCONFIG_MODULE names velconfig.so")
  local state

  before_each(function()
    state = os.tmpname()
  end)
  after_each(function()
    os.remove(state)
    os.remove(state .. ".lock")
  end)

  -- Runs the C program on a gateway whose model edit made; returns its fields.
  local function run(edit, mode)
    local m = cjson.decode(h.sim.default_model())
    if edit then edit(m) end
    local f = assert(io.open(state, "wb"))
    f:write(cjson.encode(m))
    f:close()
    local p = io.popen("VELCONFIG_SIM_STATE=" .. state .. " " .. program .. " " .. module .. " 3 " .. (mode or "clear")
      .. "; echo status $?")
    local out = {}
    for line in p:lines() do
      local name, value = line:match("^(%S+) ?(.*)$")
      out[name] = value
    end
    p:close()
    return out
  end

  it("fills every field of the record from the service, and answers -1 for a null record", function()
    local out = run()
    assert.are.same({ null = "-1", rc = "0", path = "terminated /com/zom/map1/Management", enable = "1",
      enable_2g = "1", enable_5g = "1", ssid_2g = "terminated Velmont-3F10", ssid_5g = "terminated Velmont-3F10-5G",
      auth_2g = "terminated WPA2-PSK", auth_5g = "terminated WPA2-PSK", key_2g = "terminated vel3f10home",
      key_5g = "terminated vel3f10home", calls = "3 same 3", status = "0" }, out)
  end)

  it("cuts each text to its field, always terminated", function()
    local out = run(function(m)
      m.easymesh.ssid_2g = string.rep("S", 64)
      m.easymesh.auth_5g = string.rep("A", 40)
      m.easymesh.key_2g = string.rep("K", 80)
      m.easymesh.enable_5g = false
    end, "fill")
    assert.are.same({ "terminated " .. string.rep("S", 63), "terminated " .. string.rep("A", 15),
      "terminated " .. string.rep("K", 79), "0" }, { out.ssid_2g, out.auth_5g, out.key_2g, out.enable_5g })
  end)

  it("writes only the fields whose properties it finds with their type", function()
    local out = run(function(m)
      m.easymesh.key_5g = nil
      m.easymesh.auth_2g = 7
      m.easymesh.enable = "yes"
      m.easymesh.ssid_5g = true
    end, "fill")
    assert.are.equal("0", out.rc)
    local untouched = "unterminated "
    assert.are.same({ untouched .. string.rep("x", 80), untouched .. string.rep("x", 16),
      untouched .. string.rep("x", 64), tostring(0x78787878) },
      { out.key_5g, out.auth_2g, out.ssid_5g, out.enable })
    assert.are.same({ "terminated Velmont-3F10", "1" }, { out.ssid_2g, out.enable_2g })
  end)

  it("answers -1 and leaves the record alone when the service is absent or reports nothing", function()
    for _, edit in ipairs({ function(m) m.easymesh = nil end, function(m) m.easymesh = {} end }) do
      local out = run(edit)
      assert.are.same({ "-1", "terminated ", "0", "terminated ", "3 same 3", "0" },
        { out.rc, out.path, out.enable, out.key_2g, out.calls, out.status })
    end
  end)
end)
