// Simulated plugin messages. No plugin is installed in this model yet, so a posted
// command gets no reply, as the platform answers for a plugin that is not there.
#include "platform/zovel.h"
#include "sim/sim.h"

extern "C" char* ZoVelPostMsg(const char* app, const char* command) {
  velsim::operation("ZoVelPostMsg", json_pack("{s:s?,s:s?}", "app", app, "command", command),
                    [] { return 0; });
  return nullptr;
}
