// Texts inserted into plugin commands, escaped so they cannot break the command.
#pragma once

#include <stddef.h>

#include "platform/plugin.h"

namespace velconfig {

// The JSON-escaped form of a text of at most N - 1 characters: each character
// takes at most six ("\u001f"), so nothing of the text is lost before the command's
// own limit cuts it.
template <size_t N>
struct EscapedText {
  explicit EscapedText(const char* raw) { json_escape_text(raw, text, sizeof text); }
  char text[6 * (N - 1) + 1];
};

}  // namespace velconfig
