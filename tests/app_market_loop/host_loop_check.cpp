// "getMallUrl" as a guest in a web server's process, each case in a process of its
// own: with a loop of its own it leaves every signal disposition as it found it,
// lets a SIGTERM that arrives during the wait reach the server, and reaps no child
// of the server's; inside the server's running loop it joins that loop, leaves it
// running after a reply, and keeps a stop the server asked for during the wait.
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

extern "C" {
#include <libubox/uloop.h>
}

#include <lua.hpp>

#include "apps/apps.h"
#include "platform/holders.h"
#include "sim/cloud.h"
#include "tests/app_market_loop/mall_call.h"
#include "tests/check.h"

namespace {

lua_State* interpreter = nullptr;

int64_t now_ms() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// Calls getMallUrl with a cloud client that never answers, waiting timeout_ms.
void call_unanswered(int timeout_ms) {
  velsim::cloud_silent();
  velsim::set_app_market_timeout(timeout_ms);
  CHECK(lua_cpcall(interpreter, call_mall_url, nullptr) == 0);
}

// Sends signo to the whole process after delay_ms, from another thread.
void signal_later(int signo, int delay_ms) {
  struct Later {
    int signo;
    int delay_ms;
  };
  static Later later;
  later = Later{signo, delay_ms};
  pthread_t thread;
  pthread_create(
      &thread, nullptr,
      [](void* p) -> void* {
        Later* l = static_cast<Later*>(p);
        usleep(static_cast<useconds_t>(l->delay_ms) * 1000);
        kill(getpid(), l->signo);
        return nullptr;
      },
      &later);
  pthread_detach(thread);
}

const int kWatched[] = {SIGINT, SIGTERM, SIGCHLD, SIGPIPE};

struct Dispositions {
  void (*handler[4])(int);
  sigset_t blocked;
};

Dispositions dispositions() {
  Dispositions d = {};
  for (size_t i = 0; i < 4; ++i) {
    struct sigaction a;
    sigaction(kWatched[i], nullptr, &a);
    d.handler[i] = a.sa_handler;
  }
  pthread_sigmask(SIG_BLOCK, nullptr, &d.blocked);
  return d;
}

bool same(const Dispositions& a, const Dispositions& b) {
  for (size_t i = 0; i < 4; ++i) {
    if (a.handler[i] != b.handler[i]) return false;
  }
  for (int signo : kWatched) {
    if (sigismember(&a.blocked, signo) != sigismember(&b.blocked, signo)) return false;
  }
  return true;
}

volatile sig_atomic_t server_interrupts = 0;
void server_on_interrupt(int) { ++server_interrupts; }

void set_handler(int signo, void (*handler)(int)) {
  struct sigaction a = {};
  a.sa_handler = handler;
  sigaction(signo, &a, nullptr);
}

// Whatever the server had, ignored or default, handled or not, is there after a call.
void case_dispositions_kept() {
  set_handler(SIGINT, server_on_interrupt);
  for (auto pipe_handler : {SIG_IGN, SIG_DFL}) {
    set_handler(SIGPIPE, pipe_handler);
    Dispositions before = dispositions();
    call_unanswered(100);
    CHECK(mall_result == 1);
    CHECK(same(before, dispositions()));
  }
}

// The server's default SIGTERM ends it during the wait, as it would without the call.
void case_sigterm_default() {
  signal_later(SIGTERM, 300);
  call_unanswered(10000);
  // Only reached when the SIGTERM was swallowed.
  CHECK(!"the SIGTERM sent during the wait did not end the process");
}

// A server's own SIGTERM handler runs once during the wait; the call goes on.
void case_sigterm_handled() {
  set_handler(SIGTERM, server_on_interrupt);
  signal_later(SIGTERM, 200);
  call_unanswered(800);
  CHECK(mall_result == 1 && server_interrupts == 1);
  struct sigaction a;
  sigaction(SIGTERM, nullptr, &a);
  CHECK(a.sa_handler == server_on_interrupt);
}

// A child of the server that ends during the wait is still the server's to reap.
void case_child_not_reaped() {
  pid_t child = fork();
  if (child == 0) {
    usleep(100 * 1000);
    _exit(7);
  }
  call_unanswered(600);
  int status = 0;
  CHECK(waitpid(child, &status, 0) == child);
  CHECK(WIFEXITED(status) && WEXITSTATUS(status) == 7);
}

int host_events = 0;
bool host_stops_during_wait = false;  // the host's own timer calls uloop_end 200 ms in
bool host_ends_after_call = true;     // the host's watcher ends its loop after the call
bool cancelled_after_call = false;
int64_t call_took_ms = 0;

void on_host_stop(uloop_timeout*) { uloop_end(); }

// The host's own watcher: its first event runs the page call inside the loop. Each
// event then ends the host's loop, so the case goes on.
void on_host(uloop_fd* u, unsigned int) {
  char c;
  CHECK(read(u->fd, &c, 1) == 1);
  if (++host_events == 1) {
    static uloop_timeout stop = {};
    stop.cb = on_host_stop;
    if (host_stops_during_wait) uloop_timeout_set(&stop, 200);
    int64_t start = now_ms();
    CHECK(lua_cpcall(interpreter, call_mall_url, nullptr) == 0);
    call_took_ms = now_ms() - start;
    cancelled_after_call = uloop_cancelled;
    if (!host_ends_after_call) return;
  }
  uloop_end();
}

struct HostLoop {
  int pair[2];
  uloop_fd watcher;
};

void start_host_loop(HostLoop* host) {
  CHECK(socketpair(AF_UNIX, SOCK_STREAM, 0, host->pair) == 0);
  uloop_init();
  host->watcher = uloop_fd{};
  host->watcher.fd = host->pair[0];
  host->watcher.cb = on_host;
  CHECK(uloop_fd_add(&host->watcher, ULOOP_READ) == 0);
  CHECK(write(host->pair[1], "a", 1) == 1);
}

void stop_host_loop(HostLoop* host) {
  uloop_done();
  close(host->pair[0]);
  close(host->pair[1]);
}

// After a reply the server's loop is still there, not ended, its watcher served.
void case_joined_reply() {
  HostLoop host;
  start_host_loop(&host);
  uloop_run();
  CHECK(mall_result == 0 && host_events == 1 && !cancelled_after_call);
  CHECK(host.watcher.registered);
  CHECK(write(host.pair[1], "b", 1) == 1);
  uloop_run();
  CHECK(host_events == 2);
  stop_host_loop(&host);
}

// The server's uloop_end during the wait stays: its loop returns after the call.
void case_joined_stop() {
  host_stops_during_wait = true;
  host_ends_after_call = false;
  velsim::cloud_silent();
  velsim::set_app_market_timeout(5000);
  HostLoop host;
  start_host_loop(&host);
  uloop_run();
  CHECK(mall_result == 1 && cancelled_after_call && call_took_ms < 2500);
  stop_host_loop(&host);
}

// A SIGTERM that the server's loop catches during the wait ends the server's loop
// with the signal's number, as it would have without the call.
void case_joined_sigterm() {
  host_ends_after_call = false;
  velsim::cloud_silent();
  velsim::set_app_market_timeout(5000);
  HostLoop host;
  start_host_loop(&host);
  signal_later(SIGTERM, 300);
  int stopped_by = uloop_run();
  CHECK(stopped_by == SIGTERM && mall_result == 1 && cancelled_after_call);
  stop_host_loop(&host);
}

struct Case {
  const char* name;
  void (*run)();
  int expected_signal;  // the signal that should end the case's process, or 0
};

const Case kCases[] = {
    {"dispositions kept", case_dispositions_kept, 0},
    {"SIGTERM reaches a default disposition", case_sigterm_default, SIGTERM},
    {"SIGTERM reaches the server's handler", case_sigterm_handled, 0},
    {"the server's child is not reaped", case_child_not_reaped, 0},
    {"joined loop goes on after a reply", case_joined_reply, 0},
    {"joined loop keeps the server's stop", case_joined_stop, 0},
    {"joined loop keeps a caught SIGTERM", case_joined_sigterm, 0},
};

}  // namespace

int main() {
  int failed = 0;
  for (const Case& c : kCases) {
    (void)fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
      alarm(30);  // a case that never ends fails
      interpreter = luaL_newstate();
      c.run();
      lua_close(interpreter);
      _exit(velcheck::failures == 0 ? 0 : 1);
    }
    int status = 0;
    CHECK(waitpid(pid, &status, 0) == pid);
    bool ok = c.expected_signal != 0 ? WIFSIGNALED(status) && WTERMSIG(status) == c.expected_signal
                                     : WIFEXITED(status) && WEXITSTATUS(status) == 0;
    printf("%s: %s\n", ok ? "ok" : "FAILED", c.name);
    if (!ok) ++failed;
  }
  return failed == 0 && velcheck::failures == 0 ? 0 : 1;
}
