#!/usr/bin/env bash
# The main job: sets up a fresh Debian machine (scripts/setup.sh), builds
# velapo-host, makes the example programme (tones, a sweep, noise bursts),
# plays it through the laptop example's MFX chain while a script turns the
# volume down, switches mode and turns processing off and on, and writes the
# processed file, the report and its picture into a folder named at the end.
#
#   scripts/demo.sh [output folder]      (default: demo-output)
set -euo pipefail
cd "$(dirname "$0")/.."
out="${1:-demo-output}"
start=$(date +%s)

scripts/setup.sh
if [ ! -f build/default/build.ninja ]; then
  cmake --preset default >/dev/null
fi
cmake --build --preset default --target velapo-host -j"$(nproc)"

host=build/default/tools/host/velapo-host
mkdir -p "$out"
"$host" generate "$out/programme.wav" --seconds 8
"$host" "$out/programme.wav" "$out/processed.wav" \
  --config examples/laptop.xml --location MFX \
  --script examples/demo-script.txt --report "$out"

echo
echo "Done in $(( $(date +%s) - start )) s. In $(cd "$out" && pwd):"
echo "  programme.wav  the input     processed.wav  the output"
echo "  report.md      what happened (report.json for scripts)"
echo "  report.png     level over time with the switches, and the spectra"
