// The applications' uci files: the model's app_configs lists each file's lines, and
// the file appears under the file root, as the gateway has it, the first time the
// module looks for it while it is missing. From then on the file is the truth: the
// module and the project's uci read and change it there.
#include <glib.h>
#include <string.h>

#include <string>

#include "sim/sim.h"
#include "sim/sim_seams.h"

extern "C" __attribute__((visibility("default"))) void velconfig_sim_provide_file(const char* gateway_path,
                                                                                  const char* host_path) {
  static const char kFolder[] = "/etc/config/";
  if (gateway_path == nullptr || host_path == nullptr ||
      strncmp(gateway_path, kFolder, sizeof kFolder - 1) != 0) {
    return;
  }
  const char* name = gateway_path + sizeof kFolder - 1;
  if (*name == '\0' || strchr(name, '/') != nullptr) return;
  try {
    std::lock_guard<std::recursive_mutex> hold(velsim::platform_mutex());
    json_t* lines = json_object_get(json_object_get(velsim::model(), "app_configs"), name);
    if (!json_is_array(lines) || g_file_test(host_path, G_FILE_TEST_EXISTS)) return;
    std::string text;
    size_t i;
    json_t* line;
    json_array_foreach(lines, i, line) {
      const char* piece = json_string_value(line);
      text += piece != nullptr ? piece : "";
      text += "\n";
    }
    g_file_set_contents(host_path, text.data(), static_cast<gssize>(text.size()), nullptr);
  } catch (...) {
    // Out of memory: the file stays missing, as a file the gateway lost would be.
  }
}
