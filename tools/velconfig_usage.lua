-- The velconfig tool's usage, the one source of its --help and of its manual page:
--   require("velconfig_usage").help(pc)           the --help text
--   lua5.1 tools/velconfig_usage.lua VERSION       the manual page (roff) on stdout
-- pc: whether the PC commands (the simulated gateway's import and the console) are
-- there; the gateway's tool leaves them out.
local M = {}

-- Each command: its label in --help, its synopsis lines, what it does, and whether it needs the PC build.
M.commands = {
  { name = "get", synopsis = { "velconfig [-v] [--state FILE] get KEY [A1 [A2]]" },
    text = "calls velconfig:get(KEY, A1, A2) and prints the result as JSON; a KEY that does not exist ends with status 2" },
  { name = "set", synopsis = { "velconfig [-v] [--state FILE] set KEY [NAME=VALUE ...]", "velconfig [-v] [--state FILE] set KEY --text TEXT" },
    text = "calls velconfig:set(KEY, input) and prints its result code (0 is success); the input is a table of the NAME=VALUE fields, the TEXT after --text, or nothing" },
  { name = "dump", synopsis = { "velconfig [-v] [--state FILE] dump [--with-secrets]" },
    text = "prints the answers of every read key that changes nothing, with a header; Wi-Fi keys, passwords and tokens read as a placeholder unless --with-secrets is given" },
  { name = "import", synopsis = { "velconfig [--state FILE] import DUMP" }, pc = true,
    text = "makes the simulated gateway answer as the gateway that DUMP came from; the old state file is kept as FILE.bak" },
  { name = "serve", synopsis = { "velconfig [-v] [--state FILE] serve [--port N] [--bind 127.0.0.1] [--no-token]" }, pc = true,
    text = "serves the web console and its JSON API on http://127.0.0.1:N/ (default port 8080; 0 picks a free one); only the loopback address is allowed. The printed address carries a random token; nothing is answered without it (the cookie set by opening that address, ?token=, or \"Authorization: Token ...\")" },
  { name = "--pages DIR", synopsis = { "velconfig [-v] [--state FILE] serve --pages DIR [--port N] [--no-token]" }, pc = true,
    text = "serves the page folder DIR as the gateway's web server would: static files as they are, *.lua pages run afresh for every request as CGI programs or as handle_request(env) handlers; an open page reloads when a file in DIR changes, and a page that raises answers 500 with its traceback. The console moves to /velconfig/" },
  { name = "run", synopsis = { "velconfig [-v] [--state FILE] run SCRIPT [ARG ...]" },
    text = "runs the Lua SCRIPT with require \"velconfig\" resolving to this tool's module on the chosen gateway (velconfig run page.lua, velconfig run /usr/bin/busted tests/)" },
  { name = "env", synopsis = { "velconfig [--state FILE] env" },
    text = "prints the shell exports that point any other Lua command at the same module and gateway: eval \"$(velconfig env)\"" },
  { name = "event", synopsis = { "velconfig [--state FILE] event EVENT [ARGUMENTS] | event --help" }, pc = true,
    text = "the world around the simulated gateway changes: a device joins, the WAN drops, a disk is pulled out ... (event --help lists them)" },
  { name = "play", synopsis = { "velconfig [--state FILE] play [--no-wait] SCENARIO.json" }, pc = true,
    text = "runs a timed scenario of events and writes, printing each step as it happens; Ctrl-C stops it" },
  { name = "keys", synopsis = { "velconfig keys" }, text = "lists every key: get or set, and its name" },
  { name = "help KEY", synopsis = { "velconfig help [KEY]" },
    text = "what KEY takes and answers, every field with its meaning and accepted values, from the key catalogue" },
  { name = "--version", synopsis = { "velconfig --version | --help" }, text = "prints the version; --help prints this text" },
}

M.options = {
  { "-v, --verbose", "also print the platform log lines on stderr" },
  { "--state FILE", "the simulated gateway's state file (default: VELCONFIG_SIM_STATE, else ~/.local/state/velconfig/gateway.json, seeded from the built-in gateway); its files live beside it, in FILE's name with .root, unless VELCONFIG_ROOT is set; ignored on a gateway" },
  { "--no-token", "serve without the token, for scripts on a single-user machine: any local process or user can then drive the gateway", pc = true },
}

local function wrap(text, width, indent)
  local lines, line = {}, ""
  for word in text:gmatch("%S+") do
    if line ~= "" and #line + 1 + #word > width then
      lines[#lines + 1] = line
      line = word
    else
      line = line == "" and word or (line .. " " .. word)
    end
  end
  lines[#lines + 1] = line
  return table.concat(lines, "\n" .. indent)
end

local function available(c, pc) return pc or not c.pc end

function M.help(pc)
  local out, first = {}, true
  for _, c in ipairs(M.commands) do
    if available(c, pc) then
      for _, s in ipairs(c.synopsis) do
        out[#out + 1] = (first and "usage: " or "       ") .. s
        first = false
      end
    end
  end
  out[#out + 1] = ""
  for _, c in ipairs(M.commands) do
    if available(c, pc) then
      out[#out + 1] = ("  %-11s"):format(c.name) .. wrap(c.text, 66, "             ")
    end
  end
  out[#out + 1] = ""
  for _, o in ipairs(M.options) do
    if available(o, pc) then
      out[#out + 1] = ("  %-11s"):format(o[1]) .. (#o[1] > 10 and ("\n             ") or "") .. wrap(o[2], 66, "             ")
    end
  end
  return table.concat(out, "\n") .. "\n"
end

-- A line for roff: backslashes and hyphens as roff wants them.
local function roff(text)
  return (text:gsub("\\", "\\e"):gsub("%-", "\\-"):gsub("^%.", "\\&."):gsub("^'", "\\&'"))
end

-- A synopsis in roff: words the user replaces in italics, the tool's words in bold.
local function roff_synopsis(s)
  local parts = {}
  for token in s:gmatch("%S+") do
    local open, word, close = token:match("^([%[]*)(.-)([%]]*)$")
    local styled = word:gsub("[^=|]+", function(w)
      return (w:match("^[A-Z][A-Z0-9]*$") or w == "...") and ("\\fI" .. roff(w) .. "\\fR") or ("\\fB" .. roff(w) .. "\\fR")
    end)
    parts[#parts + 1] = open .. styled .. close
  end
  return table.concat(parts, " ")
end

-- The parts of the manual page that --help leaves to it.
local DESCRIPTION = [[
.B velconfig
loads the gateway's Lua 5.1 configuration module, calls
.BI velconfig:get( KEY ", " A1 ", " A2 )
or
.BI velconfig:set( KEY ", " input )
as the web pages do, and prints the answer as JSON: object keys sorted, numbered
rows (dev1, dev2, dev10) in numeric order.
.PP
On a PC it talks to a simulated gateway whose state is kept in a file, so successive
runs see their own changes; on a gateway the same script talks to the installed
module and the real platform.
]]

local REST = [[
.SH ENVIRONMENT
.TP
.B VELCONFIG_SIM_STATE
The state file when
.B \-\-state
is not given.
.TP
.B XDG_STATE_HOME
Without either, the state file is
.IR $XDG_STATE_HOME/velconfig/gateway.json
(default
.IR ~/.local/state/velconfig/gateway.json ).
.TP
.B VELCONFIG_ROOT
The simulated gateway's file root (its
.IR /tmp ,
.I /etc/config
and USB disks); default: a
.I root
folder beside the default state file.
.TP
.B VELCONFIG_TOOLS_DIR
The folder of the PC stand-ins the simulated gateway runs (its
.BR uci );
default: the installed
.IR libexec/velconfig .
.SH FILES
The tool finds its files relative to its own folder
.RI ( bin ),
so an installed tree may be moved:
.TP
.I ../lib/.../lua/5.1/velconfig.so
The module.
.TP
.I ../lib/.../velconfig/
The simulator library and the tool's C modules.
.TP
.I ../libexec/velconfig/uci
The PC
.B uci
the simulated gateway runs; it is never put on the user's PATH.
.TP
.I ../share/velconfig/
The console's pages, the key catalogue
.RI ( keys.json )
and the simulator's default model.
.TP
.I ../share/bash-completion/completions/velconfig
Bash completion of the commands and of the keys.
.SH EXIT STATUS
0 on success (whatever result code the key answered); 1 for a Lua error raised by
the call, a state file that cannot be used or a change that cannot be saved (the
answer is still printed); 2 for a usage error or a key that does not exist.
.B run
ends with the script's status (1 when it raised).
.SH EXAMPLES
.nf
velconfig get hasWiFi
velconfig get hostsInfo 7
velconfig set iptv enable=1 vlanOnOff=1 vlanid=45 bindlanport=LAN4
velconfig \-v set checkUAPasswd \-\-text user1234
velconfig \-\-state /tmp/gw.json set reboot
velconfig run page.lua
velconfig serve \-\-pages examples/pages \-\-port 0
velconfig help wifiBasic
.fi
.SH SEE ALSO
.BR lua5.1 (1)
.PP
The documentation in
.IR /usr/share/doc/velconfig/
(or
.I share/doc/velconfig
under the prefix).
]]

function M.man(version)
  local out = { '.TH VELCONFIG 1 "" "velconfig ' .. version .. '" "User Commands"', ".SH NAME",
                "velconfig \\- call a home gateway's configuration module from the command line", ".SH SYNOPSIS" }
  local first = true
  for _, c in ipairs(M.commands) do
    for _, s in ipairs(c.synopsis) do
      if not first then out[#out + 1] = ".br" end
      out[#out + 1] = roff_synopsis(s)
      first = false
    end
  end
  out[#out + 1] = ".SH DESCRIPTION"
  out[#out + 1] = DESCRIPTION:gsub("\n$", "")
  out[#out + 1] = ".SH COMMANDS"
  for _, c in ipairs(M.commands) do
    for i, s in ipairs(c.synopsis) do
      out[#out + 1] = i == 1 and ".TP" or ".TQ"
      out[#out + 1] = roff_synopsis(s:gsub("^velconfig %[%-v%] %[%-%-state FILE%] ", ""):gsub("^velconfig %[%-%-state FILE%] ", ""):gsub("^velconfig ", ""))
    end
    out[#out + 1] = roff(c.text:sub(1, 1):upper() .. c.text:sub(2)) .. "." .. (c.pc and " (PC only.)" or "")
  end
  out[#out + 1] = ".SH OPTIONS"
  for _, o in ipairs(M.options) do
    out[#out + 1] = ".TP"
    out[#out + 1] = roff_synopsis(o[1])
    out[#out + 1] = roff(o[2]:sub(1, 1):upper() .. o[2]:sub(2)) .. "." .. (o.pc and " (PC only.)" or "")
  end
  out[#out + 1] = REST:gsub("\n$", "")
  return table.concat(out, "\n") .. "\n"
end

if arg and arg[0] and arg[0]:match("velconfig_usage%.lua$") and arg[1] then io.stdout:write(M.man(arg[1])) end

return M
