// Simulator build: files live below the simulator's file root and the clock is the
// simulator's, which tests can pin.
#include <glib.h>
#include <stdio.h>

#include "platform/seams.h"
#include "sim/sim_seams.h"

namespace velconfig {

int64_t wall_clock_now() { return velconfig_sim_now(); }

bool gateway_file_path(const char* path, char* out, size_t cap) {
  int n = snprintf(out, cap, "%s%s", velconfig_sim_file_root(), path);
  if (n < 0 || static_cast<size_t>(n) >= cap) return false;
  // The simulated root starts empty; give the file its folder as the gateway has it.
  char* folder = g_path_get_dirname(out);
  if (!g_file_test(folder, G_FILE_TEST_IS_DIR)) g_mkdir_with_parents(folder, 0700);
  g_free(folder);
  return true;
}

}  // namespace velconfig
