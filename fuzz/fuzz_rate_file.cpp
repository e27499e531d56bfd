// The LAN host rate file as another component (or a broken disk) may leave it.
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "fuzz/fuzz_input.h"
#include "fuzz/lua_harness.h"
#include "platform/seams.h"
#include "sim/sim.h"
#include "status/rate_file.h"

namespace {

std::string rate_path;

void setup() {
  velfuzz::scratch_file_root();
  char path[512];
  if (!velconfig::gateway_file_path("/tmp/lanhostsrate", path, sizeof path)) abort();
  rate_path = path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (rate_path.empty()) setup();
  velfuzz::Input in(data, size);
  std::string mac = in.text(32);
  std::string file = in.rest();
  FILE* f = fopen(rate_path.c_str(), "wb");
  if (f == nullptr) return 0;
  bool written = fwrite(file.data(), 1, file.size(), f) == file.size();
  if (fclose(f) != 0 || !written) return 0;
  static velconfig::HostRateTable table;
  static velconfig::RateText text;
  if (velconfig::load_host_rates(rate_path.c_str(), &table, &text)) {
    int i = velconfig::find_host_rate(mac, table);
    if (i != velconfig::kRateNotFound && (i < 0 || static_cast<size_t>(i) >= table.count)) abort();
    velconfig::store_host_rates(rate_path.c_str(), table.records, table.count, &text);
  }
  return 0;
}
