// Reads typed values off a fuzzer's input, front to back; runs dry as zeros.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <string>

namespace velfuzz {

class Input {
 public:
  Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  bool empty() const { return pos_ >= size_; }
  uint8_t byte() { return pos_ < size_ ? data_[pos_++] : 0; }
  uint32_t u32() {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v = (v << 8) | byte();
    return v;
  }
  int64_t i64() {
    uint64_t v = 0;
    for (int i = 0; i < 8; ++i) v = (v << 8) | byte();
    return static_cast<int64_t>(v);
  }
  // A value in [0, n).
  size_t below(size_t n) { return n == 0 ? 0 : u32() % n; }
  // Bytes up to a 0xFF separator or max bytes; may hold NUL bytes.
  std::string text(size_t max = 64) {
    std::string out;
    while (pos_ < size_ && out.size() < max) {
      uint8_t c = data_[pos_++];
      if (c == 0xFF) break;
      out.push_back(static_cast<char>(c));
    }
    return out;
  }
  // Everything left.
  std::string rest() {
    std::string out(reinterpret_cast<const char*>(data_ + pos_), size_ - (pos_ < size_ ? pos_ : size_));
    pos_ = size_;
    return out;
  }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t pos_ = 0;
};

}  // namespace velfuzz
