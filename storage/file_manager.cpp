// The file manager's keys: opening a disk, browsing folders, creating, deleting and
// renaming, following a copy and formatting a disk. Each answers with the listing
// of the folder the page shows next; a refused path or a failed query answers with
// a count of 0 and no listing.
#include <string.h>

#include "common/result.h"
#include "platform/text.h"
#include "platform/zovel.h"
#include "storage/disks.h"
#include "storage/storage.h"

namespace velconfig {
namespace {

// The first disk with the wanted instance number, or null.
const ZoVelUsbDevice* disk_with(const UsbList& devices, int32_t wanted) {
  for (const ZoVelUsbDevice& usb : devices) {
    if (is_disk(usb) && instance_matches(usb, wanted)) return &usb;
  }
  return nullptr;
}

// Lists folder as the page's current folder.
void show_folder(lua_State* L, const char* folder) {
  uint32_t count = list_folder_entries(L, folder);
  set_text(L, "filePath", folder);
  set_number(L, "fileNum", count);
}

}  // namespace

void get_file_lists(lua_State* L, const GetArgs& args) {
  int32_t wanted = given(args.a1) ? decimal_value(args.a1) : 0;
  lua_newtable(L);
  UsbList devices;
  if (!query_usb_devices(&devices)) {
    set_number(L, "fileNum", 0);
    set_number(L, "usbCnt", 0);
    return;
  }
  DiskLabels labels;
  int disks = 0;
  const ZoVelUsbDevice* opened = nullptr;
  char opened_label[kLabelRoom] = {};
  for (const ZoVelUsbDevice& usb : devices) {
    if (!is_disk(usb)) continue;
    char label[kLabelRoom] = {};
    labels.label_of(usb, label);
    char key[32];
    snprintf(key, sizeof key, "storage%d", ++disks);
    set_text(L, key, label);
    snprintf(key, sizeof key, "instno%d", disks);
    set_text(L, key, instance_number_text(usb.identity.id));
    // The first disk unless a later one has the wanted number; the last match wins.
    if (opened == nullptr || instance_matches(usb, wanted)) {
      opened = &usb;
      memcpy(opened_label, label, sizeof label);
    }
  }
  uint32_t count = 0;
  if (opened != nullptr) {
    set_text(L, "usbLabel", opened_label);
    set_text(L, "usbLabelInst", instance_number_text(opened->identity.id));
    char root[kRootPathRoom] = {};
    root_path_of(*opened, root);
    count = list_folder_entries(L, root);
    set_text(L, "filePath", root);
  }
  set_number(L, "fileNum", count);
  set_number(L, "usbCnt", disks);
}

void get_selected_usb(lua_State* L, const GetArgs& args) {
  lua_newtable(L);
  UsbList devices;
  if (!query_usb_devices(&devices)) {
    set_number(L, "fileNum", 0);
    return;
  }
  uint32_t count = 0;
  if (const ZoVelUsbDevice* usb = disk_with(devices, decimal_value(args.a1))) {
    char root[kRootPathRoom] = {};
    root_path_of(*usb, root);
    count = list_folder_entries(L, root);
    set_text(L, "filePath", root);
  }
  set_number(L, "fileNum", count);
}

void get_sub_files(lua_State* L, const GetArgs& args) {
  lua_newtable(L);
  if (!is_usb_path(args.a1)) {
    set_number(L, "fileNum", 0);
    return;
  }
  show_folder(L, args.a1);
}

void get_new_folder(lua_State* L, const GetArgs& args) {
  bool folder_mode = args.a2 != nullptr && decimal_value(args.a2) != 0;
  int32_t status = 1;
  lua_newtable(L);
  uint32_t count = 0;
  char* path = is_usb_path(args.a1) ? copy_path(args.a1) : nullptr;
  if (path != nullptr) {
    ZoVel_NAS_CreateFolter(path, &status, nullptr);
    if (status == 0) {
      cut_at_last_slash(path);
      if (folder_mode) {
        count = list_subfolders(L, path);
      } else {
        count = list_folder_entries(L, path);
        set_text(L, "filePath", path);
      }
    }
  }
  set_number(L, folder_mode ? "folderNum" : "fileNum", count);
}

void get_delete_files(lua_State* L, const GetArgs& args) {
  int32_t status = 1;
  lua_newtable(L);
  if (!given(args.a1) || !given(args.a2) || !is_usb_path(args.a1)) {
    set_number(L, "fileNum", 0);
    return;
  }
  NameList names(args.a2);
  std::string_view name;
  // The first failed removal leaves the remaining names alone.
  do {
    if (!names.next(&name)) break;
    // "", "." and ".." would name the folder itself or its parent: skipped, and the
    // loop goes on as after a removal.
    if (name.empty() || name == "." || name == "..") {
      status = 0;
      continue;
    }
    char* path = join_path(args.a1, name);
    if (path == nullptr) continue;
    ZoVel_NAS_Remove(path, &status, nullptr);
    // Given back at once: a request may name any number of files.
    call_scope::release(path);
  } while (status == 0);
  show_folder(L, args.a1);
}

void get_rename_file(lua_State* L, const GetArgs& args) {
  lua_newtable(L);
  // Both paths are held against the disks: an old path elsewhere would move any
  // file the platform can reach onto the disk.
  if (!given(args.a1) || !given(args.a2) || !is_usb_path(args.a2) || !is_usb_path(args.a1)) {
    set_number(L, "fileNum", 0);
    return;
  }
  ZoVel_NAS_ReName(args.a1, args.a2, nullptr, nullptr);
  char* folder = copy_path(args.a1);
  // An old path without a "/" names no folder to show.
  if (folder == nullptr || !cut_at_last_slash(folder)) {
    set_number(L, "fileNum", 0);
    return;
  }
  uint32_t count = list_folder_entries(L, folder);
  set_text(L, "filePath", folder);
  set_number(L, "fileNum", count);
}

void get_diag_folders(lua_State* L, const GetArgs& args) {
  lua_newtable(L);
  uint32_t count = is_usb_path(args.a1) ? list_subfolders(L, args.a1) : 0;
  set_number(L, "folderNum", count);
}

void get_copy_progress(lua_State* L, const GetArgs& args) {
  uint32_t percent = 0;
  lua_newtable(L);
  int32_t transfer = decimal_value(args.a1);
  int32_t rc = ZoVel_NAS_GetCopyProgress(transfer, &percent, nullptr, nullptr);
  ZoVelLog(kLogNotice, "Get copy progress with tranID is %d, percent is %d.", transfer,
           static_cast<int32_t>(percent));
  // 200 tells the page the transfer is unknown or has failed.
  set_number(L, "percent", rc == 0 ? percent : 200);
}

void get_usb_format(lua_State* L, const GetArgs& args) {
  lua_newtable(L);
  UsbList devices;
  if (!query_usb_devices(&devices)) {
    set_number(L, "fileNum", 0);
    return;
  }
  // A number beyond 32 bits names no disk (wrapped, 4294967299 would format disk 3).
  int64_t wanted = wide_decimal_value(args.a1 != nullptr ? args.a1 : "");
  bool in_range = static_cast<int32_t>(wanted) == wanted;
  const ZoVelUsbDevice* usb = in_range ? disk_with(devices, static_cast<int32_t>(wanted)) : nullptr;
  if (usb == nullptr) {
    set_number(L, "fileNum", 0);
    return;
  }
  char root[kRootPathRoom] = {};
  root_path_of(*usb, root);
  ZoVelUsbId id;
  memcpy(&id, &usb->identity, sizeof id);
  uint32_t count = 0;
  // A formatted disk is empty; a failed format shows what is still there.
  if (ZoVel_USBFormat(id, nullptr, nullptr) != 0) count = list_folder_entries(L, root);
  set_text(L, "filePath", root);
  set_number(L, "fileNum", count);
}

}  // namespace velconfig
