#!/bin/sh
# Builds the benchmarks and prints, for each, instructions and time against its
# floor (the same result table built through the Lua C API from memory):
#  - hostsInfo and allInfo with 254 online hosts and a warm rate file, per call:
#    the call, the simulated platform's part of it, the module's own part (the call
#    less the platform) against the floor and against the limit (the floor plus
#    reading, writing and renaming the rate file), and the peak stack of one call;
#  - subFiles on a folder of 10 000 files, per call and per file.
set -eu
here=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$here/build-bench}
cmake -S "$here" -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" --target bench_hosts bench_files -j2 >/dev/null

# instructions BINARY MODE CALLS: instructions per call, counted by callgrind.
instructions() {
  out=$(mktemp)
  valgrind --tool=callgrind --collect-atstart=no --callgrind-out-file="$out" "$1" "$2" "$3" 2>/dev/null
  total=$(sed -n 's/^summary: *//p; s/^totals: *//p' "$out" | head -n 1 | cut -d' ' -f1)
  rm -f "$out"
  echo $((total / $3))
}

calls=${CALLS:-200}
bin=$build/bench/bench_hosts
rate_file=$(instructions "$bin" rate-file "$calls")
# key_figures KEY NAME: instructions per call of the call, the simulated platform's
# operations it makes, the module (the call less the platform), the floor and the
# limit (the floor and the rate file's reading, writing and renaming).
key_figures() {
  call=$(instructions "$bin" "$1-call" "$calls")
  platform=$(instructions "$bin" "$1-platform" "$calls")
  floor=$(instructions "$bin" "$1-floor" "$calls")
  limit=$((floor + rate_file))
  module=$((call - platform))
  echo "$2, instructions per call (callgrind, $calls calls):"
  echo "  call      $call"
  echo "  platform  $platform (the simulator's operations)"
  echo "  module    $module (the call less the platform)"
  awk -v m="$module" -v f="$floor" -v l="$limit" 'BEGIN {
    printf "  floor     %d, module only / floor %.2f\n", f, m / f
    printf "  limit     %d, module only / limit %.2f\n", l, m / l }'
}
key_figures hosts hostsInfo
key_figures all allInfo
"$bin" time "${TIME_CALLS:-2000}"
echo "Peak stack of one call (thread with a painted stack):"
"$bin" stack | sed 's/^/  /'

files=10000
list_calls=${LIST_CALLS:-10}
bin=$build/bench/bench_files
list=$(instructions "$bin" list "$list_calls")
floor=$(instructions "$bin" floor "$list_calls")
echo "subFiles on $files files, instructions per file (callgrind, $list_calls calls):"
echo "  subFiles  $((list / files))"
echo "  floor     $((floor / files))"
awk -v h="$list" -v f="$floor" 'BEGIN { printf "  ratio     %.2f\n", h / f }'
echo "subFiles on $files files, time per file (native, ${LIST_TIME_CALLS:-50} calls):"
"$bin" time "${LIST_TIME_CALLS:-50}" | sed 's/^/  /'
