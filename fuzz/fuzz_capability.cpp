// The "Capability" text as "hasPots" splits it.
#include <jansson.h>

#include <string>

#include "fuzz/fuzz_input.h"
#include "fuzz/lua_harness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  velfuzz::module_state();
  velfuzz::Input in(data, size);
  std::string text = in.rest();
  json_object_set_new(velsim::object_at("device"), "capability", json_stringn(text.data(), text.size()));
  velfuzz::call(true, "hasPots", nullptr);
  velsim::clear_journal();
  velsim::clear_logs();
  return 0;
}
