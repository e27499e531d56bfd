// "getMallUrl" called from inside a host's running event loop, as a web server
// built on libubox would call it: the exchange joins that loop and leaves it as it
// found it (still initialised, its own watcher still served, not ended).
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

extern "C" {
#include <libubox/uloop.h>
}

#include <lua.hpp>

#include "apps/apps.h"
#include "platform/holders.h"
#include "tests/check.h"

namespace {

int result = -1;

int call_mall_url(lua_State* L) {
  size_t mark = velconfig::call_scope::mark();
  velconfig::get_mall_url(L, velconfig::GetArgs{nullptr, nullptr});
  velconfig::call_scope::release_to(mark);
  lua_getfield(L, -1, "result");
  result = static_cast<int>(lua_tonumber(L, -1));
  return 0;
}

int host_events = 0;
lua_State* interpreter = nullptr;

// The host's own watcher: its first event runs the page call inside the loop. Each
// event then ends the host's loop, so the test goes on.
void on_host(uloop_fd* u, unsigned int) {
  char c;
  CHECK(read(u->fd, &c, 1) == 1);
  if (++host_events == 1) {
    CHECK(lua_cpcall(interpreter, call_mall_url, nullptr) == 0);
    // the exchange ended its own run, not the host's
    CHECK(!uloop_cancelled);
  }
  uloop_end();
}

}  // namespace

int main() {
  interpreter = luaL_newstate();
  int pair[2];
  CHECK(socketpair(AF_UNIX, SOCK_STREAM, 0, pair) == 0);
  uloop_init();
  uloop_fd host = {};
  host.fd = pair[0];
  host.cb = on_host;
  CHECK(uloop_fd_add(&host, ULOOP_READ) == 0);
  CHECK(write(pair[1], "a", 1) == 1);
  uloop_run();
  CHECK(result == 0 && host_events == 1);
  // the host's loop is still there: its watcher is still registered and served
  CHECK(host.registered);
  CHECK(write(pair[1], "b", 1) == 1);
  uloop_run();
  CHECK(host_events == 2);
  uloop_done();
  close(pair[0]);
  close(pair[1]);
  lua_close(interpreter);
  if (velcheck::failures != 0) fprintf(stderr, "%d checks failed\n", velcheck::failures);
  return velcheck::failures == 0 ? 0 : 1;
}
