#!/usr/bin/env bash
# Checks a built velconfig.so the way a gateway's loader will take it: no static TLS
# (musl's dlopen refuses a library with initial-exec TLS; glibc takes it from a small
# reserve other modules need), no TPOFF relocations, no text relocations, and exactly
# the two exported symbols. READELF and NM name the binutils for the module's target.
set -euo pipefail
module=${1:?usage: elf-check.sh MODULE}
readelf=${READELF:-readelf}
nm=${NM:-nm}
fail=0
dynamic=$("$readelf" -dW "$module")
if grep -q 'STATIC_TLS' <<<"$dynamic"; then echo "$module: FLAGS STATIC_TLS (initial-exec TLS)" >&2; fail=1; fi
if grep -q 'TEXTREL' <<<"$dynamic"; then echo "$module: TEXTREL (text relocations)" >&2; fail=1; fi
tpoff=$("$readelf" -rW "$module" | grep -c 'TPOFF' || true)
if [ "$tpoff" != 0 ]; then echo "$module: $tpoff TPOFF relocations (initial-exec TLS)" >&2; fail=1; fi
exports=$("$nm" -D --defined-only "$module" | awk '$2 ~ /^[A-TV-Z]$/ {print $3}' | sort | tr '\n' ' ')
if [ "$exports" != "ZoVelGetEasymeshConfigInfo luaopen_velconfig " ]; then
  echo "$module: should export exactly luaopen_velconfig and ZoVelGetEasymeshConfigInfo, not: $exports" >&2
  fail=1
fi
[ "$fail" = 0 ] && echo "$module: no static TLS, no TPOFF or text relocations, exports $exports"
exit "$fail"
