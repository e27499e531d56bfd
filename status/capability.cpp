// "hasPots": whether the gateway has telephony ports, from the first field of the
// device's Capability text.
#include <string.h>

#include "platform/dbus.h"
#include "platform/text.h"
#include "status/status.h"

namespace velconfig {
namespace {

const DBusObject kDeviceInfo = {kIgdService, "/com/zom/igd1/Info/Device", "com.zom.igd1.DeviceInfo"};

constexpr size_t kCapabilityRoom = 64;  // working buffer; longer texts are cut
constexpr size_t kFirstFieldRoom = 16;

// The first ";"-separated field of the Capability text, empty fields skipped as
// strtok skips them; empty when the read came back without a text. False only
// when the platform refused the read.
bool first_capability_field(char (&field)[kFirstFieldRoom]) {
  char work[kCapabilityRoom] = {};
  if (read_text_property(kDeviceInfo, "Capability", work, sizeof work) == PropertyRead::kFailed) return false;
  char* saveptr = nullptr;
  const char* first = strtok_r(work, ";", &saveptr);
  copy_text(field, first != nullptr ? first : "");
  return true;
}

}  // namespace

void get_has_pots(lua_State* L, const GetArgs&) {
  char field[kFirstFieldRoom] = {};
  // A gateway whose capability cannot be read is taken to have telephony; one that
  // reports no capability text, not.
  bool read = first_capability_field(field);
  lua_pushnumber(L, !read || decimal_value(field) != 0 ? 1 : 0);
}

}  // namespace velconfig
