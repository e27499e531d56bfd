// "getMallUrl": the app market's address, issued by the gateway's cloud client
// daemon together with an access token and a MAC. One framed JSON request and one
// framed JSON reply over TCP, inside a private libubox event loop with a time-out.
// The whole exchange runs, and its state leaves the loop, before the handler touches
// Lua, so no Lua error can leave the loop's state or the socket behind.
#include <errno.h>
#include <glib.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

extern "C" {
#include <libubox/uloop.h>
#include <libubox/usock.h>
}

#include <algorithm>

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

// A socket that is full or has nothing yet says so with one code on this system.
static_assert(EAGAIN == EWOULDBLOCK, "EWOULDBLOCK is EAGAIN");

constexpr size_t kHeaderBytes = 4;
constexpr size_t kFrameRoom = 256;
// The JSON text of a reply is read up to the header's length, but never more than
// this, however much the header announces.
constexpr size_t kReplyLimit = size_t{64} * 1024;
constexpr size_t kValueRoom = 64;
constexpr size_t kMacRoom = 24;
constexpr size_t kUrlHostRoom = 256;
constexpr size_t kTokenRoom = 256;
constexpr char kUrlFormat[] = "https://%s/appmarket?token=%s&MAC=%s";
// Room for the longest address (a few bytes to spare): every query byte may become a
// three-byte escape, so the address is never cut.
constexpr size_t kUrlRoom = sizeof kUrlFormat + kUrlHostRoom + 3 * kTokenRoom + 3 * kMacRoom;
constexpr int64_t kNoPort = 65536;  // outside the valid range until read
constexpr int64_t kHighestPort = 65535;

constexpr const char* kConnectFailed = "创建获取URL的连接失败";
constexpr const char* kReplyUnparsed = "解析命令类型参数失败";
constexpr const char* kTimedOut = "获取应用商城URL超时";

// One exchange's state. It lives in the call (on the heap: the web server's stacks
// are small), and the loop's callbacks find it from the handles embedded in it.
struct AppMarketState {
  char mac[kMacRoom];
  char url_host[kUrlHostRoom];
  char token[kTokenRoom];
  char failure[128];
  uloop_fd watcher;
  uloop_timeout timeout;
  bool finished;  // a callback of ours ended the loop
  bool reply_logged;
  size_t received;
  char reply[kHeaderBytes + kReplyLimit];
};

AppMarketState* state_of(uloop_fd* u) {
  return reinterpret_cast<AppMarketState*>(reinterpret_cast<char*>(u) - offsetof(AppMarketState, watcher));
}
AppMarketState* state_of(uloop_timeout* t) {
  return reinterpret_cast<AppMarketState*>(reinterpret_cast<char*>(t) - offsetof(AppMarketState, timeout));
}

// Released with the call: its handles leave any loop first, so a loop that outlives
// the call never holds a pointer into freed memory.
void free_state(AppMarketState* s) {
  uloop_timeout_cancel(&s->timeout);
  if (s->watcher.registered) uloop_fd_delete(&s->watcher);
  g_free(s);
}
using ScopedState = Scoped<AppMarketState, free_state>;

void store_failure(AppMarketState* s, const char* reason) { copy_text(s->failure, reason); }

void close_socket(AppMarketState* s) {
  if (s->watcher.fd < 0) return;
  call_scope::release_descriptor(s->watcher.fd);
  s->watcher.fd = -1;
}

// Ends the loop after a reply or a failure of the connection.
void end_exchange(AppMarketState* s) {
  uloop_timeout_cancel(&s->timeout);
  uloop_fd_delete(&s->watcher);
  close_socket(s);
  s->finished = true;
  uloop_end();
}

