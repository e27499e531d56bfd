// Simulator core: model loading and saving, clock, journal, log lines and faults.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <deque>
#include <map>

#include "sim/files.h"
#include "sim/sim.h"
#include "sim/sim_seams.h"

namespace velsim {
namespace {

struct Fault {
  int32_t code;
  int32_t times;  // <= 0: until cleared
};

// The journal or the log lines: the newest entries, at most a limit, with a count of
// the older ones dropped, so that a long-lived process does not grow without bound.
struct History {
  std::deque<json_t*> entries;
  uint64_t dropped = 0;
  json_t* view = json_array();  // what the companion reads, rebuilt when asked
  bool view_stale = false;

  void add(json_t* entry, size_t limit) {
    entries.push_back(entry);
    view_stale = true;
    trim(limit);
  }
  void trim(size_t limit) {
    while (entries.size() > limit) {
      json_decref(entries.front());
      entries.pop_front();
      ++dropped;
      view_stale = true;
    }
  }
  void clear() {
    for (json_t* e : entries) json_decref(e);
    entries.clear();
    dropped = 0;
    view_stale = true;
  }
  json_t* array() {
    if (view_stale) {
      json_array_clear(view);
      for (json_t* e : entries) json_array_append(view, e);
      view_stale = false;
    }
    return view;
  }
};

struct State {
  json_t* model = nullptr;
  std::string state_file;
  bool state_file_known = false;
  // Whether state file errors go only to take_state_error() (the companion asked for
  // the file) or also to stderr (the file came from VELCONFIG_SIM_STATE).
  bool errors_to_caller = false;
  int lock_fd = -1;
  // The state file as this process last read or wrote it: another process's save
  // shows as a different text.
  std::string file_text;
  bool file_seen = false;  // file_text holds the file's contents
  bool loaded = false;     // the model is the state file's (or about to seed it)
  int session_depth = 0;
  bool dirty = false;
  std::string state_error;
  bool pinned = false;
  int64_t pinned_at = 0;  // the system's clock as pinned, before the model's offset
  // The model's time.offset, kept here so that the copy worker reads the clock
  // without touching the model (it runs outside the platform lock).
  std::atomic<int64_t> clock_offset{0};
  History journal;
  History logs;
  size_t history_limit = kDefaultHistoryLimit;
  bool log_to_stderr = false;
  std::map<std::string, Fault> faults;
  std::string root;           // chosen by set_file_root or VELCONFIG_ROOT
  bool root_known = false;    // root read from the environment
  std::string derived_root;   // the state file's, or the in-memory gateway's
  std::string last_reported;  // the last problem written to stderr
};

// Never destroyed: operations may still run from other libraries' exit handlers,
// and everything it holds stays reachable until the process ends.
State& state() {
  static State* s = new State;
  return *s;
}

// A model whose time base is unset takes "now" as the moment its figures hold.
void adopt(json_t* m) {
  state().clock_offset = json_integer_value(json_object_get(json_object_get(m, "time"), "offset"));
  json_t* time_obj = json_object_get(m, "time");
  if (!json_is_object(time_obj)) {
    time_obj = json_object();
    json_object_set_new(m, "time", time_obj);
  }
  if (json_integer_value(json_object_get(time_obj, "base")) <= 0) {
    json_object_set_new(time_obj, "base", json_integer(now()));
  }
  if (state().model != nullptr) json_decref(state().model);
  state().model = m;
}

json_t* parse_object(const char* text, size_t length, std::string* reason) {
  json_error_t error;
  json_t* m = json_loadb(text, length, 0, &error);
  if (m == nullptr) {
    if (reason) *reason = std::string("not JSON: ") + error.text;
    return nullptr;
  }
  if (!json_is_object(m)) {
    json_decref(m);
    if (reason) *reason = "not a JSON object";
    return nullptr;
  }
  return m;
}

void adopt_default() { adopt(parse_object(default_model_text(), strlen(default_model_text()), nullptr)); }

// Records a state file problem for take_state_error(); returns false.
bool state_failed(const std::string& message) {
  State& s = state();
  if (s.state_error.empty()) s.state_error = message;
  if (!s.errors_to_caller) fprintf(stderr, "velconfig simulator: %s\n", message.c_str());
  return false;
}

void read_state_file_name() {
  State& s = state();
  if (s.state_file_known) return;
  const char* env = getenv("VELCONFIG_SIM_STATE");
  s.state_file = env != nullptr ? env : default_state_file();
  s.state_file_known = true;
  s.derived_root.clear();
  if (env == nullptr) {
    // The user's own state folder, private from the first moment.
    char* folder = g_path_get_dirname(s.state_file.c_str());
    g_mkdir_with_parents(folder, 0700);
    g_free(folder);
  }
}

// How long a process waits for another one's state lock before it reports it
// (VELCONFIG_SIM_LOCK_WAIT_MS chooses another bound).
int lock_wait_ms() {
  const char* env = getenv("VELCONFIG_SIM_LOCK_WAIT_MS");
  long ms = env != nullptr ? strtol(env, nullptr, 10) : 0;
  constexpr long kLongestWaitMs = 3600L * 1000;
  return ms > 0 && ms < kLongestWaitMs ? static_cast<int>(ms) : 10000;
}

void close_lock() {
  State& s = state();
  if (s.lock_fd >= 0) close(s.lock_fd);
  s.lock_fd = -1;
}

// Runs across processes: every operation holds the lock file next to the state file.
bool lock_state_file() {
  State& s = state();
  if (s.lock_fd < 0) {
    std::string lock_path = s.state_file + ".lock";
    s.lock_fd = open(lock_path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    if (s.lock_fd < 0) {
      return state_failed("cannot use state file " + s.state_file + ": " + lock_path + ": " +
                          strerror(errno));
    }
  }
  // Bounded: a process that holds the lock for ever (stopped in a debugger) is
  // reported instead of waited on.
  int bound = lock_wait_ms();
  for (int waited = 0; flock(s.lock_fd, LOCK_EX | LOCK_NB) != 0;) {
    if (errno != EWOULDBLOCK && errno != EINTR) {
      return state_failed("cannot use state file " + s.state_file + ": " + strerror(errno));
    }
    if (waited >= bound) {
      return state_failed("cannot use state file " + s.state_file +
                          ": another process has held its lock for " + std::to_string(bound) + " ms");
    }
    g_usleep(gulong{20} * 1000);
    waited += 20;
  }
  return true;
}

void unlock_state_file() {
  if (state().lock_fd >= 0) flock(state().lock_fd, LOCK_UN);
}

// A state file is the model's JSON text: far below this, whatever the gateway.
constexpr size_t kLargestState = size_t{256} * 1024 * 1024;

}  // namespace

bool read_regular_file(const std::string& path, size_t limit, gchar** text, gsize* length,
                       std::string* problem) {
  // Non-blocking: a FIFO is refused at once instead of waited on.
  int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    if (errno != ENOENT) *problem = strerror(errno);
    return false;
  }
  struct stat st;
  if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || static_cast<uint64_t>(st.st_size) > limit) {
    *problem =
        !S_ISREG(st.st_mode) ? "not a regular file" : "larger than " + std::to_string(limit) + " bytes";
    close(fd);
    return false;
  }
  std::string data;
  char buffer[65536];
  for (;;) {
    ssize_t n = read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      if (n < 0) *problem = strerror(errno);
      break;
    }
    if (data.size() + static_cast<size_t>(n) > limit) {
      *problem = "larger than " + std::to_string(limit) + " bytes";
      break;
    }
    data.append(buffer, static_cast<size_t>(n));
  }
  close(fd);
  if (!problem->empty()) return false;
  *length = data.size();
  *text = static_cast<gchar*>(g_malloc(data.size() + 1));
  memcpy(*text, data.data(), data.size());
  (*text)[data.size()] = '\0';
  return true;
}

