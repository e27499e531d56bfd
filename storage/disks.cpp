// The USB disk rules and folder listings shared by the storage pages.
#include "storage/disks.h"

#include <glib.h>
#include <stdio.h>
#include <string.h>

#include "common/result.h"
#include "platform/holders.h"
#include "platform/text.h"
#include "platform/zovel.h"

namespace velconfig {
namespace {

// Whether path has a ".." component: it could name something beyond the disk that
// its prefix names.
bool has_parent_component(const char* path) {
  for (const char* p = path; (p = strstr(p, "..")) != nullptr; p += 2) {
    bool starts = p == path || p[-1] == '/';
    bool ends = p[2] == '\0' || p[2] == '/';
    if (starts && ends) return true;
  }
  return false;
}

void release_entries(ZoVelFolderEntry* entries) { g_free(entries); }
using ScopedEntries = Scoped<ZoVelFolderEntry, release_entries>;

// The platform's two-step read of a folder. False, with *count as the listing
// reports it, when either step fails or the folder is empty.
bool read_folder(const char* folder, uint32_t* count, ScopedEntries* entries, bool* count_failed) {
  int32_t status = 1;
  *count = 0;
  ZoVel_NAS_GetFileNum(folder, count, &status, nullptr);
  *count_failed = status != 0;
  if (status != 0 || *count == 0) return false;
  status = 1;
  ZoVelFolderEntry* items = nullptr;
  ZoVel_NAS_ListFolder(folder, 1, *count, &items, &status, nullptr);
  entries->adopt(items);
  if (status != 0 || items == nullptr) {
    entries->release();
    *count = 0;
    return false;
  }
  // Never read past what the platform allocated, whatever it counted.
  size_t held = records_held(items, sizeof(ZoVelFolderEntry));
  if (*count > held) *count = static_cast<uint32_t>(held);
  return true;
}

}  // namespace

bool query_usb_devices(UsbList* list) {
  int32_t rc = list->fill(ZoVel_GetUSBDeviceObjs);
  return rc == 0 && list->reported() > 0;
}

bool instance_matches(const ZoVelUsbDevice& usb, int32_t wanted) {
  return decimal_value(instance_number_text(usb.identity.id)) == wanted;
}

void DiskLabels::label_of(const ZoVelUsbDevice& usb, char (&out)[kLabelRoom]) {
  std::string_view label = field_text(usb.label);
  if (!label.empty()) {
    copy_text(out, label);
  } else {
    snprintf(out, sizeof out, "USB_disc%d", ++unlabelled_);
  }
}

void root_path_of(const ZoVelUsbDevice& usb, char (&out)[kRootPathRoom]) {
  copy_text(out, field_text(usb.mount_path));
}

bool is_usb_path(const char* path) {
  if (!given(path)) return false;
  UsbList devices;
  if (!query_usb_devices(&devices)) {
    ZoVelLog(kLogError, "ZoVel_GetUSBDeviceObjs failed.");
    return false;
  }
  bool accepted = false;
  if (!has_parent_component(path)) {
    for (const ZoVelUsbDevice& usb : devices) {
      if (!is_disk(usb)) continue;
      std::string_view mount = field_text(usb.mount_path);
      // A disk still mounting has no mount path yet: it holds no path at all (an
      // empty prefix would accept every path on the machine).
      if (!mount.empty() && strncmp(path, mount.data(), mount.size()) == 0) {
        accepted = true;
        break;
      }
    }
  }
  if (!accepted) ZoVelLog(kLogError, "destination path[%s] invalid, can't operate it.", path);
  return accepted;
}

uint32_t list_folder_entries(lua_State* L, const char* folder) {
  uint32_t count = 0;
  bool count_failed = false;
  ScopedEntries entries;
  if (!read_folder(folder, &count, &entries, &count_failed)) return count_failed ? count : 0;
  const ZoVelFolderEntry* items = entries.get();
  for (uint32_t i = 0; i < count; ++i) {
    const ZoVelFolderEntry& entry = items[i];
    begin_row(L, "file%d", static_cast<int>(i + 1));
    set_text(L, "name", field_text(entry.name));
    set_bool(L, "isFolder", entry.is_folder != 0);
    const auto kib = entry.size / 1024 + 1;  // whole KiB, rounded up
    set_number(L, "size", static_cast<lua_Number>(kib));
    set_text(L, "time", field_text(entry.time));
    end_row(L);
  }
  return count;
}

uint32_t list_subfolders(lua_State* L, const char* folder) {
  uint32_t count = 0;
  bool count_failed = false;
  ScopedEntries entries;
  if (!read_folder(folder, &count, &entries, &count_failed)) return 0;
  const ZoVelFolderEntry* items = entries.get();
  uint32_t folders = 0;
  for (uint32_t i = 0; i < count; ++i) {
    if (items[i].is_folder == 0) continue;
    char key[32];
    snprintf(key, sizeof key, "folder%u", ++folders);
    set_text(L, key, field_text(items[i].name));
  }
  return folders;
}

bool NameList::next(std::string_view* name) {
  size_t slash = rest_.find('/');
  if (slash == std::string_view::npos) return false;
  *name = rest_.substr(0, slash);
  rest_.remove_prefix(slash + 1);
  return true;
}

char* join_path(const char* folder, std::string_view name) {
  size_t room = strlen(folder) + name.size() + 3;
  ScopedText path(static_cast<char*>(g_try_malloc(room)));
  if (!path) return nullptr;
  snprintf(path.get(), room, "%s/%.*s", folder, static_cast<int>(name.size()), name.data());
  return path.get();
}

char* copy_path(const char* path) {
  size_t room = strlen(path) + 3;
  ScopedText copy(static_cast<char*>(g_try_malloc(room)));
  if (!copy) return nullptr;
  memcpy(copy.get(), path, room - 2);
  return copy.get();
}

bool cut_at_last_slash(char* path) {
  char* slash = strrchr(path, '/');
  if (slash == nullptr) return false;
  *slash = '\0';
  return true;
}

}  // namespace velconfig
