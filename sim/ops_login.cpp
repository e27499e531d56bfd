// Simulated web accounts: the administrator's and the ordinary user's passwords,
// each account's lock, and the verdict of a password change, all from `system`.
#include "platform/zovel.h"
#include "sim/sim.h"

using velsim::object_at;
using velsim::operation;

namespace velsim {
namespace {

constexpr int32_t kAccepted = 0;
constexpr int32_t kWrongPassword = 1;
constexpr int32_t kLocked = 2;

// Checks a password against an account: the status, or -1 without a text.
int32_t check(const char* op, const char* password, int32_t* status, const char* password_key,
              const char* lock_key) {
  return operation(op, json_pack("{s:o}", "password", shown_text(password)), [&]() -> int32_t {
    if (password == nullptr) return -1;
    json_t* system = object_at("system");
    int32_t verdict = kAccepted;
    if (flag_of(system, lock_key)) {
      verdict = kLocked;
    } else if (g_strcmp0(password, text_of(system, password_key)) != 0) {
      verdict = kWrongPassword;
    }
    if (status != nullptr) *status = verdict;
    return 0;
  });
}

}  // namespace
}  // namespace velsim

extern "C" int32_t ZoVelSysCmdCheckUAPasswd(const char* password, int32_t* status, void*) {
  return velsim::check("ZoVelSysCmdCheckUAPasswd", password, status, "user_password", "user_locked");
}

extern "C" int32_t ZoVelSysCmdCheckTAPasswd(const char* password, int32_t* status, void*) {
  return velsim::check("ZoVelSysCmdCheckTAPasswd", password, status, "admin_password", "admin_locked");
}

// A change the model refuses (`user_password_change_status` non-zero) reports that
// status and fails; a password that is not UTF-8 cannot be stored.
extern "C" int32_t ZoVelSysCmdSetUAPasswd(const char* password, int32_t* status, void*) {
  return operation("ZoVelSysCmdSetUAPasswd", json_pack("{s:o}", "password", velsim::shown_text(password)),
                   [&]() -> int32_t {
                     if (password == nullptr) return -1;
                     json_t* system = object_at("system");
                     int32_t refused =
                         static_cast<int32_t>(velsim::int_of(system, "user_password_change_status"));
                     if (refused != 0) {
                       if (status != nullptr) *status = refused;
                       return -1;
                     }
                     if (!velsim::storable_text(password)) return -3;
                     json_object_set_new(system, "user_password", json_string(password));
                     velsim::model_changed();
                     if (status != nullptr) *status = 0;
                     return 0;
                   });
}
