// Simulated USB storage: every mass-storage device with a mount path is a real
// folder under the file root (seeded from the model's usb[].files the first time it
// is used), and the file operations really happen there, confined to the disk the
// path names as the gateway's storage service confines them. Labels and formatting
// change the model; copies run on the worker of sim/transfers.h.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/zovel.h"
#include "sim/files.h"
#include "sim/sim.h"
#include "sim/transfers.h"

using velsim::operation;

namespace velsim {
namespace {

// renameat2 with RENAME_NOREPLACE through syscall(): older C libraries (musl before
// 1.2.5) have no wrapper or flag for it.
constexpr unsigned kRenameNoReplace = 1;
int rename_no_replace(int from_folder, const char* from, int to_folder, const char* to) {
  return static_cast<int>(syscall(SYS_renameat2, from_folder, from, to_folder, to, kRenameNoReplace));
}

constexpr int32_t kBadArgument = -1;
// Statuses of the file operations: the path is on no disk or leaves it, or the file
// system refused.
constexpr int32_t kOffDisk = -2;
constexpr int32_t kFileFailed = -5;
constexpr int32_t kWrongType = -3;
constexpr int32_t kNoSuchObject = -4;
constexpr uint16_t kDiskClass = 8;
// A sample file of the model is at most this big, whatever size it asks for.
constexpr json_int_t kLargestSample = json_int_t{64} * 1024 * 1024;

std::string mount_of(json_t* usb) { return text_of(usb, "mount_path"); }

bool holds(const std::string& mount, const char* path) {
  size_t n = mount.size();
  if (n == 0 || strncmp(path, mount.c_str(), n) != 0) return false;
  return path[n] == '\0' || path[n] == '/' || mount.back() == '/';
}

// The disk whose mount path holds path (the innermost when mounts nest), or null.
json_t* disk_holding(const char* path) {
  json_t* best = nullptr;
  for (json_t* usb : objects_in("usb")) {
    if (int_of(usb, "class") != kDiskClass || !holds(mount_of(usb), path)) continue;
    if (best == nullptr || mount_of(usb).size() > mount_of(best).size()) best = usb;
  }
  return best;
}

// A sample file made new inside folder: its text, or a size in bytes made as a
// sparse file (a hole, no data written), so a dump that describes big files costs
// no disk space.
void write_sample(int folder, const std::string& name, json_t* content) {
  Fd f(openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
  if (!f.ok()) return;
  bool ok = true;
  if (json_is_string(content)) {
    const char* text = json_string_value(content);
    size_t length = json_string_length(content);
    for (size_t done = 0; ok && done < length;) {
      ssize_t n = write(f.get(), text + done, length - done);
      ok = n > 0 || (n < 0 && errno == EINTR);
      if (n > 0) done += static_cast<size_t>(n);
    }
  } else {
    json_int_t size = std::min<json_int_t>(number_of(content, 0), kLargestSample);
    ok = size <= 0 || ftruncate(f.get(), static_cast<off_t>(size)) == 0;
  }
  // A sample that could not be made whole is not left half-made on the disk.
  if (!ok) (void)unlinkat(folder, name.c_str(), 0);  // a leftover is what this prevents
}

// Reports a file root that cannot be used (once per reason) and gives -1; otherwise
// the root's descriptor for one operation.
int open_root() {
  std::string reason;
  int fd = open_file_root(&reason);
  if (fd < 0) report_problem(reason);
  return fd;
}

// Makes the disk's folder the first time the disk is used, with the model's sample
// folders ("name/") and files (text, or a size in bytes).
void prepare_disk(int root, json_t* usb) {
  std::string mount = mount_of(usb);
  std::string rel;
  // A mount path that would lead out of the file root makes nothing.
  if (!relative_within(mount.c_str(), "/", &rel) || rel.empty()) return;
  Fd existing(open_beneath(root, rel, O_PATH));
  if (existing.ok() || errno != ENOENT || !make_folders_beneath(root, rel, 0755)) return;
  Fd disk(open_beneath(root, rel, O_PATH | O_DIRECTORY));
  if (!disk.ok()) return;
  json_t* files = json_object_get(usb, "files");
  std::vector<std::string> names;
  const char* name;
  json_t* content;
  json_object_foreach(files, name, content) { names.emplace_back(name); }
  std::sort(names.begin(), names.end());
  for (const std::string& n : names) {
    std::string inside;
    if (!relative_within(("/" + n).c_str(), "/", &inside) || inside.empty()) continue;
    if (n.back() == '/') {
      make_folders_beneath(disk.get(), inside, 0755);
      continue;
    }
    size_t slash = inside.rfind('/');
    std::string parent = slash == std::string::npos ? "" : inside.substr(0, slash);
    if (!make_folders_beneath(disk.get(), parent, 0755)) continue;
    Fd folder(open_beneath(disk.get(), parent, O_PATH | O_DIRECTORY));
    if (folder.ok()) write_sample(folder.get(), inside.substr(slash + 1), json_object_get(files, n.c_str()));
  }
}

// The root-relative path of gateway path on the disk that holds it, confined to that
// disk; disk gets the disk's own folder.
bool on_disk(int root, const char* path, std::string* rel, std::string* disk = nullptr) {
  if (path == nullptr || root < 0) return false;
  json_t* usb = disk_holding(path);
  if (usb == nullptr) return false;
  prepare_disk(root, usb);
  std::string mount = mount_of(usb);
  if (!relative_within(path, mount.c_str(), rel)) return false;
  return disk == nullptr || relative_within(mount.c_str(), mount.c_str(), disk);
}

// Like on_disk, for creating, removing or renaming the entry itself: parent gets the
// folder holding it (opened beneath the root) and name its own name, never resolved
// (a link is removed, not its target). The disk's own folder is no entry.
bool entry_on_disk(int root, const char* path, Fd* parent, std::string* name, std::string* rel) {
  std::string disk;
  if (!on_disk(root, path, rel, &disk) || rel->size() <= disk.size()) return false;
  std::string text = path;
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  if (text.size() >= 2 && text.compare(text.size() - 2, 2, "/.") == 0) return false;
  parent->reset(open_parent_beneath(root, *rel, name));
  return parent->ok();
}

bool within(const std::string& path, const std::string& folder) {
  return path == folder || (path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 &&
                            path[folder.size()] == '/');
}

struct Listed {
  std::string name;
  bool folder;
  uint64_t size;
  int64_t mtime;
};

// The entries of a folder, sub-folders first, each group by name. A symbolic link is
// shown as the link itself, never as what it points to.
bool read_entries(int folder, std::vector<Listed>* out) {
  int fd = dup(folder);
  DIR* dir = fd >= 0 ? fdopendir(fd) : nullptr;
  if (dir == nullptr) {
    if (fd >= 0) close(fd);
    return false;
  }
  rewinddir(dir);
  while (dirent* e = readdir(dir)) {
    if (e->d_name[0] == '.' && (e->d_name[1] == '\0' || (e->d_name[1] == '.' && e->d_name[2] == '\0')))
      continue;
    struct stat st;
    if (fstatat(dirfd(dir), e->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
    out->push_back(Listed{e->d_name, S_ISDIR(st.st_mode), static_cast<uint64_t>(st.st_size),
                          static_cast<int64_t>(st.st_mtime)});
  }
  closedir(dir);
  // Ordered through indices: moving the entries themselves costs more than comparing.
  std::vector<size_t> order(out->size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = i;
  const std::vector<Listed>& items = *out;
  std::sort(order.begin(), order.end(), [&items](size_t a, size_t b) {
    if (items[a].folder != items[b].folder) return items[a].folder;
    return strcmp(items[a].name.c_str(), items[b].name.c_str()) < 0;
  });
  std::vector<Listed> sorted;
  sorted.reserve(out->size());
  for (size_t i : order) sorted.push_back(std::move((*out)[i]));
  out->swap(sorted);
  return true;
}

// The folder GetFileNum just read, kept for the ListFolder that follows it (the
// page reads a folder with the two in a row), so a folder is read once per listing.
// Any other storage operation forgets it, and a folder changed since is read again.
struct LastRead {
  std::string host;
  struct stat folder;
  std::vector<Listed> entries;
  bool valid = false;
};

LastRead& last_read() {
  static LastRead last;
  return last;
}

void forget_last_read() {
  LastRead& last = last_read();
  last.valid = false;
  last.entries.clear();
}

bool same_folder(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
         a.st_mtim.tv_nsec == b.st_mtim.tv_nsec && a.st_ctim.tv_sec == b.st_ctim.tv_sec &&
         a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
}

// The entries of host folder, from the last read when it still stands. With keep
// they stay for the next call instead (read them from last_read()).
bool entries_of(int root, const std::string& host, std::vector<Listed>* out, bool keep) {
  LastRead& last = last_read();
  Fd folder(open_beneath(root, host, O_RDONLY | O_DIRECTORY));
  struct stat now;
  if (!folder.ok() || fstat(folder.get(), &now) != 0) return false;
  if (last.valid && last.host == host && same_folder(last.folder, now)) {
    out->swap(last.entries);
    forget_last_read();
  } else {
    forget_last_read();
    if (!read_entries(folder.get(), out)) return false;
  }
  if (keep) {
    last.host = host;
    last.folder = now;
    last.entries.swap(*out);
    last.valid = true;
  }
  return true;
}

// "YYYY-MM-DD hh:mm:ss" in UTC. Written by hand: strftime would cost a listing of
// many files more than everything else the simulator does for it.
void time_text(int64_t t, char (&out)[24]) {
  int64_t days = t >= 0 ? t / 86400 : (t - 86399) / 86400;
  int64_t second = t - days * 86400;
  // Civil date from days since 1970-01-01 (proleptic Gregorian calendar).
  int64_t z = days + 719468;
  int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  int64_t doe = z - era * 146097;
  int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  int64_t mp = (5 * doy + 2) / 153;
  int64_t day = doy - (153 * mp + 2) / 5 + 1;
  int64_t month = mp < 10 ? mp + 3 : mp - 9;
  int64_t year = yoe + era * 400 + (month <= 2 ? 1 : 0);
  if (year < 0 || year > 9999) {
    out[0] = '\0';
    return;
  }
  auto two = [](char* at, int64_t v) {
    at[0] = static_cast<char>('0' + v / 10);
    at[1] = static_cast<char>('0' + v % 10);
  };
  two(out, year / 100);
  two(out + 2, year % 100);
  out[4] = '-';
  two(out + 5, month);
  out[7] = '-';
  two(out + 8, day);
  out[10] = ' ';
  two(out + 11, second / 3600);
  out[13] = ':';
  two(out + 14, second / 60 % 60);
  out[16] = ':';
  two(out + 17, second % 60);
  out[19] = '\0';
}

// The gateway path of name inside folder.
std::string inside(const char* folder, const std::string& host_source) {
  std::string base = host_source.substr(host_source.rfind('/') + 1);
  std::string f = folder;
  while (f.size() > 1 && f.back() == '/') f.pop_back();
  return f + "/" + base;
}

json_t* usb_with_identity(const ZoVelUsbId& id) {
  for (json_t* usb : objects_in("usb")) {
    if (usb_identity(usb) == std::string(id.id, strnlen(id.id, sizeof id.id))) return usb;
  }
  return nullptr;
}

int32_t set_status(int32_t* status, int32_t value) {
  if (status != nullptr) *status = value;
  return value;
}

}  // namespace

bool disk_relative_path(int root, const char* gateway_path, std::string* rel) {
  return on_disk(root, gateway_path, rel);
}

bool forget_disk_folders() {
  ModelSession session;
  if (!session.ok()) return false;
  Fd root(open_root());
  if (!root.ok()) return false;
  bool ok = true;
  for (json_t* usb : objects_in("usb")) {
    std::string mount = mount_of(usb);
    std::string rel, name;
    if (!relative_within(mount.c_str(), "/", &rel) || rel.empty()) continue;
    Fd parent(open_parent_beneath(root.get(), rel, &name));
    if (!parent.ok()) {
      ok = ok && errno == ENOENT;
      continue;
    }
    struct stat st;
    if (fstatat(parent.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0)
      ok = remove_at(parent.get(), name.c_str()) && ok;
  }
  return ok;
}

}  // namespace velsim

using velsim::kBadArgument;
using velsim::kFileFailed;
using velsim::kOffDisk;
using velsim::set_status;

extern "C" int32_t ZoVel_USBSetLabel(ZoVelUsbId id, const char* label, void*, void*) {
  json_t* args = json_pack("{s:o,s:o}", "id", velsim::shown_text(id.id, sizeof id.id), "label",
                           velsim::shown_text(label));
  return operation("ZoVel_USBSetLabel", args, [&] {
    velsim::forget_last_read();
    json_t* usb = velsim::usb_with_identity(id);
    if (usb == nullptr) return velsim::kNoSuchObject;
    if (label == nullptr || !velsim::storable_text(label)) return velsim::kWrongType;
    json_object_set_new(usb, "label", json_string(label));
    velsim::model_changed();
    return 0;
  });
}

extern "C" int32_t ZoVel_USBFormat(ZoVelUsbId id, void*, void*) {
  json_t* args = json_pack("{s:o}", "id", velsim::shown_text(id.id, sizeof id.id));
  return operation("ZoVel_USBFormat", args, [&] {
    velsim::forget_last_read();
    velsim::sync_transfers();
    json_t* usb = velsim::usb_with_identity(id);
    if (usb == nullptr || velsim::int_of(usb, "class") != velsim::kDiskClass) return velsim::kNoSuchObject;
    std::string mount = velsim::mount_of(usb);
    if (mount.empty()) return velsim::kNoSuchObject;
    velsim::Fd root(velsim::open_root());
    std::string rel;
    if (!velsim::on_disk(root.get(), mount.c_str(), &rel) || rel.empty()) return kOffDisk;
    velsim::cancel_transfers_under(rel);
    velsim::Fd disk(velsim::open_beneath(root.get(), rel, O_RDONLY | O_DIRECTORY));
    DIR* dir = disk.ok() ? fdopendir(dup(disk.get())) : nullptr;
    if (dir == nullptr) return kFileFailed;
    std::vector<std::string> names;
    while (dirent* e = readdir(dir)) {
      if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) names.emplace_back(e->d_name);
    }
    closedir(dir);
    bool ok = true;
    for (const std::string& name : names) ok = velsim::remove_at(disk.get(), name.c_str()) && ok;
    json_object_set_new(usb, "used_size", json_integer(0));
    velsim::sync_transfers();
    velsim::model_changed();
    return ok ? 0 : kFileFailed;
  });
}

extern "C" int32_t ZoVel_NAS_GetFileNum(const char* folder, uint32_t* count, int32_t* status, void*) {
  return operation("ZoVel_NAS_GetFileNum", json_pack("{s:s?}", "folder", folder), [&] {
    if (count == nullptr || status == nullptr) return kBadArgument;
    velsim::sync_transfers();
    std::string host;
    velsim::forget_last_read();
    velsim::Fd root(velsim::open_root());
    if (!velsim::on_disk(root.get(), folder, &host)) return set_status(status, kOffDisk);
    std::vector<velsim::Listed> listed;
    if (!velsim::entries_of(root.get(), host, &listed, true)) return set_status(status, kFileFailed);
    *count = static_cast<uint32_t>(velsim::last_read().entries.size());
    if (velsim::hostile() == velsim::Hostile::kCountHuge) *count = INT32_MAX;
    if (velsim::hostile() == velsim::Hostile::kCountMinusOne) *count = UINT32_MAX;
    if (velsim::hostile() == velsim::Hostile::kCountOnFailure) return set_status(status, kFileFailed);
    return set_status(status, 0);
  });
}

extern "C" int32_t ZoVel_NAS_ListFolder(const char* folder, int32_t first, uint32_t number,
                                        ZoVelFolderEntry** entries, int32_t* status, void*) {
  json_t* args = json_pack("{s:s?,s:i,s:I}", "folder", folder, "first", first, "number",
                           static_cast<json_int_t>(number));
  return operation("ZoVel_NAS_ListFolder", args, [&] {
    if (entries == nullptr || status == nullptr || first < 1) return kBadArgument;
    velsim::sync_transfers();
    std::string host;
    velsim::Fd root(velsim::open_root());
    if (!velsim::on_disk(root.get(), folder, &host)) return set_status(status, kOffDisk);
    std::vector<velsim::Listed> listed;
    if (!velsim::entries_of(root.get(), host, &listed, false)) return set_status(status, kFileFailed);
    // Always as many records as asked for, so a folder that shrank since it was
    // counted never leaves the caller short; a hostile platform gives only what it has.
    size_t room = number;
    if (velsim::hostile() != velsim::Hostile::kNone && room > listed.size()) room = listed.size();
    ZoVelFolderEntry* records =
        room > 0 ? static_cast<ZoVelFolderEntry*>(g_try_malloc0_n(room, sizeof(ZoVelFolderEntry))) : nullptr;
    if (number > 0 && records == nullptr) return set_status(status, kFileFailed);
    for (uint32_t i = 0; i < room && static_cast<size_t>(first - 1) + i < listed.size(); ++i) {
      const velsim::Listed& item = listed[static_cast<size_t>(first - 1) + i];
      velsim::put_text(records[i].name, item.name.c_str());
      records[i].is_folder = item.folder ? 1 : 0;
      records[i].size = item.size;
      velsim::time_text(item.mtime, records[i].time);
      velsim::hostile_record(&records[i]);
    }
    if (velsim::hostile() == velsim::Hostile::kArrayAbsent) {
      g_free(records);
      records = nullptr;
    }
    *entries = records;
    return set_status(status, 0);
  });
}

extern "C" int32_t ZoVel_NAS_CreateFolter(const char* path, int32_t* status, void*) {
  return operation("ZoVel_NAS_CreateFolter", json_pack("{s:s?}", "path", path), [&] {
    velsim::forget_last_read();
    if (status == nullptr) return kBadArgument;
    velsim::sync_transfers();
    velsim::Fd root(velsim::open_root());
    velsim::Fd parent;
    std::string name, rel;
    if (!velsim::entry_on_disk(root.get(), path, &parent, &name, &rel)) return set_status(status, kOffDisk);
    return set_status(status, mkdirat(parent.get(), name.c_str(), 0755) == 0 ? 0 : kFileFailed);
  });
}

extern "C" int32_t ZoVel_NAS_Remove(const char* path, int32_t* status, void*) {
  return operation("ZoVel_NAS_Remove", json_pack("{s:s?}", "path", path), [&] {
    velsim::forget_last_read();
    if (status == nullptr) return kBadArgument;
    velsim::sync_transfers();
    velsim::Fd root(velsim::open_root());
    velsim::Fd parent;
    std::string name, rel;
    if (!velsim::entry_on_disk(root.get(), path, &parent, &name, &rel)) return set_status(status, kOffDisk);
    return set_status(status, velsim::remove_at(parent.get(), name.c_str()) ? 0 : kFileFailed);
  });
}

extern "C" int32_t ZoVel_NAS_ReName(const char* old_path, const char* new_path, void*, void*) {
  json_t* args = json_pack("{s:s?,s:s?}", "old", old_path, "new", new_path);
  return operation("ZoVel_NAS_ReName", args, [&] {
    velsim::forget_last_read();
    velsim::sync_transfers();
    velsim::Fd root(velsim::open_root());
    velsim::Fd from_parent, to_parent;
    std::string from_name, to_name, from, to;
    if (!velsim::entry_on_disk(root.get(), old_path, &from_parent, &from_name, &from) ||
        !velsim::entry_on_disk(root.get(), new_path, &to_parent, &to_name, &to)) {
      return kOffDisk;
    }
    // Never over an existing entry, and never a folder into itself.
    if (velsim::within(to, from)) return kFileFailed;
    return velsim::rename_no_replace(from_parent.get(), from_name.c_str(), to_parent.get(),
                                     to_name.c_str()) == 0
               ? 0
               : kFileFailed;
  });
}

extern "C" int32_t ZoVel_NAS_Copy(const char* source, const char* destination, int32_t* transfer,
                                  int32_t* status, void*) {
  json_t* args = json_pack("{s:s?,s:s?}", "source", source, "destination", destination);
  return operation("ZoVel_NAS_Copy", args, [&] {
    velsim::forget_last_read();
    if (transfer == nullptr || status == nullptr || destination == nullptr) return kBadArgument;
    velsim::sync_transfers();
    velsim::Fd root(velsim::open_root());
    std::string from, folder;
    if (!velsim::on_disk(root.get(), source, &from) || !velsim::on_disk(root.get(), destination, &folder) ||
        from.empty()) {
      return set_status(status, kOffDisk);
    }
    std::string to = folder + "/" + from.substr(from.rfind('/') + 1);
    velsim::Fd target(velsim::open_beneath(root.get(), folder, O_PATH | O_DIRECTORY));
    if (!target.ok() || velsim::within(to, from)) return set_status(status, kFileFailed);
    int32_t id =
        velsim::start_transfer(root.get(), from, to, source, velsim::inside(destination, from).c_str());
    if (id == 0) return set_status(status, kFileFailed);
    *transfer = id;
    return set_status(status, 0);
  });
}

extern "C" int32_t ZoVel_NAS_Move(const char* source, const char* destination, int32_t* status, void*) {
  json_t* args = json_pack("{s:s?,s:s?}", "source", source, "destination", destination);
  return operation("ZoVel_NAS_Move", args, [&] {
    velsim::forget_last_read();
    if (status == nullptr || destination == nullptr) return kBadArgument;
    velsim::sync_transfers();
    velsim::Fd root(velsim::open_root());
    velsim::Fd from_parent;
    std::string name, from, folder;
    if (!velsim::entry_on_disk(root.get(), source, &from_parent, &name, &from) ||
        !velsim::on_disk(root.get(), destination, &folder)) {
      return set_status(status, kOffDisk);
    }
    // The disks share one file system here, so a move is a rename, done at once,
    // never over an existing entry and never a folder into itself.
    velsim::Fd target(velsim::open_beneath(root.get(), folder, O_PATH | O_DIRECTORY));
    if (!target.ok() || velsim::within(folder + "/" + name, from)) return set_status(status, kFileFailed);
    return set_status(
        status, velsim::rename_no_replace(from_parent.get(), name.c_str(), target.get(), name.c_str()) == 0
                    ? 0
                    : kFileFailed);
  });
}

extern "C" int32_t ZoVel_NAS_GetCopyProgress(int32_t transfer, uint32_t* percent, void*, void*) {
  return operation("ZoVel_NAS_GetCopyProgress", json_pack("{s:i}", "transfer", transfer), [&] {
    velsim::forget_last_read();
    if (percent == nullptr) return kBadArgument;
    velsim::sync_transfers();
    size_t i;
    json_t* entry;
    json_array_foreach(json_object_get(velsim::object_at("storage"), "transfers"), i, entry) {
      if (velsim::int_of(entry, "id") != transfer) continue;
      if (strcmp(velsim::text_of(entry, "state"), "failed") == 0) return kFileFailed;
      json_int_t total = velsim::int_of(entry, "total");
      json_int_t copied = velsim::int_of(entry, "copied");
      *percent = total > 0 ? static_cast<uint32_t>(static_cast<unsigned __int128>(copied) * 100 /
                                                   static_cast<unsigned __int128>(total))
                           : 100;
      if (strcmp(velsim::text_of(entry, "state"), "done") == 0) *percent = 100;
      return 0;
    }
    return velsim::kNoSuchObject;
  });
}
