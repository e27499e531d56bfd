// The command runner: posix_spawn into a process group of its own with a pipe for
// the output, one poll on the pipe and the child's pidfd up to a deadline on the
// monotonic clock, and SIGKILL to the whole group for a command that outlives it.
#include "platform/process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "platform/holders.h"
#include "platform/seams.h"

namespace velconfig {
namespace {

constexpr size_t kProgramRoom = 512;  // a tool's path, not a page's text
constexpr size_t kNameRoom = 64;      // a tool's name ("uci") to look for
// Without a pidfd (kernels before 5.3) the end of a child that leaves its output
// open is noticed by waitpid between polls of the pipe at most this far apart.
constexpr int kReapIntervalMs = 50;

// Where a command PATH does not have is looked for, in this order. OpenWrt keeps uci
// in /sbin, and a web server may run with no PATH at all or one without /sbin, where
// posix_spawnp would try only /bin and /usr/bin.
constexpr const char* kProgramFolders[] = {"/sbin", "/usr/sbin", "/bin", "/usr/bin"};

// True when the file at path is an executable file.
bool executable(const char* path) {
  struct stat st;
  return stat(path, &st) == 0 && S_ISREG(st.st_mode) && access(path, X_OK) == 0;
}

// The path of the program called program: the first executable file of that name in
// PATH's folders (an empty entry, the working directory, is not searched), then in
// the gateway's program folders.
bool locate(const char* program, char* out, size_t cap) {
  if (*program == '\0') return false;
  const char* path = getenv("PATH");
  while (path != nullptr && *path != '\0') {
    const char* end = strchr(path, ':');
    int length = static_cast<int>(end != nullptr ? static_cast<size_t>(end - path) : strlen(path));
    int n = snprintf(out, cap, "%.*s/%s", length, path, program);
    if (length > 0 && n >= 0 && static_cast<size_t>(n) < cap && executable(out)) return true;
    path = end != nullptr ? end + 1 : nullptr;
  }
  for (const char* dir : kProgramFolders) {
    if (!command_directory(dir, out, cap)) continue;
    size_t used = strlen(out);
    int n = snprintf(out + used, cap - used, "/%s", program);
    if (n >= 0 && static_cast<size_t>(n) < cap - used && executable(out)) return true;
  }
  return false;
}

// The spawn set-up: stdin and stderr on /dev/null, stdout on the pipe, a process
// group of its own (so a time-out kills what it started too), and the signal mask
// and SIGPIPE as a fresh program expects them, whatever the host process set.
bool prepare(posix_spawn_file_actions_t* actions, posix_spawnattr_t* attr, int out) {
  sigset_t none;
  sigset_t defaults;
  sigemptyset(&none);
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGPIPE);
  return posix_spawn_file_actions_addopen(actions, 0, "/dev/null", O_RDONLY, 0) == 0 &&
         posix_spawn_file_actions_adddup2(actions, out, 1) == 0 &&
         posix_spawn_file_actions_addopen(actions, 2, "/dev/null", O_WRONLY, 0) == 0 &&
         posix_spawnattr_setflags(
             attr, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF) == 0 &&
         posix_spawnattr_setpgroup(attr, 0) == 0 && posix_spawnattr_setsigmask(attr, &none) == 0 &&
         posix_spawnattr_setsigdefault(attr, &defaults) == 0;
}

// Starts the command with its output on a pipe; the read end (non-blocking) is
// returned and kept in the scope, and the child is kept too. -1 when it cannot start.
int start(const char* const argv[], pid_t* pid) {
  char program[kProgramRoom];
  if (argv == nullptr || argv[0] == nullptr || !command_program(argv[0], program, sizeof program)) return -1;
  if (strchr(program, '/') == nullptr) {
    char name[kNameRoom];
    int n = snprintf(name, sizeof name, "%s", program);
    if (n < 0 || static_cast<size_t>(n) >= sizeof name || !locate(name, program, sizeof program)) return -1;
  }
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return -1;
  call_scope::keep_descriptor(fds[0]);
  call_scope::keep_descriptor(fds[1]);
  int flags = fcntl(fds[0], F_GETFL);
  if (flags < 0 || fcntl(fds[0], F_SETFL, flags | O_NONBLOCK) != 0) {
    call_scope::release_descriptor(fds[1]);
    call_scope::release_descriptor(fds[0]);
    return -1;
  }

  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attr;
  int rc = -1;
  if (posix_spawn_file_actions_init(&actions) == 0) {
    if (posix_spawnattr_init(&attr) == 0) {
      if (prepare(&actions, &attr, fds[1])) {
        rc =
            posix_spawn(pid, program, &actions, &attr, const_cast<char* const*>(argv), command_environment());
      }
      posix_spawnattr_destroy(&attr);
    }
    posix_spawn_file_actions_destroy(&actions);
  }
  call_scope::release_descriptor(fds[1]);
  if (rc != 0) {
    call_scope::release_descriptor(fds[0]);
    return -1;
  }
  call_scope::keep_child(*pid);
  return fds[0];
}

// A descriptor that becomes readable when the child ends, kept in the scope; -1
// where the kernel has none.
int child_descriptor(pid_t pid) {
#ifdef SYS_pidfd_open
  // Close-on-exec by nature.
  int fd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
  if (fd >= 0) {
    call_scope::keep_descriptor(fd);
    return fd;
  }
#else
  (void)pid;
#endif
  return -1;
}

// Keeps the first line of what the command wrote, without its line end.
struct LineKeeper {
  char* line;
  size_t cap;
  size_t used = 0;
  bool done;

