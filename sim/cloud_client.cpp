// The gateway's cloud client daemon as the simulator provides it: a real TCP
// listener on 127.0.0.1, started the first time the platform is asked for its port
// ("LocalPort"), serving one connection at a time on its own thread. It answers each
// framed request with a framed reply built from the model (echoing the request's
// "ID"), or as tests script it. The thread never touches the model: what the model
// says is taken when the port is read.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "sim/cloud.h"
#include "sim/dbus.h"
#include "sim/sim.h"
#include "sim/sim_seams.h"

namespace velsim {
namespace {

constexpr size_t kKeptExchanges = 1000;

constexpr size_t kHeaderBytes = 4;
constexpr size_t kRequestLimit = size_t{64} * 1024;
constexpr int kRequestWaitMs = 5000;  // for the rest of a request that has begun
constexpr int kCloseWaitMs = 60000;   // for the client to close once answered (or in silence)
constexpr int kDefaultTimeoutMs = 20000;

enum class Mode { kModel, kScripted, kSilent, kRefuse };

struct Peer {
  std::mutex lock;
  std::condition_variable progress;
  bool started = false;
  bool busy = false;
  uint16_t port = 0;
  uint16_t refusing_port = 0;  // bound, never listening
  Mode mode = Mode::kModel;
  std::string model_members;  // the model's reply members as JSON text
  std::string scripted;
  int pieces = 1;
  int pause_ms = 0;
  bool close_after = false;  // hang up once the reply is written
  // The newest exchanges (at most kKeptExchanges, so a long-lived process does not
  // grow with them) and how many were served since the last reset.
  std::vector<CloudExchange> exchanges;
  size_t served = 0;
  std::atomic<int> timeout_ms{kDefaultTimeoutMs};
};

// Never destroyed: the serving thread outlives the library's static destruction.
Peer& peer() {
  static Peer* p = new Peer;
  return *p;
}

std::string framed(const std::string& json) {
  size_t n = json.size();
  std::string frame = {static_cast<char>(n >> 24), static_cast<char>(n >> 16), static_cast<char>(n >> 8),
                       static_cast<char>(n)};
  return frame + json;
}

// Waits until fd is readable; false after wait_ms.
bool readable(int fd, int wait_ms) {
  struct pollfd p = {fd, POLLIN, 0};
  int ready;
  do {
    ready = poll(&p, 1, wait_ms);
  } while (ready < 0 && errno == EINTR);
  return ready > 0;
}

// Appends up to want bytes to out; false when the peer closed, failed or went quiet.
bool receive(int fd, std::string* out, size_t want) {
  char buf[4096];
  while (want > 0) {
    if (!readable(fd, kRequestWaitMs)) return false;
    ssize_t n = recv(fd, buf, want < sizeof buf ? want : sizeof buf, 0);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    out->append(buf, static_cast<size_t>(n));
    want -= static_cast<size_t>(n);
  }
  return true;
}

// The request: its header, then as much JSON as the header announces (bounded).
std::string read_request(int fd) {
  std::string request;
  if (!receive(fd, &request, kHeaderBytes)) return request;
  const unsigned char* h = reinterpret_cast<const unsigned char*>(request.data());
  size_t announced = (static_cast<size_t>(h[0]) << 24) | (static_cast<size_t>(h[1]) << 16) |
                     (static_cast<size_t>(h[2]) << 8) | h[3];
  receive(fd, &request, announced < kRequestLimit ? announced : kRequestLimit);
  return request;
}

// The model's reply to request: its "ID" and "SequenceId" echoed, then the members.
std::string model_reply(const std::string& request, const std::string& members) {
  json_t* asked = request.size() > kHeaderBytes
                      ? json_loadb(request.data() + kHeaderBytes, request.size() - kHeaderBytes, 0, nullptr)
                      : nullptr;
  json_t* reply = json_object();
  for (const char* echoed : {"ID", "SequenceId"}) {
    json_t* v = json_object_get(asked, echoed);
    json_object_set_new(reply, echoed, json_string(json_is_string(v) ? json_string_value(v) : ""));
  }
  json_t* rest = json_loads(members.c_str(), 0, nullptr);
  json_object_update(reply, rest);
  json_decref(rest);
  json_decref(asked);
  char* text = json_dumps(reply, JSON_COMPACT);
  std::string out = text != nullptr ? text : "{}";
  free(text);
  json_decref(reply);
  char* hostile = g_strdup(out.c_str());
  if (hostile_text(&hostile)) out = hostile;
  g_free(hostile);
  return framed(out);
}

void send_pieces(int fd, const std::string& bytes, int pieces, int pause_ms) {
  size_t count = pieces > 1 ? static_cast<size_t>(pieces) : 1;
  size_t step = (bytes.size() + count - 1) / count;
  for (size_t at = 0; at < bytes.size(); at += step) {
    if (at > 0 && pause_ms > 0) std::this_thread::sleep_for(std::chrono::milliseconds(pause_ms));
    size_t n = bytes.size() - at < step ? bytes.size() - at : step;
    for (size_t done = 0; done < n;) {
      ssize_t w = send(fd, bytes.data() + at + done, n - done, MSG_NOSIGNAL);
      if (w < 0 && errno == EINTR) continue;
      if (w <= 0) return;
      done += static_cast<size_t>(w);
    }
  }
}

// Waits for the client to close; whatever else it sends is dropped.
bool closed_by_client(int fd) {
  char buf[512];
  for (;;) {
    if (!readable(fd, kCloseWaitMs)) return false;
    ssize_t n = recv(fd, buf, sizeof buf, 0);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return true;
  }
}

// Answers one connection as the script says at the time the request is complete.
void answer(int fd, CloudExchange* exchange) {
  Peer& p = peer();
  int one = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  exchange->request = read_request(fd);
  std::string reply;
  int pieces = 1;
  int pause_ms = 0;
  bool close_after = false;
  {
    std::lock_guard<std::mutex> guard(p.lock);
    if (p.mode == Mode::kScripted) reply = p.scripted;
    if (p.mode == Mode::kModel || p.mode == Mode::kRefuse) {
      reply = model_reply(exchange->request, p.model_members);
    }
    pieces = p.pieces;
    pause_ms = p.pause_ms;
    close_after = p.close_after;
  }
  send_pieces(fd, reply, pieces, pause_ms);
  if (close_after) return;
  exchange->closed_by_client = closed_by_client(fd);
}

void serve(int listener) {
  Peer& p = peer();
  for (;;) {
    int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) {
      if (errno != EINTR && errno != ECONNABORTED) std::this_thread::sleep_for(std::chrono::milliseconds(10));
      continue;
    }
    {
      std::lock_guard<std::mutex> guard(p.lock);
      p.busy = true;
    }
    CloudExchange exchange;
    try {
      answer(fd, &exchange);
    } catch (...) {
      // Out of memory: the connection is dropped, as a daemon in trouble would.
    }
    // Closed before the exchange is reported, so a test that waited for it sees every
    // descriptor of the connection gone.
    close(fd);
    {
      std::lock_guard<std::mutex> guard(p.lock);
      try {
        p.exchanges.push_back(exchange);
        if (p.exchanges.size() > kKeptExchanges) p.exchanges.erase(p.exchanges.begin());
        ++p.served;
      } catch (...) {
      }
      p.busy = false;
    }
    p.progress.notify_all();
  }
}

// A TCP socket bound to an ephemeral port of 127.0.0.1; -1 on failure.
int loopback_socket(uint16_t* port) {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  struct sockaddr_in a = {};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof a;
  if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 ||
      getsockname(fd, reinterpret_cast<sockaddr*>(&a), &size) != 0) {
    close(fd);
    return -1;
  }
  *port = ntohs(a.sin_port);
  return fd;
}