namespace {

// Makes the model the state file's current contents (under the lock): read again
// when another process saved since, seeded from the default when there is no file.
// A file that exists but cannot be read is reported and never overwritten.
bool refresh_from_file() {
  State& s = state();
  gchar* text = nullptr;
  gsize length = 0;
  std::string message;
  if (!read_regular_file(s.state_file, kLargestState, &text, &length, &message)) {
    bool missing = message.empty();
    if (!missing) return state_failed("cannot read state file " + s.state_file + ": " + message);
    // No file: a first use seeds it; a file removed under us is written again by the
    // next change, from the model this process holds.
    if (!s.loaded) {
      adopt_default();
      s.loaded = true;
      s.dirty = true;
    }
    s.file_text.clear();
    s.file_seen = false;
    return true;
  }
  bool unchanged = s.loaded && s.file_seen && s.file_text.size() == length &&
                   memcmp(s.file_text.data(), text, length) == 0;
  if (unchanged) {
    g_free(text);
    return true;
  }
  std::string reason;
  json_t* m = parse_object(text, length, &reason);
  if (m == nullptr) {
    g_free(text);
    return state_failed("cannot read state file " + s.state_file + ": " + reason);
  }
  try {
    s.file_text.assign(text, length);
  } catch (...) {
    g_free(text);
    json_decref(m);
    throw;
  }
  g_free(text);
  s.file_seen = true;
  s.loaded = true;
  adopt(m);
  return true;
}

// Puts back the model as the state file last held it, after a change that could
// not be saved.
void undo_unsaved_change() {
  State& s = state();
  if (s.file_seen) {
    json_t* m = parse_object(s.file_text.data(), s.file_text.size(), nullptr);
    if (m != nullptr) adopt(m);
  } else {
    s.loaded = false;  // the seed never reached the file: seed again next time
  }
}

// Writes text into a new file (unique name, private mode) next to path and renames it
// over path, so a reader sees the old file or the new one, whole. No fsync: the
// simulated gateway needs atomic replacement, not durability, and a flush per
// change would make every write wait for the disk. Returns 0 or an errno value.
int replace_file(const std::string& path, const char* text) {
  std::string temp = path + ".XXXXXX";
  int fd = g_mkstemp_full(&temp[0], O_WRONLY | O_CLOEXEC, 0600);
  if (fd < 0) return errno;
  size_t length = strlen(text);
  size_t done = 0;
  int error = 0;
  while (done < length && error == 0) {
    ssize_t n = write(fd, text + done, length - done);
    if (n > 0) {
      done += static_cast<size_t>(n);
    } else if (n < 0 && errno != EINTR) {
      error = errno;
    }
  }
  if (close(fd) != 0 && error == 0) error = errno;
  if (error == 0 && rename(temp.c_str(), path.c_str()) != 0) error = errno;
  if (error != 0) unlink(temp.c_str());
  return error;
}

bool save_model() {
  State& s = state();
  char* text = json_dumps(s.model, JSON_INDENT(2) | JSON_SORT_KEYS);
  if (text == nullptr) return state_failed("cannot save state file " + s.state_file + ": out of memory");
  int error;
  try {
    error = replace_file(s.state_file, text);
  } catch (...) {
    free(text);
    throw;
  }
  if (error != 0) {
    free(text);
    return state_failed("cannot save state file " + s.state_file + ": " + strerror(error));
  }
  try {
    s.file_text = text;
    s.file_seen = true;
  } catch (...) {
    s.file_seen = false;  // read again next time
  }
  free(text);
  return true;
}

}  // namespace

