// What the USB pages share: the disk query, the numbering and default labels of the
// disks, the path rule that decides which paths a page may touch, the folder
// listings that end most answers, and the "a/b/" name lists.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <lua.hpp>
#include <string_view>
#include <type_traits>

#include "platform/holders.h"
#include "platform/records.h"

namespace velconfig {

// A label as shown: at most 135 characters.
constexpr size_t kLabelRoom = 136;
// The root path a page gets for a disk: the first 63 characters of its mount path.
constexpr size_t kRootPathRoom = 64;

using UsbList = PlatformList<ZoVelUsbDevice>;
static_assert(std::is_trivially_destructible_v<UsbList>, "a longjmp may pass over a UsbList");

// Queries the USB devices into list; true when the query succeeded and reported at
// least one device.
bool query_usb_devices(UsbList* list);

inline bool is_disk(const ZoVelUsbDevice& usb) { return usb.device_class == kMassStorageClass; }

// Whether the disk's instance number, read as a decimal number, is wanted.
bool instance_matches(const ZoVelUsbDevice& usb, int32_t wanted);

// Gives disks without a label of their own "USB_disc1", "USB_disc2", ... in the order
// they are shown; labelled disks take no number.
class DiskLabels {
 public:
  // The label of the next disk shown.
  void label_of(const ZoVelUsbDevice& usb, char (&out)[kLabelRoom]);

 private:
  int unlabelled_ = 0;
};

void root_path_of(const ZoVelUsbDevice& usb, char (&out)[kRootPathRoom]);

// The path rule: true when path starts with the mount path of a disk (a plain prefix
// comparison). An absent or empty path is refused silently; a failed device query
// and a path no disk accepts are logged. A path with a ".." component is refused as
// one outside the disks, so a page cannot name a file beyond a disk.
bool is_usb_path(const char* path);

// Adds "file%d" rows for the entries of folder to the table on top of the stack and
// returns their number (what the platform left on a failed count). May raise Lua's
// out-of-memory error.
uint32_t list_folder_entries(lua_State* L, const char* folder);
// Adds "folder%d" = name for the sub-folders of folder; returns their number, 0 on a
// failed query. May raise Lua's out-of-memory error.
uint32_t list_subfolders(lua_State* L, const char* folder);

// The names of a list in which each name is followed by "/"; text after the last "/"
// is no name.
class NameList {
 public:
  explicit NameList(const char* list) : rest_(list) {}
  bool next(std::string_view* name);

 private:
  std::string_view rest_;
};

// "folder/name" allocated in the call scope; null when memory runs out.
char* join_path(const char* folder, std::string_view name);
// A copy of path with room for 3 more characters, in the call scope; null when
// memory runs out.
char* copy_path(const char* path);
// Cuts path at its last "/" so that it names the folder; false when it has none.
bool cut_at_last_slash(char* path);

inline bool given(const char* text) { return text != nullptr && text[0] != '\0'; }

}  // namespace velconfig
