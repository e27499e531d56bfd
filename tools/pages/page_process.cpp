// velconfig_pages: what `velconfig serve --pages` needs beyond plain Lua: running a
// page as a child process by argument vector (never through a shell), with its own
// environment, its body on standard input and its output collected; a stamp of a
// folder that changes whenever a file in it changes; and the running interpreter.
#include <errno.h>
#include <fcntl.h>
#include <ftw.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <initializer_list>
#include <lua.hpp>

namespace {

// A page's output past this is cut: pages answer with a page, not a download.
constexpr size_t kOutputLimit = size_t{16} * 1024 * 1024;

struct Buffer {
  char* data;
  size_t size;
  bool cut;
};

// Appends what fd has to read to out; false once it is closed.
bool drain(int fd, Buffer* out) {
  char chunk[16384];
  ssize_t n = read(fd, chunk, sizeof chunk);
  if (n < 0) return errno == EINTR || errno == EAGAIN;
  if (n == 0) return false;
  size_t room = kOutputLimit - out->size;
  size_t take = static_cast<size_t>(n) < room ? static_cast<size_t>(n) : room;
  if (take < static_cast<size_t>(n)) out->cut = true;
  if (take > 0) {
    char* grown = static_cast<char*>(realloc(out->data, out->size + take));
    if (grown == nullptr) {
      out->cut = true;
      return true;
    }
    memcpy(grown + out->size, chunk, take);
    out->data = grown;
    out->size += take;
  }
  return true;
}

int64_t now_ms() {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<int64_t>(t.tv_sec) * 1000 + t.tv_nsec / 1000000;
}

// The strings of the array at index as a NULL-ended vector (pointers into Lua's
// strings, which the array keeps alive); null when out of memory.
char** string_vector(lua_State* L, int index) {
  size_t n = lua_objlen(L, index);
  char** v = static_cast<char**>(calloc(n + 1, sizeof(char*)));
  if (v == nullptr) return nullptr;
  size_t used = 0;
  for (size_t i = 1; i <= n; ++i) {
    lua_rawgeti(L, index, static_cast<int>(i));
    if (lua_type(L, -1) == LUA_TSTRING) v[used++] = const_cast<char*>(lua_tostring(L, -1));
    lua_pop(L, 1);
  }
  return v;
}

// run{argv = {...}, env = {"NAME=VALUE", ...}, dir = FOLDER, input = TEXT, timeout = SECONDS}
// -> exit status (or -signal), standard output, standard error, timed_out. The child
// runs in a process group of its own, killed whole at the time-out.
int l_run(lua_State* L) {
  luaL_checktype(L, 1, LUA_TTABLE);
  lua_getfield(L, 1, "argv");
  luaL_checktype(L, -1, LUA_TTABLE);
  lua_getfield(L, 1, "env");
  luaL_checktype(L, -1, LUA_TTABLE);
  lua_getfield(L, 1, "dir");
  const char* dir = luaL_checkstring(L, -1);
  lua_getfield(L, 1, "input");
  size_t input_size = 0;
  const char* input = luaL_optlstring(L, -1, "", &input_size);
  lua_getfield(L, 1, "timeout");
  int64_t timeout_ms = static_cast<int64_t>(luaL_optnumber(L, -1, 30) * 1000);
  // Stack: 2 argv, 3 env, 4 dir, 5 input, 6 timeout. Nothing below raises until the
  // results are pushed, after every allocation is released.
  char** argv = string_vector(L, 2);
  char** envp = string_vector(L, 3);
  int in[2] = {-1, -1}, out[2] = {-1, -1}, err[2] = {-1, -1};
  bool piped = pipe2(in, O_CLOEXEC) == 0 && pipe2(out, O_CLOEXEC) == 0 && pipe2(err, O_CLOEXEC) == 0;
  pid_t pid = -1;
  int spawned = -1;
  if (argv != nullptr && envp != nullptr && argv[0] != nullptr && piped) {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attr;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attr);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    posix_spawn_file_actions_addchdir_np(&actions, dir);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attr, &none);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    sigaddset(&defaults, SIGINT);
    sigaddset(&defaults, SIGTERM);
    posix_spawnattr_setsigdefault(&attr, &defaults);
    posix_spawnattr_setpgroup(&attr, 0);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    spawned = posix_spawn(&pid, argv[0], &actions, &attr, argv, envp);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
  }
  free(argv);
  free(envp);
  for (int fd : {in[0], out[1], err[1]}) {
    if (fd >= 0) close(fd);
  }
  Buffer got_out = {nullptr, 0, false}, got_err = {nullptr, 0, false};
  bool timed_out = false;
  int status = 0;
  // A page that exits before reading its body closes the pipe: the write then fails
  // with EPIPE instead of stopping the server. The tool's own disposition comes back.
  struct sigaction ignore_pipe, old_pipe;
  memset(&ignore_pipe, 0, sizeof ignore_pipe);
  ignore_pipe.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &ignore_pipe, &old_pipe);
  if (spawned == 0) {
    fcntl(in[1], F_SETFL, O_NONBLOCK);
    size_t written = 0;
    if (input_size == 0) {
      close(in[1]);
      in[1] = -1;
    }
    int64_t deadline = now_ms() + timeout_ms;
    bool out_open = true, err_open = true;
    while (out_open || err_open) {
      struct pollfd fds[3] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}, {in[1], POLLOUT, 0}};
      if (!out_open) fds[0].fd = -1;
      if (!err_open) fds[1].fd = -1;
      int64_t left = deadline - now_ms();
      if (left <= 0) {
        timed_out = true;
        kill(-pid, SIGKILL);
        break;
      }
      if (poll(fds, 3, static_cast<int>(left)) < 0 && errno != EINTR) break;
      if (fds[0].revents != 0) out_open = drain(out[0], &got_out);
      if (fds[1].revents != 0) err_open = drain(err[0], &got_err);
      if (in[1] >= 0 && fds[2].revents != 0) {
        ssize_t n = write(in[1], input + written, input_size - written);
        if (n > 0) written += static_cast<size_t>(n);
        // A page that stops reading its body early is no fault of the server.
        if ((n < 0 && errno != EAGAIN && errno != EINTR) || written == input_size) {
          close(in[1]);
          in[1] = -1;
        }
      }
    }
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
  }
  sigaction(SIGPIPE, &old_pipe, nullptr);
  for (int fd : {in[1], out[0], err[0]}) {
    if (fd >= 0) close(fd);
  }
  if (spawned != 0) {
    free(got_out.data);
    free(got_err.data);
    lua_pushnil(L);
    lua_pushfstring(L, "cannot start the page: %s", strerror(spawned > 0 ? spawned : errno));
    return 2;
  }
  lua_pushinteger(L, WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status));
  lua_pushlstring(L, got_out.data != nullptr ? got_out.data : "", got_out.size);
  free(got_out.data);
  lua_pushlstring(L, got_err.data != nullptr ? got_err.data : "", got_err.size);
  free(got_err.data);
  lua_pushboolean(L, timed_out);
  return 4;
}

