#!/usr/bin/lua
-- The home overview as a CGI page: the gateway's figures from "allInfo", written as
-- header lines, a blank line and the body on standard output.
local v = require "velconfig"

local function esc(s)
  return (tostring(s):gsub("[&<>\"]", { ["&"] = "&amp;", ["<"] = "&lt;", [">"] = "&gt;", ['"'] = "&quot;" }))
end

local function duration(seconds)
  seconds = tonumber(seconds) or 0
  return string.format("%dd %02dh %02dm", seconds / 86400, seconds % 86400 / 3600, seconds % 3600 / 60)
end

local info = v:get("allInfo")
local rows = {}
for _, kind in ipairs({ "pc", "wifi" }) do
  local count = kind == "pc" and info.wcount or info.wlcount
  for i = 1, tonumber(count) or 0 do
    local d = info[kind .. i]
    rows[#rows + 1] = string.format("<tr><td>%s</td><td>%s</td><td>%s</td><td>%s</td></tr>",
      esc(d.devName), esc(d.ip), kind == "pc" and "cable" or "Wi-Fi", esc(d.brand .. " " .. d.model))
  end
end

io.write("Content-Type: text/html; charset=utf-8\r\n\r\n")
io.write([[<!doctype html>
<html lang="en"><head><meta charset="utf-8"><title>Home overview</title>
<link rel="stylesheet" href="style.css"></head><body>
<h1>Home overview</h1>
<div class="figures">
  <div>Internet<b id="wan">]], esc(info.wanConnect), [[</b></div>
  <div>Up for<b>]], duration(info.wanUpTime), [[</b></div>
  <div>Devices<b id="devices">]], #rows, [[</b></div>
  <div>USB disks<b>]], esc(info.scount), [[</b></div>
</div>
<h2>Devices at home</h2>
<table><tr><th>Name</th><th>Address</th><th>Link</th><th>Model</th></tr>
]], table.concat(rows, "\n"), [[
</table>
<p><a href="wifi.lua">Wi-Fi settings</a> · <a href="index.html">all pages</a></p>
</body></html>
]])
