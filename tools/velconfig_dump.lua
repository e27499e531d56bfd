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

return M
