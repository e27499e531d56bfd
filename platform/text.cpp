// Decimal conversion shared by every handler.
#include "platform/text.h"

#include <ctype.h>

namespace velconfig {

int32_t decimal_value(std::string_view text) {
  size_t i = 0;
  while (i < text.size() && isspace(static_cast<unsigned char>(text[i]))) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  uint64_t value = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    value = value * 10 + static_cast<uint64_t>(text[i] - '0');
  }
  if (negative) value = 0 - value;
  return static_cast<int32_t>(static_cast<uint32_t>(value));
}

}  // namespace velconfig
