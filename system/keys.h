// The login, account and system action keys.
#pragma once

#include "common/key_row.h"
#include "system/system.h"

namespace velconfig {

inline constexpr SetRow kSystemSetRows[] = {
    {1, "account", change_account_password, "table: old, new (the user password change)",
     "0 changed, 1 current password rejected, 2 change refused, 3 other failure", true},
    {16, "restore", set_restore, "", "the recovery status", true},
    {17, "fwrestore", set_fwrestore, "", "0", true},
    {18, "reboot", set_reboot, "", "0", true},
    {19, "checkTAPasswd", check_admin_password, "text: the administrator password", "0 accepted, 1 rejected",
     false},
    {20, "checkUAPasswd", check_user_password, "text: the user password", "0 accepted, 1 rejected", false},
    {25, "logInfo", log_login_event, "text: \"logout\", \"lock\" or \"unlock\"", "0", false},
};

}  // namespace velconfig
