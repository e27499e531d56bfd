// "gwInfo", "gwIPs" and "devType": the gateway's identity, addresses and
// access-network marks, read from platform records and D-Bus properties.
#include <string.h>

#include "common/result.h"
#include "platform/dbus.h"
#include "platform/text.h"
#include "platform/zovel.h"
#include "status/status.h"

namespace velconfig {
namespace {

constexpr const char* kDevicePath = "/com/zom/igd1/Info/Device";
constexpr size_t kTextRoom = 64;     // at most 63 characters kept
constexpr size_t kAddressRoom = 63;  // at most 62 characters kept

// The access-network marks of the "com.zom.igd1.NetworkAccessSign" interface.
struct AccessSign {
  uint8_t mark_type;
  char device_model[kTextRoom];
  char nasn[kTextRoom];
};

void read_access_sign(AccessSign* sign) {
  memset(sign, 0, sizeof *sign);
  ScopedVariant all = read_all_properties({kIgdService, kDevicePath, "com.zom.igd1.NetworkAccessSign"});
  if (!all) return;
  GVariantIter iter;
  g_variant_iter_init(&iter, all.get());
  const char* name = nullptr;
  GVariant* item = nullptr;
  while (g_variant_iter_next(&iter, "{&sv}", &name, &item)) {
    if (strcmp(name, "MarkType") == 0 && g_variant_is_of_type(item, G_VARIANT_TYPE_BYTE)) {
      sign->mark_type = g_variant_get_byte(item);
    } else if (strcmp(name, "DeviceModel") == 0 && g_variant_is_of_type(item, G_VARIANT_TYPE_STRING)) {
      copy_text(sign->device_model, g_variant_get_string(item, nullptr));
    } else if (strcmp(name, "NASN") == 0 && g_variant_is_of_type(item, G_VARIANT_TYPE_STRING)) {
      copy_text(sign->nasn, g_variant_get_string(item, nullptr));
    }
    g_variant_unref(item);
  }
}

// "DualBand", false when it cannot be read.
bool read_dual_band() {
  bool dual_band = false;
  read_bool_property({kIgdService, "/com/zom/igd1/Info/WiFi", "com.zom.igd1.WiFiInfo"}, "DualBand",
                     &dual_band);
  return dual_band;
}

// The first SSIDs of the two radios ("2.4G-1", and "5G-1" on a dual-band gateway),
// when enabled; a later record overrides an earlier one.
void wifi_names(lua_State* L) {
  bool dual_band = read_dual_band();

  char ssid_2g[kTextRoom] = {};
  char ssid_5g[kTextRoom] = {};
  {
    PlatformList<ZoVelWlanDevice, uint32_t> wlans;
    wlans.fill(ZoVelGetWLANDeviceObjs);
    for (const ZoVelWlanDevice& wlan : wlans) {
      if (wlan.enable == 0) continue;
      std::string_view label = field_text(wlan.band_label);
      if (label == "2.4G-1") {
        copy_text(ssid_2g, field_text(wlan.ssid));
      } else if (dual_band && label == "5G-1") {
        copy_text(ssid_5g, field_text(wlan.ssid));
      }
    }
  }
  set_text(L, "ssid2g", ssid_2g);
  set_text(L, "ssid5g", ssid_5g);
  set_bool(L, "wifiOnOff", ssid_2g[0] != '\0' || ssid_5g[0] != '\0');
}

// The address without its "/prefix" length, at most 62 characters.
std::string_view without_prefix(std::string_view address) {
  address = address.substr(0, address.find('/'));
  return address.substr(0, kAddressRoom - 1);
}

}  // namespace

void get_gw_info(lua_State* L, bool all) {
  char dev_type[kTextRoom] = {};
  int32_t has_wifi = 1;  // kept when the platform leaves the flag alone
  lua_newtable(L);
  ZoVelSupportWiFi(&has_wifi);
  if (all) {
    if (has_wifi != 0) wifi_names(L);
    ZoVelPPPoEConfig pppoe = {};
    ZoVelGetPPPoEConfig(&pppoe);
    set_text(L, "wanAcnt", field_text(pppoe.account));
  }

  {
    ScopedVariant type = read_property({kIgdService, kDevicePath, "com.zom.igd1.DeviceInfo"}, "DevType2",
                                       G_VARIANT_TYPE_STRING);
    if (type) copy_text(dev_type, g_variant_get_string(type.get(), nullptr));
  }
  set_text(L, "DevType", dev_type);

  ZoVelDeviceInfo info = {};
  ZoVelGetDeviceInfo(&info);
  set_text(L, "ProductCls", field_text(info.product_class));
  set_text(L, "ProductSN", field_text(info.serial));
  set_text(L, "MAC", field_text(info.mac));
  set_text(L, "SWVer", field_text(info.sw_version));
  set_text(L, "Vendor", field_text(info.vendor));

  ZoVelNetworkInfo net = {};
  ZoVelGetNetworkInfo(&net);
  set_text(L, "LANIP", field_text(net.lan_ipv4));
  set_text(L, "LANIPv6", field_text(net.lan_ipv6));
  std::string_view wan_v4 = field_text(net.wan_ipv4);
  std::string_view wan_v6 = field_text(net.wan_ipv6);
  bool v4_up = equals_ignoring_case(field_text(net.ipv4_status), "connected") && !wan_v4.empty();
  bool v6_up = equals_ignoring_case(field_text(net.ipv6_status), "connected") && !wan_v6.empty();
  set_text(L, "WANIP", v4_up ? wan_v4 : "0.0.0.0");
  set_text(L, "WANIPv6", v6_up ? wan_v6 : "::");

  AccessSign sign;
  read_access_sign(&sign);
  set_number(L, "MarkType", sign.mark_type);
  set_text(L, "DeviceModel", sign.device_model);
  set_text(L, "NASN", sign.nasn);
}

void get_gw_ips(lua_State* L, const GetArgs&) {
  ZoVelNetworkInfo net = {};
  ZoVelGetNetworkInfo(&net);
  lua_newtable(L);
  set_text(L, "LANIP", field_text(net.lan_ipv4));
  set_text(L, "WANIP", field_text(net.wan_ipv4));
  std::string_view lan_v6 = field_text(net.lan_ipv6);
  set_text(L, "LAN6IP", lan_v6.empty() ? "fe80::1" : without_prefix(lan_v6));
  set_text(L, "WAN6IP", without_prefix(field_text(net.wan_ipv6)));
}

void get_dev_type(lua_State* L, const GetArgs&) {
  ZoVelDeviceInfo info = {};
  ZoVelGetDeviceInfo(&info);
  lua_pushnumber(L, decimal_value(field_text(info.dev_type)));
}

}  // namespace velconfig
