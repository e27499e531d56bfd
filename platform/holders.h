// One ownership rule for everything the platform or the system hands over: platform
// arrays, GVariants, Jansson documents, GLib texts, descriptors and child processes.
//
// Each of them is kept in the call scope the moment it arrives, and the handle the
// code holds is trivially destructible. The scope is a stack of release entries
// with no fixed size. Whoever starts a call takes a mark and releases back to it
// when the call ends, however it ends:
//  * get and set, around the protected handler call (module/entry.cpp), so a Lua
//    error that longjmps over the handler's frames skips no destructor and leaks
//    nothing;
//  * a C function exported to other programs, through guarded_c_call, which also
//    keeps every exception inside.
// A handle may give its resource back early with release(); the entry then leaves
// the scope. Nested calls (a page's metamethod calling the module again) release
// only their own entries. The scope is per thread, so programs calling the exported
// function from several threads do not share it.
#pragma once

#include <glib.h>
#include <jansson.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/types.h>

#include <type_traits>

namespace velconfig {

namespace call_scope {
// Keeps p until release(p) or the end of the call. When the scope cannot grow, p is
// released at once and std::bad_alloc is thrown. A null p is not kept.
void keep(void* p, void (*release)(void*));
// Releases p now if it is kept; otherwise does nothing.
void release(void* p);
// A descriptor, closed when released.
void keep_descriptor(int fd);
void release_descriptor(int fd);
// A child process leading its own process group: the group is killed and the child
// reaped when released before it was waited for.
void keep_child(pid_t pid);
// Forgets a child that has been reaped, so it is not signalled later.
void forget_child(pid_t pid);
void release_child(pid_t pid);

size_t mark() noexcept;
void release_to(size_t mark) noexcept;
// Entries kept by this thread (for tests of the rule).
size_t size() noexcept;
}  // namespace call_scope

// A pointer the scope releases with Free. Trivially destructible and move-only: one
// handle names each kept pointer, so no second handle can release it again or read
// it after it was given back.
template <class T, void (*Free)(T*)>
class Scoped {
 public:
  Scoped() = default;
  explicit Scoped(T* p) { adopt(p); }
  Scoped(const Scoped&) = delete;
  Scoped& operator=(const Scoped&) = delete;
  Scoped(Scoped&& other) noexcept : p_(other.p_) { other.p_ = nullptr; }
  // Whatever this handle held stays in the scope until the call ends.
  Scoped& operator=(Scoped&& other) noexcept {
    p_ = other.p_;
    other.p_ = nullptr;
    return *this;
  }
  // Takes over p (which may be null); the handle must not hold anything yet.
  T* adopt(T* p) {
    p_ = p;
    call_scope::keep(p, [](void* q) { Free(static_cast<T*>(q)); });
    return p;
  }
  void release() {
    call_scope::release(p_);
    p_ = nullptr;
  }
  T* get() const { return p_; }
  explicit operator bool() const { return p_ != nullptr; }

 private:
  T* p_ = nullptr;
};

namespace release_fn {
inline void text(char* p) { g_free(p); }
inline void json(json_t* p) { json_decref(p); }
inline void builder(GVariantBuilder* p) { g_variant_builder_unref(p); }
}  // namespace release_fn

using ScopedVariant = Scoped<GVariant, g_variant_unref>;
using ScopedText = Scoped<char, release_fn::text>;
using ScopedJson = Scoped<json_t, release_fn::json>;
using ScopedBuilder = Scoped<GVariantBuilder, release_fn::builder>;
using ScopedBlock = Scoped<void, g_free>;  // a block of the platform's, never read

// Handles live in frames a Lua error may longjmp over: none may need a destructor.
static_assert(std::is_trivially_destructible_v<ScopedVariant>, "a longjmp may pass over a ScopedVariant");
static_assert(std::is_trivially_destructible_v<ScopedText>, "a longjmp may pass over a ScopedText");
static_assert(std::is_trivially_destructible_v<ScopedJson>, "a longjmp may pass over a ScopedJson");
static_assert(std::is_trivially_destructible_v<ScopedBuilder>, "a longjmp may pass over a ScopedBuilder");
static_assert(!std::is_copy_constructible_v<ScopedText> && std::is_move_constructible_v<ScopedText>,
              "a Scoped handle is move-only");

// How many records of record_size bytes the heap block at p can hold: the platform
// allocates its arrays with malloc (g_malloc), so the allocator knows their size.
size_t records_held(const void* p, size_t record_size);

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
  // How many records may be read: zero when the platform gave no array, and never
  // more than the array's allocation holds, whatever count the platform reported.
  size_t size() const {
    if (items_ == nullptr || count_ <= 0) return 0;
    size_t held = records_held(items_, sizeof(Record));
    return static_cast<size_t>(count_) < held ? static_cast<size_t>(count_) : held;
  }
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
static_assert(std::is_trivially_destructible_v<FreeList<char>>, "a longjmp may pass over a FreeList");

// Runs body for a C caller outside any Lua call: everything body keeps is released
// when it returns, and an exception becomes the failure result. Never throws.
template <class Body>
int32_t guarded_c_call(int32_t failure, Body body) noexcept {
  size_t mark = call_scope::mark();
  int32_t rc = failure;
  try {
    rc = body();
  } catch (...) {
    rc = failure;
  }
  call_scope::release_to(mark);
  return rc;
}

}  // namespace velconfig
