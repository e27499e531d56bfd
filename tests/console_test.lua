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
  local status, ctype, body = handle({ method = method, path = path, host = options.host or "127.0.0.1:8080",
                                       query = options.query or {}, body = options.body or "" })
  return status, ctype, body
end

local function api(method, path, options)
  local status, ctype, body = request(method, path, options)
  assert.are.equal("application/json", ctype)
  return status, cjson.decode(body)
end

describe("the console API", function()
  before_each(function() h.reset() end)

  it("answers get with the module's answer, arguments from the query, nil as null", function()
    local status, body = api("GET", "/api/get/gwInfo", { query = { a1 = "all" } })
    assert.are.equal(200, status)
    assert.are.same(h.velconfig:get("gwInfo", "all"), body.answer)
    assert.is_not_nil(body.answer.ssid2g)
    local _, _, raw = request("GET", "/api/get/noSuchKey")
    assert.are.equal('{"key":"noSuchKey","answer":null}', raw)
  end)

  it("writes with set from an object, a string or nothing, and the change shows", function()
    local status, body = api("POST", "/api/set/pmSetSingle", { body = cjson.encode({
      op = "add", desp = "Web", client = "192.168.1.50", protocol = "TCP", exPort = "8081", inPort = "80" }) })
    assert.are.same({ 200, 0 }, { status, body.result })
    local rules = h.velconfig:get("pmLists")
    assert.are.equal("Web", rules["pmRule" .. rules.count].desp)
    assert.are.equal(1, select(2, api("POST", "/api/set/lan", { body = '"text"' })).result)
    assert.are.equal(1, select(2, api("POST", "/api/set/noSuchKey", { body = "" })).result)
  end)

  it("gives 400 for a body that is not JSON and for the module's own Lua error", function()
    local status, body = api("POST", "/api/set/lan", { body = "{bad" })
    assert.are.same({ 400, "the body is not JSON" }, { status, body.error })
    status, body = api("POST", "/api/set/lan", { body = '{"dhcpEnbl":true}' })
    assert.are.equal(400, status)
    assert.are.equal(h.library_set_error("string expected, got boolean"), body.error)
    assert.are.equal(400, (api("POST", "/api/set/lan", { body = "[1,2]" })))
  end)

  it("answers only requests addressed to the loopback address", function()
    for _, host in ipairs({ "evil.example", "192.168.1.1:8080", "127.0.0.1.evil.example", "", "127.0.0.1:99999" }) do
      assert.are.equal(403, (api("GET", "/api/get/gwIPs", { host = host })), host)
    end
    assert.are.equal(403, (handle({ method = "GET", path = "/api/get/gwIPs", query = {}, body = "" })))
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
    assert.are.equal(405, (api("POST", "/api/get/gwIPs")))
    assert.are.equal(405, (api("GET", "/api/set/reboot")))
  end)
end)

describe("the key catalogue", function()
  it("lists both key tables in order, with every built key answering", function()
    local gets, sets = 0, 0
    for _, k in ipairs(catalogue) do
      if k.call == "get" then gets = gets + 1 else sets = sets + 1 end
      assert.is_true(k.fields ~= "" and type(k.changes) == "boolean", k.key)
    end
    assert.are.same({ 37, 25, "hasWiFi", "logInfo" }, { gets, sets, catalogue[1].key, catalogue[#catalogue].key })
    h.reset()
    for _, k in ipairs(catalogue) do
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
