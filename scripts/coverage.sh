#!/usr/bin/env bash
# Line and branch coverage of src/ and tech/ per folder, from a fresh run of
# every test in the coverage preset (gcc --coverage at -O0).
#   scripts/coverage.sh            configure, build, run the tests, report
#   scripts/coverage.sh --report   report on the counters of the last run
# Branches that only exist for thrown exceptions, and ones gcc proves
# unreachable, are left out: no test could take them, and they would drown
# the branches that a test should take. Counters that threads raced into a
# negative count (builds without -fprofile-update=atomic) are skipped.
set -euo pipefail
cd "$(dirname "$0")/.."
build=build/coverage
jobs=${JOBS:-2}

if [ "${1:-}" != "--report" ]; then
  [ -f "$build/CMakeCache.txt" ] ||
    cmake --preset coverage >/dev/null
  cmake --build --preset coverage -j "$jobs"
  find "$build" -name '*.gcda' -delete
  ctest --preset coverage -j "$jobs" --output-on-failure >"$build/ctest.log" 2>&1 ||
    { tail -n 30 "$build/ctest.log"; echo "coverage: some tests failed, see $build/ctest.log" >&2; exit 1; }
fi

summary=$(mktemp)
trap 'rm -f "$summary" "$summary.errors"' EXIT
gcovr --root . --object-directory "$build" --filter 'src/' --filter 'tech/' \
  --exclude-throw-branches --exclude-unreachable-branches --gcov-ignore-parse-errors \
  --json-summary "$summary" >/dev/null 2>"$summary.errors" ||
  { cat "$summary.errors" >&2; exit 1; }
[ -s "$summary.errors" ] && echo "coverage: $(grep -c . "$summary.errors") gcov lines skipped as unreadable" >&2

python3 - "$summary" <<'EOF'
import collections, json, os, sys
files = json.load(open(sys.argv[1]))["files"]
folders = collections.defaultdict(lambda: [0, 0, 0, 0])
for f in files:
    # posix/ and win32/ back ends count with the platform folder they serve.
    parts = f["filename"].split("/")
    folder = "/".join(parts[:2])
    row = folders[folder]
    row[0] += f["line_covered"]; row[1] += f["line_total"]
    row[2] += f["branch_covered"]; row[3] += f["branch_total"]
def pct(a, b): return 100.0 * a / b if b else 100.0
print(f"{'folder':<16} {'lines':>16} {'line %':>7} {'branches':>14} {'branch %':>8}")
total = [0, 0, 0, 0]
for folder in sorted(folders):
    r = folders[folder]
    total = [t + x for t, x in zip(total, r)]
    print(f"{folder:<16} {r[0]:>7}/{r[1]:<8} {pct(r[0], r[1]):>6.1f} {r[2]:>6}/{r[3]:<7} {pct(r[2], r[3]):>7.1f}")
print(f"{'all':<16} {total[0]:>7}/{total[1]:<8} {pct(total[0], total[1]):>6.1f} {total[2]:>6}/{total[3]:<7} {pct(total[2], total[3]):>7.1f}")
EOF
