// "copyMove": copies or moves the named files of one folder into another. A copy of
// several files is reported to the page as one transfer: the least advanced one,
// starting from the largest file's, so the page's progress bar ends with the last
// file to finish.
#include <glib.h>
#include <string.h>

#include <algorithm>

#include "common/result.h"
#include "platform/holders.h"
#include "platform/seams.h"
#include "platform/text.h"
#include "platform/zovel.h"
#include "storage/disks.h"
#include "storage/storage.h"

namespace velconfig {
namespace {

// Slot 0 holds the primary transfer; slots 1 to 1023 the copied files' in order.
constexpr int kTransferSlots = 1024;
constexpr size_t kOperationRoom = 16;
constexpr size_t kLargestNameRoom = 256;

struct CopyRequest {
  char operation[kOperationRoom];
  char largest[kLargestNameRoom];
};

// Takes a run of characters other than "|" from text into out (at most cap - 1 of
// them, the rest of the run left in text); false when the run is empty.
bool take_field(std::string_view* text, char* out, size_t cap) {
  size_t run = text->find('|');
  if (run == std::string_view::npos) run = text->size();
  if (run == 0) return false;
  size_t n = std::min(run, cap - 1);
  memcpy(out, text->data(), n);
  out[n] = '\0';
  text->remove_prefix(n);
  return true;
}

bool take_bar(std::string_view* text) {
  if (text->substr(0, 1) != "|") return false;
  text->remove_prefix(1);
  return true;
}

// Splits "operation|source|destination|largest": each field a non-empty run without
// "|", the operation at most 15 characters. Splitting stops at the first field that
// does not fit, leaving the rest empty. The largest file's name is cut at 255
// characters; source and destination have room for the whole request.
void split_request(const char* text, CopyRequest* request, char* source, char* destination, size_t room) {
  std::string_view rest(text);
  bool more = take_field(&rest, request->operation, sizeof request->operation) && take_bar(&rest) &&
              take_field(&rest, source, room) && take_bar(&rest) && take_field(&rest, destination, room) &&
              take_bar(&rest);
  if (more) take_field(&rest, request->largest, sizeof request->largest);
}

char* new_buffer(size_t room) {
  ScopedText buffer(static_cast<char*>(g_try_malloc0(room)));
  return buffer.get();
}

void release_slots(int32_t* slots) { g_free(slots); }

// The transfer identifier table, all 0, in the call scope (4 KiB: too much for the
// small stacks of the web server's threads); null when memory runs out.
int32_t* new_slots() {
  Scoped<int32_t, release_slots> slots(
      static_cast<int32_t*>(g_try_malloc0_n(kTransferSlots, sizeof(int32_t))));
  return slots.get();
}

// The transfer reported for a copy: slot 0 unless a kept file's copy is less advanced.
void report_copy(lua_State* L, int32_t* slots, int last_kept, const char* source) {
  sleep_seconds(1);
  if (slots[0] == 0) slots[0] = slots[last_kept];
  int32_t primary = slots[0];
  uint32_t percent = 0;
  ZoVel_NAS_GetCopyProgress(primary, &percent, nullptr, nullptr);
  // A query that writes nothing leaves the previous file's figure.
  uint32_t other = 0;
  for (int k = 1; k <= last_kept; ++k) {
    if (slots[k] == slots[0]) continue;
    ZoVel_NAS_GetCopyProgress(slots[k], &other, nullptr, nullptr);
    if (other < percent) {
      primary = slots[k];
      percent = other;
    }
  }
  ZoVelLog(kLogNotice, "Copy tranID is %d, percent is %d.", primary, static_cast<int32_t>(percent));
  set_text(L, "filePath", source);
  set_number(L, "fileNum", 0);
  set_number(L, "transId", primary);
  set_number(L, "percent", percent);
}

}  // namespace

void get_copy_move(lua_State* L, const GetArgs& args) {
  int32_t status = 1;
  lua_newtable(L);
  if (!given(args.a1) || !given(args.a2)) {
    set_number(L, "fileNum", 0);
    set_number(L, "transId", 0);
    set_number(L, "percent", 0);
    set_bool(L, "setRes", false);
    return;
  }
  size_t room = strlen(args.a1) + 1;
  char* source = new_buffer(room);
  char* destination = new_buffer(room);
  int32_t* slots = new_slots();
  if (source == nullptr || destination == nullptr || slots == nullptr) {
    set_bool(L, "setRes", false);
    return;
  }
  CopyRequest request = {};
  split_request(args.a1, &request, source, destination, room);
  ZoVelLog(kLogNotice, "max size file is %s.", request.largest);
  // The source is held against the disks too, as "renameFile" holds both paths: the
  // platform is the only other guard between a page and the whole file system.
  if (!is_usb_path(destination) || !is_usb_path(source)) {
    set_bool(L, "setRes", false);
    return;
  }

  bool copy = strcmp(request.operation, "copy") == 0;
  int files = 0;
  int last_kept = 0;
  NameList names(args.a2);
  std::string_view name;
  // The first failed copy or move ends the loop.
  do {
    if (!names.next(&name)) break;
    // "", "." and ".." name the source folder itself or its parent: skipped, and the
    // loop goes on as after a copy or move that started.
    if (name.empty() || name == "." || name == "..") {
      status = 0;
      continue;
    }
    char* path = join_path(source, name);
    if (path == nullptr) continue;
    if (!copy) {
      ZoVel_NAS_Move(path, destination, &status, nullptr);
    } else {
      ++files;
      // Beyond the table the copy still starts; its identifier is not kept. One test
      // decides both where the identifier goes and which copies are followed.
      bool kept = files < kTransferSlots;
      int32_t unkept = 0;
      int32_t* slot = kept ? &slots[files] : &unkept;
      if (kept) last_kept = files;
      if (name == request.largest) {
        ZoVel_NAS_Copy(path, destination, &slots[0], &status, nullptr);
        *slot = slots[0];
        ZoVelLog(kLogNotice, "max size file is %s. trans id is %d.", request.largest, slots[0]);
      } else {
        ZoVel_NAS_Copy(path, destination, slot, &status, nullptr);
      }
    }
    // Given back at once: a request may name any number of files.
    call_scope::release(path);
  } while (status == 0);

  if (copy) {
    report_copy(L, slots, last_kept, source);
  } else {
    uint32_t count = list_folder_entries(L, source);
    set_text(L, "filePath", source);
    set_number(L, "fileNum", count);
    set_number(L, "transId", 0);
    set_number(L, "percent", 0);
  }
  set_bool(L, "setRes", true);
}

}  // namespace velconfig
