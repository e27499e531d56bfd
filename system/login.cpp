// "account", "checkTAPasswd", "checkUAPasswd" and "logInfo": the web login checks,
// the ordinary user's password change and the audit notes. The platform keeps the
// passwords and any lock-out; this side turns its verdict into a result code.
#include <string_view>

#include "common/table_field.h"
#include "platform/zovel.h"
#include "system/system.h"

namespace velconfig {
namespace {

constexpr int32_t kAccountFailed = 3;

}  // namespace

// 0 changed; 1 the current password was rejected with status 1, or a password is
// not a clean text (the platform is not asked); 2 the change was refused with a
// status; 3 any other failure, a password longer than its field among them (the
// platform is not asked: a cut password would lock the user out). Without a table
// both texts are empty.
int32_t change_account_password(lua_State* L) {
  char old_password[256] = {};
  char new_password[32] = {};
  int32_t status = 0;
  if (lua_istable(L, -1)) {
    SecretText old_text = read_secret(L, "old", old_password);
    SecretText new_text = read_secret(L, "new", new_password);
    if (old_text == SecretText::kNotClean || new_text == SecretText::kNotClean) return kTextRefused;
    if (old_text == SecretText::kTooLong || new_text == SecretText::kTooLong) return kAccountFailed;
  }
  if (ZoVelSysCmdCheckUAPasswd(old_password, &status, nullptr) != 0 || status != 0) {
    ZoVelLog(kLogNotice, "验证普通用户当前密码失败，修改失败。");
    return status == 1 ? 1 : kAccountFailed;
  }
  ZoVelLog(kLogNotice, "验证普通用户当前密码成功。");
  if (ZoVelSysCmdSetUAPasswd(new_password, &status, nullptr) == 0) {
    ZoVelLog(kLogNotice, "修改普通用户密码成功。");
    return 0;
  }
  ZoVelLog(kLogNotice, "修改普通用户密码失败。");
  return status != 0 ? 2 : kAccountFailed;
}

// 0 accepted, 1 rejected. A check that writes no status counts as rejected, and so
// does a password that is not a clean text: the platform would see only its part
// up to a NUL byte.
int32_t check_admin_password(lua_State* L) {
  int32_t status = 1;
  TopText password = read_top_text(L);
  if (password.clean) ZoVelSysCmdCheckTAPasswd(password.text, &status, nullptr);
  if (status != 0) return 1;
  ZoVelLog(kLogNotice, "登录网关管理WEB成功。");
  return 0;
}

int32_t check_user_password(lua_State* L) {
  int32_t status = 1;
  TopText password = read_top_text(L);
  if (password.clean) ZoVelSysCmdCheckUAPasswd(password.text, &status, nullptr);
  if (status == 0) {
    ZoVelLog(kLogNotice, "登录网关普通WEB成功。");
    return 0;
  }
  ZoVelLog(kLogNotice, "登录网关WEB失败。");
  return 1;
}

// The pages report logout, lock and unlock; the module only notes them.
int32_t log_login_event(lua_State* L) {
  TopText top = read_top_text(L);
  // Compared over the whole text: "lock" with a NUL byte and a tail is no lock.
  std::string_view event(top.text, top.length);
  if (event == "logout") {
    ZoVelLog(kLogNotice, "用户退出并注销普通WEB页面访问。");
  } else if (event == "lock") {
    ZoVelLog(kLogNotice, "用户输入密码错误超过3次已锁定，请等待一分钟后再试。");
  } else if (event == "unlock") {
    ZoVelLog(kLogNotice, "已解锁，用户可重新输入密码尝试登录。");
  }
  return 0;
}

}  // namespace velconfig
