#!/usr/bin/env bash
# Builds velconfig.so for the gateway against a libcapi3.so built on its own (our
# simulator standing in for the platform), then checks what the module exports and
# that the interpreter loads it and gets an answer through the platform library.
set -euo pipefail
cd "$(dirname "$0")/.."
prefix="$PWD/build-capi3/prefix"

cmake -S tests/gateway_link -B build-capi3 -DCMAKE_BUILD_TYPE=Release > /dev/null
cmake --build build-capi3 -j2 > /dev/null
cmake --install build-capi3 --prefix "$prefix" > /dev/null

cmake -S . -B build-gw -DVELCONFIG_PLATFORM=gateway -DCMAKE_PREFIX_PATH="$prefix" -DVELCONFIG_WERROR=ON > /dev/null
cmake --build build-gw -j2 > /dev/null

exports=$(nm -D --defined-only build-gw/velconfig.so | awk '$2 ~ /^[TDBR]$/ {print $3}' | sort | tr '\n' ' ')
case "$exports" in
  "ZoVelGetEasymeshConfigInfo luaopen_velconfig ") ;;
  *) echo "gateway module should export exactly luaopen_velconfig and ZoVelGetEasymeshConfigInfo, not: $exports" >&2; exit 1 ;;
esac
readelf -d build-gw/velconfig.so | grep -q 'NEEDED.*libcapi3.so' || { echo "gateway module does not link libcapi3" >&2; exit 1; }

answer=$(cd build-gw && LD_LIBRARY_PATH="$prefix/lib" LUA_CPATH="./?.so" VELCONFIG_ROOT="$PWD/root" \
  lua5.1 -e 'local v = require "velconfig"; io.write(v:get("hasWiFi"), " ", v:set("reboot"))')
[ "$answer" = "1 0" ] || { echo "gateway module answered '$answer'" >&2; exit 1; }
echo "gateway build: links libcapi3.so, exports $exports, answers through it"
