-- The console's request handler, called as the HTTP server calls it: the API over
-- get and set, the catalogue, the pages, and what it refuses.
local h = require "helpers"
local cjson = h.cjson
local console = require "console"
local json = require "velconfig_json"

local catalogue = cjson.decode(assert(io.open(os.getenv("VELCONFIG_CATALOGUE"))):read("*a"))
local web_dir = os.getenv("VELCONFIG_SOURCE_DIR") .. "/web"
local handle = console.handler({ velconfig = h.velconfig, json = json, cjson = cjson, web_dir = web_dir,
                                 catalogue = catalogue })

local function request(method, path, options)
  options = options or {}
  local headers = { host = options.host or "127.0.0.1:8080", ["content-type"] = "application/json" }
  local status, ctype, body = handle({ method = method, path = path, headers = headers, query = options.query or {},
                                       body = options.body or "" })
  return status, ctype, body
end

local function api(method, path, options)
  local status, ctype, body = request(method, path, options)
  assert.are.equal("application/json", ctype)
  return status, cjson.decode(body)
end

describe("the console API", function()
  before_each(function() h.reset() end)

  it("answers get with the module's answer, a1 from the query or a POST's JSON object, nil as null", function()
    local status, body = api("GET", "/api/get/gwInfo", { query = { a1 = "all" } })
    assert.are.equal(200, status)
    assert.are.same(h.velconfig:get("gwInfo", "all"), body.answer)
    assert.is_not_nil(body.answer.ssid2g)
    local _, _, raw = request("GET", "/api/get/noSuchKey")
    assert.are.equal('{"key":"noSuchKey","answer":null}', raw)
    status, body = api("POST", "/api/get/subFiles", { body = '{"a1":"/mnt/usb1_1"}' })
    assert.are.same({ 200, h.velconfig:get("subFiles", "/mnt/usb1_1") }, { status, body.answer })
    assert.are.equal("a1 must be a text", select(2, api("POST", "/api/get/subFiles", { body = '{"a1":5}' })).error)
  end)

  it("writes with set from an object, a string or nothing; 400 for a body not JSON and for the module's Lua error", function()
    local status, body = api("POST", "/api/set/pmSetSingle", { body = cjson.encode({
      op = "add", desp = "Web", client = "192.168.1.50", protocol = "TCP", exPort = "8081", inPort = "80" }) })
    assert.are.same({ 200, 0 }, { status, body.result })
    local rules = h.velconfig:get("pmLists")
    assert.are.equal("Web", rules["pmRule" .. rules.count].desp)
    assert.are.equal(1, select(2, api("POST", "/api/set/lan", { body = '"text"' })).result)
    assert.are.equal(1, select(2, api("POST", "/api/set/noSuchKey", { body = "" })).result)
    status, body = api("POST", "/api/set/lan", { body = "{bad" })
    assert.are.same({ 400, "the body is not JSON" }, { status, body.error })
    status, body = api("POST", "/api/set/lan", { body = '{"dhcpEnbl":true}' })
    assert.are.equal(400, status)
    assert.are.equal(h.library_set_error("string expected for field 'dhcpEnbl', got boolean"), body.error)
    assert.are.equal(400, (api("POST", "/api/set/lan", { body = "[1,2]" })))
  end)

  it("answers only requests addressed to the loopback address", function()
    for _, host in ipairs({ "evil.example", "192.168.1.1:8080", "127.0.0.1.evil.example", "", "127.0.0.1:99999" }) do
      assert.are.equal(403, (api("GET", "/api/get/gwIPs", { host = host })), host)
    end
    assert.are.equal(403, (handle({ method = "GET", path = "/api/get/gwIPs", headers = {}, query = {}, body = "" })))
    assert.are.equal(200, (api("GET", "/api/get/gwIPs", { host = "localhost:8080" })))
  end)

  it("serves the pages, and 404 for anything else, methods checked", function()
    local status, ctype, body = request("GET", "/")
    assert.are.same({ 200, "text/html; charset=utf-8" }, { status, ctype })
    assert.is_truthy(body:find("console.js", 1, true))
    assert.are.equal(200, (request("GET", "/console.js")))
    for _, path in ipairs({ "/../README.md", "/..%2fREADME.md", "/missing.html", "/web/index.html", "/api/other" }) do
      assert.are.equal(404, (request("GET", path)), path)
    end
    assert.are.equal(405, (api("PUT", "/api/get/gwIPs")))
    assert.are.equal(405, (api("GET", "/api/set/reboot")))
  end)
end)