// Whether the non-blocking connect that just became writable succeeded.
bool connected(int fd) {
  int error = 0;
  socklen_t size = sizeof error;
  return getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

// Writes the whole frame, again after a partial write, within the exchange's time
// left; false on an error (never looping on one) or when the socket stays full.
bool send_all(AppMarketState* s, const unsigned char* data, size_t size) {
  int fd = s->watcher.fd;
  int64_t deadline = monotonic_ms() + uloop_timeout_remaining64(&s->timeout);
  size_t sent = 0;
  while (sent < size) {
    // MSG_NOSIGNAL: a peer that has gone away must not kill the web server.
    ssize_t n = send(fd, data + sent, size - sent, MSG_NOSIGNAL);
    if (n > 0) {
      sent += static_cast<size_t>(n);
    } else if (n < 0 && errno == EINTR) {
      continue;
    } else if (n < 0 && errno == EAGAIN) {
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
size_t frame_length(const AppMarketState* s) {
  if (s->received < kHeaderBytes) return kHeaderBytes + kReplyLimit;
  const unsigned char* h = reinterpret_cast<const unsigned char*>(s->reply);
  size_t announced = (static_cast<size_t>(h[0]) << 24) | (static_cast<size_t>(h[1]) << 16) |
                     (static_cast<size_t>(h[2]) << 8) | h[3];
  return kHeaderBytes + std::min(announced, kReplyLimit);
}

enum class Received { kWaiting, kComplete, kCutShort };

// Takes what the socket holds. A peer that closes (a read of 0) or fails before
// the frame is whole has cut it short: what arrived is not the reply.
Received receive_more(AppMarketState* s) {
  size_t room = frame_length(s) - s->received;
  ssize_t n = recv(s->watcher.fd, s->reply + s->received, room, 0);
  if (n < 0 && (errno == EINTR || errno == EAGAIN)) return Received::kWaiting;
  if (n <= 0) return Received::kCutShort;
  s->received += static_cast<size_t>(n);
  return s->received >= frame_length(s) ? Received::kComplete : Received::kWaiting;
}

// A value that can go into the address as it is: no control character and no
// space anywhere in it (judged over the whole JSON string, before any cut).
bool url_safe(json_t* reply, const char* key) {
  json_t* value = json_object_get(reply, key);
  const char* text = json_string_value(value);
  size_t length = json_string_length(value);
  for (size_t i = 0; text != nullptr && i < length; ++i) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    if (c <= 0x20 || c == 0x7f) return false;
  }
  return true;
}

// Reads text member key into dest, cut at a whole character when it does not fit;
// -1 when it is absent, not a string, or holds a control character or a space.
template <size_t N>
int32_t read_url_part(json_t* reply, const char* key, char (&dest)[N]) {
  if (read_json_text(reply, key, dest) != 0 || !url_safe(reply, key)) {
    memset(dest, 0, N);
    return -1;
  }
  // A cut before a continuation byte splits a character: back to its first byte.
  size_t n = strlen(dest);
  const char* whole = json_string_value(json_object_get(reply, key));
  if (n < json_string_length(json_object_get(reply, key))) {
    while (n > 0 && (static_cast<unsigned char>(whole[n]) & 0xC0) == 0x80) --n;
    memset(dest + n, 0, N - n);
  }
  return 0;
}

// Reads the reply's members in order; the first that fails stores its reason.
void read_reply(AppMarketState* s, json_t* reply) {
  char value[kValueRoom] = {};
  if (read_json_text(reply, "ID", value) != 0) return store_failure(s, kReplyUnparsed);
  if (strcmp(value, kRequestId) != 0) return store_failure(s, "返回ID与请求ID不一致");
  char status[kValueRoom] = {};
  if (read_json_text(reply, "Status", status) != 0) return store_failure(s, "解析返回状态参数失败");
  if (decimal_value(status) != 0) {
    if (read_json_text(reply, "FailReason", s->failure) != 0) store_failure(s, "解析失败原因参数失败");
    return;
  }
  if (read_url_part(reply, "URL", s->url_host) != 0) return store_failure(s, "解析应用商城URL参数失败");
  if (read_url_part(reply, "token", s->token) != 0) return store_failure(s, "解析token参数失败");
  if (read_url_part(reply, "MAC", s->mac) != 0) store_failure(s, "解析MAC参数失败");
}

// The socket is readable: take the reply, and once it is whole, read it and end.
void on_cloud_reply(uloop_fd* u, unsigned int) {
  AppMarketState* s = state_of(u);
  if (!s->reply_logged) {
    ZoVelLog(kLogDebug, "Receive message from cloudclient and then to parse it");
    s->reply_logged = true;
  }
  Received got = receive_more(s);
  if (got == Received::kWaiting) return;
  if (got == Received::kCutShort) {
    store_failure(s, kReplyUnparsed);
    end_exchange(s);
    return;
  }
  // Called from the event loop: nothing may be thrown through it.
  try {
    // Bytes past the announced length are not part of the reply.
    size_t end = s->received < frame_length(s) ? s->received : frame_length(s);
    ScopedJson reply(json_loadb(s->reply + kHeaderBytes, end - kHeaderBytes, 0, nullptr));
    read_reply(s, reply.get());
  } catch (...) {
    store_failure(s, kReplyUnparsed);
  }
  end_exchange(s);
}

// The connection became writable (or, for reading, readable): send the request once
// and wait for the reply under the time-out.
void on_cloud_socket(uloop_fd* u, unsigned int events) {
  if ((events & ULOOP_WRITE) == 0) {
    on_cloud_reply(u, events);
    return;
  }
  AppMarketState* s = state_of(u);
  // A refused connection shows as writable with an error: nothing will answer.
  if (!connected(u->fd)) {
    store_failure(s, kConnectFailed);
    end_exchange(s);
    return;
  }
  ZoVelLog(kLogDebug, "Send message to cloudclient to get token and mall URL");
  unsigned char frame[kFrameRoom] = {};
  size_t length = sizeof kRequest - 1;
  memcpy(frame + kHeaderBytes, kRequest, length);
  frame[0] = static_cast<unsigned char>(length >> 24);
  frame[1] = static_cast<unsigned char>(length >> 16);
  frame[2] = static_cast<unsigned char>(length >> 8);
  frame[3] = static_cast<unsigned char>(length);
  if (!send_all(s, frame, kHeaderBytes + length)) {
    store_failure(s, kConnectFailed);
    end_exchange(s);
    return;
  }
  uloop_fd_delete(u);
  uloop_fd_add(u, ULOOP_READ);
}

// No reply within the time-out of the exchange, which runs from the connect.
void on_cloud_timeout(uloop_timeout* t) {
  AppMarketState* s = state_of(t);
  if (s->watcher.fd < 0) return;
  ZoVelLog(kLogNotice, "Receive message timeout, close resource.");
  uloop_fd_delete(&s->watcher);
  close_socket(s);
  store_failure(s, kTimedOut);
  s->finished = true;
  uloop_end();
}

// The signals libubox takes over when a loop is made: it catches SIGINT, SIGTERM
// and SIGCHLD (then reaping every child of the process) and ignores SIGPIPE; when
// the loop goes, SIGPIPE is set back to the default even where the web server had
// ignored it. None of that may reach the web server, so a loop of our own runs with
// the server's dispositions, put back right after libubox set its own and again
// after it tore them down. The signals stay blocked meanwhile; one that arrived is
// delivered once they are unblocked, to the server's own disposition.
constexpr int kLoopSignals[] = {SIGINT, SIGTERM, SIGCHLD, SIGPIPE};
constexpr size_t kLoopSignalCount = sizeof kLoopSignals / sizeof kLoopSignals[0];

struct ServerSignals {
  struct sigaction actions[kLoopSignalCount];
  sigset_t mask;
};

// Blocks the loop's signals in this thread; records the server's dispositions once.
void hold_signals(ServerSignals* server, bool record) {
  sigset_t loop;
  sigemptyset(&loop);
  for (int signo : kLoopSignals) sigaddset(&loop, signo);
  pthread_sigmask(SIG_BLOCK, &loop, &server->mask);
  for (size_t i = 0; record && i < kLoopSignalCount; ++i)
    sigaction(kLoopSignals[i], nullptr, &server->actions[i]);
}

// Puts the server's dispositions back, then unblocks what it had unblocked.
void give_back_signals(const ServerSignals* server) {
  for (size_t i = 0; i < kLoopSignalCount; ++i) sigaction(kLoopSignals[i], &server->actions[i], nullptr);
  pthread_sigmask(SIG_SETMASK, &server->mask, nullptr);
}

// Runs the loop until a callback of ours ends it; true when something else ended it
// first (a SIGTERM the server's loop caught, or the server's own uloop_end).
bool run_until_finished(AppMarketState* s) {
  int stopped_by = 0;
  try {
    stopped_by = uloop_run();
  } catch (...) {
    // Only the loop's own bookkeeping can throw (out of memory).
    if (s->failure[0] == '\0') store_failure(s, kConnectFailed);
    return false;
  }
  return stopped_by != 0 || !s->finished;
}

// Runs the exchange over the connecting socket until a callback ends it, and closes
// the socket. A loop that already runs in this process (the web server's own) is
// joined and left as it was found, except that a stop asked for before or during
// the wait stays asked for; only a loop made here is torn down.
void run_exchange(AppMarketState* s, int fd) {
  s->watcher.fd = fd;
  s->watcher.cb = on_cloud_socket;
  s->timeout.cb = on_cloud_timeout;
  bool cancelled = uloop_cancelled;
  bool stop_asked = false;
  // Adding a watcher fails while no loop exists; then the loop is ours to make.
  bool own_loop = uloop_fd_add(&s->watcher, ULOOP_WRITE) != 0;
  ServerSignals server;
  bool ready = true;
  if (own_loop) {
    hold_signals(&server, true);
    ready = uloop_init() == 0 && uloop_fd_add(&s->watcher, ULOOP_WRITE) == 0;
    give_back_signals(&server);
  }
  if (!ready) {
    store_failure(s, kConnectFailed);
  } else if (!own_loop && cancelled) {
    // The server's loop is ending: running it again would clear its stop.
    store_failure(s, kTimedOut);
  } else {
    uloop_timeout_set(&s->timeout, app_market_timeout_ms());
    stop_asked = run_until_finished(s);
    if (stop_asked && s->failure[0] == '\0') store_failure(s, kTimedOut);
  }
  uloop_timeout_cancel(&s->timeout);
  if (s->watcher.registered) uloop_fd_delete(&s->watcher);
  if (own_loop) {
    hold_signals(&server, false);
    uloop_done();
    give_back_signals(&server);
  }
  uloop_cancelled = cancelled || stop_asked;
  close_socket(s);
}

// The token and the MAC as query values: every byte but the unreserved ones
// (RFC 3986: letters, digits, "-._~") as %XX, so no value can add a parameter.
void append_query_value(char* out, size_t cap, const char* value) {
  size_t used = strlen(out);
  for (const unsigned char* p = reinterpret_cast<const unsigned char*>(value); *p != 0; ++p) {
    bool plain = g_ascii_isalnum(*p) || *p == '-' || *p == '.' || *p == '_' || *p == '~';
    if (used + (plain ? 1 : 3) >= cap) return;
    if (plain) {
      out[used++] = static_cast<char>(*p);
    } else {
      snprintf(out + used, cap - used, "%%%02X", *p);
      used += 3;
    }
  }
  out[used] = '\0';
}

void build_url(const AppMarketState* s, char (&url)[kUrlRoom]) {
  snprintf(url, sizeof url, "https://%s/appmarket?token=", s->url_host);
  append_query_value(url, sizeof url, s->token);
  size_t used = strlen(url);
  snprintf(url + used, sizeof url - used, "&MAC=");
  append_query_value(url, sizeof url, s->mac);
}

enum class Outcome { kSuccess, kFailure, kBadPort };

// Everything the handler does before it builds its result; no Lua call. On success
// url holds the market's address.
Outcome request_market_url(AppMarketState* s, char (&url)[kUrlRoom]) {
  ZoVelNetworkInfo info = {};
  ZoVelGetNetworkInfo(&info);
  if (!equals_ignoring_case(field_text(info.ipv4_status), "connected") &&
      !equals_ignoring_case(field_text(info.ipv6_status), "connected")) {
    store_failure(s, "Internet网络未连接");
    return Outcome::kFailure;
  }
  ZoVelLog(kLogDebug, "WAN has connectd");
  char lan_ip[sizeof info.lan_ipv4 + 1] = {};
  copy_text(lan_ip, field_text(info.lan_ipv4));
  if (lan_ip[0] == '\0' || strcmp(lan_ip, "0.0.0.0") == 0) {
    store_failure(s, "本地IP错误");
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
  char host[sizeof lan_ip] = {};  // the LAN address, or the simulator's loopback one
  int fd =
      cloud_client_host(lan_ip, host, sizeof host) ? usock(USOCK_TCP | USOCK_NONBLOCK, host, port_text) : -1;
  if (fd < 0) {
    store_failure(s, kConnectFailed);
    return Outcome::kFailure;
  }
  call_scope::keep_descriptor(fd);
  run_exchange(s, fd);

  if (s->failure[0] == '\0' && s->url_host[0] != '\0' && s->token[0] != '\0' && s->mac[0] != '\0') {
    build_url(s, url);
    return Outcome::kSuccess;
  }
  if (s->failure[0] == '\0') {
    store_failure(s, s->url_host[0] == '\0' ? "获取URL为空"
                     : s->token[0] == '\0'  ? "获取token为空"
                                            : "获取MAC为空");
  }
  return Outcome::kFailure;
}

}  // namespace

void get_mall_url(lua_State* L, const GetArgs&) {
  char url[kUrlRoom] = {};
  ZoVelLog(kLogDebug, "Enter, beginning to get app mall URL");
  ScopedState state(static_cast<AppMarketState*>(g_malloc0(sizeof(AppMarketState))));
  state.get()->watcher.fd = -1;
  Outcome outcome = request_market_url(state.get(), url);
  if (outcome == Outcome::kFailure) {
    ZoVelLog(kLogNotice, "获取应用商城URL失败，错误原因: %s", state.get()->failure);
  } else if (outcome == Outcome::kSuccess) {
    ZoVelLog(kLogDebug, "获取应用商城URL成功");
  }

  lua_newtable(L);
  if (outcome == Outcome::kSuccess) set_text(L, "url", url);
  set_number(L, "result", outcome == Outcome::kSuccess ? 0 : 1);
}

}  // namespace velconfig
