-- velconfig event and velconfig play: the world around the simulated gateway changes
-- on command (a device joins, the WAN drops, a disk is pulled out ...), one event at
-- a time or as a timed scenario, so that a tester sees what a page does then.
local M = {}

-- Every event: its name, its command line, the parameter its one positional word
-- fills, the options it takes, and what it does. The simulator judges the values.
M.EVENTS = {
  { name = "join", usage = "join [--wired|--2.4g|--5g] [--name NAME] [--mac MAC] [--ip ADDRESS] [--down BITS] [--up BITS] [--type TYPE]",
    options = { band = true, name = true, mac = true, ip = true, down = true, up = true, type = true },
    says = "a device joins (default: on 5 GHz, a new MAC, the first free pool address, 2 Mbit/s down and\n" ..
           "250 kbit/s up); a known MAC that is offline joins again as it was (name, band, address, rates)" },
  { name = "leave", usage = "leave HOST", positional = "host", says = "the online device with that MAC, address or name leaves" },
  { name = "wan-down", usage = "wan-down", says = "the WAN link drops: disconnected, no addresses" },
  { name = "wan-up", usage = "wan-up", says = "the WAN link comes back with its addresses; its up time starts from 0" },
  { name = "usb-unplug", usage = "usb-unplug [DISK]", positional = "disk",
    says = "the disk (id, name, label or mount path; default the first) is pulled out; its files are kept" },
  { name = "usb-plug", usage = "usb-plug [DISK]", positional = "disk",
    says = "an unplugged disk (default the last one) is plugged in again, with its files" },
  { name = "loid-next", usage = "loid-next", says = "the LOID registration starts or moves on to its next step now" },
  { name = "loid-stall", usage = "loid-stall", says = "the LOID registration stays at its current step (loid-next resumes it)" },
  { name = "loid-fail", usage = "loid-fail [STATUS]", positional = "status",
    says = "the LOID registration fails now with 405 (default), 407 or 409" },
  { name = "plugin-stop", usage = "plugin-stop", says = "the interconnect plugin stops answering (it still shows as running)" },
  { name = "plugin-answer", usage = "plugin-answer", says = "the interconnect plugin answers again" },
  { name = "reboot", usage = "reboot", says = "the gateway reboots: running time and WAN time start from 0" },
  { name = "clock", usage = "clock SECONDS", positional = "seconds",
    says = "the gateway's clock jumps by SECONDS (+3600, -600, 2h, -1d); running times go on as they were" },
}

local by_name = {}
for _, e in ipairs(M.EVENTS) do by_name[e.name] = e end

