// Simulator build: files live below the simulator's file root, the clocks and the
// sleep are the simulator's (tests pin and move them), commands are the project's
// own tools with the file root in their environment, and the cloud client listens
// on the loopback address.
#include <glib.h>
#include <stdio.h>
#include <string.h>

#include "platform/holders.h"
#include "platform/seams.h"
#include "sim/sim_seams.h"

namespace velconfig {

int64_t wall_clock_now() { return velconfig_sim_now(); }

int64_t monotonic_ms() { return velconfig_sim_monotonic_ms(); }

void sleep_seconds(unsigned seconds) { velconfig_sim_sleep(seconds); }

bool gateway_file_path(const char* path, char* out, size_t cap) {
  const char* root = velconfig_sim_file_root();
  if (*root == '\0') return false;  // a refused root: the file cannot be reached
  int n = snprintf(out, cap, "%s%s", root, path);
  if (n < 0 || static_cast<size_t>(n) >= cap) return false;
  // The simulated root starts empty; give the file its folder as the gateway has it.
  char* folder = g_path_get_dirname(out);
  if (!g_file_test(folder, G_FILE_TEST_IS_DIR)) g_mkdir_with_parents(folder, 0700);
  g_free(folder);
  // Files the model describes (the applications' /etc/config files) appear when missing.
  velconfig_sim_provide_file(path, out);
  return true;
}

ssize_t write_file_bytes(int fd, const void* data, size_t length) {
  return velconfig_sim_write(fd, data, length);
}

bool command_program(const char* name, char* out, size_t cap) {
  const char* tools = velconfig_sim_tools_dir();
  int n = snprintf(out, cap, "%s/%s", tools, name);
  if (n >= 0 && static_cast<size_t>(n) < cap && strchr(name, '/') == nullptr &&
      g_file_test(out, G_FILE_TEST_IS_EXECUTABLE)) {
    return true;
  }
  n = snprintf(out, cap, "%s", name);
  return n >= 0 && static_cast<size_t>(n) < cap;
}

// The gateway's program folders lie below the file root, as its files do.
bool command_directory(const char* dir, char* out, size_t cap) {
  int n = snprintf(out, cap, "%s%s", velconfig_sim_file_root(), dir);
  return n >= 0 && static_cast<size_t>(n) < cap;
}

// A fresh copy each time, kept until the call ends: no thread shares it and the
// simulator keeps nothing for it.
char* const* command_environment() {
  char** env = velconfig_sim_command_environment();
  call_scope::keep(env, [](void* p) { g_strfreev(static_cast<char**>(p)); });
  return env;
}

bool cloud_client_host(const char*, char* out, size_t cap) {
  int n = snprintf(out, cap, "%s", "127.0.0.1");
  return n >= 0 && static_cast<size_t>(n) < cap;
}

int app_market_timeout_ms() { return velconfig_sim_app_market_timeout_ms(); }

}  // namespace velconfig
