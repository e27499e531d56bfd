// "startInterConnd", "syncConfig", "syncOnoff" and "configAP": the interconnect
// plugin's start, its two synchronisation switches, and one access point's Wi-Fi.
#include "common/table_field.h"
#include "interconnect/interconnect.h"
#include "platform/escaped_text.h"
#include "platform/plugin.h"
#include "platform/text.h"
#include "platform/zovel.h"

namespace velconfig {
namespace {

enum class Switch { kSameWifi, kSameStatus };

// The switch's field holds the value; the reply is only logged, and the page is
// told 1 whether or not the plugin answered.
int32_t set_switch(lua_State* L, const char* field, Switch which) {
  char text[128];
  if (!read_field(L, field, text)) return kTextRefused;
  int32_t value = decimal_value(text);

  char command[128];
  bool same_wifi = which == Switch::kSameWifi;
  if (same_wifi) {
    format_command(command, sizeof command,
                   "{\"CmdType\":\"SetSameWifi\",\"SameWiFiSwitch\":%d,\"SequenceId\":\"88888888\"}", value);
  } else {
    format_command(command, sizeof command,
                   "{\"CmdType\":\"SetSameStatus\",\"SameStatusSwitch\":%d,\"SequenceId\":\"88888888\"}",
                   value);
  }
  ZoVelLog(kLogNotice, same_wifi ? "Set SameWiFiSwitch: %d" : "Set SameStatusSwitch: %d", value);

  PluginExchange exchange;
  exchange.post(kInterconnectApp, command, same_wifi ? "Set SameWiFiSwitch: %s" : "Set SameStatusSwitch: %s",
                PluginExchange::Reply::kLogOnly);
  return 1;
}

enum class Band { k24, k5 };

struct BandRequest {
  char ssid[64];
  char pwd[64];
  char enbl[280];
};

// Reads one band's fields. False when a text is not clean or the password does not
// fit whole; a missing field or one of another type throws, as read_field does.
bool read_band(lua_State* L, Band band, BandRequest* req) {
  bool low = band == Band::k24;
  bool clean = read_field(L, low ? "ssid2g" : "ssid5g", req->ssid);
  clean = read_secret(L, low ? "pwd2g" : "pwd5g", req->pwd) == SecretText::kFits && clean;
  return read_field(L, low ? "enbl2g" : "enbl5g", req->enbl) && clean;
}

// One band's SetWifiConfig for the access point mac: 1 when the plugin gave no
// reply, else the reply's integer "Status" (0 when it has none or is not JSON).
int32_t configure_band(const char* mac, Band band, const BandRequest& req) {
  bool low = band == Band::k24;
  EscapedText<16> mac_text(mac);
  EscapedText<sizeof req.ssid> ssid_text(req.ssid);
  EscapedText<sizeof req.pwd> pwd_text(req.pwd);
  char command[280];
  if (low) {
    format_command(command, sizeof command,
                   "{\"CmdType\":\"SetWifiConfig\",\"infos\":{\"mac\":\"%s\",\"mode\":\"2.4g\",\"apidx\":0,"
                   "\"ssid\":\"%s\",\"pwd\":\"%s\",\"enable\":%d},\"SequenceId\":\"88888888\"}",
                   mac_text.text, ssid_text.text, pwd_text.text, decimal_value(req.enbl));
  } else {
    format_command(command, sizeof command,
                   "{\"CmdType\":\"SetWifiConfig\",\"infos\":{\"mac\":\"%s\",\"mode\":\"5g\",\"apidx\":0,"
                   "\"ssid\":\"%s\",\"pwd\":\"%s\",\"enable\":%d},\"SequenceId\":\"88888888\"}",
                   mac_text.text, ssid_text.text, pwd_text.text, decimal_value(req.enbl));
  }
  ZoVelLog(kLogNotice, low ? "Set SetWifiConfig 2.4G: %s" : "Set SetWifiConfig 5G: %s", command);

  PluginExchange exchange;
  if (!exchange.post(kInterconnectApp, command, "%s")) return 1;
  int32_t status = 0;
  if (exchange.document() != nullptr) read_json_int(exchange.document(), "Status", &status);
  return status;
}

}  // namespace

int32_t set_start_interconnd(lua_State*) {
  ZoVelLog(kLogNotice, "Start inter_conndv3 plugin");
  return ZoVelStartApp(kInterconnectApp);
}

int32_t set_sync_config(lua_State* L) { return set_switch(L, "syncConfig", Switch::kSameWifi); }

int32_t set_sync_onoff(lua_State* L) { return set_switch(L, "syncOnoff", Switch::kSameStatus); }

// "modeflg" 1 configures 2.4 GHz, 2 5 GHz, 3 both (5 GHz only after a 2.4 GHz
// success), anything else nothing. Every band the mode names is read before the
// first is sent, so no field of the second can leave the access point half
// configured. 0 success, 1 a text that is not clean, a password that does not fit
// or no reply, else the plugin's Status.
int32_t set_config_ap(lua_State* L) {
  char mac[16];
  char modeflg[8];
  if (!read_field(L, "mac", mac) || !read_field(L, "modeflg", modeflg)) return kTextRefused;
  ZoVelLog(kLogNotice, "WiFi mode: %s", modeflg);
  int32_t mode = decimal_value(modeflg);
  bool low = mode == 1 || mode == 3;
  bool high = mode == 2 || mode == 3;
  BandRequest req_24 = {};
  BandRequest req_5 = {};
  bool clean = !low || read_band(L, Band::k24, &req_24);
  clean = (!high || read_band(L, Band::k5, &req_5)) && clean;
  if (!clean) return kTextRefused;

  int32_t status = 0;
  if (low) status = configure_band(mac, Band::k24, req_24);
  if (status != 0) return status;
  if (high) status = configure_band(mac, Band::k5, req_5);
  return status;
}

}  // namespace velconfig
