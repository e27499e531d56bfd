// /etc/config files as "getAppParas" reads them and "setAppParas" looks options up
// in them (the project's uci then runs on what it finds).
#include <stdio.h>

#include <string>

#include "fuzz/fuzz_input.h"
#include "fuzz/lua_harness.h"
#include "platform/seams.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  velfuzz::module_state();
  velfuzz::Input in(data, size);
  std::string request = in.text(256);
  std::string file = in.rest();
  char path[512];
  if (!velconfig::gateway_file_path("/etc/config/fuzzapp", path, sizeof path)) return 0;
  FILE* f = fopen(path, "wb");
  if (f == nullptr) return 0;
  bool written = fwrite(file.data(), 1, file.size(), f) == file.size();
  if (fclose(f) != 0 || !written) return 0;
  std::string name = "fuzzapp";
  velfuzz::call(true, "getAppParas", &name);
  // Only now and then: every write runs the uci tool as a process.
  if (!request.empty() && request[0] == '{') velfuzz::call(false, "setAppParas", &request);
  velsim::clear_journal();
  velsim::clear_logs();
  return 0;
}
