// The event loop stand-in over poll(2), for builds where libubox is absent.
#include "libubox/uloop.h"

#include <errno.h>
#include <poll.h>
#include <time.h>

#include <vector>

bool uloop_cancelled = false;

namespace {

bool initialised = false;
std::vector<uloop_fd*> watched;
uloop_timeout* pending = nullptr;

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
  initialised = true;
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

int uloop_timeout_remaining(struct uloop_timeout* timeout) {
  if (timeout == nullptr || !timeout->pending) return -1;
  int64_t left = due_ms(timeout) - now_ms();
  return left > 0 ? static_cast<int>(left) : 0;
}

int uloop_run(void) {
  uloop_cancelled = false;
  std::vector<pollfd> fds;
  std::vector<uloop_fd*> owners;
  while (!uloop_cancelled) {
    run_due_timeouts();
    if (uloop_cancelled) break;

    fds.clear();
    owners.clear();
    for (uloop_fd* u : watched) {
      fds.push_back(pollfd{u->fd, poll_events(u->flags), 0});
      owners.push_back(u);
    }
    int wait = -1;
    if (pending != nullptr) {
      int64_t left = due_ms(pending) - now_ms();
      wait = left > 0 ? static_cast<int>(left > 60000 ? 60000 : left) : 0;
    }
    // With nothing watched and nothing pending this waits for a signal whose
    // handler ends the loop, as libubox's does.
    int ready = poll(fds.data(), fds.size(), wait);
    if (ready < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    for (size_t i = 0; i < fds.size() && !uloop_cancelled; ++i) {
      uloop_fd* u = owners[i];
      short got = fds[i].revents;
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
  }
  return 0;
}

void uloop_done(void) {
  for (uloop_fd* u : watched) {
    u->registered = false;
    u->flags = 0;
  }
  watched.clear();
  while (pending != nullptr) unlink_timeout(pending);
  initialised = false;
}
