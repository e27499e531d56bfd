// Table field reader. It runs inside the handler's protected call, so a metamethod
// that raises, or a value that cannot be indexed, raises as lua_getfield raises; a
// field that is not text is reported by exception, to be raised by the entry point
// as luaL_checklstring would. A text that is not clean is no error of the call: the
// handler learns it from the result and answers its failure result.
#include "common/table_field.h"

#include <glib.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "common/lua_error.h"

namespace velconfig {

namespace {

// The library's own wording, with the field named when there is one, so that a page
// author sees which field of the table was missing. Built in a plain array: the text
// is raised from the entry point's frame once nothing with a destructor is alive.
[[noreturn]] void throw_not_text(lua_State* L, int type, const char* field) {
  char text[128];
  if (field != nullptr) {
    snprintf(text, sizeof text, "%s expected for field '%s', got %s", lua_typename(L, LUA_TSTRING), field,
             lua_typename(L, type));
  } else {
    snprintf(text, sizeof text, "%s expected, got %s", lua_typename(L, LUA_TSTRING), lua_typename(L, type));
  }
  throw LuaArgError(text);
}

}  // namespace

bool clean_text(const char* text, size_t length) {
  return memchr(text, '\0', length) == nullptr && g_utf8_validate(text, static_cast<gssize>(length), nullptr);
}

namespace {

struct FieldRead {
  bool clean;
  bool cut;
};

// Copies field name into buf; a clean text that does not fit is cut at a whole
// character unless whole_only, when nothing is copied.
FieldRead read_field_text(lua_State* L, const char* name, char* buf, int32_t capacity, bool whole_only) {
  lua_getfield(L, -1, name);
  int type = lua_type(L, -1);
  // The error ends the call, and the stack with it.
  if (type != LUA_TSTRING && type != LUA_TNUMBER) throw_not_text(L, type, name);
  size_t length = 0;
  const char* value = lua_tolstring(L, -1, &length);
  // Judged over the whole text, not only the part kept: a page that sent a broken
  // text gets no write made from the part of it that happens to fit.
  bool clean = clean_text(value, length);
  size_t limit = static_cast<size_t>(std::max<int32_t>(capacity, 1));
  size_t n = 0;
  bool cut = clean && length > limit;
  if (clean && !(cut && whole_only)) {
    n = std::min(length, limit);
    // A cut followed by a continuation byte (10xxxxxx) splits a character: it moves
    // back to that character's first byte (a clean text starts with one, so at the
    // latest at 0).
    while (n < length && (static_cast<unsigned char>(value[n]) & 0xC0) == 0x80) --n;
    memcpy(buf, value, n);
  }
  if (n < limit) buf[n] = '\0';
  lua_pop(L, 1);
  return {clean, cut};
}

}  // namespace

bool read_table_field(lua_State* L, const char* name, char* buf, int32_t capacity) {
  return read_field_text(L, name, buf, capacity, false).clean;
}

SecretText read_table_secret(lua_State* L, const char* name, char* buf, int32_t capacity) {
  FieldRead read = read_field_text(L, name, buf, capacity, true);
  if (!read.clean) return SecretText::kNotClean;
  return read.cut ? SecretText::kTooLong : SecretText::kFits;
}

TopText read_top_text(lua_State* L) {
  int type = lua_type(L, -1);
  if (type != LUA_TSTRING && type != LUA_TNUMBER) throw_not_text(L, type, nullptr);
  TopText top;
  top.text = lua_tolstring(L, -1, &top.length);
  top.clean = clean_text(top.text, top.length);
  return top;
}

}  // namespace velconfig
