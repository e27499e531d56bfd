// The LAN host rate file: the previous call's byte counters, one text line per
// device, from which the next call of the host list or the overview derives speeds.
#include "status/rate_file.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
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
static_assert(kRateTextRoom >= kRateTableRoom * kLinePiece, "the text holds every line the file is read for");
static_assert(kRateTextRoom >= kRateTableRoom * kLineMax, "the text holds every line a table writes");

bool rate_file_path(char (&path)[512]) { return gateway_file_path(kRateFile, path, sizeof path); }

// Character classes of the parser: isspace's blanks in the C locale (space, \t, \n,
// \v, \f, \r), decimal digits, and what ends a word (a blank or the zero that ends
// the input, as it ends sscanf's).
constexpr uint8_t kBlank = 1, kDigit = 2, kEndsWord = 4;
struct CharClasses {
  uint8_t of[256] = {};
  constexpr CharClasses() {
    for (unsigned char c : {' ', '\t', '\n', '\v', '\f', '\r'}) of[c] = kBlank | kEndsWord;
    for (unsigned char c = '0'; c <= '9'; ++c) of[c] = kDigit;
    of[0] = kEndsWord;
  }
};
constexpr CharClasses kClasses;
uint8_t class_of(char c) { return kClasses.of[static_cast<unsigned char>(c)]; }

// A cursor over one line piece ended by a zero that reads fields as sscanf's
// "%23s%lu%lu%ld" does; the zero is neither blank, nor a sign, nor a digit, so every
// field stops there.
class LineScanner {
 public:
  explicit LineScanner(const char* text) : p_(text) {}

  bool word(char (&out)[kMacWidth + 1]) {
    skip_blanks();
    const char* first = p_;
    while (!(class_of(*p_) & kEndsWord) && p_ - first < static_cast<ptrdiff_t>(kMacWidth)) ++p_;
    size_t n = static_cast<size_t>(p_ - first);
    memcpy(out, first, n);
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

  // %ld: saturates at the limits of a signed 64-bit number as strtol does. It reads
  // a line's last field, so no caller asks whether it found digits: without any, the
  // value is 0, as the cleared record already holds.
  void signed_number(int64_t* out) {
    bool negative = false;
    uint64_t value = 0;
    bool overflow = false;
    digits(&negative, &value, &overflow);
    // The largest magnitude each sign can have: 2^63 below zero, 2^63 - 1 above.
    constexpr uint64_t kMax = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
    uint64_t limit = negative ? kMax + 1 : kMax;
    uint64_t magnitude = overflow ? limit : std::min(value, limit);
    *out = static_cast<int64_t>(negative ? 0 - magnitude : magnitude);
  }

 private:
  void skip_blanks() {
    while (class_of(*p_) & kBlank) ++p_;
  }

  bool digits(bool* negative, uint64_t* value, bool* overflow) {
    skip_blanks();
    if (*p_ == '+' || *p_ == '-') *negative = (*p_++ == '-');
    const char* first = p_;
    uint64_t v = 0;
    // 19 digits always fit; only the ones after them can overflow.
    while ((class_of(*p_) & kDigit) && p_ - first < 19) v = v * 10 + static_cast<uint64_t>(*p_++ - '0');
    constexpr uint64_t kTenth = std::numeric_limits<uint64_t>::max() / 10;
    constexpr uint64_t kLastDigit = std::numeric_limits<uint64_t>::max() % 10;
    for (; class_of(*p_) & kDigit; ++p_) {
      uint64_t digit = static_cast<uint64_t>(*p_ - '0');
      if (v > kTenth || (v == kTenth && digit > kLastDigit)) *overflow = true;
      v = v * 10 + digit;
    }
    *value = v;
    return p_ != first;
  }

  const char* p_;
};

// Fills a cleared record from one line piece; fields that do not parse stay zero,
// and the first failure ends the line, as sscanf's does.
void parse_line(const char* text, HostRate* record) {
  LineScanner scan(text);
  if (!scan.word(record->mac)) return;
  if (!scan.unsigned_number(&record->down_bytes)) return;
  if (!scan.unsigned_number(&record->up_bytes)) return;
  scan.signed_number(&record->stamp);
}

// The decimal digits of value, two at a time, ending at end; returns their start.
char* decimal_before(char* end, uint64_t value) {
  static constexpr char kPairs[] =
      "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
      "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
      "8081828384858687888990919293949596979899";
  while (value >= 100) {
    const char* pair = kPairs + (value % 100) * 2;
    value /= 100;
    *--end = pair[1];
    *--end = pair[0];
  }
  if (value >= 10) {
    const char* pair = kPairs + value * 2;
    *--end = pair[1];
    *--end = pair[0];
  } else {
    *--end = static_cast<char>('0' + value);
  }
  return end;
}

char* put_unsigned(char* out, uint64_t value) {
  char digits[20];
  char* first = decimal_before(digits + sizeof digits, value);
  size_t n = static_cast<size_t>(digits + sizeof digits - first);
  memcpy(out, first, n);
  return out + n;
}

// " %ld\n" of a stamp: every record of one file carries the same, so it is made once.
struct StampText {
  int64_t stamp = 0;
  size_t length = 0;
  char text[24];

