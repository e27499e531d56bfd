// Gateway build: the documented paths and the system clock.
#include <string.h>
#include <time.h>

#include "platform/seams.h"

namespace velconfig {

int64_t wall_clock_now() { return static_cast<int64_t>(time(nullptr)); }

bool gateway_file_path(const char* path, char* out, size_t cap) {
  size_t n = strlen(path);
  if (n + 1 > cap) return false;
  memcpy(out, path, n + 1);
  return true;
}

}  // namespace velconfig
