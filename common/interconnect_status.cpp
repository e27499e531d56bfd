// The interconnect plugin's status: whether it runs, its two switches, and the access
// points it knows with each one's Wi-Fi.
#include "common/interconnect_status.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "common/result.h"
#include "platform/escaped_text.h"
#include "platform/holders.h"
#include "platform/plugin.h"
#include "platform/text.h"
#include "platform/zovel.h"

namespace velconfig {
namespace {

constexpr uint32_t kAppRunning = 1;
constexpr uint32_t kAppMissing = 2;

// Device list entries are cut at this many characters.
constexpr size_t kEntryRoom = 256;

enum Position { kVendor, kModel, kMac, kHdVersion, kSwVersion, kConnectType, kOnlineTime };

// Copies a record text into out, terminated even when the record's is not.
template <size_t N>
void terminated(char (&out)[N + 1], const char (&field)[N]) {
  copy_text(out, field_text(field));
}

// Logs the records up to the plugin's and tells its state: the record's state, or
// kAppMissing when no application's name contains the plugin's.
uint32_t plugin_state(const FreeList<ZoVelAppRecord>& apps) {
  for (size_t i = 0; i < apps.size(); ++i) {
    const ZoVelAppRecord& app = apps[i];
    char name[sizeof app.name + 1];
    char second[sizeof app.second + 1];
    char third[sizeof app.third + 1];
    terminated(name, app.name);
    terminated(second, app.second);
    terminated(third, app.third);
    ZoVelLog(kLogNotice, "[%d] %s %s %s %u\n", static_cast<int>(i), name, second, third, app.state);
    if (strstr(name, kInterconnectApp) != nullptr) return app.state;
  }
  return kAppMissing;
}

// One of the switches: the integer member of the reply, or value unchanged.
void read_switch(const char* command, const char* reply_format, const char* member, int32_t* value) {
  PluginExchange exchange;
  if (exchange.post(kInterconnectApp, command, reply_format) && exchange.document() != nullptr) {
    read_json_int(exchange.document(), member, value);
  }
}

const char* auth_display_name(const char* auth) {
  if (strcmp(auth, "open") == 0) return "None";
  if (strcmp(auth, "wpa2psk") == 0) return "WPA2";
  if (strcmp(auth, "wpa3sae") == 0) return "WPA3";
  if (strcmp(auth, "wpa2pskwpa3sae") == 0) return "WPA2/WPA3";
  return "WPA/WPA2";
}

// What GetWifi told about one access point. Starts at 0 for each access point, so a
// failed exchange never shows an earlier one's values.
struct WifiState {
  int32_t status = 0;
  int32_t wifi_switch = 0;
  int32_t flg = 0;
  int32_t enable[2] = {0, 0};
};

// Sets one band's four fields into the row from the first of its "ap" entries.
void set_band(lua_State* L, json_t* ap, int band, WifiState* wifi) {
  static const char* const kFields[2][4] = {{"ssid2g", "enbl2g", "pwd2g", "auth2g"},
                                            {"ssid5g", "enbl5g", "pwd5g", "auth5g"}};
  char ssid[64] = {};
  char pwd[64] = {};
  char auth[32] = {};
  read_json_text(ap, "ssid", ssid);
  read_json_int(ap, "enable", &wifi->enable[band]);
  read_json_text(ap, "pwd", pwd);
  read_json_text(ap, "auth", auth);
  set_text(L, kFields[band][0], ssid);
  set_number(L, kFields[band][1], wifi->enable[band]);
  set_text(L, kFields[band][2], pwd);
  set_text(L, kFields[band][3], auth_display_name(auth));
}

// GetWifi for the access point mac: its bands' fields, then "wifiSwitch" and "flg",
// into the row on top of the stack.
void read_wifi(lua_State* L, const char* mac) {
  WifiState wifi;
  EscapedText<kEntryRoom> mac_text(mac);
  char command[256];
  format_command(command, sizeof command,
                 "{\"CmdType\":\"GetWifi\",\"mac\":\"%s\",\"SequenceId\":\"88888888\"}", mac_text.text);
  PluginExchange exchange;
  if (exchange.post(kInterconnectApp, command, "GetWifi: %s") && exchange.document() != nullptr) {
    json_t* doc = exchange.document();
    read_json_int(doc, "Status", &wifi.status);
    if (wifi.status == 0) {
      read_json_int(doc, "wifiSwitch", &wifi.wifi_switch);
      json_t* infos = json_object_get(doc, "infos");
      size_t i;
      json_t* info;
      json_array_foreach(infos, i, info) {
        char mode[16] = {};
        read_json_text(info, "mode", mode);
        int band;
        if (equals_ignoring_case(mode, "2.4g")) {
          band = 0;
        } else if (equals_ignoring_case(mode, "5g")) {
          band = 1;
        } else {
          continue;
        }
        json_t* aps = json_object_get(info, "ap");
        if (!json_is_array(aps) || json_array_size(aps) == 0) continue;
        wifi.flg |= band == 0 ? 1 : 2;
        set_band(L, json_array_get(aps, 0), band, &wifi);
      }
    }
  }
  exchange.finish();
  set_number(L, "wifiSwitch", wifi.wifi_switch);
  set_number(L, "flg", wifi.flg);
}

// One device list entry ("vendor|model|mac|hw|sw|type|time", empty fields
// collapsing as strtok collapses them) as the row "ap<devcnt>". An entry without
// "|" is not an access point and sets nothing.
void add_access_point(lua_State* L, char* entry, int32_t* devcnt) {
  if (strchr(entry, '|') == nullptr) return;
  ++*devcnt;
  begin_row(L, "ap%d", *devcnt);
  int position = 0;
  char* rest = nullptr;
  for (char* field = strtok_r(entry, "|", &rest); field != nullptr; field = strtok_r(nullptr, "|", &rest)) {
    switch (position++) {
      case kVendor:
        set_text(L, "vendor", field);
        break;
      case kModel:
        set_text(L, "model", field);
        break;
      case kMac:
        set_text(L, "mac", field);
        read_wifi(L, field);
        break;
      case kHdVersion:
        set_text(L, "hdversion", field);
        break;
      case kSwVersion:
        set_text(L, "swversion", field);
        break;
      case kConnectType:
        set_number(L, "connecttype", decimal_value(field));
        break;
      case kOnlineTime:
        set_number(L, "onlinetime", decimal_value(field));
        break;
      default:
        break;
    }
  }
  if (position > 0) {
    end_row(L);
  } else {
    lua_pop(L, 2);  // only separators: the row is not kept
  }
}

// GetDeviceList and a row per access point; the number of rows opened, 0 when the
// list could not be read.
int32_t collect_access_points(lua_State* L) {
  PluginExchange list;
  if (!list.post(kInterconnectApp, "{\"CmdType\":\"GetDeviceList\",\"SequenceId\":\"88888888\"}",
                 "GetDeviceList: %s")) {
    return 0;
  }
  if (list.document() == nullptr) return 0;
  char info[1024] = {};
  read_json_text(list.document(), "Info", info);
  ZoVelLog(kLogNotice, "Info: %s", info);

  int32_t devcnt = 0;
  for (const char* p = info; *p != '\0';) {
    size_t length = strcspn(p, "/");
    char entry[kEntryRoom] = {};
    memcpy(entry, p, std::min(length, sizeof entry - 1));
    add_access_point(L, entry, &devcnt);
    p += length;
    if (*p == '/') ++p;
  }
  return devcnt;
}

}  // namespace

void getVelInterConndPluginStatus(lua_State* L, int32_t table_flag) {
  int32_t config_enbl = 0;
  int32_t onoff = 0;
  int32_t devcnt = 0;
  FreeList<ZoVelAppRecord> apps;
  apps.fill(ZoVelListApp);
  ZoVelLog(kLogNotice, "############getVelInterConndPluginStatus Start, size: %d##########", apps.reported());
  if (table_flag != 0) lua_newtable(L);

  uint32_t app_status = plugin_state(apps);
  if (app_status == kAppRunning) {
    read_switch("{\"CmdType\":\"GetSameWifi\",\"SequenceId\":\"88888888\"}", "SameWiFiSwitch: %s",
                "SameWiFiSwitch", &config_enbl);
    read_switch("{\"CmdType\":\"GetSameStatus\",\"SequenceId\":\"88888888\"}", "SameStatusSwitch: %s",
                "SameStatusSwitch", &onoff);
    devcnt = collect_access_points(L);
  }

  set_number(L, "appStatus", app_status);
  set_number(L, "configEnbl", config_enbl);
  set_number(L, "onoff", onoff);
  set_number(L, "devcnt", devcnt);
}

}  // namespace velconfig
