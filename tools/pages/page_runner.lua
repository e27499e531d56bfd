-- Runs one Lua page for `velconfig serve --pages`, in a process of its own, as the
-- gateway's web server runs it:
--   page_runner.lua NAME [HEADER VALUE ...]   (NAME relative to DOCUMENT_ROOT)
-- The request comes as CGI/1.1 variables in the environment and the body on standard
-- input. A CGI page writes header lines, a blank line and the body on standard
-- output. A handler page defines handle_request(env), which is called with the
-- request in uhttpd's form and answers through uhttpd.send. A page that raises exits
-- with status 70, its Lua traceback after the marker line on standard error.
local MARKER = "\0velconfig page error\0"
local name = arg[1]
local headers = {}
for i = 2, #arg - 1, 2 do headers[arg[i]] = arg[i + 1] end

local function urldecode(text)
  return (tostring(text):gsub("%%(%x%x)", function(hex) return string.char(tonumber(hex, 16)) end))
end

local function urlencode(text)
  return (tostring(text):gsub("[^%w%-%._~]", function(c) return ("%%%02X"):format(c:byte()) end))
end

-- OpenWrt's web server's functions for handler pages. recv answers the count and
-- the bytes read (0 and "" at the end of the body).
uhttpd = {
  send = function(...)
    for i = 1, select("#", ...) do io.stdout:write(tostring((select(i, ...)))) end
  end,
  recv = function(size)
    local data = io.stdin:read(tonumber(size) or 4096)
    if not data then return 0, "" end
    return #data, data
  end,
  urldecode = urldecode,
  urlencode = urlencode,
}
uhttpd.sendc = uhttpd.send

-- The request as uhttpd hands it to handle_request.
local function handler_env()
  local env = { headers = headers }
  for _, var in ipairs({ "REQUEST_METHOD", "REQUEST_URI", "SCRIPT_NAME", "SCRIPT_FILENAME", "QUERY_STRING",
                         "PATH_INFO", "SERVER_PROTOCOL", "SERVER_NAME", "SERVER_ADDR", "SERVER_PORT",
                         "REMOTE_ADDR", "REMOTE_PORT", "DOCUMENT_ROOT", "CONTENT_LENGTH", "CONTENT_TYPE" }) do
    env[var] = os.getenv(var)
  end
  env.HTTP_VERSION = 1.1
  return env
end

-- The error with the page's file and line first: the module's argument errors carry
-- no position of their own, so the first frame in Lua code lends its.
local function traceback(err)
  local message = tostring(err)
  if not message:match("^[^\n]-:%d+: ") then
    for level = 2, 40 do
      local info = debug.getinfo(level, "Sl")
      if not info then break end
      if info.what ~= "C" and info.currentline > 0 then
        message = info.short_src .. ":" .. info.currentline .. ": " .. message
        break
      end
    end
  end
  -- The runner's own frames are no help to the page's author.
  local lines = {}
  for line in (debug.traceback(message, 2) .. "\n"):gmatch("([^\n]*)\n") do
    if not (line:find("page_runner.lua", 1, true) or line:find("in function 'xpcall'", 1, true) or
            line == "\t[C]: ?") then
      lines[#lines + 1] = (line:gsub(": in function 'chunk'$", ": in main chunk"))
    end
  end
  return table.concat(lines, "\n")
end

local function run()
  local f = assert(io.open(os.getenv("DOCUMENT_ROOT") .. "/" .. name, "rb"))
  local source = f:read("*a")
  f:close()
  -- A #! line is skipped as lua skips it, keeping the line numbers.
  source = source:gsub("^#![^\n]*", "--")
  local chunk, err = loadstring(source, "@" .. name)
  if not chunk then error(err, 0) end
  arg = { [0] = name }
  chunk()
  if type(handle_request) == "function" then handle_request(handler_env()) end
end

local ok, trace = xpcall(run, traceback)
io.stdout:flush()
if not ok then
  io.stderr:write(MARKER, trace, "\n")
  os.exit(70)
end
os.exit(0)