function M.help()
  local lines = { "usage: velconfig [--state FILE] event EVENT [ARGUMENTS]",
                  "       velconfig [--state FILE] play [--no-wait] SCENARIO.json", "",
                  "Each event changes the simulated gateway at once (a console or page sees it on its",
                  "next call) and prints what it changed; a refused one changes nothing and exits 2.", "" }
  for _, e in ipairs(M.EVENTS) do
    lines[#lines + 1] = "  " .. e.usage
    lines[#lines + 1] = "      " .. e.says:gsub("\n", "\n      ")
  end
  lines[#lines + 1] = ""
  lines[#lines + 1] = "play runs a scenario: {\"steps\": [{\"at\": SECONDS or \"after\": SECONDS, \"event\": NAME,"
  lines[#lines + 1] = "PARAMETER: VALUE ...} or {..., \"set\": KEY, \"input\": {...}}]}, printing each step as it"
  lines[#lines + 1] = "happens; --no-wait runs the steps one after the other at once. Ctrl-C stops it."
  return table.concat(lines, "\n") .. "\n"
end

-- "2h", "-90m", "+3600" as seconds, or nil.
local UNITS = { s = 1, m = 60, h = 3600, d = 86400 }
function M.seconds(text)
  local sign, digits, unit = tostring(text):match("^([+-]?)(%d+)([smhd]?)$")
  if not digits then return nil end
  local n = tonumber(digits) * UNITS[unit ~= "" and unit or "s"]
  return sign == "-" and -n or n
end

-- The event's parameters from its command-line words; nil and a message for words it
-- does not take.
function M.parse(name, words)
  local event = by_name[name]
  if not event then return nil, "no event " .. tostring(name) .. " (velconfig event --help lists them)" end
  local params, i = {}, 1
  while i <= #words do
    local option = words[i]:match("^%-%-(.+)$")
    if option and event.options and (option == "wired" or option == "2.4g" or option == "5g") then
      params.band = option
      i = i + 1
    elseif option and event.options and event.options[option] and words[i + 1] then
      params[option] = words[i + 1]
      i = i + 2
    elseif not option and event.positional and params[event.positional] == nil then
      params[event.positional] = words[i]
      i = i + 1
    else
      return nil, "usage: velconfig event " .. event.usage
    end
  end
  if event.name == "leave" and not params.host then return nil, "usage: velconfig event " .. event.usage end
  if event.name == "clock" then
    params.seconds = params.seconds and M.seconds(params.seconds)
    if not params.seconds then return nil, "usage: velconfig event " .. event.usage end
  end
  return params
end

-- Applies one event: true and what it changed, or false and why nothing changed.
function M.apply(sim, name, params)
  if not by_name[name] then return false, "no event " .. tostring(name) end
  if name == "clock" and type(params.seconds) == "string" then params.seconds = M.seconds(params.seconds) end
  local said, reason = sim.event(name, params)
  if not said then return false, reason end
  return true, said
end

-- velconfig event NAME ...: exits 0 having printed what changed, 2 when refused.
function M.run_event(sim, words)
  local name = words[1]
  if name == nil or name == "--help" or name == "-h" then
    io.stdout:write(M.help())
    os.exit(name and 0 or 2)
  end
  local rest = {}
  for i = 2, #words do rest[#rest + 1] = words[i] end
  local params, err = M.parse(name, rest)
  if not params then
    io.stderr:write("velconfig: ", err, "\n")
    os.exit(2)
  end
  local ok, said = M.apply(sim, name, params)
  if not ok then
    io.stderr:write("velconfig: event ", name, " refused: ", said, "\n")
    os.exit(2)
  end
  io.stdout:write(name, ": ", (said:gsub("\n", "\n" .. name .. ": ")), "\n")
  os.exit(0)
end

-- The scenario's steps with the moment (seconds from the start) of each; nil and a
-- message naming the step that is wrong.
function M.timeline(scenario)
  if type(scenario) ~= "table" or type(scenario.steps) ~= "table" then return nil, "a scenario is {\"steps\": [...]}" end
  local timed, last = {}, 0
  for i, step in ipairs(scenario.steps) do
    local at
    if type(step) ~= "table" then return nil, ("step %d: not an object"):format(i) end
    if type(step.at) == "number" and step.after == nil then
      at = step.at
    elseif type(step.after) == "number" and step.at == nil then
      at = last + step.after
    elseif step.at == nil and step.after == nil then
      at = last
    else
      return nil, ("step %d: give \"at\" or \"after\", a number of seconds"):format(i)
    end
    if at < last then return nil, ("step %d: at %s s, before the step ahead of it"):format(i, tostring(at)) end
    if (step.event == nil) == (step.set == nil) then return nil, ("step %d: give an \"event\" or a \"set\""):format(i) end
    if step.event ~= nil and not by_name[step.event] then return nil, ("step %d: no event %s"):format(i, tostring(step.event)) end
    if step.set ~= nil and type(step.set) ~= "string" then return nil, ("step %d: \"set\" names a key"):format(i) end
    timed[#timed + 1] = { at = at, step = step, number = i }
    last = at
  end
  return timed
end

local function step_params(step)
  local params = {}
  for k, v in pairs(step) do
    if k ~= "at" and k ~= "after" and k ~= "event" and k ~= "note" then params[k] = v end
  end
  return params
end

-- Runs a scenario. env: sim, velconfig (the module, for "set" steps), wait(seconds)
-- (false when interrupted), clock() (seconds), write(text). Returns the number of
-- steps done, and a message when a step failed or true when a wait was interrupted.
function M.play(timed, env)
  local started = env.clock()
  for done, t in ipairs(timed) do
    local left = t.at - (env.clock() - started)
    -- The interpreter's own Ctrl-C hook may raise first; either way the run stops here.
    if left > 0 and not env.wait(left) then return done - 1, nil, true end
    local step, stamp = t.step, ("[%5.1f s] "):format(t.at)
    if step.note then env.write(stamp .. "# " .. tostring(step.note) .. "\n") end
    if step.event then
      local ok, said = M.apply(env.sim, step.event, step_params(step))
      if not ok then return done - 1, ("step %d (%s) refused: %s"):format(t.number, step.event, said) end
      env.write(stamp .. step.event .. ": " .. said:gsub("\n", "\n" .. stamp .. step.event .. ": ") .. "\n")
    else
      local called, result = pcall(function() return env.velconfig:set(step.set, step.input) end)
      if not called then return done - 1, ("step %d (set %s) failed: %s"):format(t.number, step.set, tostring(result)) end
      env.write(stamp .. "set " .. step.set .. ": result " .. tostring(result) .. "\n")
    end
    env.done = done
  end
  return #timed
end

-- velconfig play [--no-wait] SCENARIO.json: exits 0 when every step was done, 1 when
-- one failed, 130 when Ctrl-C stopped it (what was done stays done).
function M.run_play(sim, velconfig, json, words)
  local no_wait, path = false, nil
  for _, w in ipairs(words) do
    if w == "--no-wait" then
      no_wait = true
    elseif w == "--help" or w == "-h" then
      io.stdout:write(M.help())
      os.exit(0)
    elseif path == nil and w:sub(1, 1) ~= "-" then
      path = w
    else
      path = nil
      break
    end
  end
  if not path then
    io.stderr:write("usage: velconfig play [--no-wait] SCENARIO.json\n")
    os.exit(2)
  end
  local f, err = io.open(path, "rb")
  if not f then
    io.stderr:write("velconfig: ", tostring(err), "\n")
    os.exit(2)
  end
  local text = f:read("*a")
  f:close()
  local decoded, scenario = pcall(json.decode, text)
  local timed, problem
  if decoded then timed, problem = M.timeline(scenario) else problem = tostring(scenario) end
  if not timed then
    io.stderr:write("velconfig: ", path, ": ", problem, "\n")
    os.exit(2)
  end
  if type(scenario.title) == "string" then io.stdout:write("playing ", scenario.title, "\n") end
  local write = function(s)
    io.stdout:write(s)
    io.stdout:flush()
  end
  local env = { done = 0, sim = sim, velconfig = velconfig, write = write, clock = sim.monotonic_seconds,
                wait = no_wait and function() return true end or sim.wait }
  -- Ctrl-C interrupts the wait; the interpreter then raises at the next instruction.
  local ok, done, failure, interrupted = pcall(M.play, timed, env)
  if not ok or interrupted then
    if interrupted or tostring(done):find("interrupted", 1, true) then
      io.stdout:write(("stopped by Ctrl-C after %d of %d steps; what was done stays done\n"):format(env.done or 0, #timed))
      os.exit(130)
    end
    io.stderr:write("velconfig: ", tostring(done), "\n")
    os.exit(1)
  end
  if failure then
    io.stderr:write("velconfig: ", failure, "\n")
    os.exit(1)
  end
  io.stdout:write(("played %d steps\n"):format(done))
  os.exit(0)
end

return M
