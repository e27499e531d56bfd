// copy/move requests and the name lists of "copyMove" and "deleteFiles", and the
// paths the file keys take, against the simulated disks.
#include <string>

#include "fuzz/fuzz_input.h"
#include "fuzz/lua_harness.h"

namespace {

const char* const kKeys[] = {"copyMove",       "deleteFiles",  "renameFile", "subFiles",   "newFolder",
                             "getDiagFolders", "copyProgress", "fileLists",  "selectedUsb"};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  velfuzz::module_state();
  velfuzz::Input in(data, size);
  for (int calls = 0; calls < 4 && !in.empty(); ++calls) {
    const char* key = kKeys[in.below(sizeof kKeys / sizeof kKeys[0])];
    std::string a1 = in.text(300);
    std::string a2 = in.text(300);
    velfuzz::call(true, key, &a1, &a2);
  }
  velsim::clear_journal();
  velsim::clear_logs();
  return 0;
}
