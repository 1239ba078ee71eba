#!/usr/bin/env bash
# The one command that sets up a fresh Debian machine and runs every test:
# the native build, AddressSanitizer + UndefinedBehaviorSanitizer,
# ThreadSanitizer, and the Windows build under Wine.
#   scripts/test-all.sh              all of them
#   scripts/test-all.sh default      only the named presets (default asan tsan mingw)
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh

presets=("$@")
[ ${#presets[@]} -gt 0 ] || presets=(default asan tsan mingw)

jobs=$(nproc 2>/dev/null || echo 2)

# The output of each failed test again, last: a CI log that keeps only its
# tail then still says why, not only which.
show_failures() {
  local log="build/$1/Testing/Temporary/LastTest.log"
  [ -f "$log" ] || return 0
  echo "=== $1: output of the failed tests"
  awk '/^[0-9]+\/[0-9]+ Testing: / { block = "" }
       { block = block $0 "\n" }
       /^Test Failed\./ { printf "%s", block }' "$log" | tail -n 120
}

for preset in "${presets[@]}"; do
  echo "=== ${preset}: configure and build"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  if [ "$preset" = mingw ]; then
    scripts/wine-env.sh ctest --preset mingw -j "$jobs" || { code=$?; show_failures mingw; exit "$code"; }
  else
    echo "=== ${preset}: test"
    ctest --preset "$preset" -j "$jobs" || { code=$?; show_failures "$preset"; exit "$code"; }
  fi
done
echo "=== all presets passed: ${presets[*]}"
