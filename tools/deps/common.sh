# Shared by the scripts that build the gateway's OpenWrt libraries from the pinned
# snapshots in ../shared/deps (beside the project): where they are, where they build,
# and what a missing snapshot means (a skip on a PC, a failure in CI).
deps_dir=${VELCONFIG_DEPS_DIR:-$(cd "$(dirname "$0")/../../.." && pwd)/shared/deps}
deps_build=${DEPS_BUILD:-$(cd "$(dirname "$0")/../.." && pwd)/build-deps}
deps_prefix="$deps_build/prefix"

# Exits when the snapshot is missing: 0 with a notice outside CI, 1 with CI=true.
require_snapshot() {
  if [ ! -f "$1" ]; then
    if [ "${CI:-}" = true ]; then
      echo "missing snapshot $1 (CI needs ../shared/deps)" >&2
      exit 1
    fi
    echo "skipped: no snapshot $1 (../shared/deps is not here)" >&2
    exit 0
  fi
}

# Unpacks the tarball into $deps_build/src once per snapshot, builds it with CMake
# and installs it into $deps_prefix. A stamp holding the tarball's checksum skips
# the work on a rerun with the same snapshot.
build_snapshot() {
  local tarball=$1 name=$2
  shift 2
  local sum stamp="$deps_build/$name.stamp"
  sum=$(sha256sum "$tarball" | cut -d' ' -f1)
  if [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$sum" ]; then return 0; fi
  local top
  top=$(tar -tzf "$tarball" | awk -F/ 'NR == 1 {print $1}')
  rm -rf "$deps_build/src/$top" "$deps_build/$name"
  mkdir -p "$deps_build/src"
  tar -xzf "$tarball" -C "$deps_build/src"
  # Built with the host's compiler flags, not the project's -Werror: these are the
  # gateway's libraries as they are.
  cmake -S "$deps_build/src/$top" -B "$deps_build/$name" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_INSTALL_PREFIX="$deps_prefix" -DCMAKE_PREFIX_PATH="$deps_prefix" \
    --no-warn-unused-cli -DCMAKE_INSTALL_LIBDIR=lib -DCMAKE_INSTALL_RPATH="$deps_prefix/lib" "$@" > /dev/null
  cmake --build "$deps_build/$name" -j2 > /dev/null
  cmake --install "$deps_build/$name" > /dev/null
  echo "$sum" > "$stamp"
}
