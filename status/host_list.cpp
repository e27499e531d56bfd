// "hostsInfo": the online LAN devices with their addresses and speeds, and the
// address of the web client asking.
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "common/host_fields.h"
#include "common/result.h"
#include "platform/holders.h"
#include "platform/seams.h"
#include "platform/text.h"
#include "platform/zovel.h"
#include "status/rate_file.h"
#include "status/status.h"

namespace velconfig {
namespace {

constexpr int32_t kWiredOnly = 0;
constexpr int32_t kWirelessOnly = 1;
constexpr size_t kCurIpRoom = 48;

bool is_wired(uint8_t connection_type) { return connection_type == 0 || connection_type == 2; }

bool passes(const ZoVelLanHost& host, int32_t filter) {
  if (host.internet_access == 0 || host.online == 0) return false;
  if (filter == kWiredOnly) return is_wired(host.connection_type);
  if (filter == kWirelessOnly) return host.connection_type == 1;
  return true;
}

// The first line of /tmp/curhostip without its line feed, or "" when unreadable.
void read_current_client(char (&ip)[kCurIpRoom]) {
  memset(ip, 0, sizeof ip);
  char path[512];
  if (!gateway_file_path("/tmp/curhostip", path, sizeof path)) return;
  int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return;
  ssize_t n;
  do {
    n = read(fd, ip, sizeof ip - 1);
  } while (n < 0 && errno == EINTR);
  close(fd);
  // As fgets reads it: up to the first line feed, which is then dropped.
  size_t length = n > 0 ? static_cast<size_t>(n) : 0;
  const char* feed = static_cast<const char*>(memchr(ip, '\n', length));
  if (feed != nullptr) length = static_cast<size_t>(feed - ip);
  memset(ip + length, 0, sizeof ip - length);
}

}  // namespace

void get_hosts_info(lua_State* L, int32_t filter) {
  lua_newtable(L);
  char curip[kCurIpRoom] = {};
  PlatformList<ZoVelLanHostExt> hosts;
  hosts.fill(ZoVelGetOnlineDeviceListExtWithIPv6, nullptr, nullptr);
  if (hosts.reported() <= 0) {
    set_text(L, "curip", "");
    set_number(L, "count", 0);
    return;
  }

  HostSpeedComputation speeds;
  speeds.start();
  int listed = 0;
  for (const ZoVelLanHostExt& ext : hosts) {
    const ZoVelLanHost& host = ext.base;
    if (!passes(host, filter)) continue;
    begin_row(L, "dev%d", ++listed);
    set_host_fields(L, ext);
    HostSpeed speed = speeds.speed_of(host);
    set_number(L, "upSpeed", speed.up);
    set_number(L, "downSpeed", speed.down);
    set_bool(L, "restrict", host.internet_access == 1);
    set_bool(L, "black", host.internet_access == 0);
    end_row(L);
  }

  if (listed > 0) read_current_client(curip);
  set_text(L, "curip", curip);
  set_number(L, "count", listed);
  speeds.finish();
}

}  // namespace velconfig
