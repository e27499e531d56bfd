#!/usr/bin/env bash
# The module against the gateway's own event-loop library, libubox, built from its
# pinned snapshot (tools/deps/build-libubox.sh): the gateway-mode module built against
# it with warnings as errors and loaded through the test platform library (as
# tools/gateway-check.sh does), then the PC build against it running the event-loop
# check, the app market's guest check (signals, children, the server's loop) and the
# app market's busted file over the real uloop and usock.
set -euo pipefail
cd "$(dirname "$0")/../.."
ubox=$(tools/deps/build-libubox.sh)
[ -n "$ubox" ] || exit 0  # no snapshot outside CI: build-libubox.sh said so
out=${UBOX_BUILD:-build-ubox}
mkdir -p "$out"
out=$(cd "$out" && pwd)

UBOX_PREFIX="$ubox" CAPI3_BUILD="$out/capi3" GW_BUILD="$out/gw" tools/gateway-check.sh

cmake -S . -B "$out/pc" -DCMAKE_PREFIX_PATH="$ubox" -DVELCONFIG_WERROR=ON > /dev/null
cmake --build "$out/pc" -j"${JOBS:-2}" > /dev/null
readelf -d "$out/pc/velconfig.so" | grep -q 'NEEDED.*libubox.so' || { echo "PC module does not link libubox" >&2; exit 1; }
(cd "$out/pc" && ctest --output-on-failure --no-tests=error -R '^(uloop_check|app_market_loop_check|app_market_test)$')
echo "libubox check: $ubox/lib/libubox.so"
