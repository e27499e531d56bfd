#!/bin/sh
# Runs the soak (bench/soak.lua) against the simulator build in a scratch file root.
# BUILD_DIR names the build (default build); CALLS and SAMPLE_EVERY as arguments.
set -eu
here=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$here/build}
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
VELCONFIG_ROOT=$root VELCONFIG_CATALOGUE=$build/keys.json LUA_PATH="$here/tools/?.lua;;" \
  LUA_CPATH="$build/?.so;$build/sim/?.so;;" ${LUA:-lua5.1} "$here/bench/soak.lua" "$@"
