/* Calls the module's exported EasyMesh reader as another gateway program does: loads
 * velconfig.so with dlopen (lazily: this program has no Lua interpreter, and the
 * reader never calls into Lua) and reads the record by the published offsets.
 *
 * usage: easymesh_export MODULE [CALLS [clear|fill [THREADS]]]
 * Prints "null <result>" for a null record, then the result and every field of a
 * record that was cleared (or filled with 'x' bytes) before the call, then how many
 * of CALLS further calls (made by each of THREADS threads at once, default 1) gave
 * the same result and the same record byte for byte.
 * Exit status 0 when the module loads, the record's tail guard stays untouched and
 * every call agrees; 1 otherwise. */
#include <dlfcn.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { kRecordSize = 588, kGuard = 64 };

struct Text {
  const char* name;
  size_t offset;
  size_t width;
};
struct Flag {
  const char* name;
  size_t offset;
};

static const struct Text kTexts[] = {
    {"path", 0, 256},     {"ssid_2g", 268, 64}, {"ssid_5g", 332, 64}, {"auth_2g", 396, 16},
    {"auth_5g", 412, 16}, {"key_2g", 428, 80},  {"key_5g", 508, 80},
};
static const struct Flag kFlags[] = {{"enable", 256}, {"enable_2g", 260}, {"enable_5g", 264}};

typedef int32_t (*Reader)(void* record);

enum { kMaxThreads = 16 };

static unsigned char first[kRecordSize + kGuard];

struct Caller {
  pthread_t thread;
  Reader read_config;
  int32_t rc;
  long calls;
  int fill;
  long same;
};

static void prepare(unsigned char* record, int fill) {
  memset(record, fill ? 'x' : 0, kRecordSize);
  memset(record + kRecordSize, 0xA5, kGuard);
}

static int guard_intact(const unsigned char* record) {
  for (int i = 0; i < kGuard; ++i) {
    if (record[kRecordSize + i] != 0xA5) return 0;
  }
  return 1;
}

static void print_record(const unsigned char* record) {
  for (size_t i = 0; i < sizeof kFlags / sizeof kFlags[0]; ++i) {
    uint32_t value;
    memcpy(&value, record + kFlags[i].offset, sizeof value);
    printf("%s %u\n", kFlags[i].name, (unsigned)value);
  }
  for (size_t i = 0; i < sizeof kTexts / sizeof kTexts[0]; ++i) {
    const char* text = (const char*)record + kTexts[i].offset;
    size_t length = strnlen(text, kTexts[i].width);
    /* "terminated" says whether the text ends inside its field. */
    printf("%s %s %.*s\n", kTexts[i].name, length < kTexts[i].width ? "terminated" : "unterminated",
           (int)length, text);
  }
}

static void* call_repeatedly(void* arg) {
  struct Caller* c = arg;
  unsigned char again[kRecordSize + kGuard];
  for (long i = 0; i < c->calls; ++i) {
    prepare(again, c->fill);
    if (c->read_config(again) == c->rc && memcmp(first, again, kRecordSize) == 0 && guard_intact(again)) ++c->same;
  }
  return NULL;
}

int main(int argc, char** argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: easymesh_export MODULE [CALLS [clear|fill]]\n");
    return 2;
  }
  long calls = argc > 2 ? strtol(argv[2], NULL, 10) : 0;
  int fill = argc > 3 && strcmp(argv[3], "fill") == 0;
  long threads = argc > 4 ? strtol(argv[4], NULL, 10) : 1;
  if (threads < 1 || threads > kMaxThreads) {
    fprintf(stderr, "THREADS must be 1 to %d\n", kMaxThreads);
    return 2;
  }

  void* module = dlopen(argv[1], RTLD_LAZY | RTLD_LOCAL);
  if (module == NULL) {
    fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  Reader read_config = (Reader)dlsym(module, "ZoVelGetEasymeshConfigInfo");
  if (read_config == NULL) {
    fprintf(stderr, "%s\n", dlerror());
    dlclose(module);
    return 1;
  }

  printf("null %d\n", (int)read_config(NULL));

  prepare(first, fill);
  int32_t rc = read_config(first);
  printf("rc %d\n", (int)rc);
  print_record(first);
  int ok = guard_intact(first);

  struct Caller callers[kMaxThreads];
  long started = 0;
  for (long t = 0; t < threads; ++t) {
    callers[t] = (struct Caller){.read_config = read_config, .rc = rc, .calls = calls, .fill = fill, .same = 0};
    if (pthread_create(&callers[t].thread, NULL, call_repeatedly, &callers[t]) != 0) break;
    ++started;
  }
  long same = 0;
  for (long t = 0; t < started; ++t) {
    pthread_join(callers[t].thread, NULL);
    same += callers[t].same;
  }
  printf("calls %ld same %ld\n", calls * threads, same);
  dlclose(module);
  return ok && same == calls * threads ? 0 : 1;
}
