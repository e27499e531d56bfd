// Measures "hostsInfo" with 254 online hosts and a warm rate file against the floor:
// building the same result table through the Lua C API from data already in memory.
//   bench_hosts time [N]   time per call of both, native
//   bench_hosts hosts [N]  N hostsInfo calls, collected by callgrind (--collect-atstart=no)
//   bench_hosts floor [N]  N floor builds, likewise
//   bench_hosts stack      peak stack of one hostsInfo call on a thread of its own
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

#include <lua.hpp>
#include <string>
#include <vector>

#include "bench/bench_common.h"
#include "common/result.h"
#include "sim/sim.h"

namespace {

constexpr int kHosts = 254;

struct Row {
  std::string ip, ipv6, type, system, mac;
  lua_Number up, down;
  bool restrict, black;
};

std::string model_text() {
  std::string hosts;
  char one[512];
  for (int i = 1; i <= kHosts; ++i) {
    snprintf(one, sizeof one,
             "%s{\"id\":%d,\"mac\":\"%012llX\",\"access\":%d,\"type\":\"pc\",\"ip\":\"192.168.1.%d\","
             "\"ipv6\":\"fd00::%x\",\"connection\":%d,\"system\":\"Windows 11\",\"online\":true,"
             "\"down_bytes\":%d,\"up_bytes\":%d,\"down_rate\":%d,\"up_rate\":%d}",
             i > 1 ? "," : "", i, 0xA4C1E2000000ULL + static_cast<unsigned>(i), i % 7 == 0 ? 1 : 2, i, i,
             i % 3, i * 1000, i * 100, 8000 * i, 800 * i);
    hosts += one;
  }
  return "{\"hosts\":[" + hosts + "]}";
}

void advance_clock() { velsim::pin_clock(velsim::now() + 1); }

// Leaves velconfig:get("hostsInfo", "7") on the stack.
void call_hosts_info(lua_State* L) {
  lua_getfield(L, LUA_GLOBALSINDEX, "velconfig");
  lua_getfield(L, -1, "get");
  lua_insert(L, -2);
  lua_pushstring(L, "hostsInfo");
  lua_pushstring(L, "7");
  if (lua_pcall(L, 3, 1, 0) != 0) {
    fprintf(stderr, "hostsInfo failed: %s\n", lua_tostring(L, -1));
    exit(1);
  }
}

std::string text_field(lua_State* L, const char* name) {
  lua_getfield(L, -1, name);
  std::string s = lua_tostring(L, -1) != nullptr ? lua_tostring(L, -1) : "";
  lua_pop(L, 1);
  return s;
}

// The rows of a hostsInfo result on top of the stack, as plain data.
std::vector<Row> rows_of(lua_State* L) {
  std::vector<Row> rows;
  for (int i = 1;; ++i) {
    char key[16];
    snprintf(key, sizeof key, "dev%d", i);
    lua_getfield(L, -1, key);
    if (!lua_istable(L, -1)) {
      lua_pop(L, 1);
      break;
    }
    Row r;
    r.ip = text_field(L, "ip");
    r.ipv6 = text_field(L, "ipv6");
    r.type = text_field(L, "type");
    r.system = text_field(L, "system");
    r.mac = text_field(L, "mac");
    lua_getfield(L, -1, "upSpeed");
    r.up = lua_tonumber(L, -1);
    lua_getfield(L, -2, "downSpeed");
    r.down = lua_tonumber(L, -1);
    lua_getfield(L, -3, "restrict");
    r.restrict = lua_toboolean(L, -1);
    lua_getfield(L, -4, "black");
    r.black = lua_toboolean(L, -1);
    lua_pop(L, 5);
    rows.push_back(r);
  }
  return rows;
}

// The floor: the same table, built with the module's own helpers, from memory.
__attribute__((noinline)) void build_floor(lua_State* L, const std::vector<Row>& rows,
                                           const std::string& curip) {
  lua_newtable(L);
  int n = 0;
  for (const Row& r : rows) {
    velconfig::begin_row(L, "dev%d", ++n);
    velconfig::set_text(L, "ip", r.ip);
    velconfig::set_text(L, "ipv6", r.ipv6);
    velconfig::set_text(L, "type", r.type);
    velconfig::set_text(L, "system", r.system);
    velconfig::set_text(L, "mac", r.mac);
    velconfig::set_number(L, "upSpeed", r.up);
    velconfig::set_number(L, "downSpeed", r.down);
    velconfig::set_bool(L, "restrict", r.restrict);
    velconfig::set_bool(L, "black", r.black);
    velconfig::end_row(L);
  }
  velconfig::set_text(L, "curip", curip);
  velconfig::set_number(L, "count", n);
}

// Peak stack of body(L) run on a thread whose stack is painted first: the bytes
// from the top of the stack down to the lowest one that changed, less what the
// thread takes before body runs (its start-up and the thread-local block glibc
// places at the top of a caller-given stack).
constexpr size_t kThreadStack = size_t{256} * 1024;
constexpr unsigned char kPaint = 0xa5;

struct StackRun {
  lua_State* L;
  void (*body)(lua_State*);
};

size_t peak_stack(lua_State* L, void (*body)(lua_State*)) {
  static unsigned char stack[kThreadStack] __attribute__((aligned(4096)));
  memset(stack, kPaint, sizeof stack);
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setstack(&attr, stack, sizeof stack);
  StackRun run{L, body};
  pthread_t thread;
  auto start = [](void* p) -> void* {
    auto* r = static_cast<StackRun*>(p);
    if (r->body != nullptr) r->body(r->L);
    return nullptr;
  };
  if (pthread_create(&thread, &attr, start, &run) != 0) exit(1);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attr);
  size_t low = 0;
  while (low < sizeof stack && stack[low] == kPaint) ++low;
  return sizeof stack - low;
}

}  // namespace

