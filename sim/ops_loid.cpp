// Simulated LOID registration: storing the LOID, starting registration, and the
// status check, which walks through the model's registration steps as the clock
// moves; and the "SSID" and "PWD" properties of the SSID instances.
#include <stdio.h>
#include <string.h>

#include "platform/zovel.h"
#include "sim/dbus.h"
#include "sim/sim.h"

using velsim::int_of;
using velsim::object_at;
using velsim::operation;

namespace velsim {
namespace {

constexpr const char* kWlanPathPrefix = "/com/zom/igd1/Config/WLAN/Devices/";

// The registration step reached `seconds` after registration started: the last one
// whose `after` has passed. Null when there are no steps or none has been reached.
json_t* step_reached(json_t* loid, int64_t seconds) {
  json_t* steps = json_object_get(loid, "registration");
  json_t* reached = nullptr;
  size_t i;
  json_t* step;
  json_array_foreach(steps, i, step) {
    if (json_is_object(step) && int_of(step, "after") <= seconds) reached = step;
  }
  return reached;
}

// The status and message text the check reports now.
void current_status(json_t* loid, int32_t* status, const char** text) {
  *status = static_cast<int32_t>(int_of(loid, "status"));
  json_t* services = json_object_get(loid, "services");
  *text = json_is_null(services) ? nullptr : text_of(loid, "services");
  json_t* started = json_object_get(loid, "registered_at");
  if (!json_is_integer(started)) return;
  json_t* step = step_reached(loid, now() - json_integer_value(started));
  if (step == nullptr) return;
  *status = static_cast<int32_t>(int_of(step, "status"));
  json_t* msg = json_object_get(step, "msg");
  if (json_is_string(msg)) *text = json_string_value(msg);
}

json_t* wlan_at_path(const char* path) {
  for (json_t* wlan : objects_in("wlan")) {
    char own[64];
    snprintf(own, sizeof own, "%s%lld", kWlanPathPrefix, static_cast<long long>(int_of(wlan, "id")));
    if (path != nullptr && strcmp(own, path) == 0) return wlan;
  }
  return nullptr;
}

GVariant* get_wlan_text(const char* path, const char* key) {
  json_t* wlan = wlan_at_path(path);
  if (wlan == nullptr) return nullptr;
  const char* text = text_of(wlan, key);
  return g_variant_new_string(g_utf8_validate(text, -1, nullptr) ? text : "");
}

int32_t set_wlan_text(const char* path, GVariant* value, const char* key) {
  json_t* wlan = wlan_at_path(path);
  if (wlan == nullptr) return kNoSuchObject;
  if (!g_variant_is_of_type(value, G_VARIANT_TYPE_STRING)) return kWrongType;
  json_object_set_new(wlan, key, json_string(g_variant_get_string(value, nullptr)));
  return 0;
}

const PropertyTable kWlanProperties{
    {"com.zom.igd1", kWlanPathPrefix, "com.zom.igd1.WLANConfiguration", "SSID",
     [](const char* path) { return get_wlan_text(path, "ssid"); },
     [](const char* path, GVariant* v) { return set_wlan_text(path, v, "ssid"); }},
    {"com.zom.igd1", kWlanPathPrefix, "com.zom.igd1.WLANConfiguration", "PWD",
     [](const char* path) { return get_wlan_text(path, "passphrase"); },
     [](const char* path, GVariant* v) { return set_wlan_text(path, v, "passphrase"); }},
};

}  // namespace
}  // namespace velsim

extern "C" int32_t ZoVelSysCmdSetLOID(const char* loid, const char* password, void*, void*, void*) {
  json_t* args = json_pack("{s:o,s:o}", "loid", velsim::shown_text(loid != nullptr ? loid : ""), "password",
                           velsim::shown_text(password != nullptr ? password : ""));
  return operation("ZoVelSysCmdSetLOID", args, [&]() -> int32_t {
    if (loid == nullptr || password == nullptr) return -1;
    if (!velsim::storable_text(loid) || !velsim::storable_text(password)) return velsim::kWrongType;
    json_t* l = object_at("loid");
    json_object_set_new(l, "loid", json_string(loid));
    json_object_set_new(l, "password", json_string(password));
    velsim::model_changed();
    return 0;
  });
}

extern "C" int32_t ZoVelSysCmdRegisterLOID(int32_t* status, void*) {
  return operation("ZoVelSysCmdRegisterLOID", nullptr, [&]() -> int32_t {
    if (status == nullptr) return -1;
    json_t* l = object_at("loid");
    *status = static_cast<int32_t>(int_of(l, "register_status"));
    // An accepted request starts the registration steps from now.
    if (*status == 0) {
      json_object_set_new(l, "registered_at", json_integer(velsim::now()));
      velsim::model_changed();
    }
    return 0;
  });
}

extern "C" int32_t ZoVelSysCmdCheckLOID(int32_t* status, char** text) {
  json_t* args = json_pack("{s:b}", "with_text", text != nullptr);
  return operation("ZoVelSysCmdCheckLOID", args, [&] {
    if (status == nullptr) return -1;
    const char* message = nullptr;
    velsim::current_status(object_at("loid"), status, &message);
    if (text != nullptr) {
      // No message answers no text at all. Like the library, an empty answer is its
      // own constant, not an allocation: callers release only non-empty texts.
      static char empty[1] = "";
      if (message == nullptr) {
        *text = nullptr;
      } else {
        *text = message[0] != '\0' ? g_strdup(message) : empty;
        if (*text != empty) velsim::hostile_text(text);
      }
    }
    return 0;
  });
}
