// Events of the world around the simulated gateway, for testers: a device joins or
// leaves, the WAN drops, a disk is pulled out, the LOID registration moves on, the
// interconnect plugin hangs, the gateway reboots, the clock jumps. Each changes the
// model under the state lock, as an operation does, and says what it changed.
#include "sim/events.h"

#include <stdio.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <string>
#include <vector>

#include "sim/files.h"
#include "sim/sim.h"
#include "sim/transfers.h"

namespace velsim {
namespace {

constexpr json_int_t kDiskClass = 8;
constexpr json_int_t kWired = 0;
constexpr json_int_t kWireless = 1;
constexpr json_int_t kNormalAccess = 2;
// What a device that joins without saying moves, in bits per second.
constexpr json_int_t kDefaultDownRate = 2000000;
constexpr json_int_t kDefaultUpRate = 250000;

// An event's outcome: the lines saying what changed, or why nothing did.
struct Outcome {
  std::vector<std::string> lines;
  std::string refusal;
};

// A formatted text (printf's rules), as a std::string.
template <class... Args>
std::string printed(const char* format, Args... args) {
  gchar* text = g_strdup_printf(format, args...);
  std::string out = text;
  g_free(text);
  return out;
}

const char* param(json_t* params, const char* name) {
  json_t* v = json_object_get(params, name);
  return json_is_string(v) ? json_string_value(v) : nullptr;
}

// A parameter as a whole number (text or JSON number); false when it is given and is not one.
bool number_param(json_t* params, const char* name, json_int_t fallback, json_int_t* out) {
  json_t* v = json_object_get(params, name);
  if (v == nullptr || json_is_null(v)) {
    *out = fallback;
    return true;
  }
  if (json_is_integer(v)) {
    *out = json_integer_value(v);
    return true;
  }
  if (!json_is_string(v)) return false;
  const char* text = json_string_value(v);
  char* end = nullptr;
  long long n = g_ascii_strtoll(text, &end, 10);
  if (end == text || *end != '\0') return false;
  *out = n;
  return true;
}

std::string ipv4_text(uint32_t a) {
  return printed("%u.%u.%u.%u", a >> 24, (a >> 16) & 255, (a >> 8) & 255, a & 255);
}

// A MAC in any of the usual spellings as the model keeps it (12 upper-case hex digits).
bool normal_mac(const char* text, std::string* out) {
  out->clear();
  for (const char* p = text; *p != '\0'; ++p) {
    if (g_ascii_isxdigit(*p)) {
      out->push_back(g_ascii_toupper(*p));
    } else if (*p != ':' && *p != '-' && *p != '.') {
      return false;
    }
  }
  return out->size() == 12;
}

std::string mac_text(const char* mac) {
  std::string out;
  for (size_t i = 0; mac[i] != '\0'; ++i) {
    if (i > 0 && i % 2 == 0) out.push_back(':');
    out.push_back(mac[i]);
  }
  return out;
}

std::string rate_text(json_int_t bits) {
  if (bits >= 1000000) return printed("%.1f Mbit/s", static_cast<double>(bits) / 1e6);
  if (bits >= 1000) return printed("%.1f kbit/s", static_cast<double>(bits) / 1e3);
  return printed("%lld bit/s", static_cast<long long>(bits));
}

json_int_t next_host_id() {
  json_int_t top = 0;
  for (json_t* h : objects_in("hosts")) top = std::max(top, int_of(h, "id"));
  return top + 1;
}

json_t* host_with_mac(const std::string& mac) {
  for (json_t* h : objects_in("hosts")) {
    if (g_ascii_strcasecmp(text_of(h, "mac"), mac.c_str()) == 0) return h;
  }
  return nullptr;
}

// Whether an online host other than self uses the address.
bool address_taken(const char* ip, json_t* self) {
  for (json_t* h : objects_in("hosts")) {
    if (h != self && flag_of(h, "online") && strcmp(text_of(h, "ip"), ip) == 0) return true;
  }
  return strcmp(text_of(object_at("dhcp"), "ip"), ip) == 0;
}

// The SSID instance a wireless device of the band joins: the first one switched on.
json_t* network_of_band(const char* band) {
  const char* prefix = strcmp(band, "2.4g") == 0 ? "2.4G" : "5G";
  for (json_t* w : objects_in("wlan")) {
    if (g_str_has_prefix(text_of(w, "band_label"), prefix) && int_of(w, "enable") != 0) return w;
  }
  return nullptr;
}

// The first address of the DHCP pool no host has, or "" when the pool is full.
std::string free_address() {
  json_t* dhcp = object_at("dhcp");
  uint32_t first, last;
  if (!parse_ipv4(text_of(dhcp, "min"), &first) || !parse_ipv4(text_of(dhcp, "max"), &last)) return "";
  for (uint32_t a = first; a <= last && a != 0; ++a) {
    std::string ip = ipv4_text(a);
    bool used = address_taken(ip.c_str(), nullptr);
    for (json_t* h : objects_in("hosts")) used = used || strcmp(text_of(h, "ip"), ip.c_str()) == 0;
    if (!used) return ip;
  }
  return "";
}

// A MAC for a device that does not give one: locally administered, unused.
std::string new_mac() {
  for (json_int_t n = next_host_id();; ++n) {
    std::string mac = printed("02005E%06llX", static_cast<unsigned long long>(n & 0xFFFFFF));
    if (host_with_mac(mac) == nullptr) return mac;
  }
}

// The band a known device was on: wired, or its SSID's radio.
const char* band_of_host(json_t* host) {
  if (int_of(host, "connection") != kWireless) return "wired";
  for (json_t* w : objects_in("wlan")) {
    if (int_of(w, "id") == int_of(host, "wlan") && g_str_has_prefix(text_of(w, "band_label"), "2.4G"))
      return "2.4g";
  }
  return "5g";
}

void join(json_t* params, Outcome* out) {
  std::string mac;
  if (param(params, "mac") != nullptr && !normal_mac(param(params, "mac"), &mac)) {
    out->refusal = printed("MAC %s: twelve hex digits", param(params, "mac"));
    return;
  }
  json_t* host = mac.empty() ? nullptr : host_with_mac(mac);
  if (host != nullptr && flag_of(host, "online")) {
    out->refusal = printed("%s (%s) is already online", text_of(host, "name"), mac_text(mac.c_str()).c_str());
    return;
  }
  // A device that comes back does what it did before, unless told otherwise.
  const char* band = param(params, "band") != nullptr ? param(params, "band")
                     : host != nullptr                ? band_of_host(host)
                                                      : "5g";
  bool wired = strcmp(band, "wired") == 0;
  if (!wired && strcmp(band, "2.4g") != 0 && strcmp(band, "5g") != 0) {
    out->refusal = printed("band %s: wired, 2.4g or 5g", band);
    return;
  }
  json_t* network = wired ? nullptr : network_of_band(band);
  if (!wired && network == nullptr) {
    out->refusal = printed("no %s Wi-Fi network is on for the device to join",
                           strcmp(band, "5g") == 0 ? "5 GHz" : "2.4 GHz");
    return;
  }
  std::string ip;
  if (param(params, "ip") != nullptr) {
    uint32_t a, lan, mask;
    json_t* dhcp = object_at("dhcp");
    ip = param(params, "ip");
    if (!parse_ipv4(ip.c_str(), &a) || !parse_ipv4(text_of(dhcp, "ip"), &lan) ||
        !parse_ipv4(text_of(dhcp, "mask"), &mask) || (a & mask) != (lan & mask)) {
      out->refusal =
          printed("address %s: not on the LAN %s/%s", ip.c_str(), text_of(dhcp, "ip"), text_of(dhcp, "mask"));
      return;
    }
    if (address_taken(ip.c_str(), host)) {
      out->refusal = printed("address %s is in use", ip.c_str());
      return;
    }
  } else if (host != nullptr && !address_taken(text_of(host, "ip"), host)) {
    ip = text_of(host, "ip");
  } else {
    ip = free_address();
    if (ip.empty()) {
      out->refusal = "the DHCP pool has no free address";
      return;
    }
  }
  json_int_t down, up;
  json_int_t usual_down = host != nullptr ? int_of(host, "down_rate") : kDefaultDownRate;
  json_int_t usual_up = host != nullptr ? int_of(host, "up_rate") : kDefaultUpRate;
  if (!number_param(params, "down", usual_down, &down) || !number_param(params, "up", usual_up, &up) ||
      down < 0 || up < 0) {
    out->refusal = "rates are bits per second: whole numbers, 0 or more";
    return;
  }
  // The figures of everyone else run on from here; the newcomer's start at 0.
  settle_time();
  bool returning = host != nullptr;
  if (!returning) {
    if (mac.empty()) mac = new_mac();
    host = json_object();
    json_object_set_new(host, "id", json_integer(next_host_id()));
    json_object_set_new(host, "mac", json_string(mac.c_str()));
    json_object_set_new(host, "access", json_integer(kNormalAccess));
    for (const char* empty : {"ipv6", "brand", "model", "system"})
      json_object_set_new(host, empty, json_string(""));
    json_object_set_new(host, "down_bytes", json_integer(0));
    json_object_set_new(host, "up_bytes", json_integer(0));
    json_array_append_new(array_at("hosts"), host);
  }
  const char* type = param(params, "type") != nullptr ? param(params, "type")
                     : returning                      ? text_of(host, "type", wired ? "pc" : "phone")
                     : wired                          ? "pc"
                                                      : "phone";
  std::string name = param(params, "name") != nullptr ? param(params, "name")
                     : returning                      ? text_of(host, "name")
                                 : printed("%s-%lld", type, static_cast<long long>(int_of(host, "id")));
  json_object_set_new(host, "name", json_string(name.c_str()));
  json_object_set_new(host, "type", json_string(type));
  json_object_set_new(host, "ip", json_string(ip.c_str()));
  json_object_set_new(host, "connection", json_integer(wired ? kWired : kWireless));
  if (wired) {
    json_object_del(host, "wlan");
  } else {
    json_object_set_new(host, "wlan", json_integer(int_of(network, "id")));
  }
  json_object_set_new(host, "online", json_true());
  json_object_set_new(host, "online_time", json_integer(0));
  json_object_set_new(host, "down_rate", json_integer(down));
  json_object_set_new(host, "up_rate", json_integer(up));
  model_changed();
  std::string where = wired ? std::string("a LAN port")
                            : printed("%s Wi-Fi \"%s\"", strcmp(band, "5g") == 0 ? "5 GHz" : "2.4 GHz",
                                      text_of(network, "ssid"));
  out->lines.push_back(printed("%s %s (%s) on %s at %s, %s down, %s up", name.c_str(),
                               returning ? "joined again" : "joined", mac_text(mac.c_str()).c_str(),
                               where.c_str(), ip.c_str(), rate_text(down).c_str(), rate_text(up).c_str()));
}

// The online host a tester names by MAC, address or name.
json_t* named_host(const char* who) {
  std::string mac;
  bool is_mac = normal_mac(who, &mac);
  for (json_t* h : objects_in("hosts")) {
    if (!flag_of(h, "online")) continue;
    if ((is_mac && g_ascii_strcasecmp(text_of(h, "mac"), mac.c_str()) == 0) ||
        strcmp(text_of(h, "ip"), who) == 0 || strcmp(text_of(h, "name"), who) == 0) {
      return h;
    }
  }
  return nullptr;
}

void leave(json_t* params, Outcome* out) {
  const char* who = param(params, "host");
  json_t* host = who != nullptr ? named_host(who) : nullptr;
  if (host == nullptr) {
    out->refusal = printed("no online device is %s (MAC, address or name)", who != nullptr ? who : "named");
    return;
  }
  settle_time();
  json_object_set_new(host, "online", json_false());
  model_changed();
  out->lines.push_back(printed("%s (%s, %s) left", text_of(host, "name"),
                               mac_text(text_of(host, "mac")).c_str(), text_of(host, "ip")));
}

bool wan_connected(json_t* wan) {
  return g_ascii_strcasecmp(text_of(wan, "ipv4_status"), "connected") == 0 ||
         g_ascii_strcasecmp(text_of(wan, "ipv6_status"), "connected") == 0;
}

void wan_down(json_t*, Outcome* out) {
  json_t* wan = object_at("wan");
  if (!wan_connected(wan)) {
    out->refusal = "the WAN is already down";
    return;
  }
  settle_time();
  // The addresses come back with the link; a gateway off line shows none.
  json_object_set_new(wan, "last_ipv4", json_string(text_of(wan, "ipv4")));
  json_object_set_new(wan, "last_ipv6", json_string(text_of(wan, "ipv6")));
  json_object_set_new(wan, "ipv4", json_string(""));
  json_object_set_new(wan, "ipv6", json_string(""));
  json_object_set_new(wan, "ipv4_status", json_string("Disconnected"));
  json_object_set_new(wan, "ipv6_status", json_string("Disconnected"));
  json_object_set_new(wan, "uptime", json_integer(0));
  model_changed();
  out->lines.push_back(
      printed("WAN disconnected (it had %s and %s)", text_of(wan, "last_ipv4"), text_of(wan, "last_ipv6")));
}

void wan_up(json_t*, Outcome* out) {
  json_t* wan = object_at("wan");
  if (wan_connected(wan)) {
    out->refusal = "the WAN is already up";
    return;
  }
  settle_time();
  for (const char* family : {"ipv4", "ipv6"}) {
    std::string last = std::string("last_") + family;
    if (json_is_string(json_object_get(wan, last.c_str())))
      json_object_set(wan, family, json_object_get(wan, last.c_str()));
    json_object_del(wan, last.c_str());
  }
  json_object_set_new(wan, "ipv4_status", json_string("Connected"));
  json_object_set_new(wan, "ipv6_status",
                      json_string(text_of(wan, "ipv6")[0] != '\0' ? "Connected" : "Disconnected"));
  json_object_set_new(wan, "uptime", json_integer(0));
  model_changed();
  out->lines.push_back(printed("WAN connected with %s%s%s", text_of(wan, "ipv4"),
                               text_of(wan, "ipv6")[0] != '\0' ? " and " : "", text_of(wan, "ipv6")));
}

std::string id_text(json_t* usb) {
  json_t* id = json_object_get(usb, "id");
  return json_is_string(id) ? json_string_value(id)
                            : printed("%lld", static_cast<long long>(int_of(usb, "id")));
}

// The disk of list (usb or usb_unplugged) a tester names by id, name, label or
// mount path; with no name, the first (plugged) or the last unplugged one.
long disk_in(json_t* list, const char* which, bool last) {
  long found = -1;
  size_t i;
  json_t* usb;
  json_array_foreach(list, i, usb) {
    if (!json_is_object(usb) || int_of(usb, "class") != kDiskClass) continue;
    bool named = which == nullptr || id_text(usb) == which || strcmp(text_of(usb, "name"), which) == 0 ||
                 strcmp(text_of(usb, "label"), which) == 0 || strcmp(text_of(usb, "mount_path"), which) == 0;
    if (!named) continue;
    found = static_cast<long>(i);
    if (!last) break;
  }
  return found;
}

std::string disk_words(json_t* usb) {
  const char* label = text_of(usb, "label");
  return printed("disk %s \"%s\"%s%s%s at %s", id_text(usb).c_str(), text_of(usb, "name"),
                 label[0] ? " (label " : "", label, label[0] ? ")" : "", text_of(usb, "mount_path"));
}

void usb_unplug(json_t* params, Outcome* out) {
  json_t* plugged = array_at("usb");
  long i = disk_in(plugged, param(params, "disk"), false);
  if (i < 0) {
    out->refusal = param(params, "disk") != nullptr ? printed("no plugged disk is %s", param(params, "disk"))
                                                    : std::string("no disk is plugged");
    return;
  }
  json_t* usb = json_incref(json_array_get(plugged, static_cast<size_t>(i)));
  // Copies to or from it fail as on a gateway whose disk went away; its files stay.
  std::string folder;
  if (relative_within(text_of(usb, "mount_path"), "/", &folder)) {
    sync_transfers();
    cancel_transfers_under(folder);
  }
  json_array_remove(plugged, static_cast<size_t>(i));
  json_array_append_new(array_at("usb_unplugged"), usb);
  model_changed();
  out->lines.push_back(disk_words(usb) + " unplugged; its files wait for it to come back");
}

void usb_plug(json_t* params, Outcome* out) {
  json_t* unplugged = array_at("usb_unplugged");
  long i = disk_in(unplugged, param(params, "disk"), true);
  if (i < 0) {
    out->refusal = param(params, "disk") != nullptr
                       ? printed("no unplugged disk is %s", param(params, "disk"))
                       : std::string("no disk is unplugged");
    return;
  }
  json_t* usb = json_array_get(unplugged, static_cast<size_t>(i));
  for (json_t* other : objects_in("usb")) {
    if (id_text(other) == id_text(usb)) {
      out->refusal = printed("another USB device has id %s", id_text(usb).c_str());
      return;
    }
  }
  // Back in its place among the others, by id, as the platform lists them.
  size_t place = 0;
  for (json_t* other : objects_in("usb")) place += int_of(other, "id") < int_of(usb, "id") ? 1 : 0;
  json_array_insert(array_at("usb"), std::min(place, json_array_size(array_at("usb"))), usb);
  out->lines.push_back(disk_words(usb) + " plugged in again");
  json_array_remove(unplugged, static_cast<size_t>(i));
  if (json_array_size(unplugged) == 0) json_object_del(model(), "usb_unplugged");
  model_changed();
}

// Index of the registration step reached by now, or -1 before the first.
long step_now(json_t* loid) {
  json_int_t since = now() - int_of(loid, "registered_at");
  long reached = -1;
  size_t i;
  json_t* step;
  json_array_foreach(json_object_get(loid, "registration"), i, step) {
    if (json_is_object(step) && int_of(step, "after") <= since) reached = static_cast<long>(i);
  }
  return reached;
}

std::string status_words(json_t* loid) {
  long i = step_now(loid);
  if (i < 0) return "no status yet";
  return printed("status %lld", static_cast<long long>(int_of(
                                    json_array_get(json_object_get(loid, "registration"), i), "status")));
}

// The steps held back by a stall take their place again after the current one.
void release_held_steps(json_t* loid) {
  json_t* held = json_object_get(loid, "held_steps");
  if (json_is_array(held)) json_array_extend(array_at_of(loid, "registration"), held);
  json_object_del(loid, "held_steps");
}

bool registration_started(json_t* loid) { return json_is_integer(json_object_get(loid, "registered_at")); }

void loid_next(json_t*, Outcome* out) {
  json_t* loid = object_at("loid");
  if (!registration_started(loid)) {
    json_object_set_new(loid, "registered_at", json_integer(now()));
    model_changed();
    out->lines.push_back("LOID registration started: " + status_words(loid));
    return;
  }
  // Steps a stall held back are the ones to come.
  if (json_array_size(json_object_get(loid, "held_steps")) > 0) release_held_steps(loid);
  json_t* steps = json_object_get(loid, "registration");
  size_t next = static_cast<size_t>(step_now(loid) + 1);
  if (next >= json_array_size(steps)) {
    out->refusal = "the LOID registration is at its last step (" + status_words(loid) + ")";
    return;
  }
  // The next step happens now; the ones after it keep their spacing.
  json_object_set_new(loid, "registered_at",
                      json_integer(now() - int_of(json_array_get(steps, next), "after")));
  model_changed();
  out->lines.push_back("LOID registration moved on: " + status_words(loid));
}

void loid_stall(json_t*, Outcome* out) {
  json_t* loid = object_at("loid");
  json_t* steps = json_object_get(loid, "registration");
  size_t keep = registration_started(loid) ? static_cast<size_t>(step_now(loid) + 1) : 0;
  if (!registration_started(loid) || keep >= json_array_size(steps)) {
    out->refusal = registration_started(loid)
                       ? "the LOID registration is at its last step (" + status_words(loid) + ")"
                       : std::string("no LOID registration is running");
    return;
  }
  json_t* held = array_at_of(loid, "held_steps");
  while (json_array_size(steps) > keep) {
    json_array_insert(held, 0, json_array_get(steps, json_array_size(steps) - 1));
    json_array_remove(steps, json_array_size(steps) - 1);
  }
  model_changed();
  out->lines.push_back(printed("LOID registration stalls at %s (%zu later steps held back)",
                               status_words(loid).c_str(), json_array_size(held)));
}

void loid_fail(json_t* params, Outcome* out) {
  json_int_t status;
  if (!number_param(params, "status", 405, &status) || (status != 405 && status != 407 && status != 409)) {
    out->refusal = "a failed registration reports 405, 407 or 409";
    return;
  }
  json_t* loid = object_at("loid");
  if (!registration_started(loid)) json_object_set_new(loid, "registered_at", json_integer(now()));
  json_object_del(loid, "held_steps");
  json_t* steps = array_at_of(loid, "registration");
  size_t keep = static_cast<size_t>(step_now(loid) + 1);
  while (json_array_size(steps) > keep) json_array_remove(steps, json_array_size(steps) - 1);
  json_int_t since = now() - int_of(loid, "registered_at");
  json_array_append_new(steps, json_pack("{s:I,s:I,s:s}", "after", static_cast<json_int_t>(since), "status",
                                         status, "msg", ""));
  model_changed();
  out->lines.push_back(printed("LOID registration failed: status %lld", static_cast<long long>(status)));
}

void plugin_silence(bool silent, Outcome* out) {
  json_t* interconnect = object_at("interconnect");
  if (flag_of(interconnect, "silent") == silent) {
    out->refusal =
        silent ? "the interconnect plugin is already silent" : "the interconnect plugin already answers";
    return;
  }
  if (silent) {
    json_object_set_new(interconnect, "silent", json_true());
  } else {
    json_object_del(interconnect, "silent");
  }
  model_changed();
  out->lines.push_back(silent ? "the interconnect plugin stops answering (it still shows as running)"
                              : "the interconnect plugin answers again");
}

void plugin_stop(json_t*, Outcome* out) { plugin_silence(true, out); }
void plugin_answer(json_t*, Outcome* out) { plugin_silence(false, out); }

void reboot(json_t*, Outcome* out) {
  reboot_gateway();
  out->lines.push_back(printed("the gateway rebooted (boot %lld): running time and WAN time start from 0",
                               static_cast<long long>(int_of(object_at("device"), "boot_count"))));
}

std::string utc_text(int64_t t) {
  time_t seconds = static_cast<time_t>(t);
  struct tm parts = {};
  char text[40] = {};
  if (gmtime_r(&seconds, &parts) == nullptr ||
      strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &parts) == 0) {
    return "?";
  }
  return text;
}

void clock_jump(json_t* params, Outcome* out) {
  json_int_t seconds;
  if (!number_param(params, "seconds", 0, &seconds) || seconds == 0) {
    out->refusal = "the clock jumps by a whole number of seconds other than 0";
    return;
  }
  int64_t before = now();
  jump_clock(seconds);
  // A registration in progress goes on as it was: its steps count running time.
  json_t* loid = object_at("loid");
  if (registration_started(loid)) {
    json_object_set_new(loid, "registered_at",
                        json_integer(plus_seconds(int_of(loid, "registered_at"), seconds)));
  }
  out->lines.push_back(printed("the clock jumped %s %lld s: from %s to %s", seconds > 0 ? "forward" : "back",
                               static_cast<long long>(seconds > 0 ? seconds : -seconds),
                               utc_text(before).c_str(), utc_text(now()).c_str()));
}

struct Event {
  const char* name;
  void (*apply)(json_t* params, Outcome* out);
};

const Event kEvents[] = {
    {"join", join},
    {"leave", leave},
    {"wan-down", wan_down},
    {"wan-up", wan_up},
    {"usb-unplug", usb_unplug},
    {"usb-plug", usb_plug},
    {"loid-next", loid_next},
    {"loid-stall", loid_stall},
    {"loid-fail", loid_fail},
    {"plugin-stop", plugin_stop},
    {"plugin-answer", plugin_answer},
    {"reboot", reboot},
    {"clock", clock_jump},
};

}  // namespace

json_t* array_at_of(json_t* obj, const char* key) {
  json_t* a = json_object_get(obj, key);
  if (!json_is_array(a)) {
    a = json_array();
    json_object_set_new(obj, key, a);
  }
  return a;
}

int32_t apply_event(const char* name, json_t* params, std::vector<std::string>* lines, std::string* reason) {
  std::lock_guard<std::recursive_mutex> hold(platform_mutex());
  const Event* event = nullptr;
  for (const Event& e : kEvents) {
    if (name != nullptr && strcmp(e.name, name) == 0) event = &e;
  }
  if (event == nullptr) {
    *reason = printed("no event %s", name != nullptr ? name : "");
    return kEventRefused;
  }
  journal("event",
          json_pack("{s:s,s:O}", "name", event->name, "params", params != nullptr ? params : json_null()));
  ModelSession session;
  if (!session.ok()) {
    *reason = take_state_error();
    return kStateFailed;
  }
  Outcome outcome;
  event->apply(params, &outcome);
  if (!outcome.refusal.empty()) {
    *reason = outcome.refusal;
    return kEventRefused;
  }
  if (!session.commit()) {
    *reason = take_state_error();
    return kStateFailed;
  }
  *lines = outcome.lines;
  return 0;
}

}  // namespace velsim
