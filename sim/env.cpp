// The simulator's side of the module's process and time seams: the monotonic clock
// and the sleep tests can control, the tools directory, the commands' environment,
// and the confinement of gateway paths to the file root.
#include <errno.h>
#include <glib.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "sim/files.h"
#include "sim/sim.h"
#include "sim/sim_seams.h"

extern char** environ;

namespace velsim {
namespace {

struct Env {
  int64_t monotonic_offset = 0;
  int64_t slept = 0;
  std::string tools_dir;
};

Env& env() {
  static Env e;
  return e;
}

// A path's components with "." and empty ones dropped; false on "..".
bool plain_components(const std::string& path, std::vector<std::string>* out) {
  gchar** parts = g_strsplit(path.c_str(), "/", -1);
  bool plain = true;
  for (gchar** p = parts; *p != nullptr; ++p) {
    if (**p == '\0' || strcmp(*p, ".") == 0) continue;
    if (strcmp(*p, "..") == 0) plain = false;
    out->emplace_back(*p);
  }
  g_strfreev(parts);
  return plain;
}

// The real path of host_path: its deepest existing ancestor resolved (symbolic links
// followed), the rest appended as it is.
bool resolve(const std::string& host_path, std::string* out) {
  std::vector<std::string> parts;
  if (!plain_components(host_path, &parts)) return false;
  size_t existing = parts.size();
  for (;;) {
    std::string prefix;
    for (size_t i = 0; i < existing; ++i) prefix += "/" + parts[i];
    if (prefix.empty()) prefix = "/";
    char* real = realpath(prefix.c_str(), nullptr);
    if (real != nullptr) {
      std::string result = real;
      free(real);
      for (size_t i = existing; i < parts.size(); ++i) result += (result == "/" ? "" : "/") + parts[i];
      *out = result;
      return true;
    }
    if (existing == 0) return false;
    --existing;
  }
}

bool within(const std::string& path, const std::string& folder) {
  if (path == folder) return true;
  std::string prefix = folder == "/" ? folder : folder + "/";
  return path.compare(0, prefix.size(), prefix) == 0;
}

}  // namespace

bool confined_path(const char* gateway_path, const char* gateway_boundary, std::string* out) {
  if (gateway_path == nullptr || gateway_boundary == nullptr || gateway_path[0] != '/') return false;
  std::string root;
  if (!resolve(file_root(), &root)) return false;
  std::string boundary;
  std::string path;
  if (!resolve(std::string(file_root()) + "/" + gateway_boundary, &boundary) ||
      !resolve(std::string(file_root()) + "/" + gateway_path, &path)) {
    return false;
  }
  if (!within(boundary, root) || !within(path, boundary)) return false;
  *out = path;
  return true;
}

const char* tools_dir() {
  Env& e = env();
  if (e.tools_dir.empty()) {
    const char* from_env = getenv("VELCONFIG_TOOLS_DIR");
    e.tools_dir = from_env != nullptr && *from_env != '\0' ? from_env : VELCONFIG_SIM_TOOLS_DIR;
  }
  return e.tools_dir.c_str();
}

void set_tools_dir(const std::string& dir) { env().tools_dir = dir; }

void advance_monotonic(int64_t ms) { env().monotonic_offset = saturating_add(env().monotonic_offset, ms); }

int64_t seconds_slept() { return env().slept; }

namespace {

// The gateway ships /etc/config/luci with the "ccache" section whose option
// "lastregtime" the LOID page keeps; a fresh file root gets that stock file before
// the first command runs, so uci finds the section as on the gateway.
void ensure_stock_config() {
  std::string folder = std::string(file_root()) + "/etc/config";
  std::string luci = folder + "/luci";
  if (g_file_test(luci.c_str(), G_FILE_TEST_EXISTS)) return;
  g_mkdir_with_parents(folder.c_str(), 0700);
  static const char kStockLuci[] =
      "config core 'main'\n"
      "\toption lang 'auto'\n"
      "\toption mediaurlbase '/luci-static/bootstrap'\n"
      "\toption resourcebase '/luci-static/resources'\n"
      "\n"
      "config internal 'ccache'\n"
      "\toption enable '1'\n";
  g_file_set_contents(luci.c_str(), kStockLuci, -1, nullptr);
}

}  // namespace

}  // namespace velsim

extern "C" __attribute__((visibility("default"))) int64_t velconfig_sim_monotonic_ms(void) {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  int64_t ms = static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
  std::lock_guard<std::recursive_mutex> hold(velsim::platform_mutex());
  return velsim::saturating_add(ms, velsim::env().monotonic_offset);
}

extern "C" __attribute__((visibility("default"))) void velconfig_sim_sleep(unsigned seconds) {
  {
    std::lock_guard<std::recursive_mutex> hold(velsim::platform_mutex());
    velsim::env().slept = velsim::saturating_add(velsim::env().slept, seconds);
    if (velsim::clock_pinned()) {
      velsim::pin_clock(velsim::plus_seconds(velsim::now(), seconds));
      velsim::advance_monotonic(static_cast<int64_t>(seconds) * 1000);
      return;
    }
  }
  // A real sleep holds nothing: other threads' operations go on meanwhile.
  sleep(seconds);
}

extern "C" __attribute__((visibility("default"))) ssize_t velconfig_sim_write(int fd, const void* data,
                                                                              size_t length) {
  int32_t error = 0;
  bool short_write = false;
  bool failed = false;
  try {
    std::lock_guard<std::recursive_mutex> hold(velsim::platform_mutex());
    short_write = velsim::take_fault("write_short", &error);
    failed = !short_write && velsim::take_fault("write", &error);
    if (!failed) error = 0;
  } catch (...) {
  }
  if (error > 0) {
    errno = error;
    return -1;
  }
  // A file system that takes nothing and reports no error.
  if (failed && error == 0) return 0;
  if (short_write && length > 1) length /= 2;
  return write(fd, data, length);
}

extern "C" __attribute__((visibility("default"))) const char* velconfig_sim_tools_dir(void) {
  std::lock_guard<std::recursive_mutex> hold(velsim::platform_mutex());
  return velsim::tools_dir();
}

extern "C" __attribute__((visibility("default"))) char* const* velconfig_sim_command_environment(void) {
  std::lock_guard<std::recursive_mutex> hold(velsim::platform_mutex());
  velsim::ensure_stock_config();
  static thread_local std::vector<std::string> texts;
  static thread_local std::vector<char*> pointers;
  texts.clear();
  pointers.clear();
  std::string path = std::string("PATH=") + velsim::tools_dir();
  const char* host_path = getenv("PATH");
  path += std::string(":") + (host_path != nullptr ? host_path : "/usr/bin:/bin");
  texts.push_back(path);
  texts.push_back(std::string("VELCONFIG_ROOT=") + velsim::file_root());
  for (char** e = environ; *e != nullptr; ++e) {
    if (strncmp(*e, "PATH=", 5) != 0 && strncmp(*e, "VELCONFIG_ROOT=", 15) != 0) texts.emplace_back(*e);
  }
  for (std::string& t : texts) pointers.push_back(t.data());
  pointers.push_back(nullptr);
  return pointers.data();
}