// Starts the daemon once; false when it cannot listen. Called with the lock held.
bool start_locked(Peer& p) {
  if (p.started) return true;
  uint16_t port = 0;
  uint16_t refusing_port = 0;
  int listener = loopback_socket(&port);
  if (listener < 0) return false;
  // Kept bound for the life of the process, so no one else takes the refusing port.
  int refusing = loopback_socket(&refusing_port);
  if (refusing < 0 || listen(listener, 16) != 0) {
    close(listener);
    if (refusing >= 0) close(refusing);
    return false;
  }
  std::thread(serve, listener).detach();
  p.port = port;
  p.refusing_port = refusing_port;
  p.started = true;
  return true;
}

// The members the model has the daemon answer with, after "ID" and "SequenceId".
std::string model_members() {
  json_t* cloud = json_object_get(model(), "cloud_client");
  json_t* status = json_object_get(cloud, "status");
  json_t* members = json_object();
  json_object_set_new(members, "Status", status != nullptr ? json_deep_copy(status) : json_string("0"));
  bool ok = json_is_string(status) ? strtol(json_string_value(status), nullptr, 10) == 0
                                   : status == nullptr || number_of(status, 0) == 0;
  if (ok) {
    json_object_set_new(members, "URL", json_string(text_of(cloud, "url")));
    json_object_set_new(members, "token", json_string(text_of(cloud, "token")));
    json_object_set_new(members, "MAC",
                        json_string(text_of(cloud, "mac", text_of(object_at("device"), "mac"))));
  } else {
    json_object_set_new(members, "FailReason", json_string(text_of(cloud, "fail_reason")));
  }
  char* text = json_dumps(members, JSON_COMPACT);
  std::string out = text != nullptr ? text : "{}";
  free(text);
  json_decref(members);
  return out;
}

