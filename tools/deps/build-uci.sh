#!/usr/bin/env bash
# Builds OpenWrt's uci from its pinned snapshot against the libubox of
# build-libubox.sh, into the same prefix, and prints the path of the uci program.
# Prints nothing when a snapshot is missing outside CI (see common.sh).
set -euo pipefail
. "$(dirname "$0")/common.sh"
tarball="$deps_dir/uci-66127cd.tar.gz"
require_snapshot "$tarball"
prefix=$("$(dirname "$0")/build-libubox.sh")
[ -n "$prefix" ] || exit 0
build_snapshot "$tarball" uci -DBUILD_LUA=OFF
echo "$deps_prefix/bin/uci"
