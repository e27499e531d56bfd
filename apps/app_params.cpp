// "getAppParas" and "setAppParas": application parameters in uci files under
// /etc/config. The read takes the file line by line; the write goes through the uci
// tool, run by argument vector, working from a backup copy it removes again.
#include <errno.h>
#include <fcntl.h>
#include <glib.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "apps/apps.h"
#include "common/result.h"
#include "platform/holders.h"
#include "platform/plugin.h"
#include "platform/process.h"
#include "platform/seams.h"
#include "platform/text.h"

namespace velconfig {
namespace {

// Formatting limits (snprintf sizes) and read sizes of the two directions.
constexpr size_t kReadPathLimit = 63;
constexpr size_t kReadLineRoom = 128;
constexpr size_t kWritePathLimit = 127;
constexpr size_t kWriteLineRoom = 160;
constexpr size_t kWordRoom = 64;   // "%63s"
constexpr size_t kValueRoom = 64;  // every text member of a write, the file name too
// "<section>.<option>": two words and the dot; "<file>.<member>=<value>" for uci set.
// Sized for the longest each can be, neither is ever cut.
constexpr size_t kMemberRoom = 2 * kWordRoom;
constexpr size_t kSetArgumentRoom = kValueRoom + kMemberRoom + kValueRoom;
constexpr size_t kCopyRoom = 1024;
// A third word of this many characters or fewer is no section name and no value.
constexpr size_t kShortestCounted = 2;

constexpr int32_t kNotJson = 1;

void close_file(FILE* f) { (void)fclose(f); }  // files opened for reading: nothing to lose
using ScopedFile = Scoped<FILE, close_file>;

// The backup's path (empty until the file is made); releasing it removes the file,
// so no path leaves it behind.
void remove_backup(char* host_path) {
  if (host_path[0] != '\0') unlink(host_path);
  g_free(host_path);
}
using ScopedBackup = Scoped<char, remove_backup>;

// The first three blank-separated words of a line, as "%63s %63s %63s" takes them:
// a longer word is split and its rest is the next word.
struct Words {
  char first[kWordRoom];
  char second[kWordRoom];
  char third[kWordRoom];
};

void split_line(const char* line, Words* w) {
  memset(w, 0, sizeof *w);
  (void)sscanf(line, "%63s %63s %63s", w->first, w->second, w->third);  // words it cannot read stay empty
}

bool counted(const char* word) { return strlen(word) > kShortestCounted; }

bool is_option_line(const Words& w) {
  return strcmp(w.first, "option") == 0 && w.second[0] != '\0' && counted(w.third);
}

// A name that stands for one file directly inside /etc/config. Anything else (blank,
// ".", "..", a "/", a leading "-" or a control character) could reach another file or
// read as an option to a command, so it is never used.
bool plain_file_name(const char* name) {
  bool blank = true;
  for (const unsigned char* p = reinterpret_cast<const unsigned char*>(name); *p != 0; ++p) {
    if (*p < 0x20 || *p == 0x7f || *p == '/') return false;
    if (*p != ' ') blank = false;
  }
  return !blank && name[0] != '-' && strcmp(name, ".") != 0 && strcmp(name, "..") != 0;
}

// Where the gateway file at path lives in this build; empty when it does not fit.
ScopedText host_path(const char* path) {
  // On the heap: the web server's stacks are small.
  ScopedText host(static_cast<char*>(g_malloc(PATH_MAX)));
  if (!gateway_file_path(path, host.get(), PATH_MAX)) return ScopedText();
  return host;
}

// Opens /etc/config/<name> for reading, the path formed within limit; empty when
// the name is not plain, the path does not fit or the file cannot be opened.
ScopedFile open_config(const char* name, size_t limit) {
  if (name == nullptr || !plain_file_name(name)) return ScopedFile();
  char path[kWritePathLimit + 1] = {};
  snprintf(path, limit, "/etc/config/%s", name);
  ScopedText host = host_path(path);
  return ScopedFile(host ? fopen(host.get(), "re") : nullptr);
}

// Copies from into the open descriptor out, byte for byte. False when either side fails.
bool copy_file(const char* from, int out) {
  int in = open(from, O_RDONLY | O_CLOEXEC);
  if (in < 0) return false;
  call_scope::keep_descriptor(in);
  bool ok = true;
  char buf[kCopyRoom];
  while (ok) {
    ssize_t n = read(in, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      ok = n == 0;
      break;
    }
    for (ssize_t done = 0; ok && done < n;) {
      ssize_t w = write(out, buf + done, static_cast<size_t>(n - done));
      if (w < 0 && errno == EINTR) continue;
      ok = w > 0;
      if (ok) done += w;
    }
  }
  return ok;
}

// The backup of the file at host: a new file made exclusively in the same folder
// (never a user's <name>.bak, never through a link), filled with a copy and opened
// for reading. On success backup names it, so releasing backup removes it again;
// on failure backup names nothing and nothing is left behind.
ScopedFile make_backup(const char* host, ScopedBackup* backup) {
  const char* slash = strrchr(host, '/');
  if (slash == nullptr) return ScopedFile();
  // Hidden, so uci never takes the backup for a configuration of its own.
  char* path =
      backup->adopt(g_strdup_printf("%.*s/.%s.XXXXXX", static_cast<int>(slash - host), host, slash + 1));
  int out = mkostemp(path, O_CLOEXEC);
  if (out < 0) {
    path[0] = '\0';
    return ScopedFile();
  }
  call_scope::keep_descriptor(out);
  return ScopedFile(copy_file(host, out) ? fopen(backup->get(), "re") : nullptr);
}

// A name uci can address as a package ([A-Za-z0-9_-], not starting with "-"): a
// blank, a "." or any other character would make "uci set <name>.<member>" name
// another file or none.
bool uci_package_name(const char* name) {
  if (name[0] == '\0' || name[0] == '-') return false;
  for (const char* p = name; *p != '\0'; ++p) {
    if (!g_ascii_isalnum(*p) && *p != '_' && *p != '-') return false;
  }
  return true;
}

// Whether every text member of the request fits its 63-byte buffer whole: a value
// cut there would be stored as a different value, possibly half a character.
bool values_fit(json_t* request) {
  const char* key;
  json_t* value;
  json_object_foreach(request, key, value) {
    if (json_is_string(value) && json_string_length(value) > kValueRoom - 1) return false;
  }
  return true;
}

// "uci set <file>.<section>.<option>=<value>"; its exit status is not examined.
void uci_set(const char* name, const char* member, const char* value) {
  char argument[kSetArgumentRoom] = {};
  snprintf(argument, sizeof argument, "%s.%s=%s", name, member, value);
  const char* const argv[] = {"uci", "set", argument, nullptr};
  run_command(argv, kUciTimeoutMs);
}

void uci_commit(const char* name) {
  const char* const argv[] = {"uci", "commit", name, nullptr};
  run_command(argv, kUciTimeoutMs);
}

// Runs "uci set" for every qualifying option of the backup that the request names.
// The outcome of the last lookup made (0 found, -1 not), 0 when none qualified.
int32_t apply_options(FILE* backup, json_t* request, const char* name, bool* changed) {
  int32_t result = 0;
  char section[kWordRoom] = {};
  char line[kWriteLineRoom];
  while (fgets(line, sizeof line, backup) != nullptr) {
    Words w;
    split_line(line, &w);
    if (strcmp(w.first, "config") == 0) {
      // The write wants the bare name: the quotes around it are dropped.
      memset(section, 0, sizeof section);
      if (counted(w.third)) copy_text(section, std::string_view(w.third + 1, strlen(w.third) - 2));
    } else if (section[0] != '\0' && is_option_line(w)) {
      char member[kMemberRoom] = {};
      snprintf(member, sizeof member, "%s.%s", section, w.second);
      char value[kValueRoom] = {};
      result = read_json_text(request, member, value);
      if (result == 0) {
        uci_set(name, member, value);
        *changed = true;
      }
    }
  }
  return result;
}

}  // namespace

void get_app_paras(lua_State* L, const GetArgs& args) {
  lua_newtable(L);
  bool stored = false;
  ScopedFile file = open_config(args.a1, kReadPathLimit);
  if (file) {
    char section[kWordRoom] = {};
    bool open = false;  // a section table (under its name) sits on the stack
    char line[kReadLineRoom];
    while (fgets(line, sizeof line, file.get()) != nullptr) {
      Words w;
      split_line(line, &w);
      if (strcmp(w.first, "config") == 0) {
        // The read keeps the name as the file writes it, quotes and all.
        copy_text(section, counted(w.third) ? w.third : "");
        if (open) lua_settable(L, -3);
        open = false;
      } else if (section[0] != '\0' && is_option_line(w)) {
        if (!open) {
          lua_pushstring(L, section);
          lua_newtable(L);
          open = true;
        }
        set_text(L, w.second, w.third);
        stored = true;
      }
    }
    if (open) lua_settable(L, -3);
  }
  set_number(L, "ret", stored ? 1 : 0);
}

// 1: not JSON, no string "config", or a text member longer than 63 bytes; 0: a name
// that is empty or that uci cannot address, a missing file or an unreadable backup;
// otherwise the last option lookup's outcome. Refused requests run no command.
int32_t set_app_paras(lua_State* L) {
  size_t length = 0;
  const char* text = lua_isstring(L, -1) ? lua_tolstring(L, -1, &length) : nullptr;
  if (text == nullptr) return kNotJson;
  ScopedJson request(json_loadb(text, length, 0, nullptr));
  char name[kValueRoom] = {};
  if (read_json_text(request.get(), "config", name) != 0 || !values_fit(request.get())) return kNotJson;
  char path[kWritePathLimit] = {};
  snprintf(path, sizeof path, "/etc/config/%s", name);
  ScopedText host;
  if (plain_file_name(name) && uci_package_name(name)) host = host_path(path);
  if (!host || !g_file_test(host.get(), G_FILE_TEST_EXISTS)) return 0;

  ScopedBackup backup;
  // A copy that fails leaves no backup to read: nothing is changed.
  ScopedFile copy = make_backup(host.get(), &backup);
  if (!copy) return 0;
  bool changed = false;
  int32_t result = apply_options(copy.get(), request.get(), name, &changed);
  // The commit runs with the backup gone, so it never meets a second copy of the
  // package beside the one it writes.
  backup.release();
  if (changed) uci_commit(name);
  return result;
}

}  // namespace velconfig
