// Plugin and cloud-client replies as the JSON field reader meets them: any text,
// any member, any expected type, destinations never overrun.
#include <jansson.h>
#include <stdlib.h>
#include <string.h>

#include "fuzz/fuzz_input.h"
#include "platform/plugin.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  velfuzz::Input in(data, size);
  size_t capacity = 1 + in.below(64);
  std::string key = in.text(16);
  json_type expected = static_cast<json_type>(in.below(8));
  std::string reply = in.rest();
  json_t* doc = json_loadb(reply.data(), reply.size(), 0, nullptr);
  if (doc == nullptr) return 0;
  // The destination with a guard byte behind it that must survive.
  char buf[66];
  memset(buf, 0, sizeof buf);
  buf[capacity] = 0x5A;
  void* dest = buf;
  size_t room = capacity;
  if (expected == JSON_REAL) room = sizeof(double);
  if (expected == JSON_INTEGER || expected == JSON_TRUE || expected == JSON_FALSE || expected == JSON_NULL) {
    room = sizeof(int32_t);
  }
  if (room > capacity) {
    buf[capacity] = 0;
    buf[room] = 0x5A;
  }
  velconfig::read_json_field(doc, key.c_str(), expected, dest, capacity);
  if (buf[room > capacity ? room : capacity] != 0x5A) abort();
  if (expected == JSON_STRING && buf[capacity - 1] != 0) abort();  // a cleared buffer stays terminated
  velconfig::read_json_field(doc, "Status", JSON_INTEGER, dest, sizeof(int32_t));
  json_decref(doc);
  return 0;
}
