-- A dump of a gateway: the answers of every read key that changes nothing, with a
-- header saying what took it. Runs on the gateway too, so plain Lua 5.1 only.
local M = {}

M.FORMAT = 1
-- What a secret reads as in a dump fit to be mailed.
M.PLACEHOLDER = "(hidden)"

-- Where the secrets are: key, then a row prefix (or false for the key's own table),
-- then the fields. An empty secret stays empty: it tells nothing.
local SECRETS = {
  { "wifiBasic", false, { "passwd1", "passwd2" } },
  { "easymesh_config", false, { "key1", "key2" } },
  { "easymesh_config", "ap", { "pwd2g", "pwd5g" } },
  { "interConndStatus", "ap", { "pwd2g", "pwd5g" } },
  { "ddns", "ddnsCfg", { "password" } },
}

local function hide(t, fields)
  for _, f in ipairs(fields) do
    if type(t[f]) == "string" and t[f] ~= "" then t[f] = M.PLACEHOLDER end
  end
end

function M.hide_secrets(answers)
  for _, s in ipairs(SECRETS) do
    local key, prefix, fields = s[1], s[2], s[3]
    local answer = answers[key]
    if type(answer) == "table" then
      if not prefix then
        hide(answer, fields)
      else
        for name, row in pairs(answer) do
          if type(name) == "string" and name:match("^" .. prefix .. "%d+$") and type(row) == "table" then
            hide(row, fields)
          end
        end
      end
    end
  end
  local mall = answers.getMallUrl
  if type(mall) == "table" and type(mall.url) == "string" then
    mall.url = mall.url:gsub("([?&]token=)[^&]*", "%1" .. M.PLACEHOLDER)
  end
  return answers
end

-- catalogue: the key catalogue's entries. options: version, platform ("sim" or
-- "gateway"), with_secrets.
function M.take(velconfig, catalogue, options)
  local started = os.time()
  local answers = {}
  for _, k in ipairs(catalogue) do
    if k.call == "get" and k.built and not k.changes then
      local ok, result = pcall(velconfig.get, velconfig, k.key)
      answers[k.key] = ok and result or { error = tostring(result) }
    end
  end
  if not options.with_secrets then M.hide_secrets(answers) end
  return {
    format = M.FORMAT,
    taken = os.date("!%Y-%m-%dT%H:%M:%SZ", started),
    version = options.version,
    platform = options.platform,
    secrets = options.with_secrets and "kept" or "hidden",
    answers = answers,
  }
end

-- Fields that move with time on a running gateway (speeds, online and up times, the
-- clock, file times): key, row prefix (false: the key's own table), fields.
M.TIME_FIELDS = {
  { "allInfo", false, { "tWUp", "tWDown", "tWlUp", "tWlDown", "wanUpTime" } },
  { "allInfo", "pc", { "upSpeed", "downSpeed", "onlineTime" } },
  { "allInfo", "wifi", { "upSpeed", "downSpeed", "onlineTime" } },
  { "hostsInfo", "dev", { "upSpeed", "downSpeed" } },
  { "gwStatus", false, { "sysTime", "upTime" } },
  { "wifiAdv", false, { "sysTime" } },
  { "fileLists", "file", { "time" } },
  { "selectedUsb", "file", { "time" } },
  { "subFiles", "file", { "time" } },
  { "interConndStatus", "ap", { "onlinetime" } },
  { "easymesh_config", "ap", { "onlinetime" } },
}

local function without_time(key, answer)
  if type(answer) ~= "table" then return answer end
  local copy = {}
  for k, v in pairs(answer) do
    if type(v) == "table" then
      local row = {}
      for f, x in pairs(v) do row[f] = x end
      v = row
    end
    copy[k] = v
  end
  for _, t in ipairs(M.TIME_FIELDS) do
    if t[1] == key then
      for name, row in pairs(copy) do
        if t[2] and type(name) == "string" and name:match("^" .. t[2] .. "%d+$") and type(row) == "table" then
          for _, f in ipairs(t[3]) do row[f] = nil end
        end
      end
      if not t[2] then
        for _, f in ipairs(t[3]) do copy[f] = nil end
      end
    end
  end
  return copy
end

local function same(a, b)
  if type(a) ~= "table" or type(b) ~= "table" then return a == b end
  for k, v in pairs(a) do
    if not same(v, b[k]) then return false end
  end
  for k in pairs(b) do
    if a[k] == nil then return false end
  end
  return true
end

-- The keys of two dumps' answers that differ other than in the time fields, sorted.
function M.differences(a, b)
  local keys, seen = {}, {}
  for _, side in ipairs({ a, b }) do
    for k in pairs(side) do
      if not seen[k] then
        seen[k] = true
        if not same(without_time(k, a[k]), without_time(k, b[k])) then keys[#keys + 1] = k end
      end
    end
  end
  table.sort(keys)
  return keys
end

return M
