// Whether the IPTV and VoIP services are provisioned: the home page, the status page
// and the LOID page show the same two flags, computed one way.
#pragma once

#include <stdint.h>

namespace velconfig {

struct ServiceFlags {
  bool itv;
  bool voip;
};

// From the numeric device type of a device information record already read: type 13
// asks the IPTV record, every other type the LOID registration check.
ServiceFlags service_flags(int32_t device_type);
// Reads the device information record first.
ServiceFlags read_service_flags();

}  // namespace velconfig
