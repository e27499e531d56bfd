-- A simulated gateway from a dump: the answers of a real gateway's read keys are
-- turned back into the simulator's model, so that each key answers as in the dump.
-- What no answer carries (object paths, reserved bytes, instance numbers of objects
-- no page shows, other disks' files) is made up the same way every time; parts of
-- the model no dumped key shows stay the default model's. PC only.
local json = require "velconfig_json"

local M = {}

-- A dump of 254 hosts is about 200 KB; anything near this is not a dump.
M.MAX_BYTES = 16 * 1024 * 1024
-- The simulator makes one sample file at most this big (sparse: holes, no data
-- written), and all of a dump's sample files together at most the second figure.
local LARGEST_FILE = 64 * 1024 * 1024
M.LARGEST_DISK_BYTES = 1024 * 1024 * 1024

local S, N, B = "string", "number", "boolean"

-- Refusals carry the key they are about, as "key.field: what".
local function refuse(where, what) error({ where = where, what = what }, 0) end

local HOST_ROW = { type = S, brand = S, model = S, devName = S, ip = S, upSpeed = N, downSpeed = N, onlineTime = N }
local LIST_ROW = { ip = S, ipv6 = S, type = S, system = S, mac = S, upSpeed = N, downSpeed = N, restrict = B, black = B }
local AP_ROW = { vendor = S, model = S, mac = S, hdversion = S, swversion = S, connecttype = N, onlinetime = N,
                 wifiSwitch = N, flg = N, ssid2g = S, enbl2g = N, pwd2g = S, auth2g = S, ssid5g = S, enbl5g = N,
                 pwd5g = S, auth5g = S }
local FILE_ROW = { name = S, isFolder = B, size = N, time = S }
local PLUGIN = { appStatus = N, configEnbl = N, onoff = N, devcnt = N }

-- What each key answers: its type, or for a table its fields and its numbered rows
-- with the field that counts them.
local SCHEMA = {
  hasWiFi = N, hasPots = N, hasUsb = N, devType = N, hasMesh = N, checkLoid = N,
  gwIPs = { fields = { LANIP = S, WANIP = S, LAN6IP = S, WAN6IP = S } },
  getAppConfig = { fields = { appCnt = N }, rows = { { "app", nil, { name = S, title = S, src = S } } } },
  allInfo = {
    fields = { itv = B, voip = B, wanConnect = S, wanUpTime = N, tWUp = N, tWDown = N, tWlUp = N, tWlDown = N },
    rows = { { "pc", "wcount", HOST_ROW }, { "wifi", "wlcount", HOST_ROW },
             { "storage", "scount", { name = S, maxSize = N, usedSize = N, usbdev = N } } },
  },
  gwStatus = {
    fields = { upTime = N, sysTime = N, cpuUsed = N, wcount = N, wlcount = N, itv = B, voip = B },
    rows = { { "storage", "scount", { name = S, usedPer = N } } },
  },
  gwInfo = { fields = { DevType = S, ProductCls = S, ProductSN = S, MAC = S, SWVer = S, Vendor = S, LANIP = S,
                        LANIPv6 = S, WANIP = S, WANIPv6 = S, MarkType = N, DeviceModel = S, NASN = S } },
  lan = { fields = { dhcpEnbl = N, lanIp = S, poolStart = S, poolEnd = S, subnetMask = S } },
  ddns = { rows = { { "ddnsCfg", "count", { provider = S, domain = S, hostname = S, username = S, password = S,
                                            enable = N } } } },
  iptv = { fields = { enable = N, vlanOnOff = N, vlanid = N, bindlanport = S } },
  easymesh_config = {
    fields = setmetatable({ enblMesh = B, enbl1 = B, ssid1 = S, key1 = S, auth1 = S, enbl2 = B, ssid2 = S, key2 = S,
                            auth2 = S, rssi1 = N, rssi2 = N }, { __index = PLUGIN }),
    rows = { { "ap", "devcnt", AP_ROW } },
  },
  pmLists = {
    fields = { lanIp = S, mask = S },
    rows = { { "pmRule", "count", { desp = S, client = S, protocol = S, exPort = N, inPort = N, enable = N } } },
  },
  interConndStatus = { fields = PLUGIN, rows = { { "ap", "devcnt", AP_ROW } } },
  wifiBasic = { fields = { enbl1 = B, ssid1 = S, powerLevel1 = N, wallPower1 = B, auth1 = S, passwd1 = S, enbl2 = B,
                           ssid2 = S, powerLevel2 = N, wallPower2 = B, standard2 = S, auth2 = S, passwd2 = S,
                           dualBand = B, wifi6 = N } },
  wifiAdv = { fields = { timerEnbl = N, startTime = S, endTime = S, sysTime = S } },
  hostsInfo = { fields = { curip = S }, rows = { { "dev", "count", LIST_ROW } } },
  itvVoipReg = { fields = { itv = B, voip = B } },
  blackHosts = { rows = { { "dev", "count", { ip = S, ipv6 = S, type = S, system = S, mac = S } } } },
  usbDevices = { rows = { { "storage", "usbCount", { instno = S, label = S, maxSize = N, usedSize = N } } } },
  fileLists = {
    fields = { usbLabel = S, usbLabelInst = S, filePath = S },
    rows = { { "file", "fileNum", FILE_ROW }, { "storage", "usbCnt", S }, { "instno", "usbCnt", S } },
  },
  selectedUsb = { fields = { filePath = S }, rows = { { "file", "fileNum", FILE_ROW } } },
  subFiles = { fields = { filePath = S }, rows = { { "file", "fileNum", FILE_ROW } } },
  getDiagFolders = { rows = { { "folder", "folderNum", { name = S } } } },
  copyProgress = { fields = { percent = N } },
  getMallUrl = { fields = { result = N, url = S } },
  getAppParas = { fields = { ret = N } },
}

local TYPE_NAMES = { string = "a text", number = "a number", boolean = "true or false", table = "an object" }

local function type_name(v)
  if v == json.null then return "null" end
  return TYPE_NAMES[type(v)] or type(v)
end

local function check_type(where, v, wanted)
  if type(v) ~= wanted or v == json.null then
    refuse(where, "expected " .. TYPE_NAMES[wanted] .. ", got " .. type_name(v))
  end
  if wanted == N and (v ~= v or v == math.huge or v == -math.huge) then refuse(where, "not a finite number") end
  -- The module's texts end at a NUL: a text holding one would not be what the dump says.
  if wanted == S and v:find("%z") then refuse(where, "text holds a NUL character") end
end

local function check_fields(where, t, fields)
  for name, wanted in pairs(fields) do
    if t[name] ~= nil then check_type(where .. "." .. name, t[name], wanted) end
  end
end

-- The rows of one prefix must be exactly 1..count, the count a whole number.
local function check_rows(key, answer, prefix, count_field, row_schema)
  local numbers = {}
  for name in pairs(answer) do
    local n = type(name) == "string" and name:match("^" .. prefix .. "(%d+)$")
    if n then numbers[#numbers + 1] = tonumber(n) end
  end
  table.sort(numbers)
  local count = #numbers
  if count_field then
    local c = answer[count_field]
    local where = key .. "." .. count_field
    if c == nil then
      if count > 0 then refuse(where, "missing, with " .. count .. " " .. prefix .. " rows") end
      c = 0
    end
    check_type(where, c, N)
    if c ~= math.floor(c) or c < 0 then refuse(where, "not a count: " .. tostring(c)) end
    if c ~= count then
      refuse(where, string.format("says %d but there are %d %s rows", c, count, prefix))
    end
  end
  for i, n in ipairs(numbers) do
    if n ~= i then refuse(key .. "." .. prefix .. i, "missing (rows must be numbered from 1 without gaps)") end
    local where = key .. "." .. prefix .. i
    local row = answer[prefix .. i]
    if type(row_schema) == "string" then
      check_type(where, row, row_schema)
    else
      check_type(where, row, "table")
      check_fields(where, row, row_schema)
    end
  end
end

-- Judges every key the dump carries before anything is built. An answer that is a
-- failed call ({error = ...}) counts as missing.
function M.validate(answers)
  for key, answer in pairs(answers) do
    local schema = SCHEMA[key]
    if type(key) ~= "string" then refuse(tostring(key), "not a key") end
    if type(answer) == "table" and answer ~= json.null and type(answer.error) == "string" and next(answer, next(answer)) == nil then
      answers[key] = nil
    elseif type(schema) == "string" then
      check_type(key, answer, schema)
    elseif schema then
      check_type(key, answer, "table")
      if schema.fields then check_fields(key, answer, schema.fields) end
      for _, r in ipairs(schema.rows or {}) do check_rows(key, answer, r[1], r[2], r[3]) end
    end
  end
end

-- A dump as `velconfig dump` writes it (with its header), or the bare answers an older
-- version wrote. Returns answers, header.
function M.decode(text)
  if #text > M.MAX_BYTES then refuse("(file)", string.format("%d bytes, more than a dump can be (%d)", #text, M.MAX_BYTES)) end
  local ok, doc = pcall(json.decode, text)
  if not ok then refuse("(file)", "not JSON: " .. tostring(doc)) end
  if type(doc) ~= "table" or doc == json.null or doc[1] ~= nil then refuse("(file)", "not a JSON object") end
  local header = {}
  if doc.answers ~= nil or doc.format ~= nil then
    check_type("format", doc.format, N)
    if doc.format ~= 1 then refuse("format", "version " .. tostring(doc.format) .. " is not known (1 is)") end
    for _, f in ipairs({ "taken", "version", "platform", "secrets" }) do
      if doc[f] ~= nil then check_type(f, doc[f], S) end
      header[f] = doc[f]
    end
    check_type("answers", doc.answers, "table")
    doc = doc.answers
  end
  M.validate(doc)
  return doc, header
end

-- Model building --------------------------------------------------------------------

local function copy(v)
  if type(v) ~= "table" or v == json.null then return v end
  local t = setmetatable({}, getmetatable(v))
  for k, x in pairs(v) do t[k] = copy(x) end
  return t
end

local function rows(answer, prefix, count_field)
  local out = {}
  if type(answer) ~= "table" then return out end
  for i = 1, answer[count_field] or 0 do out[i] = answer[prefix .. i] end
  return out
end

local function int32(n) return n >= 2 ^ 31 and n - 2 ^ 32 or n end

-- A made-up MAC for a host the dump shows without one: unique, 12 hex digits, and a
-- locally administered address, so it is no real vendor's.
local function made_up_mac(n) return string.format("02AB%08X", n) end

local function set_if(t, field, v) if v ~= nil then t[field] = v end end

local AUTH_TO_BEACON = { Open = "None", Shared = "Basic", WPA = "WPA", WPA2 = "WPA2", ["WPA/WPA2"] = "WPA/WPA2",
                         WPA3 = "WPA3", ["WPA2/WPA3"] = "WPA2/WPA3" }
local BEACON_TO_AUTH = { None = "Open", Basic = "Shared", WPA = "WPA", WPA2 = "WPA2", ["11i"] = "WPA2",
                         ["WPA/WPA2"] = "WPA/WPA2", WPA3 = "WPA3", ["WPA2/WPA3"] = "WPA2/WPA3" }
local AP_AUTH = { None = "open", WPA2 = "wpa2psk", WPA3 = "wpa3sae", ["WPA2/WPA3"] = "wpa2pskwpa3sae",
                  ["WPA/WPA2"] = "wpapskwpa2psk" }
-- Power levels as the page reads them back: nominal steps, and above nominal only
-- through a high-power class of the band.
local LEVEL_POWER = { 60, 80, 100 }
local HIGH_CLASS = { ["2.4G-1"] = { class = 22, power = 160 }, ["5G-1"] = { class = 25, power = 140 } }

local builders = {}

-- Each builder fills part of the model from the answers it reads and returns the
-- names of the parts it filled (nil when the dump has none of its keys).

function builders.device(a, m)
  local d, info, status = m.device, a.gwInfo, a.gwStatus
  if not (info or status or a.devType or a.hasWiFi or a.hasUsb or a.hasPots) then return nil end
  if info then
    set_if(d, "vendor", info.Vendor)
    set_if(d, "mac", info.MAC)
    set_if(d, "sw_version", info.SWVer)
    set_if(d, "product_class", info.ProductCls)
    set_if(d, "serial", info.ProductSN)
    set_if(d, "dev_type2", info.DevType)
    d.access_sign = { MarkType = info.MarkType or 0, DeviceModel = info.DeviceModel or "", NASN = info.NASN or "" }
  end
  if a.devType then d.dev_type = string.format("%d", a.devType) end
  if status then
    set_if(d, "cpu_usage", status.cpuUsed)
    set_if(d, "uptime", status.sysTime)
  end
  if a.hasWiFi then d.has_wifi = a.hasWiFi ~= 0 end
  if a.hasUsb then d.has_usb = a.hasUsb ~= 0 end
  if a.hasPots then
    local rest = (d.capability or ""):match("^[^;]*(;.*)$") or ";1;1"
    d.capability = (a.hasPots ~= 0 and "1" or "0") .. rest
  end
  return { "device" }
end

function builders.network(a, m)
  local info, ips, all, lan = a.gwInfo, a.gwIPs, a.allInfo, a.lan
  if not (info or ips or all or lan or a.pmLists or a.gwStatus) then return nil end
  local wan, dhcp = m.wan, m.dhcp
  -- Addresses: gwIPs shows them as stored; gwInfo only while connected.
  if ips then
    wan.ipv4 = ips.WANIP or wan.ipv4
    wan.ipv6 = ips.WAN6IP or wan.ipv6
    if ips.LAN6IP then m.lan.ipv6 = ips.LAN6IP == "fe80::1" and m.lan.ipv6 or ips.LAN6IP end
  end
  if info then
    if info.WANIP and info.WANIP ~= "0.0.0.0" then wan.ipv4 = info.WANIP end
    if info.WANIPv6 and info.WANIPv6 ~= "::" then wan.ipv6 = info.WANIPv6 end
    set_if(m.lan, "ipv6", info.LANIPv6)
  end
  if ips and ips.LAN6IP == "fe80::1" and not info and (m.lan.ipv6 or ""):match("^[^/]*") ~= "fe80::1" then
    m.lan.ipv6 = ""
  end
  -- Which side is connected: what gwInfo shows, else what allInfo says.
  local v4_up = info and info.WANIP ~= nil and info.WANIP ~= "0.0.0.0"
  local v6_up = info and info.WANIPv6 ~= nil and info.WANIPv6 ~= "::"
  local shown = all and all.wanConnect
  if shown and shown ~= "CONNECTED" then
    wan.ipv4_status, wan.ipv6_status = shown, "Disconnected"
  elseif shown == "CONNECTED" or v4_up or v6_up then
    -- Connected yet no address shown: the connected side has an empty address.
    if not v4_up and not v6_up then
      v4_up = not info or (wan.ipv4 or "") == ""
      v6_up = not v4_up
    end
    wan.ipv4_status = v4_up and "Connected" or "Disconnected"
    wan.ipv6_status = v6_up and "Connected" or "Disconnected"
  end
  local up = (all and all.wanUpTime) or (a.gwStatus and a.gwStatus.upTime)
  if up then wan.uptime = up end
  local lan_ip = (lan and lan.lanIp) or (info and info.LANIP) or (ips and ips.LANIP)
    or (a.pmLists and a.pmLists.lanIp) or (a.wifiSsid and a.wifiSsid.lanIp)
  if lan_ip then dhcp.ip = lan_ip == "0.0.0.0" and ((ips and ips.LANIP) or "") or lan_ip end
  if lan then
    if lan.dhcpEnbl then dhcp.enable = lan.dhcpEnbl ~= 0 end
    set_if(dhcp, "min", lan.poolStart)
    set_if(dhcp, "max", lan.poolEnd)
    set_if(dhcp, "mask", lan.subnetMask)
  elseif a.pmLists and a.pmLists.mask then
    dhcp.mask = a.pmLists.mask == "0.0.0.0" and "" or a.pmLists.mask
  end
  return { "wan", "lan", "dhcp" }
end

-- A wired host's rate: the host list answers 0 when it has not measured one (its own
-- first sample), the overview its measured rate; the larger is what the dump saw.
local function rate_of(...)
  local top
  for _, v in pairs({ ... }) do
    if type(v) == "number" and (top == nil or v > top) then top = v end
  end
  return top
end

function builders.hosts(a, m, notes)
  local all, list, black, status = a.allInfo, a.hostsInfo, a.blackHosts, a.gwStatus
  if not (all or list or black or status) then return nil end
  local hosts = json.array()
  local function add(h)
    h.id = #hosts + 1
    h.mac = h.mac or made_up_mac(h.id)
    h.online_time = h.online_time or 0
    h.down_bytes, h.up_bytes = 0, 0
    h.down_rate, h.up_rate = h.down_rate or 0, h.up_rate or 0
    for _, f in ipairs({ "name", "type", "ip", "ipv6", "brand", "model", "system" }) do h[f] = h[f] or "" end
    hosts[#hosts + 1] = h
  end
  -- Wired hosts: allInfo's pc rows and hostsInfo's rows are the same hosts in the
  -- same order (online, not black-listed, wired).
  local pcs, devs = rows(all, "pc", "wcount"), rows(list, "dev", "count")
  for i = 1, math.max(#pcs, #devs) do
    local pc, dev = pcs[i] or {}, devs[i] or {}
    add({ name = pc.devName, type = dev.type or pc.type, ip = dev.ip or pc.ip, ipv6 = dev.ipv6, brand = pc.brand,
          model = pc.model, system = dev.system, mac = dev.mac, access = dev.restrict and 1 or 2, connection = 0,
          online = true, online_time = pc.onlineTime, down_rate = rate_of(pc.downSpeed, dev.downSpeed),
          up_rate = rate_of(pc.upSpeed, dev.upSpeed) })
  end
  local wifis = rows(all, "wifi", "wlcount")
  for _, w in ipairs(wifis) do
    add({ name = w.devName, type = w.type, ip = w.ip, brand = w.brand, model = w.model, access = 2, connection = 1,
          online = true, online_time = w.onlineTime, down_rate = w.downSpeed, up_rate = w.upSpeed })
  end
  -- The status page counts every online host, black-listed ones too: the hosts it
  -- counts beyond the listed ones are black-listed ones online, then hosts of a
  -- connection type no list shows.
  local wired = #pcs > #devs and #pcs or #devs
  local extra_wired = status and status.wcount and status.wcount - wired or 0
  local extra_wireless = status and status.wlcount and status.wlcount - #wifis or 0
  local blacks = rows(black, "dev", "count")
  if extra_wired < 0 or extra_wired > #blacks then
    notes[#notes + 1] = string.format("gwStatus.wcount %d cannot be matched with the listed hosts", status.wcount)
    extra_wired = math.max(0, math.min(extra_wired, #blacks))
  end
  if extra_wireless < 0 then
    notes[#notes + 1] = string.format("gwStatus.wlcount %d cannot be matched with the listed hosts", status.wlcount)
    extra_wireless = 0
  end
  for i, b in ipairs(blacks) do
    local online, connection = false, 0
    if i <= extra_wired then
      online = true
    elseif extra_wireless > 0 then
      online, connection, extra_wireless = true, 1, extra_wireless - 1
    end
    add({ ip = b.ip, ipv6 = b.ipv6, type = b.type, system = b.system, mac = b.mac, access = 0,
          connection = connection, online = online })
  end
  for _ = 1, extra_wireless do add({ access = 2, connection = 3, online = true, type = "pc" }) end
  m.hosts = hosts
  return { "hosts" }
end

function builders.services(a, m)
  local filled = {}
  if a.ddns then
    m.ddns = json.array()
    for i, r in ipairs(rows(a.ddns, "ddnsCfg", "count")) do
      m.ddns[i] = { id = i, enable = r.enable or 0, provider = r.provider or "", username = r.username or "",
                    password = r.password or "", domain = r.domain or "", hostname = r.hostname or "" }
    end
    filled[#filled + 1] = "ddns"
  end
  if a.pmLists then
    m.port_mappings = json.array()
    for i, r in ipairs(rows(a.pmLists, "pmRule", "count")) do
      m.port_mappings[i] = { id = i, enable = r.enable or 0, external_port = r.exPort or 0, internal_port = r.inPort or 0,
                             protocol = r.protocol or "", client = r.client or "", description = r.desp or "" }
    end
    filled[#filled + 1] = "port_mappings"
  end
  if a.iptv then
    local t = a.iptv
    m.iptv = { enable = t.enable or 0, vlan_id = t.vlanid or -1,
               bound_ports = (t.bindlanport == nil or t.bindlanport == "none") and "" or t.bindlanport }
    filled[#filled + 1] = "iptv"
  end
  return filled[1] and filled or nil
end

function builders.loid(a, m)
  local flags = a.itvVoipReg or a.allInfo or a.gwStatus
  if a.checkLoid == nil and not flags then return nil end
  local loid = m.loid
  if a.checkLoid then loid.status = int32(a.checkLoid) end
  loid.registered_at = nil
  local by_iptv = (m.device.dev_type or "") == "13"
  if flags and not by_iptv and (loid.status == 200 or loid.status == 203) then
    local services = {}
    if flags.itv then services[#services + 1] = "IPTV" end
    if flags.voip then services[#services + 1] = "VOIP" end
    loid.services = table.concat(services, ",")
  end
  return { "loid" }
end

local function band_record(label, id, fields, chosen_beacon)
  local level, wall = fields.level or 3, fields.wall
  local high = HIGH_CLASS[label]
  local power = LEVEL_POWER[level] or (level == 4 and wall and high.power) or 100
  local beacon = AUTH_TO_BEACON[fields.auth or "Open"] or fields.auth
  -- The network list's own beacon type, when the page reads it as this mode (a type
  -- the page does not know, "WPA2-PSK" say, it reads as "Open").
  if chosen_beacon and (BEACON_TO_AUTH[chosen_beacon] or "Open") == (fields.auth or "Open") then beacon = chosen_beacon end
  return { id = id, band_label = label, ssid = fields.ssid or "", enable = fields.enable and 1 or 0,
           beacon_type = beacon, standard = fields.standard or (label == "5G-1" and "a,n,ac,ax" or "b,g,n,ax"),
           wep_level = "", basic_auth = "OpenSystem", wpa_encryption = "AESEncryption",
           tx_power = power, high_power_class = wall and high.class or 0, passphrase = fields.passwd or "" }
end

function builders.wifi(a, m)
  local basic, ssid, adv = a.wifiBasic, a.wifiSsid, a.wifiAdv
  if not (basic or ssid or adv) then return nil end
  local filled = {}
  if basic or ssid then
    local dual = basic and basic.dualBand
    if dual == nil then dual = m.wifi.dual_band end
    m.wifi.dual_band = dual and true or false
    if basic and basic.wifi6 then
      if basic.wifi6 ~= 0 then
        if not (m.wifi.standards or ""):find("802.11ax", 1, true) then
          m.wifi.standards = "802.11b,802.11g,802.11n,802.11a,802.11ac,802.11ax"
        end
      else
        m.wifi.standards = "802.11b,802.11g,802.11n,802.11a,802.11ac"
        m.wifi.supported_beacon_types = "None,Basic,WPA,WPA2,WPA/WPA2"
      end
    end
    local b = basic or {}
    local g2 = { ssid = b.ssid1, enable = b.enbl1, level = b.powerLevel1, wall = b.wallPower1, auth = b.auth1,
                 passwd = b.passwd1 }
    local g5 = dual and b.ssid2 ~= nil and { ssid = b.ssid2, enable = b.enbl2, level = b.powerLevel2, wall = b.wallPower2,
                          auth = b.auth2, passwd = b.passwd2, standard = b.standard2 }
    -- wifiSsid shows the SSID a visitor most likely sees, with its raw beacon type.
    local beacon_2g, beacon_5g
    if ssid and ssid.hasWiFi ~= 0 then
      local on_5g = g5 and not g2.enable and g5.enable
      if not basic then
        g2.ssid, g2.enable, g2.auth = ssid.ssid, true, BEACON_TO_AUTH[ssid.bType] or "Open"
      elseif not g5 and not g2.enable and ssid.ssid ~= g2.ssid then
        g5 = { ssid = ssid.ssid, enable = true, auth = BEACON_TO_AUTH[ssid.bType] or "Open" }
        on_5g = true
      end
      if on_5g then beacon_5g = ssid.bType else beacon_2g = ssid.bType end
    end
    m.wlan = json.array { band_record("2.4G-1", 1, g2, beacon_2g) }
    if g5 then m.wlan[2] = band_record("5G-1", 5, g5, beacon_5g) end
    filled[#filled + 1] = "wlan"
    filled[#filled + 1] = "wifi"
  end
  if adv then
    local t = m.wifi.timer or {}
    m.wifi.timer = t
    set_if(t, "enable", adv.timerEnbl)
    set_if(t, "start_time", adv.startTime)
    set_if(t, "end_time", adv.endTime)
    if not filled[1] then filled[1] = "wifi" end
  end
  if ssid and ssid.productCls and a.gwInfo == nil then m.device.product_class = ssid.productCls end
  return filled
end

function builders.mesh(a, m)
  local mesh, plugin = a.easymesh_config, a.interConndStatus or a.easymesh_config
  if not (mesh or plugin or a.hasMesh) then return nil end
  local filled = {}
  if mesh then
    m.easymesh = { enable = mesh.enblMesh or false, enable_2g = mesh.enbl1 or false, enable_5g = mesh.enbl2 or false,
                   ssid_2g = mesh.ssid1 or "", ssid_5g = mesh.ssid2 or "", auth_2g = mesh.auth1 or "",
                   auth_5g = mesh.auth2 or "", key_2g = mesh.key1 or "", key_5g = mesh.key2 or "" }
    filled[#filled + 1] = "easymesh"
  end
  if a.hasMesh then
    -- Without Wi-Fi the answer is 1 whatever the agent says.
    if a.hasMesh ~= 0 then
      if m.wifi.map_agent == nil then m.wifi.map_agent = true end
    elseif m.device.has_wifi then
      m.wifi.map_agent = nil
    end
  end
  if plugin then
    local ic = m.interconnect
    local apps = json.array()
    for _, app in ipairs(m.apps or {}) do
      if not tostring(app.name):find("inter_conndv3", 1, true) then apps[#apps + 1] = app end
    end
    if plugin.appStatus ~= 2 then
      table.insert(apps, 1, { name = "inter_conndv3", description = "Home access point interconnect",
                              version = "3.0.12", state = plugin.appStatus or 1 })
    end
    m.apps = apps
    if plugin.appStatus == 1 then
      ic.same_wifi = plugin.configEnbl or 0
      ic.same_status = plugin.onoff or 0
      ic.access_points = json.array()
      for i, r in ipairs(rows(plugin, "ap", "devcnt")) do
        local bands = {}
        local flg = r.flg or 0
        if flg % 2 == 1 then
          bands["2.4g"] = { ssid = r.ssid2g or "", pwd = r.pwd2g or "", auth = AP_AUTH[r.auth2g] or "wpapskwpa2psk",
                            enable = r.enbl2g or 0 }
        end
        if flg >= 2 then
          bands["5g"] = { ssid = r.ssid5g or "", pwd = r.pwd5g or "", auth = AP_AUTH[r.auth5g] or "wpapskwpa2psk",
                          enable = r.enbl5g or 0 }
        end
        ic.access_points[i] = { vendor = r.vendor or "", model = r.model or "", mac = r.mac or made_up_mac(1000 + i),
                                hw_version = r.hdversion or "", sw_version = r.swversion or "",
                                connect_type = r.connecttype or 0, online_time = r.onlinetime or 0,
                                wifi_switch = r.wifiSwitch or 0, bands = bands }
      end
    end
    filled[#filled + 1] = "interconnect"
    filled[#filled + 1] = "apps"
  end
  if mesh and mesh.rssi1 and mesh.rssi2 then
    m.interconnect.roaming = { optimal_path_rcpi_threshold2g = (mesh.rssi1 + 110) * 2,
                               optimal_path_rcpi_threshold = (mesh.rssi2 + 110) * 2 }
  end
  return filled
end

-- A listed name inside a folder: one component, never "." or "..".
local function check_name(where, name)
  if name == "" or name == "." or name == ".." or name:find("/", 1, true) or name:find("%z") then
    refuse(where, "not a file name inside the disk: " .. json.quote(name))
  end
end

-- A disk's folder as the gateway names it: absolute, under /mnt, no "." or ".."
-- component, so that nothing can be placed outside the disks.
local function check_disk_path(where, path)
  if not path:match("^/mnt/[^/]") or path:find("//", 1, true) or path:find("%z") then
    refuse(where, "not a disk's folder: " .. json.quote(path))
  end
  for part in path:gmatch("[^/]+") do
    if part == "." or part == ".." then refuse(where, "not a disk's folder: " .. json.quote(path)) end
  end
end

function builders.usb(a, m)
  local devices, all, status, files = a.usbDevices, a.allInfo, a.gwStatus, a.fileLists
  if not (devices or all or status or files) then return nil end
  local disks = {}
  local listed = devices and rows(devices, "storage", "usbCount")
  if listed then
    for i, r in ipairs(listed) do disks[i] = { id = r.instno, label = r.label, total = r.maxSize, used = r.usedSize } end
  elseif all then
    for i, r in ipairs(rows(all, "storage", "scount")) do
      disks[i] = { id = string.format("%d", r.usbdev or i), label = r.name, total = r.maxSize, used = r.usedSize }
    end
  elseif files then
    for i = 1, files.usbCnt or 0 do disks[i] = { id = files["instno" .. i], label = files["storage" .. i] } end
  end
  local names = status and rows(status, "storage", "scount") or {}
  local opened = files and files.usbLabelInst
  local usb, unlabelled = json.array(), 0
  for i, d in ipairs(disks) do
    -- Unlabelled disks show as USB_disc1, USB_disc2... in order.
    local label = d.label or ""
    if label == string.format("USB_disc%d", unlabelled + 1) then
      unlabelled, label = unlabelled + 1, ""
    end
    local entry = { id = d.id or string.format("%d", i), class = 8, name = names[i] and names[i].name or "USB Disk",
                    mount_path = string.format("/mnt/usb%d_%d", i, i), total_size = d.total or 0,
                    used_size = d.used or 0, label = label }
    if opened and entry.id == opened and files.filePath then
      check_disk_path("fileLists.filePath", files.filePath)
      entry.mount_path = files.filePath
      entry.files = {}
      local described = 0
      for k, f in ipairs(rows(files, "file", "fileNum")) do
        local where = "fileLists.file" .. k .. ".name"
        check_name(where, f.name or "")
        if f.isFolder then
          entry.files[f.name .. "/"] = ""
        else
          local bytes = math.max(0, ((f.size or 1) - 1) * 1024)
          if bytes > LARGEST_FILE then refuse("fileLists.file" .. k .. ".size", "larger than a simulated file can be") end
          described = described + bytes
          if described > M.LARGEST_DISK_BYTES then
            refuse("fileLists.file" .. k .. ".size", string.format("the files so far add up to more than a simulated disk holds (%d bytes)", M.LARGEST_DISK_BYTES))
          end
          entry.files[f.name] = bytes
        end
      end
      opened = nil
    end
    usb[i] = entry
  end
  for i, e in ipairs(usb) do
    for j = 1, i - 1 do
      if usb[j].mount_path == e.mount_path then e.mount_path = string.format("/mnt/usb%d_%d", i, i) end
    end
  end
  m.usb = usb
  return { "usb" }
end

function builders.cloud(a, m)
  local mall = a.getMallUrl
  if not mall then return nil end
  local c = m.cloud_client
  local host, token, mac = (mall.url or ""):match("^https://(.-)/appmarket%?token=(.-)&MAC=(.*)$")
  if mall.result == 0 and host then
    c.status, c.url, c.token, c.mac = "0", host, token, mac
  else
    c.status, c.fail_reason = "1", "no market address in the dump"
  end
  return { "cloud_client" }
end

local ORDER = { "device", "network", "hosts", "services", "loid", "wifi", "mesh", "usb", "cloud" }

-- The model for the answers (validated), starting from the default model (a table).
-- Returns the model, the parts filled from the dump, and notes on what could not be
-- matched.
function M.build(answers, default)
  local m = copy(default)
  for _, part in ipairs({ "device", "wan", "lan", "dhcp", "loid", "wifi", "interconnect", "cloud_client", "iptv" }) do
    if type(m[part]) ~= "table" then m[part] = {} end
  end
  m.time = { base = 0 }
  local filled, notes, seen = {}, {}, {}
  for _, name in ipairs(ORDER) do
    for _, part in ipairs(builders[name](answers, m, notes) or {}) do
      if not seen[part] then
        seen[part] = true
        filled[#filled + 1] = part
      end
    end
  end
  return m, filled, notes
end

-- Model parts a dump can fill; the others always stay the default model's.
M.PARTS = { "device", "wan", "lan", "dhcp", "hosts", "ddns", "port_mappings", "iptv", "loid", "wlan", "wifi",
            "easymesh", "interconnect", "apps", "usb", "cloud_client" }

-- The refusal as one line: "key: what".
function M.message(err)
  if type(err) == "table" and err.where then return err.where .. ": " .. err.what end
  return tostring(err)
end

return M
