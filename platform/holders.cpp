// The call scope: what the platform handed over during one get or set call.
#include "platform/holders.h"

#include <stdexcept>

namespace velconfig {
namespace call_scope {
namespace {

struct Kept {
  void* pointer;
  void (*release)(void*);
};

// A handler holds a few lists at a time; one call never needs more.
constexpr size_t kRoom = 32;
Kept kept[kRoom];
size_t kept_count = 0;

}  // namespace

void keep(void* p, void (*release)(void*)) {
  if (kept_count == kRoom) {
    release(p);
    throw std::length_error("velconfig: too many platform lists in one call");
  }
  kept[kept_count++] = Kept{p, release};
}

void release(void* p) {
  if (p == nullptr) return;
  for (size_t i = kept_count; i-- > 0;) {
    if (kept[i].pointer == p) {
      kept[i].release(p);
      for (size_t j = i + 1; j < kept_count; ++j) kept[j - 1] = kept[j];
      --kept_count;
      return;
    }
  }
}

size_t mark() { return kept_count; }

void release_to(size_t mark) {
  while (kept_count > mark) {
    Kept k = kept[--kept_count];
    k.release(k.pointer);
  }
}

}  // namespace call_scope
}  // namespace velconfig
