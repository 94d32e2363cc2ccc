#!/usr/bin/env bash
# The signed MSI of the package scenario under Wine's own msiexec, in the tests' prefix, left as found: the Windows
# build check, the files, shortcut, version value and entry, upgrades in place, no downgrade; a removal takes the camera
# registered from the installed folder, stops when it can't, leaves another copy's; an upgrade keeps it.
# Usage: bash tests/check-installer.sh <build-folder>, with WINEPREFIX and a display set, as ctest runs it.
set -euo pipefail
source "$(dirname "$0")/checks.sh"
begin_check "${1:-}" installer wixl msitools
: "${WINEPREFIX:?set WINEPREFIX to the prefix of the tests}"
msi="$built/scratch/package/signed/veloquin-$version-x64.msi"
folder="$WINEPREFIX/drive_c/Program Files/Veloquin"
files=(veloquin_launcher.exe veloquin_windows_vcam_source.dll veloquin_windows_retouch_vcam_producer.exe)
link="$WINEPREFIX/drive_c/users/$(id -un)/AppData/Roaming/Microsoft/Windows/Start Menu/Programs/Veloquin Launcher.lnk"
current_version='HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion' ours='HKLM\SOFTWARE\Veloquin\Launcher'
inproc='HKLM\SOFTWARE\Classes\CLSID\{fb0afedc-9b71-404f-8154-36cc0ef0a550}\InprocServer32'
installed_dll='C:\Program Files\Veloquin\veloquin_windows_vcam_source.dll'

# The same files packaged as an older, a rebuilt and a newer release.
mkdir release && cp "$bin/veloquin_launcher.exe" release/ && cp "$bin/standin_system.dll" "release/${files[1]}" &&
    cp "$bin/standin_producer.exe" "release/${files[2]}"
