#!/usr/bin/env bash
# Cross-builds the module and the simulator for 64-bit ARM gateways, checks the gateway
# build against a separately built arm64 libcapi3.so, and runs the busted suite (or the
# files named as arguments) with Debian's arm64 Lua 5.1 under qemu-aarch64.
# The packages it needs are installed by `make test-arm64`.
set -euo pipefail
cd "$(dirname "$0")/.."
src=$PWD
out=${BUILD_ARM64:-build-arm64}
mkdir -p "$out"
out=$(cd "$out" && pwd)
toolchain="$src/cmake/aarch64-linux-gnu.cmake"
emu="$out/emu"

# The arm64 interpreter and the C modules busted and the tests load. lua5.1:arm64 cannot
# be installed beside the build machine's lua5.1, so the packages are only unpacked.
debs="lua5.1 lua-cjson lua-filesystem lua-system lua-term"
if [ ! -x "$emu/usr/bin/lua5.1" ]; then
  rm -rf "$emu" && mkdir -p "$emu/debs" "$emu/bin"
  pkgs=$(printf '%s:arm64 ' $debs)
  (cd "$emu/debs" && apt-get -qq -o APT::Sandbox::User=root download $pkgs) ||
    { apt-get -o DPkg::Lock::Timeout=600 update -qq && (cd "$emu/debs" && apt-get -qq -o APT::Sandbox::User=root download $pkgs); }
  for deb in "$emu"/debs/*.deb; do dpkg-deb -x "$deb" "$emu"; done
  ln -sf "$src/tools/arm64-lua" "$emu/bin/lua5.1"
fi
lua="$emu/bin/lua5.1"
"$lua" -e 'assert(require "cjson" and require "lfs" and require "system.core" and require "term.core")'

# Configured with the arm64 interpreter first on PATH: the tests' environment takes its
# PATH from the configuring one, and the CLI's "#!/usr/bin/env lua5.1" must find it.
jobs=$(nproc 2>/dev/null || echo 2)
PATH="$emu/bin:$PATH" cmake -S . -B "$out" -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DVELCONFIG_WERROR=ON \
  -DLUA51="$lua" > /dev/null
cmake --build "$out" -j"$jobs" > /dev/null

# The kernel here does not start arm64 programs itself (no binfmt_misc), yet the suite
# starts some by path: the PC uci first on PATH, the EasyMesh export check. Each arm64
# program the build made moves to <name>.arm64 and a script that runs it through
# tools/arm64-run takes its place; CTest and the build run programs through arm64-run
# too, which takes either. A program relinked later is wrapped again on the next run.
find "$out" \( -path "$emu" -o -path "$out/capi3" -o -path "$out/gw" -o -name CMakeFiles \) -prune -o \
  -type f -perm -u+x ! -name '*.so' ! -name '*.arm64' -print |
  while read -r program; do
    readelf -h "$program" 2>/dev/null | grep -q 'Machine: *AArch64' || continue
    readelf -lW "$program" | grep -q 'program interpreter' || continue
    mv -f "$program" "$program.arm64"
    printf "#!/bin/sh\nexec '%s' '%s' \"\$@\"\n" "$src/tools/arm64-run" "$program.arm64" > "$program"
    chmod +x "$program"
  done
machine=$(readelf -h "$out/velconfig.so" | sed -n 's/^ *Machine: *//p')
[ "$machine" = AArch64 ] || { echo "cross-build made a $machine module" >&2; exit 1; }
echo "arm64 build: velconfig.so for $machine"

CAPI3_BUILD="$out/capi3" GW_BUILD="$out/gw" TOOLCHAIN_FILE="$toolchain" LUA="$lua" \
  NM=aarch64-linux-gnu-nm READELF=aarch64-linux-gnu-readelf tools/gateway-check.sh

# A dump taken on the gateway needs only Lua 5.1 and the module (cjson cannot load), and
# the PC build imports it into a simulated gateway that answers the same.
pc=${BUILD:-build}
if [ ! -x "$pc/velconfig" ]; then
  cmake -S . -B "$pc" > /dev/null && cmake --build "$pc" -j"$jobs" > /dev/null
fi
roundtrip=$(mktemp -d)
LUA_CPATH=';;' VELCONFIG_ROOT="$roundtrip/arm64-root" tools/arm64-run "$emu/usr/bin/lua5.1" \
  -e 'package.preload.cjson = function() error("cjson is not on the gateway") end' \
  "$out/velconfig" --state "$roundtrip/arm64.json" dump --with-secrets > "$roundtrip/gateway-dump.json"
VELCONFIG_ROOT="$roundtrip/pc-root" "$pc/velconfig" import "$roundtrip/gateway-dump.json" --state "$roundtrip/pc.json" > /dev/null
VELCONFIG_ROOT="$roundtrip/pc-root" "$pc/velconfig" --state "$roundtrip/pc.json" dump --with-secrets > "$roundtrip/pc-dump.json"
GW_DUMP="$roundtrip/gateway-dump.json" PC_DUMP="$roundtrip/pc-dump.json" lua5.1 -e 'package.path = "tools/?.lua;" .. package.path
  local json, dump = require "velconfig_json", require "velconfig_dump"
  local function answers(p) local f = assert(io.open(p)); local d = json.decode(f:read("*a")); f:close(); return d end
  local gw, pc = answers(os.getenv("GW_DUMP")), answers(os.getenv("PC_DUMP"))
  assert(gw.platform == "sim" and gw.answers.gwInfo, "no gateway dump")
  local n = 0; for _ in pairs(gw.answers) do n = n + 1 end
  local differing = dump.differences(gw.answers, pc.answers)
  if #differing > 0 then io.stderr:write("after import these keys differ: ", table.concat(differing, " "), "\n"); os.exit(1) end
  print("arm64 dump of " .. n .. " keys imported on the PC: every answer equal")'
rm -rf "$roundtrip"

# The suite as `make test` runs it. Emulation makes the suites slower: run them one at a
# time so that timing checks keep their margin on two shared cores. The import round
# trip takes 40 random gateways here (200 in the native runs): under emulation it
# would otherwise take almost half of the suite's time.
filter=()
if [ $# -gt 0 ]; then filter=(-R "^($(IFS='|'; echo "$*"))\$"); fi
cd "$out" && PATH="$emu/bin:$PATH" VELCONFIG_IMPORT_SEEDS=${VELCONFIG_IMPORT_SEEDS:-40} \
  ctest --output-on-failure "${filter[@]}"
