-- App market URL: the framed request to the simulated cloud client over a real
-- loopback socket, its replies, every failure reason and the time-out.
local h = require "helpers"
local v = h.velconfig
local sim = h.sim
local cjson = h.cjson

local ID = "7c2d9e41-5b08-4f6a-93d1-e84a0b6f2c57"
local REQUEST = '{"ID":"' .. ID .. '","SequenceId":"12345678","RPCMethod":"GetAppMarketURL"}'
local DEFAULT_URL = "https://appmarket.velmont-cloud.example/appmarket?token=5f2b9c1e7a4d4e08b3c6a91d0f7e2b54" ..
  "&MAC=A4C1E2003F10"

-- getMallUrl, once the cloud client has finished serving `served` connections since
-- the reset; no call leaves a descriptor open.
local function mall(served)
  local before = sim.open_descriptors()
  local result = v:get("getMallUrl")
  assert.are.equal(served or 0, #sim.cloud_requests(served or 0))
  assert.are.equal(before, sim.open_descriptors())
  return result
end

local function failure(reason) return "5 获取应用商城URL失败，错误原因: " .. reason end

local function last_log()
  local texts = h.log_texts()
  return texts[#texts]
end

-- A reply whose members are given in order (cjson would order them by its hash).
local function reply(members)
  local parts = {}
  for _, m in ipairs(members) do parts[#parts + 1] = cjson.encode(m[1]) .. ":" .. m[2] end
  return "{" .. table.concat(parts, ",") .. "}"
end

local function good(url, token, mac)
  return reply { { "ID", '"' .. ID .. '"' }, { "Status", '"0"' }, { "URL", cjson.encode(url or "m.example") },
    { "token", cjson.encode(token or "T") }, { "MAC", cjson.encode(mac or "M") } }
end

-- A frame header announcing n bytes of JSON text.
local function header(n) return string.char(0, math.floor(n / 65536) % 256, math.floor(n / 256) % 256, n % 256) end

describe("getMallUrl", function()
  setup(function()
    h.reset()
    v:get("getMallUrl") -- the simulated cloud client starts on the first port read
  end)
  before_each(function() h.reset() end)

  it("asks the simulated cloud client with the 103-byte frame and builds the URL", function()
    assert.are.same({ result = 0, url = DEFAULT_URL }, mall(1))
    local served = sim.cloud_requests()
    assert.are.equal("\0\0\0\99" .. REQUEST, served[1].request)
    assert.is_true(served[1].closed)
    local logs = h.log_texts()
    logs[3] = logs[3]:gsub("%d+$", "<port>")
    assert.are.same({ "7 Enter, beginning to get app mall URL", "7 WAN has connectd",
      "7 Get local port successfully and it is <port>", "7 Send message to cloudclient to get token and mall URL",
      "7 Receive message from cloudclient and then to parse it", "7 获取应用商城URL成功" }, logs)
  end)

  it("answers from the model, also a failure with its reason", function()
    h.edit_model(function(m)
      m.cloud_client = { status = "0", url = "shop.example.net", token = "abc", mac = "001122334455" }
    end)
    assert.are.same({ result = 0, url = "https://shop.example.net/appmarket?token=abc&MAC=001122334455" }, mall(1))
    h.edit_model(function(m) m.cloud_client = { status = "17", fail_reason = "设备未注册" } end)
    assert.are.same({ result = 1 }, mall(2))
    assert.are.equal(failure("设备未注册"), last_log())
  end)

  it("names the first member that fails, in reading order", function()
    local id, ok = { "ID", '"' .. ID .. '"' }, { "Status", '"0"' }
    local cases = {
      { "not JSON", "解析命令类型参数失败" },
      { reply { { "ID", "7" } }, "解析命令类型参数失败" },
      { reply { { "ID", '"' .. ID:upper() .. '"' }, ok, { "URL", '"u"' } }, "返回ID与请求ID不一致" },
      { reply { id, { "Status", "0" }, { "URL", '"u"' } }, "解析返回状态参数失败" },
      { reply { id, ok, { "URL", "1" }, { "token", '"t"' }, { "MAC", '"m"' } }, "解析应用商城URL参数失败" },
      { reply { id, ok, { "URL", '"u"' }, { "MAC", '"m"' } }, "解析token参数失败" },
      { reply { id, ok, { "URL", '"u"' }, { "token", '"t"' }, { "MAC", "null" } }, "解析MAC参数失败" },
      { reply { id, { "Status", '"5"' }, { "FailReason", "12" } }, "解析失败原因参数失败" },
      { reply { id, { "Status", '"5"' }, { "FailReason", '"账号已过期"' }, { "URL", '"u"' } }, "账号已过期" },
      -- a status is read up to 63 characters: here its last one makes it a failure
      { reply { id, { "Status", '"' .. ("0"):rep(62) .. '1"' }, { "FailReason", '"r"' } }, "r" },
      { good(""), "获取URL为空" },
      { good("u", ""), "获取token为空" },
      { good("u", "t", ""), "获取MAC为空" },
    }
    for _, c in ipairs(cases) do
      sim.cloud_reply(c[1])
      h.sim.clear_logs()
      assert.are.same({ result = 1 }, mall(#sim.cloud_requests() + 1))
      assert.are.equal(failure(c[2]), last_log())
    end
  end)

  it("reassembles a reply that arrives in pieces or is larger than 512 bytes, cutting long members", function()
    local long_url, long_token = string.rep("u", 300), string.rep("t", 400)
    local big = good(long_url, long_token, string.rep("m", 30))
    assert.is_true(#big > 512)
    local cut = "https://" .. long_url:sub(1, 255) .. "/appmarket?token=" .. long_token:sub(1, 255) .. "&MAC=" ..
      string.rep("m", 23)
    for _, pieces in ipairs({ 1, 3, 60 }) do
      sim.cloud_reply(big, { pieces = pieces, pause_ms = 5 })
      assert.are.same({ result = 0, url = cut }, mall(#sim.cloud_requests() + 1))
    end
    sim.cloud_reply(reply { { "ID", '"' .. ID .. '"' }, { "Status", '"9"' }, { "FailReason", '"' ..
      string.rep("r", 200) .. '"' } })
    mall(#sim.cloud_requests() + 1)
    assert.are.equal(failure(string.rep("r", 127)), last_log())
  end)

  it("reads exactly the length the reply's header announces, and fails at once on a hang-up mid-frame", function()
    local text = good()
    sim.cloud_reply(header(#text) .. text .. "trailing bytes", { raw = true })
    assert.are.equal(0, mall(1).result)
    sim.cloud_reply(header(#text - 1) .. text, { raw = true })
    mall(2)
    assert.are.equal(failure("解析命令类型参数失败"), last_log())
    -- a whole JSON text, but less than the header announced; then only half a header
    sim.set_app_market_timeout(3000)
    for i, frame in ipairs { header(#text + 40) .. text, header(#text):sub(1, 2) } do
      sim.cloud_reply(frame, { raw = true, close = true })
      h.sim.clear_logs()
      local started = os.time()
      assert.are.same({ result = 1 }, mall(2 + i))
      assert.is_true(os.time() - started <= 1)
      assert.are.equal(failure("解析命令类型参数失败"), last_log())
    end
    -- More is announced than ever comes: the reply is still incomplete at the time-out.
    sim.set_app_market_timeout(150)
    sim.cloud_reply(header(200000) .. text, { raw = true })
    mall(5)
    assert.are.equal(failure("获取应用商城URL超时"), last_log())
  end)

  it("puts only clean values into the address, percent-encoded, and never cuts inside a character", function()
    local cases = {
      { good("m.example", "a&MAC=spoof#", "00:11"), "https://m.example/appmarket?token=a%26MAC%3Dspoof%23&MAC=00%3A11" },
      { good("m.example", "tök", "M"), "https://m.example/appmarket?token=t%C3%B6k&MAC=M" },
      -- the unreserved characters stay as they are, every other one is escaped
      { good("m.example", "Az09-._~", "a+b/!"), "https://m.example/appmarket?token=Az09-._~&MAC=a%2Bb%2F%21" },
      -- 254 bytes and a two-byte character: the host keeps the 254
      { good(("h"):rep(254) .. "é", "T", "M"), "https://" .. ("h"):rep(254) .. "/appmarket?token=T&MAC=M" },
      { good("m.example", "T", "AA\r\nX: 1"), nil, "解析MAC参数失败" },
      { good("m.example", "T\7", "M"), nil, "解析token参数失败" },
      { good("m.example", "a b", "M"), nil, "解析token参数失败" },
      { good("shop.example/ x", "T", "M"), nil, "解析应用商城URL参数失败" },
      { good("shop\127", "T", "M"), nil, "解析应用商城URL参数失败" },
    }
    for i, c in ipairs(cases) do
      sim.cloud_reply(c[1])
      h.sim.clear_logs()
      local r = mall(i)
      assert.are.same({ result = c[2] and 0 or 1, url = c[2] }, r, c[1])
      if c[3] then assert.are.equal(failure(c[3]), last_log(), c[1]) end
    end
  end)

  it("gives up after the time-out without a reply and closes the connection", function()
    sim.set_app_market_timeout(200)
    sim.cloud_silent()
    local started = os.time()
    assert.are.same({ result = 1 }, mall(1))
    assert.is_true(os.time() - started <= 1)
    local served = sim.cloud_requests()
    assert.are.same({ "\0\0\0\99" .. REQUEST, true }, { served[1].request, served[1].closed })
    local logs = h.log_texts()
    assert.are.same({ "5 Receive message timeout, close resource.", failure("获取应用商城URL超时") },
      { logs[#logs - 1], logs[#logs] })
    -- A reply slower than the time-out is a time-out too.
    sim.cloud_reply(good(), { pieces = 2, pause_ms = 600 })
    mall(2)
    assert.are.equal(failure("获取应用商城URL超时"), last_log())
  end)

  it("ends at once when the connection is refused", function()
    sim.cloud_refuse()
    local started = os.time()
    assert.are.same({ result = 1 }, mall(0))
    assert.is_true(os.time() - started <= 1)
    -- nothing was sent, and nothing waited for a reply
    local logs = h.log_texts()
    assert.are.same({ "7 Get local port successfully", failure("创建获取URL的连接失败") },
      { logs[3]:gsub(" and it is %d+$", ""), logs[4] })
    assert.are.equal(4, #logs)
  end)

  it("checks the WAN, the LAN address and the port before connecting", function()
    local function wan(v4, v6) return function(m) m.wan.ipv4_status, m.wan.ipv6_status = v4, v6 end end
    local function lan(ip) return function(m) m.dhcp.ip = ip end end
    local function port(p) return function(m) m.cloud_client.local_port = p end end
    local port_lines = { "5 Get local port failed or port is not 0 ~ 65535",
      "5 获取应用商城URL失败，错误原因: 本地连接端口不在0~65535之间" }
    local cases = {
      { wan("Disconnected", "Connecting"), { failure("Internet网络未连接") }, 0 },
      { lan("0.0.0.0"), { failure("本地IP错误") }, 0 },
      { lan(""), { failure("本地IP错误") }, 0 },
      { port(65536), port_lines, 1 },
      -- the highest port passes the check; nothing listens there
      { port(65535), { failure("创建获取URL的连接失败") }, 1 },
      { port(0), { failure("创建获取URL的连接失败") }, 1 },
    }
    for _, c in ipairs(cases) do
      h.reset()
      h.edit_model(c[1])
      assert.are.same({ result = 1 }, mall(0))
      local logs = h.log_texts()
      assert.are.same(c[2], { select(#logs - #c[2] + 1, unpack(logs)) })
      assert.are.equal(c[3], #h.calls("ZoVelDBusGetProperty"))
    end
    h.reset()
    h.sim.fail("ZoVelDBusGetProperty", -1)
    assert.are.same({ result = 1 }, mall(0))
    assert.are.same(port_lines, { select(3, unpack(h.log_texts())) })
    -- Either connection status will do, whatever its letter case.
    h.reset()
    h.edit_model(wan("Disconnected", "CONNECTED"))
    assert.are.same({ result = 0, url = DEFAULT_URL }, mall(1))
  end)

  it("prints the URL through the command-line tool", function()
    local state = os.tmpname()
    os.remove(state)
    local status, out = h.shell(h.cli(state, "get", "getMallUrl"))
    os.remove(state)
    assert.are.same({ 0, { result = 0, url = DEFAULT_URL } }, { status, cjson.decode(out) })
  end)
end)