older=$scratch/older.msi rebuilt=$scratch/rebuilt.msi newer=$scratch/newer.msi newer_version=${version%.*}.$((${version##*.} + 1))
make_msi 0.9.0 release "$older" && make_msi "$version" release "$rebuilt" &&
    make_msi "$newer_version" release "$newer" || { fail "wixl could not build the test packages"; exit 1; }

windows() { printf 'Z:%s' "${1//\//\\}"; }
# The data of the value that reg query's arguments name (a key, then /v NAME or /ve); nothing when there is none.
reg_value() { { wine reg query "$@" /reg:64 2>/dev/null || true; } | tr -d '\r' | sed -n 's/.*    REG_[A-Z_]*    //p'; }
reg() { wine reg "$@" /f /reg:64 >/dev/null 2>&1 || true; }
build_value=("$current_version" /v CurrentBuildNumber)
build_number() { reg delete "${build_value[@]}"; [ -z "$1" ] || reg add "${build_value[@]}" /d "$1"; }
code() { msiinfo export "$1" Property | tr -d '\r' | sed -n 's/^ProductCode\t//p'; }
arp() { reg_value "HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\$(code "$1")" /v "$2"; }
installed() { [ -n "$(arp "$1" DisplayName)" ]; }
# msiexec's exit code, of which Wine hands Unix only the low byte: Windows' 1603 reads 67. The stand-ins that the
# removal's custom action calls read script.txt and write journal.txt here.
msiexec() {
    rm -f journal.txt
    VQTEST_DIR=$(windows "$scratch") wine msiexec "${@:2}" /qn /l*v "$(windows "$scratch/$1.log")" </dev/null >/dev/null 2>&1
}
original_build=$(reg_value "${build_value[@]}")
cleanup() {
    reg delete "${inproc%\\*}"
    build_number 22631
    for package in "$msi" "$older" "$rebuilt" "$newer"; do
        ! installed "$package" || msiexec cleanup /x "$(code "$package")" || echo "FAIL: $package stays installed"
    done
    build_number "$original_build"
}
trap cleanup EXIT
cp "$bin/standin_system.dll" "$WINEPREFIX/drive_c/windows/system32/mfsensorgroup.dll"
reg delete "${inproc%\\*}"

# Every file (the same as in folder $2, if given), the shortcut, and the version value $1.
present() {
    for file in "${files[@]}"; do cmp -s "$folder/$file" "${2:-$folder}/$file" || return 1; done
    [ -f "$link" ] && [ "$(reg_value "$ours" /v Version)" = "$1" ]
}
absent() { [ ! -e "$folder" ] && [ ! -e "$link" ] && ! wine reg query "$ours" /reg:64 >/dev/null 2>&1; }
# What is installed, for a failure's line.
state() { echo "$(ls "$folder" 2>/dev/null | tr '\n' ' ')version '$(reg_value "$ours" /v Version)', entries $(code "$msi") $(arp "$msi" DisplayVersion) $(arp "$older" DisplayVersion)"; }

# Windows Installer compares the build, a string, as a number with 22000; missing, it compares false.
for build in "" 9600 19045 21999 22000 100000; do
    build_number "$build"
    if [ "${build:-0}" -lt 22000 ]; then
        ! msiexec "build-${build:-missing}" /i "$(windows "$msi")" && absent && ! installed "$msi" &&
            ok "install refused on build ${build:-(none)}, nothing left" ||
            fail "installed on build ${build:-(none)}, or left files or an entry behind"
    else
        msiexec "build-$build" /i "$(windows "$msi")" && present "$version" &&
            msiexec "build-$build-removal" /x "$(windows "$msi")" && absent && ok "installed and removed on build $build" ||
            fail "not installed with every file, the shortcut and the version on build $build, or not removed wholly"
    fi
done
build_number 22631

msiexec older /i "$(windows "$older")" && present 0.9.0 || fail "version 0.9.0 did not install"
msiexec current /i "$(windows "$msi")" && installed "$msi" && ! installed "$older" && present "$version" &&
    [ "$(arp "$msi" Publisher)|$(arp "$msi" DisplayVersion)" = "Veloquin|$version" ] &&
    ok "$version replaced 0.9.0 in place; Settings > Apps lists $(arp "$msi" DisplayName) by Veloquin, $version" ||
    fail "$version did not replace 0.9.0 in place, or its entry says $(arp "$msi" Publisher), $(arp "$msi" DisplayVersion)"
# Settings > Apps takes the icon from the product's ProductIcon, a copy of the package's.
icon=$(wine reg query 'HKLM\SOFTWARE\Classes\Installer\Products' /s /reg:64 2>/dev/null | tr -d '\r' |
       sed -n "s/^ *ProductIcon *REG_SZ *\(.*$(code "$msi").*\)/\1/p")
cmp -s "$(winepath -u "$icon" 2>/dev/null)" "$root/resources/app.ico" && ok "the entry's icon is the launcher's" ||
    fail "the entry's icon '$icon' is not resources/app.ico"
! msiexec older-again /i "$(windows "$older")" && ! installed "$older" && installed "$msi" && present "$version" &&
    ok "0.9.0 refused over $version, which stays" || fail "0.9.0 installed over $version, or changed it: $(state)"
msiexec rebuilt /i "$(windows "$rebuilt")" && installed "$rebuilt" && ! installed "$msi" && present "$version" release &&
    ok "a rebuild of $version replaced it rather than standing beside it, with the release's files" ||
    fail "a rebuild of $version did not replace it, or installed other files: $(state)"

VQTEST_INSTALLED='C:\Program Files\Veloquin' wine "$bin/e2e_tests.exe" --gtest_filter=Installed.Register \
    </dev/null >installed.out 2>&1 && grep -q '^\[  PASSED  \] 1 test' installed.out &&
    [ "$(reg_value "$inproc" /ve)" = "$installed_dll" ] && ok "the installed launcher registered the camera from there" ||
    fail "the installed launcher did not register from there: $(grep -m 1 -A 3 Failure installed.out | tr -s '\n ' ' ')"
# Windows removes the old release inside the new one's installation, with UPGRADINGPRODUCTCODE set. Wine's
# RemoveExistingProducts sets no such property, so the old release's removal runs here as Windows runs it, first.
msiexec upgrade-removal /x "$(code "$rebuilt")" UPGRADINGPRODUCTCODE="$(code "$newer")" && [ ! -s journal.txt ] &&
    msiexec newer /i "$(windows "$newer")" && [ ! -s journal.txt ] && ! installed "$rebuilt" && installed "$newer" &&
    [ "$(reg_value "$inproc" /ve)" = "$installed_dll" ] && ok "an upgrade kept the camera registered" ||
    fail "the upgrade failed, or asked the camera to go: $(head -n 1 journal.txt 2>/dev/null)"
echo "Remove 0x800706BA" >script.txt
! msiexec refused /x "$(code "$newer")" && present "$newer_version" && [ "$(reg_value "$inproc" /ve)" = "$installed_dll" ] &&
    grep -q '^Remove -> 0x800706BA' journal.txt && grep -q 'the virtual camera failed: 0x800706BA' refused.log &&
    ok "the removal stopped when the camera could not go: all stays, the code in the log" ||
    fail "the removal went on although the camera could not go, took something, or logged no code"
# Wine's rollback of the removal puts back what it removed but unregisters the product; Windows' restores all.
: >script.txt
msiexec newer-again /i "$(windows "$newer")" || fail "$newer_version did not install again"

# Registered under another spelling of the same path; removal is never held back by the build.
build_number 19045
reg add "$inproc" /ve /t REG_EXPAND_SZ /d 'c:\PROGRAM FILES\veloquin\VELOQUIN_WINDOWS_VCAM_SOURCE.DLL'
msiexec removal /x "$(windows "$newer")" && ! installed "$newer" && absent && [ -z "$(reg_value "$inproc" /ve)" ] &&
    grep -q '^Remove -> 0x00000000' journal.txt && grep -q 'virtual camera removed, COM server' removal.log &&
    grep -q 'virtual camera removed' "$WINEPREFIX/drive_c/ProgramData/Veloquin/Logs/vcam-service.log" &&
    ok "the removal took the camera, its COM server, files, shortcut, value and entry, and logged it, on build 19045" ||
    fail "the removal left the camera, its COM server or a file, or logged nothing: $(grep -a 'Removal of' removal.log)"
build_number 22631
other='C:\Other\veloquin_windows_vcam_source.dll'
msiexec again /i "$(windows "$msi")" && reg add "$inproc" /ve /d "$other" && msiexec other /x "$(windows "$msi")" &&
    absent && [ "$(reg_value "$inproc" /ve)" = "$other" ] && [ ! -s journal.txt ] && grep -q 'stays registered' other.log &&
    ok "a camera registered from another copy stays, and the log says so" ||
    fail "the removal took another copy's camera, or did not say it left it"
exit $status
