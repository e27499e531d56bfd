-- The console's request handler: the JSON API over the module's get and set, the
-- key catalogue, and the static pages. One request is answered at a time, in the
-- interpreter that holds the module, as the gateway's web server runs its pages.
--
-- The API drives a gateway, so it answers only its own pages: a request from
-- another origin, one without the session's token, a body that a plain HTML form
-- could send, and a GET of a key that changes the gateway are all refused before
-- the module is called.
local M = {}

local PAGE_TYPES = { html = "text/html; charset=utf-8", css = "text/css; charset=utf-8",
                     js = "text/javascript; charset=utf-8", png = "image/png", svg = "image/svg+xml" }

function M.loopback_host(host)
  if type(host) ~= "string" then return false end
  local name, port = host:match("^([^:]+):?(%d*)$")
  if not name then return false end
  if port ~= "" and (tonumber(port) or 0) > 65535 then return false end
  return name == "127.0.0.1" or name == "localhost"
end

local function read_file(path)
  local f = io.open(path, "rb")
  if not f then return nil end
  local data = f:read("*a")
  f:close()
  return data
end

-- Lua's own error text without the position Lua puts in front of it.
local function error_text(err)
  return (tostring(err):gsub("^[^:]*:%d+: ", ""))
end

-- Compares a presented token with the session's in time that does not depend on
-- where they first differ.
function M.same_secret(given, secret)
  if type(given) ~= "string" or #given ~= #secret then return false end
  local differ = 0
  for i = 1, #secret do
    if given:byte(i) ~= secret:byte(i) then differ = differ + 1 end
  end
  return differ == 0
end

-- The cookie carries the port: cookies are shared by every port of a host, and two
-- consoles on one machine must not overwrite each other's.
function M.cookie_name(host)
  return "velconfig_token_" .. (host:match(":(%d+)$") or "80")
end

local function cookie_value(cookies, name)
  if type(cookies) ~= "string" then return nil end
  for n, v in (";" .. cookies):gmatch(";%s*([^=;]+)=([^;]*)") do
    if n == name then return v end
  end
  return nil
end

-- Why a request must be refused as coming from another page, or nil. Browsers send
-- Sec-Fetch-Site on every request and Origin on every POST; a page on another port
-- of this host is "same-site", and would carry the cookie, so it is refused too.
function M.foreign(headers)
  local site = headers["sec-fetch-site"]
  if site == "cross-site" or site == "same-site" then return "requests from other sites are refused" end
  local origin = headers.origin
  if origin ~= nil and origin ~= "http://" .. headers.host then
    return "requests from other origins are refused (" .. origin .. ")"
  end
  return nil
end

local same_secret, cookie_name, foreign = M.same_secret, M.cookie_name, M.foreign

-- Whether the request carries the session's token: "Authorization: Token ...",
-- ?token= or the cookie. No token (nil) lets every request through.
function M.authorised(token, req, headers)
  if token == nil then return true end
  local scheme, given = (headers.authorization or ""):match("^%s*(%a+)%s+(%S+)%s*$")
  if scheme and scheme:lower() == "token" and same_secret(given, token) then return true end
  return same_secret(req.query.token, token) or same_secret(cookie_value(headers.cookie, cookie_name(headers.host)), token)
end

-- Why a request must be refused before anything answers it (not to the loopback
-- address, from another site, without the token), or nil.
function M.refusal(token, req, headers)
  if not M.loopback_host(headers.host) then return "only requests to the loopback address are answered" end
  local why = foreign(headers)
  if why then return why end
  if not M.authorised(token, req, headers) then
    return "no access token: open the address velconfig serve printed"
  end
  return nil
end

-- Only a body a plain HTML form cannot send: application/json, parameters allowed.
local function json_type(ctype)
  if type(ctype) ~= "string" then return false end
  local media = ctype:lower():match("^%s*([^;%s]+)%s*;?")
  return media == "application/json"
end

