// Measures listing a folder of 10 000 files through "subFiles" against the floor:
// building the same result table through the Lua C API from data already in memory.
//   bench_files time [N]   time per call of both, native
//   bench_files list [N]   N subFiles calls, collected by callgrind (--collect-atstart=no)
//   bench_files floor [N]  N floor builds, likewise
#include <fcntl.h>
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

constexpr int kFiles = 10000;
constexpr const char* kFolder = "/mnt/usb1/many";

struct Row {
  std::string name, time;
  bool folder;
  lua_Number size;
};

// Leaves velconfig:get("subFiles", kFolder) on the stack.
void call_sub_files(lua_State* L) {
  lua_getfield(L, LUA_GLOBALSINDEX, "velconfig");
  lua_getfield(L, -1, "get");
  lua_insert(L, -2);
  lua_pushstring(L, "subFiles");
  lua_pushstring(L, kFolder);
  if (lua_pcall(L, 3, 1, 0) != 0) {
    fprintf(stderr, "subFiles failed: %s\n", lua_tostring(L, -1));
    exit(1);
  }
}

// The rows of a subFiles result on top of the stack, as plain data.
std::vector<Row> rows_of(lua_State* L) {
  std::vector<Row> rows;
  for (int i = 1;; ++i) {
    char key[16];
    snprintf(key, sizeof key, "file%d", i);
    lua_getfield(L, -1, key);
    if (!lua_istable(L, -1)) {
      lua_pop(L, 1);
      break;
    }
    Row r;
    lua_getfield(L, -1, "name");
    r.name = lua_tostring(L, -1);
    lua_getfield(L, -2, "time");
    r.time = lua_tostring(L, -1);
    lua_getfield(L, -3, "isFolder");
    r.folder = lua_toboolean(L, -1);
    lua_getfield(L, -4, "size");
    r.size = lua_tonumber(L, -1);
    lua_pop(L, 5);
    rows.push_back(r);
  }
  return rows;
}

// The floor: the same table, built with the module's own helpers, from memory.
__attribute__((noinline)) void build_floor(lua_State* L, const std::vector<Row>& rows) {
  lua_newtable(L);
  int n = 0;
  for (const Row& r : rows) {
    velconfig::begin_row(L, "file%d", ++n);
    velconfig::set_text(L, "name", r.name);
    velconfig::set_bool(L, "isFolder", r.folder);
    velconfig::set_number(L, "size", r.size);
    velconfig::set_text(L, "time", r.time);
    velconfig::end_row(L);
  }
  velconfig::set_text(L, "filePath", kFolder);
  velconfig::set_number(L, "fileNum", n);
}

void remove_all(const std::string& root, const std::string& folder) {
  for (int i = 0; i < kFiles; ++i) {
    char name[64];
    snprintf(name, sizeof name, "/IMG_%05d.jpg", i);
    (void)remove((folder + name).c_str());  // best effort: a leftover in the scratch root is harmless
  }
  rmdir(folder.c_str());
  rmdir((root + "/mnt/usb1").c_str());
  rmdir((root + "/mnt").c_str());
  rmdir(root.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  const char* mode = argc > 1 ? argv[1] : "time";
  int n = velbench::call_count(argc, argv, 20, "bench_files [mode] [calls > 0]");
  if (n == 0) return 2;

  // A USB disk is a real file system; the benchmark's sits in memory where it can, so
  // the figure is the listing's work rather than the host's disk.
  std::string root = velbench::scratch_root();
  if (root.empty()) return 1;
  velsim::set_file_root(root);
  velsim::use_state_file("", nullptr);  // a gateway in memory, never the user's default one
  std::string folder = root + kFolder;
  mkdir((root + "/mnt").c_str(), 0700);
  mkdir((root + "/mnt/usb1").c_str(), 0700);
  mkdir(folder.c_str(), 0700);
  for (int i = 0; i < kFiles; ++i) {
    char name[64];
    snprintf(name, sizeof name, "/IMG_%05d.jpg", i);
    int fd = open((folder + name).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd < 0 || ftruncate(fd, static_cast<off_t>(i) * 997) != 0) return 1;
    close(fd);
  }
  velsim::pin_clock(1700000000);
  std::string reason;
  const char* model =
      "{\"usb\":[{\"id\":1,\"class\":8,\"mount_path\":\"/mnt/"
      "usb1\",\"label\":\"\"}],\"storage\":{\"copy_rate\":0}}";
  if (!velsim::load_model_text(model, &reason)) {
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

  call_sub_files(L);
  std::vector<Row> rows = rows_of(L);
  lua_pop(L, 1);
  const size_t last_kib = (kFiles - 1) * 997 / 1024 + 1;  // whole KiB, rounded up, as the page gives it
  if (rows.size() != kFiles || rows[kFiles - 1].size != static_cast<double>(last_kib)) {
    fprintf(stderr, "unexpected result: %zu rows\n", rows.size());
    return 1;
  }

  double list_time = 0, floor_time = 0;
  bool timing = strcmp(mode, "time") == 0;
  if (timing || strcmp(mode, "list") == 0) {
    for (int i = 0; i < n; ++i) {
      velsim::clear_journal();
      double t0 = velbench::seconds_now();
      CALLGRIND_TOGGLE_COLLECT;
      call_sub_files(L);
      lua_pop(L, 1);
      CALLGRIND_TOGGLE_COLLECT;
      list_time += velbench::seconds_now() - t0;
      lua_gc(L, LUA_GCCOLLECT, 0);
    }
  }
  if (timing || strcmp(mode, "floor") == 0) {
    for (int i = 0; i < n; ++i) {
      double t0 = velbench::seconds_now();
      CALLGRIND_TOGGLE_COLLECT;
      build_floor(L, rows);
      lua_pop(L, 1);
      CALLGRIND_TOGGLE_COLLECT;
      floor_time += velbench::seconds_now() - t0;
      lua_gc(L, LUA_GCCOLLECT, 0);
    }
  }
  if (timing) {
    // The simulated platform's part of subFiles: its two storage operations on the
    // folder (reading the directory and a stat per file), called as the module calls
    // them. What is left of subFiles is the module's own cost.
    double platform_time = 0;
    for (int i = 0; i < n; ++i) {
      double t0 = velbench::seconds_now();
      uint32_t count = 0;
      int32_t status = 1;
      ZoVel_NAS_GetFileNum(kFolder, &count, &status, nullptr);
      ZoVelFolderEntry* entries = nullptr;
      status = 1;
      ZoVel_NAS_ListFolder(kFolder, 1, count, &entries, &status, nullptr);
      g_free(entries);
      platform_time += velbench::seconds_now() - t0;
    }
    double per_file = 1e6 / n / kFiles;
    printf("subFiles  %.3f us/file\nfloor     %.3f us/file\nratio     %.2f\n", list_time * per_file,
           floor_time * per_file, list_time / floor_time);
    printf("platform  %.3f us/file (the simulator's storage operations)\n", platform_time * per_file);
    printf("module    %.3f us/file (subFiles less the platform), ratio to the floor %.2f\n",
           (list_time - platform_time) * per_file, (list_time - platform_time) / floor_time);
  }
  lua_close(L);
  remove_all(root, folder);
  return 0;
}