std::recursive_mutex& platform_mutex() {
  static std::recursive_mutex* m = new std::recursive_mutex;
  return *m;
}

ModelSession::ModelSession() noexcept {
  State& s = state();
  if (s.session_depth++ > 0) return;
  try {
    read_state_file_name();
    if (s.state_file.empty()) return;
    if (!lock_state_file()) {
      ok_ = false;
      return;
    }
    locked_ = true;
    ok_ = refresh_from_file();
  } catch (...) {
    ok_ = false;
  }
}

ModelSession::~ModelSession() noexcept {
  State& s = state();
  if (--s.session_depth > 0) return;
  if (s.dirty && !s.state_file.empty()) undo_unsaved_change();
  s.dirty = false;
  if (locked_) unlock_state_file();
}

bool ModelSession::commit() noexcept {
  State& s = state();
  if (s.session_depth > 1 || !s.dirty) return true;
  s.dirty = false;
  if (s.state_file.empty() || !ok_) return true;
  bool saved = false;
  try {
    saved = save_model();
  } catch (...) {
    // out of memory while reporting: the change is still not saved
  }
  if (!saved) undo_unsaved_change();
  return saved;
}

json_t* model() {
  if (state().model == nullptr) adopt_default();
  return state().model;
}

void model_changed() {
  State& s = state();
  s.dirty = true;
  if (s.session_depth == 0) {
    // A change made outside any operation is saved at once.
    ModelSession session;
    session.commit();
  }
}

