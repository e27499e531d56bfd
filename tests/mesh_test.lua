-- EasyMesh page: the settings write and its roaming commands, "hasMesh", and the
-- exported reader as a C program on the gateway calls it.
local h = require "helpers"
local v = h.velconfig
local cjson = h.cjson

local function req(fields)
  local t = { easymeshEnbl = "1", mesh_2G_enbl = "1", mesh_2G_ssid = "Mesh-24", mesh_2G_auth = "WPA2-PSK",
    mesh_2G_passwd = "key-24", mesh_2G_rssi = "0", mesh_5G_enbl = "1", mesh_5G_ssid = "Mesh-5", mesh_5G_auth = "SAE",
    mesh_5G_passwd = "key-5", mesh_5G_rssi = "0" }
  for k, val in pairs(fields or {}) do t[k] = val ~= false and val or nil end
  return t
end

-- What a write sent: the multi-property write's entries (nil: none) and the plugin commands.
local function sent()
  local writes, commands = h.calls("ZoVelDBusSetMultiProperty"), {}
  for _, c in ipairs(h.calls("ZoVelPostMsg")) do commands[#commands + 1] = c.app .. " " .. c.command end
  return writes[1] and writes[1].entries, commands
end

before_each(function() h.reset() end)

describe("easymesh_config write", function()
  it("with mesh not exactly 1 writes only Enable false and reads no other field", function()
    for _, off in ipairs({ "0", "2", "", "-1" }) do
      h.sim.clear_journal()
      assert.are.equal(0, v:set("easymesh_config", { easymeshEnbl = off }))
      local w = h.calls("ZoVelDBusSetProperty")
      assert.are.same({ 1, "com.brimvale.easymesh1", "/com/zom/map1/Management", "com.zom.map1.Management", "Enable",
        false }, { #w, w[1].service, w[1].path, w[1].interface, w[1].property, w[1].value })
      assert.are.same({ nil, {} }, { sent() })
    end
    assert.is_false(h.model().easymesh.enable)
    h.sim.fail("ZoVelDBusSetProperty", -7)
    assert.are.equal(-7, v:set("easymesh_config", { easymeshEnbl = "0" }))
  end)

  it("writes Enable and the band flags, then the texts of each band that is on, each within its field", function()
    local all = { { "Enable", true }, { "enable2G", true }, { "enable5G", true }, { "ssid2G", "Mesh-24" },
      { "authMode2G", "WPA2-PSK" }, { "key2G", "key-24" }, { "ssid5G", "Mesh-5" }, { "authMode5G", "SAE" },
      { "key5G", "key-5" } }
    for _, c in ipairs({
      { {}, all },
      { { mesh_2G_enbl = "0" }, { all[1], { "enable2G", false }, all[3], all[7], all[8], all[9] } },
      { { mesh_2G_enbl = "1.0", mesh_5G_enbl = "true" }, { all[1], all[2], { "enable5G", false }, all[4], all[5], all[6] } },
    }) do
      h.sim.clear_journal()
      assert.are.equal(0, v:set("easymesh_config", req(c[1])))
      assert.are.same(c[2], (sent()))
    end
    assert.are.same({ "Mesh-24", "SAE" }, { h.model().easymesh.ssid_2g, h.model().easymesh.auth_5g })
    h.sim.clear_journal()
    assert.are.equal(0, v:set("easymesh_config", req { mesh_2G_ssid = ("s"):rep(70), mesh_2G_auth = ("a"):rep(20),
      mesh_2G_passwd = ("k"):rep(79), mesh_5G_rssi = "-6" .. ("0"):rep(20) }))
    local entries, commands = sent()
    assert.are.same({ ("s"):rep(63), ("a"):rep(15), ("k"):rep(79) }, { entries[4][2], entries[5][2], entries[6][2] })
    -- "-60000000000000" (cut at 15) converts as atoi does, to its low 32 bits
    assert.matches('"optimal_path_rcpi_threshold":1386250460}', commands[1], 1, true)
    -- without the service both writes answer -4
    h.edit_model(function(m) m.easymesh = nil end)
    assert.are.same({ -4, -4 }, { v:set("easymesh_config", req()), v:set("easymesh_config", { easymeshEnbl = "0" }) })
  end)

  it("converts each RSSI to RCPI and sends the command of the bands that are not 0", function()
    local both = "inter_conndv3 " .. '{"CmdType":"SetMeshRoaming","infos":{"optimal_path_rcpi_threshold2g":%d,' ..
      '"optimal_path_rcpi_threshold":%d},"SequenceId":"88888888"}'
    local only2g = "inter_conndv3 " ..
      '{"CmdType":"SetMeshRoaming","infos":{"optimal_path_rcpi_threshold2g":%d},"SequenceId":"88888888"}'
    local only5g = "inter_conndv3 " ..
      '{"CmdType":"SetMeshRoaming","infos":{"optimal_path_rcpi_threshold":%d},"SequenceId":"88888888"}'
    for _, c in ipairs({
      { "-65", "0", only2g:format(90) }, { "-65", "-60", both:format(90, 100) }, { "0", "-60", only5g:format(100) },
      { "0", "0" }, { "", "abc" }, { "-55dBm", " -70", both:format(110, 80) }, { "+20", "-1", both:format(260, 218) },
      -- -110 dBm is RCPI 0: no value for that band
      { "-110", "-60", only5g:format(100) }, { "-110", "-110" },
      -- figures no page sends wrap as the gateway's 32-bit arithmetic does
      { "2147483647", "-2147483648", both:format(218, 220) },
    }) do
      h.reset()
      assert.are.equal(0, v:set("easymesh_config", req { mesh_2G_rssi = c[1], mesh_5G_rssi = c[2] }))
      local _, commands = sent()
      assert.are.same({ c[3] }, commands, c[1] .. " / " .. c[2])
      -- logged before it is posted (a reply, when one comes, after it)
      assert.are.equal(c[3] and "5 Set SetMeshRoaming: " .. c[3]:sub(15), h.log_texts()[1])
    end
    -- the command goes out even after a failed settings write, whose code is the answer
    h.sim.fail("ZoVelDBusSetMultiProperty", -3)
    assert.are.equal(-3, v:set("easymesh_config", req { mesh_2G_enbl = "0", mesh_2G_rssi = "-65" }))
    assert.are.equal(2, #select(2, sent()))
  end)

end)

describe("easymesh_config read", function()
  local function mesh_fields(t)
    local f = {}
    for _, k in ipairs({ "enblMesh", "enbl1", "ssid1", "key1", "auth1", "enbl2", "ssid2", "key2", "auth2", "rssi1",
      "rssi2" }) do
      f[k] = t[k]
    end
    return f
  end

  it("shows the service's settings, then the interconnect status, then the plugin's thresholds as RSSI", function()
    local t = v:get("easymesh_config")
    assert.are.same({ enblMesh = true, enbl1 = true, ssid1 = "Velmont-3F10", key1 = "vel3f10home", auth1 = "WPA2-PSK",
      enbl2 = true, ssid2 = "Velmont-3F10-5G", key2 = "vel3f10home", auth2 = "WPA2-PSK", rssi1 = -65, rssi2 = -55 },
      mesh_fields(t))
    assert.are.same({ 1, 2, "A4C1E2104B21" }, { t.appStatus, t.devcnt, t.ap1.mac })
    local ops, posts, logs = h.ops(), h.calls("ZoVelPostMsg"), h.log_texts()
    assert.are.same({ "ZoVelDBusGetAllProperty", "ZoVelListApp" }, { ops[2], ops[3] })
    assert.are.equal('{"CmdType":"GetMeshRoaming","SequenceId":"88888888"}', posts[#posts].command)
    assert.matches('^5 GetMeshRoaming: {.*"infos":{"optimal_path_rcpi_threshold2g":90,"optimal_path_rcpi_threshold":110}',
      logs[#logs])
  end)

  it("converts each reported RCPI with truncating division, and keeps a band's default otherwise", function()
    local function infos(text) return '{"CmdType":"GetMeshRoaming","infos":' .. text .. ',"Status":0}' end
    -- reply (false: none), RSSI 2.4 GHz, RSSI 5 GHz
    for _, c in ipairs({
      { infos '{"optimal_path_rcpi_threshold2g":91,"optimal_path_rcpi_threshold":100}', -65, -60 },
      { infos '{"optimal_path_rcpi_threshold2g":0,"optimal_path_rcpi_threshold":220}', -110, 0 },
      { infos '{"optimal_path_rcpi_threshold2g":1,"optimal_path_rcpi_threshold":-1}', -110, -110 },
      { infos '{"optimal_path_rcpi_threshold2g":-3,"optimal_path_rcpi_threshold":255}', -111, 17 },
      { infos '{"optimal_path_rcpi_threshold2g":4294967387,"optimal_path_rcpi_threshold":-4294967196}', -65, -60 },
      { infos '{"optimal_path_rcpi_threshold2g":80}', -70, -60 },
      { infos '{"optimal_path_rcpi_threshold2g":80.0,"optimal_path_rcpi_threshold":"130"}', -65, -60 },
      { infos '{"optimal_path_rcpi_threshold2g":true,"optimal_path_rcpi_threshold":null}', -65, -60 },
      { infos '[80,130]', -65, -60 },
      { '{"optimal_path_rcpi_threshold2g":80,"optimal_path_rcpi_threshold":130}', -65, -60 },
      { "not json", -65, -60 }, { "", -65, -60 }, { false, -65, -60 },
    }) do
      h.sim.plugin_reply("GetMeshRoaming", c[1] or nil)
      h.sim.clear_logs()
      local t = v:get("easymesh_config")
      assert.are.same({ c[2], c[3] }, { t.rssi1, t.rssi2 }, tostring(c[1]))
      local logs = h.log_texts()
      assert.are.equal(c[1] and "5 GetMeshRoaming: " .. c[1] or nil, c[1] and logs[#logs] or nil)
    end
  end)

  it("shows mesh off and empty texts without the service, and skips values of another type", function()
    h.edit_model(function(m) m.easymesh = nil end)
    assert.are.same({ enblMesh = false, enbl1 = false, ssid1 = "", key1 = "", auth1 = "", enbl2 = false, ssid2 = "",
      key2 = "", auth2 = "", rssi1 = -65, rssi2 = -55 }, mesh_fields(v:get("easymesh_config")))
    h.reset()
    h.edit_model(function(m) m.easymesh.enable, m.easymesh.ssid_2g, m.easymesh.key_5g = "true", 24, nil end)
    local t = v:get("easymesh_config")
    assert.are.same({ false, "", "", true }, { t.enblMesh, t.ssid1, t.key2, t.enbl2 })
    h.edit_model(function(m) m.apps[1].state = 0 end)
    t = v:get("easymesh_config")
    assert.are.same({ -65, -60, 0, 0 }, { t.rssi1, t.rssi2, t.appStatus, t.devcnt })
  end)

  it("round trip: the thresholds the write sends are what the read shows; the write's reply is only logged", function()
    assert.are.equal(0, v:set("easymesh_config", req { mesh_2G_rssi = "-70", mesh_5G_rssi = "-58" }))
    local t = v:get("easymesh_config")
    assert.are.same({ -70, -58, "Mesh-24", "SAE" }, { t.rssi1, t.rssi2, t.ssid1, t.auth2 })
    h.sim.plugin_reply("SetMeshRoaming", "not json")
    h.sim.clear_logs()
    assert.are.equal(0, v:set("easymesh_config", req { mesh_2G_rssi = "-65" }))
    assert.are.same({ "5 Set SetMeshRoaming: " ..
      '{"CmdType":"SetMeshRoaming","infos":{"optimal_path_rcpi_threshold2g":90},"SequenceId":"88888888"}',
      "5 Set SetMeshRoaming: not json" }, h.log_texts())
  end)
end)

describe("hasMesh", function()
  it("answers 1 without Wi-Fi or with any MAP agent, else whether the mesh service is on", function()
    -- model edit, answer, properties read
    for _, c in ipairs({
      { "no Wi-Fi", function(m) m.device.has_wifi = false end, 1, {} },
      { "a MAP agent", nil, 1, { "MAPAgent" } },
      { "a MAP agent that is false", function(m) m.wifi.map_agent = false end, 1, { "MAPAgent" } },
      { "a MAP agent that is a text", function(m) m.wifi.map_agent = "x" end, 1, { "MAPAgent" } },
      { "no MAP agent, mesh on", function(m) m.wifi.map_agent = nil end, 1, { "MAPAgent", "Enable" } },
      { "no MAP agent, mesh off", function(m) m.wifi.map_agent = nil; m.easymesh.enable = false end, 0,
        { "MAPAgent", "Enable" } },
      { "no MAP agent, Enable of another type", function(m) m.wifi.map_agent = nil; m.easymesh.enable = 1 end, 0,
        { "MAPAgent", "Enable" } },
      { "no MAP agent, no mesh service", function(m) m.wifi.map_agent = nil; m.easymesh = nil end, 0,
        { "MAPAgent", "Enable" } },
    }) do
      h.reset()
      if c[2] then h.edit_model(c[2]) end
      assert.are.equal(c[3], v:get("hasMesh"), c[1])
      local read = {}
      for _, r in ipairs(h.calls("ZoVelDBusGetProperty")) do read[#read + 1] = r.property end
      assert.are.same(c[4], read, c[1])
      assert.are.same(#c[4] == 2 and { "5 Get MAPAgent failed.\n" } or {}, h.log_texts(), c[1])
    end
  end)
end)

describe("the exported EasyMesh reader called from C", function()
  local program = assert(os.getenv("VELCONFIG_EASYMESH_EXPORT"), "VELCONFIG_EASYMESH_EXPORT names the C program")
  local module = assert(os.getenv("VELCONFIG_MODULE"), "VELCONFIG_MODULE names velconfig.so")

  -- Runs the C program on the default gateway changed by edit; its output as name = rest.
  local function run(edit, mode)
    local m = cjson.decode(h.sim.default_model())
    if edit then edit(m) end
    local state = os.tmpname()
    local f = assert(io.open(state, "wb"))
    f:write(cjson.encode(m))
    f:close()
    local p = io.popen(("VELCONFIG_SIM_STATE=%s %s %s 3 %s; echo status $?"):format(state, program, module, mode))
    local out = {}
    for line in p:lines() do
      local name, rest = line:match("^(%S+) ?(.*)$")
      out[name] = rest
    end
    p:close()
    os.remove(state)
    os.remove(state .. ".lock")
    return out
  end

  it("fills every field, each text cut to its field and terminated; -1 for a null record", function()
    assert.are.same({ null = "-1", rc = "0", path = "terminated /com/zom/map1/Management", enable = "1",
      enable_2g = "1", enable_5g = "0", ssid_2g = "terminated " .. ("S"):rep(63), ssid_5g = "terminated Velmont-3F10-5G",
      auth_2g = "terminated WPA2-PSK", auth_5g = "terminated " .. ("A"):rep(15), key_2g = "terminated " .. ("K"):rep(79),
      key_5g = "terminated vel3f10home", calls = "3 same 3", status = "0" },
      run(function(m)
        m.easymesh.ssid_2g, m.easymesh.auth_5g, m.easymesh.key_2g = ("S"):rep(64), ("A"):rep(40), ("K"):rep(80)
        m.easymesh.enable_5g = false
      end, "fill"))
  end)

  it("writes only the fields whose properties it finds with their own type", function()
    local out = run(function(m)
      m.easymesh.key_5g, m.easymesh.auth_2g, m.easymesh.enable, m.easymesh.ssid_5g = nil, 7, "yes", true
    end, "fill")
    local untouched = "unterminated "
    assert.are.same({ "0", untouched .. ("x"):rep(80), untouched .. ("x"):rep(16), untouched .. ("x"):rep(64),
      tostring(0x78787878), "terminated Velmont-3F10" },
      { out.rc, out.key_5g, out.auth_2g, out.ssid_5g, out.enable, out.ssid_2g })
  end)

  it("answers -1 and leaves the record alone when the service is absent or reports nothing", function()
    for _, edit in ipairs({ function(m) m.easymesh = nil end, function(m) m.easymesh = {} end }) do
      local out = run(edit, "clear")
      assert.are.same({ "-1", "terminated ", "0", "3 same 3", "0" }, { out.rc, out.path, out.enable, out.calls, out.status })
    end
  end)
end)
