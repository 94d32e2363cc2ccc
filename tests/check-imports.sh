#!/usr/bin/env bash
# The launcher runs elevated: its import table may name only DLLs that Windows always takes from its
# own folder (the KnownDLLs), never one that a planted copy beside the executable could replace.
set -euo pipefail
exe=$1
allowed="kernel32.dll user32.dll gdi32.dll advapi32.dll ole32.dll oleaut32.dll shell32.dll msvcrt.dll"
imports=$(x86_64-w64-mingw32-objdump -p "$exe" | awk '/DLL Name:/ {print tolower($3)}')
[ -n "$imports" ] || { echo "no import table read from $exe"; exit 1; }
status=0
for dll in $imports; do
    if [[ " $allowed " == *" $dll "* ]]; then
        echo "allowed: $dll"
    else
        echo "NOT ALLOWED: $dll"
        status=1
    fi
done
exit $status
