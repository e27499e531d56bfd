// The event loop stand-in over poll(2), for builds where libubox is absent. Its
// signal handling is libubox's, so the PC suite sees what a gateway's web server
// sees when a call runs a loop of its own.
#include "libubox/uloop.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <vector>

bool uloop_cancelled = false;
bool uloop_handle_sigchld = true;

namespace {

bool initialised = false;
std::vector<uloop_fd*> watched;
uloop_timeout* pending = nullptr;

// The self-pipe a signal handler writes to, so a waiting poll wakes.
int waker[2] = {-1, -1};
volatile sig_atomic_t status = 0;
volatile sig_atomic_t child_exited = 0;
struct sigaction old_int, old_term, old_chld;

void wake() {
  int saved = errno;
  char byte = 0;
  while (waker[1] >= 0 && write(waker[1], &byte, 1) < 0 && errno == EINTR) {
  }
  errno = saved;
}

void on_stop_signal(int signo) {
  status = signo;
  uloop_cancelled = true;
  wake();
}

void on_child_signal(int) {
  child_exited = 1;
  wake();
}

// Catches signum with handler where nothing else does (the default disposition), or,
// when removing, puts back what was there where the handler is still ours.
void install_handler(int signum, void (*handler)(int), struct sigaction* old, bool add) {
  struct sigaction now;
  sigaction(signum, nullptr, &now);
  if (add && now.sa_handler == SIG_DFL) {
    *old = now;
    now.sa_handler = handler;
    now.sa_flags = 0;
    sigaction(signum, &now, nullptr);
  } else if (!add && now.sa_handler == handler) {
    sigaction(signum, old, nullptr);
  }
}

// Ignores SIGPIPE where the disposition is the default. libubox means to set it back
// when the loop goes, but its test takes SIG_DFL (a null pointer) for "nothing to
// do", so SIGPIPE stays ignored: so it does here.
void ignore_sigpipe() {
  struct sigaction now;
  sigaction(SIGPIPE, nullptr, &now);
  if (now.sa_handler == SIG_DFL) {
    now.sa_handler = SIG_IGN;
    now.sa_flags = 0;
    sigaction(SIGPIPE, &now, nullptr);
  }
}

void setup_signals(bool add) {
  install_handler(SIGINT, on_stop_signal, &old_int, add);
  install_handler(SIGTERM, on_stop_signal, &old_term, add);
  if (uloop_handle_sigchld) install_handler(SIGCHLD, on_child_signal, &old_chld, add);
  if (add) ignore_sigpipe();
}

// Reaps every child of the process that has ended, as libubox does on SIGCHLD.
void reap_children() {
  child_exited = 0;
  for (;;) {
    pid_t pid = waitpid(-1, nullptr, WNOHANG);
    if (pid < 0 && errno == EINTR) continue;
    if (pid <= 0) return;
  }
}

void drain_waker() {
  char buf[32];
  while (read(waker[0], buf, sizeof buf) > 0) {
  }
}

int64_t now_ms() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

int64_t due_ms(const uloop_timeout* t) {
  return static_cast<int64_t>(t->time.tv_sec) * 1000 + t->time.tv_usec / 1000;
}

void unlink_timeout(uloop_timeout* t) {
  for (uloop_timeout** p = &pending; *p != nullptr; p = &(*p)->next) {
    if (*p == t) {
      *p = t->next;
      break;
    }
  }
  t->next = nullptr;
  t->pending = false;
}

short poll_events(unsigned int flags) {
  short events = 0;
  if (flags & ULOOP_READ) events |= POLLIN;
  if (flags & ULOOP_WRITE) events |= POLLOUT;
  return events;
}

bool is_watched(const uloop_fd* u) {
  for (const uloop_fd* w : watched) {
    if (w == u) return true;
  }
  return false;
}

// Runs every time-out that is due, soonest first.
void run_due_timeouts() {
  while (!uloop_cancelled && pending != nullptr && due_ms(pending) <= now_ms()) {
    uloop_timeout* t = pending;
    unlink_timeout(t);
    if (t->cb != nullptr) t->cb(t);
  }
}

}  // namespace

int uloop_init(void) {
  if (waker[0] < 0) {
    if (pipe2(waker, O_CLOEXEC | O_NONBLOCK) != 0) return -1;
  }
  initialised = true;
  setup_signals(true);
  return 0;
}

int uloop_fd_add(struct uloop_fd* sock, unsigned int flags) {
  if (!initialised || sock == nullptr || sock->fd < 0 || (flags & ULOOP_EVENT_MASK) == 0) return -1;
  if (!is_watched(sock)) {
    try {
      watched.push_back(sock);
    } catch (...) {
      return -1;
    }
  }
  sock->flags = static_cast<uint8_t>(flags);
  sock->registered = true;
  sock->eof = false;
  sock->error = false;
  return 0;
}

