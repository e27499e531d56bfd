#!/usr/bin/env bash
# The module and the project's uci against OpenWrt's own uci: builds it from the
# pinned snapshot (build-uci.sh), puts a uci that runs it on the simulator's file root
# into build-deps/real-uci-bin, and runs the tests labelled real_uci in the build
# folder ($BUILD, default build): the module's uci paths with it, with an empty
# environment too, and the project's uci compared with it command by command.
# Skips with a notice when ../shared/deps is missing outside CI (see common.sh).
set -euo pipefail
cd "$(dirname "$0")/../.."
build=${BUILD:-build}
uci=$(tools/deps/build-uci.sh)
[ -n "$uci" ] || exit 0
bin="$PWD/build-deps/real-uci-bin"
mkdir -p "$bin"
"${CC:-cc}" -std=c11 -D_DEFAULT_SOURCE -Wall -Wextra -Werror -O2 -DREAL_UCI="\"$uci\"" \
  tools/deps/uci_rooted.c -o "$bin/uci"
cmake -S . -B "$build" -DVELCONFIG_REAL_UCI="$uci" -DVELCONFIG_REAL_UCI_TOOLS="$bin" > /dev/null
cmake --build "$build" -j2 > /dev/null
cd "$build"
ctest -L real_uci --output-on-failure
