-- luacheck for tools/lint.sh (make lint): the CLI, the console, the catalogue
-- tools, the soak benchmark and the busted suites; every warning fails the run.
-- The module is loaded by Lua 5.1 (or LuaJIT's 5.1 ABI), so only 5.1's globals exist.
std = "lua51"

-- Line length is layout, not a fault: table-driven test rows and long expected
-- texts read best on one line, and no formatter owns the Lua files.
max_line_length = false

-- The suites run under busted, which provides describe/it/assert/spy and friends.
files["tests/*_test.lua"] = { std = "+busted" }
files["tests/real_uci/*_test.lua"] = { std = "+busted" }
