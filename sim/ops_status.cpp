// Simulated PPPoE configuration, USB device list and the status properties
// ("PPPOEDuration", "DualBand", "DevType2" and the
// "NetworkAccessSign" marks).
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "platform/zovel.h"
#include "sim/dbus.h"
#include "sim/sim.h"

using velsim::array_at;
using velsim::int_of;
using velsim::object_at;
using velsim::operation;
using velsim::put_text;
using velsim::text_of;

namespace velsim {
namespace {

constexpr const char* kUsbPathPrefix = "/com/zom/igd1/Info/USBDevice/Inst/";

GVariant* access_sign(const char* key) {
  json_t* sign = json_object_get(object_at("device"), "access_sign");
  if (!json_is_object(sign)) return nullptr;
  if (strcmp(key, "MarkType") == 0) return g_variant_new_byte(static_cast<uint8_t>(int_of(sign, key)));
  return g_variant_new_string(text_of(sign, key));
}

const PropertyTable kStatusProperties{
    {"com.zom.igd1", "/com/zom/igd1/Info/Network", "com.zom.igd1.NetworkInfo", "PPPOEDuration",
     [](const char*) { return g_variant_new_uint32(wan_up_time()); }, nullptr},
    {"com.zom.igd1", "/com/zom/igd1/Info/WiFi", "com.zom.igd1.WiFiInfo", "DualBand",
     [](const char*) { return g_variant_new_boolean(flag_of(object_at("wifi"), "dual_band")); }, nullptr},
    {"com.zom.igd1", "/com/zom/igd1/Info/Device", "com.zom.igd1.DeviceInfo", "DevType2",
     [](const char*) { return g_variant_new_string(text_of(object_at("device"), "dev_type2")); }, nullptr},
    {"com.zom.igd1", "/com/zom/igd1/Info/Device", "com.zom.igd1.NetworkAccessSign", "MarkType",
     [](const char*) { return access_sign("MarkType"); }, nullptr},
    {"com.zom.igd1", "/com/zom/igd1/Info/Device", "com.zom.igd1.NetworkAccessSign", "DeviceModel",
     [](const char*) { return access_sign("DeviceModel"); }, nullptr},
    {"com.zom.igd1", "/com/zom/igd1/Info/Device", "com.zom.igd1.NetworkAccessSign", "NASN",
     [](const char*) { return access_sign("NASN"); }, nullptr},
    // Not read by the module: a reading of all properties meets it after the ones it reads.
    {"com.zom.igd1", "/com/zom/igd1/Info/Device", "com.zom.igd1.NetworkAccessSign", "AccessMode",
     [](const char*) { return access_sign("AccessMode"); }, nullptr},
};

void fill_usb(json_t* usb, ZoVelUsbDevice* r) {
  put_text(r->identity.id, usb_identity(usb).c_str());
  r->device_class = static_cast<uint16_t>(int_of(usb, "class"));
  put_text(r->name, text_of(usb, "name"));
  put_text(r->mount_path, text_of(usb, "mount_path"));
  r->total_size = static_cast<uint64_t>(int_of(usb, "total_size"));
  r->used_size = static_cast<uint64_t>(int_of(usb, "used_size"));
  put_text(r->label, text_of(usb, "label"));
}

}  // namespace

// An "id" text is used as it is, so a model can carry instance numbers such as "02".
std::string usb_identity(json_t* usb) {
  json_t* id = json_object_get(usb, "id");
  if (json_is_string(id)) return kUsbPathPrefix + std::string(json_string_value(id));
  return kUsbPathPrefix + std::to_string(static_cast<long long>(int_of(usb, "id")));
}

namespace {

template <class Record, class Count>
int32_t list_of(const char* key, Record** out, Count* count, void (*fill)(json_t*, Record*)) {
  return list_records(objects_in(key), out, count, fill);
}

}  // namespace
}  // namespace velsim

extern "C" int32_t ZoVelGetPPPoEConfig(ZoVelPPPoEConfig* config) {
  return operation("ZoVelGetPPPoEConfig", nullptr, [&] {
    if (config == nullptr) return -1;
    put_text(config->account, text_of(object_at("wan"), "pppoe_account"));
    velsim::hostile_record(config);
    return 0;
  });
}

extern "C" int32_t ZoVel_GetUSBDeviceObjs(ZoVelUsbDevice** devices, int32_t* count) {
  return operation("ZoVel_GetUSBDeviceObjs", nullptr,
                   [&] { return velsim::list_of("usb", devices, count, velsim::fill_usb); });
}
