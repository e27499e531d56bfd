// The simulator's core: one gateway model (a Jansson document), its clock, the
// journal of platform operations, the log lines, and injected faults.
#pragma once

#include <glib.h>
#include <jansson.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace velsim {

// The model, loaded on first use: from VELCONFIG_SIM_STATE when set (seeded from the
// embedded default when the file does not exist), else the embedded default.
json_t* model();
// Saves the model (atomically) when it lives in a state file. Call after a change.
void model_changed();
// Replaces the model; false with a reason when text is not a JSON object.
bool load_model_text(const char* text, std::string* reason);
// The embedded default model.
const char* default_model_text();
// Uses path as the state file from now on (empty: in memory) and reloads.
bool use_state_file(const std::string& path, std::string* reason);

// Seconds since the epoch, pinned or real.
int64_t now();
void pin_clock(int64_t t);
void unpin_clock();
bool clock_pinned();
// Seconds the model's time-dependent figures have run since they were true.
int64_t elapsed();
// Folds the elapsed time into the figures, so that base becomes now.
void settle_time();

// Seconds the WAN has been up, running with the clock; 0 while neither of its
// statuses is "connected".
uint32_t wan_up_time();
// A byte counter after seconds at rate_bits bits per second.
inline uint64_t counter_after(json_int_t counter, json_int_t rate_bits, int64_t seconds) {
  return static_cast<uint64_t>(counter) +
         static_cast<uint64_t>(rate_bits) * static_cast<uint64_t>(seconds) / 8;
}

// A running figure after seconds more, saturating instead of overflowing.
inline json_int_t plus_seconds(json_int_t figure, int64_t seconds) {
  json_int_t sum;
  if (!__builtin_add_overflow(figure, seconds, &sum)) return sum;
  return seconds > 0 ? INT64_MAX : INT64_MIN;
}
// A JSON number as an integer: reals are truncated and clamped, NaN gives fallback.
json_int_t number_of(json_t* v, json_int_t fallback);

// Journal: op name plus an object of arguments (stolen; may be null).
void journal(const char* op, json_t* args);
json_t* journal_entries();  // borrowed array
void clear_journal();

void add_log(int32_t level, const char* text);
json_t* log_lines();  // borrowed array of {level, text}
void clear_logs();
void set_log_to_stderr(bool on);

// Faults: an operation made to fail returns code and touches no out-parameter.
void set_fault(const char* op, int32_t code, int32_t times);  // times <= 0: until cleared
void clear_faults();
bool take_fault(const char* op, int32_t* code);

const char* file_root();
void set_file_root(const std::string& root);

// Model access helpers. Missing members read as the default.
json_t* object_at(const char* key);  // a top-level object, created when missing
json_t* array_at(const char* key);   // a top-level array, created when missing
const char* text_of(json_t* obj, const char* key, const char* fallback = "");
json_int_t int_of(json_t* obj, const char* key, json_int_t fallback = 0);
bool flag_of(json_t* obj, const char* key, bool fallback = false);

// A record text (at most n bytes, up to its terminator) as a JSON string for the
// journal and the log: bytes that are not UTF-8 are shown as U+FFFD.
json_t* shown_text(const char* text, size_t n = static_cast<size_t>(-1));
// Whether a record text (at most n bytes) is UTF-8, as a D-Bus string must be: the
// platform refuses to store anything else.
bool storable_text(const char* text, size_t n = static_cast<size_t>(-1));
template <size_t N>
bool storable(const char (&field)[N]) {
  return storable_text(field, N);
}

// Copies text into a record field, cut to fit and terminated.
template <size_t N>
void put_text(char (&field)[N], const char* text) {
  g_strlcpy(field, text != nullptr ? text : "", N);
}

// Allocates a zeroed array the caller releases with g_free (never null for n > 0).
template <class T>
T* new_records(size_t n) {
  return n > 0 ? static_cast<T*>(g_malloc0_n(n, sizeof(T))) : nullptr;
}

// The object entries of the model's top-level array key, in order.
std::vector<json_t*> objects_in(const char* key);

// Answers a listing operation with items as records, in an array the caller
// releases with g_free.
template <class Record, class Count, class Fill>
int32_t list_records(const std::vector<json_t*>& items, Record** out, Count* count, Fill fill) {
  if (out == nullptr || count == nullptr) return -1;
  Record* records = new_records<Record>(items.size());
  for (size_t i = 0; i < items.size(); ++i) fill(items[i], &records[i]);
  *out = records;
  *count = static_cast<Count>(items.size());
  return 0;
}

// Runs an operation: journals it, answers an injected fault, and keeps exceptions
// from leaving the extern "C" boundary.
template <class Body>
int32_t operation(const char* op, json_t* args, Body body) noexcept {
  try {
    journal(op, args);
    int32_t code = 0;
    if (take_fault(op, &code)) return code;
    return body();
  } catch (...) {
    return -1;
  }
}

}  // namespace velsim
