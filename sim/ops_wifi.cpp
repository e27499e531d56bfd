// Simulated Wi-Fi: the SSID instances (WLAN device records), the Wi-Fi information
// record and the Wi-Fi timer. A record written back is stored whole: the named
// fields under the model's names, and the bytes the model does not name under
// "reserved", so that the next read gives back every byte the writer did not change.
#include <stdio.h>
#include <string.h>

#include "platform/zovel.h"
#include "sim/dbus.h"
#include "sim/sim.h"

using velsim::int_of;
using velsim::object_at;
using velsim::operation;
using velsim::put_text;
using velsim::text_of;

namespace velsim {
namespace {

constexpr const char* kWlanPathPrefix = "/com/zom/igd1/Config/WLAN/Devices/";

const PropertyTable kWiFiProperties{
    {"com.zom.igd1", "/com/zom/igd1/Info/WiFi", "com.zom.igd1.WiFiInfo", "SupportedBeaconType",
     [](const char*) { return g_variant_new_string(text_of(object_at("wifi"), "supported_beacon_types")); },
     nullptr},
};

template <size_t N>
json_t* text_json(const char (&field)[N]) {
  return shown_text(field, N);
}

// Adds a written record's reserved ranges that are not all zero to its journal entry.
void add_reserved(json_t* entry, const void* record, std::initializer_list<ByteRange> ranges) {
  json_t* reserved = reserved_of(record, ranges);
  if (json_object_size(reserved) > 0) {
    json_object_set_new(entry, "reserved", reserved);
  } else {
    json_decref(reserved);
  }
}

// ---- WLAN device records ----

const std::initializer_list<ByteRange> kWlanReserved{
    VELSIM_RANGE(ZoVelWlanDevice, reserved0), VELSIM_RANGE(ZoVelWlanDevice, reserved1),
    VELSIM_RANGE(ZoVelWlanDevice, reserved2), VELSIM_RANGE(ZoVelWlanDevice, reserved3)};

void wlan_path(const json_t* entry, char (&out)[256]) {
  snprintf(out, sizeof out, "%s%lld", kWlanPathPrefix,
           static_cast<long long>(int_of(const_cast<json_t*>(entry), "id")));
}

void fill_wlan(json_t* wlan, ZoVelWlanDevice* r) {
  put_reserved(wlan, r, kWlanReserved);
  wlan_path(wlan, r->path);
  put_text(r->ssid, text_of(wlan, "ssid"));
  r->enable = static_cast<uint32_t>(int_of(wlan, "enable"));
  put_text(r->beacon_type, text_of(wlan, "beacon_type"));
  put_text(r->standard, text_of(wlan, "standard"));
  put_text(r->wep_level, text_of(wlan, "wep_level"));
  put_text(r->basic_auth, text_of(wlan, "basic_auth"));
  put_text(r->wpa_encryption, text_of(wlan, "wpa_encryption"));
  r->tx_power = static_cast<uint32_t>(int_of(wlan, "tx_power"));
  r->high_power_class = static_cast<uint32_t>(int_of(wlan, "high_power_class"));
  put_text(r->passphrase, text_of(wlan, "passphrase"));
  put_text(r->band_label, text_of(wlan, "band_label"));
}

// The record as the journal shows it: every named field, and the reserved ranges
// that are not all zero.
json_t* wlan_fields(const ZoVelObjPath& path, const ZoVelWlanDevice* r) {
  char path_text[257] = {};
  memcpy(path_text, path.path, sizeof path.path);
  json_t* j = json_object();
  json_object_set_new(j, "path", shown_text(path_text));
  if (r == nullptr) return j;
  json_object_set_new(j, "ssid", text_json(r->ssid));
  json_object_set_new(j, "enable", json_integer(r->enable));
  json_object_set_new(j, "beacon_type", text_json(r->beacon_type));
  json_object_set_new(j, "standard", text_json(r->standard));
  json_object_set_new(j, "wep_level", text_json(r->wep_level));
  json_object_set_new(j, "basic_auth", text_json(r->basic_auth));
  json_object_set_new(j, "wpa_encryption", text_json(r->wpa_encryption));
  json_object_set_new(j, "tx_power", json_integer(r->tx_power));
  json_object_set_new(j, "high_power_class", json_integer(r->high_power_class));
  json_object_set_new(j, "passphrase", text_json(r->passphrase));
  json_object_set_new(j, "band_label", text_json(r->band_label));
  add_reserved(j, r, kWlanReserved);
  return j;
}

json_t* wlan_at(const ZoVelObjPath& path) {
  for (json_t* entry : objects_in("wlan")) {
    char own[256];
    wlan_path(entry, own);
    if (strncmp(own, path.path, sizeof own) == 0) return entry;
  }
  return nullptr;
}

template <size_t N>
void store_text(json_t* entry, const char* key, const char (&field)[N]) {
  char text[N + 1] = {};
  memcpy(text, field, N);
  json_object_set_new(entry, key, json_string(text));
}

// Wireless hosts associated with the SSID instance id lose their connection.
void disconnect_clients(json_int_t id) {
  // Their running figures stop here, so fold in what ran until now first.
  settle_time();
  for (json_t* host : objects_in("hosts")) {
    if (int_of(host, "wlan", -1) == id) json_object_set_new(host, "online", json_false());
  }
}

// The radio's own facts (label, standard, high-power class) are not taken from a
// write; everything else the record carries is stored. Switching the SSID off
// disconnects its clients.
int32_t update_wlan(const ZoVelObjPath& path, const ZoVelWlanDevice* r) {
  if (r == nullptr) return -1;
  json_t* entry = wlan_at(path);
  if (entry == nullptr) return kNoSuchObject;
  if (!storable(r->ssid) || !storable(r->beacon_type) || !storable(r->wep_level) ||
      !storable(r->basic_auth) || !storable(r->wpa_encryption) || !storable(r->passphrase)) {
    return kWrongType;
  }
  if (int_of(entry, "enable") != 0 && r->enable == 0) disconnect_clients(int_of(entry, "id"));
  store_text(entry, "ssid", r->ssid);
  json_object_set_new(entry, "enable", json_integer(r->enable));
  store_text(entry, "beacon_type", r->beacon_type);
  store_text(entry, "wep_level", r->wep_level);
  store_text(entry, "basic_auth", r->basic_auth);
  store_text(entry, "wpa_encryption", r->wpa_encryption);
  json_object_set_new(entry, "tx_power", json_integer(r->tx_power));
  store_text(entry, "passphrase", r->passphrase);
  store_reserved(entry, reserved_of(r, kWlanReserved), kWlanReserved);
  model_changed();
  return 0;
}

// ---- Wi-Fi timer ----

// The platform's own first 256 bytes.
const std::initializer_list<ByteRange> kTimerReserved{VELSIM_RANGE(ZoVelWiFiTimer, reserved0)};

json_t* timer_fields(const ZoVelWiFiTimer* t) {
  if (t == nullptr) return nullptr;
  json_t* j = json_object();
  json_object_set_new(j, "start_time", text_json(t->start_time));
  json_object_set_new(j, "end_time", text_json(t->end_time));
  json_object_set_new(j, "repeat_mode", text_json(t->repeat_mode));
  json_object_set_new(j, "enable", json_integer(t->enable));
  json_object_set_new(j, "ssid_mask", json_integer(t->ssid_mask));
  add_reserved(j, t, kTimerReserved);
  return j;
}

json_t* timer_model() {
  json_t* wifi = object_at("wifi");
  json_t* timer = json_object_get(wifi, "timer");
  if (!json_is_object(timer)) {
    timer = json_object();
    json_object_set_new(wifi, "timer", timer);
  }
  return timer;
}

}  // namespace
}  // namespace velsim

