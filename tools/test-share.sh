#!/usr/bin/env bash
# How large the suite is next to the code it checks: lines of the tracked source files
# under tests/ against those of every other folder (the module, the simulator, the
# tools, the console, fuzz harnesses and benchmarks). Data files, documents, fuzz
# corpora and lock files count on neither side.
set -euo pipefail
cd "$(dirname "$0")/.."
code_files() {
  git ls-files -- "$@" | grep -E '(\.(cpp|h|c|lua|mjs|js|html|css|sh|cmake|in)|CMakeLists\.txt|Makefile)$'
}
count() { xargs -r cat | wc -l; }
tests=$(code_files tests | count)
rest=$(code_files . ':!tests' | count)
awk -v t="$tests" -v r="$rest" 'BEGIN { printf "tests %d lines, the rest %d lines: %.1f%%\n", t, r, 100 * t / r }'
