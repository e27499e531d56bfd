// The provisioned-services flags from the IPTV record or the LOID registration check.
#include "platform/service_flags.h"

#include <glib.h>
#include <string.h>

#include "platform/text.h"
#include "platform/zovel.h"

namespace velconfig {
namespace {

// The one model whose IPTV state comes from the IPTV record, not from the LOID check.
constexpr int32_t kIptvRecordDeviceType = 13;
constexpr int32_t kLoidRegistered = 200;
constexpr int32_t kLoidRegisteredToo = 203;

}  // namespace

ServiceFlags service_flags(int32_t device_type) {
  ServiceFlags flags{false, false};
  if (device_type == kIptvRecordDeviceType) {
    ZoVelIptvInfo iptv;
    memset(&iptv, 0, sizeof iptv);
    ZoVelGetSubIPTVInfo(&iptv);
    flags.itv = iptv.enable != 0;
    return flags;
  }
  int32_t status = 0;
  char* text = nullptr;
  ZoVelSysCmdCheckLOID(&status, &text);
  if (text != nullptr && text[0] != '\0') {
    if (status == kLoidRegistered || status == kLoidRegisteredToo) {
      flags.itv = strstr(text, "IPTV") != nullptr;
      flags.voip = strstr(text, "VOIP") != nullptr;
    }
    // Only a non-empty text is the caller's to release; an empty one may be the
    // library's own constant.
    g_free(text);
  }
  return flags;
}

ServiceFlags read_service_flags() {
  ZoVelDeviceInfo info;
  memset(&info, 0, sizeof info);
  ZoVelGetDeviceInfo(&info);
  return service_flags(decimal_value(field_text(info.dev_type)));
}

}  // namespace velconfig
