// Simulator core: model loading and saving, clock, journal, log lines and faults.
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <map>

#include "sim/sim.h"
#include "sim/sim_seams.h"

namespace velsim {
namespace {

struct Fault {
  int32_t code;
  int32_t times;  // <= 0: until cleared
};

struct State {
  json_t* model = nullptr;
  std::string state_file;
  bool state_file_known = false;
  bool pinned = false;
  int64_t pinned_at = 0;
  json_t* journal = json_array();
  json_t* logs = json_array();
  bool log_to_stderr = false;
  std::map<std::string, Fault> faults;
  std::string root;
};

State& state() {
  static State s;
  return s;
}

// A model whose time base is unset takes "now" as the moment its figures hold.
void adopt(json_t* m) {
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

// A new file (unique name, private mode) renamed over the old one, so a reader sees
// one or the other whole, even while another run saves.
bool save_to(const std::string& path, json_t* m) {
  char* text = json_dumps(m, JSON_INDENT(2) | JSON_SORT_KEYS);
  if (text == nullptr) return false;
  GError* error = nullptr;
  bool ok = g_file_set_contents_full(path.c_str(), text, -1, G_FILE_SET_CONTENTS_CONSISTENT, 0600, &error);
  if (!ok) {
    fprintf(stderr, "velconfig simulator: cannot save %s: %s\n", path.c_str(), error->message);
    g_error_free(error);
  }
  free(text);
  return ok;
}

json_t* parse_object(const char* text, std::string* reason) {
  json_error_t error;
  json_t* m = json_loads(text, 0, &error);
  if (m == nullptr) {
    if (reason) *reason = std::string("model is not JSON: ") + error.text;
    return nullptr;
  }
  if (!json_is_object(m)) {
    json_decref(m);
    if (reason) *reason = "model must be a JSON object";
    return nullptr;
  }
  return m;
}

void load() {
  State& s = state();
  if (!s.state_file_known) {
    const char* env = getenv("VELCONFIG_SIM_STATE");
    s.state_file = env != nullptr ? env : "";
    s.state_file_known = true;
  }
  json_t* m = nullptr;
  if (!s.state_file.empty()) {
    json_error_t error;
    m = json_load_file(s.state_file.c_str(), 0, &error);
    if (m != nullptr && !json_is_object(m)) {
      json_decref(m);
      m = nullptr;
    }
    if (m == nullptr && access(s.state_file.c_str(), F_OK) == 0) {
      // Never overwrite a file we cannot read: that would lose someone's gateway.
      fprintf(stderr, "velconfig simulator: cannot read state file %s: %s\n", s.state_file.c_str(),
              error.text);
      s.state_file.clear();
    }
  }
  bool seeded = m == nullptr;
  if (m == nullptr) m = parse_object(default_model_text(), nullptr);
  adopt(m);
  if (seeded && !s.state_file.empty()) save_to(s.state_file, s.model);
}

}  // namespace

json_t* model() {
  if (state().model == nullptr) load();
  return state().model;
}

void model_changed() {
  const State& s = state();
  if (s.model != nullptr && !s.state_file.empty()) save_to(s.state_file, s.model);
}

bool load_model_text(const char* text, std::string* reason) {
  json_t* m = parse_object(text, reason);
  if (m == nullptr) return false;
  adopt(m);
  model_changed();
  return true;
}

bool use_state_file(const std::string& path, std::string* reason) {
  State& s = state();
  if (!path.empty()) {
    char* folder = g_path_get_dirname(path.c_str());
    g_mkdir_with_parents(folder, 0700);
    g_free(folder);
  }
  s.state_file = path;
  s.state_file_known = true;
  load();
  if (!path.empty() && s.state_file.empty()) {
    if (reason) *reason = "cannot read state file " + path;
    return false;
  }
  return true;
}

int64_t now() {
  const State& s = state();
  return s.pinned ? s.pinned_at : static_cast<int64_t>(time(nullptr));
}

void pin_clock(int64_t t) {
  state().pinned = true;
  state().pinned_at = t;
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
  json_array_append_new(state().journal, entry);
}

json_t* journal_entries() { return state().journal; }
void clear_journal() { json_array_clear(state().journal); }

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
  json_array_append_new(state().logs, line);
  if (state().log_to_stderr) fprintf(stderr, "velconfig[%d]: %s\n", level, text);
}

json_t* log_lines() { return state().logs; }
void clear_logs() { json_array_clear(state().logs); }
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
  if (s.root.empty()) {
    const char* env = getenv("VELCONFIG_ROOT");
    char fallback[64];
    snprintf(fallback, sizeof fallback, "/tmp/velconfig-root-%u", static_cast<unsigned>(getuid()));
    try {
      s.root = (env != nullptr && *env != '\0') ? env : fallback;
    } catch (...) {
      return "/tmp/velconfig-root";  // out of memory: still never the host's own /tmp
    }
  }
  return s.root.c_str();
}

void set_file_root(const std::string& root) { state().root = root; }

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

}  // namespace velsim

extern "C" __attribute__((visibility("default"))) int64_t velconfig_sim_now(void) { return velsim::now(); }

extern "C" __attribute__((visibility("default"))) const char* velconfig_sim_file_root(void) {
  return velsim::file_root();
}
