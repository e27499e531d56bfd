// "interConndStatus": the plugin's status as a table of its own.
#include "common/interconnect_status.h"
#include "interconnect/interconnect.h"

namespace velconfig {

void get_interconnd_status(lua_State* L, const GetArgs&) { getVelInterConndPluginStatus(L, 1); }

}  // namespace velconfig
