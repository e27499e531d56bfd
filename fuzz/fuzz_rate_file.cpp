// The LAN host rate file as another component (or a broken disk) may leave it: every
// record loaded is what fgets and sscanf("%23s%lu%lu%ld") make of the same line.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

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

// The records the C library reads from the part of file that one load reads: lines of
// at most 127 characters, up to the first without a MAC.
std::vector<velconfig::HostRate> read_as_libc(const std::string& file) {
  std::vector<velconfig::HostRate> out;
  std::string part = file.substr(0, velconfig::kRateTextRoom);
  FILE* f = fmemopen(part.empty() ? nullptr : &part[0], part.size(), "r");
  if (f == nullptr) return out;
  char line[128];
  while (out.size() < velconfig::kRateTableRoom && fgets(line, sizeof line, f) != nullptr) {
    velconfig::HostRate r{};
    unsigned long down = 0, up = 0;
    long stamp = 0;
    // NOLINTNEXTLINE(cert-err34-c): sscanf's own reading is what the loader must match
    (void)sscanf(line, "%23s%lu%lu%ld", r.mac, &down, &up, &stamp);
    if (r.mac[0] == '\0') break;
    r.down_bytes = down;
    r.up_bytes = up;
    r.stamp = stamp;
    out.push_back(r);
  }
  (void)fclose(f);  // a memory stream: nothing to lose
  return out;
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
    std::vector<velconfig::HostRate> expected = read_as_libc(file);
    if (expected.size() != table.count) abort();
    for (size_t k = 0; k < table.count; ++k) {
      const velconfig::HostRate& got = table.records[k];
      if (strcmp(got.mac, expected[k].mac) != 0 || got.down_bytes != expected[k].down_bytes ||
          got.up_bytes != expected[k].up_bytes || got.stamp != expected[k].stamp) {
        abort();
      }
    }
    int i = velconfig::find_host_rate(mac, table);
    if (i != velconfig::kRateNotFound && (i < 0 || static_cast<size_t>(i) >= table.count)) abort();
    velconfig::store_host_rates(rate_path.c_str(), table.records, table.count, &text);
  }
  return 0;
}
