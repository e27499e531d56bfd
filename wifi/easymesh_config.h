/* The module's one C function for other gateway programs besides the Lua open
 * function: the EasyMesh settings, read into a record the caller owns. Usable from C. */
#ifndef VELCONFIG_WIFI_EASYMESH_CONFIG_H
#define VELCONFIG_WIFI_EASYMESH_CONFIG_H

#include <stdint.h>

#include "platform/records.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Fills the fields of *config whose properties the EasyMesh service reports, and the
 * object path; clear the record first. 0 on success, -1 when config is null, the
 * service cannot be read or reports no property. Keeps nothing between calls. */
int32_t ZoVelGetEasymeshConfigInfo(ZoVelEasymeshConfig* config);

#ifdef __cplusplus
}
#endif

#endif
