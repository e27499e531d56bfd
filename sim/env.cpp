// The simulator's side of the module's process and time seams: the monotonic clock
// and the sleep tests can control, the tools directory, the commands' environment,
// and the confinement of gateway paths to the file root.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <glib.h>
#include <linux/openat2.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
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

// openat2 through syscall(): glibc 2.36 has no wrapper. ENOSYS on kernels before 5.6.
int openat2_beneath(int folder, const char* path, int flags, mode_t mode) {
#ifdef SYS_openat2
  struct open_how how;
  memset(&how, 0, sizeof how);
  how.flags = static_cast<uint64_t>(flags);
  how.mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? mode : 0;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
  return static_cast<int>(syscall(SYS_openat2, folder, path, &how, sizeof how));
#else
  (void)folder, (void)path, (void)flags, (void)mode;
  errno = ENOSYS;
  return -1;
#endif
}

// The same confinement by hand: one component at a time, each opened with O_NOFOLLOW
// from the descriptor of the one before.
int walk_beneath(int folder, const std::vector<std::string>& parts, int flags, mode_t mode) {
  int at = dup(folder);
  if (at < 0) return -1;
  if (parts.empty()) {
    int fd = openat(at, ".", flags | O_CLOEXEC, mode);
    close(at);
    return fd;
  }
  for (size_t i = 0; i + 1 < parts.size(); ++i) {
    int next = openat(at, parts[i].c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    int saved = errno;
    close(at);
    if (next < 0) {
      errno = saved;
      return -1;
    }
    at = next;
  }
  int fd = openat(at, parts.back().c_str(), flags | O_NOFOLLOW | O_CLOEXEC, mode);
  int saved = errno;
  close(at);
  errno = saved;
  return fd;
}

std::string owner_problem(const std::string& root, const struct stat& st) {
  char text[64];
  if (!S_ISDIR(st.st_mode)) return "file root " + root + " is not a folder";
  if (st.st_uid != geteuid()) {
    snprintf(text, sizeof text, "owned by user %u, not by you (%u)", static_cast<unsigned>(st.st_uid),
             static_cast<unsigned>(geteuid()));
    return "file root " + root + " is " + text + ": choose another with VELCONFIG_ROOT";
  }
  if ((st.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    snprintf(text, sizeof text, "%04o", static_cast<unsigned>(st.st_mode & 07777));
    return "file root " + root + " is writable by others (mode " + text +
           "): chmod go-w it or choose another";
  }
  return "";
}

}  // namespace

Fd::~Fd() { reset(); }

void Fd::reset(int fd) {
  if (fd_ >= 0) close(fd_);
  fd_ = fd;
}

int open_file_root(std::string* reason) {
  std::string root = file_root();
  int fd = open(root.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0 && errno == ENOENT) {
    // A new root is private from the first moment: made 0700, folders above it too.
    if (g_mkdir_with_parents(root.c_str(), 0700) != 0) {
      *reason = "cannot make file root " + root + ": " + strerror(errno);
      return -1;
    }
    fd = open(root.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  }
  if (fd < 0) {
    int error = errno;
    struct stat st;
    bool link = error == ELOOP || (lstat(root.c_str(), &st) == 0 && S_ISLNK(st.st_mode));
    *reason = "cannot use file root " + root + ": " + (link ? "it is a symbolic link" : strerror(error));
    return -1;
  }
  struct stat st;
  std::string problem =
      fstat(fd, &st) != 0 ? "cannot use file root " + root + ": " + strerror(errno) : owner_problem(root, st);
  if (!problem.empty()) {
    close(fd);
    *reason = problem;
    return -1;
  }
  return fd;
}

bool relative_within(const char* gateway_path, const char* gateway_boundary, std::string* out) {
  if (gateway_path == nullptr || gateway_boundary == nullptr || gateway_path[0] != '/') return false;
  std::vector<std::string> path, boundary;
  if (!plain_components(gateway_path, &path) || !plain_components(gateway_boundary, &boundary)) return false;
  if (boundary.size() > path.size() || !std::equal(boundary.begin(), boundary.end(), path.begin()))
    return false;
  std::string rel;
  for (const std::string& part : path) rel += (rel.empty() ? "" : "/") + part;
  *out = rel;
  return true;
}

int open_beneath(int folder, const std::string& rel, int flags, mode_t mode) {
  std::vector<std::string> parts;
  if (!plain_components(rel, &parts)) {
    errno = EXDEV;
    return -1;
  }
  std::string path;
  for (const std::string& part : parts) path += (path.empty() ? "" : "/") + part;
  int fd = openat2_beneath(folder, path.empty() ? "." : path.c_str(), flags | O_CLOEXEC, mode);
  if (fd >= 0 || (errno != ENOSYS && errno != EPERM)) return fd;
  // EPERM: a seccomp filter that does not know openat2 (some container runtimes).
  return walk_beneath(folder, parts, flags, mode);
}

int open_parent_beneath(int folder, const std::string& rel, std::string* name) {
  std::vector<std::string> parts;
  if (!plain_components(rel, &parts) || parts.empty()) {
    errno = EINVAL;
    return -1;
  }
  *name = parts.back();
  std::string parent;
  for (size_t i = 0; i + 1 < parts.size(); ++i) parent += (parent.empty() ? "" : "/") + parts[i];
  return open_beneath(folder, parent, O_PATH | O_DIRECTORY);
}

bool make_folders_beneath(int folder, const std::string& rel, mode_t mode) {
  std::vector<std::string> parts;
  if (!plain_components(rel, &parts)) return false;
  Fd at(dup(folder));
  for (const std::string& part : parts) {
    if (!at.ok()) return false;
    if (mkdirat(at.get(), part.c_str(), mode) != 0 && errno != EEXIST) return false;
    at.reset(openat(at.get(), part.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  }
  return at.ok();
}

bool remove_at(int folder, const char* name) {
  if (unlinkat(folder, name, 0) == 0) return true;
  if (errno != EISDIR && errno != EPERM) return false;
  // A folder: opened without following a link, so a folder swapped for a link
  // meanwhile fails here and nothing beyond it is touched.
  int fd = openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return false;
  DIR* dir = fdopendir(fd);
  if (dir == nullptr) {
    close(fd);
    return false;
  }
  std::vector<std::string> names;
  while (dirent* e = readdir(dir)) {
    if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) names.emplace_back(e->d_name);
  }
  bool ok = true;
  for (const std::string& n : names) ok = remove_at(dirfd(dir), n.c_str()) && ok;
  closedir(dir);
  return ok && unlinkat(folder, name, AT_REMOVEDIR) == 0;
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
  std::string reason;
  Fd root(open_file_root(&reason));
  if (!root.ok()) {
    report_problem(reason);
    return;
  }
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

extern "C" __attribute__((visibility("default"))) char** velconfig_sim_command_environment(void) {
  std::lock_guard<std::recursive_mutex> hold(velsim::platform_mutex());
  velsim::ensure_stock_config();
  GPtrArray* env = g_ptr_array_new();
  const char* host_path = getenv("PATH");
  g_ptr_array_add(env, g_strconcat("PATH=", velsim::tools_dir(), ":",
                                   host_path != nullptr ? host_path : "/usr/bin:/bin", nullptr));
  g_ptr_array_add(env, g_strconcat("VELCONFIG_ROOT=", velsim::file_root(), nullptr));
  for (char** e = environ; *e != nullptr; ++e) {
    if (strncmp(*e, "PATH=", 5) != 0 && strncmp(*e, "VELCONFIG_ROOT=", 15) != 0)
      g_ptr_array_add(env, g_strdup(*e));
  }
  g_ptr_array_add(env, nullptr);
  return reinterpret_cast<char**>(g_ptr_array_free(env, FALSE));
}
