// velconfig_http: a Lua module that serves HTTP on the loopback address with
// libmicrohttpd, in the calling interpreter's own thread, one request at a time, the
// way the gateway's web server hosts the pages. Each request is handed to a Lua
// function that answers with a status, a content type and a body.
#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <lua.hpp>

namespace {

// Bodies larger than this are refused: pages send small JSON objects.
constexpr size_t kBodyLimit = size_t{64} * 1024;

volatile sig_atomic_t stop_requested = 0;

void on_stop_signal(int) { stop_requested = 1; }

// What one request has received of its body so far.
struct Upload {
  char* data;
  size_t size;
  bool too_large;
};

struct Server {
  lua_State* L;
  int handler_ref;
};

void free_upload(void*, struct MHD_Connection*, void** con_cls, enum MHD_RequestTerminationCode) {
  Upload* upload = static_cast<Upload*>(*con_cls);
  if (upload != nullptr) {
    free(upload->data);
    free(upload);
  }
  *con_cls = nullptr;
}

MHD_Result send_text(struct MHD_Connection* connection, unsigned int status, const char* type,
                     const char* body, size_t size) {
  struct MHD_Response* response =
      MHD_create_response_from_buffer(size, const_cast<char*>(body), MHD_RESPMEM_MUST_COPY);
  if (response == nullptr) return MHD_NO;
  MHD_add_response_header(response, "Content-Type", type);
  MHD_add_response_header(response, "Cache-Control", "no-store");
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
  push_header(L, connection, MHD_HEADER_KIND, "Host", "host");
  push_header(L, connection, MHD_HEADER_KIND, "Content-Type", "content_type");
  lua_newtable(L);
  push_header(L, connection, MHD_GET_ARGUMENT_KIND, "a1", "a1");
  push_header(L, connection, MHD_GET_ARGUMENT_KIND, "a2", "a2");
  lua_setfield(L, -2, "query");
  if (upload != nullptr && upload->data != nullptr) {
    lua_pushlstring(L, upload->data, upload->size);
  } else {
    lua_pushliteral(L, "");
  }
  lua_setfield(L, -2, "body");
  lua_call(L, 1, 3);
  return 3;
}

MHD_Result on_request(void* cls, struct MHD_Connection* connection, const char* url, const char* method,
                      const char*, const char* upload_data, size_t* upload_size, void** con_cls) {
  Server* server = static_cast<Server*>(cls);
  Upload* upload = static_cast<Upload*>(*con_cls);
  if (upload == nullptr) {
    upload = static_cast<Upload*>(calloc(1, sizeof(Upload)));
    if (upload == nullptr) return MHD_NO;
    *con_cls = upload;
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
  if (lua_pcall(L, 5, 3, 0) != 0) {
    const char* message = lua_tostring(L, -1);
    fprintf(stderr, "velconfig serve: %s\n", message != nullptr ? message : "(error object)");
    static const char kFailed[] = "{\"error\":\"internal error\"}";
    rc = send_text(connection, 500, "application/json", kFailed, sizeof kFailed - 1);
  } else {
    unsigned int status = static_cast<unsigned int>(lua_tointeger(L, -3));
    const char* type = lua_tostring(L, -2);
    size_t size = 0;
    const char* body = lua_tolstring(L, -1, &size);
    if (status < 100 || status > 599 || type == nullptr || body == nullptr) {
      static const char kBad[] = "{\"error\":\"bad handler answer\"}";
      rc = send_text(connection, 500, "application/json", kBad, sizeof kBad - 1);
    } else {
      rc = send_text(connection, status, type, body, size);
    }
  }
  lua_settop(L, top);
  return rc;
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
  Server server = {L, luaL_ref(L, LUA_REGISTRYINDEX)};

  struct sockaddr_in address;
  memset(&address, 0, sizeof address);
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  struct MHD_Daemon* daemon =
      MHD_start_daemon(MHD_USE_ERROR_LOG, static_cast<uint16_t>(port), nullptr, nullptr, on_request, &server,
                       MHD_OPTION_SOCK_ADDR, &address, MHD_OPTION_NOTIFY_COMPLETED, free_upload, nullptr,
                       MHD_OPTION_CONNECTION_TIMEOUT, 30u, MHD_OPTION_END);
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
  while (!stop_requested) MHD_run_wait(daemon, 500);
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
