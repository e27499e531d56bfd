// Decimal conversion shared by every handler.
#include "platform/text.h"

#include <ctype.h>

namespace velconfig {

int64_t wide_decimal_value(std::string_view text) {
  size_t i = 0;
  while (i < text.size() && isspace(static_cast<unsigned char>(text[i]))) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  // As glibc's atoi: strtol's value, saturated at the limits of a long, then cut to int.
  constexpr uint64_t kLimit = static_cast<uint64_t>(INT64_MAX);
  uint64_t value = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    uint64_t digit = static_cast<uint64_t>(text[i] - '0');
    value = value > (kLimit + 1 - digit) / 10 ? kLimit + 1 : value * 10 + digit;
  }
  if (negative) return value > kLimit ? INT64_MIN : -static_cast<int64_t>(value);
  return value > kLimit ? INT64_MAX : static_cast<int64_t>(value);
}

int32_t decimal_value(std::string_view text) {
  return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(wide_decimal_value(text))));
}

}  // namespace velconfig
