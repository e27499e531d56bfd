#!/usr/bin/env bash
# Builds velconfig.so for the gateway against a libcapi3.so built on its own (our
# simulator standing in for the platform), then checks what the module exports and
# that the interpreter loads it and gets an answer through the platform library.
# tools/arm64-test.sh runs the same check on the aarch64 cross-build: it names other
# build folders, a toolchain file, the cross nm and an arm64 interpreter. UBOX_PREFIX
# names a libubox built from the gateway's sources to build and load against.
set -euo pipefail
cd "$(dirname "$0")/.."
capi3_build=${CAPI3_BUILD:-build-capi3}
gw_build=${GW_BUILD:-build-gw}
nm=${NM:-nm}
lua=${LUA:-lua5.1}
cross=()
if [ -n "${TOOLCHAIN_FILE:-}" ]; then cross=(-DCMAKE_TOOLCHAIN_FILE="$TOOLCHAIN_FILE"); fi
mkdir -p "$capi3_build"
prefix="$(cd "$capi3_build" && pwd)/prefix"

cmake -S tests/gateway_link -B "$capi3_build" -DCMAKE_BUILD_TYPE=Release "${cross[@]}" > /dev/null
cmake --build "$capi3_build" -j2 > /dev/null
cmake --install "$capi3_build" --prefix "$prefix" > /dev/null

ubox=${UBOX_PREFIX:-}
cmake -S . -B "$gw_build" -DVELCONFIG_PLATFORM=gateway -DCMAKE_PREFIX_PATH="$prefix${ubox:+;$ubox}" \
  -DVELCONFIG_WERROR=ON "${cross[@]}" > /dev/null
cmake --build "$gw_build" -j2 > /dev/null

READELF=${READELF:-readelf} NM="$nm" tools/elf-check.sh "$gw_build/velconfig.so"
readelf -d "$gw_build/velconfig.so" | grep -q 'NEEDED.*libcapi3.so' || { echo "gateway module does not link libcapi3" >&2; exit 1; }
if [ -n "$ubox" ]; then
  readelf -d "$gw_build/velconfig.so" | grep -q 'NEEDED.*libubox.so' || { echo "gateway module does not link libubox" >&2; exit 1; }
fi

answer=$(cd "$gw_build" && LD_LIBRARY_PATH="$prefix/lib${ubox:+:$ubox/lib}" LUA_CPATH="./?.so" VELCONFIG_ROOT="$PWD/root" \
  "$lua" -e 'local v = require "velconfig"; io.write(v:get("hasWiFi"), " ", v:set("reboot"))')
[ "$answer" = "1 0" ] || { echo "gateway module answered '$answer'" >&2; exit 1; }
echo "gateway build: links libcapi3.so${ubox:+ and $ubox/lib/libubox.so}, answers through it"
