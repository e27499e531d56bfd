// velconfig_http: a Lua module that serves HTTP on the loopback address with
// libmicrohttpd, in the calling interpreter's own thread, one request at a time, the
// way the gateway's web server hosts the pages. Each request is handed to a Lua
// function that answers with a status, a content type, a body and optional headers.
#include <arpa/inet.h>
#include <ctype.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <time.h>

#include <algorithm>
#include <lua.hpp>
#include <new>
#include <vector>

namespace {

// Bodies larger than this are refused: pages send small JSON objects.
constexpr size_t kBodyLimit = size_t{64} * 1024;

// epoll has no descriptor ceiling of its own, so the limit is ours: enough for a
// browser and a few hundred idle clients, and the idle time-out frees what a client
// leaves open, so that slow clients cannot hold every slot for long.
constexpr unsigned int kConnectionLimit = 2048;
constexpr unsigned int kIdleSeconds = 10;
// The whole header of a request must arrive within this time: the idle time-out
// alone lets a client that sends one line every few seconds hold its slot for ever.
constexpr int64_t kHeaderMs = 5000;
// Descriptors kept free beside the connections: the listening socket, epoll, the
// state file, the pages being read.
constexpr rlim_t kSpareDescriptors = 64;

// Sent with every answer: the pages load only their own files and are never framed,
// the browser takes each content type as given, and no address leaks in a Referer.
constexpr const char* kSecurityHeaders[][2] = {
    {"Content-Security-Policy",
     "default-src 'self'; frame-ancestors 'none'; base-uri 'none'; form-action 'self'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cache-Control", "no-store"},
};

volatile sig_atomic_t stop_requested = 0;

// libmicrohttpd's own messages matter while the daemon starts (a port in use); once
// it serves, they only tell of clients that went away half-way, which is theirs.
bool serving = false;

void log_until_serving(void*, const char* format, va_list args) {
  if (!serving) vfprintf(stderr, format, args);
}

void on_stop_signal(int) { stop_requested = 1; }

// One request: its address as the client sent it (with the query) and what it has
// received of its body so far.
struct Upload {
  char* uri;
  char* data;
  size_t size;
  bool started;
  bool too_large;
};

// A connection waiting for a request's header, since when (monotonic ms).
struct Waiting {
  int fd;
  int64_t since_ms;
  bool header_done;
  Waiting* prev;
  Waiting* next;
};

// Trivially destructible: l_serve raises Lua errors while it is alive.
struct Server {
  lua_State* L;
  int handler_ref;
  Waiting* connections;  // a list linked through Waiting::next
};

int64_t monotonic_ms() {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<int64_t>(t.tv_sec) * 1000 + t.tv_nsec / 1000000;
}

// Tracks each connection from its start, for the header deadline.
void on_connection(void* cls, struct MHD_Connection* connection, void** socket_context,
                   enum MHD_ConnectionNotificationCode code) {
  Server* server = static_cast<Server*>(cls);
  if (code == MHD_CONNECTION_NOTIFY_STARTED) {
    const union MHD_ConnectionInfo* info =
        MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    Waiting* w = new (std::nothrow)
        Waiting{info != nullptr ? info->connect_fd : -1, monotonic_ms(), false, nullptr, server->connections};
    if (w != nullptr) {
      if (server->connections != nullptr) server->connections->prev = w;
      server->connections = w;
    }
    *socket_context = w;
  } else {
    Waiting* w = static_cast<Waiting*>(*socket_context);
    if (w == nullptr) return;
    if (w->prev != nullptr) w->prev->next = w->next;
    if (w->next != nullptr) w->next->prev = w->prev;
    if (server->connections == w) server->connections = w->next;
    delete w;
    *socket_context = nullptr;
  }
}

Waiting* waiting_of(struct MHD_Connection* connection) {
  const union MHD_ConnectionInfo* info =
      MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
  return info != nullptr ? static_cast<Waiting*>(info->socket_context) : nullptr;
}

// Ends every connection whose request header is still incomplete after the deadline:
// shut down under libmicrohttpd, which then reads the end and closes it as usual.
void end_late_headers(Server* server) {
  int64_t now = monotonic_ms();
  for (Waiting* w = server->connections; w != nullptr; w = w->next) {
    if (!w->header_done && w->fd >= 0 && now - w->since_ms > kHeaderMs) {
      shutdown(w->fd, SHUT_RDWR);
      w->header_done = true;  // shut once
    }
  }
}

void free_upload(void*, struct MHD_Connection* connection, void** con_cls, enum MHD_RequestTerminationCode) {
  // The next request on a kept-alive connection has its own header deadline.
  Waiting* w = waiting_of(connection);
  if (w != nullptr) {
    w->since_ms = monotonic_ms();
    w->header_done = false;
  }
  Upload* upload = static_cast<Upload*>(*con_cls);
  if (upload != nullptr) {
    free(upload->uri);
    free(upload->data);
    free(upload);
  }
  *con_cls = nullptr;
}

// libmicrohttpd hands the address on to the handler without its query; this keeps
// it whole for the handler (a CGI page's QUERY_STRING, REQUEST_URI).
void* keep_uri(void*, const char* uri, struct MHD_Connection*) {
  Upload* upload = static_cast<Upload*>(calloc(1, sizeof(Upload)));
  if (upload != nullptr && uri != nullptr) upload->uri = strdup(uri);
  return upload;
}

// The handler's own value for a header, or null. A handler gives "" to leave out one
// of the headers sent with every answer (a page folder's pages run their own scripts).
const char* handler_header(lua_State* L, int extra, const char* name) {
  if (L == nullptr || extra == 0 || lua_type(L, extra) != LUA_TTABLE) return nullptr;
  lua_getfield(L, extra, name);
  const char* value = lua_type(L, -1) == LUA_TSTRING ? lua_tostring(L, -1) : nullptr;
  lua_pop(L, 1);  // the value stays alive in the handler's table
  return value;
}

// Queues an answer. extra is the index of the handler's header table on L's stack,
// or 0; its string pairs are added as they are, an empty value left out (lua_next
// and string reads raise no error, so this runs outside any protected call).
MHD_Result send_text(struct MHD_Connection* connection, unsigned int status, const char* type,
                     const char* body, size_t size, lua_State* L = nullptr, int extra = 0) {
  struct MHD_Response* response =
      MHD_create_response_from_buffer(size, const_cast<char*>(body), MHD_RESPMEM_MUST_COPY);
  if (response == nullptr) return MHD_NO;
  MHD_add_response_header(response, "Content-Type", type);
  for (const auto& header : kSecurityHeaders) {
    if (handler_header(L, extra, header[0]) == nullptr)
      MHD_add_response_header(response, header[0], header[1]);
  }
  if (L != nullptr && extra != 0 && lua_type(L, extra) == LUA_TTABLE) {
    lua_pushnil(L);
    while (lua_next(L, extra) != 0) {
      if (lua_type(L, -2) == LUA_TSTRING && lua_type(L, -1) == LUA_TSTRING && lua_objlen(L, -1) > 0)
        MHD_add_response_header(response, lua_tostring(L, -2), lua_tostring(L, -1));
      lua_pop(L, 1);
    }
  }
  MHD_Result rc = MHD_queue_response(connection, status, response);
  MHD_destroy_response(response);
  return rc;
}

void push_header(lua_State* L, struct MHD_Connection* connection, enum MHD_ValueKind kind, const char* name,
                 const char* field) {
  const char* value = MHD_lookup_connection_value(connection, kind, name);
  if (value == nullptr) return;
  lua_pushstring(L, value);
  lua_setfield(L, -2, field);
}

// Adds one request header to the table on top under its lower-case name; a header
// sent twice is joined with ", " as HTTP allows.
MHD_Result add_header(void* cls, enum MHD_ValueKind, const char* name, const char* value) {
  lua_State* L = static_cast<lua_State*>(cls);
  char lower[128];
  size_t length = name != nullptr ? strlen(name) : sizeof lower;
  if (value == nullptr || length >= sizeof lower) return MHD_YES;  // no header name is that long
  for (size_t i = 0; i <= length; ++i)
    lower[i] = static_cast<char>(tolower(static_cast<unsigned char>(name[i])));
  lua_pushstring(L, lower);
  lua_pushvalue(L, -1);
  lua_rawget(L, -3);
  if (lua_isstring(L, -1)) {
    lua_pushliteral(L, ", ");
    lua_pushstring(L, value);
    lua_concat(L, 3);
  } else {
    lua_pop(L, 1);
    lua_pushstring(L, value);
  }
  lua_rawset(L, -3);
  return MHD_YES;
}

// Builds the request table and calls the handler under lua_pcall; the answer (or a
// 500 for a handler error) is queued. Nothing here lets a Lua error escape.
int call_handler(lua_State* L) {
  Server* server = static_cast<Server*>(lua_touserdata(L, 1));
  struct MHD_Connection* connection = static_cast<struct MHD_Connection*>(lua_touserdata(L, 2));
  const char* method = static_cast<const char*>(lua_touserdata(L, 3));
  const char* url = static_cast<const char*>(lua_touserdata(L, 4));
  Upload* upload = static_cast<Upload*>(lua_touserdata(L, 5));
  lua_rawgeti(L, LUA_REGISTRYINDEX, server->handler_ref);
  lua_newtable(L);
  lua_pushstring(L, method);
  lua_setfield(L, -2, "method");
  lua_pushstring(L, url);
  lua_setfield(L, -2, "path");
  lua_pushstring(L, upload->uri != nullptr ? upload->uri : url);
  lua_setfield(L, -2, "uri");
  // Every header, under its lower-case name.
  lua_newtable(L);
  MHD_get_connection_values(connection, MHD_HEADER_KIND, add_header, L);
  lua_setfield(L, -2, "headers");
  lua_newtable(L);
  static const char* const kQuery[] = {"a1", "a2", "token"};
  for (const char* name : kQuery) push_header(L, connection, MHD_GET_ARGUMENT_KIND, name, name);
  lua_setfield(L, -2, "query");
  if (upload->data != nullptr) {
    lua_pushlstring(L, upload->data, upload->size);
  } else {
    lua_pushliteral(L, "");
  }
  lua_setfield(L, -2, "body");
  lua_call(L, 1, 4);
  return 4;
}

MHD_Result on_request(void* cls, struct MHD_Connection* connection, const char* url, const char* method,
                      const char*, const char* upload_data, size_t* upload_size, void** con_cls) {
  Server* server = static_cast<Server*>(cls);
  Upload* upload = static_cast<Upload*>(*con_cls);
  if (upload == nullptr) return MHD_NO;  // keep_uri had no memory for it
  if (!upload->started) {
    upload->started = true;
    Waiting* w = waiting_of(connection);
    if (w != nullptr) w->header_done = true;
    return MHD_YES;
  }
  if (*upload_size != 0) {
    if (!upload->too_large && upload->size + *upload_size <= kBodyLimit) {
      char* grown = static_cast<char*>(realloc(upload->data, upload->size + *upload_size));
      if (grown == nullptr) return MHD_NO;
      memcpy(grown + upload->size, upload_data, *upload_size);
      upload->data = grown;
      upload->size += *upload_size;
    } else {
      upload->too_large = true;
    }
    *upload_size = 0;
    return MHD_YES;
  }
  if (upload->too_large) {
    static const char kTooLarge[] = "{\"error\":\"request body too large\"}";
    return send_text(connection, 413, "application/json", kTooLarge, sizeof kTooLarge - 1);
  }

  lua_State* L = server->L;
  int top = lua_gettop(L);
  lua_pushcfunction(L, call_handler);
  lua_pushlightuserdata(L, server);
  lua_pushlightuserdata(L, connection);
  lua_pushlightuserdata(L, const_cast<char*>(method));
  lua_pushlightuserdata(L, const_cast<char*>(url));
  lua_pushlightuserdata(L, upload);
  MHD_Result rc;
  if (lua_pcall(L, 5, 4, 0) != 0) {
    const char* message = lua_tostring(L, -1);
    fprintf(stderr, "velconfig serve: %s\n", message != nullptr ? message : "(error object)");
    static const char kFailed[] = "{\"error\":\"internal error\"}";
    rc = send_text(connection, 500, "application/json", kFailed, sizeof kFailed - 1);
  } else {
    unsigned int status = static_cast<unsigned int>(lua_tointeger(L, -4));
    size_t size = 0;
    const char* type = lua_type(L, -3) == LUA_TSTRING ? lua_tostring(L, -3) : nullptr;
    const char* body = lua_type(L, -2) == LUA_TSTRING ? lua_tolstring(L, -2, &size) : nullptr;
    if (status < 100 || status > 599 || type == nullptr || body == nullptr) {
      static const char kBad[] = "{\"error\":\"bad handler answer\"}";
      rc = send_text(connection, 500, "application/json", kBad, sizeof kBad - 1);
    } else {
      rc = send_text(connection, status, type, body, size, L, lua_gettop(L));
    }
  }
  lua_settop(L, top);
  return rc;
}

// Raises the soft descriptor limit as far as the connection limit needs (the hard
// limit allows it without privileges) and answers the connection limit that fits in
// what the process may open, the spare descriptors kept (half the limit when it is
// too small for them), so that accept never meets EMFILE.
unsigned int connection_limit() {
  struct rlimit files;
  if (getrlimit(RLIMIT_NOFILE, &files) != 0) return 16;
  rlim_t wanted = kConnectionLimit + kSpareDescriptors;
  if (files.rlim_cur != RLIM_INFINITY && files.rlim_cur < wanted) {
    rlim_t raised = files.rlim_max == RLIM_INFINITY || files.rlim_max >= wanted ? wanted : files.rlim_max;
    struct rlimit grown = {raised, files.rlim_max};
    if (setrlimit(RLIMIT_NOFILE, &grown) == 0) files.rlim_cur = raised;
  }
  if (files.rlim_cur == RLIM_INFINITY || files.rlim_cur >= wanted) return kConnectionLimit;
  rlim_t room =
      files.rlim_cur > 2 * kSpareDescriptors ? files.rlim_cur - kSpareDescriptors : files.rlim_cur / 2;
  return room > 0 ? static_cast<unsigned int>(room) : 1;
}

// serve{port = N, bind = "127.0.0.1", handler = f, ready = g}: listens, calls
// ready(port) once bound, then answers requests until SIGINT or SIGTERM.
int l_serve(lua_State* L) {
  luaL_checktype(L, 1, LUA_TTABLE);
  lua_getfield(L, 1, "bind");
  const char* bind = luaL_optstring(L, -1, "127.0.0.1");
  // Only the loopback address: the console hosts a gateway's pages with no login.
  if (strcmp(bind, "127.0.0.1") != 0)
    return luaL_error(L, "refusing to listen on %s: only 127.0.0.1 is allowed", bind);
  lua_pop(L, 1);
  lua_getfield(L, 1, "port");
  lua_Integer port = luaL_optinteger(L, -1, 8080);
  lua_pop(L, 1);
  if (port < 0 || port > 65535) return luaL_error(L, "port %d is out of range", static_cast<int>(port));
  lua_getfield(L, 1, "handler");
  luaL_checktype(L, -1, LUA_TFUNCTION);
  Server server = {L, luaL_ref(L, LUA_REGISTRYINDEX), nullptr};

  struct sockaddr_in address;
  memset(&address, 0, sizeof address);
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  unsigned int limit = connection_limit();
  serving = false;
  struct MHD_Daemon* daemon = MHD_start_daemon(
      MHD_USE_ERROR_LOG | MHD_USE_EPOLL, static_cast<uint16_t>(port), nullptr, nullptr, on_request, &server,
      MHD_OPTION_EXTERNAL_LOGGER, log_until_serving, nullptr, MHD_OPTION_SOCK_ADDR, &address,
      MHD_OPTION_NOTIFY_COMPLETED, free_upload, nullptr, MHD_OPTION_URI_LOG_CALLBACK, keep_uri, nullptr,
      MHD_OPTION_NOTIFY_CONNECTION, on_connection, &server, MHD_OPTION_CONNECTION_LIMIT, limit,
      MHD_OPTION_CONNECTION_TIMEOUT, kIdleSeconds, MHD_OPTION_END);
  if (daemon == nullptr) {
    luaL_unref(L, LUA_REGISTRYINDEX, server.handler_ref);
    return luaL_error(L, "cannot listen on 127.0.0.1:%d", static_cast<int>(port));
  }
  const union MHD_DaemonInfo* info = MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_BIND_PORT);
  int bound = info != nullptr ? info->port : static_cast<int>(port);

  stop_requested = 0;
  if (signal(SIGINT, on_stop_signal) == SIG_ERR || signal(SIGTERM, on_stop_signal) == SIG_ERR) {
    MHD_stop_daemon(daemon);
    luaL_unref(L, LUA_REGISTRYINDEX, server.handler_ref);
    return luaL_error(L, "cannot catch the stop signals");
  }
  lua_getfield(L, 1, "ready");
  if (lua_isfunction(L, -1)) {
    lua_pushinteger(L, bound);
    if (lua_pcall(L, 1, 0, 0) != 0) lua_pop(L, 1);
  } else {
    lua_pop(L, 1);
  }
  serving = true;
  while (!stop_requested) {
    MHD_run_wait(daemon, 250);
    end_late_headers(&server);
  }
  MHD_stop_daemon(daemon);
  luaL_unref(L, LUA_REGISTRYINDEX, server.handler_ref);
  return 0;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int luaopen_velconfig_http(lua_State* L) {
  lua_newtable(L);
  lua_pushcfunction(L, l_serve);
  lua_setfield(L, -2, "serve");
  return 1;
}
