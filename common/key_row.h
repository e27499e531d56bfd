// What a page author needs to know of each key, beside the key tables: its
// arguments, its answer and whether it changes the gateway. The key catalogue (the
// console, `velconfig dump`, the README's key table) joins this with the key tables.
#pragma once

namespace velconfig {

struct KeyDoc {
  const char* call;  // "get" or "set"
  const char* key;
  const char* args;    // what the page passes after the key
  const char* answer;  // the fields of the answer (get) or the result codes (set)
  bool changes;        // whether calling it changes the gateway
};

// The description of call/key, or null.
const KeyDoc* find_key_doc(const char* call, const char* key);

// Visits every row of the get table, then of the set table, in comparison order.
void for_each_key(void (*visit)(const char* call, const char* key, bool built, void* context), void* context);

}  // namespace velconfig
