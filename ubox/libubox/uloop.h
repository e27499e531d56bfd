/* The part of libubox's event loop this module uses, for builds without libubox:
 * caller-owned fd watchers and time-outs, callbacks (handle, events), 0/-1 results,
 * uloop_run blocking until uloop_cancelled is set (uloop_end), checked after the
 * current callback, and watchers refused while no loop exists (before uloop_init,
 * after uloop_done). */
#pragma once

#include <stdbool.h>
#include <stdint.h>
#include <sys/time.h>

#ifdef __cplusplus
extern "C" {
#endif

#define ULOOP_READ (1 << 0)
#define ULOOP_WRITE (1 << 1)
#define ULOOP_EVENT_MASK (ULOOP_READ | ULOOP_WRITE)

struct uloop_fd;
struct uloop_timeout;

typedef void (*uloop_fd_handler)(struct uloop_fd *u, unsigned int events);
typedef void (*uloop_timeout_handler)(struct uloop_timeout *t);

struct uloop_fd {
  uloop_fd_handler cb;
  int fd;
  bool eof;
  bool error;
  bool registered;
  uint8_t flags;
};

struct uloop_timeout {
  struct uloop_timeout *next; /* pending time-outs, soonest first */
  bool pending;
  uloop_timeout_handler cb;
  struct timeval time; /* when it is due, on the monotonic clock */
};

extern bool uloop_cancelled;

int uloop_init(void);
/* Runs until uloop_cancelled is set, also while nothing is watched or pending. */
int uloop_run(void);
static inline void uloop_end(void) { uloop_cancelled = true; }
void uloop_done(void);

int uloop_fd_add(struct uloop_fd *sock, unsigned int flags);
int uloop_fd_delete(struct uloop_fd *sock);

int uloop_timeout_add(struct uloop_timeout *timeout);
int uloop_timeout_set(struct uloop_timeout *timeout, int msecs);
int uloop_timeout_cancel(struct uloop_timeout *timeout);
int uloop_timeout_remaining(struct uloop_timeout *timeout);

#ifdef __cplusplus
}
#endif
