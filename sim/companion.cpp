// velconfig_simctl: the test and tool companion of the simulator (never on a gateway).
// Lets a Lua script load and read the model, read the journal and the log lines,
// inject faults and pin the clock.
#include <dirent.h>
#include <stdio.h>
#include <time.h>

#include <lua.hpp>
#include <string>
#include <vector>

#include "platform/zovel.h"
#include "sim/cloud.h"
#include "sim/dbus.h"
#include "sim/events.h"
#include "sim/files.h"
#include "sim/sim.h"

namespace {

// Pushes a JSON value as a Lua value: objects and arrays become tables.
void push_json(lua_State* L, json_t* v) {
  switch (json_typeof(v)) {
    case JSON_OBJECT: {
      lua_newtable(L);
      const char* key;
      json_t* item;
      json_object_foreach(v, key, item) {
        if (json_is_null(item)) continue;
        lua_pushstring(L, key);
        push_json(L, item);
        lua_settable(L, -3);
      }
      break;
    }
    case JSON_ARRAY: {
      lua_newtable(L);
      size_t i;
      json_t* item;
      json_array_foreach(v, i, item) {
        if (json_is_null(item)) continue;
        push_json(L, item);
        lua_rawseti(L, -2, static_cast<int>(i + 1));
      }
      break;
    }
    case JSON_STRING:
      lua_pushlstring(L, json_string_value(v), json_string_length(v));
      break;
    case JSON_INTEGER:
      lua_pushnumber(L, static_cast<lua_Number>(json_integer_value(v)));
      break;
    case JSON_REAL:
      lua_pushnumber(L, json_real_value(v));
      break;
    case JSON_TRUE:
      lua_pushboolean(L, 1);
      break;
    case JSON_FALSE:
      lua_pushboolean(L, 0);
      break;
    default:
      lua_pushnil(L);
  }
}

// Raises message as a Lua error once no C++ object is alive in this frame.
int fail_with(lua_State* L, const char* message) { return luaL_error(L, "%s", message); }

int l_reset(lua_State* L) {
  char message[512] = {};
  {
    std::string reason;
    if (!velsim::load_model_text(velsim::default_model_text(), &reason)) {
      snprintf(message, sizeof message, "%s", reason.c_str());
    }
  }
  velsim::clear_journal();
  velsim::clear_logs();
  velsim::clear_faults();
  velsim::clear_property_answers();
  velsim::unpin_clock();
  velsim::reset_cloud();
  velsim::set_hostile(velsim::Hostile::kNone);
  velsim::set_history_limit(velsim::kDefaultHistoryLimit);
  if (message[0] != '\0') return fail_with(L, message);
  return 0;
}

int l_load_model(lua_State* L) {
  const char* text = luaL_checkstring(L, 1);
  char message[512] = {};
  {
    std::string reason;
    if (!velsim::load_model_text(text, &reason)) snprintf(message, sizeof message, "%s", reason.c_str());
  }
  if (message[0] != '\0') return fail_with(L, message);
  return 0;
}

int l_model(lua_State* L) {
  char message[512] = {};
  char* text = nullptr;
  {
    velsim::ModelSession session;
    if (session.ok()) {
      text = json_dumps(velsim::model(), JSON_SORT_KEYS | JSON_INDENT(1));
    } else {
      snprintf(message, sizeof message, "%s", velsim::take_state_error().c_str());
    }
  }
  if (message[0] != '\0') return fail_with(L, message);
  lua_pushstring(L, text != nullptr ? text : "{}");
  free(text);
  return 1;
}

int l_default_model(lua_State* L) {
  lua_pushstring(L, velsim::default_model_text());
  return 1;
}

int l_journal(lua_State* L) {
  push_json(L, velsim::journal_entries());
  return 1;
}

int l_clear_journal(lua_State*) {
  velsim::clear_journal();
  return 0;
}

int l_journal_dropped(lua_State* L) {
  lua_pushnumber(L, static_cast<lua_Number>(velsim::journal_dropped()));
  return 1;
}

int l_logs(lua_State* L) {
  push_json(L, velsim::log_lines());
  return 1;
}

int l_clear_logs(lua_State*) {
  velsim::clear_logs();
  return 0;
}

int l_logs_dropped(lua_State* L) {
  lua_pushnumber(L, static_cast<lua_Number>(velsim::logs_dropped()));
  return 1;
}

// A count from a Lua number, clamped to [low, high] (NaN: an argument error).
int64_t count_at(lua_State* L, int index, int64_t low, int64_t high) {
  lua_Number n = luaL_checknumber(L, index);
  if (n != n) return luaL_argerror(L, index, "not a number");
  if (n <= static_cast<lua_Number>(low)) return low;
  if (n >= static_cast<lua_Number>(high)) return high;
  return static_cast<int64_t>(n);
}

int l_history_limit(lua_State* L) {
  velsim::set_history_limit(static_cast<size_t>(count_at(L, 1, 0, INT32_MAX)));
  return 0;
}

int l_fail(lua_State* L) {
  const char* op = luaL_checkstring(L, 1);
  int32_t code = static_cast<int32_t>(count_at(L, 2, INT32_MIN, INT32_MAX));
  int32_t times = lua_isnoneornil(L, 3) ? 0 : static_cast<int32_t>(count_at(L, 3, INT32_MIN, INT32_MAX));
  velsim::set_fault(op, code, times);
  return 0;
}

int l_clear_faults(lua_State*) {
  velsim::clear_faults();
  return 0;
}

// answer_property(path, interface, name, value): value is a GVariant in its text
// form ("true", "int32 7", "'WPA3'"), false for a read without a value, nil to
// answer from the model again.
int l_answer_property(lua_State* L) {
  const char* path = luaL_checkstring(L, 1);
  const char* interface = luaL_checkstring(L, 2);
  const char* name = luaL_checkstring(L, 3);
  if (lua_isnoneornil(L, 4)) {
    velsim::clear_property_answer(path, interface, name);
    return 0;
  }
  GVariant* value = nullptr;
  if (lua_toboolean(L, 4)) {
    value = g_variant_parse(nullptr, luaL_checkstring(L, 4), nullptr, nullptr, nullptr);
    if (value == nullptr) return luaL_argerror(L, 4, "not a GVariant text");
  }
  velsim::answer_property(path, interface, name, value);
  return 0;
}

// Seconds from a Lua number, clamped to what the clock can hold.
int64_t seconds_at(lua_State* L, int index) {
  lua_Number n = luaL_checknumber(L, index);
  if (n != n) return luaL_argerror(L, index, "not a number");
  if (n >= 9.2233720368547758e18) return INT64_MAX;
  if (n <= -9.2233720368547758e18) return INT64_MIN;
  return static_cast<int64_t>(n);
}

int l_pin_clock(lua_State* L) {
  velsim::pin_clock(seconds_at(L, 1));
  return 0;
}

int l_advance_clock(lua_State* L) {
  velsim::pin_clock(velsim::plus_seconds(velsim::now(), seconds_at(L, 1)));
  return 0;
}

int l_unpin_clock(lua_State*) {
  velsim::unpin_clock();
  return 0;
}

int l_now(lua_State* L) {
  lua_pushnumber(L, static_cast<lua_Number>(velsim::now()));
  return 1;
}

int l_use_state_file(lua_State* L) {
  const char* path = luaL_optstring(L, 1, "");
  char message[512] = {};
  {
    std::string reason;
    if (!velsim::use_state_file(path, &reason)) snprintf(message, sizeof message, "%s", reason.c_str());
  }
  if (message[0] != '\0') return fail_with(L, message);
  return 0;
}

// The state file operations use now ("" for a gateway in memory).
int l_state_file(lua_State* L) {
  char path[4096] = {};
  snprintf(path, sizeof path, "%s", velsim::state_file().c_str());
  lua_pushstring(L, path);
  return 1;
}

// replace_state(model_text, backup_path): the import's replacement, under the state
// lock (see velsim::replace_state). Raises with the reason.
int l_replace_state(lua_State* L) {
  const char* text = luaL_checkstring(L, 1);
  const char* backup = luaL_checkstring(L, 2);
  char message[512] = {};
  {
    std::string reason;
    if (!velsim::replace_state(text, backup, &reason))
      snprintf(message, sizeof message, "%s", reason.c_str());
  }
  if (message[0] != '\0') return fail_with(L, message);
  return 0;
}

// read_file(path, limit): the text of a regular file of at most limit bytes, or nil
// and the reason (no such file, a FIFO, a device, too large).
int l_read_file(lua_State* L) {
  const char* path = luaL_checkstring(L, 1);
  lua_Number limit = luaL_checknumber(L, 2);
  char message[512] = {};
  gchar* text = nullptr;
  gsize length = 0;
  {
    std::string problem;
    constexpr lua_Number kAny = 1e15;  // beyond any file read here; keeps the cast defined
    size_t cap = limit > 0 ? static_cast<size_t>(limit < kAny ? limit : kAny) : 0;
    if (!velsim::read_regular_file(path, cap, &text, &length, &problem)) {
      snprintf(message, sizeof message, "%s",
               problem.empty() ? "No such file or directory" : problem.c_str());
    }
  }
  if (text == nullptr) {
    lua_pushnil(L);
    lua_pushfstring(L, "%s: %s", path, message);
    return 2;
  }
  // Only running out of memory raises here, and then the text is lost with the run.
  lua_pushlstring(L, text, length);
  g_free(text);
  return 1;
}

// The first state file problem since the last call (cannot lock, read or save), or nil.
int l_state_error(lua_State* L) {
  char message[512] = {};
  snprintf(message, sizeof message, "%s", velsim::take_state_error().c_str());
  if (message[0] == '\0') return 0;
  lua_pushstring(L, message);
  return 1;
}

int l_set_root(lua_State* L) {
  velsim::set_file_root(luaL_checkstring(L, 1));
  return 0;
}

int l_root(lua_State* L) {
  lua_pushstring(L, velsim::file_root());
  return 1;
}

int l_clear_disks(lua_State* L) {
  lua_pushboolean(L, velsim::forget_disk_folders());
  return 1;
}

int l_log_to_stderr(lua_State* L) {
  velsim::set_log_to_stderr(lua_toboolean(L, 1) != 0);
  return 0;
}

int l_set_tools_dir(lua_State* L) {
  velsim::set_tools_dir(luaL_checkstring(L, 1));
  return 0;
}

int l_tools_dir(lua_State* L) {
  lua_pushstring(L, velsim::tools_dir());
  return 1;
}

int l_advance_monotonic(lua_State* L) {
  velsim::advance_monotonic(count_at(L, 1, INT64_MIN, INT64_MAX));
  return 0;
}

int l_seconds_slept(lua_State* L) {
  lua_pushnumber(L, static_cast<lua_Number>(velsim::seconds_slept()));
  return 1;
}

// plugin_reply(cmdtype, text): the interconnect plugin answers commands of that type
// with text as it stands (any text, JSON or not); nil: it gives no reply; false: it
// answers from the model again.
int l_plugin_reply(lua_State* L) {
  const char* type = luaL_checkstring(L, 1);
  size_t n = 0;
  const char* text = lua_isstring(L, 2) ? lua_tolstring(L, 2, &n) : nullptr;
  bool from_model = lua_isboolean(L, 2) && !lua_toboolean(L, 2);
  char message[512] = {};
  {
    // Changed like an operation changes it: on the state file's current model, saved.
    velsim::ModelSession session;
    if (session.ok()) {
      json_t* interconnect = velsim::object_at("interconnect");
      json_t* replies = json_object_get(interconnect, "replies");
      if (!json_is_object(replies)) {
        replies = json_object();
        json_object_set_new(interconnect, "replies", replies);
      }
      if (text != nullptr) {
        json_object_set_new(replies, type, json_stringn(text, n));
      } else if (from_model) {
        json_object_del(replies, type);
      } else {
        json_object_set_new(replies, type, json_null());
      }
      velsim::model_changed();
    }
    if (!session.ok() || !session.commit()) {
      snprintf(message, sizeof message, "%s", velsim::take_state_error().c_str());
    }
  }
  if (message[0] != '\0') return fail_with(L, message);
  return 0;
}

// plugin_post(command [, app]): posts a command as the module would (journaled) and
// returns the reply text, or nil when there is none.
int l_plugin_post(lua_State* L) {
  const char* command = luaL_checkstring(L, 1);
  const char* app = luaL_optstring(L, 2, "inter_conndv3");
  char* reply = ZoVelPostMsg(app, command);
  if (reply == nullptr) {
    lua_pushnil(L);
    return 1;
  }
  char copy[4096];
  snprintf(copy, sizeof copy, "%s", reply);
  g_free(reply);
  lua_pushstring(L, copy);
  return 1;
}

// event(name [, params]): applies an event of the world around the gateway
// (sim/events.h). params is a table of texts, numbers and booleans by name. Returns
// the lines saying what changed (one text, lines separated by newlines), or nil,
// the reason and the code when nothing changed.
int l_event(lua_State* L) {
  const char* name = luaL_checkstring(L, 1);
  json_t* params = json_object();
  if (lua_istable(L, 2)) {
    lua_pushnil(L);
    while (lua_next(L, 2) != 0) {
      // Only texts as names; the value's type is looked at, never converted in place.
      if (lua_type(L, -2) == LUA_TSTRING) {
        const char* key = lua_tostring(L, -2);
        switch (lua_type(L, -1)) {
          case LUA_TSTRING:
            json_object_set_new(params, key, json_string(lua_tostring(L, -1)));
            break;
          case LUA_TNUMBER:
            json_object_set_new(params, key, json_integer(static_cast<json_int_t>(lua_tonumber(L, -1))));
            break;
          case LUA_TBOOLEAN:
            json_object_set_new(params, key, json_boolean(lua_toboolean(L, -1)));
            break;
          default:
            break;
        }
      }
      lua_pop(L, 1);
    }
  }
  int32_t code;
  gchar* said = nullptr;
  char reason[512] = {};
  {
    std::vector<std::string> lines;
    std::string why;
    code = velsim::apply_event(name, params, &lines, &why);
    if (code == 0) {
      std::string joined;
      for (const std::string& line : lines) joined += (joined.empty() ? "" : "\n") + line;
      said = g_strdup(joined.c_str());
    } else {
      snprintf(reason, sizeof reason, "%s", why.c_str());
    }
  }
  json_decref(params);
  if (code == 0) {
    lua_pushstring(L, said);
    g_free(said);
    return 1;
  }
  lua_pushnil(L);
  lua_pushstring(L, reason);
  lua_pushinteger(L, code);
  return 3;
}

// wait(seconds): sleeps on the system's clock (never the pinned one); false when a
// signal (Ctrl-C) cut the sleep short, so that a scenario stops at once.
int l_wait(lua_State* L) {
  double seconds = luaL_checknumber(L, 1);
  struct timespec left = {};
  if (seconds > 0) {
    left.tv_sec = static_cast<time_t>(seconds);
    left.tv_nsec = static_cast<long>((seconds - static_cast<double>(left.tv_sec)) * 1e9);
  }
  lua_pushboolean(L, nanosleep(&left, nullptr) == 0);
  return 1;
}

// monotonic_seconds(): the system's monotonic clock, for pacing a scenario.
int l_monotonic_seconds(lua_State* L) {
  struct timespec t = {};
  clock_gettime(CLOCK_MONOTONIC, &t);
  lua_pushnumber(L, static_cast<lua_Number>(t.tv_sec) + static_cast<lua_Number>(t.tv_nsec) / 1e9);
  return 1;
}

// Raises luaL_argerror about the last argument with the text in its upvalue.
int raise_argument_error(lua_State* L) { return luaL_argerror(L, -1, lua_tostring(L, lua_upvalueindex(1))); }

// A function raising the interpreter library's own argument error with text, so
// that tests compare the module's argument errors with the library's wording.
int l_argument_error(lua_State* L) {
  luaL_checkstring(L, 1);
  lua_pushvalue(L, 1);
  lua_pushcclosure(L, raise_argument_error, 1);
  return 1;
}

// cloud_reply(text [, {raw = bool, pieces = n, pause_ms = ms, close = bool}]): the
// cloud client answers every request with text framed by its length (raw: text is
// the whole frame), written in pieces, and with close hangs up right after.
int l_cloud_reply(lua_State* L) {
  size_t length = 0;
  const char* text = luaL_checklstring(L, 1, &length);
  bool raw = false;
  int pieces = 1;
  int pause_ms = 0;
  bool close_after = false;
  if (lua_istable(L, 2)) {
    lua_getfield(L, 2, "raw");
    raw = lua_toboolean(L, -1) != 0;
    lua_getfield(L, 2, "pieces");
    pieces = static_cast<int>(luaL_optinteger(L, -1, 1));
    lua_getfield(L, 2, "pause_ms");
    pause_ms = static_cast<int>(luaL_optinteger(L, -1, 0));
    lua_getfield(L, 2, "close");
    close_after = lua_toboolean(L, -1) != 0;
    lua_pop(L, 4);
  }
  {
    std::string bytes(text, length);
    if (!raw) {
      std::string header = {static_cast<char>(length >> 24), static_cast<char>(length >> 16),
                            static_cast<char>(length >> 8), static_cast<char>(length)};
      bytes = header + bytes;
    }
    velsim::cloud_reply(bytes, pieces, pause_ms, close_after);
  }
  return 0;
}

int l_cloud_silent(lua_State*) {
  velsim::cloud_silent();
  return 0;
}

int l_cloud_refuse(lua_State*) {
  velsim::cloud_refuse();
  return 0;
}

int l_cloud_from_model(lua_State*) {
  velsim::cloud_from_model();
  return 0;
}

// cloud_requests([n [, wait_ms]]): {request = bytes, closed = bool} for every
// connection the cloud client has served, once n are complete (or wait_ms, default
// 2000, has passed).
int l_cloud_requests(lua_State* L) {
  size_t n = static_cast<size_t>(luaL_optinteger(L, 1, 0));
  int wait_ms = static_cast<int>(luaL_optinteger(L, 2, 2000));
  // Kept outside this frame, so that a Lua error while pushing skips no destructor.
  static std::vector<velsim::CloudExchange> served;
  served = velsim::cloud_exchanges(n, wait_ms);
  lua_createtable(L, static_cast<int>(served.size()), 0);
  for (size_t i = 0; i < served.size(); ++i) {
    lua_createtable(L, 0, 2);
    lua_pushlstring(L, served[i].request.data(), served[i].request.size());
    lua_setfield(L, -2, "request");
    lua_pushboolean(L, served[i].closed_by_client ? 1 : 0);
    lua_setfield(L, -2, "closed");
    lua_rawseti(L, -2, static_cast<int>(i + 1));
  }
  return 1;
}

int l_set_app_market_timeout(lua_State* L) {
  velsim::set_app_market_timeout(static_cast<int>(luaL_checkinteger(L, 1)));
  return 0;
}

// Descriptors open in this process, to show that a call leaves none behind.
int l_open_descriptors(lua_State* L) {
  int count = 0;
  DIR* d = opendir("/proc/self/fd");
  if (d != nullptr) {
    while (readdir(d) != nullptr) ++count;
    closedir(d);
    count -= 3;  // ".", ".." and the directory's own descriptor
  }
  lua_pushnumber(L, count);
  return 1;
}

// hostile(name): the hostile platform profile ("none" for a well-behaved one).
int l_hostile(lua_State* L) {
  if (!velsim::set_hostile(luaL_checkstring(L, 1))) return luaL_argerror(L, 1, "unknown hostile profile");
  return 0;
}

const luaL_Reg kFunctions[] = {
    {"reset", l_reset},
    {"load_model", l_load_model},
    {"model", l_model},
    {"default_model", l_default_model},
    {"journal", l_journal},
    {"clear_journal", l_clear_journal},
    {"journal_dropped", l_journal_dropped},
    {"logs", l_logs},
    {"clear_logs", l_clear_logs},
    {"logs_dropped", l_logs_dropped},
    {"history_limit", l_history_limit},
    {"fail", l_fail},
    {"clear_faults", l_clear_faults},
    {"answer_property", l_answer_property},
    {"pin_clock", l_pin_clock},
    {"advance_clock", l_advance_clock},
    {"unpin_clock", l_unpin_clock},
    {"now", l_now},
    {"use_state_file", l_use_state_file},
    {"state_error", l_state_error},
    {"state_file", l_state_file},
    {"replace_state", l_replace_state},
    {"read_file", l_read_file},
    {"set_root", l_set_root},
    {"root", l_root},
    {"clear_disks", l_clear_disks},
    {"log_to_stderr", l_log_to_stderr},
    {"set_tools_dir", l_set_tools_dir},
    {"tools_dir", l_tools_dir},
    {"advance_monotonic", l_advance_monotonic},
    {"seconds_slept", l_seconds_slept},
    {"plugin_reply", l_plugin_reply},
    {"hostile", l_hostile},
    {"plugin_post", l_plugin_post},
    {"event", l_event},
    {"wait", l_wait},
    {"monotonic_seconds", l_monotonic_seconds},
    {"argument_error", l_argument_error},
    {"cloud_reply", l_cloud_reply},
    {"cloud_silent", l_cloud_silent},
    {"cloud_refuse", l_cloud_refuse},
    {"cloud_from_model", l_cloud_from_model},
    {"cloud_requests", l_cloud_requests},
    {"set_app_market_timeout", l_set_app_market_timeout},
    {"open_descriptors", l_open_descriptors},
    {nullptr, nullptr},
};

// Runs the companion function in upvalue 1 (named by upvalue 2) under the platform
// lock, so that tests and the console change the simulator only between other
// threads' operations. The lock is taken and given back by hand around a protected
// call: a Lua error raised inside must not longjmp past a guard object.
int locked_call(lua_State* L) {
  lua_pushvalue(L, lua_upvalueindex(1));
  lua_insert(L, 1);
  velsim::platform_mutex().lock();
  int rc = lua_pcall(L, lua_gettop(L) - 1, LUA_MULTRET, 0);
  velsim::platform_mutex().unlock();
  if (rc == 0) return lua_gettop(L);
  // A function run by lua_pcall has no name of its own: argument errors get it back.
  if (lua_type(L, -1) == LUA_TSTRING) {
    lua_pushfstring(L, "to '%s'", lua_tostring(L, lua_upvalueindex(2)));
    luaL_gsub(L, lua_tostring(L, -2), "to '?'", lua_tostring(L, -1));
  }
  return lua_error(L);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int luaopen_velconfig_simctl(lua_State* L) {
  lua_newtable(L);
  for (const luaL_Reg* f = kFunctions; f->name != nullptr; ++f) {
    lua_pushcfunction(L, f->func);
    lua_pushstring(L, f->name);
    lua_pushcclosure(L, locked_call, 2);
    lua_setfield(L, -2, f->name);
  }
  return 1;
}
