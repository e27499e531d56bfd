-- Random valid gateways for the simulator, from a seed: the same seed gives the same
-- model. Texts stay within the platform records' fields (a text cut inside a
-- character is not what the gateway would hold), and reach those limits with
-- multi-byte UTF-8.
local json = require "velconfig_json"

local M = {}

-- Park-Miller: exact in Lua 5.1's doubles, the same on every machine.
local function generator(seed)
  local state = (math.floor(seed) % 2147483646) + 1
  local r = {}
  function r.int(lo, hi)
    state = (state * 16807) % 2147483647
    return lo + state % (hi - lo + 1)
  end
  function r.chance(p) return r.int(1, 1000) <= p * 1000 end
  function r.pick(list) return list[r.int(1, #list)] end
  return r
end

local PIECES = { "a", "Z", "7", "-", "_", " ", ".", "é", "ß", "中", "网", "€", "😀", "ü" }

-- A text of at most max bytes made of whole characters; exactly max bytes when full.
local function text(r, max, full)
  local out, n = {}, 0
  local target = full and max or r.int(0, max)
  while n < target do
    local piece = r.pick(PIECES)
    if n + #piece > target then piece = "x" end
    out[#out + 1] = piece
    n = n + #piece
  end
  return table.concat(out)
end

local function word(r, min, max)
  local out = {}
  for i = 1, r.int(min, max) do out[i] = string.char(r.pick({ r.int(97, 122), r.int(65, 90), r.int(48, 57) })) end
  return table.concat(out)
end

local function hex(r, n)
  local out = {}
  for i = 1, n do out[i] = string.format("%X", r.int(0, 15)) end
  return table.concat(out)
end

local function ipv4(r) return string.format("%d.%d.%d.%d", r.int(1, 223), r.int(0, 255), r.int(0, 255), r.int(1, 254)) end

local function ipv6(r)
  if r.chance(0.2) then return "" end
  return string.format("fd%02x::%x", r.int(0, 255), r.int(1, 65535)) .. (r.chance(0.3) and "/64" or "")
end

local HOST_TYPES = { "pc", "phone", "mobile", "itv", "PHONE", "tablet", "", "camera" }
local STATUSES = { "Connected", "connected", "Disconnected", "Connecting", "" }
local BEACONS = { "None", "Basic", "WPA", "WPA2", "11i", "WPA/WPA2", "WPA3", "WPA2/WPA3" }
local AP_AUTHS = { "open", "wpa2psk", "wpa3sae", "wpa2pskwpa3sae", "wpapskwpa2psk" }
local CLASSES = { ["2.4G-1"] = { 21, 22, 23 }, ["5G-1"] = { 24, 25, 26 } }

local function hosts(r, count)
  local list, macs = json.array(), {}
  for i = 1, count do
    local mac
    repeat mac = hex(r, 12) until not macs[mac]
    macs[mac] = true
    local online = r.chance(0.8)
    list[i] = {
      id = i, mac = mac, name = text(r, 134, r.chance(0.1)), access = r.pick({ 0, 1, 2, 2, 2 }),
      type = r.pick(HOST_TYPES), ip = ipv4(r), ipv6 = ipv6(r), connection = r.pick({ 0, 1, 1, 2, 3 }),
      brand = text(r, 63, r.chance(0.1)), model = text(r, 63), system = text(r, 63, r.chance(0.1)),
      online = online, online_time = online and r.int(0, 4000000) or 0, down_bytes = r.int(0, 2 ^ 31),
      up_bytes = r.int(0, 2 ^ 31), down_rate = r.int(0, 1000000), up_rate = r.int(0, 100000),
    }
  end
  return list
end

local function wlan_record(r, id, label)
  local classes = CLASSES[label]
  local class = classes and r.chance(0.4) and r.pick(classes) or 0
  local power = r.pick({ 50, 60, 70, 80, 90, 100 })
  if class ~= 0 and r.chance(0.5) then power = 160 end
  return { id = id, band_label = label, ssid = text(r, 32, r.chance(0.5)), enable = r.int(0, 1),
           beacon_type = r.pick(BEACONS), standard = r.pick({ "b,g,n", "b,g,n,ax", "a,n,ac", "a,n,ac,ax" }),
           wep_level = "", basic_auth = "OpenSystem", wpa_encryption = "AESEncryption", tx_power = power,
           high_power_class = class, passphrase = text(r, 63) }
end

local function access_points(r)
  local aps = json.array()
  for i = 1, r.int(0, 4) do
    local bands = {}
    for _, mode in ipairs({ "2.4g", "5g" }) do
      if r.chance(0.7) then
        bands[mode] = { ssid = text(r, 32), pwd = word(r, 0, 20), auth = r.pick(AP_AUTHS), enable = r.int(0, 1) }
      end
    end
    aps[i] = { vendor = word(r, 1, 12), model = word(r, 1, 12), mac = hex(r, 12), hw_version = word(r, 1, 8),
               sw_version = word(r, 1, 10), connect_type = r.int(0, 1), online_time = r.int(0, 999999),
               wifi_switch = r.int(0, 1), bands = bands }
  end
  return aps
end

-- A USB tree: folders ("name/") and files with a size or a text, nested.
local function disk_files(r)
  local files, n = {}, 0
  local function fill(prefix, depth)
    for _ = 1, r.int(0, depth == 0 and 6 or 3) do
      local name = text(r, 40)
      if name ~= "" and name ~= "." and name ~= ".." then
        name = name:gsub("/", "_")
        n = n + 1
        if depth < 2 and r.chance(0.3) then
          files[prefix .. name .. "/"] = ""
          fill(prefix .. name .. "/", depth + 1)
        elseif r.chance(0.5) then
          files[prefix .. name] = r.int(0, 40000)
        else
          files[prefix .. name] = text(r, 200)
        end
      end
    end
  end
  fill("", 0)
  return files
end

local function usb(r)
  local list = json.array()
  local ids = { "1", "2", "3", "02", "7", "9" }
  for i = 1, r.int(0, 4) do
    local disk = r.chance(0.8)
    local total = r.int(0, 2 ^ 31)
    list[i] = { id = ids[i], class = disk and 8 or r.pick({ 9, 3 }), name = text(r, 63),
                mount_path = disk and string.format("/mnt/usb%d_1", i) or "", total_size = total,
                used_size = total > 0 and r.int(0, total) or 0, label = r.chance(0.5) and text(r, 127) or "" }
    if disk then list[i].files = disk_files(r) end
  end
  return list
end

local function time_of_day(r) return string.format("%02d:%02d", r.int(0, 23), r.int(0, 59)) end

-- A random gateway for seed, built on the default model (a table, left as it is).
function M.model(seed, default)
  local r = generator(seed)
  local m = json.decode(json.encode(default))
  local d = m.device
  d.vendor, d.mac, d.sw_version = text(r, 63, r.chance(0.3)), hex(r, 12), word(r, 1, 30)
  d.product_class, d.serial = word(r, 1, 23), word(r, 1, 40)
  d.dev_type = r.pick({ "1", "1", "13", "4" })
  d.dev_type2, d.capability = word(r, 0, 40), r.pick({ "1;1;1", "0;1", ";;2", "" })
  d.cpu_usage, d.uptime = r.int(0, 100), r.int(0, 2 ^ 31)
  d.has_wifi, d.has_usb = r.chance(0.9), r.chance(0.8)
  d.access_sign = r.chance(0.8) and { MarkType = r.int(0, 255), DeviceModel = text(r, 63), NASN = word(r, 0, 63) } or nil
  local wan = m.wan
  wan.ipv4_status, wan.ipv6_status = r.pick(STATUSES), r.pick(STATUSES)
  wan.ipv4, wan.ipv6 = r.chance(0.9) and ipv4(r) or "", ipv6(r)
  wan.uptime, wan.pppoe_account = r.int(0, 2 ^ 31), word(r, 0, 63)
  m.lan.ipv6 = ipv6(r)
  m.dhcp = { enable = r.chance(0.7), ip = ipv4(r), mask = "255.255.255.0", min = ipv4(r), max = ipv4(r) }
  local n = r.chance(0.1) and 254 or r.chance(0.1) and 0 or r.int(1, 40)
  m.hosts = hosts(r, n)
  m.iptv = { enable = r.int(0, 1), vlan_id = r.int(-1, 4094), bound_ports = r.pick({ "", "LAN1", "LAN3,LAN4", word(r, 32, 32) }) }
  m.loid.status = r.pick({ 200, 203, 201, 405, -1 })
  m.loid.services = r.pick({ "", "IPTV", "VOIP", "IPTV,VOIP", "INTERNET" })
  m.ddns = json.array()
  for i = 1, r.int(0, 5) do
    m.ddns[i] = { id = i, enable = r.int(0, 1), provider = text(r, 63), username = text(r, 31),
                  password = text(r, 31, r.chance(0.5)), domain = word(r, 1, 63), hostname = text(r, 63) }
  end
  m.port_mappings = json.array()
  for i = 1, r.int(0, 8) do
    m.port_mappings[i] = { id = i, enable = r.int(0, 1), external_port = r.chance(0.1) and r.int(2 ^ 31, 2 ^ 32 - 1) or r.int(0, 65535),
                           internal_port = r.int(0, 65535), protocol = r.pick({ "TCP", "UDP", "BOTH" }),
                           client = ipv4(r), description = text(r, 31, r.chance(0.3)) }
  end
  m.wifi.dual_band = r.chance(0.7)
  m.wifi.standards = r.pick({ "802.11b,802.11g,802.11n", "802.11b,802.11g,802.11n,802.11a,802.11ac,802.11ax" })
  m.wifi.supported_beacon_types = r.pick({ "None,Basic,WPA,WPA2,WPA/WPA2", "None,WPA2,WPA3,WPA2/WPA3" })
  m.wifi.timer = { enable = r.int(0, 1), start_time = time_of_day(r), end_time = time_of_day(r), repeat_mode = "DAY",
                   ssid_mask = 0 }
  m.wlan = json.array { wlan_record(r, 1, "2.4G-1") }
  if r.chance(0.5) then m.wlan[#m.wlan + 1] = wlan_record(r, 2, "2.4G-2") end
  if r.chance(0.85) then m.wlan[#m.wlan + 1] = wlan_record(r, 5, "5G-1") end
  if r.chance(0.9) then
    m.easymesh = { enable = r.chance(0.5), enable_2g = r.chance(0.5), enable_5g = r.chance(0.5), ssid_2g = text(r, 32),
                   ssid_5g = text(r, 32, true), auth_2g = word(r, 0, 15), auth_5g = word(r, 0, 15),
                   key_2g = word(r, 0, 63), key_5g = word(r, 0, 63) }
  else
    m.easymesh = nil
  end
  if r.chance(0.2) then m.wifi.map_agent = nil end
  m.apps = json.array()
  local plugin = r.pick({ 1, 1, 1, 0, 3, "missing" })
  if plugin ~= "missing" then
    m.apps[1] = { name = "inter_conndv3", description = text(r, 40), version = word(r, 1, 8), state = plugin }
  end
  for i = 1, r.int(0, 3) do
    m.apps[#m.apps + 1] = { name = "app" .. i, description = text(r, 40), version = word(r, 1, 8), state = r.int(0, 1) }
  end
  m.interconnect = { same_wifi = r.int(0, 1), same_status = r.int(0, 1),
                     roaming = { optimal_path_rcpi_threshold2g = 2 * r.int(0, 110),
                                 optimal_path_rcpi_threshold = 2 * r.int(0, 110) },
                     access_points = access_points(r) }
  m.usb = usb(r)
  m.cloud_client = { status = r.pick({ "0", "0", "1" }), url = word(r, 1, 60) .. ".example", token = hex(r, 32),
                     fail_reason = word(r, 0, 20) }
  if r.chance(0.5) then m.cloud_client.mac = hex(r, 12) end
  return m
end

return M