  void set(int64_t value) {
    stamp = value;
    bool negative = value < 0;
    uint64_t magnitude = negative ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    char* out = text;
    *out++ = ' ';
    if (negative) *out++ = '-';
    out = put_unsigned(out, magnitude);
    *out++ = '\n';
    length = static_cast<size_t>(out - text);
  }
};

// One line exactly as "%23s %lu %lu %ld\n" prints it; returns its end.
char* format_line(char* out, const HostRate& record, StampText* stamp) {
  size_t mac_length = strnlen(record.mac, kMacWidth);
  memset(out, ' ', kMacWidth - mac_length);
  out += kMacWidth - mac_length;
  memcpy(out, record.mac, mac_length);
  out += mac_length;
  *out++ = ' ';
  out = put_unsigned(out, record.down_bytes);
  *out++ = ' ';
  out = put_unsigned(out, record.up_bytes);
  if (stamp->length == 0 || record.stamp != stamp->stamp) stamp->set(record.stamp);
  memcpy(out, stamp->text, stamp->length);
  return out + stamp->length;
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

// Up to room bytes of the file in one read (a regular file gives everything it has
// at once); 0 when it gives nothing.
size_t read_once(int fd, char* data, size_t room) {
  ssize_t n;
  do {
    n = read(fd, data, room);
  } while (n < 0 && errno == EINTR);
  return n > 0 ? static_cast<size_t>(n) : 0;
}

char lower(char c) { return static_cast<unsigned char>(c - 'A') < 26 ? static_cast<char>(c | 0x20) : c; }

// strcasecmp's equality in the C locale.
bool mac_equal(std::string_view mac, const char (&stored)[sizeof HostRate::mac]) {
  if (mac.size() != strnlen(stored, sizeof stored)) return false;
  if (memcmp(mac.data(), stored, mac.size()) == 0) return true;
  for (size_t i = 0; i < mac.size(); ++i) {
    if (lower(mac[i]) != lower(stored[i])) return false;
  }
  return true;
}

// Letters that differ only in case differ only in bit 0x20, so MACs equal ignoring
// case hash alike with that bit set in every character.
uint32_t mac_hash(std::string_view mac) {
  uint32_t h = 2166136261u;
  for (char c : mac) h = (h ^ (static_cast<uint8_t>(c) | 0x20u)) * 16777619u;
  return h;
}

constexpr size_t next_slot(size_t slot) { return (slot + 1) % HostRateTable::kIndexSlots; }

// Indexes record i unless an earlier record has its MAC, in one probe: a lookup
// then finds the first of equal MACs, as a walk from the start of the table would.
void index_record(HostRateTable* table, size_t i) {
  const HostRate& record = table->records[i];
  std::string_view mac(record.mac, strnlen(record.mac, sizeof record.mac));
  size_t slot = mac_hash(mac) % HostRateTable::kIndexSlots;
  for (; table->index[slot] != 0; slot = next_slot(slot)) {
    if (mac_equal(mac, table->records[table->index[slot] - 1].mac)) {
      table->leads[i] = false;
      return;
    }
  }
  table->index[slot] = static_cast<uint16_t>(i + 1);
  table->leads[i] = true;
}

}  // namespace

bool load_host_rates(const char* path, HostRateTable* table, RateText* text) {
  table->count = 0;
  memset(table->index, 0, sizeof table->index);
  // Non-blocking, so that a FIFO someone left in our place cannot stall the page; a
  // folder or a device there reads as nothing or as junk, bounded by the line count.
  int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return false;
  // The first 254 pieces lie within the first kRateTextRoom bytes: one read is all.
  size_t length = read_once(fd, text->bytes, kRateTextRoom);
  close(fd);
  char* data = text->bytes;
  size_t pos = 0;
  size_t lines = 0;
  while (lines < kRateTableRoom && pos < length) {
    size_t room = length - pos < kLinePiece ? length - pos : kLinePiece;
    const void* feed = memchr(data + pos, '\n', room);
    size_t piece =
        feed != nullptr ? static_cast<size_t>(static_cast<const char*>(feed) - (data + pos)) + 1 : room;
    HostRate& record = table->records[lines];
    record = HostRate{};
    // The piece is parsed ended by a zero put after it for the while.
    char after = data[pos + piece];
    data[pos + piece] = '\0';
    parse_line(data + pos, &record);
    data[pos + piece] = after;
    ++lines;
    // Records from the first one with an empty MAC on are never looked at.
    if (record.mac[0] == '\0') break;
    index_record(table, table->count++);
    pos += piece;
  }
  return lines > 0;
}

int find_host_rate(std::string_view mac, const HostRateTable& table) {
  for (size_t slot = mac_hash(mac) % HostRateTable::kIndexSlots; table.index[slot] != 0;
       slot = next_slot(slot)) {
    int i = table.index[slot] - 1;
    if (mac_equal(mac, table.records[i].mac)) return i;
  }
  return kRateNotFound;
}

void store_host_rates(const char* path, const HostRate* records, size_t count, RateText* text) {
  if (count > kRateTableRoom) count = kRateTableRoom;
  size_t path_length = strnlen(path, 512);
  if (path_length == 512) return;

  // The next reader sees the old file or the new one whole, never a part of one.
  // O_EXCL never follows a link someone planted under the temporary name.
  char temp[512 + 32];
  memcpy(temp, path, path_length);
  char* end = temp + path_length;
  *end++ = '.';
  end = put_unsigned(end, static_cast<uint64_t>(getpid()));
  memcpy(end, ".tmp", sizeof ".tmp");
  int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
  int fd = open(temp, flags, 0644);
  if (fd < 0 && errno == EEXIST && unlink(temp) == 0) fd = open(temp, flags, 0644);
  if (fd >= 0) {
    char* out = text->bytes;
    StampText stamp;
    for (size_t i = 0; i < count; ++i) out = format_line(out, records[i], &stamp);
    bool written = write_all(fd, text->bytes, static_cast<size_t>(out - text->bytes));
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
  // One block for the call; each part of it is filled before it is read.
  Tables* tables = static_cast<Tables*>(malloc(sizeof(Tables)));
  if (tables == nullptr) return;
  call_scope::keep(tables, free);
  tables_ = tables;
  if (!rate_file_path(tables_->path)) {
    tables_->path[0] = '\0';
    return;
  }
  HostRateTable& previous = tables_->previous;
  valid_ = load_host_rates(tables_->path, &previous, &tables_->text);
  if (valid_) {
    // Only the first record's stamp counts: all records of one file share it.
    uint64_t seconds = static_cast<uint64_t>(now_) - static_cast<uint64_t>(previous.records[0].stamp);
    interval_ = static_cast<int32_t>(static_cast<uint32_t>(seconds));
    if (interval_ > kRateMaxInterval) {
      unlink(tables_->path);
      valid_ = false;
    }
  }
}

HostSpeed HostSpeedComputation::speed_of(const ZoVelLanHost& host) {
  std::string_view mac = field_text(host.mac);
  HostSpeed speed{0, 0};
  if (tables_ == nullptr) return speed;
  const HostRateTable& previous = tables_->previous;
  if (interval_ > 0 && valid_ && !mac.empty()) {
    // A device is usually where it was in the last call's list.
    int i =
        listed_ < previous.count && previous.leads[listed_] && mac_equal(mac, previous.records[listed_].mac)
            ? static_cast<int>(listed_)
            : find_host_rate(mac, previous);
    if (i != kRateNotFound) {
      const HostRate& before = previous.records[i];
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
    HostRate& now = tables_->current[listed_];
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
  if (listed_ > 0 && tables_->path[0] != '\0') {
    store_host_rates(tables_->path, tables_->current, listed_ < kRateTableRoom ? listed_ : kRateTableRoom,
                     &tables_->text);
  }
  tables_ = nullptr;
}

}  // namespace velconfig
