// "wifiAdv": the Wi-Fi timer, which switches the first SSID of each radio off and on
// again at fixed times of day, and the gateway's current time.
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "common/result.h"
#include "common/table_field.h"
#include "platform/dbus.h"
#include "platform/holders.h"
#include "platform/seams.h"
#include "platform/text.h"
#include "platform/zovel.h"
#include "wifi/wifi.h"

namespace velconfig {
namespace {

constexpr size_t kTimeRoom = 72;  // a normalised time, at most 71 characters
// Times this short are taken as hour and minute and padded; longer ones are shown as stored.
constexpr size_t kShortTime = 4;
// Instance n switches through bit n - 1 of the mask.
constexpr int32_t kMaxInstance = 32;

// A stored time as the page shows it: "8:5" as "08:05", "1234" as "123:00" (no
// colon: the hour takes at most three digits), "" as "00:00".
void normalise_time(std::string_view stored, char (&out)[kTimeRoom]) {
  memset(out, 0, sizeof out);
  if (stored.size() > kShortTime) {
    copy_text(out, stored);
    return;
  }
  char text[kShortTime + 1] = {};
  char hour[4] = {};
  char minute[4] = {};
  copy_text(text, stored);
  // A part the pattern does not reach stays empty and counts as 0, so the count of
  // fields read does not matter.
  (void)sscanf(text, "%3[^:]:%3[^:]", hour, minute);
  snprintf(out, sizeof out, "%02d:%02d", decimal_value(hour), decimal_value(minute));
}

// The gateway's local time, "2024-03-09 07:05:02"; empty when the clock cannot be
// shown as a date.
void system_time(char (&out)[64]) {
  memset(out, 0, sizeof out);
  time_t now = static_cast<time_t>(wall_clock_now());
  struct tm local;
  if (localtime_r(&now, &local) == nullptr) return;
  // The year in a wider type: a clock far in the future has tm_year near INT_MAX.
  snprintf(out, sizeof out, "%ld-%02d-%02d %02d:%02d:%02d", static_cast<long>(local.tm_year) + 1900,
           local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
}

// The SSIDs the timer switches: the first of the 2.4 GHz radio and, on a dual-band
// gateway, the first of the 5 GHz radio, whether or not they are switched on. 0
// when the list cannot be read.
uint32_t timer_ssid_mask() {
  bool dual_band = false;
  read_bool_property({kIgdService, "/com/zom/igd1/Info/WiFi", "com.zom.igd1.WiFiInfo"}, "DualBand",
                     &dual_band);
  uint32_t mask = 0;
  PlatformList<ZoVelWlanDevice, uint32_t> list;
  if (list.fill(ZoVelGetWLANDeviceObjs) != 0) return 0;
  for (const ZoVelWlanDevice& wlan : list) {
    std::string_view label = field_text(wlan.band_label);
    if (label != kLabel2G && !(dual_band && label == kLabel5G)) continue;
    int32_t instance = decimal_value(instance_number_text(wlan.path));
    // Instances are 1 to 32; one outside has no bit to switch.
    if (instance >= 1 && instance <= kMaxInstance) mask |= 1u << (instance - 1);
  }
  return mask;
}

}  // namespace

void get_wifi_timer(lua_State* L, const GetArgs&) {
  char start[kTimeRoom];
  char end[kTimeRoom];
  char now[64];
  ZoVelWiFiTimer timer = {};
  // A failed read shows the cleared record: off, 00:00 to 00:00.
  ZoVelGetWiFiTimer(&timer);
  normalise_time(field_text(timer.start_time), start);
  normalise_time(field_text(timer.end_time), end);
  system_time(now);
  lua_newtable(L);
  set_number(L, "timerEnbl", timer.enable);
  set_text(L, "startTime", start);
  set_text(L, "endTime", end);
  set_text(L, "sysTime", now);
}

// 0 without a write when the timer is off and stays off; 1 when a field is not a
// clean text; otherwise the platform's code of the timer read or of the write. The
// fields are judged before the platform is asked anything.
int32_t set_wifi_timer(lua_State* L) {
  char timing[16];
  char start_time[sizeof ZoVelWiFiTimer::start_time] = {};
  char end_time[sizeof ZoVelWiFiTimer::end_time] = {};
  if (!read_field(L, "wifi_timing", timing)) return kTextRefused;
  int32_t enable = decimal_value(timing);
  if (enable != 0 && !(read_field(L, "start_time", start_time) && read_field(L, "end_time", end_time))) {
    return kTextRefused;
  }
  uint32_t mask = timer_ssid_mask();
  ZoVelWiFiTimer timer = {};
  int32_t code = ZoVelGetWiFiTimer(&timer);
  if (code != 0) return code;
  if (enable == 0 && timer.enable == 0) return 0;
  // Switching the timer off keeps the times the platform has.
  if (enable != 0) {
    memcpy(timer.start_time, start_time, sizeof timer.start_time);
    memcpy(timer.end_time, end_time, sizeof timer.end_time);
  }
  memset(timer.repeat_mode, 0, sizeof timer.repeat_mode);
  copy_text(timer.repeat_mode, "DAY");
  timer.enable = enable;
  timer.ssid_mask = mask;
  return ZoVelSetWiFiTimer(&timer);
}

}  // namespace velconfig
