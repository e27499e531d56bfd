// The object path at the head of a listed record, in the two forms the platform
// takes: the 256-byte block passed by value, and a terminated text for D-Bus calls.
#pragma once

#include <string.h>

#include "platform/records.h"
#include "platform/text.h"

namespace velconfig {

inline ZoVelObjPath path_block(const char (&path)[sizeof(ZoVelObjPath::path)]) {
  ZoVelObjPath block;
  memcpy(block.path, path, sizeof block.path);
  return block;
}

// One byte longer than the block, so a path that fills all 256 bytes still ends.
struct PathText {
  char text[sizeof(ZoVelObjPath::path) + 1];
};

inline PathText path_text(const char (&path)[sizeof(ZoVelObjPath::path)]) {
  PathText p;
  copy_text(p.text, field_text(path));
  return p;
}

}  // namespace velconfig
