// The two Lua-visible entry points and the key tables they route by.
#pragma once

#include <stdint.h>

#include <lua.hpp>
#include <string_view>
#include <utility>

#include "common/key_row.h"

namespace velconfig {

// Looks key up in the tables, in order, comparing its whole length: a key that
// holds a NUL byte matches no row. Null when unknown.
GetHandler find_get_handler(std::string_view key);
SetHandler find_set_handler(std::string_view key);

// The rows of each table, in comparison order.
std::pair<const GetRow*, size_t> get_keys();
std::pair<const SetRow*, size_t> set_keys();

int get_entry(lua_State* L);
int set_entry(lua_State* L);

}  // namespace velconfig
