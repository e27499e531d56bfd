// The simulator's core: one gateway model (a Jansson document), its clock, the
// journal of platform operations, the log lines, and injected faults.
#pragma once

#include <glib.h>
#include <jansson.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <initializer_list>
#include <mutex>
#include <string>
#include <vector>

namespace velsim {

// Held around every simulated operation and every use of the simulator's state: a
// platform library is shared by the threads of the program that loads it. Recursive,
// because an operation may run another (a reader logs). Never destroyed.
std::recursive_mutex& platform_mutex();

// The model: with a state file (VELCONFIG_SIM_STATE or use_state_file), the file's
// contents as of the current operation; else the embedded default, in memory.
json_t* model();
// Marks the model changed; the operation's session saves it when it ends.
void model_changed();
// Replaces the model (and saves it); false with a reason when text is not a JSON
// object or the state file cannot be read or saved.
bool load_model_text(const char* text, std::string* reason);
// The embedded default model.
const char* default_model_text();
// Uses path as the state file from now on (empty: in memory) and loads it, seeding
// it from the default when it does not exist; the file root follows it unless one was
// chosen (set_file_root, VELCONFIG_ROOT), and must pass open_file_root's checks. On
// failure the model is in memory.
bool use_state_file(const std::string& path, std::string* reason);
// The state file operations use: use_state_file's, else VELCONFIG_SIM_STATE (empty:
// in memory), else the user's default gateway (default_state_file()).
const std::string& state_file();
// $XDG_STATE_HOME/velconfig/gateway.json (~/.local/state/... without it): the one
// gateway a page script, the CLI and the console share unless told otherwise.
std::string default_state_file();
// The file root of a state file: beside it, named after it (gateway.json ->
// gateway.root), so that every gateway has its own disks and configuration files.
std::string root_of_state_file(const std::string& path);
// Under the state lock, as one step: keeps the state file's current text as backup
// (a new private file, 0600, renamed into place), removes the old model's disk
// folders, and replaces the model by text (saved). False with a reason.
bool replace_state(const char* text, const std::string& backup, std::string* reason);
// The first state file problem (cannot lock, read or save) since the last call, or "".
std::string take_state_error();
// Reads a regular file of at most limit bytes (the text g_free'd by the caller,
// terminated). False with *problem empty when there is no such file, else with the
// reason: a FIFO or a device is refused at once, never waited on or read for ever.
bool read_regular_file(const std::string& path, size_t limit, gchar** text, gsize* length,
                       std::string* problem);
// Records a problem the caller must hear of (the file root refused) as a state
// problem, and on stderr once per distinct text unless the caller takes the errors.
void report_problem(const std::string& message);

// Result of an operation that could not read the state file, or whose change could
// not be saved into it (the change is undone).
constexpr int32_t kStateFailed = -5;

// One operation's hold on the state file: the lock file next to it is held, the
// model is read again when another process saved since, and a change marked with
// model_changed() is saved by commit(); a change not committed is undone. Nested
// sessions share the outermost one. Without a state file it only counts nesting.
class ModelSession {
 public:
  ModelSession() noexcept;
  ~ModelSession() noexcept;
  ModelSession(const ModelSession&) = delete;
  ModelSession& operator=(const ModelSession&) = delete;
  // False when the state file could not be locked or read: the model must not be used.
  bool ok() const { return ok_; }
  // Saves a marked change; false when it could not be saved (and was undone).
  bool commit() noexcept;

