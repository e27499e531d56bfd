// A key as a feature folder declares it: where it stands in its call's comparison
// order, who answers it, and what a page author needs to know of it. Each feature
// lists its rows in its keys.h; module/ joins them (get_dispatch.cpp, set_dispatch.cpp)
// and the key catalogue (the console, `velconfig dump`, docs/keys.md) prints them.
#pragma once

#include "common/handler.h"

namespace velconfig {

template <class Handler>
struct KeyRow {
  // 1-based place in the call's comparison order; the first equal key wins, so the
  // order is part of the behaviour even though no two keys of one call are equal.
  int position;
  const char* key;
  Handler handler;
  const char* args;    // what the page passes after the key
  const char* answer;  // the fields of the answer (get) or the result codes (set)
  bool changes;        // whether calling it changes the gateway
};

using GetRow = KeyRow<GetHandler>;
using SetRow = KeyRow<SetHandler>;

}  // namespace velconfig
