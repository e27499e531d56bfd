// "getMallUrl" over a socket that takes the request in pieces, stays full, whose
// sending fails inside the event loop, or whose reading fails: send(2) and recv(2) are
// replaced in this program for the calling thread (the simulated cloud client's own
// thread sends and reads as usual).
#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <lua.hpp>
#include <new>
#include <string>

#include "apps/apps.h"
#include "platform/holders.h"
#include "sim/cloud.h"
#include "sim/sim.h"
#include "tests/app_market_loop/mall_call.h"
#include "tests/check.h"

namespace {

enum class Sending { kPlain, kTrickle, kFull, kFails, kThrow, kReadFails };
Sending sending = Sending::kPlain;
int send_calls = 0;
int recv_calls = 0;
pthread_t page_thread;

}  // namespace

// Trickle: each call either finds the socket full, is interrupted, or takes one byte;
// Fails: each call fails as for a peer that has gone.
extern "C" ssize_t send(int fd, const void* data, size_t length, int flags) {
  if (!pthread_equal(pthread_self(), page_thread) || sending == Sending::kPlain ||
      sending == Sending::kReadFails) {
    return syscall(SYS_sendto, fd, data, length, flags, nullptr, 0);
  }
  ++send_calls;
  switch (sending) {
    case Sending::kFull:
      errno = EAGAIN;
      return -1;
    case Sending::kFails:
      errno = EPIPE;
      return -1;
    case Sending::kThrow:
      throw std::bad_alloc();
    default:
      if (send_calls % 3 != 0) {
        errno = send_calls % 3 == 1 ? EAGAIN : EINTR;
        return -1;
      }
      return syscall(SYS_sendto, fd, data, 1, flags, nullptr, 0);
  }
}

// ReadFails: every read of the reply fails as a reset connection does, while the
// reply waits unread in the socket (so it stays readable).
extern "C" ssize_t recv(int fd, void* data, size_t length, int flags) {
  if (!pthread_equal(pthread_self(), page_thread) || sending != Sending::kReadFails) {
    return syscall(SYS_recvfrom, fd, data, length, flags, nullptr, nullptr);
  }
  ++recv_calls;
  errno = ECONNRESET;
  return -1;
}

namespace {

// The call's result, and the last log line's text.
std::string mall_url(lua_State* L, Sending how) {
  velsim::clear_logs();
  sending = how;
  send_calls = 0;
  recv_calls = 0;
  mall_result = -1;
  CHECK(lua_cpcall(L, call_mall_url, nullptr) == 0);
  sending = Sending::kPlain;
  json_t* lines = velsim::log_lines();
  json_t* last = json_array_get(lines, json_array_size(lines) - 1);
  const char* text = json_string_value(json_object_get(last, "text"));
  return text != nullptr ? text : "";
}

double seconds_now() {
  timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

}  // namespace

int main() {
  // A send loop that never ends must fail the check, not hang it.
  alarm(60);
  page_thread = pthread_self();
  lua_State* L = luaL_newstate();
  mall_url(L, Sending::kPlain);  // the cloud client starts on the first port read
  const std::string failed = "获取应用商城URL失败，错误原因: 创建获取URL的连接失败";

  // One byte at a time between full sockets and interruptions: the whole frame goes.
  velsim::reset_cloud();
  mall_url(L, Sending::kTrickle);
  CHECK(mall_result == 0);
  std::vector<velsim::CloudExchange> served = velsim::cloud_exchanges(1, 2000);
  CHECK(served.size() == 1 && served[0].request.size() == 103 &&
        served[0].request.compare(0, 4, "\0\0\0\x63", 4) == 0);
  CHECK(send_calls == 3 * 103);

  // A socket that stays full: given up at the time-out, not sent to for ever.
  velsim::reset_cloud();
  velsim::set_app_market_timeout(300);
  double started = seconds_now();
  CHECK(mall_url(L, Sending::kFull) == failed);
  CHECK(mall_result == 1 && seconds_now() - started < 5);
  CHECK(send_calls > 1);

  // A read that fails ends the exchange at once as a reply cut short; it is not
  // taken for one that would block and tried again until the time-out.
  velsim::reset_cloud();
  velsim::set_app_market_timeout(300);
  CHECK(mall_url(L, Sending::kReadFails) == "获取应用商城URL失败，错误原因: 解析命令类型参数失败");
  CHECK(mall_result == 1 && recv_calls == 1);

  // A send that fails outright: the connection failed, at once and without a retry.
  velsim::reset_cloud();
  velsim::set_app_market_timeout(300);
  CHECK(mall_url(L, Sending::kFails) == failed);
  CHECK(mall_result == 1 && send_calls == 1);

#ifdef VELCONFIG_UBOX_STANDIN
  // Sending fails with an exception inside the loop: the exchange fails as a failed
  // connection, and a later call still works.
  velsim::reset_cloud();
  CHECK(mall_url(L, Sending::kThrow) == failed);
  CHECK(mall_result == 1);
  mall_url(L, Sending::kPlain);
  CHECK(mall_result == 0);
#endif

  lua_close(L);
  if (velcheck::failures != 0) fprintf(stderr, "%d checks failed\n", velcheck::failures);
  return velcheck::failures == 0 ? 0 : 1;
}
