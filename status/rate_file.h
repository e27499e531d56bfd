// The LAN host rate file /tmp/lanhostsrate and the speed computation built on it,
// shared by the host list and the overview (internal to status/).
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string_view>
#include <type_traits>

#include "platform/records.h"

namespace velconfig {

// The file is read up to this many lines and a table holds this many records.
constexpr size_t kRateTableRoom = 254;
// What find_host_rate answers for a MAC the table does not hold.
constexpr int kRateNotFound = 255;
// A baseline older than this many seconds is thrown away.
constexpr int32_t kRateMaxInterval = 30;

struct HostRate {
  char mac[24];  // at most 23 characters
  uint64_t down_bytes;
  uint64_t up_bytes;
  int64_t stamp;  // seconds since the epoch of the call that stored it
};

// The file's text as one read gives it or one write takes it: the file is read only
// as far as its first 254 lines of at most 127 characters (a longer line counts as
// several), and 254 records are written in fewer characters than that.
constexpr size_t kRateTextRoom = kRateTableRoom * 127;
struct RateText {
  char bytes[kRateTextRoom + 1];  // and a zero that ends the line being parsed
};

// The meaningful records of the file, those before the first one with an empty MAC,
// and an index over them, so that a lookup does not walk the table per device.
struct HostRateTable {
  static constexpr size_t kIndexSlots = 512;
  HostRate records[kRateTableRoom];
  size_t count;                 // meaningful records
  bool leads[kRateTableRoom];   // the record is the first meaningful one with its MAC
  uint16_t index[kIndexSlots];  // record index + 1; 0 is an empty slot
};

// Fills table from the file at path, read with one read into text; true when at
// least one line was read.
bool load_host_rates(const char* path, HostRateTable* table, RateText* text);
// In a table filled by load_host_rates: the index 0-253 of the first meaningful
// record whose MAC equals mac ignoring letter case, or kRateNotFound.
int find_host_rate(std::string_view mac, const HostRateTable& table);
// Replaces the file at path by the count records (at most kRateTableRoom), formatted
// into text and written with one write.
void store_host_rates(const char* path, const HostRate* records, size_t count, RateText* text);

struct HostSpeed {
  int32_t up;  // bits per second, the low 32 bits of the exact figure
  int32_t down;
};

// One query's pass over the platform's device list: start() before the loop,
// speed_of() for each device the query lists, in list order, finish() after it.
// Everything the pass needs (the old and the new table, the file's text and path;
// 58 KB) is one heap block, kept in the call's scope, so that the web server's small
// thread stacks are spared and a Lua error raised while rows are pushed still frees
// it. Trivially destructible, so it may live on the stack while Lua values are pushed.
class HostSpeedComputation {
 public:
  // May throw what call_scope::keep throws. Without memory for the block every speed
  // is 0 and the file is left as it is.
  void start();
  HostSpeed speed_of(const ZoVelLanHost& host);
  // Stores the listed devices' counters as the next baseline (when any were listed);
  // the call scope gives the block back when the call ends.
  void finish();

 private:
  struct Tables {
    HostRateTable previous;
    HostRate current[kRateTableRoom];
    char path[512];
    RateText text;
  };

  int64_t now_ = 0;
  int32_t interval_ = 0;
  bool valid_ = false;
  size_t listed_ = 0;
  Tables* tables_ = nullptr;
};

static_assert(std::is_trivially_destructible_v<HostSpeedComputation>, "a longjmp may pass over it");

}  // namespace velconfig
