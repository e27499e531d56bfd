/* The part of libubox's event loop this module uses, for builds without libubox.
 * It behaves as the gateway's libubox does in everything the module relies on:
 * caller-owned fd watchers and time-outs, callbacks (handle, events), 0/-1 results,
 * watchers refused while no loop exists (before uloop_init, after uloop_done), and
 * uloop_run clearing uloop_cancelled as it starts and returning once it is set,
 * checked after the current callback. Signals too: uloop_init catches SIGINT and
 * SIGTERM (they end the loop; uloop_run returns the signal's number) and SIGCHLD
 * (the loop then reaps every child of the process), and ignores SIGPIPE, each only
 * where the disposition is the default; uloop_done puts back the handlers that are
 * still its own, and leaves SIGPIPE ignored. */
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
/* Whether uloop_init catches SIGCHLD (and the loop reaps children). */
extern bool uloop_handle_sigchld;

int uloop_init(void);
/* Runs until uloop_cancelled is set (timeout < 0) or for one round; returns the
 * number of the SIGINT or SIGTERM that ended it, else 0. */
int uloop_run_timeout(int timeout);
static inline int uloop_run(void) { return uloop_run_timeout(-1); }
static inline void uloop_end(void) { uloop_cancelled = true; }
void uloop_done(void);

int uloop_fd_add(struct uloop_fd *sock, unsigned int flags);
int uloop_fd_delete(struct uloop_fd *sock);

int uloop_timeout_add(struct uloop_timeout *timeout);
int uloop_timeout_set(struct uloop_timeout *timeout, int msecs);
int uloop_timeout_cancel(struct uloop_timeout *timeout);
int uloop_timeout_remaining(struct uloop_timeout *timeout)
    __attribute__((deprecated("use uloop_timeout_remaining64")));
/* Milliseconds until the time-out is due (negative when overdue), -1 when not pending. */
int64_t uloop_timeout_remaining64(struct uloop_timeout *timeout);

#ifdef __cplusplus
}
#endif