bool load_model_text(const char* text, std::string* reason) {
  json_t* m = parse_object(text, strlen(text), reason);
  if (m == nullptr) {
    if (reason) *reason = "model is " + *reason;
    return false;
  }
  ModelSession session;
  if (!session.ok()) {
    json_decref(m);
    if (reason) *reason = take_state_error();
    return false;
  }
  adopt(m);
  model_changed();
  if (!session.commit()) {
    if (reason) *reason = take_state_error();
    return false;
  }
  return true;
}

bool use_state_file(const std::string& path, std::string* reason) {
  State& s = state();
  close_lock();
  s.state_file = path;
  s.state_file_known = true;
  s.derived_root.clear();
  s.errors_to_caller = true;
  s.loaded = false;
  s.file_seen = false;
  s.file_text.clear();
  s.state_error.clear();
  if (path.empty()) {
    adopt_default();
    return true;
  }
  char* folder = g_path_get_dirname(path.c_str());
  g_mkdir_with_parents(folder, 0700);
  g_free(folder);
  std::string root_problem;
  int root = open_file_root(&root_problem);
  if (root >= 0) close(root);
  bool ok;
  {
    ModelSession session;
    ok = root >= 0 && session.ok() && session.commit();
  }
  if (!ok) {
    if (reason) *reason = root < 0 ? root_problem : take_state_error();
    // Never overwrite a file we cannot read: that would lose someone's gateway.
    close_lock();
    s.state_file.clear();
    s.derived_root.clear();
    adopt_default();
  }
  return ok;
}

const std::string& state_file() {
  read_state_file_name();
  return state().state_file;
}

std::string default_state_file() {
  gchar* path = g_build_filename(g_get_user_state_dir(), "velconfig", "gateway.json", nullptr);
  std::string result = path;
  g_free(path);
  return result;
}

std::string root_of_state_file(const std::string& path) {
  std::string base = path;
  if (base.size() > 5 && base.compare(base.size() - 5, 5, ".json") == 0) base.resize(base.size() - 5);
  return base + ".root";
}

bool replace_state(const char* text, const std::string& backup, std::string* reason) {
  json_t* m = parse_object(text, strlen(text), reason);
  if (m == nullptr) {
    if (reason) *reason = "model is " + *reason;
    return false;
  }
  State& s = state();
  ModelSession session;
  if (!session.ok() || s.state_file.empty()) {
    json_decref(m);
    if (reason) *reason = s.state_file.empty() ? "no state file to replace" : take_state_error();
    return false;
  }
  // The text read under this lock is the one replaced: a change another process
  // saved before is in the backup, one saved after applies to the new model.
  if (s.file_seen && !backup.empty()) {
    int error = replace_file(backup, s.file_text.c_str());
    if (error != 0) {
      json_decref(m);
      if (reason) *reason = "cannot keep the old state as " + backup + ": " + strerror(error);
      return false;
    }
  }
  if (!forget_disk_folders()) {
    json_decref(m);
    if (reason) *reason = "cannot remove the old model's disk folders under " + std::string(file_root());
    return false;
  }
  adopt(m);
  model_changed();
  if (!session.commit()) {
    if (reason) *reason = take_state_error();
    return false;
  }
  // The new model's disks are made afresh from its sample files when first used.
  return forget_disk_folders();
}

std::string take_state_error() {
  std::string e;
  e.swap(state().state_error);
  return e;
}

void report_problem(const std::string& message) {
  State& s = state();
  if (s.state_error.empty()) s.state_error = message;
  if (!s.errors_to_caller && s.last_reported != message) {
    fprintf(stderr, "velconfig simulator: %s\n", message.c_str());
    s.last_reported = message;
  }
}

int64_t now() {
  const State& s = state();
  return plus_seconds(s.pinned ? s.pinned_at : static_cast<int64_t>(time(nullptr)), s.clock_offset);
}

void pin_clock(int64_t t) {
  state().pinned = true;
  state().pinned_at = plus_seconds(t, -state().clock_offset);
}

