#!/bin/sh
# Builds the hostsInfo benchmark and prints instructions and time per call for
# hostsInfo (254 online hosts, warm rate file) and for the floor (the same result
# table built through the Lua C API from memory), and their ratio, then the peak
# stack of one hostsInfo call.
set -eu
here=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$here/build-bench}
cmake -S "$here" -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" --target bench_hosts -j2 >/dev/null
bin=$build/bench/bench_hosts
calls=${CALLS:-200}

instructions() {
  out=$(mktemp)
  valgrind --tool=callgrind --collect-atstart=no --callgrind-out-file="$out" "$bin" "$1" "$calls" 2>/dev/null
  total=$(sed -n 's/^summary: *//p; s/^totals: *//p' "$out" | head -n 1 | cut -d' ' -f1)
  rm -f "$out"
  echo $((total / calls))
}

hosts=$(instructions hosts)
floor=$(instructions floor)
echo "instructions per call (callgrind, $calls calls):"
echo "  hostsInfo $hosts"
echo "  floor     $floor"
awk -v h="$hosts" -v f="$floor" 'BEGIN { printf "  ratio     %.2f\n", h / f }'
echo "time per call (native, ${TIME_CALLS:-2000} calls):"
"$bin" time "${TIME_CALLS:-2000}" | sed 's/^/  /'
echo "peak stack of one call (thread with a painted stack):"
"$bin" stack | sed 's/^/  /'
