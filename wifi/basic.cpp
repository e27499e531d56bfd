// "wifiBasic" and "wifiSsid": on/off, name, security and power of the first SSID of
// each radio, through the platform's WLAN device records.
#include <string.h>

#include <iterator>

#include "common/result.h"
#include "common/table_field.h"
#include "platform/dbus.h"
#include "platform/holders.h"
#include "platform/text.h"
#include "platform/zovel.h"
#include "wifi/wifi.h"

namespace velconfig {
namespace {

using WlanList = PlatformList<ZoVelWlanDevice, uint32_t>;

// One security mode in the page's and the platform's terms. A write finds its row by
// the page's name, a read by the beacon type; the first matching row wins.
struct SecurityMode {
  const char* page;
  const char* beacon_type;
  const char* basic_auth;  // the two non-WPA modes only
  bool aes_only;           // modes that allow no TKIP
};

constexpr SecurityMode kSecurityModes[] = {
    {"Open", "None", "OpenSystem", false},
    {"Shared", "Basic", "Both", false},
    {"WPA", "WPA", nullptr, false},
    {"WPA2", "WPA2", nullptr, false},
    {"WPA2", "11i", nullptr, false},  // TR-098's name for WPA2; a write of "WPA2" finds the row above
    {"WPA/WPA2", "WPA/WPA2", nullptr, false},
    {"WPA3", "WPA3", nullptr, true},
    {"WPA2/WPA3", "WPA2/WPA3", nullptr, true},
};
// What a read shows for a beacon type of no row ("None" included, empty included).
constexpr const SecurityMode& kOpenMode = kSecurityModes[0];
// The WEP mode, whose key length also sets the WEP encryption level.
constexpr const SecurityMode& kSharedMode = kSecurityModes[1];

// The WPA encryption modes a write keeps; any other value becomes the last one.
constexpr const char* kWpaEncryptions[] = {"AESEncryption", "TKIPEncryption", "TKIPandAESEncryption"};
constexpr const char* kAesOnly = "AESEncryption";
constexpr const char* kTkipAndAes = "TKIPandAESEncryption";

struct WepKeyLength {
  int32_t length;
  const char* level;
};
constexpr WepKeyLength kWepKeyLengths[] = {{5, "40-bit"}, {10, "40-bit"}, {13, "104-bit"}, {26, "104-bit"}};

// A strength level of the page: the power a write sets, and the highest power a read
// still shows as this level.
struct PowerLevel {
  int32_t level;
  uint32_t written;
  uint32_t read_up_to;
};
constexpr PowerLevel kPowerLevels[] = {{1, 60, 70}, {2, 80, 90}, {3, 100, 100}};
constexpr int32_t kNominalLevel = 3;
constexpr uint32_t kNominalPower = 100;  // what a write sets for a code of no row
// Above nominal power: only a radio of a high-power class of its band.
constexpr int32_t kHighPowerLevel = 4;

// A radio's high-power variant and the power it runs at in high-power mode. A class
// of the band is also what the page shows as through-wall power.
struct HighPowerClass {
  uint32_t high_power_class;
  uint32_t power;
};
constexpr HighPowerClass kClasses2G[] = {{21, 128}, {22, 160}, {23, 200}};
constexpr HighPowerClass kClasses5G[] = {{24, 125}, {25, 140}, {26, 200}};

// The page's field names for one band.
struct ReadFields {
  const char *enbl, *ssid, *power_level, *wall_power, *standard, *auth, *passwd;
};
struct WriteFields {
  const char *enbl, *ssid, *auth, *passwd, *strength;
};

struct Band {
  const char* label;
  const HighPowerClass* classes_begin;
  const HighPowerClass* classes_end;
  ReadFields read;
  WriteFields write;
};

const Band kBand2G{kLabel2G,
                   std::begin(kClasses2G),
                   std::end(kClasses2G),
                   {"enbl1", "ssid1", "powerLevel1", "wallPower1", nullptr, "auth1", "passwd1"},
                   {"wifi_2G_enbl", "wifi_2G_ssid", "wifi_2G_auth", "wifi_2G_passwd", "wifi_2G_strength"}};
const Band kBand5G{kLabel5G,
                   std::begin(kClasses5G),
                   std::end(kClasses5G),
                   {"enbl2", "ssid2", "powerLevel2", "wallPower2", "standard2", "auth2", "passwd2"},
                   {"wifi_5G_enbl", "wifi_5G_ssid", "wifi_5G_auth", "wifi_5G_passwd", "wifi_5G_strength"}};

// The band a record belongs to by its label, or null for every other SSID.
const Band* band_of(const ZoVelWlanDevice& wlan) {
  std::string_view label = field_text(wlan.band_label);
  if (label == kBand2G.label) return &kBand2G;
  if (label == kBand5G.label) return &kBand5G;
  return nullptr;
}

const HighPowerClass* high_power_class_of(const Band& band, uint32_t high_power_class) {
  for (const HighPowerClass* c = band.classes_begin; c != band.classes_end; ++c) {
    if (c->high_power_class == high_power_class) return c;
  }
  return nullptr;
}

// The power a write sets for the page's strength code.
uint32_t transmit_power(const Band& band, int32_t code, uint32_t high_power_class) {
  if (code == kHighPowerLevel) {
    const HighPowerClass* c = high_power_class_of(band, high_power_class);
    return c != nullptr ? c->power : kNominalPower;
  }
  for (const PowerLevel& p : kPowerLevels) {
    if (p.level == code) return p.written;
  }
  return kNominalPower;
}

// The strength level a read shows for the record's power.
int32_t power_level(const Band& band, const ZoVelWlanDevice& wlan) {
  for (const PowerLevel& p : kPowerLevels) {
    if (wlan.tx_power <= p.read_up_to) return p.level;
  }
  return high_power_class_of(band, wlan.high_power_class) != nullptr ? kHighPowerLevel : kNominalLevel;
}

const SecurityMode* mode_named(const char* page) {
  for (const SecurityMode& m : kSecurityModes) {
    if (strcmp(m.page, page) == 0) return &m;
  }
  return nullptr;
}

// Replaces a record text whole, so no tail of the old value stays behind it.
template <size_t N>
void replace_text(char (&field)[N], std::string_view text) {
  memset(field, 0, N);
  copy_text(field, text);
}

ZoVelObjPath path_block(const ZoVelWlanDevice& wlan) {
  ZoVelObjPath block;
  memcpy(block.path, wlan.path, sizeof block.path);
  return block;
}

// The security fields of a band switched on, from the page's mode and password.
void apply_security(const char* auth, const char* passwd, ZoVelWlanDevice* wlan) {
  char beacon_type[16] = {};
  char basic_auth[16] = {};
  auth_to_beacon_type(auth, beacon_type, basic_auth);
  replace_text(wlan->beacon_type, beacon_type);
  const SecurityMode* mode = mode_named(auth);
  if (mode == &kSharedMode) {
    char level[8] = {};
    wep_key_level(static_cast<int32_t>(strlen(passwd)), level);
    if (level[0] != '\0') replace_text(wlan->wep_level, level);
  }
  if (mode != nullptr && mode->basic_auth != nullptr) {
    replace_text(wlan->basic_auth, basic_auth);
  } else if (mode != nullptr && mode->aes_only) {
    replace_text(wlan->wpa_encryption, kAesOnly);
  } else {
    std::string_view current = field_text(wlan->wpa_encryption);
    bool known = false;
    for (const char* e : kWpaEncryptions) known = known || current == e;
    if (!known) replace_text(wlan->wpa_encryption, kTkipAndAes);
  }
  // Also for "Open": the platform keeps the key for when security is switched on again.
  replace_text(wlan->passphrase, passwd);
}

// One band's fields as the page sent them.
struct BandInput {
  bool enable;
  char ssid[64];
  char auth[16];
  char passwd[64];
  char strength[16];
};

// Reads one band's fields in the band's order; a band switched off reads no other
// field. False when a field is not a clean text or the password does not fit whole.
bool read_band(lua_State* L, const Band& band, BandInput* in) {
  char enbl[16];
  if (!read_field(L, band.write.enbl, enbl)) return false;
  in->enable = decimal_value(enbl) == 1;
  if (!in->enable) return true;
  return read_field(L, band.write.ssid, in->ssid) && read_field(L, band.write.auth, in->auth) &&
         read_secret(L, band.write.passwd, in->passwd) == SecretText::kFits &&
         read_field(L, band.write.strength, in->strength);
}

// Changes one band's record from the page's fields.
void change_band(const Band& band, const BandInput& in, ZoVelWlanDevice* wlan) {
  if (!in.enable) {
    wlan->enable = 0;
    return;
  }
  wlan->enable = 1;
  // 32 bytes, cut at a whole character as the page's text is.
  memset(wlan->ssid, 0, sizeof wlan->ssid);
  copy_utf8_text(wlan->ssid, sizeof wlan->ssid, in.ssid);
  wlan->tx_power = transmit_power(band, decimal_value(in.strength), wlan->high_power_class);
  apply_security(in.auth, in.passwd, wlan);
}

struct WiFiFacts {
  bool dual_band;
  bool wifi6;
};

// The Wi-Fi information record's facts. Its two platform blocks (either may be null)
// are never read; the call scope gives them back with everything else of the call.
WiFiFacts read_wifi_facts() {
  ZoVelWiFiInfo info = {};
  ZoVelGetWiFiInfo(&info);
  ScopedBlock block1(info.block1);
  ScopedBlock block2(info.block2);
  WiFiFacts facts{info.dual_band != 0, field_text(info.standards).find("802.11ax") != std::string_view::npos};
  return facts;
}

// Without 802.11ax in the standards, a radio offering WPA3 counts as Wi-Fi 6.
bool offers_wpa3() {
  ScopedVariant types = read_property({kIgdService, "/com/zom/igd1/Info/WiFi", "com.zom.igd1.WiFiInfo"},
                                      "SupportedBeaconType", G_VARIANT_TYPE_STRING);
  if (!types) return false;
  bool wpa3 = strstr(g_variant_get_string(types.get(), nullptr), "WPA3") != nullptr;
  return wpa3;
}

void set_band_fields(lua_State* L, const Band& band, const ZoVelWlanDevice& wlan) {
  char mode[16] = {};
  char beacon_type[sizeof wlan.beacon_type + 1] = {};
  copy_text(beacon_type, field_text(wlan.beacon_type));
  beacon_type_to_auth(beacon_type, mode);
  set_bool(L, band.read.enbl, wlan.enable != 0);
  set_text(L, band.read.ssid, field_text(wlan.ssid));
  set_number(L, band.read.power_level, power_level(band, wlan));
  set_bool(L, band.read.wall_power, high_power_class_of(band, wlan.high_power_class) != nullptr);
  if (band.read.standard != nullptr) set_text(L, band.read.standard, field_text(wlan.standard));
  set_text(L, band.read.auth, mode);
  set_text(L, band.read.passwd, field_text(wlan.passphrase));
}

}  // namespace

void auth_to_beacon_type(const char* mode, char* beacon_type, char* basic_auth) {
  const SecurityMode* m = mode_named(mode);
  // Modes of no row go to the platform as the page named them.
  g_strlcpy(beacon_type, m != nullptr ? m->beacon_type : mode, 16);
  if (m != nullptr && m->basic_auth != nullptr) g_strlcpy(basic_auth, m->basic_auth, 16);
}

void beacon_type_to_auth(const char* beacon_type, char* mode) {
  const SecurityMode* found = &kOpenMode;
  for (const SecurityMode& m : kSecurityModes) {
    if (strcmp(m.beacon_type, beacon_type) == 0) {
      found = &m;
      break;
    }
  }
  g_strlcpy(mode, found->page, 16);
}

void wep_key_level(int32_t length, char* out) {
  for (const WepKeyLength& k : kWepKeyLengths) {
    if (k.length == length) {
      g_strlcpy(out, k.level, 8);
      return;
    }
  }
}

void get_wifi_basic(lua_State* L, const GetArgs&) {
  lua_newtable(L);
  WiFiFacts facts = read_wifi_facts();
  {
    // Only the count decides; a later record of the same label overwrites the fields.
    WlanList list;
    list.fill(ZoVelGetWLANDeviceObjs);
    for (const ZoVelWlanDevice& wlan : list) {
      const Band* band = band_of(wlan);
      if (band == &kBand2G || (band == &kBand5G && facts.dual_band)) set_band_fields(L, *band, wlan);
    }
  }
  set_bool(L, "dualBand", facts.dual_band);
  set_number(L, "wifi6", (facts.wifi6 || offers_wpa3()) ? 1 : 0);
}

// Every field is judged before the platform is asked anything: the 2.4 GHz band's,
// then, when dual band is asked for, the 5 GHz band's. A text that is not clean or a
// password that does not fit (1), or a missing field (a Lua error), leaves every
// record as it was. Then 0 when no record was sent, otherwise the result of the last
// one: a failure on the 2.4 GHz band is overwritten by the 5 GHz band's result.
int32_t set_wifi_basic(lua_State* L) {
  bool dual_band = false;
  if (lua_istable(L, -1)) {
    char flag[16];
    if (!read_field(L, "wifi_dualBand", flag)) return kTextRefused;
    dual_band = decimal_value(flag) == 1;
  }
  BandInput in_2g = {};
  BandInput in_5g = {};
  if (!read_band(L, kBand2G, &in_2g) || (dual_band && !read_band(L, kBand5G, &in_5g))) return kTextRefused;
  WlanList list;
  int32_t code = list.fill(ZoVelGetWLANDeviceObjs);
  if (code != 0) return code;
  for (ZoVelWlanDevice& wlan : list) {
    const Band* band = band_of(wlan);
    if (band == &kBand2G) {
      change_band(*band, in_2g, &wlan);
    } else if (band == &kBand5G && dual_band) {
      change_band(*band, in_5g, &wlan);
    } else {
      continue;
    }
    // The record goes back whole, even when nothing in it changed.
    code = ZoVelSetWLANDevice(path_block(wlan), &wlan);
  }
  return code;
}

void get_wifi_ssid(lua_State* L, const GetArgs&) {
  constexpr size_t kProductRoom = 24;  // at most 23 characters
  char ssid[64] = {};
  char beacon_type[16] = {};
  char product_class[kProductRoom] = {};
  char lan_ip[kProductRoom] = {};
  int32_t has_wifi = 0;
  lua_newtable(L);
  ZoVelSupportWiFi(&has_wifi);
  set_number(L, "hasWiFi", has_wifi != 0 ? 1 : 0);
  if (has_wifi != 0) {
    WlanList list;
    if (list.fill(ZoVelGetWLANDeviceObjs) == 0) {
      // The last record of each label counts, whether or not the gateway reports dual band.
      const ZoVelWlanDevice* last_2g = nullptr;
      const ZoVelWlanDevice* last_5g = nullptr;
      for (const ZoVelWlanDevice& wlan : list) {
        const Band* band = band_of(wlan);
        if (band == &kBand2G) last_2g = &wlan;
        if (band == &kBand5G) last_5g = &wlan;
      }
      // The network a visitor most likely sees: an enabled 2.4 GHz one, else an
      // enabled 5 GHz one, else the 2.4 GHz one.
      const ZoVelWlanDevice* chosen = last_2g != nullptr ? last_2g : last_5g;
      if (last_2g != nullptr && last_5g != nullptr && last_2g->enable == 0 && last_5g->enable != 0) {
        chosen = last_5g;
      }
      if (chosen != nullptr) {
        copy_text(ssid, field_text(chosen->ssid));
        copy_text(beacon_type, field_text(chosen->beacon_type));
      }
    }
  }
  set_text(L, "ssid", ssid);
  set_text(L, "bType", beacon_type);
  read_text_property({kIgdService, "/com/zom/igd1/Info/Device", "com.zom.igd1.DeviceInfo"}, "ProductClass",
                     product_class, sizeof product_class);
  set_text(L, "productCls", product_class);
  read_text_property({kIgdService, "/com/zom/igd1/Info/Network", "com.zom.igd1.NetworkInfo"}, "LANIPAddr",
                     lan_ip, sizeof lan_ip);
  set_text(L, "lanIp", lan_ip);
}

}  // namespace velconfig