int main(int argc, char** argv) {
  const char* mode = argc > 1 ? argv[1] : "time";
  int n = velbench::call_count(argc, argv, 1000, "bench_hosts [time|hosts|floor] [calls > 0]");
  if (n == 0) return 2;

  // The gateway's /tmp is in memory; so is the benchmark's file root where it can be.
  std::string scratch = velbench::scratch_root();
  if (scratch.empty()) return 1;
  const char* root = scratch.c_str();
  velsim::set_file_root(root);
  std::string folder = std::string(root) + "/tmp";
  mkdir(folder.c_str(), 0700);
  FILE* curip = fopen((folder + "/curhostip").c_str(), "w");
  if (curip != nullptr) {
    bool written = fputs("192.168.1.5\n", curip) >= 0;
    if (fclose(curip) != 0 || !written) return 1;
  }
  velsim::pin_clock(1700000000);
  std::string reason;
  if (!velsim::load_model_text(model_text().c_str(), &reason)) {
    fprintf(stderr, "model: %s\n", reason.c_str());
    return 1;
  }

  lua_State* L = luaL_newstate();
  luaL_openlibs(L);
  lua_getglobal(L, "package");
  lua_pushstring(L, VELCONFIG_BUILD_DIR "/?.so");
  lua_setfield(L, -2, "cpath");
  lua_pop(L, 1);
  if (luaL_dostring(L, "require 'velconfig'") != 0) {
    fprintf(stderr, "%s\n", lua_tostring(L, -1));
    return 1;
  }

  // Warm: the rate file holds every host, one second old at each measured call.
  call_hosts_info(L);
  lua_pop(L, 1);
  advance_clock();
  call_hosts_info(L);
  std::vector<Row> rows = rows_of(L);
  lua_pop(L, 1);
  if (rows.size() != kHosts || rows[kHosts - 1].down != 8000.0 * kHosts) {
    fprintf(stderr, "unexpected result: %zu rows\n", rows.size());
    return 1;
  }
  const std::string client = "192.168.1.5";

  if (strcmp(mode, "stack") == 0) {
    size_t idle = peak_stack(L, nullptr);
    advance_clock();
    size_t call = peak_stack(L, [](lua_State* S) {
      call_hosts_info(S);
      lua_pop(S, 1);
    });
    printf("hostsInfo %zu bytes of stack (lua_pcall and everything below it)\n", call - idle);
  }

  double hosts_time = 0, floor_time = 0;
  bool timing = strcmp(mode, "time") == 0;
  if (timing || strcmp(mode, "hosts") == 0) {
    for (int i = 0; i < n; ++i) {
      advance_clock();
      velsim::clear_journal();
      double t0 = velbench::seconds_now();
      CALLGRIND_TOGGLE_COLLECT;
      call_hosts_info(L);
      lua_pop(L, 1);
      CALLGRIND_TOGGLE_COLLECT;
      hosts_time += velbench::seconds_now() - t0;
    }
  }
  if (timing || strcmp(mode, "floor") == 0) {
    for (int i = 0; i < n; ++i) {
      double t0 = velbench::seconds_now();
      CALLGRIND_TOGGLE_COLLECT;
      build_floor(L, rows, client);
      lua_pop(L, 1);
      CALLGRIND_TOGGLE_COLLECT;
      floor_time += velbench::seconds_now() - t0;
    }
  }
  if (timing) {
    printf("hostsInfo %.1f us/call\nfloor     %.1f us/call\nratio     %.2f\n", hosts_time / n * 1e6,
           floor_time / n * 1e6, hosts_time / floor_time);
  }
  lua_close(L);
  // Best effort: the scratch root is a fresh temporary folder, a leftover is harmless.
  (void)remove((folder + "/curhostip").c_str());
  (void)remove((folder + "/lanhostsrate").c_str());
  rmdir(folder.c_str());
  rmdir(root);
  return 0;
}
