// "allInfo": the home page's summary of wired and wireless devices with speeds, the
// provisioned services, the USB disks and the WAN state.
#include <glib.h>
#include <stdio.h>
#include <string.h>

#include "common/result.h"
#include "platform/holders.h"
#include "platform/service_flags.h"
#include "platform/text.h"
#include "platform/zovel.h"
#include "status/rate_file.h"
#include "status/status.h"

namespace velconfig {
namespace {

bool is_one_of(std::string_view type, std::initializer_list<const char*> names) {
  for (const char* name : names) {
    if (equals_ignoring_case(type, name)) return true;
  }
  return false;
}

struct Totals {
  int count = 0;
  uint32_t up = 0;  // signed 32-bit sums, wrapping as the page's figures do
  uint32_t down = 0;
};

// Device rows; speeds is left for the caller to finish once the whole table is built.
void device_rows(lua_State* L, HostSpeedComputation* speeds) {
  Totals wired, wireless;
  PlatformList<ZoVelLanHost> hosts;
  int32_t rc = hosts.fill(ZoVelGetOnlineDeviceList, nullptr, nullptr);
  if (rc == 0 && hosts.reported() > 0) {
    speeds->start();
    for (const ZoVelLanHost& host : hosts) {
      if (host.internet_access == 0 || host.online == 0) continue;
      Totals* group;
      if (host.connection_type == 0 || host.connection_type == 2) {
        group = &wired;
        begin_row(L, "pc%d", ++wired.count);
      } else if (host.connection_type == 1) {
        group = &wireless;
        begin_row(L, "wifi%d", ++wireless.count);
      } else {
        continue;
      }
      std::string_view type = field_text(host.dev_type);
      set_text(L, "type", is_one_of(type, {"pc", "phone", "mobile", "itv"}) ? type : "pc");
      set_text(L, "brand", field_text(host.brand));
      set_text(L, "model", field_text(host.model));
      set_text(L, "devName", field_text(host.name));
      set_text(L, "ip", field_text(host.ipv4));
      HostSpeed speed = speeds->speed_of(host);
      group->up += static_cast<uint32_t>(speed.up);
      group->down += static_cast<uint32_t>(speed.down);
      set_number(L, "upSpeed", speed.up);
      set_number(L, "downSpeed", speed.down);
      set_number(L, "onlineTime", host.online_time);
      end_row(L);
    }
  }
  set_number(L, "wcount", wired.count);
  if (wired.count > 0) {
    set_number(L, "tWUp", static_cast<int32_t>(wired.up));
    set_number(L, "tWDown", static_cast<int32_t>(wired.down));
  }
  set_number(L, "wlcount", wireless.count);
  if (wireless.count > 0) {
    set_number(L, "tWlUp", static_cast<int32_t>(wireless.up));
    set_number(L, "tWlDown", static_cast<int32_t>(wireless.down));
  }
}

void storage_rows(lua_State* L) {
  int rows = 0;
  int unlabelled = 0;
  PlatformList<ZoVelUsbDevice> devices;
  devices.fill(ZoVel_GetUSBDeviceObjs);
  for (const ZoVelUsbDevice& usb : devices) {
    if (usb.device_class != kMassStorageClass) continue;
    char name[sizeof usb.label + 1] = {};  // the whole label, or "USB_disc" and a number
    std::string_view label = field_text(usb.label);
    if (!label.empty()) {
      copy_text(name, label);
    } else {
      snprintf(name, sizeof name, "USB_disc%d", ++unlabelled);
    }
    begin_row(L, "storage%d", ++rows);
    set_text(L, "name", name);
    set_number(L, "maxSize", static_cast<lua_Number>(usb.total_size));
    set_number(L, "usedSize", static_cast<lua_Number>(usb.used_size));
    set_number(L, "usbdev", decimal_value(instance_number_text(usb.identity.id)));
    end_row(L);
  }
  set_number(L, "scount", rows);
}

void wan_state(lua_State* L) {
  ZoVelNetworkInfo net = {};
  ZoVelGetNetworkInfo(&net);
  std::string_view v4 = field_text(net.ipv4_status);
  bool up =
      equals_ignoring_case(v4, "connected") || equals_ignoring_case(field_text(net.ipv6_status), "connected");
  set_text(L, "wanConnect", up ? "CONNECTED" : v4);
  set_number(L, "wanUpTime", net.wan_up_time);
}

}  // namespace

void get_all_info(lua_State* L, const GetArgs&) {
  lua_newtable(L);
  HostSpeedComputation speeds;
  device_rows(L, &speeds);
  ServiceFlags flags = read_service_flags();
  set_bool(L, "itv", flags.itv);
  set_bool(L, "voip", flags.voip);
  storage_rows(L);
  wan_state(L);
  // The listed devices' counters become the next baseline only now, at the end.
  speeds.finish();
}

}  // namespace velconfig