 private:
  bool ok_ = true;
  bool locked_ = false;
};

// Seconds since the epoch, pinned or real, plus the model's time.offset (the clock
// jumps an event made).
int64_t now();
// From now on now() reads t (until the clock is unpinned).
void pin_clock(int64_t t);
// The gateway's clock jumps by seconds (the model's time.offset); the running figures
// go on from where they are, as they count the time the gateway runs.
void jump_clock(int64_t seconds);
void unpin_clock();
bool clock_pinned();
// Seconds the model's time-dependent figures have run since they were true.
int64_t elapsed();
// Folds the elapsed time into the figures, so that base becomes now.
void settle_time();

// Restarts the gateway: its running time and WAN time start again from 0.
void reboot_gateway();

// Whether text is an IPv4 address in dotted-quad form (four decimal numbers 0-255);
// *address gets it in host order.
bool parse_ipv4(const char* text, uint32_t* address);

// Seconds the WAN has been up, running with the clock; 0 while neither of its
// statuses is "connected".
uint32_t wan_up_time();
// a + b, saturating at the limits of the model's integers instead of overflowing.
inline json_int_t saturating_add(json_int_t a, int64_t b) {
  json_int_t sum;
  if (!__builtin_add_overflow(a, b, &sum)) return sum;
  return b > 0 ? INT64_MAX : INT64_MIN;
}

// A running figure after seconds more.
inline json_int_t plus_seconds(json_int_t figure, int64_t seconds) { return saturating_add(figure, seconds); }

// A byte counter after seconds at rate_bits bits per second: never below 0, and
// saturating at the largest figure the model can store.
inline uint64_t counter_after(json_int_t counter, json_int_t rate_bits, int64_t seconds) {
  uint64_t start = counter > 0 ? static_cast<uint64_t>(counter) : 0;
  if (rate_bits <= 0 || seconds <= 0) return start;
  uint64_t bits;
  if (__builtin_mul_overflow(static_cast<uint64_t>(rate_bits), static_cast<uint64_t>(seconds), &bits)) {
    return INT64_MAX;
  }
  uint64_t total = start + bits / 8;  // both below 2^63: no wrap
  return total < static_cast<uint64_t>(INT64_MAX) ? total : static_cast<uint64_t>(INT64_MAX);
}

// A JSON number as an integer: reals are truncated and clamped, NaN gives fallback.
json_int_t number_of(json_t* v, json_int_t fallback);

// Journal: op name plus an object of arguments (stolen; may be null). The journal
// and the log lines keep the newest entries, at most the history limit each, and
// count the older ones they dropped (since the last clear).
constexpr size_t kDefaultHistoryLimit = 10000;
void journal(const char* op, json_t* args);
json_t* journal_entries();  // borrowed array, valid until the next journal change
uint64_t journal_dropped();
void clear_journal();

void add_log(int32_t level, const char* text);
json_t* log_lines();  // borrowed array of {level, text}, valid until the next line
uint64_t logs_dropped();
void clear_logs();
void set_log_to_stderr(bool on);
void set_history_limit(size_t limit);

// Faults: an operation made to fail returns code and touches no out-parameter.
void set_fault(const char* op, int32_t code, int32_t times);  // times <= 0: until cleared
void clear_faults();
bool take_fault(const char* op, int32_t* code);

// The file root: the one chosen (set_file_root, else VELCONFIG_ROOT), else the state
// file's (root_of_state_file), else, for a gateway in memory, a private folder made
// for this process.
const char* file_root();
void set_file_root(const std::string& root);

// Model access helpers. Missing members read as the default.
json_t* object_at(const char* key);  // a top-level object, created when missing
json_t* array_at(const char* key);   // a top-level array, created when missing
const char* text_of(json_t* obj, const char* key, const char* fallback = "");
json_int_t int_of(json_t* obj, const char* key, json_int_t fallback = 0);
bool flag_of(json_t* obj, const char* key, bool fallback = false);

// Stores value (stolen) as obj's member key, unless the member already reads as that
// value (a member of an unexpected type reads as empty, false or, for a number, the
// reader's fallback): such a write leaves the member exactly as it was.
void store(json_t* obj, const char* key, json_t* value, json_int_t fallback = 0);

// Bytes of a record the module does not interpret. The platform expects them back
// unchanged when the record is written, so the model keeps them, in the member
// "reserved": an object of lower-case hex texts keyed by each range's byte offset.
struct ByteRange {
  size_t offset;
  size_t size;
};
#define VELSIM_RANGE(Record, field) \
  velsim::ByteRange { offsetof(Record, field), sizeof(Record::field) }

// Copies the entry's reserved bytes into a (cleared) record; a text that is not hex
// gives zeros (and stays in the model as it is).
void put_reserved(json_t* entry, void* record, std::initializer_list<ByteRange> ranges);
// The record's reserved ranges that are not all zero, as a new "reserved" object.
json_t* reserved_of(const void* record, std::initializer_list<ByteRange> ranges);
// Stores a written record's reserved bytes (stolen object, as reserved_of gives)
// into entry; ranges whose bytes the entry already gives are left as they are.
void store_reserved(json_t* entry, json_t* reserved, std::initializer_list<ByteRange> ranges);

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

// The identity block text of a usb[] entry ("/com/zom/igd1/Info/USBDevice/Inst/<id>").
std::string usb_identity(json_t* usb);

// The object entries of the model's top-level array key, in order.
std::vector<json_t*> objects_in(const char* key);

// Answers a listing operation with items as records, in an array the caller
// releases with g_free.
// A hostile platform, for tests of the module's defences: what it breaks in every
// answer of the kind concerned. kNone is the well-behaved platform.
enum class Hostile {
  kNone,
  kCountMinusOne,   // lists report a count of -1
  kCountHuge,       // lists report 2^31-1 records with the short array they have
  kArrayAbsent,     // lists give no array with a positive count
  kUnterminated,    // every record's bytes are 'A': texts without terminators filling their fields
  kWrongTypes,      // D-Bus values of another type
  kHugeReplies,     // plugin replies, cloud replies and platform texts of 1 MB
  kDeepJson,        // plugin and cloud replies nested 10 000 deep
  kCountOnFailure,  // a folder count that fails still reports the folder's count
};
Hostile hostile();
void set_hostile(Hostile h);
// The profile named by text ("count-1", "count-huge", "array-absent", "unterminated",
// "wrong-types", "huge-replies", "deep-json", "count-on-failure", "none"); false for
// another text.
bool set_hostile(const char* name);

// Under the huge-replies and deep-json profiles: replaces the g_malloc'd text by a
// 1 MB one (a JSON object keeps its members, each text grown) or by JSON nested
// 10 000 deep. True when it replaced it.
bool hostile_text(char** text);
// Under the wrong-types profile: a value of another type in place of value (which
// it consumes); otherwise value itself.
GVariant* hostile_value(GVariant* value);

// Overwrites a filled record as the unterminated profile wants it.
template <class Record>
void hostile_record(Record* r) {
  if (r != nullptr && hostile() == Hostile::kUnterminated) memset(static_cast<void*>(r), 'A', sizeof *r);
}

// The count a list reports for n records under the current profile; may replace the
// array by none (*records released).
template <class Record, class Count>
Count hostile_count(Record** records, size_t n) {
  switch (hostile()) {
    case Hostile::kCountMinusOne:
      return static_cast<Count>(-1);
    case Hostile::kCountHuge:
      return static_cast<Count>(INT32_MAX);
    case Hostile::kArrayAbsent:
      g_free(*records);
      *records = nullptr;
      return static_cast<Count>(n > 0 ? n : 3);
    case Hostile::kUnterminated:
      for (size_t i = 0; i < n; ++i) hostile_record(&(*records)[i]);
      return static_cast<Count>(n);
    default:
      return static_cast<Count>(n);
  }
}

template <class Record, class Count, class Fill>
int32_t list_records(const std::vector<json_t*>& items, Record** out, Count* count, Fill fill) {
  if (out == nullptr || count == nullptr) return -1;
  Record* records = new_records<Record>(items.size());
  for (size_t i = 0; i < items.size(); ++i) fill(items[i], &records[i]);
  *count = hostile_count<Record, Count>(&records, items.size());
  *out = records;
  return 0;
}

// Runs an operation: journals it, answers an injected fault, holds the state file
// for the body (saving what it changed), and keeps exceptions from leaving the
// extern "C" boundary.
template <class Body>
int32_t operation(const char* op, json_t* args, Body body) noexcept {
  try {
    std::lock_guard<std::recursive_mutex> hold(platform_mutex());
    journal(op, args);
    int32_t code = 0;
    if (take_fault(op, &code)) return code;
    ModelSession session;
    if (!session.ok()) return kStateFailed;
    code = body();
    if (!session.commit()) return kStateFailed;
    return code;
  } catch (...) {
    return -1;
  }
}

}  // namespace velsim
