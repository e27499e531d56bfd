// Measures the two pages that list the LAN hosts with their speeds, "hostsInfo" and
// "allInfo", with 254 online hosts and a warm rate file, against
//  - the floor: building the same result table through the Lua C API from data
//    already in memory;
//  - the platform: the simulated platform's operations the call makes, called as the
//    module calls them (the call less these is the module's own cost);
//  - the limit: the floor plus the least a call must do with the rate file (read the
//    old one, write the new one beside it and rename it over the old one), measured
//    on its own.
//   bench_hosts time [N]           time per call of each, native
//   bench_hosts KEY-MEASURE [N]    N runs, collected by callgrind (--collect-atstart=no);
//                                  KEY hosts or all, MEASURE call, floor or platform
//   bench_hosts rate-file [N]      the same for the rate file's unavoidable work
//   bench_hosts stack              peak stack of one call of each key on a thread of its own
#include <fcntl.h>
#include <glib.h>
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
#include "platform/zovel.h"
#include "sim/sim.h"

namespace {

constexpr int kHosts = 254;

// Host i's connection type: wired (0 or 2) and wireless (1) mixed through the list.
int connection_of(int i) { return i % 3; }
bool is_wired(int i) { return connection_of(i) != 1; }

std::string model_text() {
  std::string hosts;
  char one[512];
  for (int i = 1; i <= kHosts; ++i) {
    snprintf(one, sizeof one,
             "%s{\"id\":%d,\"mac\":\"%012llX\",\"access\":%d,\"type\":\"%s\",\"ip\":\"192.168.1.%d\","
             "\"ipv6\":\"fd00::%x\",\"connection\":%d,\"system\":\"Windows 11\",\"online\":true,"
             "\"name\":\"host-%d\",\"brand\":\"Velmont\",\"model\":\"VX-%d\",\"online_time\":%d,"
             "\"down_bytes\":%d,\"up_bytes\":%d,\"down_rate\":%d,\"up_rate\":%d}",
             i > 1 ? "," : "", i, 0xA4C1E2000000ULL + static_cast<unsigned>(i), i % 7 == 0 ? 1 : 2,
             i % 5 == 0 ? "Phone" : "pc", i, i, connection_of(i), i, i, 3600 + i, i * 1000, i * 100, 8000 * i,
             800 * i);
    hosts += one;
  }
  return "{\"hosts\":[" + hosts +
         "],\"device\":{\"dev_type\":\"1\"},"
         "\"loid\":{\"status\":200,\"services\":\"IPTV,VOIP\"},"
         "\"wan\":{\"ipv4_status\":\"Connected\",\"ipv6_status\":\"Disconnected\",\"uptime\":86400},"
         "\"usb\":[{\"id\":1,\"class\":9,\"name\":\"Hub\",\"total_size\":0,\"used_size\":0,\"label\":\"\"},"
         "{\"id\":2,\"class\":8,\"name\":\"Disk\",\"total_size\":61524148,\"used_size\":18220311,\"label\":"
         "\"\"},"
         "{\"id\":3,\"class\":8,\"name\":\"Stick\",\"total_size\":30218842,\"used_size\":1024,"
         "\"label\":\"Backup\"}]}";
}

void advance_clock() { velsim::pin_clock(velsim::now() + 1); }

// Leaves velconfig:get(key, a1) on the stack (without a1 when it is null).
void call_get(lua_State* L, const char* key, const char* a1) {
  lua_getfield(L, LUA_GLOBALSINDEX, "velconfig");
  lua_getfield(L, -1, "get");
  lua_insert(L, -2);
  lua_pushstring(L, key);
  int args = 2;
  if (a1 != nullptr) {
    lua_pushstring(L, a1);
    ++args;
  }
  if (lua_pcall(L, args, 1, 0) != 0) {
    fprintf(stderr, "%s failed: %s\n", key, lua_tostring(L, -1));
    exit(1);
  }
}

void call_hosts_info(lua_State* L) { call_get(L, "hostsInfo", "7"); }
void call_all_info(lua_State* L) { call_get(L, "allInfo", nullptr); }

std::string text_field(lua_State* L, const char* name) {
  lua_getfield(L, -1, name);
  std::string s = lua_tostring(L, -1) != nullptr ? lua_tostring(L, -1) : "";
  lua_pop(L, 1);
  return s;
}

lua_Number number_field(lua_State* L, const char* name) {
  lua_getfield(L, -1, name);
  lua_Number n = lua_tonumber(L, -1);
  lua_pop(L, 1);
  return n;
}

bool bool_field(lua_State* L, const char* name) {
  lua_getfield(L, -1, name);
  bool b = lua_toboolean(L, -1) != 0;
  lua_pop(L, 1);
  return b;
}

// read(L) of each row prefix1, prefix2, ... of the result on top of the stack.
template <class Row, class Read>
std::vector<Row> rows_of(lua_State* L, const char* prefix, Read read) {
  std::vector<Row> rows;
  for (int i = 1;; ++i) {
    std::string key = prefix + std::to_string(i);
    lua_getfield(L, -1, key.c_str());
    if (!lua_istable(L, -1)) {
      lua_pop(L, 1);
      break;
    }
    rows.push_back(read(L));
    lua_pop(L, 1);
  }
  return rows;
}

// hostsInfo's result as plain data.
struct HostRow {
  std::string ip, ipv6, type, system, mac;
  lua_Number up, down;
  bool restrict, black;
};

struct HostsResult {
  std::vector<HostRow> rows;
  std::string curip;
};

HostsResult hosts_result(lua_State* L) {
  HostsResult r;
  r.rows = rows_of<HostRow>(L, "dev", [](lua_State* S) {
    return HostRow{text_field(S, "ip"),          text_field(S, "ipv6"),     text_field(S, "type"),
                   text_field(S, "system"),      text_field(S, "mac"),      number_field(S, "upSpeed"),
                   number_field(S, "downSpeed"), bool_field(S, "restrict"), bool_field(S, "black")};
  });
  r.curip = text_field(L, "curip");
  return r;
}

// allInfo's result as plain data.
struct DeviceRow {
  std::string type, brand, model, name, ip;
  lua_Number up, down, online_time;
};

struct StorageRow {
  std::string name;
  lua_Number max_size, used_size, usbdev;
};

struct AllResult {
  std::vector<DeviceRow> wired, wireless;
  lua_Number wired_up, wired_down, wireless_up, wireless_down;
  bool itv, voip;
  std::vector<StorageRow> storage;
  std::string wan_connect;
  lua_Number wan_up_time;
};

DeviceRow device_row(lua_State* L) {
  return DeviceRow{text_field(L, "type"),        text_field(L, "brand"),       text_field(L, "model"),
                   text_field(L, "devName"),     text_field(L, "ip"),          number_field(L, "upSpeed"),
                   number_field(L, "downSpeed"), number_field(L, "onlineTime")};
}

AllResult all_result(lua_State* L) {
  AllResult r;
  r.wired = rows_of<DeviceRow>(L, "pc", device_row);
  r.wireless = rows_of<DeviceRow>(L, "wifi", device_row);
  r.wired_up = number_field(L, "tWUp");
  r.wired_down = number_field(L, "tWDown");
  r.wireless_up = number_field(L, "tWlUp");
  r.wireless_down = number_field(L, "tWlDown");
  r.itv = bool_field(L, "itv");
  r.voip = bool_field(L, "voip");
  r.storage = rows_of<StorageRow>(L, "storage", [](lua_State* S) {
    return StorageRow{text_field(S, "name"), number_field(S, "maxSize"), number_field(S, "usedSize"),
                      number_field(S, "usbdev")};
  });
  r.wan_connect = text_field(L, "wanConnect");
  r.wan_up_time = number_field(L, "wanUpTime");
  return r;
}

// The floors: the same tables, built with the module's own helpers, from memory.
__attribute__((noinline)) void hosts_floor(lua_State* L, const HostsResult& r) {
  lua_newtable(L);
  int n = 0;
  for (const HostRow& row : r.rows) {
    velconfig::begin_row(L, "dev%d", ++n);
    velconfig::set_text(L, "ip", row.ip);
    velconfig::set_text(L, "ipv6", row.ipv6);
    velconfig::set_text(L, "type", row.type);
    velconfig::set_text(L, "system", row.system);
    velconfig::set_text(L, "mac", row.mac);
    velconfig::set_number(L, "upSpeed", row.up);
    velconfig::set_number(L, "downSpeed", row.down);
    velconfig::set_bool(L, "restrict", row.restrict);
    velconfig::set_bool(L, "black", row.black);
    velconfig::end_row(L);
  }
  velconfig::set_text(L, "curip", r.curip);
  velconfig::set_number(L, "count", n);
}

__attribute__((noinline)) void all_floor(lua_State* L, const AllResult& r) {
  lua_newtable(L);
  // The rows in the platform's order, wired and wireless mixed, as the module makes them.
  int wired = 0, wireless = 0;
  for (int i = 1; i <= kHosts; ++i) {
    const DeviceRow* row;
    if (is_wired(i)) {
      row = &r.wired[static_cast<size_t>(wired)];
      velconfig::begin_row(L, "pc%d", ++wired);
    } else {
      row = &r.wireless[static_cast<size_t>(wireless)];
      velconfig::begin_row(L, "wifi%d", ++wireless);
    }
    velconfig::set_text(L, "type", row->type);
    velconfig::set_text(L, "brand", row->brand);
    velconfig::set_text(L, "model", row->model);
    velconfig::set_text(L, "devName", row->name);
    velconfig::set_text(L, "ip", row->ip);
    velconfig::set_number(L, "upSpeed", row->up);
    velconfig::set_number(L, "downSpeed", row->down);
    velconfig::set_number(L, "onlineTime", row->online_time);
    velconfig::end_row(L);
  }
  velconfig::set_number(L, "wcount", wired);
  velconfig::set_number(L, "tWUp", r.wired_up);
  velconfig::set_number(L, "tWDown", r.wired_down);
  velconfig::set_number(L, "wlcount", wireless);
  velconfig::set_number(L, "tWlUp", r.wireless_up);
  velconfig::set_number(L, "tWlDown", r.wireless_down);
  velconfig::set_bool(L, "itv", r.itv);
  velconfig::set_bool(L, "voip", r.voip);
  int n = 0;
  for (const StorageRow& row : r.storage) {
    velconfig::begin_row(L, "storage%d", ++n);
    velconfig::set_text(L, "name", row.name);
    velconfig::set_number(L, "maxSize", row.max_size);
    velconfig::set_number(L, "usedSize", row.used_size);
    velconfig::set_number(L, "usbdev", row.usbdev);
    velconfig::end_row(L);
  }
  velconfig::set_number(L, "scount", n);
  velconfig::set_text(L, "wanConnect", r.wan_connect);
  velconfig::set_number(L, "wanUpTime", r.wan_up_time);
}

// The platform's part of each call: its operations in the order the module makes them.
__attribute__((noinline)) void hosts_platform() {
  ZoVelLogOpen(8, "velconfig");
  ZoVelLanHostExt* hosts = nullptr;
  int32_t count = 0;
  ZoVelGetOnlineDeviceListExtWithIPv6(&hosts, &count, nullptr, nullptr);
  g_free(hosts);
  ZoVelLogClose();
}

__attribute__((noinline)) void all_platform() {
  ZoVelLogOpen(8, "velconfig");
  ZoVelLanHost* hosts = nullptr;
  int32_t count = 0;
  ZoVelGetOnlineDeviceList(&hosts, &count, nullptr, nullptr);
  g_free(hosts);
  ZoVelDeviceInfo info;
  memset(&info, 0, sizeof info);
  ZoVelGetDeviceInfo(&info);
  int32_t status = 0;
  char* text = nullptr;
  ZoVelSysCmdCheckLOID(&status, &text);
  if (text != nullptr && text[0] != '\0') g_free(text);
  ZoVelUsbDevice* usb = nullptr;
  count = 0;
  ZoVel_GetUSBDeviceObjs(&usb, &count);
  g_free(usb);
  ZoVelNetworkInfo net;
  memset(&net, 0, sizeof net);
  ZoVelGetNetworkInfo(&net);
  ZoVelLogClose();
}

// The rate file work no call can avoid: the old file read whole, the new one (here
// the same bytes, formatted beforehand) written beside it and renamed over it.
struct RateFiles {
  std::string path, temp, text;
};

__attribute__((noinline)) void replace_rate_file(const RateFiles& f) {
  static char old_text[32768];
  int fd = open(f.path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd >= 0) {
    if (read(fd, old_text, sizeof old_text) < 0) exit(1);
    close(fd);
  }
  fd = open(f.temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (fd < 0 || write(fd, f.text.data(), f.text.size()) != static_cast<ssize_t>(f.text.size()) ||
      close(fd) != 0 || rename(f.temp.c_str(), f.path.c_str()) != 0) {
    exit(1);
  }
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

std::string read_whole(const std::string& path) {
  std::string text;
  FILE* f = fopen(path.c_str(), "rb");
  if (f == nullptr) return text;
  char chunk[4096];
  size_t n;
  while ((n = fread(chunk, 1, sizeof chunk, f)) > 0) text.append(chunk, n);
  (void)fclose(f);  // read only: nothing is lost if closing fails
  return text;
}

// One measure: body runs n times, each a second after the last, each collected by
// callgrind and timed; the mean time per run. The interpreter's garbage collector
// runs as it would in a server, in steps inside the runs, from a full collection
// before the first, so that every measure starts from the same heap.
template <class Body>
double measure(lua_State* L, int n, Body body) {
  double total = 0;
  lua_gc(L, LUA_GCCOLLECT, 0);
  for (int i = 0; i < n; ++i) {
    advance_clock();
    velsim::clear_journal();
    double t0 = velbench::seconds_now();
    CALLGRIND_TOGGLE_COLLECT;
    body();
    CALLGRIND_TOGGLE_COLLECT;
    total += velbench::seconds_now() - t0;
    lua_settop(L, 0);
  }
  return total / n;
}

void print_times(const char* key, double call, double floor, double platform, double limit) {
  double module = call - platform;
  printf("%s, time per call (native):\n", key);
  printf("  call      %7.1f us\n", call * 1e6);
  printf("  platform  %7.1f us (the simulator's operations)\n", platform * 1e6);
  printf("  module    %7.1f us (the call less the platform)\n", module * 1e6);
  printf("  floor     %7.1f us, module / floor %.2f\n", floor * 1e6, module / floor);
  printf("  limit     %7.1f us (the floor and the rate file), module / limit %.2f\n", limit * 1e6,
         module / limit);
}

}  // namespace

int main(int argc, char** argv) {
  const char* mode = argc > 1 ? argv[1] : "time";
  int n = velbench::call_count(
      argc, argv, 1000, "bench_hosts [time|stack|rate-file|{hosts,all}-{call,floor,platform}] [calls > 0]");
  if (n == 0) return 2;

  // The gateway's /tmp is in memory; so is the benchmark's file root where it can be.
  std::string scratch = velbench::scratch_root();
  if (scratch.empty()) return 1;
  const char* root = scratch.c_str();
  velsim::set_file_root(root);
  velsim::use_state_file("", nullptr);  // a gateway in memory, never the user's default one
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
  call_all_info(L);
  AllResult all = all_result(L);
  lua_pop(L, 1);
  advance_clock();
  call_hosts_info(L);
  HostsResult hosts = hosts_result(L);
  lua_pop(L, 1);
  if (hosts.rows.size() != kHosts || hosts.rows[kHosts - 1].down != 8000.0 * kHosts ||
      all.wired.size() + all.wireless.size() != kHosts || all.wired.size() < 2 ||
      all.wired[1].down != 8000.0 * 3 || all.storage.size() != 2 || !all.itv ||
      hosts.curip != "192.168.1.5") {
    fprintf(stderr, "unexpected result: %zu rows, %zu + %zu rows\n", hosts.rows.size(), all.wired.size(),
            all.wireless.size());
    return 1;
  }
  RateFiles files;
  files.path = folder + "/lanhostsrate";
  files.temp = folder + "/lanhostsrate.bench.tmp";
  files.text = read_whole(files.path);

  auto hosts_call = [&] { call_hosts_info(L); };
  auto hosts_floor_only = [&] { hosts_floor(L, hosts); };
  auto all_call = [&] { call_all_info(L); };
  auto all_floor_only = [&] { all_floor(L, all); };
  auto rate_file = [&] { replace_rate_file(files); };
  std::string m = mode;
  if (m == "stack") {
    size_t idle = peak_stack(L, nullptr);
    advance_clock();
    size_t h = peak_stack(L, [](lua_State* S) {
      call_hosts_info(S);
      lua_pop(S, 1);
    });
    advance_clock();
    size_t a = peak_stack(L, [](lua_State* S) {
      call_all_info(S);
      lua_pop(S, 1);
    });
    printf("hostsInfo %zu bytes of stack (lua_pcall and everything below it)\n", h - idle);
    printf("allInfo   %zu bytes of stack\n", a - idle);
  } else if (m == "time") {
    double hc = measure(L, n, hosts_call), hf = measure(L, n, hosts_floor_only);
    double hp = measure(L, n, hosts_platform);
    double ac = measure(L, n, all_call), af = measure(L, n, all_floor_only);
    double ap = measure(L, n, all_platform);
    double rf = measure(L, n, rate_file);
    print_times("hostsInfo", hc, hf, hp, hf + rf);
    print_times("allInfo", ac, af, ap, af + rf);
  } else if (m == "hosts-call") {
    measure(L, n, hosts_call);
  } else if (m == "hosts-floor") {
    measure(L, n, hosts_floor_only);
  } else if (m == "hosts-platform") {
    measure(L, n, hosts_platform);
  } else if (m == "all-call") {
    measure(L, n, all_call);
  } else if (m == "all-floor") {
    measure(L, n, all_floor_only);
  } else if (m == "all-platform") {
    measure(L, n, all_platform);
  } else if (m == "rate-file") {
    measure(L, n, rate_file);
  } else {
    fprintf(stderr, "unknown mode %s\n", mode);
    return 2;
  }
  lua_close(L);
  // Best effort: the scratch root is a fresh temporary folder, a leftover is harmless.
  (void)remove((folder + "/curhostip").c_str());
  (void)remove(files.path.c_str());
  (void)remove(files.temp.c_str());
  rmdir(folder.c_str());
  rmdir(root);
  return 0;
}
