#!/usr/bin/env bash
# Makes the tests' own Wine prefix (once), puts the stand-in for the Media Foundation pieces that Wine
# lacks into its system32 under both names, and maps drive V: to a folder that stands for a drive's root.
set -euo pipefail
# The server creates the files under its own umask; with 0 the rights that Windows code asks for show.
umask 0
build=$1
: "${WINEPREFIX:?set WINEPREFIX to the prefix of the tests}"
export WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
if [ ! -f "$WINEPREFIX/system.reg" ]; then
    mkdir -p "$WINEPREFIX"
    wineboot -i >/dev/null 2>&1
    wineserver -w
fi
# The server and Wine's own services are kept running between the tests' Wine processes, started here
# with their output away from the test runner's pipe, which would otherwise wait for them to end.
wineserver -p30 </dev/null >/dev/null 2>&1 || true
wine cmd /c exit </dev/null >/dev/null 2>&1
for name in mf mfsensorgroup; do
    cp "$build/bin/standin_system.dll" "$WINEPREFIX/drive_c/windows/system32/$name.dll"
done
# Links that a run stopped half-way may have left planted where the service log goes; from Unix a link
# is removed as itself, while Wine would follow it.
rm -rf "$WINEPREFIX/drive_c/ProgramData/Veloquin"
mkdir -p "$build/drive-v"
ln -sfn "$build/drive-v" "$WINEPREFIX/dosdevices/v:"
echo "prefix ready: $WINEPREFIX"
