// Simulated applications and the interconnect plugin. The applications are the
// model's `apps`; the plugin `inter_conndv3` answers commands only while it is
// listed and running, from `interconnect`: its two synchronisation switches, the
// mesh-roaming thresholds and the access points it knows, which SetWifiConfig
// changes. Tests may script the raw reply to a command type (`interconnect.replies`).
#include <stdlib.h>
#include <string.h>

#include <string>

#include "platform/zovel.h"
#include "sim/sim.h"

using velsim::int_of;
using velsim::object_at;
using velsim::objects_in;
using velsim::operation;
using velsim::text_of;

namespace velsim {
namespace {

constexpr const char* kPlugin = "inter_conndv3";
constexpr uint32_t kRunning = 1;

// Reply "Status" values of the simulated plugin.
constexpr int kDone = 0;
constexpr int kUnknownAccessPoint = 1;
constexpr int kBadRequest = 2;
constexpr int kUnknownCommand = 3;

json_t* find_app(const char* name) {
  for (json_t* app : objects_in("apps")) {
    if (g_strcmp0(text_of(app, "name", nullptr), name) == 0) return app;
  }
  return nullptr;
}

json_t* interconnect() { return object_at("interconnect"); }

json_t* access_points() {
  json_t* aps = json_object_get(interconnect(), "access_points");
  return json_is_array(aps) ? aps : nullptr;
}

json_t* find_access_point(const char* mac) {
  size_t i;
  json_t* ap;
  json_array_foreach(access_points(), i, ap) {
    if (json_is_object(ap) && mac != nullptr && g_ascii_strcasecmp(text_of(ap, "mac"), mac) == 0) return ap;
  }
  return nullptr;
}

// A member the command must carry with exactly this JSON type.
json_t* member(json_t* object, const char* key, json_type type) {
  json_t* v = json_object_get(object, key);
  return (v != nullptr && json_typeof(v) == type) ? v : nullptr;
}

// "Info": one "vendor|model|mac|hardware|software|connection|online time" entry per
// access point, separated by "/".
std::string device_list() {
  std::string info;
  size_t i;
  json_t* ap;
  json_array_foreach(access_points(), i, ap) {
    if (!json_is_object(ap)) continue;
    if (!info.empty()) info += "/";
    info += std::string(text_of(ap, "vendor")) + "|" + text_of(ap, "model") + "|" + text_of(ap, "mac") + "|" +
            text_of(ap, "hw_version") + "|" + text_of(ap, "sw_version") + "|" +
            std::to_string(int_of(ap, "connect_type")) + "|" + std::to_string(int_of(ap, "online_time"));
  }
  return info;
}

// GetWifi: each band of the access point as {"mode", "ap": [the first SSID]}.
int wifi_of(const char* mac, json_t* reply) {
  json_t* ap = find_access_point(mac);
  if (ap == nullptr) return kUnknownAccessPoint;
  json_object_set_new(reply, "wifiSwitch", json_integer(int_of(ap, "wifi_switch")));
  json_t* infos = json_array();
  const char* mode;
  json_t* band;
  json_object_foreach(json_object_get(ap, "bands"), mode, band) {
    json_t* entry =
        json_pack("{s:i,s:s,s:I,s:s,s:s}", "apidx", 0, "ssid", text_of(band, "ssid"), "enable",
                  int_of(band, "enable"), "pwd", text_of(band, "pwd"), "auth", text_of(band, "auth"));
    json_array_append_new(infos, json_pack("{s:s,s:[o]}", "mode", mode, "ap", entry));
  }
  json_object_set_new(reply, "infos", infos);
  return kDone;
}

// SetWifiConfig: one band of one access point; the SSID, key and enable replace the
// stored ones.
int configure_wifi(json_t* infos) {
  json_t* mac = member(infos, "mac", JSON_STRING);
  json_t* mode = member(infos, "mode", JSON_STRING);
  json_t* ssid = member(infos, "ssid", JSON_STRING);
  json_t* pwd = member(infos, "pwd", JSON_STRING);
  json_t* enable = member(infos, "enable", JSON_INTEGER);
  if (mac == nullptr || mode == nullptr || ssid == nullptr || pwd == nullptr || enable == nullptr ||
      member(infos, "apidx", JSON_INTEGER) == nullptr) {
    return kBadRequest;
  }
  json_t* ap = find_access_point(json_string_value(mac));
  if (ap == nullptr) return kUnknownAccessPoint;
  json_t* band = json_object_get(json_object_get(ap, "bands"), json_string_value(mode));
  if (!json_is_object(band)) return kBadRequest;
  json_object_set(band, "ssid", ssid);
  json_object_set(band, "pwd", pwd);
  json_object_set(band, "enable", enable);
  model_changed();
  return kDone;
}

// SetMeshRoaming: either threshold or both; at least one must be given.
int set_roaming(json_t* infos) {
  json_t* roaming = json_object_get(interconnect(), "roaming");
  if (!json_is_object(roaming)) {
    roaming = json_object();
    json_object_set_new(interconnect(), "roaming", roaming);
  }
  int given = 0;
  for (const char* key : {"optimal_path_rcpi_threshold2g", "optimal_path_rcpi_threshold"}) {
    json_t* v = json_object_get(infos, key);
    if (v == nullptr) continue;
    if (!json_is_integer(v)) return kBadRequest;
    ++given;
  }
  if (given == 0) return kBadRequest;
  for (const char* key : {"optimal_path_rcpi_threshold2g", "optimal_path_rcpi_threshold"}) {
    json_t* v = json_object_get(infos, key);
    if (v != nullptr) json_object_set(roaming, key, v);
  }
  model_changed();
  return kDone;
}

// A switch command carries its value as an integer member.
int set_switch(json_t* command, const char* key, const char* model_key) {
  json_t* v = member(command, key, JSON_INTEGER);
  if (v == nullptr) return kBadRequest;
  json_object_set(interconnect(), model_key, v);
  model_changed();
  return kDone;
}

// The plugin's reply object to a parsed command: "CmdType", what the command asks
// for, "Status", and the command's "SequenceId" echoed.
json_t* answer(json_t* command) {
  const char* type = text_of(command, "CmdType");
  json_t* reply = json_pack("{s:s}", "CmdType", type);
  json_t* infos = member(command, "infos", JSON_OBJECT);
  int status = kDone;
  if (strcmp(type, "GetSameWifi") == 0) {
    json_object_set_new(reply, "SameWiFiSwitch", json_integer(int_of(interconnect(), "same_wifi")));
  } else if (strcmp(type, "GetSameStatus") == 0) {
    json_object_set_new(reply, "SameStatusSwitch", json_integer(int_of(interconnect(), "same_status")));
  } else if (strcmp(type, "SetSameWifi") == 0) {
    status = set_switch(command, "SameWiFiSwitch", "same_wifi");
  } else if (strcmp(type, "SetSameStatus") == 0) {
    status = set_switch(command, "SameStatusSwitch", "same_status");
  } else if (strcmp(type, "GetDeviceList") == 0) {
    json_object_set_new(reply, "Info", json_string(device_list().c_str()));
  } else if (strcmp(type, "GetWifi") == 0) {
    json_t* mac = member(command, "mac", JSON_STRING);
    status = mac != nullptr ? wifi_of(json_string_value(mac), reply) : kBadRequest;
  } else if (strcmp(type, "SetWifiConfig") == 0) {
    status = infos != nullptr ? configure_wifi(infos) : kBadRequest;
  } else if (strcmp(type, "GetMeshRoaming") == 0) {
    json_t* roaming = json_object_get(interconnect(), "roaming");
    json_object_set_new(
        reply, "infos",
        json_pack("{s:I,s:I}", "optimal_path_rcpi_threshold2g",
                  int_of(roaming, "optimal_path_rcpi_threshold2g"), "optimal_path_rcpi_threshold",
                  int_of(roaming, "optimal_path_rcpi_threshold")));
  } else if (strcmp(type, "SetMeshRoaming") == 0) {
    status = infos != nullptr ? set_roaming(infos) : kBadRequest;
  } else {
    status = kUnknownCommand;
  }
  json_object_set_new(reply, "Status", json_integer(status));
  json_t* sequence = json_object_get(command, "SequenceId");
  json_object_set(reply, "SequenceId", sequence != nullptr ? sequence : json_null());
  return reply;
}

// The reply text (g_malloc'd) or null: no plugin of that name running, a command
// the plugin cannot parse, or a scripted silence.
char* plugin_reply(const char* app, const char* command) {
  if (g_strcmp0(app, kPlugin) != 0) return nullptr;
  json_t* record = find_app(kPlugin);
  if (record == nullptr || int_of(record, "state") != kRunning || command == nullptr) return nullptr;
  // A plugin that hangs still shows as running: only its replies stop.
  if (flag_of(interconnect(), "silent")) return nullptr;
  json_t* parsed = json_loads(command, 0, nullptr);
  if (!json_is_object(parsed)) {
    json_decref(parsed);
    return nullptr;
  }
  char* text = nullptr;
  json_t* scripted = json_object_get(json_object_get(interconnect(), "replies"), text_of(parsed, "CmdType"));
  if (scripted != nullptr) {
    if (json_is_string(scripted)) text = g_strdup(json_string_value(scripted));
  } else {
    json_t* reply = answer(parsed);
    char* dumped = json_dumps(reply, JSON_COMPACT | JSON_PRESERVE_ORDER);
    text = g_strdup(dumped);
    free(dumped);
    json_decref(reply);
  }
  json_decref(parsed);
  return text;
}

}  // namespace
}  // namespace velsim