void jump_clock(int64_t seconds) {
  settle_time();
  json_t* time_obj = json_object_get(model(), "time");
  int64_t offset = plus_seconds(json_integer_value(json_object_get(time_obj, "offset")), seconds);
  json_object_set_new(time_obj, "offset", json_integer(offset));
  state().clock_offset = offset;
  json_object_set_new(time_obj, "base", json_integer(now()));
  model_changed();
}

void unpin_clock() { state().pinned = false; }

bool clock_pinned() { return state().pinned; }

int64_t elapsed() {
  json_t* time_obj = json_object_get(model(), "time");
  int64_t base = json_integer_value(json_object_get(time_obj, "base"));
  int64_t e;
  if (__builtin_sub_overflow(now(), base, &e)) return base < 0 ? INT64_MAX : 0;
  return e > 0 ? e : 0;
}

uint32_t wan_up_time() {
  json_t* wan = object_at("wan");
  bool up = g_ascii_strcasecmp(text_of(wan, "ipv4_status"), "connected") == 0 ||
            g_ascii_strcasecmp(text_of(wan, "ipv6_status"), "connected") == 0;
  return up ? static_cast<uint32_t>(plus_seconds(int_of(wan, "uptime"), elapsed())) : 0;
}

void settle_time() {
  int64_t e = elapsed();
  json_t* device = object_at("device");
  json_object_set_new(device, "uptime", json_integer(plus_seconds(int_of(device, "uptime"), e)));
  json_object_set_new(object_at("wan"), "uptime", json_integer(wan_up_time()));
  for (json_t* host : objects_in("hosts")) {
    if (!flag_of(host, "online")) continue;
    json_object_set_new(host, "online_time", json_integer(plus_seconds(int_of(host, "online_time"), e)));
    for (const char* side : {"down", "up"}) {
      std::string counter = std::string(side) + "_bytes";
      std::string rate = std::string(side) + "_rate";
      uint64_t value = counter_after(int_of(host, counter.c_str()), int_of(host, rate.c_str()), e);
      json_object_set_new(host, counter.c_str(), json_integer(static_cast<json_int_t>(value)));
    }
  }
  json_object_set_new(json_object_get(model(), "time"), "base", json_integer(now()));
}

void journal(const char* op, json_t* args) {
  json_t* entry = json_is_object(args) ? args : json_object();
  if (args != nullptr && entry != args) json_decref(args);
  json_object_set_new(entry, "op", json_string(op));
  state().journal.add(entry, state().history_limit);
}

json_t* journal_entries() { return state().journal.array(); }
uint64_t journal_dropped() { return state().journal.dropped; }
void clear_journal() { state().journal.clear(); }

void set_history_limit(size_t limit) {
  State& s = state();
  s.history_limit = limit;
  s.journal.trim(limit);
  s.logs.trim(limit);
}

json_t* shown_text(const char* text, size_t n) {
  if (text == nullptr) return json_null();
  gchar* valid = g_utf8_make_valid(text, static_cast<gssize>(strnlen(text, n)));
  json_t* j = json_string(valid);
  g_free(valid);
  return j;
}

bool storable_text(const char* text, size_t n) {
  return text != nullptr && g_utf8_validate(text, static_cast<gssize>(strnlen(text, n)), nullptr);
}

void add_log(int32_t level, const char* text) {
  json_t* line = json_object();
  json_object_set_new(line, "level", json_integer(level));
  json_object_set_new(line, "text", shown_text(text));
  state().logs.add(line, state().history_limit);
  if (state().log_to_stderr) fprintf(stderr, "velconfig[%d]: %s\n", level, text);
}

json_t* log_lines() { return state().logs.array(); }
uint64_t logs_dropped() { return state().logs.dropped; }
void clear_logs() { state().logs.clear(); }
void set_log_to_stderr(bool on) { state().log_to_stderr = on; }

void set_fault(const char* op, int32_t code, int32_t times) { state().faults[op] = Fault{code, times}; }
void clear_faults() { state().faults.clear(); }

bool take_fault(const char* op, int32_t* code) {
  auto& faults = state().faults;
  auto it = faults.find(op);
  if (it == faults.end()) return false;
  *code = it->second.code;
  if (it->second.times > 0 && --it->second.times == 0) faults.erase(it);
  return true;
}

