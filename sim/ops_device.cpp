// Simulated logging, capabilities, device and network information, reboot and the
// restore requests.
#include <stdarg.h>
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

int64_t system_uptime() { return plus_seconds(int_of(object_at("device"), "uptime"), elapsed()); }

GVariant* device_text(const char* key) { return g_variant_new_string(text_of(object_at("device"), key)); }

const PropertyTable kDeviceProperties{
    {"com.zom.igd1", "/com/zom/igd1/Info/Device", "com.zom.igd1.DeviceInfo", "Capability",
     [](const char*) { return device_text("capability"); }, nullptr},
    {"com.zom.igd1", "/com/zom/igd1/Info/Device", "com.zom.igd1.DeviceInfo", "ProductClass",
     [](const char*) { return device_text("product_class"); }, nullptr},
    {"com.zom.igd1", "/com/zom/igd1/Info/Device", "com.zom.igd1.DeviceInfo", "SysDuration",
     [](const char*) { return g_variant_new_uint32(static_cast<uint32_t>(system_uptime())); }, nullptr},
    {"com.zom.igd1", "/com/zom/igd1/Info/Network", "com.zom.igd1.NetworkInfo", "LANIPAddr",
     [](const char*) { return g_variant_new_string(text_of(object_at("dhcp"), "ip")); }, nullptr},
};

}  // namespace
}  // namespace velsim

extern "C" int32_t ZoVelLogOpen(int32_t facility, const char* tag) {
  return operation("ZoVelLogOpen", json_pack("{s:i,s:s?}", "facility", facility, "tag", tag),
                   [] { return 0; });
}

extern "C" int32_t ZoVelLogClose(void) {
  return operation("ZoVelLogClose", nullptr, [] { return 0; });
}

extern "C" void ZoVelLog(int32_t level, const char* format, ...) {
  if (format == nullptr) return;
  va_list ap;
  va_start(ap, format);
  gchar* text = g_strdup_vprintf(format, ap);
  va_end(ap);
  try {
    std::lock_guard<std::recursive_mutex> hold(velsim::platform_mutex());
    velsim::add_log(level, text);
  } catch (...) {
  }
  g_free(text);
}

extern "C" int32_t ZoVelSupportWiFi(int32_t* flag) {
  return operation("ZoVelSupportWiFi", nullptr, [&] {
    if (flag != nullptr) *flag = velsim::flag_of(object_at("device"), "has_wifi") ? 1 : 0;
    return 0;
  });
}

extern "C" int32_t ZoVelSupportUSB(int32_t* flag) {
  return operation("ZoVelSupportUSB", nullptr, [&] {
    if (flag != nullptr) *flag = velsim::flag_of(object_at("device"), "has_usb") ? 1 : 0;
    return 0;
  });
}

extern "C" int32_t ZoVelGetDeviceInfo(ZoVelDeviceInfo* info) {
  return operation("ZoVelGetDeviceInfo", nullptr, [&] {
    if (info == nullptr) return -1;
    json_t* d = object_at("device");
    put_text(info->vendor, text_of(d, "vendor"));
    put_text(info->mac, text_of(d, "mac"));
    put_text(info->sw_version, text_of(d, "sw_version"));
    put_text(info->product_class, text_of(d, "product_class"));
    put_text(info->serial, text_of(d, "serial"));
    put_text(info->dev_type, text_of(d, "dev_type"));
    info->cpu_usage = static_cast<uint8_t>(int_of(d, "cpu_usage"));
    info->sys_time = static_cast<uint32_t>(velsim::system_uptime());
    velsim::hostile_record(info);
    return 0;
  });
}

extern "C" int32_t ZoVelGetNetworkInfo(ZoVelNetworkInfo* info) {
  return operation("ZoVelGetNetworkInfo", nullptr, [&] {
    if (info == nullptr) return -1;
    json_t* wan = object_at("wan");
    const char* v4 = text_of(wan, "ipv4_status");
    const char* v6 = text_of(wan, "ipv6_status");
    info->wan_up_time = velsim::wan_up_time();
    put_text(info->ipv4_status, v4);
    put_text(info->ipv6_status, v6);
    put_text(info->lan_ipv4, text_of(object_at("dhcp"), "ip"));
    put_text(info->lan_ipv6, text_of(object_at("lan"), "ipv6"));
    put_text(info->wan_ipv4, text_of(wan, "ipv4"));
    put_text(info->wan_ipv6, text_of(wan, "ipv6"));
    velsim::hostile_record(info);
    return 0;
  });
}

namespace velsim {

void reboot_gateway() {
  // A rebooted gateway starts counting its running time and WAN time again.
  settle_time();
  json_t* d = object_at("device");
  json_object_set_new(d, "uptime", json_integer(0));
  json_object_set_new(d, "boot_count", json_integer(saturating_add(int_of(d, "boot_count"), 1)));
  json_object_set_new(object_at("wan"), "uptime", json_integer(0));
  model_changed();
}

}  // namespace velsim

extern "C" int32_t ZoVelSysCmdReboot(void*, void*) {
  return operation("ZoVelSysCmdReboot", nullptr, [] {
    velsim::reboot_gateway();
    return 0;
  });
}

extern "C" int32_t ZoVelSysCmdLocalRecovery(int32_t* status, void*) {
  return operation("ZoVelSysCmdLocalRecovery", nullptr, [&] {
    if (status != nullptr)
      *status = static_cast<int32_t>(int_of(object_at("system"), "local_recovery_status"));
    return 0;
  });
}

extern "C" int32_t ZoVelDBusCallMethod(const char* service, const char* path, const char* interface,
                                       const char* method, GVariant*, GVariant**, int32_t timeout) {
  json_t* args = json_pack("{s:s?,s:s?,s:s?,s:s?,s:i}", "service", service, "path", path, "interface",
                           interface, "method", method, "timeout", timeout);
  return operation("ZoVelDBusCallMethod", args, [&]() -> int32_t {
    bool known = g_strcmp0(service, "com.zom.saf1") == 0 && g_strcmp0(path, "/com/zom/saf1") == 0 &&
                 g_strcmp0(interface, "com.zom.saf1.framework") == 0 && g_strcmp0(method, "Restore") == 0;
    return known ? 0 : velsim::kNoSuchProperty;
  });
}
