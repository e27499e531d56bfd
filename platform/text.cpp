// Decimal conversion shared by every handler.
#include "platform/text.h"

#include <ctype.h>

namespace velconfig {

int32_t decimal_value(const char* text) {
  if (text == nullptr) return 0;
  while (isspace(static_cast<unsigned char>(*text))) ++text;
  bool negative = false;
  if (*text == '+' || *text == '-') negative = (*text++ == '-');
  uint64_t value = 0;
  for (; *text >= '0' && *text <= '9'; ++text) value = value * 10 + static_cast<uint64_t>(*text - '0');
  if (negative) value = 0 - value;
  return static_cast<int32_t>(static_cast<uint32_t>(value));
}

}  // namespace velconfig
