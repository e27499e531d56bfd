/* An interpreter that refuses a light userdata pointing into the calling thread's
 * stack, as LuaJIT 2.1 releases before the 47-bit fix refuse every stack address on
 * 64-bit ARM, whose kernels put stacks above 2^47. The program's own definition of
 * lua_pushlightuserdata is the one a loaded module binds to; it forwards the others
 * to the Lua library. Runs the script named by its argument. */
#include <dlfcn.h>
#include <pthread.h>
#include <stdio.h>

#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>

/* Whether p lies in the calling thread's stack. */
static int on_own_stack(const void *p) {
  pthread_attr_t attr;
  void *base = NULL;
  size_t size = 0;
  if (pthread_getattr_np(pthread_self(), &attr) != 0) return 0;
  int found = pthread_attr_getstack(&attr, &base, &size) == 0 && (const char *)p >= (const char *)base &&
              (const char *)p < (const char *)base + size;
  pthread_attr_destroy(&attr);
  return found;
}

__attribute__((visibility("default"))) void lua_pushlightuserdata(lua_State *L, void *p) {
  static void (*real)(lua_State *, void *);
  if (p != NULL && on_own_stack(p)) {
    luaL_error(L, "bad light userdata pointer");
    return;
  }
  if (real == NULL) *(void **)&real = dlsym(RTLD_NEXT, "lua_pushlightuserdata");
  real(L, p);
}

int main(int argc, char **argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s SCRIPT\n", argv[0]);
    return 2;
  }
  lua_State *L = luaL_newstate();
  luaL_openlibs(L);
  int status = luaL_dofile(L, argv[1]);
  if (status != 0) fprintf(stderr, "%s\n", lua_tostring(L, -1));
  lua_close(L);
  return status == 0 ? 0 : 1;
}
