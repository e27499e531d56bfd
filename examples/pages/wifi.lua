-- The Wi-Fi settings as a handler page, the convention of OpenWrt's web server:
-- handle_request(env) answers with uhttpd.send, reads a posted form with uhttpd.recv
-- and decodes it with uhttpd.urldecode. It reads "wifiBasic" and writes it back.
local v = require "velconfig"

local function esc(s)
  return (tostring(s):gsub("[&<>\"]", { ["&"] = "&amp;", ["<"] = "&lt;", [">"] = "&gt;", ['"'] = "&quot;" }))
end

-- The posted form's fields (application/x-www-form-urlencoded).
local function read_form(env)
  local left, parts = tonumber(env.CONTENT_LENGTH) or 0, {}
  while left > 0 do
    local n, data = uhttpd.recv(math.min(left, 4096))
    if n <= 0 then break end
    parts[#parts + 1], left = data, left - n
  end
  local form = {}
  for pair in table.concat(parts):gmatch("[^&]+") do
    local name, value = pair:match("^([^=]*)=?(.*)$")
    form[uhttpd.urldecode(name:gsub("+", " "))] = uhttpd.urldecode(value:gsub("+", " "))
  end
  return form
end

local MODES = { "Open", "WPA2", "WPA/WPA2", "WPA3", "WPA2/WPA3" }

local function page(w, note)
  local options = {}
  for _, mode in ipairs(MODES) do
    options[#options + 1] = string.format('<option%s>%s</option>', mode == w.auth1 and " selected" or "", mode)
  end
  uhttpd.send("Status: 200 OK\r\nContent-Type: text/html; charset=utf-8\r\n\r\n")
  uhttpd.send([[<!doctype html>
<html lang="en"><head><meta charset="utf-8"><title>Wi-Fi settings</title>
<link rel="stylesheet" href="style.css"></head><body>
<h1>Wi-Fi settings (2.4 GHz)</h1>
]], note and ('<p class="done" id="note">' .. esc(note) .. "</p>") or "", [[
<form method="post">
  <label>Network name <input name="ssid" id="ssid" value="]], esc(w.ssid1), [[" maxlength="32" required></label>
  <label>Security <select name="auth">]], table.concat(options), [[</select></label>
  <label>Password <input name="passwd" value="]], esc(w.passwd1), [[" maxlength="63"></label>
  <label>Power <select name="strength">
    <option value="1">1 (lowest)</option><option value="2">2</option>
    <option value="3" selected>3</option><option value="4">4 (highest)</option></select></label>
  <button>Save</button>
</form>
<p>Now on air: <b id="current">]], esc(w.ssid1), [[</b> · <a href="overview.lua">overview</a></p>
</body></html>
]])
end

function handle_request(env)
  if env.REQUEST_METHOD == "POST" then
    local form = read_form(env)
    -- wifi_dualBand "0" leaves the 5 GHz radio as it is; wifi_5G_enbl=0 would switch it off.
    local code = v:set("wifiBasic", {
      wifi_dualBand = "0", wifi_2G_enbl = "1", wifi_2G_ssid = form.ssid, wifi_2G_auth = form.auth,
      wifi_2G_passwd = form.passwd, wifi_2G_strength = form.strength,
    })
    -- After a write, the browser is sent to a fresh page, so that a reload does not post again.
    uhttpd.send("Status: 303 See Other\r\nLocation: wifi.lua?saved=" .. code .. "\r\n\r\n")
    return
  end
  local saved = (env.QUERY_STRING or ""):match("saved=(%-?%d+)")
  local note = saved and (saved == "0" and "Saved." or ("The gateway answered " .. saved .. "."))
  page(v:get("wifiBasic"), note)
end
