// Small owners for memory the platform hands over: arrays (g_free, or free for the
// application list), GVariant references and texts. Owned versus borrowed shows in
// the type.
#pragma once

#include <glib.h>
#include <stdint.h>
#include <stdlib.h>

#include <memory>

namespace velconfig {

struct GFree {
  void operator()(void* p) const { g_free(p); }
};
struct VariantUnref {
  void operator()(GVariant* v) const {
    if (v != nullptr) g_variant_unref(v);
  }
};

using OwnedText = std::unique_ptr<char, GFree>;
using OwnedVariant = std::unique_ptr<GVariant, VariantUnref>;

// An array the platform allocated, with the count it reported. Pass items() and
// count() to the listing operation; iteration covers only a positive count.
template <class Record, class Count = int32_t, void (*Release)(void*) = g_free>
class PlatformList {
 public:
  PlatformList() = default;
  PlatformList(const PlatformList&) = delete;
  PlatformList& operator=(const PlatformList&) = delete;
  ~PlatformList() { Release(items_); }

  Record** items() { return &items_; }
  Count* count() { return &count_; }
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

}  // namespace velconfig
