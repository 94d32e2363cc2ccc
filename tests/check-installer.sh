#!/usr/bin/env bash
# The MSI that scripts/package makes, installed with Wine's own msiexec into the tests' prefix: it refuses Windows
# before 11 and a half-made release, installs the three files, the shortcut and the Settings > Apps entry, upgrades
# in place but never downgrades, and can't be removed while the camera it installed is registered. The launcher
# started from the installed folder registers and unregisters against the stand-ins. The prefix is left as found.
# Usage: bash tests/check-installer.sh <build-folder>, with WINEPREFIX and a display set, as ctest runs it.
set -euo pipefail
[ $# -eq 1 ] || { echo "usage: $0 <build-folder>" >&2; exit 2; }
source "$(dirname "$0")/checks.sh"
begin_check "$1" installer wixl msitools
: "${WINEPREFIX:?set WINEPREFIX to the prefix of the tests}"

# Fixed once for every release: a package with another one would install beside the old one, not over it.
upgrade_code="{CDEB64CB-E699-4473-A9B5-97C48101683C}"
version=$(project_version)
bin="$built/bin"
folder="$WINEPREFIX/drive_c/Program Files/Veloquin"
files=(veloquin_launcher.exe veloquin_windows_vcam_source.dll veloquin_windows_retouch_vcam_producer.exe)
programs="$WINEPREFIX/drive_c/users/$(id -un)/AppData/Roaming/Microsoft/Windows/Start Menu/Programs"
current_version='HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion'
inproc='HKLM\SOFTWARE\Classes\CLSID\{fb0afedc-9b71-404f-8154-36cc0ef0a550}\InprocServer32'

# --- What scripts/package refuses, and what it leaves behind then: nothing.
printf 'MZ' >not-a-dll.dll
cp "$bin/standin_system.dll" x86.dll
header=$(od -An -tu4 --endian=little -j 60 -N 4 x86.dll | tr -d ' ')
printf '\x4c\x01' | dd of=x86.dll bs=1 seek=$((header + 4)) conv=notrunc status=none
refusals=(
    "--media-source $bin/standin_system.dll|--media-source and --producer go together"
    "--producer $bin/standin_producer.exe|--media-source and --producer go together"
    "--media-source $bin/standin_producer.exe --producer $bin/standin_producer.exe|$bin/standin_producer.exe: not a DLL"
    "--media-source $bin/standin_system.dll --producer $bin/canary.dll|$bin/canary.dll: a DLL, not a program"
    "--media-source $scratch/x86.dll --producer $bin/standin_producer.exe|$scratch/x86.dll: not x64"
    "--media-source $scratch/not-a-dll.dll --producer $bin/standin_producer.exe|$scratch/not-a-dll.dll: not a Windows"
    "--media-source $bin/standin_system.dll --producer $scratch/missing.exe|$scratch/missing.exe: not found"
)
mkdir dist
for refusal in "${refusals[@]}"; do
    arguments=${refusal%|*} expected=${refusal#*|}
    # Left by an earlier run, each could pass for this one's result.
    touch dist/veloquin-launcher.zip "dist/veloquin-$version-x64.msi"
    # shellcheck disable=SC2086 # the test's own paths have no blanks
    if "$root/scripts/package" $arguments --out dist >refused.out 2>refused.err; then
        fail "package $arguments succeeded"
    elif ! grep -qF -- "$expected" refused.err; then
        fail "package $arguments said '$(reason refused.err)', not '$expected'"
    elif [ -n "$(ls dist)" ]; then
        fail "package $arguments left $(ls dist | tr '\n' ' ')in its folder"
    else
        ok "package refused $arguments: $(reason refused.err)"
    fi
done

msi="$scratch/dist/veloquin-$version-x64.msi"
if "$root/scripts/package" --media-source "$bin/standin_system.dll" --producer "$bin/standin_producer.exe" \
        --out dist >package.out 2>package.err && [ -f "$msi" ] && [ -f dist/veloquin-launcher.zip ]; then
    ok "package made $(ls dist | tr '\n' ' ')"
else
    fail "package with both files made no MSI beside the zip: $(reason package.err)"
    exit 1
fi

# --- What Wine can't show: the tables behind the messages, the Start menu folder, the entry's icon.
table() { msiinfo export "$1" "$2" | tr -d '\r'; }
property() { table "$1" Property | sed -n "s/^$2\t//p"; }
for expected in "UpgradeCode=$upgrade_code" "ProductVersion=$version" "Manufacturer=Veloquin" \
                "ProductName=Veloquin Launcher" "ARPPRODUCTICON=app.ico" "ALLUSERS=1"; do
    value=$(property "$msi" "${expected%%=*}")
    [ "${expected%%=*}=$value" = "$expected" ] && ok "property $expected" || fail "property ${expected%%=*} is '$value'"
done
table "$msi" Shortcut >shortcut.txt
if awk -F '\t' '$1 == "StartMenuShortcut" && $2 == "ProgramMenuFolder" && $3 == "Veloquin Launcher" &&
                $5 == "[#Launcher]" {found = 1} END {exit !found}' shortcut.txt; then
    ok "the shortcut Veloquin Launcher is in ProgramMenuFolder and starts the launcher"
else
    fail "no shortcut Veloquin Launcher to [#Launcher] in ProgramMenuFolder: $(tail -n +4 shortcut.txt)"
fi
table "$msi" LaunchCondition >conditions.txt
for message in "needs Windows 11 (build 22000 or later)" \
               'Open Veloquin Launcher, press "Unregister vcam", then remove Veloquin Launcher again.' \
               "A newer version of Veloquin Launcher is already installed."; do
    grep -qF -- "$message" conditions.txt && ok "a launch condition says: $message" ||
        fail "no launch condition says: $message"
done
if msiinfo suminfo "$msi" | grep -q '^Template: x64;'; then ok "the package is for x64"; else fail "the package is not for x64"; fi

# --- The same files packaged as an older, a rebuilt and a newer release, from the same source.
mkdir release
cp "$bin/veloquin_launcher.exe" release/
cp "$bin/standin_system.dll" release/veloquin_windows_vcam_source.dll
cp "$bin/standin_producer.exe" release/veloquin_windows_retouch_vcam_producer.exe
IFS=. read -r major minor patch <<<"$version"
older=$scratch/older.msi rebuilt=$scratch/rebuilt.msi newer=$scratch/newer.msi
make_msi 0.9.0 release "$older" && make_msi "$version" release "$rebuilt" &&
    make_msi "$major.$minor.$((patch + 1))" release "$newer" || { fail "wixl could not build the test packages"; exit 1; }

# --- Under Wine. Whatever happens, the camera registration, the packages and the build number go.
windows() { printf 'Z:%s' "${1//\//\\}"; }
# The data of value $2 of key $1, its default value without $2; nothing when there is none.
reg_value() {
    local name=(/ve)
    [ -z "${2:-}" ] || name=(/v "$2")
    { wine reg query "$1" "${name[@]}" /reg:64 2>/dev/null || true; } | tr -d '\r' | sed -n 's/.*    REG_[A-Z_]*    //p'
}
build_number() {
    if [ -n "$1" ]; then
        wine reg add "$current_version" /v CurrentBuildNumber /t REG_SZ /d "$1" /f /reg:64 >/dev/null 2>&1
    else
        wine reg delete "$current_version" /v CurrentBuildNumber /f /reg:64 >/dev/null 2>&1 || true
    fi
}
code() { property "$1" ProductCode; }
arp() { reg_value "HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\$(code "$1")" "$2"; }
installed() { [ -n "$(arp "$1" DisplayName)" ]; }
# msiexec's exit code: Wine hands only its low byte to Unix, so Windows' 1603 reads 67.
msiexec() {
    local log=$1
    shift
    wine msiexec "$@" /qn /l*v "$(windows "$scratch/$log.log")" </dev/null >/dev/null 2>&1
}
original_build=$(reg_value "$current_version" CurrentBuildNumber)
cleanup() {
    wine reg delete "${inproc%\\*}" /f /reg:64 >/dev/null 2>&1 || true
    # A build the package accepts, whatever the test had set.
    build_number 22631
    for package in "$msi" "$older" "$rebuilt" "$newer"; do
        ! installed "$package" || msiexec cleanup /x "$(code "$package")" || echo "FAIL: $package stays installed"
    done
    build_number "$original_build"
}
trap cleanup EXIT
cp "$bin/standin_system.dll" "$WINEPREFIX/drive_c/windows/system32/mfsensorgroup.dll"
wine reg delete "${inproc%\\*}" /f /reg:64 >/dev/null 2>&1 || true

present() {
    for file in "${files[@]}"; do [ -f "$folder/$file" ] || return 1; done
    [ -f "$programs/Veloquin Launcher.lnk" ]
}
absent() { [ ! -e "$folder" ] && [ ! -e "$programs/Veloquin Launcher.lnk" ]; }

# Windows Installer compares the build, a string, as a number with 22000; missing, it compares false.
for build in "" 9600 19045 21999 22000 100000; do
    build_number "$build"
    if [ -z "$build" ] || [ "$build" -lt 22000 ]; then
        if msiexec "build-${build:-missing}" /i "$(windows "$msi")"; then
            fail "installed on build ${build:-(none)}"
        elif ! absent || installed "$msi"; then
            fail "a refused install on build ${build:-(none)} left files or an entry behind"
        else
            ok "install refused on build ${build:-(none)}, nothing left"
        fi
    elif ! msiexec "build-$build" /i "$(windows "$msi")"; then
        fail "install refused on build $build (build-$build.log)"
    elif ! present; then
        fail "installed on build $build, but not all of ${files[*]} and the shortcut are where they belong"
    elif ! msiexec "build-$build-removal" /x "$(windows "$msi")" || ! absent; then
        fail "installed on build $build, but the removal failed or left something behind"
    else
        ok "installed and removed on build $build"
    fi
done
build_number 22631

msiexec older /i "$(windows "$older")" && installed "$older" && [ "$(arp "$older" DisplayVersion)" = 0.9.0 ] ||
    fail "version 0.9.0 did not install"
if msiexec current /i "$(windows "$msi")" && installed "$msi" && ! installed "$older" && present; then
    ok "$version replaced 0.9.0 in place: $(arp "$msi" DisplayName), $(arp "$msi" Publisher), $(arp "$msi" DisplayVersion)"
else
    fail "$version did not replace 0.9.0 in place"
fi
for file in "${files[@]}"; do
    cmp -s "$folder/$file" "release/$file" || fail "C:\\Program Files\\Veloquin\\$file is not the release's"
done
if [ "$(arp "$msi" Publisher)|$(arp "$msi" DisplayVersion)" = "Veloquin|$version" ]; then
    ok "Settings > Apps lists Veloquin Launcher by Veloquin, version $version"
else
    fail "the Settings > Apps entry says publisher '$(arp "$msi" Publisher)', version '$(arp "$msi" DisplayVersion)'"
fi
# Settings > Apps takes the icon from the product's ProductIcon, a copy of the package's.
icon=$(wine reg query 'HKLM\SOFTWARE\Classes\Installer\Products' /s /reg:64 2>/dev/null | tr -d '\r' |
       sed -n "s/^ *ProductIcon *REG_SZ *\(.*$(code "$msi").*\)/\1/p")
if [ -n "$icon" ] && cmp -s "$(winepath -u "$icon" 2>/dev/null)" "$root/resources/app.ico"; then
    ok "the entry's icon is the launcher's: $icon"
else
    fail "the entry's icon '$icon' is not resources/app.ico"
fi
if msiexec older-again /i "$(windows "$older")"; then
    fail "0.9.0 installed over $version"
elif installed "$older" || ! installed "$msi" || ! present; then
    fail "the refused 0.9.0 changed what $version installed"
else
    ok "0.9.0 refused over $version, which stays"
fi
if msiexec rebuilt /i "$(windows "$rebuilt")" && installed "$rebuilt" && ! installed "$msi" && present; then
    ok "a rebuild of $version replaced it rather than standing beside it"
else
    fail "a rebuild of $version did not replace it"
fi

# --- The launcher where it was installed, registering; removal refused meanwhile, an upgrade not.
run_installed() {
    VQTEST_INSTALLED='C:\Program Files\Veloquin' VQTEST_PRESS=$1 wine "$bin/e2e_tests.exe" --gtest_filter=Installed.Press \
        </dev/null >"installed-$1.out" 2>&1 && grep -q '^\[  PASSED  \] 1 test' "installed-$1.out"
}
if run_installed Register; then
    ok "the installed launcher registered the camera"
else
    fail "the installed launcher did not register: $(grep -m 1 -A 3 'Failure' "installed-Register.out" | tr -s '\n ' ' ' || reason "installed-Register.out")"
fi
dll=$(reg_value "$inproc")
[ "$dll" = 'C:\Program Files\Veloquin\veloquin_windows_vcam_source.dll' ] &&
    ok "the camera's COM server is $dll" || fail "the camera's COM server is '$dll'"
msiexec refused /x "$(windows "$rebuilt")" && refused=0 || refused=$?
if [ "$refused" -eq 0 ]; then
    fail "removed while the camera is registered"
elif ! present || ! installed "$rebuilt"; then
    fail "the refused removal took files, the shortcut or the entry"
else
    ok "removal refused while the camera is registered (msiexec exited $refused), files stay"
fi
if msiexec newer /i "$(windows "$newer")" && installed "$newer" && present && [ "$(reg_value "$inproc")" = "$dll" ]; then
    ok "a newer release installed in place while the camera is registered"
else
    fail "no upgrade while the camera is registered"
fi
# Windows removes the old release inside that install with UPGRADINGPRODUCTCODE set. Wine's RemoveExistingProducts
# sets no such property and ignores the refusal, so the old release's removal runs here as Windows runs it.
! installed "$rebuilt" ||
    msiexec upgrade-removal /x "$(code "$rebuilt")" UPGRADINGPRODUCTCODE="$(code "$newer")" || true
if ! installed "$rebuilt" && installed "$newer" && present; then
    ok "the old release's removal for the upgrade went through while the camera is registered"
else
    fail "the old release's removal for the upgrade was refused while the camera is registered"
fi
if run_installed Unregister && [ -z "$(reg_value "$inproc" ThreadingModel)" ]; then
    ok "the installed launcher unregistered the camera"
else
    fail "the installed launcher did not unregister: $(grep -m 1 -A 3 'Failure' "installed-Unregister.out" | tr -s '\n ' ' ' || reason "installed-Unregister.out")"
fi

# Removal is never held back by the build, so that nobody is stuck with a package on an older Windows.
build_number 19045
if msiexec removal /x "$(windows "$newer")" && ! installed "$newer" && absent &&
   [ -z "$(reg_value 'HKLM\SOFTWARE\Veloquin\Launcher' StartMenuShortcut)" ]; then
    ok "removed once unregistered, on build 19045 too: no file, shortcut, folder or entry left"
else
    fail "removal after unregistering failed or left something behind"
fi

exit $status