-- opts: velconfig (the module), json (tools/velconfig_json.lua), cjson, web_dir,
-- catalogue (a list of key descriptions), token (the session's secret; nil serves
-- the API to anyone who can reach the port), base (the path the console is served
-- under, "/" unless a page folder is served beside it), state_error (the simulator's:
-- the first state file problem since it was last asked, or nil; absent on a gateway).
function M.handler(opts)
  local velconfig, json, cjson, token = opts.velconfig, opts.json, opts.cjson, opts.token
  local state_error = opts.state_error or function() return nil end
  -- Read keys that change the gateway are served on POST only, so that no link,
  -- image or prefetch can call them.
  local post_only = {}
  for _, k in ipairs(opts.catalogue) do
    if k.call == "get" and k.changes then post_only[k.key] = true end
  end
  local catalogue_text = cjson.encode(opts.catalogue)

  local function answer(status, value, headers)
    return status, "application/json", json.encode_compact(value), headers
  end
  local function fail(status, message, headers) return answer(status, { error = message }, headers) end


  -- The page calls the module with method syntax, so that argument errors read as
  -- they read on the gateway.
  local call = assert(loadstring([[
    local velconfig, name, key, n, a, b = ...
    if name == "get" then return velconfig:get(key, unpack({ a, b }, 1, n)) end
    if n == 0 then return velconfig:set(key) end
    return velconfig:set(key, a)
  ]], "=velconfig"))

  local function decode(body)
    local ok, value = pcall(cjson.decode, body)
    if not ok then return false, "the body is not JSON" end
    return true, value
  end

  -- A state file that cannot be read (a hand edit half done) or saved makes every
  -- answer the module gives meaningless: the API says so instead of showing an empty
  -- gateway.
  local function call_module(...)
    state_error()
    local results = { pcall(call, velconfig, ...) }
    local problem = state_error()
    if problem then return false, 503, "the simulated gateway's state cannot be used: " .. problem end
    return true, unpack(results, 1, 2)
  end

  local function api_get(key, args)
    local n = args.a2 ~= nil and 2 or (args.a1 ~= nil and 1 or 0)
    local usable, ok, result = call_module("get", key, n, args.a1 or "", args.a2)
    if not usable then return fail(ok, result) end
    if not ok then return fail(400, error_text(result)) end
    -- Built by hand so that an answer of nil still shows as null.
    return 200, "application/json", '{"key":' .. json.quote(key) .. ',"answer":' .. json.encode_compact(result) .. "}"
  end

  -- A read key on POST takes its arguments from a JSON object {"a1": .., "a2": ..}.
  local function post_args(body)
    if body:match("^%s*$") then return true, {} end
    local ok, value = decode(body)
    if not ok then return false, value end
    if type(value) ~= "table" or value[1] ~= nil then return false, "the body must be a JSON object" end
    for _, name in ipairs({ "a1", "a2" }) do
      local v = value[name]
      if v ~= nil and type(v) ~= "string" then return false, name .. " must be a text" end
    end
    return true, value
  end

  -- The body: a JSON object (normally of string fields), a JSON string, or nothing.
  -- Values of other types reach the module as they are, so that it answers with its
  -- own Lua error, as it would to a page that sent them.
  local function set_input(body)
    if body:match("^%s*$") then return true, 0 end
    local ok, value = decode(body)
    if not ok then return false, value end
    if type(value) == "string" or (type(value) == "table" and next(value) == nil) then return true, 1, value end
    if type(value) ~= "table" or value[1] ~= nil then
      return false, "the body must be a JSON object, a string, or empty"
    end
    return true, 1, value
  end

  local function api_set(key, body)
    local ok, n, input = set_input(body)
    if not ok then return fail(400, n) end
    local usable, called, result = call_module("set", key, n, input)
    if not usable then return fail(called, result) end
    if not called then return fail(400, error_text(result)) end
    return answer(200, { key = key, result = result })
  end

  local function api(req, headers, path)
    local refusal = foreign(headers)
    if refusal then return fail(403, refusal) end
    if not M.authorised(token, req, headers) then
      return fail(403, "no access token: open the console at the address velconfig serve printed")
    end
    if req.method == "POST" and not json_type(headers["content-type"]) then
      return fail(415, "send the body as application/json")
    end
    local get_key = path:match("^/api/get/(.+)$")
    local set_key = path:match("^/api/set/(.+)$")
    if get_key then
      if req.method == "POST" then
        local ok, args = post_args(req.body or "")
        if not ok then return fail(400, args) end
        return api_get(get_key, args)
      elseif req.method ~= "GET" then
        return fail(405, "use GET or POST", { Allow = "GET, POST" })
      elseif post_only[get_key] then
        return fail(405, get_key .. " changes the gateway: use POST", { Allow = "POST" })
      end
      return api_get(get_key, req.query)
    elseif set_key then
      if req.method ~= "POST" then return fail(405, "use POST", { Allow = "POST" }) end
      return api_set(set_key, req.body or "")
    elseif path == "/api/keys" and req.method == "GET" then
      return 200, "application/json", catalogue_text
    end
    return fail(404, "no such API: " .. path)
  end

  local function page(name)
    local ext = name:match("^[%w][%w%-_]*%.(%w+)$")
    local ctype = ext and PAGE_TYPES[ext]
    if not ctype then return nil end
    local data = read_file(opts.web_dir .. "/" .. name)
    if not data then return nil end
    return 200, ctype, data
  end

  return function(req)
    local headers = req.headers or {}
    req.query = req.query or {}
    if not M.loopback_host(headers.host) then return fail(403, "only requests to the loopback address are answered") end
    local path = req.path or ""
    if path:sub(1, 5) == "/api/" then return api(req, headers, path) end
    if req.method == "GET" then
      -- Opening the printed address trades the token for a cookie only this
      -- origin's own requests carry, and drops it from the address bar.
      if token ~= nil and same_secret(req.query.token, token) then
        return 303, "text/plain; charset=utf-8", "", {
          Location = opts.base or "/",
          ["Set-Cookie"] = cookie_name(headers.host) .. "=" .. token .. "; Path=/; HttpOnly; SameSite=Strict",
        }
      end
      local status, ctype, body = page(path == "/" and "index.html" or path:sub(2))
      if status then return status, ctype, body end
    end
    return fail(404, "no such page: " .. path)
  end
end

return M
