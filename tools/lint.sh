#!/usr/bin/env bash
# Static checks (make lint): the module's ownership and layering rules
# (tools/lint_rules.lua), clang-tidy and cppcheck over every C++ source of the tree,
# luacheck over every Lua source. Any finding fails the run. The checks and
# the reasons for what they leave out live in .clang-tidy and .luacheckrc; the
# cppcheck options are below.
#
# The C++ sources come from the build's compile database (so a file added to any
# CMake target is checked with its own flags) plus every tracked .cpp file that this
# simulator build does not compile, such as the gateway's seams. Nothing is listed
# by name here: new folders and files are picked up as they land.
set -uo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=${LINT_BUILD:-build-lint}
jobs=${LINT_JOBS:-2}

sources() {  # tracked files matching the patterns, or the tree's files without git
  if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
    git ls-files -- "$@"
  else
    local args=() p
    for p in "$@"; do args+=(-o -name "${p##*/}"); done
    find . -path ./build\* -prune -o -name node_modules -prune -o \( -false "${args[@]}" \) -print | sed 's|^\./||'
  fi
}

start=$(date +%s)
failed=0

# The ownership and layering rules read the sources' text only, so they run first
# and need no build.
echo "lint: ownership and layering"
# shellcheck disable=SC2046  # one word per file name; our file names have no spaces
if ! lua5.1 tools/lint_rules.lua $(sources '*.cpp' '*.h'); then
  echo "lint: the ownership or layering rule is broken" >&2
  failed=1
fi

cmake -S . -B "$build" -DCMAKE_EXPORT_COMPILE_COMMANDS=ON >/dev/null || exit 1
mkdir -p "$build/lint"
# shellcheck disable=SC2046  # one word per file name; our file names have no spaces
lua5.1 tools/lint_db.lua "$root" "$build/compile_commands.json" "$build/lint/compile_commands.json" \
  $(sources '*.cpp') >"$build/lint/files" || exit 1
echo "lint: $(wc -l <"$build/lint/files") C++ sources"

# clang-tidy: one file per run, $jobs at a time; only a failing file's report is
# printed (without clang's count of the warnings it filtered out of system headers).
echo "lint: clang-tidy"
# shellcheck disable=SC2016  # $1 and $out belong to the inner shell
if ! xargs -P "$jobs" -n 1 sh -c \
  'out=$(clang-tidy -p "$0" --quiet --header-filter="^$1/" "$2" 2>&1) ||
     { printf "%s\n" "$out" | grep -v "^[0-9]* warnings* generated\.$"; exit 1; }' \
  "$build/lint" "$root" <"$build/lint/files"; then
  echo "lint: clang-tidy found problems" >&2
  failed=1
fi
tidy_done=$(date +%s)

# cppcheck: warnings, performance and portability findings. The only suppression is
# missingIncludeSystem: cppcheck does not read the C library's and GLib's headers
# (it knows them from its own configuration), so it would report each one as missing.
# Findings it gets wrong are suppressed in place with // cppcheck-suppress and a reason.
echo "lint: cppcheck"
if ! cppcheck --project="$build/lint/compile_commands.json" --enable=warning,performance,portability \
  --error-exitcode=1 --inline-suppr --suppress=missingIncludeSystem -j "$jobs" --quiet \
  --template='{file}:{line}:{column}: {severity}: {message} [{id}]'; then
  echo "lint: cppcheck found problems" >&2
  failed=1
fi

# luacheck: every Lua source and the command-line tool's script (Lua before
# configure_file fills in its paths).
echo "lint: luacheck"
# shellcheck disable=SC2046
if ! luacheck --quiet --formatter plain $(sources '*.lua') tools/velconfig.in; then
  echo "lint: luacheck found problems" >&2
  failed=1
fi

end=$(date +%s)
echo "lint: $((end - start)) s (clang-tidy $((tidy_done - start)) s)"
if [ "$failed" -ne 0 ]; then
  echo "lint: FAILED" >&2
  exit 1
fi
echo "lint: clean"
