#!/usr/bin/env bash
# The launcher runs elevated beside standard users, so its binary carries what Windows can enforce at
# load: ASLR with high entropy (and the relocations it needs), DEP, terminal-server awareness, no
# section both writable and executable, none shared and writable, the stack protector and checked
# memory calls, and an import table that names only DLLs Windows always takes from its own folder (the
# KnownDLLs), never one that a planted copy beside the executable could replace.
set -euo pipefail
exe=$1
objdump=x86_64-w64-mingw32-objdump
headers=$($objdump -p "$exe")
# One line per section: its name, its size in hex, its flags.
sections=$($objdump -h "$exe" | awk '/^ *[0-9]+ / {name = $2; size = $3; next} name {print name, size, $0; name = ""}')
allowed="kernel32.dll user32.dll gdi32.dll advapi32.dll ole32.dll oleaut32.dll shell32.dll msvcrt.dll"
status=0

check() {
    if "${@:2}" >/dev/null; then echo "ok: $1"; else echo "FAIL: $1"; status=1; fi
}
lacks() { ! grep -q -- "$1"; }
listed() { [[ " $allowed " == *" $1 "* ]]; }

for flag in DYNAMIC_BASE HIGH_ENTROPY_VA NX_COMPAT TERMINAL_SERVICE_AWARE; do
    check "DllCharacteristics has $flag" grep -qw "$flag" <<<"$headers"
done
reloc=$(awk '$1 == ".reloc" {print $2}' <<<"$sections")
check "a .reloc section with relocations" test "$((16#${reloc:-0}))" -gt 0
check "no section both writable and executable" lacks CODE < <(grep -v READONLY <<<"$sections")
check "no section both shared and writable" lacks SHARED < <(grep -v READONLY <<<"$sections")
# The run-time checks leave no symbol in the stripped launcher, but their calls stay: to the routine
# that reports a smashed stack, from every function with a canary, and to the one that reports an
# overflow, from the checked copies of the memory and string calls.
disassembly=$($objdump -d --no-show-raw-insn "$exe")
calls_to_reporter() {
    local offset address="" load begin
    offset=$(grep -obUaF -- "$1" "$exe" | head -n 1 | cut -d: -f1)
    [ -n "$offset" ] || { echo 0; return; }
    while read -r _ _ size vma _ file _; do
        if ((offset >= 16#$file && offset < 16#$file + 16#$size)); then
            address=$(printf '%x' $((16#$vma + offset - 16#$file)))
        fi
    done < <($objdump -h "$exe" | grep -E '^ +[0-9]+ ')
    load=$(grep -m 1 "# 0x$address\$" <<<"$disassembly" | awk '{print $1}' | tr -d :)
    [ -n "$load" ] || { echo 0; return; }
    # The routine is the function-table entry around the instruction that loads its message.
    begin=$(awk -v at="$load" '/^ [0-9a-f]+:\t/ {b = $2; e = $3; sub(/^0+/, "", b); sub(/^0+/, "", e)
                               if (length(b) == length(at) && b <= at && at < e) print b}' <<<"$headers")
    grep -c "call   0x$begin\$" <<<"$disassembly" || true
}
# The libraries linked in make one call to the first; the launcher's own functions with local arrays, dozens.
check "the stack protector compiled in" test "$(calls_to_reporter '*** stack smashing detected')" -ge 10
check "checked memory and string calls compiled in" test "$(calls_to_reporter '*** buffer overflow detected')" -gt 0

imports=$(awk '/DLL Name:/ {print tolower($3)}' <<<"$headers")
check "an import table" test -n "$imports"
for dll in $imports; do
    check "import from $dll, a KnownDLL" listed "$dll"
done
exit $status
