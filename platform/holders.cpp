// The call scope: a per-thread stack of what must be released when a call ends.
#include "platform/holders.h"

#include <malloc.h>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>  // lint: owner-ok (guards the call scopes' own storage, below)
#include <new>
#include <vector>  // lint: owner-ok (the call scopes' own storage, below)

namespace velconfig {
namespace call_scope {
namespace {

// A kept pointer with its release function, or a descriptor or child process, which
// have no pointer to carry them: their number rides in `number`.
struct Kept {
  enum class Kind : uint8_t { kPointer, kDescriptor, kChild };
  Kind kind;
  void* pointer;
  void (*release)(void*);
  long number;
};

// Each thread in a call has its stack here, found by the thread's id. No
// thread-local storage: the module is dlopened, and musl refuses a library with
// initial-exec TLS while glibc gives it from a small reserve that later modules
// need; dynamic TLS is what LeakSanitizer's exit scan trips over. A thread's entry
// goes when its stack empties, so between calls nothing is held here.
using Stack = std::vector<Kept>;  // lint: owner-ok (the call scope's own storage)
struct ThreadScope {
  pthread_t owner;
  Stack kept;
};
std::mutex scopes_mutex;          // lint: owner-ok (guards the storage below, never in a frame)
std::vector<ThreadScope> scopes;  // lint: owner-ok (the call scopes' own storage, never in a frame)

// The calling thread's stack, or null; scopes_mutex is held.
Stack* find_own() {
  pthread_t self = pthread_self();
  for (ThreadScope& s : scopes) {
    if (pthread_equal(s.owner, self)) return &s.kept;
  }
  return nullptr;
}

// The calling thread's stack, made when it has none; scopes_mutex is held.
Stack& own() {
  if (Stack* found = find_own()) return *found;
  scopes.push_back(ThreadScope{pthread_self(), {}});
  return scopes.back().kept;
}

// Drops the calling thread's entry once its stack is empty; scopes_mutex is held.
void drop_if_empty() {
  pthread_t self = pthread_self();
  for (size_t i = 0; i < scopes.size(); ++i) {
    if (pthread_equal(scopes[i].owner, self) && scopes[i].kept.empty()) {
      scopes.erase(scopes.begin() + static_cast<std::ptrdiff_t>(i));
      if (scopes.empty()) scopes.shrink_to_fit();
      return;
    }
  }
}

void release_entry(const Kept& k) noexcept {
  switch (k.kind) {
    case Kept::Kind::kPointer:
      k.release(k.pointer);
      break;
    case Kept::Kind::kDescriptor:
      close(static_cast<int>(k.number));
      break;
    case Kept::Kind::kChild: {
      // Commands lead a process group of their own: what they started goes too. The
      // child is not reaped yet, so its group cannot be someone else's.
      pid_t pid = static_cast<pid_t>(k.number);
      kill(-pid, SIGKILL);
      kill(pid, SIGKILL);
      while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
      }
      break;
    }
  }
}

// Appends k; when the stack cannot grow, releases k's resource and rethrows.
void push(const Kept& k) {
  try {
    std::lock_guard<std::mutex> hold(scopes_mutex);
    own().push_back(k);
  } catch (...) {
    release_entry(k);
    throw;
  }
}

// Removes the newest entry matching kind and number/pointer; releases it if asked.
// Releasing happens outside the lock: it may wait for a child, and other threads'
// calls must not wait with it.
void remove(Kept::Kind kind, void* pointer, long number, bool run_release) {
  Kept found{};
  {
    std::lock_guard<std::mutex> hold(scopes_mutex);
    Stack* kept = find_own();
    if (kept == nullptr) return;
    size_t i = kept->size();
    while (i-- > 0) {
      const Kept& k = (*kept)[i];
      if (k.kind == kind && k.pointer == pointer && k.number == number) break;
    }
    if (i == static_cast<size_t>(-1)) return;
    found = (*kept)[i];
    kept->erase(kept->begin() + static_cast<std::ptrdiff_t>(i));
    drop_if_empty();
  }
  if (run_release) release_entry(found);
}

}  // namespace

void keep(void* p, void (*release)(void*)) {
  if (p != nullptr) push(Kept{Kept::Kind::kPointer, p, release, 0});
}

void release(void* p) {
  if (p != nullptr) remove(Kept::Kind::kPointer, p, 0, true);
}

void keep_descriptor(int fd) {
  if (fd >= 0) push(Kept{Kept::Kind::kDescriptor, nullptr, nullptr, fd});
}
void release_descriptor(int fd) { remove(Kept::Kind::kDescriptor, nullptr, fd, true); }

void keep_child(pid_t pid) {
  if (pid > 0) push(Kept{Kept::Kind::kChild, nullptr, nullptr, pid});
}
void forget_child(pid_t pid) { remove(Kept::Kind::kChild, nullptr, pid, false); }
void release_child(pid_t pid) { remove(Kept::Kind::kChild, nullptr, pid, true); }

size_t size() noexcept {
  std::lock_guard<std::mutex> hold(scopes_mutex);
  Stack* kept = find_own();
  return kept == nullptr ? 0 : kept->size();
}

size_t mark() noexcept { return size(); }

void release_to(size_t mark) noexcept {
  // Newest first: a child is reaped before the pipe it writes to is closed.
  for (;;) {
    Kept k{};
    {
      std::lock_guard<std::mutex> hold(scopes_mutex);
      Stack* kept = find_own();
      if (kept == nullptr || kept->size() <= mark) return;
      k = kept->back();
      kept->pop_back();
      drop_if_empty();
    }
    release_entry(k);
  }
}

}  // namespace call_scope
size_t records_held(const void* p, size_t record_size) {
  if (p == nullptr || record_size == 0) return 0;
  return malloc_usable_size(const_cast<void*>(p)) / record_size;
}

}  // namespace velconfig
