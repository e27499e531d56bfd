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

-- The page runner hands a page uhttpd's globals, takes its handle_request and gives
-- it the arg lua would; `velconfig run` gives a script its arg the same way.
files["tools/pages/page_runner.lua"] = { globals = { "uhttpd", "handle_request", "arg" } }
files["tools/velconfig_run.lua"] = { globals = { "arg" } }
-- Example pages: a handler page defines handle_request and calls uhttpd.
files["examples/pages/*.lua"] = { globals = { "handle_request" }, read_globals = { "uhttpd" } }
