// "usbDevices" and "usbModifyLabel": the USB disks with their labels and sizes, and
// giving a disk a new label.
#include <string.h>

#include "common/result.h"
#include "common/table_field.h"
#include "platform/text.h"
#include "platform/zovel.h"
#include "storage/disks.h"
#include "storage/storage.h"

namespace velconfig {

void get_usb_devices(lua_State* L, const GetArgs&) {
  lua_newtable(L);
  UsbList devices;
  // A failed query writes nothing: no rows.
  devices.fill(ZoVel_GetUSBDeviceObjs);
  DiskLabels labels;
  int disks = 0;
  for (const ZoVelUsbDevice& usb : devices) {
    if (!is_disk(usb)) continue;
    char label[kLabelRoom] = {};
    labels.label_of(usb, label);
    begin_row(L, "storage%d", ++disks);
    set_text(L, "label", label);
    set_text(L, "instno", instance_number_text(usb.identity.id));
    set_number(L, "maxSize", static_cast<lua_Number>(usb.total_size));
    set_number(L, "usedSize", static_cast<lua_Number>(usb.used_size));
    end_row(L);
  }
  set_number(L, "usbCount", disks);
}

// 1 when no disk has the page's instance number or a field is not a clean text;
// otherwise the platform's code. Both fields are judged before the disks are listed.
int32_t set_usb_modify_label(lua_State* L) {
  char instno[kLabelRoom] = {};
  char label[kLabelRoom] = {};
  if (lua_istable(L, -1) && !(read_field(L, "instno", instno) && read_field(L, "newLabel", label))) {
    return kTextRefused;
  }
  int32_t wanted = decimal_value(instno);
  UsbList devices;
  devices.fill(ZoVel_GetUSBDeviceObjs);
  if (devices.reported() <= 0) return 1;
  for (const ZoVelUsbDevice& usb : devices) {
    if (!is_disk(usb) || !instance_matches(usb, wanted)) continue;
    ZoVelUsbId id;
    memcpy(&id, &usb.identity, sizeof id);
    int32_t rc = ZoVel_USBSetLabel(id, label, nullptr, nullptr);
    return rc;
  }
  return 1;
}

}  // namespace velconfig
