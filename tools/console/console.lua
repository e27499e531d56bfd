-- The console's request handler: the JSON API over the module's get and set, the
-- key catalogue, and the static pages. One request is answered at a time, in the
-- interpreter that holds the module, as the gateway's web server runs its pages.
local M = {}

local PAGE_TYPES = { html = "text/html; charset=utf-8", css = "text/css; charset=utf-8",
                     js = "text/javascript; charset=utf-8", png = "image/png", svg = "image/svg+xml" }

local function loopback_host(host)
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

-- opts: velconfig (the module), json (tools/velconfig_json.lua), cjson, web_dir,
-- catalogue (a list of key descriptions).
function M.handler(opts)
  local velconfig, json, cjson = opts.velconfig, opts.json, opts.cjson

  local function answer(status, value)
    return status, "application/json", json.encode_compact(value)
  end
  local function fail(status, message) return answer(status, { error = message }) end

  -- The page calls the module with method syntax, so that argument errors read as
  -- they read on the gateway.
  local call = assert(loadstring([[
    local velconfig, name, key, n, a, b = ...
    if name == "get" then return velconfig:get(key, unpack({ a, b }, 1, n)) end
    if n == 0 then return velconfig:set(key) end
    return velconfig:set(key, a)
  ]], "=velconfig"))

  local function api_get(key, query)
    local n = query.a2 and 2 or (query.a1 and 1 or 0)
    local ok, result = pcall(call, velconfig, "get", key, n, query.a1 or "", query.a2)
    if not ok then return fail(400, error_text(result)) end
    -- Built by hand so that an answer of nil still shows as null.
    return 200, "application/json", '{"key":' .. json.quote(key) .. ',"answer":' .. json.encode_compact(result) .. "}"
  end

  -- The body: a JSON object (normally of string fields), a JSON string, or nothing.
  -- Values of other types reach the module as they are, so that it answers with its
  -- own Lua error, as it would to a page that sent them.
  local function set_input(body)
    if body:match("^%s*$") then return true, 0 end
    local ok, value = pcall(cjson.decode, body)
    if not ok then return false, "the body is not JSON" end
    if type(value) == "string" or (type(value) == "table" and next(value) == nil) then return true, 1, value end
    if type(value) ~= "table" or value[1] ~= nil then
      return false, "the body must be a JSON object, a string, or empty"
    end
    return true, 1, value
  end

  local function api_set(key, body)
    local ok, n, input = set_input(body)
    if not ok then return fail(400, n) end
    local called, result = pcall(call, velconfig, "set", key, n, input)
    if not called then return fail(400, error_text(result)) end
    return answer(200, { key = key, result = result })
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
    if not loopback_host(req.host) then return fail(403, "only requests to the loopback address are answered") end
    local path = req.path or ""
    local get_key = path:match("^/api/get/(.+)$")
    local set_key = path:match("^/api/set/(.+)$")
    if get_key then
      if req.method ~= "GET" then return fail(405, "use GET") end
      return api_get(get_key, req.query or {})
    elseif set_key then
      if req.method ~= "POST" then return fail(405, "use POST") end
      return api_set(set_key, req.body or "")
    elseif path == "/api/keys" then
      return answer(200, opts.catalogue)
    elseif req.method == "GET" then
      local status, ctype, body = page(path == "/" and "index.html" or path:sub(2))
      if status then return status, ctype, body end
    end
    return fail(404, "no such page or API: " .. path)
  end
end

return M
