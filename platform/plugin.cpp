// The plugin command channel: post, log, parse and release.
#include "platform/plugin.h"

#include "platform/zovel.h"

namespace velconfig {

bool PluginExchange::post(const char* app, const char* command, const char* reply_format, Reply handling) {
  char* reply = ZoVelPostMsg(app, command);
  if (reply == nullptr) return false;
  text_.adopt(reply);
  if (reply_format != nullptr) ZoVelLog(kLogNotice, reply_format, reply);
  if (handling == Reply::kParse) document_.adopt(json_loads(reply, 0, nullptr));
  return true;
}

void PluginExchange::finish() {
  document_.release();
  text_.release();
}

}  // namespace velconfig
