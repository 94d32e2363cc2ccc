#!/usr/bin/env bash
# The launcher runs elevated, the package's custom action as LocalSystem: each carries ASLR with high entropy and its
# relocations, DEP, no section writable and executable or shared and writable, the stack protector, checked memory
# calls, and imports only of KnownDLLs, which no copy planted beside it can replace; the program is terminal-server aware
# and carries its icon, its version and the manifest that asks for administrator rights.
# Usage: bash tests/check-binary.sh LAUNCHER DLL...
set -euo pipefail
source "$(dirname "$0")/checks.sh"
objdump=x86_64-w64-mingw32-objdump
known=" kernel32.dll user32.dll gdi32.dll advapi32.dll ole32.dll oleaut32.dll shell32.dll msvcrt.dll "
check() { if "${@:3}" >/dev/null; then ok "$1: $2"; else fail "$1: $2"; fi; }
# The run-time checks leave no symbol in a stripped image, but their calls stay: to the routine that reports a smashed
# stack, from every function with a canary, and to the one that reports an overflow, from the checked copies of the
# memory and string calls. The routine is the function-table entry around the instruction that loads its message.
calls_to_reporter() {
    local offset address="" load begin
    offset=$(grep -obUaF -- "$1" "$image" | head -n 1 | cut -d: -f1)
    while read -r _ _ size vma _ file _; do
        ((${offset:-0} >= 16#$file && ${offset:-0} < 16#$file + 16#$size)) && address=$(printf '%x' $((16#$vma + offset - 16#$file)))
    done < <($objdump -h "$image" | grep -E '^ +[0-9]+ ')
    load=$(grep -m 1 "# 0x${address:-none}\$" <<<"$disassembly" | awk '{print $1}' | tr -d :)
    begin=$(awk -v at="${load:-none}" '/^ [0-9a-f]+:\t/ {b = $2; e = $3; sub(/^0+/, "", b); sub(/^0+/, "", e)
                                if (length(b) == length(at) && b <= at && at < e) print b}' <<<"$headers")
    grep -c "call   0x${begin:-none}\$" <<<"$disassembly" || true
}

for image in "$@"; do
    name=$(basename "$image") headers=$($objdump -p "$image") disassembly=$($objdump -d --no-show-raw-insn "$image")
    # One line per section: its name, its size in hex, its flags.
    sections=$($objdump -h "$image" | awk '/^ *[0-9]+ / {name = $2; size = $3; next} name {print name, size, $0; name = ""}')
    flags="DYNAMIC_BASE HIGH_ENTROPY_VA NX_COMPAT"
    [[ $name == *.dll ]] || flags+=" TERMINAL_SERVICE_AWARE"
    for flag in $flags; do check "$name" "DllCharacteristics has $flag" grep -qw "$flag" <<<"$headers"; done
    reloc=$(awk '$1 == ".reloc" {print $2}' <<<"$sections")
    check "$name" "a .reloc section with relocations" test "$((16#${reloc:-0}))" -gt 0
    check "$name" "no section both writable and executable" test -z "$(grep -v READONLY <<<"$sections" | grep CODE)"
    check "$name" "no section both shared and writable" test -z "$(grep -v READONLY <<<"$sections" | grep SHARED)"
    # The libraries linked in make one call to the first; the image's own functions with local arrays, dozens.
    check "$name" "the stack protector compiled in" test "$(calls_to_reporter '*** stack smashing detected')" -ge 10
    check "$name" "checked memory and string calls compiled in" test "$(calls_to_reporter '*** buffer overflow detected')" -gt 0
    imports=$(awk '/DLL Name:/ {print tolower($3)}' <<<"$headers")
    check "$name" "an import table" test -n "$imports"
    for dll in $imports; do check "$name" "import from $dll, a KnownDLL" test "${known/ $dll /}" != "$known"; done
done

# What Properties, Task Manager and inventory tools show, as the launcher's resources decompile.
version=$(project_version)
resources=$(x86_64-w64-mingw32-windres -i "$1" -O rc)
while read -r line; do check "$(basename "$1")" "resources hold $line" grep -qF -- "$line" <<<"$resources"; done <<EOF
"IDI_APP_ICON" 14 /* RT_GROUP_ICON */
1 VERSIONINFO
FILEVERSION ${version//./, }, 0
PRODUCTVERSION ${version//./, }, 0
BLOCK "040904B0"
VALUE "FileDescription", "Veloquin Launcher"
VALUE "FileVersion", "$version"
VALUE "InternalName", "veloquin_launcher.exe"
VALUE "OriginalFilename", "veloquin_launcher.exe"
VALUE "ProductName", "Veloquin"
VALUE "ProductVersion", "$version"
1 24 /* RT_MANIFEST */
<requestedExecutionLevel level=""requireAdministrator""
EOF
exit $status
