// Bounded text handling for fixed record fields and page inputs.
#pragma once

#include <stdint.h>
#include <string.h>

#include <string_view>

#include "platform/records.h"

namespace velconfig {

// The text of a record field up to its terminator, never past the field's end even
// when the platform left it unterminated.
template <size_t N>
std::string_view field_text(const char (&field)[N]) {
  return std::string_view(field, strnlen(field, N));
}

// Copies at most N - 1 characters and always terminates.
template <size_t N>
void copy_text(char (&dest)[N], std::string_view src) {
  size_t n = src.size() < N - 1 ? src.size() : N - 1;
  memcpy(dest, src.data(), n);
  dest[n] = '\0';
}

// Decimal conversion as atoi does it (leading blanks, optional sign, digits; none
// gives 0); out of range, as glibc's does it, never with undefined behaviour.
// The view may be a record field without a terminator.
int32_t decimal_value(std::string_view text);
// The same conversion before the cut to 32 bits (saturated at the limits of a long),
// for a caller that refuses a number out of range instead of wrapping it.
int64_t wide_decimal_value(std::string_view text);
inline int32_t decimal_value(const char* text) {
  return decimal_value(text != nullptr ? std::string_view(text) : std::string_view());
}

// ASCII letter case ignored, as strcasecmp compares in the C locale.
inline bool equals_ignoring_case(std::string_view text, std::string_view word) {
  if (text.size() != word.size()) return false;
  for (size_t i = 0; i < text.size(); ++i) {
    char a = text[i], b = word[i];
    if (a >= 'A' && a <= 'Z') a = static_cast<char>(a - 'A' + 'a');
    if (b >= 'A' && b <= 'Z') b = static_cast<char>(b - 'A' + 'a');
    if (a != b) return false;
  }
  return true;
}

// The instance number text that starts at kInstanceNumberOffset of an object path or
// USB identity block, bounded by the block.
inline std::string_view instance_number_text(const char (&block)[256]) {
  return std::string_view(block + kInstanceNumberOffset,
                          strnlen(block + kInstanceNumberOffset, sizeof block - kInstanceNumberOffset));
}

}  // namespace velconfig
