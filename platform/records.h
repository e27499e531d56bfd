// Byte-exact layouts of the records exchanged with the gateway platform library.
// Only the fields the module uses are named; the other bytes are the platform's and
// are kept as opaque filler so that a record written back carries them unchanged.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// The first 256 bytes of a listed record: the D-Bus object path of the object it
// stands for. Operations on one object take this block by value.
typedef struct ZoVelObjPath {
  char path[256];
} ZoVelObjPath;

// The first 256 bytes of a USB device record, naming the device; passed by value.
typedef struct ZoVelUsbId {
  char id[256];
} ZoVelUsbId;

typedef struct ZoVelDeviceInfo {
  char reserved0[257];
  char vendor[64];
  char mac[13];
  char sw_version[273];  // text up to the product class
  char product_class[128];
  char serial[128];
  char dev_type[345];  // decimal text up to the processor usage
  uint8_t cpu_usage;
  char reserved1[3];
  uint32_t sys_time;
  char reserved2[4];
} ZoVelDeviceInfo;

typedef struct ZoVelNetworkInfo {
  char reserved0[396];
  uint32_t wan_up_time;
  char reserved1[90];
  char ipv4_status[128];
  char ipv6_status[128];
  char lan_ipv4[16];
  char lan_ipv6[48];
  char wan_ipv4[16];
  char wan_ipv6[102];  // text up to the end of the record
} ZoVelNetworkInfo;

// Base LAN host record, as listed by ZoVelGetOnlineDeviceList and filled by
// ZoVelGetLANHostByMAC.
typedef struct ZoVelLanHost {
  char path[256];
  char mac[13];
  char name[135];           // text up to the access byte
  uint8_t internet_access;  // 0 black-listed, 1 restricted, 2 normal
  char reserved0[15];
  char dev_type[17];
  char ipv4[17];
  uint8_t connection_type;  // 0 or 2 wired, 1 wireless
  char reserved1[1];
  char brand[64];
  char model[64];
  char system[64];
  uint32_t online;
  char reserved2[68];
  uint32_t online_time;
  char reserved3[4];
  uint64_t down_bytes;
  uint64_t up_bytes;
  char reserved4[8];
} ZoVelLanHost;

// Extended LAN host record: the base layout followed by the IPv6 address.
typedef struct ZoVelLanHostExt {
  ZoVelLanHost base;
  char reserved0[4];
  char ipv6[52];  // text up to the end of the record
} ZoVelLanHostExt;

typedef struct ZoVelDeviceSnapshot {
  char reserved0[368];
  uint8_t connection_type;
  char reserved1[135];
} ZoVelDeviceSnapshot;

typedef struct ZoVelPPPoEConfig {
  char reserved0[256];
  char account[64];
} ZoVelPPPoEConfig;

typedef struct ZoVelDhcpServer {
  char reserved0[256];
  int32_t enable;
  char pool_start[16];
  char pool_end[16];
  char lan_ip[16];
  char subnet_mask[16];
  char reserved1[4];
} ZoVelDhcpServer;

typedef struct ZoVelDdnsServer {
  char path[256];
  int32_t enable;
  char reserved0[1];
  char provider[64];
  char username[32];
  char password[32];
  char reserved1[7];
  char domain[64];
  char hostname[64];
  char reserved2[80];
} ZoVelDdnsServer;

typedef struct ZoVelIptvInfo {
  char reserved0[256];
  int32_t enable;
  int32_t vlan_id;  // negative: no VLAN
  char bound_ports[33];
  char reserved1[3];
} ZoVelIptvInfo;

typedef struct ZoVelPortMapping {
  char path[256];
  int32_t enable;
  char reserved0[68];
  uint32_t external_port;
  uint32_t internal_port;
  char protocol[8];
  char client[16];
  char description[32];
  char reserved1[4];
} ZoVelPortMapping;

typedef struct ZoVelWlanDevice {
  char path[256];
  char ssid[33];
  char reserved0[3];
  uint32_t enable;
  char reserved1[8];
  char beacon_type[33];
  char standard[16];
  char wep_level[64];
  char basic_auth[16];
  char wpa_encryption[32];
  char reserved2[23];
  uint32_t tx_power;
  uint32_t high_power_class;
  char passphrase[64];
  char reserved3[64];
  char band_label[376];  // text up to the end of the record
} ZoVelWlanDevice;

