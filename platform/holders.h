// Owners for memory the platform hands over: arrays (g_free, or free for the
// application list), GVariant references and texts.
//
// A Lua error raised while a handler builds its result (out of memory, or an error
// from a __gc metamethod that an allocation ran) longjmps past the handler's
// frames and would skip destructors. So a list that is held while Lua values are
// pushed is a trivially destructible handle whose array is kept in the call's
// scope: released by release(), or by the entry point when the call ends, however
// it ends. OwnedVariant and OwnedText have destructors and are for spans of code
// that call nothing in Lua.
#pragma once

#include <glib.h>
#include <jansson.h>
#include <stdint.h>
#include <stdlib.h>

#include <memory>
#include <type_traits>

namespace velconfig {

namespace call_scope {
// Keeps p until release(p) or the end of the call. Releases p at once and throws
// std::length_error when one call keeps more than it should ever need.
void keep(void* p, void (*release)(void*));
void release(void* p);
// A call made from inside another (a page's metamethod calling the module again)
// releases only its own: the entry points take a mark when a call starts and
// release back to it when the call ends.
size_t mark();
void release_to(size_t mark);
}  // namespace call_scope

struct GFree {
  void operator()(void* p) const { g_free(p); }
};
struct VariantUnref {
  void operator()(GVariant* v) const {
    if (v != nullptr) g_variant_unref(v);
  }
};

struct JsonDecref {
  void operator()(json_t* j) const { json_decref(j); }
};

using OwnedText = std::unique_ptr<char, GFree>;
using OwnedVariant = std::unique_ptr<GVariant, VariantUnref>;
using OwnedJson = std::unique_ptr<json_t, JsonDecref>;

// An array the platform allocated, with the count it reported. Iteration covers
// only a positive count.
template <class Record, class Count = int32_t, void (*Release)(void*) = g_free>
class PlatformList {
 public:
  // Runs a listing operation with this list's array pointer and count, then any
  // further arguments, and keeps the array it returns until the call ends.
  template <class Operation, class... More>
  int32_t fill(Operation operation, More... more) {
    int32_t rc = operation(&items_, &count_, more...);
    if (items_ != nullptr) call_scope::keep(items_, Release);
    return rc;
  }
  // Gives the array back now; the reported count stays.
  void release() {
    call_scope::release(items_);
    items_ = nullptr;
  }

  Count reported() const { return count_; }
  // How many records may be read: zero when the platform gave no array.
  size_t size() const { return (items_ != nullptr && count_ > 0) ? static_cast<size_t>(count_) : 0; }
  Record* begin() const { return items_; }
  Record* end() const { return items_ + size(); }
  Record& operator[](size_t i) const { return items_[i]; }

 private:
  Record* items_ = nullptr;
  Count count_ = 0;
};

// The application list is released with free, not g_free.
template <class Record>
using FreeList = PlatformList<Record, int32_t, free>;

static_assert(std::is_trivially_destructible_v<PlatformList<char>>, "a longjmp may pass over a PlatformList");

}  // namespace velconfig
