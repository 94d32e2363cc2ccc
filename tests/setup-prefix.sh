#!/usr/bin/env bash
# Makes the tests' own Wine prefix (once) and the drive V: that stands for a drive's root folder.
set -euo pipefail
build=$1
: "${WINEPREFIX:?set WINEPREFIX to the prefix of the tests}"
export WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
if [ ! -f "$WINEPREFIX/system.reg" ]; then
    mkdir -p "$WINEPREFIX"
    wineboot -i >/dev/null 2>&1
    wineserver -w
fi
# Kept running between the tests' Wine processes, which saves a server start for each of them.
# Its output must not hold the test runner's pipe open.
wineserver -p30 </dev/null >/dev/null 2>&1
mkdir -p "$build/drive-v"
ln -sfn "$build/drive-v" "$WINEPREFIX/dosdevices/v:"
echo "prefix ready: $WINEPREFIX"
