-- The request handler of `velconfig serve --pages DIR`: a page author's folder served
-- against the simulated gateway as the gateway's web server serves it. Static files
-- go out as they are; a *.lua page runs in a process of its own for every request,
-- as it is on disk now, as a CGI/1.1 program or as a handle_request(env) handler
-- (tools/pages/page_runner.lua). An HTML page reloads itself when a file in DIR
-- changes. A page that raises answers 500 with its traceback, on the terminal too.
-- The console keeps its pages and API under /velconfig/. Everything is behind the
-- console's token and origin rule: a page can change the gateway as the API can.
local console = require "console"

local M = {}

local TYPES = {
  html = "text/html; charset=utf-8", htm = "text/html; charset=utf-8", css = "text/css; charset=utf-8",
  js = "text/javascript; charset=utf-8", json = "application/json", txt = "text/plain; charset=utf-8",
  png = "image/png", jpg = "image/jpeg", jpeg = "image/jpeg", gif = "image/gif", svg = "image/svg+xml",
  ico = "image/x-icon", woff2 = "font/woff2",
}
local PAGE_TIMEOUT = 30
local MARKER = "\0velconfig page error\0"
local CONSOLE = "/velconfig"

local RELOAD_JS = [[
// velconfig serve --pages: reloads this page once a file of the page folder changes.
(() => {
  const stamp = new URL(document.currentScript.src).searchParams.get("stamp");
  const poll = async () => {
    try {
      const r = await fetch("/_velconfig/changes", { cache: "no-store" });
      if (r.ok && (await r.text()) !== stamp) return location.reload();
    } catch (e) { /* the server is restarting: ask again */ }
    setTimeout(poll, 300);
  };
  setTimeout(poll, 300);
})();
]]

local function read_file(path)
  local f = io.open(path, "rb")
  if not f then return nil end
  local data = f:read("*a")
  f:close()
  return data
end

local function html_escape(text)
  return (text:gsub("[&<>\"]", { ["&"] = "&amp;", ["<"] = "&lt;", [">"] = "&gt;", ['"'] = "&quot;" }))
end

