-- JSON text of the module's answers, shared by the command-line tool and the
-- console: object keys sorted with numbered rows (dev2, dev10) in numeric order, and
-- text that is not UTF-8 (a platform text can be anything) kept printable as JSON.
local M = {}

-- JSON null as decoded.
M.null = setmetatable({}, { __tostring = function() return "null" end })

local escapes = { ['"'] = '\\"', ['\\'] = '\\\\', ['\b'] = '\\b', ['\f'] = '\\f',
                  ['\n'] = '\\n', ['\r'] = '\\r', ['\t'] = '\\t' }

-- A JSON string; each stray byte is written as the character of the same number.
function M.quote(s)
  local out, i = {}, 1
  while i <= #s do
    local c = s:byte(i)
    local n = c < 0x80 and 1 or (c >= 0xC2 and c <= 0xDF) and 2 or (c >= 0xE0 and c <= 0xEF) and 3
      or (c >= 0xF0 and c <= 0xF4) and 4 or 0
    local ch = s:sub(i, i + math.max(n, 1) - 1)
    if n > 1 and not ch:find("^.[\128-\191]+$") or (n > 1 and #ch < n) then n = 0 end
    if n == 0 then
      out[#out + 1] = string.format("\\u%04x", c)
      i = i + 1
    elseif n == 1 and (c < 0x20 or c == 0x22 or c == 0x5C or c == 0x7F) then
      out[#out + 1] = escapes[string.char(c)] or string.format("\\u%04x", c)
      i = i + 1
    else
      out[#out + 1] = ch
      i = i + n
    end
  end
  return '"' .. table.concat(out) .. '"'
end

-- Keys in text order, except that keys differing only in a trailing number (dev2,
-- dev10) go by that number: a total order, whatever the keys.
local function key_parts(k)
  local prefix, digits = k:match("^(.-)(%d+)$")
  if prefix then return prefix, tonumber(digits), k end
  return k, -1, k
end

function M.natural_less(a, b)
  local pa, na, ka = key_parts(a)
  local pb, nb, kb = key_parts(b)
  if pa ~= pb then return pa < pb end
  if na ~= nb then return na < nb end
  return ka < kb
end

local function number_text(n)
  if n ~= n or n == math.huge or n == -math.huge then return "null" end
  if n == math.floor(n) and math.abs(n) < 2^63 then return string.format("%d", n) end
  return string.format("%.17g", n)
end

-- Tables marked as arrays (decoded ones, or made with M.array) are written as JSON
-- arrays, so that a model read in comes out with the same shape.
M.array_mt = {}
function M.array(t) return setmetatable(t or {}, M.array_mt) end

-- indent: nil for one line, else the current indentation ("" at the top).
local function encode(v, indent)
  local t = type(v)
  if t == "nil" or v == M.null then return "null" end
  if t == "table" and getmetatable(v) == M.array_mt then
    if #v == 0 then return "[]" end
    local inner = indent and (indent .. "  ")
    local parts = {}
    for i = 1, #v do parts[i] = (inner or "") .. encode(v[i], inner) end
    if not indent then return "[" .. table.concat(parts, ",") .. "]" end
    return "[\n" .. table.concat(parts, ",\n") .. "\n" .. indent .. "]"
  end
  if t == "boolean" then return tostring(v) end
  if t == "number" then return number_text(v) end
  if t == "string" then return M.quote(v) end
  if t ~= "table" then return M.quote(tostring(v)) end
  local keys = {}
  for k in pairs(v) do keys[#keys + 1] = tostring(k) end
  if #keys == 0 then return "{}" end
  table.sort(keys, M.natural_less)
  local inner = indent and (indent .. "  ")
  local parts = {}
  for _, k in ipairs(keys) do
    local value = v[k]
    if value == nil then value = v[tonumber(k)] end
    parts[#parts + 1] = (inner or "") .. M.quote(k) .. (inner and ": " or ":") .. encode(value, inner)
  end
  if not indent then return "{" .. table.concat(parts, ",") .. "}" end
  return "{\n" .. table.concat(parts, ",\n") .. "\n" .. indent .. "}"
end

-- Pretty-printed, as the command-line tool prints it.
function M.encode(v) return encode(v, "") end
-- On one line, for the console's answers.
function M.encode_compact(v) return encode(v, nil) end

-- Decoding, in plain Lua 5.1 so that the gateway needs no JSON library. Numbers are
-- Lua numbers (a 64-bit counter beyond 2^53 loses its last digits, as it does on the
-- way out); JSON null reads as M.null. Raises "at byte N: what" for text that is not
-- JSON.

local function utf8_char(code)
  if code < 0x80 then return string.char(code) end
  if code < 0x800 then return string.char(0xC0 + math.floor(code / 64), 0x80 + code % 64) end
  if code < 0x10000 then
    return string.char(0xE0 + math.floor(code / 4096), 0x80 + math.floor(code / 64) % 64, 0x80 + code % 64)
  end
  return string.char(0xF0 + math.floor(code / 262144), 0x80 + math.floor(code / 4096) % 64,
                     0x80 + math.floor(code / 64) % 64, 0x80 + code % 64)
end

local unescapes = { ['"'] = '"', ['\\'] = '\\', ['/'] = '/', b = '\b', f = '\f', n = '\n', r = '\r', t = '\t' }
local MAX_DEPTH = 200

function M.decode(text)
  local pos = 1
  local function fail(what) error(string.format("at byte %d: %s", pos, what), 0) end
  local function skip() pos = text:find("[^ \t\r\n]", pos) or #text + 1 end
  local value
  local function string_value()
    local out, i = {}, pos + 1
    while true do
      local j = text:find('["\\%c]', i)
      if not j then pos = #text + 1; fail("unterminated text") end
      out[#out + 1] = text:sub(i, j - 1)
      local c = text:sub(j, j)
      if c == '"' then pos = j + 1; return table.concat(out) end
      if c ~= "\\" then pos = j; fail("control character in text") end
      local e = text:sub(j + 1, j + 1)
      if e == "u" then
        local hex = text:match("^%x%x%x%x", j + 2)
        if not hex then pos = j; fail("bad \\u escape") end
        local code, next_i = tonumber(hex, 16), j + 6
        if code >= 0xD800 and code <= 0xDBFF then
          local low = text:match("^\\u(%x%x%x%x)", next_i)
          low = low and tonumber(low, 16)
          if not low or low < 0xDC00 or low > 0xDFFF then pos = j; fail("lone surrogate") end
          code = 0x10000 + (code - 0xD800) * 1024 + (low - 0xDC00)
          next_i = next_i + 6
        elseif code >= 0xDC00 and code <= 0xDFFF then
          pos = j; fail("lone surrogate")
        end
        out[#out + 1] = utf8_char(code)
        i = next_i
      elseif unescapes[e] then
        out[#out + 1] = unescapes[e]
        i = j + 2
      else
        pos = j; fail("bad escape")
      end
    end
  end
  function value(depth)
    if depth > MAX_DEPTH then fail("nested too deep") end
    skip()
    local c = text:sub(pos, pos)
    if c == "{" then
      local obj = {}
      pos = pos + 1
      skip()
      if text:sub(pos, pos) == "}" then pos = pos + 1; return obj end
      while true do
        skip()
        if text:sub(pos, pos) ~= '"' then fail("expected a member name") end
        local k = string_value()
        skip()
        if text:sub(pos, pos) ~= ":" then fail("expected ':'") end
        pos = pos + 1
        obj[k] = value(depth + 1)
        skip()
        local d = text:sub(pos, pos)
        pos = pos + 1
        if d == "}" then return obj end
        if d ~= "," then pos = pos - 1; fail("expected ',' or '}'") end
      end
    elseif c == "[" then
      local arr, n = M.array(), 0
      pos = pos + 1
      skip()
      if text:sub(pos, pos) == "]" then pos = pos + 1; return arr end
      while true do
        n = n + 1
        arr[n] = value(depth + 1)
        skip()
        local d = text:sub(pos, pos)
        pos = pos + 1
        if d == "]" then return arr end
        if d ~= "," then pos = pos - 1; fail("expected ',' or ']'") end
      end
    elseif c == '"' then
      return string_value()
    elseif text:find("^true", pos) then pos = pos + 4; return true
    elseif text:find("^false", pos) then pos = pos + 5; return false
    elseif text:find("^null", pos) then pos = pos + 4; return M.null
    end
    local number = text:match("^-?%d+%.?%d*[eE]?[-+]?%d*", pos)
    if not number or not text:find("^-?0[%.eE]", pos) and text:find("^-?0%d", pos) or not tonumber(number) then
      fail(c == "" and "unexpected end" or "unexpected " .. string.format("%q", c))
    end
    pos = pos + #number
    return tonumber(number)
  end
  local v = value(0)
  skip()
  if pos <= #text then fail("trailing text") end
  return v
end

return M