  void take(const char* data, size_t n) {
    for (size_t i = 0; i < n && !done; ++i) {
      if (data[i] == '\n' || data[i] == '\r') {
        done = true;
      } else if (used + 1 < cap) {
        line[used++] = data[i];
        line[used] = '\0';
      }
    }
  }
};

// Reads what the pipe holds now. False once it has ended (every writer closed it,
// or it failed); EAGAIN only means nothing is there yet.
bool read_available(int fd, LineKeeper* keeper) {
  char buf[512];
  for (;;) {
    ssize_t n = read(fd, buf, sizeof buf);
    if (n > 0) {
      keeper->take(buf, static_cast<size_t>(n));
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    return n < 0 && errno == EAGAIN;
  }
}

// Collects the child's status if it has ended. True when it has (status set).
bool try_reap(pid_t pid, int* status) {
  int raw = 0;
  pid_t done;
  do {
    done = waitpid(pid, &raw, WNOHANG);
  } while (done < 0 && errno == EINTR);
  if (done == 0) return false;
  call_scope::forget_child(pid);
  *status = done == pid && WIFEXITED(raw) ? WEXITSTATUS(raw) : kCommandFailed;
  return true;
}

// Reads the output until the child has ended and the pipe is drained or closed, or
// until the deadline. The child's exit status; kCommandFailed when it was killed,
// could not be waited for, or the deadline passed (the caller kills it then).
// A grandchild that keeps the pipe open does not hold the call: once the child has
// ended, only what is already in the pipe is read.
int wait_for(pid_t pid, int out, int ended, int64_t deadline, LineKeeper* keeper) {
  bool open = true;
  int status = kCommandFailed;
  for (;;) {
    if (try_reap(pid, &status)) {
      if (open) read_available(out, keeper);
      return status;
    }
    int64_t left = deadline - monotonic_ms();
    if (left <= 0) return kCommandFailed;
    struct pollfd p[2] = {{out, POLLIN, 0}, {ended, POLLIN, 0}};
    int wait_ms = static_cast<int>(left > 60000 ? 60000 : left);
    if (ended < 0 && wait_ms > kReapIntervalMs) wait_ms = kReapIntervalMs;
    // With the pipe closed only the child's end is waited for.
    int ready = poll(open ? p : p + 1, ended >= 0 ? (open ? 2 : 1) : (open ? 1 : 0), wait_ms);
    if (ready < 0 && errno != EINTR) return kCommandFailed;
    if (open && ready > 0 && p[0].revents != 0) open = read_available(out, keeper);
  }
}

int run(const char* const argv[], char* line, size_t cap, int timeout_ms) {
  if (line != nullptr && cap > 0) line[0] = '\0';
  int64_t deadline = monotonic_ms() + (timeout_ms > 0 ? timeout_ms : 0);
  pid_t pid = 0;
  int fd = start(argv, &pid);
  if (fd < 0) return kCommandFailed;
  LineKeeper keeper{line, cap, 0, line == nullptr};
  int ended = child_descriptor(pid);
  int status = wait_for(pid, fd, ended, deadline, &keeper);
  // A command still running is killed with its group and reaped here.
  call_scope::release_child(pid);
  call_scope::release_descriptor(ended);
  call_scope::release_descriptor(fd);
  return status;
}

}  // namespace

int run_command(const char* const argv[], int timeout_ms) { return run(argv, nullptr, 0, timeout_ms); }

int run_command_line(const char* const argv[], char* line, size_t cap, int timeout_ms) {
  return run(argv, cap > 0 ? line : nullptr, cap, timeout_ms);
}

}  // namespace velconfig
