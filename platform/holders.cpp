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
      kept[i] = kept[--kept_count];
      return;
    }
  }
}

void release_all() {
  while (kept_count > 0) {
    Kept k = kept[--kept_count];
    k.release(k.pointer);
  }
}

}  // namespace call_scope
}  // namespace velconfig