int uloop_fd_delete(struct uloop_fd* sock) {
  if (sock == nullptr) return -1;
  for (size_t i = 0; i < watched.size(); ++i) {
    if (watched[i] == sock) {
      watched.erase(watched.begin() + static_cast<std::ptrdiff_t>(i));
      break;
    }
  }
  sock->registered = false;
  sock->flags = 0;
  return 0;
}

int uloop_timeout_add(struct uloop_timeout* timeout) {
  if (timeout == nullptr || timeout->pending) return -1;
  uloop_timeout** p = &pending;
  while (*p != nullptr && due_ms(*p) <= due_ms(timeout)) p = &(*p)->next;
  timeout->next = *p;
  *p = timeout;
  timeout->pending = true;
  return 0;
}

int uloop_timeout_set(struct uloop_timeout* timeout, int msecs) {
  if (timeout == nullptr) return -1;
  if (timeout->pending) unlink_timeout(timeout);
  int64_t due = now_ms() + (msecs > 0 ? msecs : 0);
  timeout->time.tv_sec = static_cast<time_t>(due / 1000);
  timeout->time.tv_usec = static_cast<suseconds_t>((due % 1000) * 1000);
  return uloop_timeout_add(timeout);
}

int uloop_timeout_cancel(struct uloop_timeout* timeout) {
  if (timeout == nullptr || !timeout->pending) return -1;
  unlink_timeout(timeout);
  return 0;
}

int64_t uloop_timeout_remaining64(struct uloop_timeout* timeout) {
  if (timeout == nullptr || !timeout->pending) return -1;
  return due_ms(timeout) - now_ms();
}

int uloop_timeout_remaining(struct uloop_timeout* timeout) {
  int64_t left = uloop_timeout_remaining64(timeout);
  return left < 0 && timeout != nullptr && timeout->pending ? 0 : static_cast<int>(left);
}

int uloop_run_timeout(int timeout) {
  status = 0;
  uloop_cancelled = false;
  std::vector<pollfd> fds;
  std::vector<uloop_fd*> owners;
  do {
    run_due_timeouts();
    if (child_exited) reap_children();
    if (uloop_cancelled) break;

    fds.clear();
    owners.clear();
    if (waker[0] >= 0) {
      fds.push_back(pollfd{waker[0], POLLIN, 0});
      owners.push_back(nullptr);
    }
    for (uloop_fd* u : watched) {
      fds.push_back(pollfd{u->fd, poll_events(u->flags), 0});
      owners.push_back(u);
    }
    int wait = -1;
    if (pending != nullptr) {
      int64_t left = due_ms(pending) - now_ms();
      wait = left > 0 ? static_cast<int>(left > 60000 ? 60000 : left) : 0;
    }
    if (timeout >= 0 && (wait < 0 || timeout < wait)) wait = timeout;
    // With nothing watched and nothing pending this waits for a signal whose
    // handler ends the loop, as libubox's does.
    int ready = poll(fds.data(), fds.size(), wait);
    if (ready < 0) {
      if (errno == EINTR) continue;
      break;
    }
    for (size_t i = 0; i < fds.size() && !uloop_cancelled; ++i) {
      uloop_fd* u = owners[i];
      short got = fds[i].revents;
      if (u == nullptr) {
        if (got != 0) drain_waker();
        continue;
      }
      // A watcher deleted by an earlier callback gets nothing more.
      if (got == 0 || !is_watched(u)) continue;
      if (got & (POLLERR | POLLNVAL)) u->error = true;
      if (got & POLLHUP) u->eof = true;
      unsigned int events = 0;
      if (got & (POLLIN | POLLHUP | POLLERR)) events |= ULOOP_READ;
      if (got & (POLLOUT | POLLERR)) events |= ULOOP_WRITE;
      events &= u->flags;
      // An error or hang-up is reported as whatever the watcher asked for.
      if (events == 0 && (got & (POLLERR | POLLHUP | POLLNVAL))) events = u->flags & ULOOP_EVENT_MASK;
      if (events != 0 && u->cb != nullptr) u->cb(u, events);
    }
  } while (!uloop_cancelled && timeout < 0);
  return status;
}

void uloop_done(void) {
  setup_signals(false);
  if (waker[0] >= 0) {
    close(waker[0]);
    close(waker[1]);
    waker[0] = waker[1] = -1;
  }
  for (uloop_fd* u : watched) {
    u->registered = false;
    u->flags = 0;
  }
  watched.clear();
  while (pending != nullptr) unlink_timeout(pending);
  initialised = false;
}
