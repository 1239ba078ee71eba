#!/usr/bin/env bash
# Runs a command with a private, quiet Wine prefix, so that the Windows build's
# tests neither touch the user's own prefix nor wait for dialogs.
set -euo pipefail
export WINEPREFIX="${WINEPREFIX:-${TMPDIR:-/tmp}/velapo-wine-$(id -u)}"
export WINEDEBUG="${WINEDEBUG:--all}"
export WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-mscoree,mshtml=}"
if [ ! -f "$WINEPREFIX/system.reg" ]; then
  echo "=== creating the Wine prefix $WINEPREFIX"
  wineboot --init >/dev/null 2>&1 || true
  wineserver -w || true
fi
echo "=== mingw: test under Wine"
status=0
"$@" || status=$?
wineserver -k >/dev/null 2>&1 || true
exit $status