describe("the key catalogue", function()
  it("describes every key, and every built read key that changes nothing answers", function()
    h.reset()
    for _, k in ipairs(catalogue) do
      assert.are_not.equal("", k.fields, k.key)
      if k.call == "get" and k.built and not k.changes then
        assert.is_not_nil(h.velconfig:get(k.key), k.key)
      elseif k.call == "get" and not k.built then
        assert.is_nil(h.velconfig:get(k.key), k.key)
      end
    end
  end)

  it("is what the key tables of docs/keys.md say (make docs-keys rewrites them)", function()
    local source = os.getenv("VELCONFIG_SOURCE_DIR")
    local p = io.popen("lua5.1 " .. source .. "/tools/catalogue/keys_table.lua " .. os.getenv("VELCONFIG_CATALOGUE"))
    local generated = p:read("*a")
    p:close()
    local doc = assert(io.open(source .. "/docs/keys.md")):read("*a")
    local tables = doc:match("<!%-%- keys:begin %-%->\n(.-)<!%-%- keys:end %-%->")
    assert.is_true(#generated > 1000)
    assert.are.equal(generated, tables)
  end)
end)

-- velconfig serve itself, over real HTTP on the loopback address (curl as the client).
describe("the console over HTTP", function()
  local quote = h.quote
  local dir, pid, port, token, base

  setup(function()
    dir = os.tmpname()
    os.remove(dir)
    assert(os.execute("mkdir " .. quote(dir)) == 0)
    local _, out = h.shell("VELCONFIG_ROOT=" .. quote(dir .. "/root") .. " " .. quote(os.getenv("VELCONFIG_TOOL")) ..
      " --state " .. quote(dir .. "/gateway.json") .. " serve --port 0 >" .. quote(dir .. "/out") .. " 2>&1 & echo $!")
    pid = assert(tonumber(out:match("%d+")))
    for _ = 1, 200 do
      local printed = io.open(dir .. "/out"):read("*a")
      port, token = printed:match("http://127%.0%.0%.1:(%d+)/%?token=(%x+)")
      if port then break end
      os.execute("sleep 0.05")
    end
    assert(port, "serve printed its address with a token")
    base = "http://127.0.0.1:" .. port
  end)

  teardown(function()
    if pid then os.execute("kill " .. pid) end
    os.execute("rm -rf " .. quote(dir))
  end)

  -- One request: the status, the headers (lower-case names) and the body.
  local function fetch(method, path, headers, body)
    -- curl without the sanitizer runtime the suite may preload into everything it starts
    local words = { "env -u LD_PRELOAD curl -sS --max-time 10 -o", quote(dir .. "/body"), "-D - -X", method }
    for name, value in pairs(headers or {}) do words[#words + 1] = "-H " .. quote(name .. ": " .. value) end
    if body then words[#words + 1] = "--data-binary " .. quote(body) end
    words[#words + 1] = quote(base .. path)
    local rc, out, err = h.shell(table.concat(words, " "))
    assert(rc == 0, err)
    local status = tonumber(out:match("^HTTP/1%.1 (%d+)"))
    local got = {}
    for name, value in out:gmatch("\n([^:\r\n]+): ([^\r\n]*)") do got[name:lower()] = value end
    return status, got, io.open(dir .. "/body"):read("*a")
  end

  local function with_token(extra)
    local headers = { Authorization = "Token " .. token }
    for k, v in pairs(extra or {}) do headers[k] = v end
    return headers
  end

  local function answer(key, a1)
    local status, _, body = fetch("GET", "/api/get/" .. key .. (a1 and "?a1=" .. a1 or ""), with_token())
    assert.are.equal(200, status)
    return cjson.decode(body).answer
  end

  it("listens on 127.0.0.1 only", function()
    local hex = ("%04X"):format(tonumber(port))
    local listening = {}
    for _, file in ipairs({ "/proc/net/tcp", "/proc/net/tcp6" }) do
      for line in io.lines(file) do
        local localaddr, state = line:match("^%s*%d+: (%x+:%x+) %x+:%x+ (%x%x)")
        if state == "0A" and localaddr:sub(-5) == ":" .. hex then listening[#listening + 1] = localaddr end
      end
    end
    assert.are.same({ "0100007F:" .. hex }, listening)
  end)

  it("trades the printed token for a strict cookie, and the API asks for the token", function()
    local status, headers = fetch("GET", "/?token=" .. token)
    assert.are.same({ 303, "/" }, { status, headers.location })
    local cookie = "velconfig_token_" .. port .. "=" .. token
    assert.are.equal(cookie .. "; Path=/; HttpOnly; SameSite=Strict", headers["set-cookie"])
    local cases = {
      { "none", "/api/get/hasWiFi", {}, 403 },
      { "a wrong token", "/api/get/hasWiFi?token=" .. token:reverse(), {}, 403 },
      { "another port's cookie", "/api/get/hasWiFi", { Cookie = "velconfig_token_1=" .. token }, 403 },
      { "a wrong scheme", "/api/get/hasWiFi", { Authorization = "Bearer " .. token }, 403 },
      { "the query token", "/api/get/hasWiFi?token=" .. token, {}, 200 },
      { "the header", "/api/get/hasWiFi", { Authorization = "Token " .. token }, 200 },
      { "the cookie", "/api/get/hasWiFi", { Cookie = "other=1; " .. cookie }, 200 },
    }
    for _, case in ipairs(cases) do
      assert.are.equal(case[4], (fetch("GET", case[2], case[3])), case[1])
    end
    assert.are.equal(200, (fetch("GET", "/console.js")), "the pages themselves need no token")
  end)

  it("refuses what another page could send, and nothing changes", function()
    local ssid, listing = answer("wifiSsid").ssid, answer("subFiles", "/mnt/usb1_1")
    local json_type = "application/json"
    local wifi = '{"wifi_dualBand":"0","wifi_2G_enbl":"1","wifi_2G_ssid":"Open","wifi_2G_auth":"Open",' ..
                 '"wifi_2G_passwd":"","wifi_2G_strength":"3"}'
    local cases = {
      { "a foreign Origin", "POST", "/api/set/wifiBasic", { Origin = "http://127.0.0.1:1", ["Content-Type"] = json_type },
        wifi, 403 },
      { "Origin null", "POST", "/api/set/wifiBasic", { Origin = "null", ["Content-Type"] = json_type }, wifi, 403 },
      { "cross-site", "POST", "/api/set/wifiBasic", { ["Sec-Fetch-Site"] = "cross-site", ["Content-Type"] = json_type },
        wifi, 403 },
      { "same-site", "GET", "/api/get/hasWiFi", { ["Sec-Fetch-Site"] = "same-site" }, nil, 403 },
      { "a text/plain form", "POST", "/api/set/wifiBasic", { ["Content-Type"] = "text/plain" }, wifi, 415 },
      { "an urlencoded form", "POST", "/api/get/newFolder", {}, "a1=/mnt/usb1_1/x", 415 },
      { "GET of a write", "GET", "/api/set/reboot", {}, nil, 405 },
    }
    for _, k in ipairs(catalogue) do
      if k.call == "get" and k.changes then
        cases[#cases + 1] = { "GET of " .. k.key, "GET", "/api/get/" .. k.key .. "?a1=/mnt/usb1_1/x", {}, nil, 405 }
      end
    end
    assert.are.equal(6 + 7, #cases)
    for _, case in ipairs(cases) do
      local status, headers, body = fetch(case[2], case[3], with_token(case[4]), case[5])
      assert.are.equal(case[6], status, case[1])
      assert.is_string(cjson.decode(body).error, case[1])
      if status == 405 then assert.are.equal("POST", headers.allow, case[1]) end
    end
    assert.are.same({ ssid, listing }, { answer("wifiSsid").ssid, answer("subFiles", "/mnt/usb1_1") })
    -- the console's own page, as the browser sends it, is answered
    local own = { Origin = base, ["Sec-Fetch-Site"] = "same-origin", ["Content-Type"] = "application/json; charset=utf-8" }
    local status, _, body = fetch("POST", "/api/get/newFolder", with_token(own), '{"a1":"/mnt/usb1_1/x"}')
    assert.are.equal(200, status)
    assert.are.equal("/mnt/usb1_1", cjson.decode(body).answer.filePath)
  end)

  it("sends the security headers with every answer", function()
    for _, path in ipairs({ "/", "/api/get/hasWiFi", "/api/get/hasWiFi?token=" .. token, "/missing" }) do
      local _, headers = fetch("GET", path)
      assert.are.same({ "default-src 'self'; frame-ancestors 'none'; base-uri 'none'; form-action 'self'", "nosniff",
                        "no-referrer" },
                      { headers["content-security-policy"], headers["x-content-type-options"], headers["referrer-policy"] },
                      path)
    end
  end)

  it("answers a request while 1 100 other connections stall half-way, and ends a header trickled line by line", function()
    local tool = quote(os.getenv("VELCONFIG_SLOW_CLIENTS"))
    local rc, out = h.shell(tool .. " " .. port .. " 1100 /console.css")
    assert.are.equal(0, rc, out)
    assert.is_truthy(out:find("stalled 1100\nHTTP/1.1 200 OK after", 1, true), out)
    rc, out = h.shell(tool .. " " .. port .. " trickle")
    local ms = tonumber(out:match("^closed after (%d+) ms"))
    assert(rc == 0 and ms >= 4500 and ms < 8000, out)
  end)

  it("answers 503 with the reason, never an empty gateway, while the state file cannot be read", function()
    local state = dir .. "/gateway.json"
    local kept = assert(io.open(state)):read("*a")
    local f = assert(io.open(state, "w"))
    f:write('{"wan": {"ipv4_status": "Connected",}')
    f:close()
    local status, _, body = fetch("GET", "/api/get/allInfo", { Authorization = "Token " .. token })
    assert.are.equal(503, status)
    assert.matches("^the simulated gateway's state cannot be used: cannot read state file .*gateway%.json: not JSON",
      cjson.decode(body).error)
    f = assert(io.open(state, "w"))
    f:write(kept)
    f:close()
    status = fetch("GET", "/api/get/allInfo", { Authorization = "Token " .. token })
    assert.are.equal(200, status)
  end)
end)
