// The LAN host rate file: the previous call's byte counters, one text line per
// device, from which the next call of the host list or the overview derives speeds.
#include "status/rate_file.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <limits>
#include <string_view>

#include "platform/holders.h"
#include "platform/seams.h"
#include "platform/text.h"

namespace velconfig {
namespace {

constexpr const char* kRateFile = "/tmp/lanhostsrate";
// Lines are read as fgets reads them into a 128-character buffer: a longer line
// comes in pieces of 127 characters, each counting as a line.
constexpr size_t kLinePiece = 127;
constexpr size_t kMacWidth = 23;
// "%23s %lu %lu %ld\n" never needs more: 23 + 3 * (1 + 20) + 1.
constexpr size_t kLineMax = 87;
// Chunks of the file read and written at a time: small enough for a thread stack,
// large enough that a file of 254 hosts (about 15 KB) takes a handful of calls.
constexpr size_t kReadChunk = 2048;
constexpr size_t kWriteChunk = 2048;
static_assert(kReadChunk >= 2 * kLinePiece && kWriteChunk >= 2 * kLineMax, "a chunk holds whole pieces");

bool rate_file_path(char (&path)[512]) { return gateway_file_path(kRateFile, path, sizeof path); }

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }

// A cursor over one line piece that reads fields as sscanf's "%23s%lu%lu%ld" does;
// a zero byte ends the piece as it ends sscanf's input.
class LineScanner {
 public:
  LineScanner(const char* text, size_t length) : p_(text), end_(text + length) {
    const void* nul = memchr(text, '\0', length);
    if (nul != nullptr) end_ = static_cast<const char*>(nul);
  }

  bool word(char (&out)[kMacWidth + 1]) {
    skip_blanks();
    size_t n = 0;
    while (p_ < end_ && !is_blank(*p_) && n < kMacWidth) out[n++] = *p_++;
    out[n] = '\0';
    return n > 0;
  }

  // %lu: optional sign, decimal digits; a minus negates modulo 2^64, too many
  // digits saturate as strtoul does.
  bool unsigned_number(uint64_t* out) {
    bool negative = false;
    uint64_t value = 0;
    bool overflow = false;
    if (!digits(&negative, &value, &overflow)) return false;
    // strtoul: an out-of-range text is the maximum whatever its sign.
    *out = overflow ? std::numeric_limits<uint64_t>::max() : (negative ? 0 - value : value);
    return true;
  }

  // %ld: saturates at the limits of a signed 64-bit number as strtol does.
  bool signed_number(int64_t* out) {
    bool negative = false;
    uint64_t value = 0;
    bool overflow = false;
    if (!digits(&negative, &value, &overflow)) return false;
    constexpr uint64_t kMax = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
    if (negative) {
      *out = (overflow || value > kMax + 1) ? std::numeric_limits<int64_t>::min()
                                            : static_cast<int64_t>(0 - value);
    } else {
      *out = (overflow || value > kMax) ? std::numeric_limits<int64_t>::max() : static_cast<int64_t>(value);
    }
    return true;
  }

 private:
  void skip_blanks() {
    while (p_ < end_ && is_blank(*p_)) ++p_;
  }

  bool digits(bool* negative, uint64_t* value, bool* overflow) {
    skip_blanks();
    if (p_ < end_ && (*p_ == '+' || *p_ == '-')) *negative = (*p_++ == '-');
    const char* first = p_;
    constexpr uint64_t kTenth = std::numeric_limits<uint64_t>::max() / 10;
    constexpr uint64_t kLastDigit = std::numeric_limits<uint64_t>::max() % 10;
    for (; p_ < end_ && *p_ >= '0' && *p_ <= '9'; ++p_) {
      uint64_t digit = static_cast<uint64_t>(*p_ - '0');
      if (*value > kTenth || (*value == kTenth && digit > kLastDigit)) *overflow = true;
      *value = *value * 10 + digit;
    }
    return p_ != first;
  }

