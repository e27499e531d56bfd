// "gwStatus": the status page's figures: PPPoE time, system time and load, device
// counts from the snapshot, the service flags and how full each USB disk is.
#include <string.h>

#include "common/result.h"
#include "platform/dbus.h"
#include "platform/service_flags.h"
#include "platform/text.h"
#include "platform/zovel.h"
#include "status/status.h"

namespace velconfig {
namespace {

// "PPPOEDuration", or 0 when it cannot be read.
uint32_t pppoe_duration() {
  uint32_t duration = 0;
  read_uint32_property({kIgdService, "/com/zom/igd1/Info/Network", "com.zom.igd1.NetworkInfo"},
                       "PPPOEDuration", &duration);
  return duration;
}

void snapshot_counts(lua_State* L) {
  int wired = 0;
  int wireless = 0;
  {
    PlatformList<ZoVelDeviceSnapshot> devices;
    devices.fill(ZoVelGetOnlineDevicesSnapShot, nullptr, nullptr);
    // Unlike the overview, an unknown connection type counts as wireless here.
    for (const ZoVelDeviceSnapshot& device : devices) {
      if (device.connection_type == 0 || device.connection_type == 2) {
        ++wired;
      } else {
        ++wireless;
      }
    }
  }
  set_number(L, "wcount", wired);
  set_number(L, "wlcount", wireless);
}

void storage_fill(lua_State* L) {
  int rows = 0;
  PlatformList<ZoVelUsbDevice> devices;
  devices.fill(ZoVel_GetUSBDeviceObjs);
  for (const ZoVelUsbDevice& usb : devices) {
    if (usb.device_class != kMassStorageClass) continue;
    uint64_t percent = usb.total_size != 0 ? usb.used_size * 100 / usb.total_size : 0;
    begin_row(L, "storage%d", ++rows);
    set_text(L, "name", field_text(usb.name));
    set_number(L, "usedPer", static_cast<lua_Number>(percent));
    end_row(L);
  }
  set_number(L, "scount", rows);
}

}  // namespace

void get_gw_status(lua_State* L, const GetArgs&) {
  lua_newtable(L);
  set_number(L, "upTime", pppoe_duration());

  ZoVelDeviceInfo info = {};
  ZoVelGetDeviceInfo(&info);
  set_number(L, "sysTime", info.sys_time);
  set_number(L, "cpuUsed", info.cpu_usage);

  snapshot_counts(L);

  ServiceFlags flags = service_flags(decimal_value(field_text(info.dev_type)));
  set_bool(L, "itv", flags.itv);
  set_bool(L, "voip", flags.voip);

  storage_fill(L);
}

}  // namespace velconfig