extern "C" int32_t ZoVelGetWLANDeviceObjs(ZoVelWlanDevice** devices, uint32_t* count) {
  return operation("ZoVelGetWLANDeviceObjs", nullptr, [&] {
    return velsim::list_records(velsim::objects_in("wlan"), devices, count, velsim::fill_wlan);
  });
}

extern "C" int32_t ZoVelSetWLANDevice(ZoVelObjPath path, ZoVelWlanDevice* device) {
  return operation("ZoVelSetWLANDevice", velsim::wlan_fields(path, device),
                   [&] { return velsim::update_wlan(path, device); });
}

extern "C" int32_t ZoVelGetWiFiInfo(ZoVelWiFiInfo* info) {
  return operation("ZoVelGetWiFiInfo", nullptr, [&] {
    if (info == nullptr) return -1;
    json_t* wifi = object_at("wifi");
    put_text(info->standards, text_of(wifi, "standards"));
    info->dual_band = velsim::flag_of(wifi, "dual_band") ? 1 : 0;
    // Two blocks of the library's own, which the caller releases with g_free.
    info->block1 = g_strdup(text_of(wifi, "standards"));
    info->block2 = g_strdup(text_of(wifi, "supported_beacon_types"));
    return 0;
  });
}

extern "C" int32_t ZoVelGetWiFiTimer(ZoVelWiFiTimer* timer) {
  return operation("ZoVelGetWiFiTimer", nullptr, [&] {
    if (timer == nullptr) return -1;
    json_t* t = velsim::timer_model();
    velsim::put_reserved(t, timer, velsim::kTimerReserved);
    put_text(timer->start_time, text_of(t, "start_time"));
    put_text(timer->end_time, text_of(t, "end_time"));
    put_text(timer->repeat_mode, text_of(t, "repeat_mode"));
    timer->enable = static_cast<int32_t>(int_of(t, "enable"));
    timer->ssid_mask = static_cast<uint32_t>(int_of(t, "ssid_mask"));
    return 0;
  });
}

extern "C" int32_t ZoVelSetWiFiTimer(ZoVelWiFiTimer* timer) {
  return operation("ZoVelSetWiFiTimer", velsim::timer_fields(timer), [&] {
    if (timer == nullptr) return -1;
    if (!velsim::storable(timer->start_time) || !velsim::storable(timer->end_time) ||
        !velsim::storable(timer->repeat_mode)) {
      return velsim::kWrongType;
    }
    json_t* t = velsim::timer_model();
    velsim::store_text(t, "start_time", timer->start_time);
    velsim::store_text(t, "end_time", timer->end_time);
    velsim::store_text(t, "repeat_mode", timer->repeat_mode);
    json_object_set_new(t, "enable", json_integer(timer->enable));
    json_object_set_new(t, "ssid_mask", json_integer(timer->ssid_mask));
    velsim::store_reserved(t, velsim::reserved_of(timer, velsim::kTimerReserved), velsim::kTimerReserved);
    velsim::model_changed();
    return 0;
  });
}