  const char* p_;
  const char* end_;
};

// Fills record from one line piece; fields that do not parse stay zero, and the
// first failure ends the line, as sscanf's does.
void parse_line(const char* text, size_t length, HostRate* record) {
  LineScanner scan(text, length);
  if (!scan.word(record->mac)) return;
  if (!scan.unsigned_number(&record->down_bytes)) return;
  if (!scan.unsigned_number(&record->up_bytes)) return;
  scan.signed_number(&record->stamp);
}

char* put_decimal(char* out, uint64_t value, bool negative) {
  char digits[20];
  size_t n = 0;
  do {
    digits[n++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value != 0);
  if (negative) *out++ = '-';
  while (n > 0) *out++ = digits[--n];
  return out;
}

// One line exactly as "%23s %lu %lu %ld\n" prints it; returns its end.
char* format_line(char* out, const HostRate& record) {
  size_t mac_length = strnlen(record.mac, kMacWidth);
  for (size_t i = mac_length; i < kMacWidth; ++i) *out++ = ' ';
  memcpy(out, record.mac, mac_length);
  out += mac_length;
  *out++ = ' ';
  out = put_decimal(out, record.down_bytes, false);
  *out++ = ' ';
  out = put_decimal(out, record.up_bytes, false);
  *out++ = ' ';
  bool negative = record.stamp < 0;
  uint64_t magnitude =
      negative ? 0 - static_cast<uint64_t>(record.stamp) : static_cast<uint64_t>(record.stamp);
  out = put_decimal(out, magnitude, negative);
  *out++ = '\n';
  return out;
}

bool write_all(int fd, const char* data, size_t length) {
  while (length > 0) {
    ssize_t n = write_file_bytes(fd, data, length);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    length -= static_cast<size_t>(n);
  }
  return true;
}

// Appends to data[*length, room) what the file gives; false once it has ended (a
// short read ends it too: a regular file gives everything it has at once).
bool read_more(int fd, char* data, size_t* length, size_t room) {
  while (*length < room) {
    size_t want = room - *length;
    ssize_t n = read(fd, data + *length, want);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    *length += static_cast<size_t>(n);
    if (static_cast<size_t>(n) < want) return false;
  }
  return true;
}

char lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

// strcasecmp's equality in the C locale.
bool mac_equal(std::string_view mac, const char (&stored)[sizeof HostRate::mac]) {
  if (mac.size() >= sizeof stored || stored[mac.size()] != '\0') return false;
  for (size_t i = 0; i < mac.size(); ++i) {
    if (lower(mac[i]) != lower(stored[i])) return false;
  }
  return true;
}

uint32_t mac_hash(std::string_view mac) {
  uint32_t h = 2166136261u;
  for (char c : mac) h = (h ^ static_cast<uint8_t>(lower(c))) * 16777619u;
  return h;
}

// Indexes the meaningful records; of equal MACs the first is kept, as a walk from
// the start would find it.
void index_host_rates(HostRateTable* table) {
  constexpr size_t kSlots = HostRateTable::kIndexSlots;
  memset(table->index, 0, sizeof table->index);
  for (size_t i = 0; i < kRateTableRoom && table->records[i].mac[0] != '\0'; ++i) {
    std::string_view mac = field_text(table->records[i].mac);
    if (find_host_rate(mac, *table) != kRateNotFound) continue;
    size_t slot = mac_hash(mac) % kSlots;
    while (table->index[slot] != 0) slot = (slot + 1) % kSlots;
    table->index[slot] = static_cast<uint16_t>(i + 1);
  }
}

}  // namespace

bool load_host_rates(HostRateTable* table) {
  char path[512];
  if (!rate_file_path(path)) return false;
  // Non-blocking, so that a FIFO someone left in our place cannot stall the page; a
  // folder or a device there reads as nothing or as junk, bounded by the line count.
  int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return false;
  // The file is read in chunks: a whole file (254 pieces of up to 127 characters)
  // would need 32 KB of stack. Before each piece at least kLinePiece characters are
  // in hand unless the file has ended, so a piece is cut where fgets would cut it.
  char data[kReadChunk];
  size_t length = 0;
  size_t pos = 0;
  bool more = true;
  size_t lines = 0;
  while (lines < kRateTableRoom) {
    if (more && length - pos < kLinePiece) {
      memmove(data, data + pos, length - pos);
      length -= pos;
      pos = 0;
      more = read_more(fd, data, &length, sizeof data);
    }
    if (pos == length) break;
    size_t room = length - pos < kLinePiece ? length - pos : kLinePiece;
    const void* feed = memchr(data + pos, '\n', room);
    size_t piece =
        feed != nullptr ? static_cast<size_t>(static_cast<const char*>(feed) - (data + pos)) + 1 : room;
    parse_line(data + pos, piece, &table->records[lines]);
    pos += piece;
    ++lines;
  }
  close(fd);
  index_host_rates(table);
  return lines > 0;
}

int find_host_rate(std::string_view mac, const HostRateTable& table) {
  constexpr size_t kSlots = HostRateTable::kIndexSlots;
  for (size_t slot = mac_hash(mac) % kSlots; table.index[slot] != 0; slot = (slot + 1) % kSlots) {
    int i = table.index[slot] - 1;
    if (mac_equal(mac, table.records[i].mac)) return i;
  }
  return kRateNotFound;
}

void store_host_rates(const HostRateTable& table, size_t count) {
  char path[512];
  if (!rate_file_path(path)) return;
  if (count > kRateTableRoom) count = kRateTableRoom;

  // The next reader sees the old file or the new one whole, never a part of one.
  // O_EXCL never follows a link someone planted under the temporary name.
  char temp[sizeof path + 24];
  snprintf(temp, sizeof temp, "%s.%ld.tmp", path, static_cast<long>(getpid()));
  int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
  int fd = open(temp, flags, 0644);
  if (fd < 0 && errno == EEXIST && unlink(temp) == 0) fd = open(temp, flags, 0644);
  if (fd >= 0) {
    // Formatted a chunk at a time, for the same reason the file is read that way.
    char text[kWriteChunk];
    char* end = text;
    bool written = true;
    for (size_t i = 0; i < count && written; ++i) {
      end = format_line(end, table.records[i]);
      if (static_cast<size_t>(text + sizeof text - end) < kLineMax || i + 1 == count) {
        written = write_all(fd, text, static_cast<size_t>(end - text));
        end = text;
      }
    }
    // A file that cannot be replaced whole stays as it was: its counters and stamp
    // still agree, so it serves as a baseline until it grows stale.
    bool stored = (close(fd) == 0) && written && rename(temp, path) == 0;
    if (!stored) unlink(temp);
  }
}

void HostSpeedComputation::start() {
  now_ = wall_clock_now();
  listed_ = 0;
  valid_ = false;
  interval_ = 0;
  // calloc clears both tables, as the computation starts from cleared tables.
  Tables* tables = static_cast<Tables*>(calloc(1, sizeof(Tables)));
  if (tables == nullptr) return;
  call_scope::keep(tables, free);
  tables_ = tables;
  HostRateTable& previous = tables_->previous;
  valid_ = load_host_rates(&previous);
  if (valid_) {
    // Only the first record's stamp counts: all records of one file share it.
    uint64_t seconds = static_cast<uint64_t>(now_) - static_cast<uint64_t>(previous.records[0].stamp);
    interval_ = static_cast<int32_t>(static_cast<uint32_t>(seconds));
    if (interval_ > kRateMaxInterval) {
      char path[512];
      if (rate_file_path(path)) unlink(path);
      valid_ = false;
    }
  }
}

HostSpeed HostSpeedComputation::speed_of(const ZoVelLanHost& host) {
  std::string_view mac = field_text(host.mac);
  HostSpeed speed{0, 0};
  if (tables_ == nullptr) return speed;
  if (interval_ > 0 && valid_ && !mac.empty()) {
    int i = find_host_rate(mac, tables_->previous);
    if (i != kRateNotFound) {
      const HostRate& before = tables_->previous.records[i];
      if (host.up_bytes >= before.up_bytes && host.down_bytes >= before.down_bytes) {
        uint64_t seconds = static_cast<uint64_t>(interval_);
        speed.up =
            static_cast<int32_t>(static_cast<uint32_t>((host.up_bytes - before.up_bytes) * 8 / seconds));
        speed.down =
            static_cast<int32_t>(static_cast<uint32_t>((host.down_bytes - before.down_bytes) * 8 / seconds));
      }
    }
  }
  // Devices past the table's room are listed but not remembered.
  if (listed_ < kRateTableRoom) {
    HostRate& now = tables_->current.records[listed_];
    copy_text(now.mac, mac);
    now.down_bytes = host.down_bytes;
    now.up_bytes = host.up_bytes;
    now.stamp = now_;
  }
  ++listed_;
  return speed;
}

void HostSpeedComputation::finish() {
  if (tables_ == nullptr) return;
  if (listed_ > 0) store_host_rates(tables_->current, listed_ < kRateTableRoom ? listed_ : kRateTableRoom);
  call_scope::release(tables_);
  tables_ = nullptr;
}

}  // namespace velconfig
