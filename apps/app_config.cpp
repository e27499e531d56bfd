// "getAppConfig": the pages' fixed application settings; no platform service is asked.
#include "apps/apps.h"
#include "common/result.h"

namespace velconfig {

void get_app_config(lua_State* L, const GetArgs&) {
  lua_newtable(L);
  begin_row(L, "app%d", 1);
  set_text(L, "name", "test");
  set_text(L, "title", "APP TEST");
  set_text(L, "src", "test");
  end_row(L);
  set_number(L, "appCnt", 0);
}

}  // namespace velconfig