extern "C" int32_t ZoVelListApp(ZoVelAppRecord** apps, int32_t* count) {
  return operation("ZoVelListApp", nullptr, [&]() -> int32_t {
    if (apps == nullptr || count == nullptr) return -1;
    std::vector<json_t*> listed = objects_in("apps");
    // The platform allocates this list with malloc; the caller releases it with free.
    ZoVelAppRecord* records =
        listed.empty() ? nullptr
                       : static_cast<ZoVelAppRecord*>(calloc(listed.size(), sizeof(ZoVelAppRecord)));
    if (!listed.empty() && records == nullptr) return -1;
    for (size_t i = 0; i < listed.size(); ++i) {
      velsim::put_text(records[i].name, text_of(listed[i], "name"));
      velsim::put_text(records[i].second, text_of(listed[i], "description"));
      velsim::put_text(records[i].third, text_of(listed[i], "version"));
      records[i].state = static_cast<uint32_t>(int_of(listed[i], "state"));
    }
    *count = velsim::hostile_count<ZoVelAppRecord, int32_t>(&records, listed.size());
    *apps = records;
    return 0;
  });
}

extern "C" int32_t ZoVelStartApp(const char* name) {
  return operation("ZoVelStartApp", json_pack("{s:o}", "name", velsim::shown_text(name)), [&]() -> int32_t {
    json_t* app = velsim::find_app(name);
    if (app == nullptr) return -1;  // not installed
    json_object_set_new(app, "state", json_integer(velsim::kRunning));
    velsim::model_changed();
    return 0;
  });
}

extern "C" char* ZoVelPostMsg(const char* app, const char* command) {
  char* reply = nullptr;
  json_t* args =
      json_pack("{s:o,s:o}", "app", velsim::shown_text(app), "command", velsim::shown_text(command));
  velsim::operation("ZoVelPostMsg", args, [&] {
    reply = velsim::plugin_reply(app, command);
    if (reply != nullptr && velsim::hostile_text(&reply)) return 0;
    return 0;
  });
  return reply;
}
