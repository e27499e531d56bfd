// The LOID registration page: storing a new LOID (optionally with a new 2.4 GHz
// network name and password), starting registration, and polling its progress. A
// registration the access network refused (405, 407, 409) holds new LOIDs off for
// 180 seconds of running time; the moment lives in uci so it survives a reboot.
#include "loid/loid.h"

#include <stdio.h>
#include <string.h>

#include "common/result.h"
#include "common/table_field.h"
#include "platform/dbus.h"
#include "platform/holders.h"
#include "platform/object_path.h"
#include "platform/process.h"
#include "platform/service_flags.h"
#include "platform/text.h"
#include "platform/zovel.h"

namespace velconfig {
namespace {

const DBusObject kDeviceInfo = {kIgdService, "/com/zom/igd1/Info/Device", "com.zom.igd1.DeviceInfo"};
constexpr const char* kWlanInterface = "com.zom.igd1.WLANConfiguration";

constexpr int32_t kHoldOffSeconds = 180;
// uci answers at once; one that does not is not waited for longer than this.
constexpr size_t kMarkLineRoom = 64;
constexpr size_t kMarkAssignmentRoom = 256;

// The status the progress query starts from, and the refusals that start a hold-off.
constexpr int32_t kLoidStatusStart = 201;
bool starts_hold_off(int32_t status) { return status == 405 || status == 407 || status == 409; }

constexpr size_t kProgressRoom = 256;
constexpr const char* kProgressFailed = R"(checkLoidStatus({"result":-1,"msg":"failed"}))";

// The stored hold-off mark: the leading number of uci's first line; 0 when uci
// cannot run or prints none.
int32_t read_mark() {
  const char* const argv[] = {"uci", "get", "luci.ccache.lastregtime", nullptr};
  char line[kMarkLineRoom] = {};
  run_command_line(argv, line, sizeof line, kUciTimeoutMs);
  return decimal_value(line);
}

// Stores and commits "luci.ccache.lastregtime=<value>"; a uci that fails is not reported.
void store_mark(const char* assignment) {
  const char* const set[] = {"uci", "set", assignment, nullptr};
  run_command(set, kUciTimeoutMs);
  const char* const commit[] = {"uci", "commit", "luci", nullptr};
  run_command(commit, kUciTimeoutMs);
}

// Seconds the hold-off still runs, 0 when a new LOID may be stored. A hold-off found
// over clears the mark. When the running time cannot be read, the mark itself.
int32_t hold_off_left() {
  int32_t mark = read_mark();
  if (mark <= 0) return 0;
  uint32_t running = 0;
  if (!read_uint32_property(kDeviceInfo, "SysDuration", &running)) return mark;
  // The gateway's 32-bit arithmetic: a running time far past the mark wraps as it does there.
  int32_t left = static_cast<int32_t>(static_cast<uint32_t>(mark) - running + kHoldOffSeconds);
  if (left > 0) return left;
  store_mark("luci.ccache.lastregtime=0");
  return 0;
}

// The new network name and password on the first 2.4 GHz SSID; results not examined.
void change_first_2g_network(const char* ssid, const char* password) {
  PlatformList<ZoVelWlanDevice, uint32_t> list;
  list.fill(ZoVelGetWLANDeviceObjs);
  for (const ZoVelWlanDevice& device : list) {
    if (field_text(device.band_label) != "2.4G-1") continue;
    PathText path = path_text(device.path);
    DBusObject wlan = {kIgdService, path.text, kWlanInterface};
    write_property(wlan, "SSID", g_variant_new_string(ssid));
    write_property(wlan, "PWD", g_variant_new_string(password));
    break;
  }
}

}  // namespace

// Every field is judged before the hold-off check, which may clear the mark, and
// before the LOID is stored: a field that is missing or of another type raises, and
// one that is not clean or a secret that does not fit whole answers 1, with nothing
// changed either way.
int32_t set_loid(lua_State* L) {
  char loid[128];
  char password[128];
  char has_wifi[16];
  char ssid[64] = {};
  char wifi_password[64] = {};
  bool clean = read_secret(L, "loid", loid) == SecretText::kFits;
  clean = read_secret(L, "loidPsd", password) == SecretText::kFits && clean;
  clean = read_field(L, "hasWiFi", has_wifi) && clean;
  // Any value but 0 goes on to the network name, not only 1.
  bool wifi = decimal_value(has_wifi) != 0;
  if (wifi) {
    clean = read_field(L, "wifiSsid", ssid) && clean;
    clean = read_secret(L, "wifiPsd", wifi_password) == SecretText::kFits && clean;
  }
  if (!clean) return kTextRefused;

  int32_t left = hold_off_left();
  if (left > 0) return left;
  int32_t code = ZoVelSysCmdSetLOID(loid, password, nullptr, nullptr, nullptr);
  if (code != 0) return code;
  if (!wifi) return 0;
  if (wifi_password[0] == '\0') {
    ZoVelLog(kLogNotice, "SSID and password don't change");
    return 0;
  }
  change_first_2g_network(ssid, wifi_password);
  return 0;
}

int32_t set_register_loid(lua_State*) {
  int32_t status = 0;
  ZoVelSysCmdRegisterLOID(&status, nullptr);
  return status;
}

void get_check_loid(lua_State* L, const GetArgs&) {
  int32_t status = 0;
  ZoVelSysCmdCheckLOID(&status, nullptr);
  // The page reads the status unsigned: -1 shows as 4294967295.
  lua_pushnumber(L, static_cast<uint32_t>(status));
}

void get_reg_process(lua_State* L, const GetArgs&) {
  int32_t status = kLoidStatusStart;
  char* raw = nullptr;
  int32_t rc = ZoVelSysCmdCheckLOID(&status, &raw);
  // Only a non-empty text is ours to release; an empty one may be the library's constant.
  ScopedText message(raw != nullptr && raw[0] != '\0' ? raw : nullptr);
  char progress[kProgressRoom] = {};
  if (rc == 0) {
    snprintf(progress, sizeof progress, R"(checkLoidStatus({"result":%d,"msg":"%s"}))", status,
             raw != nullptr ? raw : "");
  } else {
    copy_text(progress, kProgressFailed);
  }
  lua_pushstring(L, progress);

  if (starts_hold_off(status)) {
    uint32_t running = 0;
    if (read_uint32_property(kDeviceInfo, "SysDuration", &running)) {
      char assignment[kMarkAssignmentRoom] = {};
      snprintf(assignment, sizeof assignment, "luci.ccache.lastregtime=%d", static_cast<int32_t>(running));
      store_mark(assignment);
    }
  }
}

void get_itv_voip_reg(lua_State* L, const GetArgs&) {
  lua_newtable(L);
  ServiceFlags flags = read_service_flags();
  set_bool(L, "itv", flags.itv);
  set_bool(L, "voip", flags.voip);
}

}  // namespace velconfig
