// The JSON field reader and the command text helpers of the plugin channel.
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "platform/plugin.h"

namespace velconfig {

int32_t read_json_field(json_t* object, const char* key, json_type expected, void* destination,
                        size_t capacity) {
  json_t* value = json_object_get(object, key);
  if (value == nullptr || json_typeof(value) != expected) return -1;
  switch (expected) {
    case JSON_STRING: {
      if (capacity == 0) break;
      size_t n = json_string_length(value);
      if (n > capacity - 1) n = capacity - 1;
      memcpy(destination, json_string_value(value), n);
      break;
    }
    case JSON_INTEGER: {
      int32_t v =
          static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(json_integer_value(value))));
      memcpy(destination, &v, sizeof v);
      break;
    }
    case JSON_REAL: {
      double v = json_real_value(value);
      memcpy(destination, &v, sizeof v);
      break;
    }
    case JSON_TRUE:
    case JSON_FALSE:
    case JSON_NULL: {
      int32_t v = expected == JSON_TRUE ? 1 : 0;
      memcpy(destination, &v, sizeof v);
      break;
    }
    default:
      break;
  }
  return 0;
}

// NOLINTNEXTLINE(cert-dcl50-cpp): a printf-style helper, checked through its format attribute
void format_command(char* buf, size_t cap, const char* format, ...) {
  if (cap == 0) return;
  memset(buf, 0, cap);
  va_list args;
  va_start(args, format);
  vsnprintf(buf, cap, format, args);
  va_end(args);
}

void json_escape_text(const char* text, char* out, size_t cap) {
  if (cap == 0) return;
  size_t used = 0;
  for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text != nullptr ? text : ""); *p != 0;
       ++p) {
    char piece[8];
    if (*p == '"' || *p == '\\') {
      snprintf(piece, sizeof piece, "\\%c", *p);
    } else if (*p < 0x20) {
      snprintf(piece, sizeof piece, "\\u%04x", *p);
    } else {
      piece[0] = static_cast<char>(*p);
      piece[1] = '\0';
    }
    size_t n = strlen(piece);
    if (used + n > cap - 1) break;
    memcpy(out + used, piece, n);
    used += n;
  }
  out[used] = '\0';
}

}  // namespace velconfig