const char* file_root() {
  State& s = state();
  try {
    if (!s.root_known) {
      const char* env = getenv("VELCONFIG_ROOT");
      if (env != nullptr && *env != '\0' && s.root.empty()) s.root = env;
      s.root_known = true;
    }
    if (!s.root.empty()) return s.root.c_str();
    if (s.derived_root.empty()) {
      read_state_file_name();
      if (!s.state_file.empty()) {
        s.derived_root = root_of_state_file(s.state_file);
      } else {
        // A gateway in memory gets a private folder of its own (0700, a name no one
        // can take first), kept for the process's life.
        gchar* made = g_dir_make_tmp("velconfig-root-XXXXXX", nullptr);
        s.derived_root = made != nullptr ? made : "";
        g_free(made);
      }
    }
  } catch (...) {
    // out of memory: a root that cannot exist, so every file operation fails
    return "/nonexistent/velconfig-root";
  }
  return s.derived_root.empty() ? "/nonexistent/velconfig-root" : s.derived_root.c_str();
}

void set_file_root(const std::string& root) {
  state().root = root;
  state().root_known = true;
}

// A member of the wrong type is left as it is, so that saving never loses what a
// tester wrote there; the caller then works on an empty stand-in.
json_t* object_at(const char* key) {
  json_t* m = model();
  json_t* v = json_object_get(m, key);
  if (v == nullptr) {
    v = json_object();
    json_object_set_new(m, key, v);
  } else if (!json_is_object(v)) {
    static json_t* stand_in = json_object();
    json_object_clear(stand_in);
    v = stand_in;
  }
  return v;
}

std::vector<json_t*> objects_in(const char* key) {
  std::vector<json_t*> items;
  size_t i;
  json_t* item;
  json_array_foreach(array_at(key), i, item) {
    if (json_is_object(item)) items.push_back(item);
  }
  return items;
}

json_t* array_at(const char* key) {
  json_t* m = model();
  json_t* v = json_object_get(m, key);
  if (v == nullptr) {
    v = json_array();
    json_object_set_new(m, key, v);
  } else if (!json_is_array(v)) {
    // An empty object is how some JSON encoders write an empty list.
    if (json_is_object(v) && json_object_size(v) == 0) {
      v = json_array();
      json_object_set_new(m, key, v);
    } else {
      static json_t* stand_in = json_array();
      json_array_clear(stand_in);
      v = stand_in;
    }
  }
  return v;
}

const char* text_of(json_t* obj, const char* key, const char* fallback) {
  const char* v = json_string_value(json_object_get(obj, key));
  return v != nullptr ? v : fallback;
}

json_int_t number_of(json_t* v, json_int_t fallback) {
  if (json_is_integer(v)) return json_integer_value(v);
  if (json_is_real(v)) {
    double d = json_real_value(v);
    if (d != d) return fallback;
    if (d >= 9.2233720368547758e18) return INT64_MAX;
    if (d <= -9.2233720368547758e18) return INT64_MIN;
    return static_cast<json_int_t>(d);
  }
  if (json_is_boolean(v)) return json_is_true(v) ? 1 : 0;
  return fallback;
}

json_int_t int_of(json_t* obj, const char* key, json_int_t fallback) {
  return number_of(json_object_get(obj, key), fallback);
}

bool flag_of(json_t* obj, const char* key, bool fallback) {
  json_t* v = json_object_get(obj, key);
  if (json_is_boolean(v)) return json_is_true(v);
  if (json_is_integer(v)) return json_integer_value(v) != 0;
  return fallback;
}

void store(json_t* obj, const char* key, json_t* value, json_int_t fallback) {
  json_t* old = json_object_get(obj, key);
  bool same = false;
  if (old != nullptr && value != nullptr) {
    if (json_is_string(value)) {
      const char* text = json_is_string(old) ? json_string_value(old) : "";
      same = strcmp(text, json_string_value(value)) == 0;
    } else if (json_is_integer(value)) {
      same = number_of(old, fallback) == json_integer_value(value);
    } else if (json_is_boolean(value)) {
      bool was =
          json_is_boolean(old) ? json_is_true(old) : json_is_integer(old) && json_integer_value(old) != 0;
      same = was == json_is_true(value);
    }
  }
  if (same) {
    json_decref(value);
  } else {
    json_object_set_new(obj, key, value);
  }
}