typedef struct ZoVelWiFiInfo {
  char reserved0[264];
  char standards[64];
  uint32_t dual_band;
  char reserved1[116];
  void* block1;  // allocated by the platform, released by the caller
  char reserved2[40];
  void* block2;  // likewise
} ZoVelWiFiInfo;

typedef struct ZoVelWiFiTimer {
  char reserved0[256];
  char start_time[8];
  char end_time[8];
  char repeat_mode[8];
  int32_t enable;
  uint32_t ssid_mask;
} ZoVelWiFiTimer;

typedef struct ZoVelAppRecord {
  char name[128];
  char second[128];
  char third[16];
  uint32_t state;  // 1 running
} ZoVelAppRecord;

typedef struct ZoVelUsbDevice {
  ZoVelUsbId identity;    // instance number text at byte 34
  uint16_t device_class;  // 8 mass storage
  char reserved0[6];
  char name[200];
  char mount_path[128];
  uint64_t total_size;
  uint64_t used_size;
  char reserved1[8];
  char label[128];
} ZoVelUsbDevice;

typedef struct ZoVelFolderEntry {
  char name[512];
  int32_t is_folder;
  char reserved0[4];
  uint64_t size;
  char time[24];
} ZoVelFolderEntry;

typedef struct ZoVelEasymeshConfig {
  char path[256];
  uint32_t enable;
  uint32_t enable_2g;
  uint32_t enable_5g;
  char ssid_2g[64];
  char ssid_5g[64];
  char auth_2g[16];
  char auth_5g[16];
  char key_2g[80];
  char key_5g[80];
} ZoVelEasymeshConfig;

#ifdef __cplusplus
}  // extern "C"

// Where the instance number text starts inside an object path or USB identity block.
constexpr size_t kInstanceNumberOffset = 34;
// The USB device class of a mass-storage device (a disk).
constexpr uint16_t kMassStorageClass = 8;

