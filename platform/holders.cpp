// The call scope: a per-thread stack of what must be released when a call ends.
#include "platform/holders.h"

#include <malloc.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <vector>  // lint: owner-ok (the call scope's own storage, below)

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

// Initial-exec: the module is dlopened, and LeakSanitizer's exit-time scan of dynamic
// thread-local storage crashes now and then; static TLS is scanned safely.
// lint: owner-ok (thread storage, never in a frame a longjmp crosses)
thread_local std::vector<Kept> kept __attribute__((tls_model("initial-exec")));

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
    kept.push_back(k);
  } catch (...) {
    release_entry(k);
    throw;
  }
}

// Removes the newest entry matching kind and number/pointer; releases it if asked.
void remove(Kept::Kind kind, void* pointer, long number, bool run_release) {
  for (size_t i = kept.size(); i-- > 0;) {
    const Kept& k = kept[i];
    if (k.kind == kind && k.pointer == pointer && k.number == number) {
      Kept found = k;
      kept.erase(kept.begin() + static_cast<std::ptrdiff_t>(i));
      if (run_release) release_entry(found);
      return;
    }
  }
}

}  // namespace

void keep(void* p, void (*release)(void*)) {
  if (p != nullptr) push(Kept{Kept::Kind::kPointer, p, release, 0});
}

void release(void* p) {
  if (p == nullptr) return;
  for (size_t i = kept.size(); i-- > 0;) {
    if (kept[i].kind == Kept::Kind::kPointer && kept[i].pointer == p) {
      Kept found = kept[i];
      kept.erase(kept.begin() + static_cast<std::ptrdiff_t>(i));
      release_entry(found);
      return;
    }
  }
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

size_t mark() noexcept { return kept.size(); }

void release_to(size_t mark) noexcept {
  // Newest first: a child is reaped before the pipe it writes to is closed.
  while (kept.size() > mark) {
    Kept k = kept.back();
    kept.pop_back();
    release_entry(k);
  }
}

size_t size() noexcept { return kept.size(); }

}  // namespace call_scope
size_t records_held(const void* p, size_t record_size) {
  if (p == nullptr || record_size == 0) return 0;
  return malloc_usable_size(const_cast<void*>(p)) / record_size;
}

}  // namespace velconfig