-- The request path's components, or nil for one that leaves DIR or names a hidden file.
local function components(path)
  local parts = {}
  for part in path:gmatch("[^/]+") do
    if part:sub(1, 1) == "." or part:find("%z") then return nil end
    parts[#parts + 1] = part
  end
  return parts
end

-- The cookie header without the console's token, which is the server's, not the page's.
local function page_cookies(cookies, token_cookie)
  if not cookies then return nil end
  local kept = {}
  for pair in (cookies .. ";"):gmatch("%s*([^;]*);") do
    if pair ~= "" and pair:match("^([^=]*)") ~= token_cookie then kept[#kept + 1] = pair end
  end
  return kept[1] and table.concat(kept, "; ") or nil
end

-- opts: dir (the page folder, absolute), pages (velconfig_pages), console (the console's
-- handler options), token, page_env (NAME=VALUE texts that point a page at the chosen
-- gateway), runner (page_runner.lua's path), port (a function answering the port),
-- version, log (writes a line to the terminal).
function M.handler(opts)
  local native, token, dir = opts.pages, opts.token, opts.dir
  local function is_file(path) return native.kind(path) == "file" end
  local interpreter = native.interpreter()
  local console_opts = setmetatable({ base = CONSOLE .. "/" }, { __index = opts.console })
  local console_handler = console.handler(console_opts)

  local function reload_tag()
    return '<script src="/_velconfig/reload.js?stamp=' .. native.stamp(dir) .. '"></script>'
  end

  local function with_reload(body)
    local tag = reload_tag()
    local at = body:lower():find("</body>[^<]*$") or body:lower():find("</html>[^<]*$")
    if at then return body:sub(1, at - 1) .. tag .. body:sub(at) end
    return body .. tag
  end

  -- Author pages run their own inline scripts and styles, and their forms post with
  -- their origin (a page sent with no-referrer posts with the origin "null", which
  -- the origin rule refuses): none of the console's policies.
  local PAGE_HEADERS = { ["Content-Security-Policy"] = "", ["Referrer-Policy"] = "" }

  local function error_page(status, title, detail)
    local body = "<!doctype html><meta charset=utf-8><title>" .. html_escape(title) .. "</title>" ..
      "<h1>" .. html_escape(title) .. "</h1><pre id=velconfig-error>" .. html_escape(detail) .. "</pre>"
    return status, "text/html; charset=utf-8", with_reload(body), PAGE_HEADERS
  end

  -- A CGI answer: header lines, a blank line, the body.
  local function cgi_answer(name, output)
    local head, body = output:match("^(.-)\r?\n\r?\n(.*)$")
    if not head or not head:match("^[%w%-]+:") then
      return nil, name .. " printed no header lines: a page starts with a line such as " ..
        "\"Content-Type: text/html\", then a blank line, then the body"
    end
    local status, ctype, headers = nil, nil, {}
    for header, value in pairs(PAGE_HEADERS) do headers[header] = value end
    for line in (head .. "\n"):gmatch("([^\n]*)\n") do
      local field, value = line:gsub("\r$", ""):match("^([%w%-]+):%s*(.-)%s*$")
      if not field then return nil, name .. " printed a header line that is none: " .. line end
      local lower = field:lower()
      if lower == "status" then
        status = tonumber(value:match("^(%d%d%d)"))
      elseif lower == "content-type" then
        ctype = value
      else
        if lower == "location" then status = status or 302 end
        headers[field] = value
      end
    end
    status = status or 200
    ctype = ctype or "text/html; charset=utf-8"
    if ctype:lower():find("^text/html") and body ~= "" then body = with_reload(body) end
    return status, ctype, body, headers
  end

  local function run_page(req, headers, name, path_info)
    local env = {}
    for _, pair in ipairs(opts.page_env) do env[#env + 1] = pair end
    local function set(var, value) if value then env[#env + 1] = var .. "=" .. value end end
    for _, var in ipairs({ "PATH", "HOME", "LANG", "TZ" }) do set(var, os.getenv(var)) end
    local query = (req.uri or ""):match("%?(.*)$") or ""
    local body = req.body or ""
    set("GATEWAY_INTERFACE", "CGI/1.1")
    set("SERVER_SOFTWARE", "velconfig/" .. opts.version)
    set("SERVER_PROTOCOL", "HTTP/1.1")
    set("SERVER_NAME", "127.0.0.1")
    set("SERVER_ADDR", "127.0.0.1")
    set("SERVER_PORT", tostring(opts.port()))
    set("REMOTE_ADDR", "127.0.0.1")
    set("REQUEST_METHOD", req.method)
    set("REQUEST_URI", req.uri or req.path)
    set("SCRIPT_NAME", "/" .. name)
    set("SCRIPT_FILENAME", dir .. "/" .. name)
    set("DOCUMENT_ROOT", dir)
    set("PATH_INFO", path_info ~= "" and path_info or nil)
    set("QUERY_STRING", query)
    if body ~= "" or req.method == "POST" then set("CONTENT_LENGTH", tostring(#body)) end
    set("CONTENT_TYPE", headers["content-type"])
    local argv = { interpreter, opts.runner, name }
    local token_cookie = console.cookie_name(headers.host)
    for header, value in pairs(headers) do
      if header == "cookie" then value = page_cookies(value, token_cookie) end
      if value and header ~= "authorization" then
        set("HTTP_" .. header:upper():gsub("%-", "_"), value)
        argv[#argv + 1] = header
        argv[#argv + 1] = value
      end
    end
    local folder = (dir .. "/" .. name):match("^(.*)/")
    local status, out, err, timed_out = native.run({ argv = argv, env = env, dir = folder, input = body,
                                                     timeout = PAGE_TIMEOUT })
    if not status then return error_page(500, "500 " .. name .. " did not start", out) end
    local own, trace = err:match("^(.-)" .. MARKER:gsub("%z", "%%z") .. "(.*)$")
    own = own or err
    if own ~= "" then opts.log(name .. ": " .. own:gsub("\n$", "")) end
    if timed_out then
      opts.log(name .. " did not answer within " .. PAGE_TIMEOUT .. " s and was stopped")
      return error_page(500, "500 " .. name .. " did not answer", "stopped after " .. PAGE_TIMEOUT .. " s")
    end
    if trace then
      trace = trace:gsub("\n$", "")
      opts.log("500 " .. name .. ": " .. trace)
      return error_page(500, "500 error in " .. name, trace)
    end
    if status ~= 0 then
      local why = name .. " exited with status " .. status .. (own ~= "" and (":\n" .. own) or "")
      opts.log("500 " .. why)
      return error_page(500, "500 " .. name .. " failed", why)
    end
    local code, ctype, answer, extra = cgi_answer(name, out)
    if not code then
      opts.log("500 " .. ctype)
      return error_page(500, "500 " .. name .. " answered no page", ctype)
    end
    return code, ctype, answer, extra
  end

  -- The static file or the Lua page a path names.
  local function serve_path(req, headers, path)
    local parts = components(path)
    if not parts then return error_page(404, "404 no such page: " .. path, "") end
    local name = ""
    for i, part in ipairs(parts) do
      name = name == "" and part or (name .. "/" .. part)
      if part:match("%.lua$") and is_file(dir .. "/" .. name) then
        local rest = {}
        for j = i + 1, #parts do rest[#rest + 1] = parts[j] end
        return run_page(req, headers, name, rest[1] and ("/" .. table.concat(rest, "/")) or "")
      end
    end
    if name == "" or not is_file(dir .. "/" .. name) then
      -- A folder: its index page.
      local base = name == "" and "" or (name .. "/")
      for _, index in ipairs({ "index.html", "index.lua" }) do
        if is_file(dir .. "/" .. base .. index) then
          if path:sub(-1) ~= "/" then return 301, "text/plain; charset=utf-8", "", { Location = path .. "/" } end
          if index == "index.lua" then return run_page(req, headers, base .. index, "") end
          name = base .. index
          break
        end
      end
    end
    local data = is_file(dir .. "/" .. name) and read_file(dir .. "/" .. name)
    if not data then return error_page(404, "404 no such page: " .. path, "") end
    local ctype = TYPES[(name:match("%.(%w+)$") or ""):lower()] or "application/octet-stream"
    if ctype:find("^text/html") then data = with_reload(data) end
    return 200, ctype, data, PAGE_HEADERS
  end

  return function(req)
    local headers = req.headers or {}
    req.query = req.query or {}
    local path = req.path or "/"
    if path == CONSOLE or path:sub(1, #CONSOLE + 1) == CONSOLE .. "/" then
      local inner = {}
      for k, v in pairs(req) do inner[k] = v end
      inner.path = path:sub(#CONSOLE + 1)
      if inner.path == "" then return 301, "text/plain; charset=utf-8", "", { Location = CONSOLE .. "/" } end
      return console_handler(inner)
    end
    local refused = console.refusal(token, req, headers)
    if refused then return 403, "text/plain; charset=utf-8", refused .. "\n" end
    if req.method == "GET" and token ~= nil and console.same_secret(req.query.token, token) then
      return 303, "text/plain; charset=utf-8", "", {
        Location = path,
        ["Set-Cookie"] = console.cookie_name(headers.host) .. "=" .. token .. "; Path=/; HttpOnly; SameSite=Strict",
      }
    end
    if path == "/_velconfig/changes" then return 200, "text/plain; charset=utf-8", native.stamp(dir) end
    if path == "/_velconfig/reload.js" then return 200, "text/javascript; charset=utf-8", RELOAD_JS end
    return serve_path(req, headers, path)
  end
end

return M
