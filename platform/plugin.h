// The plugin command channel: commands posted to a gateway plugin through the
// platform, the reply logged, parsed and read member by member, and released.
#pragma once

#include <jansson.h>
#include <stddef.h>
#include <stdint.h>

#include <type_traits>

#include "platform/holders.h"

namespace velconfig {

// The only plugin this module talks to.
constexpr const char* kInterconnectApp = "inter_conndv3";

// Reads member key of object when its JSON type is exactly expected (the library's
// type codes: JSON_STRING, JSON_INTEGER, JSON_REAL, JSON_TRUE, JSON_FALSE, JSON_NULL;
// objects and arrays are matched but nothing is stored). destination is a char
// buffer of capacity bytes for strings (the text is copied without a terminator and
// cut at capacity - 1, so a cleared buffer stays terminated), an int32_t for
// integers (the low 32 bits), true (1), false and null (0), a double for reals.
// 0 when read; -1 when absent or of another type, destination untouched.
int32_t read_json_field(json_t* object, const char* key, json_type expected, void* destination,
                        size_t capacity);

template <size_t N>
int32_t read_json_text(json_t* object, const char* key, char (&destination)[N]) {
  return read_json_field(object, key, JSON_STRING, destination, N);
}
inline int32_t read_json_int(json_t* object, const char* key, int32_t* destination) {
  return read_json_field(object, key, JSON_INTEGER, destination, sizeof *destination);
}

// One exchange with a plugin: post, log the reply, parse it. The reply text and the
// document are kept in the call scope; finish() releases the document, then the text.
class PluginExchange {
 public:
  enum class Reply { kParse, kLogOnly };

  // Posts command to app. False when the platform gave no reply (nothing to
  // release). Otherwise the reply is logged at level 5 with reply_format (one "%s")
  // when given, and parsed unless the caller only logs it; document() is null when
  // it was not parsed or is not JSON.
  bool post(const char* app, const char* command, const char* reply_format, Reply reply = Reply::kParse);
  const char* reply() const { return text_.get(); }
  json_t* document() const { return document_.get(); }
  void finish();

 private:
  ScopedText text_;
  ScopedJson document_;
};
static_assert(std::is_trivially_destructible_v<PluginExchange>, "a longjmp may pass over a PluginExchange");

// Formats a command into buf (cap bytes, cap - 1 being the command's limit) the way
// snprintf does, cutting what does not fit.
void format_command(char* buf, size_t cap, const char* format, ...) __attribute__((format(printf, 3, 4)));

// Writes text JSON-escaped (quote, backslash, control characters) into out (cap
// bytes, always terminated, cut at a whole escape), so that a text inserted into a
// command never breaks it. Plain text comes out unchanged.
void json_escape_text(const char* text, char* out, size_t cap);

}  // namespace velconfig