// FNV-1a over every entry's path, size and change time.
uint64_t tree_hash;

void mix(const void* data, size_t size) {
  const unsigned char* p = static_cast<const unsigned char*>(data);
  for (size_t i = 0; i < size; ++i) {
    tree_hash ^= p[i];
    tree_hash *= 1099511628211ULL;
  }
}

int visit(const char* path, const struct stat* st, int, struct FTW*) {
  mix(path, strlen(path) + 1);
  mix(&st->st_size, sizeof st->st_size);
  mix(&st->st_mtim, sizeof st->st_mtim);
  mix(&st->st_ctim, sizeof st->st_ctim);
  return 0;
}

// stamp(DIR) -> a text that changes whenever a file under DIR is added, removed,
// renamed or written.
int l_stamp(lua_State* L) {
  const char* dir = luaL_checkstring(L, 1);
  tree_hash = 14695981039346656037ULL;
  if (nftw(dir, visit, 16, FTW_PHYS) != 0) return luaL_error(L, "cannot read %s: %s", dir, strerror(errno));
  char text[17];
  snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(tree_hash));
  lua_pushstring(L, text);
  return 1;
}

// kind(PATH) -> "file", "folder", "other", or nil when there is nothing there.
int l_kind(lua_State* L) {
  struct stat st;
  if (stat(luaL_checkstring(L, 1), &st) != 0) return 0;
  lua_pushstring(L, S_ISREG(st.st_mode) ? "file" : S_ISDIR(st.st_mode) ? "folder" : "other");
  return 1;
}

// realpath(PATH) -> the absolute path with links resolved, or nil.
int l_realpath(lua_State* L) {
  char* real = realpath(luaL_checkstring(L, 1), nullptr);
  if (real == nullptr) return 0;
  lua_pushstring(L, real);
  free(real);
  return 1;
}

// interpreter() -> the path of the program running this interpreter, so that pages
// run under the same Lua as the tool, whatever PATH holds.
int l_interpreter(lua_State* L) {
  char path[4096];
  ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
  if (n <= 0) return luaL_error(L, "cannot find the running interpreter: %s", strerror(errno));
  path[n] = '\0';
  lua_pushstring(L, path);
  return 1;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int luaopen_velconfig_pages(lua_State* L) {
  lua_newtable(L);
  lua_pushcfunction(L, l_run);
  lua_setfield(L, -2, "run");
  lua_pushcfunction(L, l_stamp);
  lua_setfield(L, -2, "stamp");
  lua_pushcfunction(L, l_realpath);
  lua_setfield(L, -2, "realpath");
  lua_pushcfunction(L, l_kind);
  lua_setfield(L, -2, "kind");
  lua_pushcfunction(L, l_interpreter);
  lua_setfield(L, -2, "interpreter");
  return 1;
}
