// The event loop on its own, the stand-in or the gateway's libubox alike: readiness,
// time-outs, cancelling, deleting a watcher with an event undelivered, blocking
// with nothing to wait for, watchers refused without a loop, usock's non-blocking
// connect, and what a loop does to the process's signals and children.
#include <arpa/inet.h>
#include <errno.h>
extern "C" {
#include <libubox/uloop.h>
#include <libubox/usock.h>
}
#include <netinet/in.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <initializer_list>

#include "tests/check.h"

namespace {

int64_t now_ms() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

struct Probe {
  uloop_fd watcher;
  unsigned int events[8];
  int calls;
  bool cancel;
};

void on_probe(uloop_fd* u, unsigned int events) {
  Probe* p = reinterpret_cast<Probe*>(u);
  if (p->calls < 8) p->events[p->calls] = events;
  ++p->calls;
  if (p->cancel) uloop_cancelled = true;
}

int fired = 0;
void on_timeout(uloop_timeout*) {
  ++fired;
  uloop_cancelled = true;
}

void check_readiness() {
  int pair[2];
  socketpair(AF_UNIX, SOCK_STREAM, 0, pair);
  uloop_init();
  Probe writer = {};
  writer.watcher.fd = pair[0];
  writer.watcher.cb = on_probe;
  writer.cancel = true;
  CHECK(uloop_fd_add(&writer.watcher, ULOOP_WRITE) == 0);
  uloop_run();
  CHECK(writer.calls == 1 && writer.events[0] == ULOOP_WRITE);

  // Registered for reading only: nothing until the peer writes.
  uloop_fd_delete(&writer.watcher);
  Probe reader = writer;
  reader.calls = 0;
  CHECK(uloop_fd_add(&reader.watcher, ULOOP_READ) == 0);
  uloop_timeout t = {};
  t.cb = on_timeout;
  fired = 0;
  uloop_timeout_set(&t, 30);
  uloop_run();
  CHECK(reader.calls == 0 && fired == 1);
  CHECK(write(pair[1], "x", 1) == 1);
  uloop_run();
  CHECK(reader.calls == 1 && reader.events[0] == ULOOP_READ);

  // A peer that goes away is reported to a reader, with eof set.
  reader.calls = 0;
  char c;
  CHECK(read(pair[0], &c, 1) == 1);
  close(pair[1]);
  uloop_run();
  CHECK(reader.calls == 1 && (reader.events[0] & ULOOP_READ) && reader.watcher.eof);
  uloop_done();
  CHECK(!reader.watcher.registered);
  close(pair[0]);
}

struct Pair {
  Probe a;
  Probe b;
};
Pair* pair_for_delete = nullptr;

// The first watcher to run deletes the other, whose event is then not delivered.
void on_delete_other(uloop_fd* u, unsigned int) {
  Probe* self = reinterpret_cast<Probe*>(u);
  ++self->calls;
  Probe* other = self == &pair_for_delete->a ? &pair_for_delete->b : &pair_for_delete->a;
  uloop_fd_delete(&other->watcher);
  uloop_fd_delete(&self->watcher);
  uloop_end();
}

void check_delete_drops_events() {
  int p1[2];
  int p2[2];
  socketpair(AF_UNIX, SOCK_STREAM, 0, p1);
  socketpair(AF_UNIX, SOCK_STREAM, 0, p2);
  Pair pair = {};
  pair_for_delete = &pair;
  uloop_init();
  pair.a.watcher.fd = p1[0];
  pair.a.watcher.cb = on_delete_other;
  pair.b.watcher.fd = p2[0];
  pair.b.watcher.cb = on_delete_other;
  uloop_fd_add(&pair.a.watcher, ULOOP_WRITE);
  uloop_fd_add(&pair.b.watcher, ULOOP_WRITE);
  uloop_run();
  CHECK(pair.a.calls + pair.b.calls == 1);
  uloop_done();
  pair_for_delete = nullptr;  // the pair dies with this frame
  for (int fd : {p1[0], p1[1], p2[0], p2[1]}) close(fd);
}

void check_timeouts() {
  uloop_timeout t_unset = {};
  uloop_init();
  uloop_timeout late = {};
  uloop_timeout early = {};
  late.cb = on_timeout;
  early.cb = on_timeout;
  fired = 0;
  uloop_timeout_set(&late, 10000);
  uloop_timeout_set(&early, 20);
  CHECK(uloop_timeout_remaining64(&late) > 9000);
  CHECK(uloop_timeout_remaining64(&t_unset) == -1);
  int64_t start = now_ms();
  uloop_run();
  int64_t took = now_ms() - start;
  CHECK(fired == 1 && !early.pending && late.pending);
  CHECK(took >= 15 && took < 2000);
  CHECK(uloop_timeout_cancel(&late) == 0 && !late.pending);
  CHECK(uloop_timeout_cancel(&late) == -1);
  uloop_done();
}

void do_nothing(uloop_timeout*) { ++fired; }
void end_on_signal(int) { uloop_end(); }

// With nothing watched and nothing pending, uloop_run waits, as libubox's does, until
// something ends it: here a signal whose handler calls uloop_end 150 ms in. Before
// uloop_init and after uloop_done no watcher is taken.
void check_run_blocks_until_ended() {
  int pair[2];
  socketpair(AF_UNIX, SOCK_STREAM, 0, pair);
  Probe p = {};
  p.watcher.fd = pair[0];
  p.watcher.cb = on_probe;
  CHECK(uloop_fd_add(&p.watcher, ULOOP_READ) == -1 && !p.watcher.registered);

  struct sigaction action = {};
  action.sa_handler = end_on_signal;  // no SA_RESTART: the wait is interrupted
  CHECK(sigaction(SIGALRM, &action, nullptr) == 0);
  uloop_init();
  uloop_timeout t = {};
  t.cb = do_nothing;
  fired = 0;
  uloop_timeout_set(&t, 20);
  struct itimerval alarm_at = {};
  alarm_at.it_value.tv_usec = 150000;
  int64_t start = now_ms();
  CHECK(setitimer(ITIMER_REAL, &alarm_at, nullptr) == 0);
  uloop_run();
  int64_t took = now_ms() - start;
  CHECK(fired == 1 && uloop_cancelled);
  CHECK(took >= 140 && took < 5000);
  uloop_done();
  CHECK(uloop_fd_add(&p.watcher, ULOOP_READ) == -1);
  action.sa_handler = SIG_DFL;
  CHECK(sigaction(SIGALRM, &action, nullptr) == 0);
  close(pair[0]);
  close(pair[1]);
}

void check_usock() {
  // A listener on an ephemeral loopback port.
  int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr = {};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  CHECK(bind(listener, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0);
  CHECK(listen(listener, 1) == 0);
  socklen_t len = sizeof addr;
  CHECK(getsockname(listener, reinterpret_cast<sockaddr*>(&addr), &len) == 0);
  char port[16];
  snprintf(port, sizeof port, "%d", ntohs(addr.sin_port));

  int sock = usock(USOCK_TCP | USOCK_NONBLOCK, "127.0.0.1", port);
  CHECK(sock >= 0);
  uloop_init();
  Probe p = {};
  p.watcher.fd = sock;
  p.watcher.cb = on_probe;
  p.cancel = true;
  uloop_fd_add(&p.watcher, ULOOP_WRITE);
  uloop_run();
  int err = -1;
  socklen_t errlen = sizeof err;
  getsockopt(sock, SOL_SOCKET, SO_ERROR, &err, &errlen);
  CHECK(p.calls == 1 && (p.events[0] & ULOOP_WRITE) && err == 0);
  uloop_done();
  close(sock);

  // Nobody listens any more: the connect fails, reported as writable with an error.
  close(listener);
  sock = usock(USOCK_TCP | USOCK_NONBLOCK, "127.0.0.1", port);
  if (sock >= 0) {
    uloop_init();
    p = Probe{};
    p.watcher.fd = sock;
    p.watcher.cb = on_probe;
    p.cancel = true;
    uloop_fd_add(&p.watcher, ULOOP_WRITE);
    uloop_run();
    getsockopt(sock, SOL_SOCKET, SO_ERROR, &err, &errlen);
    CHECK(p.calls == 1 && (p.events[0] & ULOOP_WRITE) && p.watcher.error && err == ECONNREFUSED);
    uloop_done();
    close(sock);
  }
  CHECK(usock(USOCK_TCP | USOCK_NONBLOCK, "not an address", "1") < 0);
}

void (*disposition(int signo))(int) {
  struct sigaction a;
  sigaction(signo, nullptr, &a);
  return a.sa_handler;
}

void server_handler(int) {}

void send_sigterm(uloop_timeout*) { kill(getpid(), SIGTERM); }

// What the module guards a web server against: a loop catches SIGTERM and SIGINT
// (ending the loop, whose run returns the signal) and SIGCHLD (reaping every child
// of the process), and ignores SIGPIPE, where each had the default disposition; a
// handler of the process's own is left alone. uloop_done puts back its handlers
// but leaves SIGPIPE ignored.
void check_signals() {
  struct sigaction own = {};
  own.sa_handler = server_handler;
  sigaction(SIGINT, &own, nullptr);
  uloop_init();
  CHECK(disposition(SIGTERM) != SIG_DFL && disposition(SIGCHLD) != SIG_DFL);
  CHECK(disposition(SIGPIPE) == SIG_IGN && disposition(SIGINT) == server_handler);

  pid_t child = fork();
  if (child == 0) _exit(0);
  uloop_timeout t = {};
  t.cb = on_timeout;
  uloop_timeout_set(&t, 300);
  CHECK(uloop_run() == 0);
  CHECK(waitpid(child, nullptr, WNOHANG) == -1 && errno == ECHILD);

  uloop_timeout_set(&t, 5000);
  uloop_timeout term = {};
  term.cb = send_sigterm;
  uloop_timeout_set(&term, 20);
  CHECK(uloop_run() == SIGTERM && uloop_cancelled && t.pending);
  uloop_timeout_cancel(&t);
  uloop_done();
  CHECK(disposition(SIGTERM) == SIG_DFL && disposition(SIGCHLD) == SIG_DFL);
  CHECK(disposition(SIGPIPE) == SIG_IGN && disposition(SIGINT) == server_handler);
  own.sa_handler = SIG_DFL;
  sigaction(SIGINT, &own, nullptr);
  sigaction(SIGPIPE, &own, nullptr);
}

}  // namespace

int main() {
  check_readiness();
  check_delete_drops_events();
  check_timeouts();
  check_run_blocks_until_ended();
  check_usock();
  check_signals();
  if (velcheck::failures != 0) fprintf(stderr, "%d checks failed\n", velcheck::failures);
  return velcheck::failures == 0 ? 0 : 1;
}
