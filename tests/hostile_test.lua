-- A hostile platform: counts that lie, arrays that are missing, texts without
-- terminators, values of the wrong type, 1 MB replies, JSON nested 10 000 deep, and a
-- uci that hangs or floods. No key may crash, hang or overrun; each answers with
-- its failure result.
local h = require "helpers"
local cjson = h.cjson
local v, sim = h.velconfig, h.sim

local catalogue = cjson.decode(assert(io.open(os.getenv("VELCONFIG_CATALOGUE"))):read("*a"))

-- Arguments that reach past each key's first checks on the default gateway.
local get_args = {
  hostsInfo = { "7" }, gwInfo = { "all" }, fileLists = { "2" }, selectedUsb = { "2" }, subFiles = { "/mnt/usb1_1" },
  getDiagFolders = { "/mnt/usb1_1" }, copyProgress = { "1" }, getAppParas = { "familycare" },
}
local set_inputs = {
  lan = { dhcpEnbl = "1", oldLanIp = "192.168.1.1", lanIp = "192.168.1.1", poolStart = "192.168.1.2",
          poolEnd = "192.168.1.9", subnetMask = "255.255.255.0" },
  pmSetSingle = { op = "del", desp = "NAS-Web" },
  pmSetAll = { op = "disable" },
  hostSettings = { type = "black", mac = "D89EF3A1B201", onOff = "1" },
  configAP = { mac = "00:11:22:33:44:55", modeflg = "3", ssid2g = "a", pwd2g = "b", enbl2g = "1",
               ssid5g = "c", pwd5g = "d", enbl5g = "1" },
  syncConfig = { syncConfig = "1" },
  usbModifyLabel = { instno = "2", newLabel = "x" },
  setAppParas = '{"config":"familycare","main.enabled":"0"}',
  checkUAPasswd = "secret", checkTAPasswd = "secret", logInfo = "logout",
}
-- Keys whose job is to change the simulated disks or restart the gateway are left
-- out: the profile is about what the platform answers, and they answer the same way.
local skipped = { reboot = true, restore = true, fwrestore = true, usbFormat = true, deleteFiles = true,
                  renameFile = true, copyMove = true, newFolder = true }

local function every_key()
  local answers = {}
  for _, k in ipairs(catalogue) do
    if k.built and not skipped[k.key] then
      local ok, answer
      if k.call == "get" then
        ok, answer = pcall(v.get, v, k.key, unpack(get_args[k.key] or {}))
        assert.is_true(ok, k.key .. ": " .. tostring(answer))
        local t = type(answer)
        assert.is_true(t == "table" or t == "number" or t == "string" or t == "nil", k.key)
      else
        ok, answer = pcall(v.set, v, k.key, set_inputs[k.key] or {})
        -- A field the write needs and did not get is the Lua error a page gets.
        if ok then
          assert.are.equal("number", type(answer), k.key)
        else
          assert.is_truthy(tostring(answer):find("^bad argument"), k.key .. ": " .. tostring(answer))
        end
      end
      answers[k.call .. " " .. k.key] = answer
    end
  end
  return answers
end

-- Row keys ("dev1", "pmRule2", ...) of a result table.
local function rows(t, prefix)
  local n = 0
  for key in pairs(t) do
    if type(key) == "string" and key:match("^" .. prefix .. "%d+$") then n = n + 1 end
  end
  return n
end

describe("a hostile platform", function()
  before_each(function() h.reset() end)
  after_each(function() sim.hostile("none") end)

  it("reporting counts of -1, or no array with a positive count, gives empty listings", function()
    for _, profile in ipairs({ "count-1", "array-absent" }) do
      h.reset()
      sim.hostile(profile)
      local a = every_key()
      local hosts, all = a["get hostsInfo"], a["get allInfo"]
      assert.are.same({ 0, 0, 0, 0, 0, 0 }, { hosts.count, rows(hosts, "dev"), all.wcount, all.wlcount,
        rows(all, "pc") + rows(all, "wifi"), rows(a["get pmLists"], "pmRule") }, profile)
      assert.are.equal(0, a["get fileLists"].fileNum, profile)
    end
  end)

  it("reporting 2^31-1 records with a short array lists only what the array holds", function()
    local honest = every_key()
    h.reset()
    sim.hostile("count-huge")
    local a = every_key()
    assert.are.equal(rows(honest["get hostsInfo"], "dev"), rows(a["get hostsInfo"], "dev"))
    assert.are.equal(rows(honest["get pmLists"], "pmRule"), rows(a["get pmLists"], "pmRule"))
    assert.are.equal(honest["get fileLists"].fileNum, a["get fileLists"].fileNum)
  end)

  it("failing a folder count that still reports one lists nothing and passes the count on", function()
    sim.hostile("count-on-failure")
    local a = every_key()
    local files = a["get subFiles"]
    assert.are.same({ 4, 0, 0 }, { files.fileNum, rows(files, "file"), rows(a["get fileLists"], "file") })
    assert.are.same({ folderNum = 0 }, a["get getDiagFolders"])
  end)

  it("filling every record with unterminated text keeps each text within its field", function()
    sim.hostile("unterminated")
    local a = every_key()
    -- The DHCP record's LAN address field is 16 bytes: all of it, and nothing more.
    assert.are.equal(string.rep("A", 16), a["get lan"].lanIp)
    for _, row in pairs(a["get hostsInfo"]) do
      if type(row) == "table" then assert.is_true(#row.mac <= 13 and #row.ip <= 17) end
    end
  end)

  it("answering D-Bus reads with values of the wrong type gives the fallbacks", function()
    sim.hostile("wrong-types")
    local a = every_key()
    assert.are.same({ 0, "", 1 }, { a["get gwInfo"].MarkType, a["get gwInfo"].DevType, a["get getMallUrl"].result })
  end)

  it("with 1 MB replies and JSON nested 10 000 deep cuts or refuses them", function()
    sim.hostile("huge-replies")
    local a = every_key()
    for _, row in pairs(a["get interConndStatus"]) do
      if type(row) == "table" then assert.is_true(#row.vendor <= 255 and #row.mac <= 255) end
    end
    assert.are.equal(1, a["get getMallUrl"].result)
    sim.hostile("deep-json")
    a = every_key()
    assert.are.equal(0, a["get interConndStatus"].devcnt)
    assert.are.equal(1, a["get getMallUrl"].result)
  end)
end)

describe("a uci that misbehaves", function()
  local dir
  before_each(function()
    h.reset()
    dir = os.tmpname()
    os.remove(dir)
    assert.is_true(os.execute("mkdir " .. h.quote(dir)) == 0)
  end)
  after_each(function()
    sim.set_tools_dir(os.getenv("VELCONFIG_TOOLS_DIR") or "")
    os.execute("rm -rf " .. h.quote(dir))
  end)

  it("printing 1 MB leaves every answer as it is with the real one", function()
    local request = '{"config":"familycare","main.enabled":"0"}'
    local honest = { v:set("setAppParas", request), v:get("regProcess") }
    h.reset()
    local f = assert(io.open(dir .. "/uci", "w"))
    f:write("#!/bin/sh\nhead -c 1048576 /dev/zero | tr '\\\\0' x\n")
    f:close()
    assert.is_true(os.execute("chmod +x " .. h.quote(dir .. "/uci")) == 0)
    sim.set_tools_dir(dir)
    assert.are.same(honest, { v:set("setAppParas", request), v:get("regProcess") })
  end)
end)
