#!/usr/bin/env bash
# The tools as installed: installs a build into a scratch prefix and unpacks the Debian
# package into another, then, in both, runs the installed velconfig from its own path
# with the source and build trees out of reach (a private mount hides them) and PATH
# and LUA_CPATH as a user's shell has them.
#   tools/package/install-test.sh BUILD_DIR DEB
set -euo pipefail
cd "$(dirname "$0")/../.."
src=$PWD
build=$(cd "${1:?usage: install-test.sh BUILD_DIR DEB}" && pwd)
deb=$(realpath "${2:?usage: install-test.sh BUILD_DIR DEB}")
version=$(sed -n 's/^project(velconfig VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
scratch=$(mktemp -d /tmp/velconfig-install-test.XXXXXX)
trap 'rm -rf "$scratch"' EXIT

cmake --install "$build" --prefix "$scratch/prefix" > /dev/null
dpkg-deb -x "$deb" "$scratch/deb"

# Runs as the second half of this script inside the private mount: one installed tree.
check_tree() {
  local bin=$1 name=$2 state=$scratch/state-$2
  local tool=$bin/velconfig out
  fail() { echo "install-test ($name): $*" >&2; exit 1; }
  [ ! -e "$src/CMakeLists.txt" ] || fail "the source tree is still in reach"
  [ ! -e "$bin/uci" ] || fail "the PC uci is on the tool's PATH folder"
  export XDG_STATE_HOME=$state HOME=$scratch/home
  out=$("$tool" --version) && [ "$out" = "velconfig $version" ] || fail "--version printed '$out'"
  out=$("$tool" get hasWiFi) && [ "$out" = 1 ] || fail "get hasWiFi printed '$out'"
  out=$("$tool" help hasWiFi) && [[ $out == *"1 when the gateway has Wi-Fi"* ]] || fail "help printed '$out'"
  gzip -t "$bin/../share/man/man1/velconfig.1.gz" && [ -f "$bin/../share/bash-completion/completions/velconfig" ] ||
    fail "the manual page or the bash completion is missing"
  "$tool" dump > "$scratch/dump-$name.json" || fail "dump failed"
  lua5.1 -e 'local d = require("cjson").decode(io.read("*a")).answers
             assert(d.hasWiFi == 1 and type(d.allInfo) == "table" and d.gwInfo.ProductCls, "dump lacks keys")' \
    < "$scratch/dump-$name.json" || fail "dump is not the gateway's answers"
  "$tool" import "$scratch/dump-$name.json" --state "$scratch/imported-$name.json" > /dev/null &&
    [ "$("$tool" --state "$scratch/imported-$name.json" get hasWiFi)" = 1 ] || fail "import of the dump failed"
  # A scenario shipped with the documentation, then one event; the simulator's schema
  # is where the installed docs link to it.
  local docs=$bin/../share/doc/velconfig
  "$tool" play --no-wait "$docs/examples/scenarios/bad-day.json" > /dev/null || fail "play of the installed example failed"
  out=$("$tool" event wan-down) && [[ $out == "wan-down: WAN disconnected"* ]] || fail "event printed '$out'"
  [ -f "$docs/sim/README.md" ] && grep -q '(../sim/README.md)' "$docs/docs/simulator.md" ||
    fail "the simulator's schema is not beside the installed docs"
  # The simulated gateway runs the installed PC uci: a value set through it reads back.
  "$tool" set setAppParas --text '{"config":"speedtest","main.server":"installed-'"$name"'"}' > /dev/null
  out=$("$tool" get getAppParas speedtest)
  [[ $out == *"'installed-$name'"* ]] || fail "setAppParas did not reach uci: $out"
  # The console: one API call and its page, over 127.0.0.1.
  "$tool" serve --port 0 > "$scratch/serve-$name.out" 2> "$scratch/serve-$name.err" &
  local server=$! port="" token=""
  for _ in $(seq 100); do
    port=$(sed -n 's|^velconfig console on http://127.0.0.1:\([0-9]*\)/?token=[0-9a-f]*$|\1|p' "$scratch/serve-$name.out")
    token=$(sed -n 's|^velconfig console on http://127.0.0.1:[0-9]*/?token=\([0-9a-f]*\)$|\1|p' "$scratch/serve-$name.out")
    [ -n "$port" ] && break
    sleep 0.1
  done
  [ -n "$port" ] || { kill "$server"; fail "serve did not start: $(cat "$scratch/serve-$name.err")"; }
  local api page
  api=$(curl -sf -H "Authorization: Token $token" "http://127.0.0.1:$port/api/get/hasWiFi") || true
  page=$(curl -sf "http://127.0.0.1:$port/") || true
  kill "$server"
  wait "$server" 2> /dev/null || true
  echo "$api" | lua5.1 -e 'local a = require("cjson").decode(io.read("*a")); assert(a.key == "hasWiFi" and a.answer == 1)' ||
    fail "API answered '$api'"
  [[ $page == *"<html"* ]] || fail "the console's page is missing"
  # A page author's page: run by the tool, then served from its folder.
  local pages=$scratch/pages-$name
  mkdir -p "$pages"
  printf '%s\n' 'io.write("Content-Type: text/plain\r\n\r\n", require("velconfig"):get("hasWiFi"))' > "$pages/p.lua"
  out=$("$tool" run "$pages/p.lua") && [[ $out == *$'\r\n\r\n1' ]] || fail "run printed '$out'"
  "$tool" serve --pages "$pages" --port 0 --no-token > "$scratch/pages-$name.out" 2>&1 &
  server=$! port=""
  for _ in $(seq 100); do
    port=$(sed -n 's|^velconfig pages of .* on http://127.0.0.1:\([0-9]*\)/ .*$|\1|p' "$scratch/pages-$name.out")
    [ -n "$port" ] && break
    sleep 0.1
  done
  page=$(curl -sf "http://127.0.0.1:$port/p.lua") || true
  kill "$server"
  wait "$server" 2> /dev/null || true
  [ "$page" = 1 ] || fail "serve --pages answered '$page': $(cat "$scratch/pages-$name.out")"
  echo "install-test ($name): version, get, dump, import, play, event, uci, serve, run, serve --pages: ok from $bin"
}

# A mount namespace of its own where an empty folder covers the source tree (and the
# build trees in it); the scratch trees in /tmp stay visible.
export -f check_tree
export src scratch version
unshare --mount --map-root-user bash -euo pipefail -c '
  mount -t tmpfs none "$src"
  cd /
  env -u LUA_CPATH -u LUA_PATH -u VELCONFIG_ROOT -u VELCONFIG_SIM_STATE -u VELCONFIG_TOOLS_DIR \
    PATH=/usr/local/bin:/usr/bin:/bin bash -euo pipefail -c "
      check_tree \"$scratch/prefix/bin\" prefix
      check_tree \"$scratch/deb/usr/bin\" deb"'
