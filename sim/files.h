// Gateway paths of the simulated disks and configuration files, confined to the
// simulator's file root: every file operation of the disks resolves its path beneath
// a descriptor of the root in one step that no symbolic link can redirect.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <string>

namespace velsim {

// A descriptor closed when the holder goes out of scope.
class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  ~Fd();
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }
  bool ok() const { return fd_ >= 0; }
  void reset(int fd = -1);
  int release() {
    int fd = fd_;
    fd_ = -1;
    return fd;
  }

 private:
  int fd_;
};

// Opens the file root (made first, 0700 with any missing folder above it, when it
// does not exist). -1, with the reason in *reason, when it is a symbolic link, not a
// folder, not owned by this user, or writable by the group or others: another local
// user could then plant links and folders in it.
int open_file_root(std::string* reason);

// The root-relative path of gateway_path ("mnt/usb1/a.txt") when it lies within
// gateway_boundary (for example the disk's mount path). Textual: beneath the root no
// link is ever followed, so the text is where it leads. False for a relative path or
// a ".." component.
bool relative_within(const char* gateway_path, const char* gateway_boundary, std::string* out);

// Opens rel beneath the folder descriptor folder: nothing above the folder is reached
// and no symbolic link is followed, on the way or at the end (openat2 with
// RESOLVE_BENEATH and RESOLVE_NO_SYMLINKS; a walk of O_NOFOLLOW opens on kernels
// before 5.6). An empty rel opens the folder itself.
int open_beneath(int folder, const std::string& rel, int flags, mode_t mode = 0);

// Opens the folder that holds rel's last component (as open_beneath does) and gives
// that component in *name; -1 when rel has none (the folder itself).
int open_parent_beneath(int folder, const std::string& rel, std::string* name);

// Makes the folders of rel beneath folder, one step at a time, never through a link.
bool make_folders_beneath(int folder, const std::string& rel, mode_t mode);

// Removes the entry name of folder: a whole tree for a folder, walked through
// descriptors; a link is removed, never what it points to.
bool remove_at(int folder, const char* name);

// Removes the folders of the model's disks under the file root, so that each is made
// again from the model's sample files when next used (a model loaded in place of
// another must not show the old disks' files). False when one could not be removed.
bool forget_disk_folders();

// The project's tools directory, tried before PATH for commands ("uci").
const char* tools_dir();
void set_tools_dir(const std::string& dir);

// Moves the simulated monotonic clock on.
void advance_monotonic(int64_t ms);
// Seconds the module has asked to sleep since the process started.
int64_t seconds_slept();

}  // namespace velsim
