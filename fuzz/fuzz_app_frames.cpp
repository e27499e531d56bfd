// The cloud client's reply frames as "getMallUrl" receives them over a real loopback
// connection: any bytes, in one piece or several, short, long or oversize.
#include <string>

#include "fuzz/fuzz_input.h"
#include "fuzz/lua_harness.h"
#include "sim/cloud.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  velfuzz::module_state();
  velfuzz::Input in(data, size);
  int pieces = 1 + static_cast<int>(in.below(4));
  std::string frame = in.rest();
  if (frame.size() > 70000) frame.resize(70000);
  velsim::cloud_reply(frame, pieces, 0, false);
  velfuzz::call(true, "getMallUrl", nullptr);
  velsim::clear_journal();
  velsim::clear_logs();
  return 0;
}
