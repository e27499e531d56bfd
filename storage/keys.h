// The USB storage pages' keys: the disks and their labels, the file manager,
// copy/move with progress, and formatting.
#pragma once

#include "common/key_row.h"
#include "storage/storage.h"

namespace velconfig {

inline constexpr GetRow kStorageGetRows[] = {
    {3, "hasUsb", get_has_usb, "", "1 when the gateway has a USB port, else 0", false},
    {22, "usbDevices", get_usb_devices, "", "storage%d rows (label, instno, maxSize, usedSize), usbCount",
     false},
    {23, "fileLists", get_file_lists, "a1: instance number of the disk to open",
     "storage%d, instno%d, usbLabel, usbLabelInst, file%d listing, filePath, fileNum, usbCnt", false},
    {24, "selectedUsb", get_selected_usb, "a1: instance number", "file%d listing, filePath, fileNum", false},
    {25, "subFiles", get_sub_files, "a1: folder path", "file%d listing, filePath, fileNum", false},
    {26, "newFolder", get_new_folder, "a1: folder to create; a2: folder mode flag",
     "the parent's listing, filePath, fileNum (or folder%d, folderNum)", true},
    {27, "deleteFiles", get_delete_files, "a1: folder path; a2: names, each followed by \"/\"",
     "file%d listing, filePath, fileNum", true},
    {28, "renameFile", get_rename_file, "a1: old full path; a2: new full path",
     "file%d listing, filePath, fileNum", true},
    {29, "getDiagFolders", get_diag_folders, "a1: folder path", "folder%d, folderNum", false},
    {30, "copyMove", get_copy_move,
     "a1: op|source|destination|largest file; a2: names, each followed by \"/\"",
     "filePath, fileNum, transId, percent, setRes (a move adds the source folder's file%d listing)", true},
    {31, "copyProgress", get_copy_progress, "a1: transfer identifier", "percent (200 on failure)", false},
    {32, "usbFormat", get_usb_format, "a1: instance number",
     "filePath, fileNum (a file%d listing only when formatting failed)", true},
};

inline constexpr SetRow kStorageSetRows[] = {
    {23, "usbModifyLabel", set_usb_modify_label, "table: instno, newLabel", "the platform's code", true},
};

}  // namespace velconfig