namespace {

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The bytes a "reserved" text gives for a range of size bytes: a short text fills
// the start and leaves zeros, a longer one is cut. Anything but hex gives zeros.
void bytes_of_hex(json_t* text, size_t size, std::vector<uint8_t>* out) {
  out->assign(size, 0);
  const char* hex = json_string_value(text);
  size_t length = hex != nullptr ? strlen(hex) : 0;
  if (length % 2 != 0) return;
  for (size_t i = 0; i < length; i += 2) {
    int high = hex_digit(hex[i]);
    int low = hex_digit(hex[i + 1]);
    if (high < 0 || low < 0) {
      out->assign(size, 0);
      return;
    }
    if (i / 2 < size) (*out)[i / 2] = static_cast<uint8_t>(high * 16 + low);
  }
}

std::string offset_key(size_t offset) { return std::to_string(offset); }

}  // namespace

void put_reserved(json_t* entry, void* record, std::initializer_list<ByteRange> ranges) {
  json_t* reserved = json_object_get(entry, "reserved");
  if (!json_is_object(reserved)) return;
  std::vector<uint8_t> bytes;
  for (const ByteRange& r : ranges) {
    bytes_of_hex(json_object_get(reserved, offset_key(r.offset).c_str()), r.size, &bytes);
    memcpy(static_cast<char*>(record) + r.offset, bytes.data(), r.size);
  }
}

json_t* reserved_of(const void* record, std::initializer_list<ByteRange> ranges) {
  json_t* reserved = json_object();
  if (record == nullptr) return reserved;
  static const char kDigits[] = "0123456789abcdef";
  for (const ByteRange& r : ranges) {
    const uint8_t* bytes = static_cast<const uint8_t*>(record) + r.offset;
    bool all_zero = true;
    for (size_t i = 0; i < r.size; ++i) all_zero = all_zero && bytes[i] == 0;
    if (all_zero) continue;
    std::string hex;
    for (size_t i = 0; i < r.size; ++i) {
      hex += kDigits[bytes[i] >> 4];
      hex += kDigits[bytes[i] & 15];
    }
    json_object_set_new(reserved, offset_key(r.offset).c_str(), json_string(hex.c_str()));
  }
  return reserved;
}

void store_reserved(json_t* entry, json_t* reserved, std::initializer_list<ByteRange> ranges) {
  json_t* kept = json_object_get(entry, "reserved");
  if (!json_is_object(kept)) {
    // A member of another type reads as zeros: it stays unless the write carries bytes.
    if (json_object_size(reserved) > 0) json_object_set(entry, "reserved", reserved);
    json_decref(reserved);
    return;
  }
  std::vector<uint8_t> had;
  std::vector<uint8_t> written;
  for (const ByteRange& r : ranges) {
    std::string key = offset_key(r.offset);
    json_t* old = json_object_get(kept, key.c_str());
    json_t* now = json_object_get(reserved, key.c_str());
    bytes_of_hex(now, r.size, &written);
    bytes_of_hex(old, r.size, &had);
    if (had == written) continue;
    if (now != nullptr) {
      json_object_set(kept, key.c_str(), now);
    } else {
      json_object_del(kept, key.c_str());
    }
  }
  if (json_object_size(kept) == 0) json_object_del(entry, "reserved");
  json_decref(reserved);
}

}  // namespace velsim

extern "C" __attribute__((visibility("default"))) int64_t velconfig_sim_now(void) {
  std::lock_guard<std::recursive_mutex> hold(velsim::platform_mutex());
  return velsim::now();
}

extern "C" __attribute__((visibility("default"))) const char* velconfig_sim_file_root(void) {
  std::lock_guard<std::recursive_mutex> hold(velsim::platform_mutex());
  try {
    std::string reason;
    int fd = velsim::open_file_root(&reason);
    if (fd < 0) {
      velsim::report_problem(reason);
      return "";
    }
    close(fd);
  } catch (...) {
    return "";
  }
  return velsim::file_root();
}
