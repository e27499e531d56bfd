// Gateway build: the documented paths, the system clocks, the programs on PATH or in
// the system's program folders, and the cloud client at the gateway's own LAN address.
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "platform/seams.h"

extern char** environ;

namespace velconfig {
namespace {

bool copy_whole(const char* text, char* out, size_t cap) {
  size_t n = strlen(text);
  if (n + 1 > cap) return false;
  memcpy(out, text, n + 1);
  return true;
}

}  // namespace

int64_t wall_clock_now() { return static_cast<int64_t>(time(nullptr)); }

int64_t monotonic_ms() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

void sleep_seconds(unsigned seconds) { sleep(seconds); }

bool gateway_file_path(const char* path, char* out, size_t cap) { return copy_whole(path, out, cap); }

ssize_t write_file_bytes(int fd, const void* data, size_t length) { return write(fd, data, length); }

bool command_program(const char* name, char* out, size_t cap) { return copy_whole(name, out, cap); }

bool command_directory(const char* dir, char* out, size_t cap) { return copy_whole(dir, out, cap); }

char* const* command_environment() { return environ; }

bool cloud_client_host(const char* lan_ipv4, char* out, size_t cap) { return copy_whole(lan_ipv4, out, cap); }

int app_market_timeout_ms() { return 20000; }

}  // namespace velconfig
