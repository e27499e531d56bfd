// Our declarations of the gateway platform library's operations (libcapi3).
// Results are 0 for success unless noted. Lists are allocated by the library and
// released by the caller with g_free (ZoVelListApp: free). Object path and USB
// identity blocks travel by value; statuses, counts and flags by address.
#pragma once

#include <glib.h>
#include <stdint.h>

#include "platform/records.h"

#ifdef __cplusplus
extern "C" {
#endif

// Logging
int32_t ZoVelLogOpen(int32_t facility, const char* tag);
int32_t ZoVelLogClose(void);
void ZoVelLog(int32_t level, const char* format, ...) G_GNUC_PRINTF(2, 3);

// Capabilities and D-Bus access
int32_t ZoVelSupportWiFi(int32_t* flag);
int32_t ZoVelSupportUSB(int32_t* flag);
int32_t ZoVelDBusGetProperty(const char* service, const char* path, const char* interface,
                             const char* property, GVariant** value);
int32_t ZoVelDBusGetAllProperty(const char* service, const char* path, const char* interface,
                                GVariant** value);
// Consumes a floating value.
int32_t ZoVelDBusSetProperty(const char* service, const char* path, const char* interface,
                             const char* property, GVariant* value);
// The caller keeps its reference to the dictionary and releases it after the call.
int32_t ZoVelDBusSetMultiProperty(const char* service, const char* path, const char* interface,
                                  GVariant* dictionary);
int32_t ZoVelDBusCallMethod(const char* service, const char* path, const char* interface, const char* method,
                            GVariant* parameters, GVariant** reply, int32_t timeout);

// Device, network and hosts
int32_t ZoVelGetDeviceInfo(ZoVelDeviceInfo* info);
int32_t ZoVelGetNetworkInfo(ZoVelNetworkInfo* info);
int32_t ZoVelGetPPPoEConfig(ZoVelPPPoEConfig* config);
int32_t ZoVelGetOnlineDeviceList(ZoVelLanHost** hosts, int32_t* count, void* reserved1, void* reserved2);
int32_t ZoVelGetOnlineDeviceListExtWithIPv6(ZoVelLanHostExt** hosts, int32_t* count, void* reserved1,
                                            void* reserved2);
int32_t ZoVelGetOnlineDevicesSnapShot(ZoVelDeviceSnapshot** devices, int32_t* count, void* reserved1,
                                      void* reserved2);
int32_t ZoVelGetLANHostByMAC(const char* mac, ZoVelLanHost* host);
int32_t ZoVelGetLANHostExtWithIPv6Objs(ZoVelLanHostExt** hosts, int32_t* count);
int32_t ZoVelGetDHCPServer(ZoVelDhcpServer* server);

// Services
int32_t ZoVelGetDDNSServerObjs(ZoVelDdnsServer** servers, int32_t* count);
int32_t ZoVelAddDDNSServerInstance(ZoVelDdnsServer* server);
int32_t ZoVelSetDDNSServerInstance(ZoVelObjPath path, ZoVelDdnsServer* server);
int32_t ZoVelDelDDNSServerInstance(ZoVelObjPath path);
int32_t ZoVelGetSubIPTVInfo(ZoVelIptvInfo* iptv);
int32_t ZoVelSetSubIPTVInfo(ZoVelIptvInfo* iptv);
int32_t ZoVelGetPortMappingObjs(ZoVelPortMapping** rules, int32_t* count);
int32_t ZoVelAddPortMapping(ZoVelPortMapping* rule);
int32_t ZoVelDelPortMapping(ZoVelObjPath path);

// Wi-Fi
int32_t ZoVelGetWLANDeviceObjs(ZoVelWlanDevice** devices, uint32_t* count);
int32_t ZoVelSetWLANDevice(ZoVelObjPath path, ZoVelWlanDevice* device);
int32_t ZoVelGetWiFiInfo(ZoVelWiFiInfo* info);
int32_t ZoVelGetWiFiTimer(ZoVelWiFiTimer* timer);
int32_t ZoVelSetWiFiTimer(ZoVelWiFiTimer* timer);

// System commands: outcome through the status variable
int32_t ZoVelSysCmdCheckUAPasswd(const char* password, int32_t* status, void* reserved);
int32_t ZoVelSysCmdSetUAPasswd(const char* password, int32_t* status, void* reserved);
int32_t ZoVelSysCmdCheckTAPasswd(const char* password, int32_t* status, void* reserved);
int32_t ZoVelSysCmdLocalRecovery(int32_t* status, void* reserved);
int32_t ZoVelSysCmdReboot(void* reserved1, void* reserved2);
int32_t ZoVelSysCmdSetLOID(const char* loid, const char* password, void* reserved1, void* reserved2,
                           void* reserved3);
int32_t ZoVelSysCmdRegisterLOID(int32_t* status, void* reserved);
// text may be null; a non-empty text it returns is released with g_free.
int32_t ZoVelSysCmdCheckLOID(int32_t* status, char** text);

// Applications and plugins
int32_t ZoVelStartApp(const char* name);
int32_t ZoVelListApp(ZoVelAppRecord** apps, int32_t* count);
// Returns the reply (released with g_free) or null.
char* ZoVelPostMsg(const char* app, const char* command);

// USB storage
int32_t ZoVel_GetUSBDeviceObjs(ZoVelUsbDevice** devices, int32_t* count);
int32_t ZoVel_USBSetLabel(ZoVelUsbId id, const char* label, void* reserved1, void* reserved2);
int32_t ZoVel_USBFormat(ZoVelUsbId id, void* reserved1, void* reserved2);
int32_t ZoVel_NAS_GetFileNum(const char* folder, uint32_t* count, int32_t* status, void* reserved);
int32_t ZoVel_NAS_ListFolder(const char* folder, int32_t first, uint32_t number, ZoVelFolderEntry** entries,
                             int32_t* status, void* reserved);
int32_t ZoVel_NAS_CreateFolter(const char* path, int32_t* status, void* reserved);
int32_t ZoVel_NAS_Remove(const char* path, int32_t* status, void* reserved);
int32_t ZoVel_NAS_ReName(const char* old_path, const char* new_path, void* reserved1, void* reserved2);
int32_t ZoVel_NAS_Copy(const char* source, const char* destination, int32_t* transfer, int32_t* status,
                       void* reserved);
int32_t ZoVel_NAS_Move(const char* source, const char* destination, int32_t* status, void* reserved);
int32_t ZoVel_NAS_GetCopyProgress(int32_t transfer, uint32_t* percent, void* reserved1, void* reserved2);

#ifdef __cplusplus
}  // extern "C"
#endif

#ifdef __cplusplus
namespace velconfig {
// Platform log levels, numbered as syslog numbers them.
constexpr int32_t kLogError = 3;
constexpr int32_t kLogNotice = 5;
constexpr int32_t kLogDebug = 7;
}  // namespace velconfig
#endif
