#!/usr/bin/env bash
# Builds the fuzz targets with clang (libFuzzer, ASan, UBSan) and runs each for
# FUZZ_SECONDS seconds from its seeds (FUZZ_JOBS at once, one per core by default);
# prints executions and findings per target.
# A finding is kept under build-fuzz/artifacts/<target>/ and fails the run.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${FUZZ_SECONDS:-20}
build=${FUZZ_BUILD:-build-fuzz}
CC=clang CXX=clang++ cmake -S . -B "$build" -DVELCONFIG_FUZZ=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
targets=$(sed -n 's/^set(VELCONFIG_FUZZ_TARGETS \(.*\))$/\1/p' fuzz/CMakeLists.txt)
cmake --build "$build" -j"$(nproc)" --target $(for t in $targets; do printf 'fuzz_%s ' "$t"; done) > /dev/null

# One target, its findings kept under its own folders; writes "<executions> <findings>
# <exit status>" to $build/<target>.result.
run_target() {
  local t=$1
  local corpus="$build/corpus/$t" artifacts="$build/artifacts/$t" log="$build/$t.log"
  mkdir -p "$corpus" "$artifacts"
  [ -d "fuzz/seeds/$t" ] && cp -n fuzz/seeds/"$t"/* "$corpus"/ 2>/dev/null || true
  # The target's simulated file roots live here and go when the target is done.
  local tmp="$PWD/$build/tmp/$t"
  rm -rf "$tmp" && mkdir -p "$tmp"
  local status=0
  TMPDIR="$tmp" ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=1 \
    UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
    "$build/fuzz/fuzz_$t" -max_total_time="$seconds" -print_final_stats=1 -timeout=10 -rss_limit_mb=4096 \
    -artifact_prefix="$artifacts/" "$corpus" > "$log" 2>&1 || status=$?
  rm -rf "$tmp"
  local execs
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  echo "${execs:-0} $(find "$artifacts" -type f | wc -l) $status" > "$build/$t.result"
}

# Each target runs alone in its own process, so as many run at once as there are
# cores: every target still gets its full time, and the run takes a share of it.
jobs=${FUZZ_JOBS:-$(nproc)}
for t in $targets; do
  while [ "$(jobs -rp | wc -l)" -ge "$jobs" ]; do wait -n || true; done
  run_target "$t" &
done
wait

total=0
found=0
for t in $targets; do
  read -r execs crashes status < "$build/$t.result"
  total=$((total + execs))
  found=$((found + crashes))
  printf '%-12s %10s executions  %s findings%s\n' "$t" "$execs" "$crashes" \
    "$([ "$status" -ne 0 ] && echo " (exit $status, see $build/$t.log)")"
  [ "$status" -ne 0 ] && [ "$crashes" -eq 0 ] && found=$((found + 1))
done
printf '%-12s %10s executions  %s findings\n' total "$total" "$found"
[ "$found" -eq 0 ]
