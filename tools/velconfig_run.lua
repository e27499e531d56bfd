-- velconfig run, env and serve --pages: a page author's own scripts and pages against
-- the gateway the tool chose (--state, VELCONFIG_SIM_STATE, VELCONFIG_ROOT), with
-- `require "velconfig"` resolving to the tool's own module.
local M = {}

-- ctx: cpath and lpath (the tool's module and script paths, ";"-ended), state and
-- root (the simulated gateway's files; nil on a gateway), tools_dir (the PC uci's
-- folder, or "").

-- The variables that point a Lua interpreter at the chosen gateway, in order.
function M.variables(ctx)
  local vars = {}
  if ctx.state then
    vars[#vars + 1] = { "VELCONFIG_SIM_STATE", ctx.state }
    vars[#vars + 1] = { "VELCONFIG_ROOT", ctx.root }
    if ctx.tools_dir ~= "" then vars[#vars + 1] = { "VELCONFIG_TOOLS_DIR", ctx.tools_dir } end
  end
  -- ";;" keeps the interpreter's own search paths after the tool's.
  if ctx.cpath ~= "" then vars[#vars + 1] = { "LUA_CPATH", ctx.cpath .. ";" } end
  vars[#vars + 1] = { "LUA_PATH", ctx.lpath .. ";" }
  return vars
end

-- The same as NAME=VALUE texts, for a child's environment.
function M.environment(ctx)
  local env = {}
  for _, v in ipairs(M.variables(ctx)) do env[#env + 1] = v[1] .. "=" .. v[2] end
  return env
end

local function shell_quote(text)
  return "'" .. text:gsub("'", "'\\''") .. "'"
end

-- velconfig env: the exports for a shell, as `luarocks path` prints them.
function M.print_env(ctx)
  for _, v in ipairs(M.variables(ctx)) do io.stdout:write("export ", v[1], "=", shell_quote(v[2]), "\n") end
end

-- velconfig run SCRIPT [ARG ...]: runs SCRIPT in this interpreter, whose simulated
-- gateway is already the chosen one, with arg and ... as lua gives them. Returns the
-- exit status.
function M.run(script, args)
  local chunk, err = loadfile(script)
  if not chunk then
    io.stderr:write("velconfig run: ", tostring(err), "\n")
    return 2
  end
  arg = { [0] = script }
  for i, a in ipairs(args) do arg[i] = a end
  local ok, trace = xpcall(function() return chunk(unpack(args)) end, debug.traceback)
  if not ok then
    -- The frames below the script are this tool's.
    trace = tostring(trace):gsub("\n%s*%(tail call%): %?\n%s*%[C%]: in function 'xpcall'.*$", "")
    io.stderr:write("velconfig run: ", trace, "\n")
    return 1
  end
  return 0
end

-- The file a module name resolves to along package.path, or nil.
local function module_file(name)
  for template in package.path:gmatch("[^;]+") do
    local path = template:gsub("%?", name)
    local f = io.open(path, "rb")
    if f then
      f:close()
      return path
    end
  end
  return nil
end

-- velconfig serve --pages DIR. opts: dir, port, token, console (the console's handler
-- options), version. Answers the exit status.
function M.serve_pages(ctx, opts)
  local native = require "velconfig_pages"
  local http = require "velconfig_http"
  local dir = native.realpath(opts.dir)
  if not dir or native.kind(dir) ~= "folder" then
    io.stderr:write("velconfig: --pages needs a folder: ", opts.dir, "\n")
    return 2
  end
  local bound
  local handler = require("pages").handler({
    dir = dir, pages = native, console = opts.console, token = opts.token, page_env = M.environment(ctx),
    runner = assert(module_file("page_runner"), "page_runner.lua is not installed"), version = opts.version,
    port = function() return bound end,
    log = function(line) io.stderr:write("velconfig serve: ", line, "\n") end,
  })
  local ok, err = pcall(http.serve, { port = opts.port, bind = "127.0.0.1", handler = handler,
    ready = function(port)
      bound = port
      io.stdout:write("velconfig pages of ", dir, " on http://127.0.0.1:", port, "/",
                      opts.token and ("?token=" .. opts.token) or "", " (the console under /velconfig/)\n")
      io.stdout:flush()
    end })
  if not ok then
    io.stderr:write("velconfig: ", tostring(err), "\n")
    return 1
  end
  return 0
end

return M
