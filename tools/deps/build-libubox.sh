#!/usr/bin/env bash
# Builds the gateway's event-loop library, libubox, from its pinned snapshot into
# build-deps/prefix (nothing is installed into the system) and prints that prefix.
# Prints nothing when the snapshot is missing outside CI (see common.sh).
set -euo pipefail
. "$(dirname "$0")/common.sh"
tarball="$deps_dir/libubox-1aa36ee.tar.gz"
require_snapshot "$tarball"
if ! pkg-config --exists json-c 2>/dev/null; then
  sudo=$([ "$(id -u)" = 0 ] || echo sudo)
  $sudo apt-get -o DPkg::Lock::Timeout=600 update -qq >&2
  $sudo env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=600 install -y -qq libjson-c-dev >&2
fi
build_snapshot "$tarball" libubox -DBUILD_LUA=OFF -DBUILD_EXAMPLES=OFF
echo "$deps_prefix"
