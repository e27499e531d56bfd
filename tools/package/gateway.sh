#!/usr/bin/env bash
# The gateway archive: the aarch64 module built for the gateway and the velconfig
# script, laid out as on the gateway's root file system (usr/lib/lua/5.1/velconfig.so,
# usr/bin/velconfig, usr/share/velconfig/ with gateway-needs.txt, what the module needs
# from the gateway), in velconfig-VERSION-gateway-aarch64.tar.gz.
#   tools/package/gateway.sh KEYS.json [BUILD_DIR]
# KEYS.json is a PC build's key catalogue (for `velconfig dump` on the gateway). The
# module links libcapi3 by name: the simulator built as an arm64 libcapi3.so stands in
# for the gateway's at link time only and is not part of the archive.
set -euo pipefail
cd "$(dirname "$0")/../.."
catalogue=$(realpath "${1:?usage: gateway.sh KEYS.json [BUILD_DIR]}")
out=${2:-build-pkg-gateway}
mkdir -p "$out"
out=$(cd "$out" && pwd)
toolchain=$PWD/cmake/aarch64-linux-gnu.cmake
jobs=${JOBS:-2}

cmake -S tests/gateway_link -B "$out/capi3" -DCMAKE_BUILD_TYPE=Release -DCMAKE_TOOLCHAIN_FILE="$toolchain" > /dev/null
cmake --build "$out/capi3" -j"$jobs" > /dev/null
cmake --install "$out/capi3" --prefix "$out/capi3/prefix" > /dev/null

# The gateway's interpreter is "lua" on its PATH; its C modules are under /usr/lib/lua/5.1.
cmake -S . -B "$out/gw" -DVELCONFIG_PLATFORM=gateway -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
  -DCMAKE_PREFIX_PATH="$out/capi3/prefix" -DCMAKE_INSTALL_PREFIX=/usr -DVELCONFIG_LUA_CMODDIR=lib/lua/5.1 \
  -DVELCONFIG_INTERPRETER=lua -DVELCONFIG_GATEWAY_CATALOGUE="$catalogue" -DVELCONFIG_WERROR=ON > /dev/null
cmake --build "$out/gw" -j"$jobs" > /dev/null
(cd "$out/gw" && cpack -G TGZ > /dev/null)

archive=$(ls "$out"/gw/velconfig-*-gateway-aarch64.tar.gz)
stage=$out/check && rm -rf "$stage" && mkdir -p "$stage" && tar -xzf "$archive" -C "$stage"
module=$stage/usr/lib/lua/5.1/velconfig.so
readelf -h "$module" | grep -q 'Machine: *AArch64' || { echo "the archive's module is not aarch64" >&2; exit 1; }
readelf -d "$module" | grep -q 'NEEDED.*libcapi3.so' || { echo "the archive's module does not link libcapi3" >&2; exit 1; }
share=$stage/usr/share/velconfig
for f in keys.json gateway-needs.txt lua/velconfig_json.lua lua/velconfig_dump.lua lua/velconfig_run.lua lua/velconfig_usage.lua; do
  [ -f "$share/$f" ] || { echo "the archive lacks usr/share/velconfig/$f" >&2; exit 1; }
done
[ -x "$stage/usr/bin/velconfig" ] || { echo "the archive lacks usr/bin/velconfig" >&2; exit 1; }
grep -q '^    ZoVelGetDeviceInfo$' "$share/gateway-needs.txt" || { echo "gateway-needs.txt lists no ZoVel operation" >&2; exit 1; }
# The archive's tool offers only what the archive holds: no console, no simulator. Its
# usage and its refusal need no module, so the host's Lua runs them.
help=$(lua5.1 "$stage/usr/bin/velconfig" --help)
if grep -q 'serve\|import' <<<"$help"; then echo "the archive's velconfig offers serve or import" >&2; exit 1; fi
status=0; lua5.1 "$stage/usr/bin/velconfig" serve 2>/dev/null || status=$?
[ "$status" = 2 ] || { echo "the archive's velconfig serve did not end with a usage error ($status)" >&2; exit 1; }
echo "gateway archive: $archive"
(cd "$stage" && find . -type f | sort | sed 's/^/  /')
