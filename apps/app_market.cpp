// "getMallUrl": the app market's address, issued by the gateway's cloud client
// daemon together with an access token and a MAC. One framed JSON request and one
// framed JSON reply over TCP, inside a private libubox event loop with a time-out.
// The whole exchange runs, and its loop is torn down, before the handler touches
// Lua, so no Lua error can leave the loop's state or the socket behind.
#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

extern "C" {
#include <libubox/uloop.h>
#include <libubox/usock.h>
}

#include "apps/apps.h"
#include "common/result.h"
#include "platform/dbus.h"
#include "platform/holders.h"
#include "platform/plugin.h"
#include "platform/seams.h"
#include "platform/text.h"
#include "platform/zovel.h"

namespace velconfig {
namespace {

constexpr DBusObject kPlatformService{kIgdService, "/com/zom/igd1/Zomline/PlatformService",
                                      "com.zom.igd1.PlatformService"};

// The request never changes; the reply must echo its "ID".
constexpr char kRequestId[] = "7c2d9e41-5b08-4f6a-93d1-e84a0b6f2c57";
constexpr char kRequest[] =
    "{\"ID\":\"7c2d9e41-5b08-4f6a-93d1-e84a0b6f2c57\",\"SequenceId\":\"12345678\","
    "\"RPCMethod\":\"GetAppMarketURL\"}";
static_assert(sizeof kRequest - 1 == 99, "the request's JSON text is 99 bytes");

constexpr size_t kHeaderBytes = 4;
constexpr size_t kFrameRoom = 256;
// The JSON text of a reply is read up to the header's length, but never more than
// this, however much the header announces.
constexpr size_t kReplyLimit = size_t{64} * 1024;
constexpr size_t kValueRoom = 64;
constexpr size_t kUrlRoom = 576;
constexpr size_t kHostRoom = 64;
constexpr int64_t kNoPort = 65536;  // outside the valid range until read
constexpr int64_t kHighestPort = 65535;

constexpr const char* kConnectFailed = "创建获取URL的连接失败";
constexpr const char* kReplyUnparsed = "解析命令类型参数失败";

// The app market state: module-wide, one exchange at a time, cleared per call.
struct AppMarketState {
  char mac[24];
  char url_host[256];
  char token[256];
  char failure[128];
  uloop_fd watcher;
  uloop_timeout timeout;
  bool reply_logged;
  size_t received;
  char reply[kHeaderBytes + kReplyLimit];
};

AppMarketState state;

void store_failure(const char* reason) { copy_text(state.failure, reason); }

void close_socket() {
  if (state.watcher.fd < 0) return;
  call_scope::release_descriptor(state.watcher.fd);
  state.watcher.fd = -1;
}

// Ends the loop after a reply or a failure of the connection.
void end_exchange() {
  uloop_timeout_cancel(&state.timeout);
  uloop_fd_delete(&state.watcher);
  close_socket();
  uloop_cancelled = true;
}

// Whether the non-blocking connect that just became writable succeeded.
bool connected(int fd) {
  int error = 0;
  socklen_t size = sizeof error;
  return getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

// Writes the whole frame, again after a partial write; false on an error (never
// looping on one) or when the socket stays full for the time-out.
bool send_all(int fd, const unsigned char* data, size_t size) {
  int64_t deadline = monotonic_ms() + app_market_timeout_ms();
  size_t sent = 0;
  while (sent < size) {
    // MSG_NOSIGNAL: a peer that has gone away must not kill the web server.
    ssize_t n = send(fd, data + sent, size - sent, MSG_NOSIGNAL);
    if (n > 0) {
      sent += static_cast<size_t>(n);
    } else if (n < 0 && errno == EINTR) {
      continue;
    } else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      int64_t left = deadline - monotonic_ms();
      struct pollfd p = {fd, POLLOUT, 0};
      if (left <= 0 || poll(&p, 1, static_cast<int>(left)) <= 0) return false;
    } else {
      return false;
    }
  }
  return true;
}

// How many bytes the reply frame has: the header and the length it announces, or
// the most that is ever read while the header is still incomplete.
size_t frame_length() {
  if (state.received < kHeaderBytes) return kHeaderBytes + kReplyLimit;
  const unsigned char* h = reinterpret_cast<const unsigned char*>(state.reply);
  size_t announced = (static_cast<size_t>(h[0]) << 24) | (static_cast<size_t>(h[1]) << 16) |
                     (static_cast<size_t>(h[2]) << 8) | h[3];
  return kHeaderBytes + (announced < kReplyLimit ? announced : kReplyLimit);
}

// Takes what the socket holds. True when the reply is complete, or when the peer
// closed or failed before it was: then what arrived is all there is.
bool receive_more(int fd) {
  size_t room = frame_length() - state.received;
  ssize_t n = recv(fd, state.reply + state.received, room, 0);
  if (n < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK)) return false;
  if (n <= 0) return true;
  state.received += static_cast<size_t>(n);
  return state.received >= frame_length();
}

// Reads the reply's members in order; the first that fails stores its reason.
void read_reply(json_t* reply) {
  char value[kValueRoom] = {};
  if (read_json_text(reply, "ID", value) != 0) return store_failure(kReplyUnparsed);
  if (strcmp(value, kRequestId) != 0) return store_failure("返回ID与请求ID不一致");
  memset(value, 0, sizeof value);
  if (read_json_text(reply, "Status", value) != 0) return store_failure("解析返回状态参数失败");
  if (decimal_value(value) != 0) {
    if (read_json_text(reply, "FailReason", state.failure) != 0) store_failure("解析失败原因参数失败");
    return;
  }
  if (read_json_text(reply, "URL", state.url_host) != 0) return store_failure("解析应用商城URL参数失败");
  if (read_json_text(reply, "token", state.token) != 0) return store_failure("解析token参数失败");
  if (read_json_text(reply, "MAC", state.mac) != 0) store_failure("解析MAC参数失败");
}

// The socket is readable: take the reply, and once it is whole, read it and end.
void on_cloud_reply(uloop_fd* u, unsigned int) {
  if (!state.reply_logged) {
    ZoVelLog(kLogDebug, "Receive message from cloudclient and then to parse it");
    state.reply_logged = true;
  }
  if (!receive_more(u->fd)) return;
  size_t end = state.received < frame_length() ? state.received : frame_length();
  size_t length = end > kHeaderBytes ? end - kHeaderBytes : 0;
  // Called from the event loop: nothing may be thrown through it.
  try {
    ScopedJson reply(json_loadb(state.reply + kHeaderBytes, length, 0, nullptr));
    read_reply(reply.get());
    reply.release();
  } catch (...) {
    store_failure(kReplyUnparsed);
  }
  end_exchange();
}

// The connection became writable (or, for reading, readable): send the request once
// and wait for the reply under the time-out.
void on_cloud_socket(uloop_fd* u, unsigned int events) {
  if ((events & ULOOP_WRITE) == 0) {
    on_cloud_reply(u, events);
    return;
  }
  // A refused connection shows as writable with an error: nothing will answer.
  if (!connected(u->fd)) {
    store_failure(kConnectFailed);
    end_exchange();
    return;
  }
  ZoVelLog(kLogDebug, "Send message to cloudclient to get token and mall URL");
  unsigned char frame[kFrameRoom] = {};
  size_t length = sizeof kRequest - 1;
  memcpy(frame + kHeaderBytes, kRequest, length);
  // The time-out runs from the moment the connection is ready, not from the connect.
  uloop_timeout_set(&state.timeout, app_market_timeout_ms());
  frame[0] = static_cast<unsigned char>(length >> 24);
  frame[1] = static_cast<unsigned char>(length >> 16);
  frame[2] = static_cast<unsigned char>(length >> 8);
  frame[3] = static_cast<unsigned char>(length);
  if (!send_all(u->fd, frame, kHeaderBytes + length)) {
    store_failure(kConnectFailed);
    end_exchange();
    return;
  }
  uloop_fd_delete(u);
  uloop_fd_add(u, ULOOP_READ);
}

// No reply within the time-out after sending.
void on_cloud_timeout(uloop_timeout*) {
  if (state.watcher.fd < 0) return;
  ZoVelLog(kLogNotice, "Receive message timeout, close resource.");
  uloop_fd_delete(&state.watcher);
  close_socket();
  store_failure("获取应用商城URL超时");
  uloop_cancelled = true;
}

// Runs the private event loop over the connecting socket until a callback ends it,
// and tears it down. The socket is closed when this returns.
void run_exchange(int fd) {
  state.watcher.fd = fd;
  state.watcher.cb = on_cloud_socket;
  if (uloop_init() == 0 && uloop_fd_add(&state.watcher, ULOOP_WRITE) == 0) {
    try {
      uloop_run();
    } catch (...) {
      // Only the loop's own bookkeeping can throw (out of memory).
      if (state.failure[0] == '\0') store_failure(kConnectFailed);
    }
  } else {
    store_failure(kConnectFailed);
  }
  uloop_done();
  close_socket();
}

enum class Outcome { kSuccess, kFailure, kBadPort };

// Everything the handler does before it builds its result; no Lua call. On success
// url holds the market's address.
Outcome request_market_url(char (&url)[kUrlRoom]) {
  ZoVelNetworkInfo info = {};
  ZoVelGetNetworkInfo(&info);
  if (!equals_ignoring_case(field_text(info.ipv4_status), "connected") &&
      !equals_ignoring_case(field_text(info.ipv6_status), "connected")) {
    store_failure("Internet网络未连接");
    return Outcome::kFailure;
  }
  ZoVelLog(kLogDebug, "WAN has connectd");
  char lan_ip[sizeof info.lan_ipv4 + 1] = {};
  copy_text(lan_ip, field_text(info.lan_ipv4));
  if (lan_ip[0] == '\0' || strcmp(lan_ip, "0.0.0.0") == 0) {
    store_failure("本地IP错误");
    return Outcome::kFailure;
  }

  int64_t port = kNoPort;
  uint32_t local_port = 0;
  if (read_uint32_property(kPlatformService, "LocalPort", &local_port)) port = local_port;
  if (port > kHighestPort) {
    ZoVelLog(kLogNotice, "Get local port failed or port is not 0 ~ 65535");
    ZoVelLog(kLogNotice, "获取应用商城URL失败，错误原因: 本地连接端口不在0~65535之间");
    return Outcome::kBadPort;
  }
  ZoVelLog(kLogDebug, "Get local port successfully and it is %d", static_cast<int>(port));
  char port_text[16] = {};
  snprintf(port_text, sizeof port_text, "%d", static_cast<int>(port));
  // The daemon listens on the gateway's own LAN address, not on the loopback one.
  char host[kHostRoom] = {};
  int fd =
      cloud_client_host(lan_ip, host, sizeof host) ? usock(USOCK_TCP | USOCK_NONBLOCK, host, port_text) : -1;
  if (fd < 0) {
    store_failure(kConnectFailed);
    return Outcome::kFailure;
  }
  call_scope::keep_descriptor(fd);
  run_exchange(fd);

  if (state.url_host[0] != '\0' && state.token[0] != '\0' && state.mac[0] != '\0') {
    snprintf(url, sizeof url, "https://%s/appmarket?token=%s&MAC=%s", state.url_host, state.token, state.mac);
    return Outcome::kSuccess;
  }
  if (state.failure[0] == '\0') {
    store_failure(state.url_host[0] == '\0' ? "获取URL为空"
                  : state.token[0] == '\0'  ? "获取token为空"
                                            : "获取MAC为空");
  }
  return Outcome::kFailure;
}

}  // namespace

void get_mall_url(lua_State* L, const GetArgs&) {
  char url[kUrlRoom] = {};
  ZoVelLog(kLogDebug, "Enter, beginning to get app mall URL");
  memset(&state, 0, sizeof state);
  state.watcher.fd = -1;
  state.timeout.cb = on_cloud_timeout;
  Outcome outcome = request_market_url(url);
  if (outcome == Outcome::kFailure) {
    ZoVelLog(kLogNotice, "获取应用商城URL失败，错误原因: %s", state.failure);
  } else if (outcome == Outcome::kSuccess) {
    ZoVelLog(kLogDebug, "获取应用商城URL成功");
  }

  lua_newtable(L);
  if (outcome == Outcome::kSuccess) set_text(L, "url", url);
  set_number(L, "result", outcome == Outcome::kSuccess ? 0 : 1);
}

}  // namespace velconfig
