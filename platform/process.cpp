// The command runner: posix_spawn with a pipe for the output, a deadline on the
// monotonic clock, and SIGKILL for a command that outlives it.
#include "platform/process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "platform/holders.h"
#include "platform/seams.h"

namespace velconfig {
namespace {

constexpr size_t kProgramRoom = 512;  // a tool's path, not a page's text

// Starts the command with its output on a pipe; the read end is returned (kept in the
// scope) and the child is kept too. -1 when it cannot start.
int start(const char* const argv[], pid_t* pid) {
  char program[kProgramRoom];
  if (argv == nullptr || argv[0] == nullptr || !command_program(argv[0], program, sizeof program)) return -1;
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return -1;
  call_scope::keep_descriptor(fds[0]);
  call_scope::keep_descriptor(fds[1]);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  int rc =
      posix_spawnp(pid, program, &actions, nullptr, const_cast<char* const*>(argv), command_environment());
  posix_spawn_file_actions_destroy(&actions);
  call_scope::release_descriptor(fds[1]);
  if (rc != 0) {
    call_scope::release_descriptor(fds[0]);
    return -1;
  }
  call_scope::keep_child(*pid);
  return fds[0];
}

// Reads the output until it ends or the deadline passes, keeping the first line.
// False when the deadline passed.
bool drain(int fd, int64_t deadline, char* line, size_t cap) {
  size_t used = 0;
  bool line_done = line == nullptr;
  char buf[512];
  for (;;) {
    int64_t left = deadline - monotonic_ms();
    if (left <= 0) return false;
    struct pollfd p = {fd, POLLIN, 0};
    int ready = poll(&p, 1, static_cast<int>(left > 60000 ? 60000 : left));
    if (ready < 0 && errno != EINTR) return false;
    if (ready <= 0) continue;
    ssize_t n = read(fd, buf, sizeof buf);
    if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (n <= 0) return true;
    for (ssize_t i = 0; i < n && !line_done; ++i) {
      if (buf[i] == '\n' || buf[i] == '\r') {
        line_done = true;
      } else if (used + 1 < cap) {
        line[used++] = buf[i];
        line[used] = '\0';
      }
    }
  }
}

// Waits for the child to end until the deadline. Its exit status, or kCommandFailed.
int reap(pid_t pid, int64_t deadline) {
  for (;;) {
    int status = 0;
    pid_t done = waitpid(pid, &status, WNOHANG);
    if (done == pid) {
      call_scope::forget_child(pid);
      return WIFEXITED(status) ? WEXITSTATUS(status) : kCommandFailed;
    }
    if (done < 0 && errno != EINTR) {
      call_scope::forget_child(pid);
      return kCommandFailed;
    }
    if (monotonic_ms() >= deadline) return kCommandFailed;
    usleep(1000);
  }
}

int run(const char* const argv[], char* line, size_t cap, int timeout_ms) {
  if (line != nullptr && cap > 0) line[0] = '\0';
  int64_t deadline = monotonic_ms() + (timeout_ms > 0 ? timeout_ms : 0);
  pid_t pid = 0;
  int fd = start(argv, &pid);
  if (fd < 0) return kCommandFailed;
  int status = drain(fd, deadline, line, cap) ? reap(pid, deadline) : kCommandFailed;
  // A command still running is killed and reaped here.
  call_scope::release_child(pid);
  call_scope::release_descriptor(fd);
  return status;
}

}  // namespace

int run_command(const char* const argv[], int timeout_ms) { return run(argv, nullptr, 0, timeout_ms); }

int run_command_line(const char* const argv[], char* line, size_t cap, int timeout_ms) {
  return run(argv, cap > 0 ? line : nullptr, cap, timeout_ms);
}

}  // namespace velconfig
