-- The velconfig command-line tool, run as a user runs it, against its own state file.
local h = require "helpers"
local cjson = h.cjson

local quote = h.quote

-- Runs the tool; returns exit status, stdout and stderr.
local function run(state, ...) return h.shell(h.cli(state, ...)) end

describe("the velconfig tool", function()
  local state
  before_each(function()
    state = os.tmpname()
    os.remove(state)
  end)
  after_each(function() os.remove(state) end)

  it("prints a get result as JSON, seeds a private state file from the built-in gateway and keeps changes there", function()
    local status, out = run(state, "get", "getAppConfig")
    assert.are.equal(0, status)
    assert.are.same({ app1 = { name = "test", title = "APP TEST", src = "test" }, appCnt = 0 }, cjson.decode(out))
    assert.are.equal("VG-8200AX", cjson.decode(assert(io.open(state)):read("*a")).device.product_class)
    assert.are.equal(0, (run(state, "set", "reboot")))
    assert.are.equal(0, (run(state, "set", "reboot")))
    assert.are.equal(3, cjson.decode(assert(io.open(state)):read("*a")).device.boot_count)
    assert.are.equal("600\n", select(2, h.shell("stat -c %a " .. quote(state))))
  end)

  it("passes NAME=VALUE fields as a table: a Wi-Fi write shows in the pages of later runs", function()
    local function answer(...)
      local status, out = run(state, ...)
      assert.are.equal(0, status)
      return cjson.decode(out)
    end
    assert.are.equal(0, answer("set", "wifiBasic", "wifi_dualBand=0", "wifi_2G_enbl=1", "wifi_2G_ssid=Home",
      "wifi_2G_auth=Open", "wifi_2G_passwd=", "wifi_2G_strength=1"))
    assert.are.equal(0, answer("set", "wifiAdv", "wifi_timing=1", "start_time=7:5", "end_time=22:00"))
    local ssid, basic, timer = answer("get", "wifiSsid"), answer("get", "wifiBasic"), answer("get", "wifiAdv")
    assert.are.same({ "Home", "None", "Open", 1, 1, "07:05" },
      { ssid.ssid, ssid.bType, basic.auth1, basic.powerLevel1, timer.timerEnbl, timer.startTime })
  end)

  it("prints the platform log on stderr with -v only", function()
    local status, out, err = run(state, "-v", "set", "fwrestore")
    assert.are.equal(0, status)
    assert.are.equal("0\n", out)
    assert.matches("Framework do restore.", err, 1, true)
    local _, _, quiet = run(state, "set", "fwrestore")
    assert.are.equal("", quiet)
  end)

  it("runs a page author's script on the chosen gateway, and env points any other lua at it", function()
    local page = os.tmpname()
    local f = assert(io.open(page, "w"))
    f:write([[
      local v = require "velconfig"
      io.write(v:set("wifiBasic", { wifi_dualBand = "0", wifi_2G_enbl = "1", wifi_2G_ssid = arg[1], wifi_2G_auth = "WPA2",
                                     wifi_2G_passwd = "page-1234", wifi_2G_strength = "2" }), " ", select(2, ...), "\n")
      if arg[2] == "fail" then v:set("lan", { dhcpEnbl = "1" }) end
    ]])
    f:close()
    local status, out = run(state, "run", page, "From-a-page", "ok")
    assert.are.same({ 0, "0 ok\n" }, { status, out })
    assert.are.equal("From-a-page", cjson.decode((select(2, run(state, "get", "wifiSsid")))).ssid)
    local err
    status, out, err = run(state, "run", page, "Second", "fail")
    os.remove(page)
    assert.are.same({ 1, "0 fail\n" }, { status, out })
    assert.matches("^velconfig run: [^\n]*:4: bad argument #%-?%d+ to '[^']+' %(string expected for field 'oldLanIp', got nil%)\n" ..
      "stack traceback:\n", err)
    local _, exports = run(state, "env")
    status, out = h.shell(exports .. "\n" .. quote(os.getenv("VELCONFIG_LUA")) ..
      " -e 'io.write(require(\"velconfig\"):get(\"wifiSsid\").ssid)'")
    assert.are.same({ 0, "Second" }, { status, out })
  end)

  it("runs the README's first example as written", function()
    local readme = assert(io.open(os.getenv("VELCONFIG_SOURCE_DIR") .. "/README.md")):read("*a")
    local page = os.tmpname()
    local f = assert(io.open(page, "w"))
    f:write((assert(readme:match("```lua\n(.-)```"))))
    f:close()
    local status, out, err = run(state, "run", page)
    os.remove(page)
    assert.are.same({ 0, "CONNECTED\t6 devices\n0\n", "" }, { status, out, err })
    assert.are.equal("Home", cjson.decode((select(2, run(state, "get", "wifiSsid")))).ssid)
  end)

  it("names what a page author got wrong: the field a write missed (status 1), a key that does not exist (status 2)", function()
    local status, out, err = run(state, "set", "lan", "dhcpEnbl=1")
    assert.are.same({ 1, "" }, { status, out })
    assert.are.equal("velconfig: " .. h.library_set_error("string expected for field 'oldLanIp', got nil") .. "\n" ..
      "velconfig: velconfig help lan says what each field of lan takes\n", err)
    err = select(3, run(state, "set", "wifiBasic", "wifi_dualBand=0", "wifi_2G_enbl=1", "wifi_2G_ssid=X"))
    assert.matches("(string expected for field 'wifi_2G_auth', got nil)", err, 1, true)
    for _, c in ipairs({
      { { "get", "allinfo" }, "no such key: allinfo (did you mean allInfo?)" },
      { { "get", "reboot" }, "no such key: reboot (it is a set key: velconfig set reboot)" },
      { { "get", "nothing-like-it" }, "no such key: nothing-like-it (velconfig keys lists them)" },
      { { "set", "wifibasic", "a=1" }, "no such key: wifibasic (did you mean wifiBasic?)" },
      { { "help", "wifiBsic" }, "no such key: wifiBsic (did you mean wifiBasic?)" },
    }) do
      status, out, err = run(state, unpack(c[1]))
      assert.are.same({ 2, "", "velconfig: " .. c[2] .. "\n" }, { status, out, err })
    end
  end)

  it("helps from the key catalogue without touching the gateway", function()
    local cases = {
      { { "--help" }, 0, "  help KEY   what KEY takes and answers" },
      { { "help" }, 0, "usage: velconfig" },
      { { "keys" }, 0, "get hasWiFi\n" },
      { { "keys" }, 0, "set logInfo\n" },
      { { "help", "fileLists" }, 0, "velconfig get fileLists A1\n  arguments: a1: instance number" },
      { { "help", "checkTAPasswd" }, 0, "velconfig set checkTAPasswd --text TEXT\n" },
      { { "help", "wifiBasic" }, 0, "velconfig set wifiBasic NAME=VALUE ...\n  input:     table: wifi_dualBand" },
      { { "help", "nosuch" }, 2, "" },
      { { "help", "wifiBasic" }, 0, "    wifi_5G_enbl\n" },
    }
    for _, c in ipairs(cases) do
      local status, out = run(state, unpack(c[1]))
      assert.are.equal(c[2], status, table.concat(c[1], " "))
      assert.matches(c[3], out, 1, true)
    end
    assert.are.equal(62, select(2, select(2, run(state, "keys")):gsub("\n", "")))
    assert.is_nil(io.open(state), "help read the state file")
  end)

  it("completes commands and keys in bash", function()
    local script = os.getenv("VELCONFIG_TOOL"):match("^(.*/)") .. "velconfig.bash"
    local function complete(...)
      local words = { "velconfig", ... }
      for i, w in ipairs(words) do words[i] = quote(w) end
      return select(2, h.shell("bash -c " .. quote("source " .. quote(script) .. "; COMP_WORDS=(" ..
        table.concat(words, " ") .. "); COMP_CWORD=" .. (#words - 1) .. '; _velconfig; echo "${COMPREPLY[*]}"')))
    end
    assert.are.equal("wifiBasic wifiAdv wifiSsid\n", complete("get", "wifi"))
    assert.are.equal("rmBlackHost restore reboot registerloid\n", complete("-v", "--state", "f", "set", "r"))
    assert.are.equal("help\n", complete("he"))
  end)

  it("lists numbered rows in numeric order, escapes platform texts, and takes options only before the command", function()
    local m = cjson.decode(h.sim.default_model())
    -- twelve black-listed hosts, and one allowed on the wire with a name to escape
    m.hosts = { { id = 13, mac = "000000000013", access = 2, online = true, connection = 0, name = "caf\195\169 \"\1\\" } }
    for i = 1, 12 do
      m.hosts[i + 1] = { id = i, mac = string.format("0000000000%02d", i), access = 0, online = true }
    end
    local f = assert(io.open(state, "w"))
    f:write(cjson.encode(m))
    f:close()
    local _, out = run(state, "get", "blackHosts")
    local order = {}
    for key in out:gmatch('\n  "(dev%d+)"') do order[#order + 1] = key end
    assert.are.same({ "dev1", "dev2", "dev3", "dev4", "dev5", "dev6", "dev7", "dev8", "dev9", "dev10", "dev11", "dev12" }, order)
    local _, overview = run(state, "get", "allInfo")
    assert.are.equal("caf\195\169 \"\1\\", cjson.decode(overview).pc1.devName)
    local status
    status, out = run(state, "set", "logInfo", "--text", "-h")
    assert.are.same({ 0, "0\n" }, { status, out })
  end)

  it("keeps the interconnect plugin's and the web accounts' changes across runs", function()
    local status, out = run(state, "set", "configAP", "mac=A4C1E2107C44", "modeflg=1", "ssid2g=Velmont-Attic",
      "pwd2g=attic-2024", "enbl2g=1")
    assert.are.same({ 0, "0\n" }, { status, out })
    out = select(2, run(state, "get", "interConndStatus"))
    assert.are.same({ "Velmont-Attic", 2 }, { cjson.decode(out).ap2.ssid2g, cjson.decode(out).devcnt })
    assert.are.equal("0\n", select(2, run(state, "set", "account", "old=user1234", "new=Us3r-2025")))
    local result, log
    status, result, log = run(state, "-v", "set", "checkUAPasswd", "--text", "Us3r-2025")
    assert.are.same({ 0, "0\n", "velconfig[5]: 登录网关普通WEB成功。\n" }, { status, result, log })
  end)

  it("answers a usage error with one line, a pointer to --help and status 2", function()
    for _, args in ipairs({ {}, { "get" }, { "frob", "x" }, { "get", "k", "1", "2", "3" }, { "set", "k", "novalue" },
                            { "run" }, { "serve", "--pages" } }) do
      local status, out, err = run(state, unpack(args))
      assert.are.same({ 2, "" }, { status, out })
      assert.matches("^velconfig: [^\n]+; see velconfig %-%-help\n$", err)
    end
  end)

  it("refuses a state file it cannot read instead of overwriting it", function()
    local f = assert(io.open(state, "w"))
    f:write("{ not json")
    f:close()
    local status, _, err = run(state, "get", "hasWiFi")
    assert.are.equal(1, status)
    assert.matches("cannot read state file", err, 1, true)
    assert.are.equal("{ not json", assert(io.open(state)):read("*a"))
  end)
end)
