#!/usr/bin/env bash
# Mutation sampling: applies each mutant of scripts/mutants.txt alone, rebuilds
# the one test target it names (default preset, incremental), runs that test
# executable and reports whether the tests caught the fault.
#   scripts/mutants.sh                 every mutant
#   scripts/mutants.sh PATTERN         only mutants whose line matches PATTERN
# A mutant whose original text is missing or not unique is an error, and so
# is one that does not build: the list must be fixed, not the tally flattered.
# The source file is restored after each mutant, and on any exit.
set -euo pipefail
cd "$(dirname "$0")/.."
list=scripts/mutants.txt
build=build/default
limit=${MUTANT_TIMEOUT:-240}
pattern=${1:-}

[ -f "$build/CMakeCache.txt" ] ||
  cmake --preset default >/dev/null

backup=$(mktemp)
mutated=""
restore() {
  if [ -n "$mutated" ]; then
    cp "$backup" "$mutated"
    mutated=""
  fi
}
trap 'restore; rm -f "$backup"' EXIT
trap 'exit 130' INT TERM

killed=0; survived=0; errors=0; total=0
while IFS=$'\t' read -r file target original replacement; do
  [[ -z "$file" || "$file" == \#* ]] && continue
  [[ -n "$pattern" && "$file $original $replacement" != *$pattern* ]] && continue
  total=$((total + 1))
  label="$file: '$original' -> '$replacement'"
  if [ ! -f "$file" ]; then
    echo "ERROR    $label (no such file)"; errors=$((errors + 1)); continue
  fi
  cp "$file" "$backup"
  mutated=$file
  if ! python3 - "$file" "$original" "$replacement" <<'EOF'
import sys
path, old, new = (a.replace("\\n", "\n") for a in sys.argv[1:])
text = open(path).read()
count = text.count(old)
if count != 1:
    sys.exit(f"original text found {count} times")
open(path, "w").write(text.replace(old, new))
EOF
  then
    echo "ERROR    $label (text not found once)"; errors=$((errors + 1)); restore; continue
  fi
  if ! cmake --build "$build" --target "$target" -j 2 >"$build/mutant-build.log" 2>&1 </dev/null; then
    echo "ERROR    $label (does not build, see $build/mutant-build.log)"; errors=$((errors + 1)); restore; continue
  fi
  exe=$(find "$build/tests" -type f -name "$target" -perm -u+x | head -n 1)
  if (cd "$(dirname "$exe")" && timeout "$limit" "./$target" --gtest_brief=1 >/dev/null 2>&1 </dev/null); then
    echo "SURVIVED $label"; survived=$((survived + 1))
  else
    echo "killed   $label"; killed=$((killed + 1))
  fi
  restore
done <"$list"

# Leave the build matching the restored sources.
cmake --build "$build" -j 2 >/dev/null 2>&1 || true
echo "mutants: $killed killed, $survived survived, $errors errors, $total total"
[ "$errors" -eq 0 ]
