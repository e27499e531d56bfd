-- JSON text of the module's answers, shared by the command-line tool and the
-- console: object keys sorted with numbered rows (dev2, dev10) in numeric order, and
-- text that is not UTF-8 (a platform text can be anything) kept printable as JSON.
local M = {}

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

-- indent: nil for one line, else the current indentation ("" at the top).
local function encode(v, indent)
  local t = type(v)
  if t == "nil" then return "null" end
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

return M