#define VELCONFIG_CHECK_FIELD(rec, field, off) \
  static_assert(offsetof(rec, field) == (off), #rec "." #field " must sit at byte " #off)

VELCONFIG_CHECK_FIELD(ZoVelDeviceInfo, vendor, 257);
VELCONFIG_CHECK_FIELD(ZoVelDeviceInfo, mac, 321);
VELCONFIG_CHECK_FIELD(ZoVelDeviceInfo, sw_version, 334);
VELCONFIG_CHECK_FIELD(ZoVelDeviceInfo, product_class, 607);
VELCONFIG_CHECK_FIELD(ZoVelDeviceInfo, serial, 735);
VELCONFIG_CHECK_FIELD(ZoVelDeviceInfo, dev_type, 863);
VELCONFIG_CHECK_FIELD(ZoVelDeviceInfo, cpu_usage, 1208);
VELCONFIG_CHECK_FIELD(ZoVelDeviceInfo, sys_time, 1212);
static_assert(sizeof(ZoVelDeviceInfo) == 1220, "device information record is 1220 bytes");

VELCONFIG_CHECK_FIELD(ZoVelNetworkInfo, wan_up_time, 396);
VELCONFIG_CHECK_FIELD(ZoVelNetworkInfo, ipv4_status, 490);
VELCONFIG_CHECK_FIELD(ZoVelNetworkInfo, ipv6_status, 618);
VELCONFIG_CHECK_FIELD(ZoVelNetworkInfo, lan_ipv4, 746);
VELCONFIG_CHECK_FIELD(ZoVelNetworkInfo, lan_ipv6, 762);
VELCONFIG_CHECK_FIELD(ZoVelNetworkInfo, wan_ipv4, 810);
VELCONFIG_CHECK_FIELD(ZoVelNetworkInfo, wan_ipv6, 826);
static_assert(sizeof(ZoVelNetworkInfo) == 928, "network information record is 928 bytes");

VELCONFIG_CHECK_FIELD(ZoVelLanHost, mac, 256);
VELCONFIG_CHECK_FIELD(ZoVelLanHost, name, 269);
VELCONFIG_CHECK_FIELD(ZoVelLanHost, internet_access, 404);
VELCONFIG_CHECK_FIELD(ZoVelLanHost, dev_type, 420);
VELCONFIG_CHECK_FIELD(ZoVelLanHost, ipv4, 437);
VELCONFIG_CHECK_FIELD(ZoVelLanHost, connection_type, 454);
VELCONFIG_CHECK_FIELD(ZoVelLanHost, brand, 456);
VELCONFIG_CHECK_FIELD(ZoVelLanHost, model, 520);
VELCONFIG_CHECK_FIELD(ZoVelLanHost, system, 584);
VELCONFIG_CHECK_FIELD(ZoVelLanHost, online, 648);
VELCONFIG_CHECK_FIELD(ZoVelLanHost, online_time, 720);
VELCONFIG_CHECK_FIELD(ZoVelLanHost, down_bytes, 728);
VELCONFIG_CHECK_FIELD(ZoVelLanHost, up_bytes, 736);
static_assert(sizeof(ZoVelLanHost) == 752, "LAN host record is 752 bytes");
VELCONFIG_CHECK_FIELD(ZoVelLanHostExt, ipv6, 756);
static_assert(sizeof(ZoVelLanHostExt) == 808, "extended LAN host record is 808 bytes");

VELCONFIG_CHECK_FIELD(ZoVelDeviceSnapshot, connection_type, 368);
static_assert(sizeof(ZoVelDeviceSnapshot) == 504, "device snapshot record is 504 bytes");

VELCONFIG_CHECK_FIELD(ZoVelPPPoEConfig, account, 256);
static_assert(sizeof(ZoVelPPPoEConfig) == 320, "PPPoE configuration record is 320 bytes");

VELCONFIG_CHECK_FIELD(ZoVelDhcpServer, enable, 256);
VELCONFIG_CHECK_FIELD(ZoVelDhcpServer, pool_start, 260);
VELCONFIG_CHECK_FIELD(ZoVelDhcpServer, pool_end, 276);
VELCONFIG_CHECK_FIELD(ZoVelDhcpServer, lan_ip, 292);
VELCONFIG_CHECK_FIELD(ZoVelDhcpServer, subnet_mask, 308);
static_assert(sizeof(ZoVelDhcpServer) == 328, "DHCP server record is 328 bytes");

VELCONFIG_CHECK_FIELD(ZoVelDdnsServer, enable, 256);
VELCONFIG_CHECK_FIELD(ZoVelDdnsServer, provider, 261);
VELCONFIG_CHECK_FIELD(ZoVelDdnsServer, username, 325);
VELCONFIG_CHECK_FIELD(ZoVelDdnsServer, password, 357);
VELCONFIG_CHECK_FIELD(ZoVelDdnsServer, domain, 396);
VELCONFIG_CHECK_FIELD(ZoVelDdnsServer, hostname, 460);
static_assert(sizeof(ZoVelDdnsServer) == 604, "DDNS server record is 604 bytes");

VELCONFIG_CHECK_FIELD(ZoVelIptvInfo, enable, 256);
VELCONFIG_CHECK_FIELD(ZoVelIptvInfo, vlan_id, 260);
VELCONFIG_CHECK_FIELD(ZoVelIptvInfo, bound_ports, 264);
static_assert(sizeof(ZoVelIptvInfo) == 300, "IPTV record is 300 bytes");

VELCONFIG_CHECK_FIELD(ZoVelPortMapping, enable, 256);
VELCONFIG_CHECK_FIELD(ZoVelPortMapping, external_port, 328);
VELCONFIG_CHECK_FIELD(ZoVelPortMapping, internal_port, 332);
VELCONFIG_CHECK_FIELD(ZoVelPortMapping, protocol, 336);
VELCONFIG_CHECK_FIELD(ZoVelPortMapping, client, 344);
VELCONFIG_CHECK_FIELD(ZoVelPortMapping, description, 360);
static_assert(sizeof(ZoVelPortMapping) == 396, "port-mapping record is 396 bytes");

VELCONFIG_CHECK_FIELD(ZoVelWlanDevice, ssid, 256);
VELCONFIG_CHECK_FIELD(ZoVelWlanDevice, enable, 292);
VELCONFIG_CHECK_FIELD(ZoVelWlanDevice, beacon_type, 304);
VELCONFIG_CHECK_FIELD(ZoVelWlanDevice, standard, 337);
VELCONFIG_CHECK_FIELD(ZoVelWlanDevice, wep_level, 353);
VELCONFIG_CHECK_FIELD(ZoVelWlanDevice, basic_auth, 417);
VELCONFIG_CHECK_FIELD(ZoVelWlanDevice, wpa_encryption, 433);
VELCONFIG_CHECK_FIELD(ZoVelWlanDevice, tx_power, 488);
VELCONFIG_CHECK_FIELD(ZoVelWlanDevice, high_power_class, 492);
VELCONFIG_CHECK_FIELD(ZoVelWlanDevice, passphrase, 496);
VELCONFIG_CHECK_FIELD(ZoVelWlanDevice, band_label, 624);
static_assert(sizeof(ZoVelWlanDevice) == 1000, "WLAN device record is 1000 bytes");

VELCONFIG_CHECK_FIELD(ZoVelWiFiInfo, standards, 264);
VELCONFIG_CHECK_FIELD(ZoVelWiFiInfo, dual_band, 328);
VELCONFIG_CHECK_FIELD(ZoVelWiFiInfo, block1, 448);
VELCONFIG_CHECK_FIELD(ZoVelWiFiInfo, block2, 496);
static_assert(sizeof(ZoVelWiFiInfo) == 504, "Wi-Fi information record is 504 bytes");

VELCONFIG_CHECK_FIELD(ZoVelWiFiTimer, start_time, 256);
VELCONFIG_CHECK_FIELD(ZoVelWiFiTimer, end_time, 264);
VELCONFIG_CHECK_FIELD(ZoVelWiFiTimer, repeat_mode, 272);
VELCONFIG_CHECK_FIELD(ZoVelWiFiTimer, enable, 280);
VELCONFIG_CHECK_FIELD(ZoVelWiFiTimer, ssid_mask, 284);
static_assert(sizeof(ZoVelWiFiTimer) == 288, "Wi-Fi timer record is 288 bytes");

VELCONFIG_CHECK_FIELD(ZoVelAppRecord, second, 128);
VELCONFIG_CHECK_FIELD(ZoVelAppRecord, third, 256);
VELCONFIG_CHECK_FIELD(ZoVelAppRecord, state, 272);
static_assert(sizeof(ZoVelAppRecord) == 276, "application record is 276 bytes");

VELCONFIG_CHECK_FIELD(ZoVelUsbDevice, device_class, 256);
VELCONFIG_CHECK_FIELD(ZoVelUsbDevice, name, 264);
VELCONFIG_CHECK_FIELD(ZoVelUsbDevice, mount_path, 464);
VELCONFIG_CHECK_FIELD(ZoVelUsbDevice, total_size, 592);
VELCONFIG_CHECK_FIELD(ZoVelUsbDevice, used_size, 600);
VELCONFIG_CHECK_FIELD(ZoVelUsbDevice, label, 616);
static_assert(sizeof(ZoVelUsbDevice) == 744, "USB device record is 744 bytes");

VELCONFIG_CHECK_FIELD(ZoVelFolderEntry, is_folder, 512);
VELCONFIG_CHECK_FIELD(ZoVelFolderEntry, size, 520);
VELCONFIG_CHECK_FIELD(ZoVelFolderEntry, time, 528);
static_assert(sizeof(ZoVelFolderEntry) == 552, "folder entry record is 552 bytes");

VELCONFIG_CHECK_FIELD(ZoVelEasymeshConfig, enable, 256);
VELCONFIG_CHECK_FIELD(ZoVelEasymeshConfig, enable_2g, 260);
VELCONFIG_CHECK_FIELD(ZoVelEasymeshConfig, enable_5g, 264);
VELCONFIG_CHECK_FIELD(ZoVelEasymeshConfig, ssid_2g, 268);
VELCONFIG_CHECK_FIELD(ZoVelEasymeshConfig, ssid_5g, 332);
VELCONFIG_CHECK_FIELD(ZoVelEasymeshConfig, auth_2g, 396);
VELCONFIG_CHECK_FIELD(ZoVelEasymeshConfig, auth_5g, 412);
VELCONFIG_CHECK_FIELD(ZoVelEasymeshConfig, key_2g, 428);
VELCONFIG_CHECK_FIELD(ZoVelEasymeshConfig, key_5g, 508);
static_assert(sizeof(ZoVelEasymeshConfig) == 588, "EasyMesh configuration record is 588 bytes");

static_assert(sizeof(ZoVelObjPath) == 256 && sizeof(ZoVelUsbId) == 256, "path blocks are 256 bytes");

#undef VELCONFIG_CHECK_FIELD
#endif  // __cplusplus
