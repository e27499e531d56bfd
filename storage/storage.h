// USB storage pages: the disks and their labels, the file manager's listings and
// file operations, copy/move with progress, and formatting. Every get handler here
// pushes one result table; set_usb_modify_label may raise the table field reader's
// Lua error (as a LuaArgError) once a disk matched.
#pragma once

#include <stdint.h>

#include "common/handler.h"

namespace velconfig {

// "hasUsb": 1 when the platform reports a USB port, else 0.
void get_has_usb(lua_State* L, const GetArgs& args);
void get_usb_devices(lua_State* L, const GetArgs& args);
int32_t set_usb_modify_label(lua_State* L);

void get_file_lists(lua_State* L, const GetArgs& args);
void get_selected_usb(lua_State* L, const GetArgs& args);
void get_sub_files(lua_State* L, const GetArgs& args);
void get_new_folder(lua_State* L, const GetArgs& args);
void get_delete_files(lua_State* L, const GetArgs& args);
void get_rename_file(lua_State* L, const GetArgs& args);
void get_diag_folders(lua_State* L, const GetArgs& args);
void get_copy_move(lua_State* L, const GetArgs& args);
void get_copy_progress(lua_State* L, const GetArgs& args);
void get_usb_format(lua_State* L, const GetArgs& args);

}  // namespace velconfig
