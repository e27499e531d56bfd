// "hasWiFi", "hasPots", "hasUsb" and "getAppConfig".
#include "module/small_queries.h"

#include <string.h>

#include "common/result.h"
#include "platform/dbus.h"
#include "platform/text.h"
#include "platform/zovel.h"

namespace velconfig {
namespace {

constexpr size_t kCapabilityRoom = 64;  // working buffer; longer texts are cut
constexpr size_t kFirstFieldRoom = 16;

// The first ";"-separated field of the Capability text, empty fields skipped as
// strtok skips them. Empty when the property cannot be read.
bool first_capability_field(char (&field)[kFirstFieldRoom]) {
  GVariant* raw = nullptr;
  int32_t rc = ZoVelDBusGetProperty(kIgdService, "/com/zom/igd1/Info/Device", "com.zom.igd1.DeviceInfo",
                                    "Capability", &raw);
  ScopedVariant value(raw);
  if (rc != 0) {
    value.release();
    return false;
  }
  char work[kCapabilityRoom] = {};
  if (raw != nullptr && g_variant_is_of_type(raw, G_VARIANT_TYPE_STRING)) {
    copy_text(work, g_variant_get_string(raw, nullptr));
  }
  value.release();
  char* saveptr = nullptr;
  const char* first = strtok_r(work, ";", &saveptr);
  copy_text(field, first != nullptr ? first : "");
  return true;
}

}  // namespace

void get_has_wifi(lua_State* L, const GetArgs&) {
  int32_t flag = 0;
  ZoVelSupportWiFi(&flag);
  lua_pushnumber(L, flag != 0 ? 1 : 0);
}

void get_has_usb(lua_State* L, const GetArgs&) {
  int32_t flag = 0;
  ZoVelSupportUSB(&flag);
  lua_pushnumber(L, flag != 0 ? 1 : 0);
}

void get_has_pots(lua_State* L, const GetArgs&) {
  char field[kFirstFieldRoom] = {};
  // A gateway whose capability cannot be read is taken to have telephony.
  bool read = first_capability_field(field);
  lua_pushnumber(L, !read || decimal_value(field) != 0 ? 1 : 0);
}

void get_app_config(lua_State* L, const GetArgs&) {
  lua_newtable(L);
  begin_row(L, "app%d", 1);
  set_text(L, "name", "test");
  set_text(L, "title", "APP TEST");
  set_text(L, "src", "test");
  end_row(L);
  set_number(L, "appCnt", 0);
}

}  // namespace velconfig