// "LocalPort": the daemon's port (the refusing one when scripted so), or the model's
// cloud_client.local_port when it gives one.
GVariant* local_port(const char*) {
  json_t* fixed = json_object_get(json_object_get(model(), "cloud_client"), "local_port");
  if (json_is_integer(fixed)) return g_variant_new_uint32(static_cast<uint32_t>(json_integer_value(fixed)));
  std::string members = model_members();
  Peer& p = peer();
  std::lock_guard<std::mutex> guard(p.lock);
  if (!start_locked(p)) return nullptr;
  p.model_members = members;
  return g_variant_new_uint32(p.mode == Mode::kRefuse ? p.refusing_port : p.port);
}

const PropertyTable kCloudProperties{
    {"com.zom.igd1", "/com/zom/igd1/Zomline/PlatformService", "com.zom.igd1.PlatformService", "LocalPort",
     local_port, nullptr},
};

void set_mode(Mode mode, const std::string& bytes, int pieces, int pause_ms, bool close_after = false) {
  Peer& p = peer();
  std::lock_guard<std::mutex> guard(p.lock);
  p.mode = mode;
  p.scripted = bytes;
  p.pieces = pieces;
  p.pause_ms = pause_ms;
  p.close_after = close_after;
}

}  // namespace

void cloud_from_model() { set_mode(Mode::kModel, "", 1, 0); }
void cloud_reply(const std::string& bytes, int pieces, int pause_ms, bool close_after) {
  set_mode(Mode::kScripted, bytes, pieces, pause_ms, close_after);
}
void cloud_silent() { set_mode(Mode::kSilent, "", 1, 0); }
void cloud_refuse() { set_mode(Mode::kRefuse, "", 1, 0); }

std::vector<CloudExchange> cloud_exchanges(size_t n, int wait_ms) {
  Peer& p = peer();
  std::unique_lock<std::mutex> guard(p.lock);
  p.progress.wait_for(guard, std::chrono::milliseconds(wait_ms), [&] { return p.served >= n; });
  return p.exchanges;
}

void set_app_market_timeout(int ms) { peer().timeout_ms = ms; }

void reset_cloud() {
  Peer& p = peer();
  std::unique_lock<std::mutex> guard(p.lock);
  // A connection of an earlier call still being finished would otherwise report late.
  p.progress.wait_for(guard, std::chrono::seconds(2), [&] { return !p.busy; });
  p.mode = Mode::kModel;
  p.scripted.clear();
  p.pieces = 1;
  p.pause_ms = 0;
  p.exchanges.clear();
  p.served = 0;
  p.timeout_ms = kDefaultTimeoutMs;
}

}  // namespace velsim

extern "C" __attribute__((visibility("default"))) int velconfig_sim_app_market_timeout_ms(void) {
  std::lock_guard<std::recursive_mutex> hold(velsim::platform_mutex());
  return velsim::peer().timeout_ms;
}
