// "easymesh_config" (write) and "hasMesh": the EasyMesh service's settings and the
// interconnect plugin's roaming thresholds, and the exported reader other gateway
// programs use.
#include "wifi/mesh.h"

#include <string.h>

#include "common/table_field.h"
#include "platform/dbus.h"
#include "platform/holders.h"
#include "platform/plugin.h"
#include "platform/text.h"
#include "platform/zovel.h"
#include "wifi/easymesh_config.h"

namespace velconfig {
namespace {

constexpr const char* kMeshPath = "/com/zom/map1/Management";
const DBusObject kMesh = {kMeshService, kMeshPath, "com.zom.map1.Management"};
const DBusObject kWiFiInfo = {kIgdService, "/com/zom/igd1/Info/WiFi", "com.zom.igd1.WiFiInfo"};

// The roaming commands' buffer: 255 characters and the terminator.
constexpr size_t kRoamingCommandRoom = 256;
constexpr const char* kSetMeshRoamingBoth =
    R"({"CmdType":"SetMeshRoaming","infos":{"optimal_path_rcpi_threshold2g":%d,"optimal_path_rcpi_threshold":%d},"SequenceId":"88888888"})";
constexpr const char* kSetMeshRoaming2g =
    R"({"CmdType":"SetMeshRoaming","infos":{"optimal_path_rcpi_threshold2g":%d},"SequenceId":"88888888"})";
constexpr const char* kSetMeshRoaming5g =
    R"({"CmdType":"SetMeshRoaming","infos":{"optimal_path_rcpi_threshold":%d},"SequenceId":"88888888"})";

// The record's texts are cut to their field and always terminated.
template <size_t N>
void take_text(char (&field)[N], GVariant* value) {
  g_strlcpy(field, g_variant_get_string(value, nullptr), N);
}

// One entry of the service's dictionary into the record; unknown names, and values
// of a type other than the property's, are skipped.
void take_property(ZoVelEasymeshConfig* config, const char* name, GVariant* value) {
  if (g_variant_is_of_type(value, G_VARIANT_TYPE_BOOLEAN)) {
    uint32_t on = g_variant_get_boolean(value) ? 1 : 0;
    if (strcmp(name, "Enable") == 0) config->enable = on;
    if (strcmp(name, "enable2G") == 0) config->enable_2g = on;
    if (strcmp(name, "enable5G") == 0) config->enable_5g = on;
    return;
  }
  if (!g_variant_is_of_type(value, G_VARIANT_TYPE_STRING)) return;
  if (strcmp(name, "ssid2G") == 0) take_text(config->ssid_2g, value);
  if (strcmp(name, "ssid5G") == 0) take_text(config->ssid_5g, value);
  if (strcmp(name, "key2G") == 0) take_text(config->key_2g, value);
  if (strcmp(name, "key5G") == 0) take_text(config->key_5g, value);
  if (strcmp(name, "authMode2G") == 0) take_text(config->auth_2g, value);
  if (strcmp(name, "authMode5G") == 0) take_text(config->auth_5g, value);
}

int32_t fill_easymesh_config(ZoVelEasymeshConfig* config) {
  if (config == nullptr) return -1;
  ScopedVariant all = read_all_properties(kMesh);
  if (!all) return -1;
  g_strlcpy(config->path, kMeshPath, sizeof config->path);
  if (g_variant_n_children(all.get()) == 0) return -1;
  GVariantIter iter;
  g_variant_iter_init(&iter, all.get());
  const char* name = nullptr;
  GVariant* raw = nullptr;
  while (g_variant_iter_next(&iter, "{&sv}", &name, &raw)) {
    ScopedVariant value(raw);
    take_property(config, name, raw);
  }
  return 0;
}

// 0 means "leave this band's threshold alone" and converts to no value (0). Wraps
// as the gateway's 32-bit arithmetic does for figures no page sends.
int32_t rssi_to_rcpi(int32_t rssi) {
  if (rssi == 0) return 0;
  return static_cast<int32_t>((static_cast<uint32_t>(rssi) + 110u) * 2u);
}

// Sends the thresholds that are not 0; the reply is only logged.
void send_roaming_thresholds(int32_t rcpi_2g, int32_t rcpi_5g) {
  if (rcpi_2g == 0 && rcpi_5g == 0) return;
  char command[kRoamingCommandRoom] = {};
  if (rcpi_2g != 0 && rcpi_5g != 0) {
    format_command(command, sizeof command, kSetMeshRoamingBoth, rcpi_2g, rcpi_5g);
  } else if (rcpi_2g != 0) {
    format_command(command, sizeof command, kSetMeshRoaming2g, rcpi_2g);
  } else {
    format_command(command, sizeof command, kSetMeshRoaming5g, rcpi_5g);
  }
  ZoVelLog(kLogNotice, "Set SetMeshRoaming: %s", command);
  ScopedText reply(ZoVelPostMsg(kInterconnectApp, command));
  if (!reply) return;
  ZoVelLog(kLogNotice, "Set SetMeshRoaming: %s", reply.get());
}

// The page's fields of one band, read straight into the working record. False when
// a text is not clean or the key does not fit whole.
struct BandFields {
  char enable[16];
  char rssi[16];
};

bool read_band(lua_State* L, const char* const names[5], char (&ssid)[64], char (&auth)[16], char (&key)[80],
               BandFields* band) {
  bool clean = read_field(L, names[0], band->enable);
  clean = read_field(L, names[1], ssid) && clean;
  clean = read_field(L, names[2], auth) && clean;
  clean = read_secret(L, names[3], key) == SecretText::kFits && clean;
  return read_field(L, names[4], band->rssi) && clean;
}

constexpr const char* kFields2g[5] = {"mesh_2G_enbl", "mesh_2G_ssid", "mesh_2G_auth", "mesh_2G_passwd",
                                      "mesh_2G_rssi"};
constexpr const char* kFields5g[5] = {"mesh_5G_enbl", "mesh_5G_ssid", "mesh_5G_auth", "mesh_5G_passwd",
                                      "mesh_5G_rssi"};

}  // namespace

// Mesh off: only "Enable" is written. Mesh on: every field is read first, then the
// settings go in one ordered write and the thresholds to the plugin. The result is
// the settings write's; the roaming exchange shows only in the log.
int32_t set_easymesh_config(lua_State* L) {
  ZoVelEasymeshConfig config = {};
  char mesh_enable[16];
  if (!read_field(L, "easymeshEnbl", mesh_enable)) return kTextRefused;
  if (decimal_value(mesh_enable) != 1) return write_property(kMesh, "Enable", g_variant_new_boolean(FALSE));

  config.enable = 1;
  BandFields band_2g;
  BandFields band_5g;
  bool clean = read_band(L, kFields2g, config.ssid_2g, config.auth_2g, config.key_2g, &band_2g);
  clean = read_band(L, kFields5g, config.ssid_5g, config.auth_5g, config.key_5g, &band_5g) && clean;
  if (!clean) return kTextRefused;
  config.enable_2g = decimal_value(band_2g.enable) == 1 ? 1 : 0;
  config.enable_5g = decimal_value(band_5g.enable) == 1 ? 1 : 0;
  int32_t rcpi_2g = rssi_to_rcpi(decimal_value(band_2g.rssi));
  int32_t rcpi_5g = rssi_to_rcpi(decimal_value(band_5g.rssi));

  PropertyWrite write;
  write.add_bool("Enable", true);
  write.add_bool("enable2G", config.enable_2g != 0);
  write.add_bool("enable5G", config.enable_5g != 0);
  if (config.enable_2g != 0) {
    write.add_text("ssid2G", config.ssid_2g);
    write.add_text("authMode2G", config.auth_2g);
    write.add_text("key2G", config.key_2g);
  }
  if (config.enable_5g != 0) {
    write.add_text("ssid5G", config.ssid_5g);
    write.add_text("authMode5G", config.auth_5g);
    write.add_text("key5G", config.key_5g);
  }
  int32_t code = write.send(kMesh);
  send_roaming_thresholds(rcpi_2g, rcpi_5g);
  return code;
}

void get_has_mesh(lua_State* L, const GetArgs&) {
  int32_t wifi = 0;
  ZoVelSupportWiFi(&wifi);
  bool mesh = wifi == 0;
  if (!mesh) {
    // Any readable "MAPAgent" counts, whatever its value.
    GVariant* raw = nullptr;
    int32_t rc =
        ZoVelDBusGetProperty(kWiFiInfo.service, kWiFiInfo.path, kWiFiInfo.interface, "MAPAgent", &raw);
    ScopedVariant agent(raw);
    mesh = rc == 0 && raw != nullptr;
  }
  if (!mesh) {
    ZoVelLog(kLogNotice, "Get MAPAgent failed.\n");
    bool on = false;
    mesh = read_bool_property(kMesh, "Enable", &on) && on;
  }
  lua_pushnumber(L, mesh ? 1 : 0);
}

}  // namespace velconfig

extern "C" __attribute__((visibility("default"))) int32_t ZoVelGetEasymeshConfigInfo(
    ZoVelEasymeshConfig* config) {
  return velconfig::guarded_c_call(-1, [config] { return velconfig::fill_easymesh_config(config); });
}
