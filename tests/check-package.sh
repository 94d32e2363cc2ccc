#!/usr/bin/env bash
# What scripts/package makes: nothing for a half-made release; signed, SHA-256 signatures by the certificate on every
# file (a release file's own one kept), the password on no command line, the MSI's tables; unsigned, the same zip twice.
# The signed MSI stays in signed/ for the installer scenario.
# Usage: bash tests/check-package.sh <build-folder>
set -euo pipefail
source "$(dirname "$0")/checks.sh"
begin_check "${1:-}" package wixl msitools openssl osslsigncode unzip
package() { "$root/scripts/package" "$@" >"$run.out" 2>"$run.err"; }

printf 'MZ' >not-a-dll.dll
# The machine field behind the PE signature, at the offset that the DOS header's last field gives, made i386's.
perl -0777 -pe 'substr($_, unpack("V", substr($_, 60, 4)) + 4, 2) = "\x4c\x01"' "$bin/standin_system.dll" >x86.dll
mkdir dist shim
while IFS='|' read -r arguments expected; do
    # Left by an earlier run, each could pass for this one's result.
    touch dist/veloquin-launcher.zip "dist/veloquin-$version-x64.msi"
    # shellcheck disable=SC2086 # the test's own paths have no blanks
    ! run=refused package $arguments --out dist && grep -qF -- "$expected" refused.err && [ -z "$(ls dist)" ] &&
        ok "package refused $arguments: $(reason refused.err)" ||
        fail "package $arguments did not stop with '$expected' ('$(reason refused.err)'), or left $(ls dist | tr '\n' ' ')"
done <<EOF
--media-source $bin/standin_system.dll|--media-source and --producer go together
--producer $bin/standin_producer.exe|--media-source and --producer go together
--media-source $bin/standin_producer.exe --producer $bin/standin_producer.exe|$bin/standin_producer.exe: not a DLL
--media-source $bin/standin_system.dll --producer $bin/canary.dll|$bin/canary.dll: a DLL, not a program
--media-source $scratch/x86.dll --producer $bin/standin_producer.exe|$scratch/x86.dll: not x64
--media-source $scratch/not-a-dll.dll --producer $bin/standin_producer.exe|$scratch/not-a-dll.dll: not a Windows
--media-source $bin/standin_system.dll --producer $scratch/missing.exe|$scratch/missing.exe: not found
EOF

# Spaces and punctuation, so that a password mangled on its way to osslsigncode shows.
export VELOQUIN_SIGN_PASSWORD='throwaway: pass phrase $1'
openssl req -x509 -newkey rsa:2048 -sha256 -nodes -days 3 -keyout key.pem -out cert.pem -subj "/CN=Veloquin test" \
    -addext extendedKeyUsage=codeSigning -addext keyUsage=critical,digitalSignature 2>openssl.log &&
    openssl pkcs12 -export -inkey key.pem -in cert.pem -out signer.pfx -passout env:VELOQUIN_SIGN_PASSWORD ||
    { fail "no throwaway certificate: $(reason openssl.log)"; exit 1; }
# The producer comes signed by its maker, here with the same certificate: its signature must stay as it is.
osslsigncode sign -pkcs12 signer.pfx -pass "$VELOQUIN_SIGN_PASSWORD" -h sha256 -in "$bin/standin_producer.exe" \
    -out producer.exe >/dev/null
# A stand-in first on the PATH records osslsigncode's arguments, which any user's process listing would show.
printf '#!/bin/sh\nprintf "%%s\\n" "$@" >>"%s"\nexec %s "$@"\n' "$scratch/argv" "$(command -v osslsigncode)" >shim/osslsigncode
chmod +x shim/osslsigncode
PATH="$scratch/shim:$PATH" run=signed package --sign signer.pfx --media-source "$bin/standin_system.dll" \
    --producer producer.exe --out "$scratch/signed" && grep -q '^signed: ' signed.out && ! grep -q '^unsigned' signed.out &&
    ok "package --sign made $(ls signed | tr '\n' ' ')and said so" ||
    { fail "package --sign failed or did not say it signed: $(reason signed.err)"; exit 1; }
[ -s argv ] && ! grep -qF -- "$VELOQUIN_SIGN_PASSWORD" argv && ok "the password stayed off osslsigncode's command line" ||
    fail "the password was on osslsigncode's command line, or osslsigncode was not run from the PATH"

msi="signed/veloquin-$version-x64.msi"
unzip -q -j signed/veloquin-launcher.zip veloquin-launcher/veloquin_launcher.exe -d "$scratch" 2>/dev/null || true
msiextract -C installed "$msi" >/dev/null 2>&1 || true
msiinfo extract "$msi" Binary.RemoveCamera >remove_camera.dll 2>/dev/null || true
cmp -s installed/Veloquin/veloquin_launcher.exe veloquin_launcher.exe && ok "the MSI installs the zip's signed launcher" ||
    fail "the MSI's launcher is not the signed one of the zip"
cmp -s installed/Veloquin/veloquin_windows_retouch_vcam_producer.exe producer.exe &&
    ok "the producer's own signature kept as it was" || fail "the producer's own signature was not kept as it was"
# Pinning the leaf keeps a signature by another certificate that chains to the same root from passing.
leaf="sha256:$(openssl x509 -in cert.pem -outform DER | sha256sum | cut -d ' ' -f 1)"
verify() { osslsigncode verify -CAfile cert.pem -require-leaf-hash "$leaf" -in "$1" >verify.out 2>&1; }
for file in veloquin_launcher.exe installed/Veloquin/veloquin_windows_vcam_source.dll remove_camera.dll "$msi"; do
    # The file's digest and the signer's must both be SHA-256: one SHA-1 among them is a weak link.
    verify "$file" && [ "$(sed -n 's/^ *Message digest algorithm *: *//p' verify.out | sort -u)" = SHA256 ] &&
        grep -q 'Text description: Veloquin Launcher$' verify.out &&
        ok "$(basename "$file") signed by the certificate, SHA-256 throughout, as Veloquin Launcher" ||
        fail "$(basename "$file") not signed so: $(grep -v '^Failed$' verify.out | grep -m 1 -iE 'mismatch|no sig|error|fail')"
done

# What Wine can't show, read from the tables: one pattern a line, tab-separated like the export.
for table in Property Shortcut LaunchCondition CustomAction InstallExecuteSequence AppSearch Upgrade; do
    msiinfo export "$msi" "$table" | tr -d '\r' | tail -n +4 >"$table.txt"
done
msiinfo suminfo "$msi" >Summary.txt
secure=$(sed -n 's/^SecureCustomProperties\t//p' Property.txt)
actions="InstallInitialize RemoveExistingProducts SetRemoveCamera RemoveCamera ProcessComponents RemoveFiles"
order=$(sort -t $'\t' -k 3n InstallExecuteSequence.txt | cut -f 1 | grep -xF "${actions// /$'\n'}" | paste -sd ' ')
while IFS='|' read -r table pattern; do
    grep -qP -- "$pattern" "$table.txt" && ok "$table holds $pattern" || fail "$table lacks $pattern"
done <<EOF
Property|^\QUpgradeCode\E\t\Q{CDEB64CB-E699-4473-A9B5-97C48101683C}\E$
Property|^ProductName\tVeloquin Launcher$
Property|^ALLUSERS\t1$
Property|^ARPNOMODIFY\t1$
Shortcut|^StartMenuShortcut\tProgramMenuFolder\tVeloquin Launcher\t[^\t]*\t\Q[#Launcher]\E\t
LaunchCondition|^\QInstalled OR WINDOWSBUILDNUMBER >= 22000\E\t\QVeloquin Launcher needs Windows 11 (build 22000 or later)\E
LaunchCondition|^NOT WIX_DOWNGRADE_DETECTED\t\QA newer version of Veloquin Launcher is already installed.\E
CustomAction|^RemoveCamera\t3073\tRemoveCamera\tRemoveCamera\t
Summary|^Template: x64;
EOF
[ "$order" = "$actions" ] && ok "the actions in their order: $order" || fail "the actions out of order: $order"
searched=$(cut -f 1 AppSearch.txt; cut -f 7 Upgrade.txt)
for property in $searched; do
    [[ ";$secure;" == *";$property;"* ]] && ok "$property in SecureCustomProperties" ||
        fail "$property, set by AppSearch or Upgrade, not in SecureCustomProperties '$secure'"
done

for copy in a b; do
    run=unsigned-$copy package --out "$scratch/$copy" || fail "unsigned run $copy failed: $(reason "unsigned-$copy.err")"
done
cmp -s a/veloquin-launcher.zip b/veloquin-launcher.zip && [ "$(grep -c '^unsigned: ' unsigned-a.out)" -eq 1 ] &&
    cmp -s <(unzip -q -p a/veloquin-launcher.zip veloquin-launcher/veloquin_launcher.exe) "$bin/veloquin_launcher.exe" &&
    ok "unsigned, the zip is the same bytes twice, with the launcher as built, and the run says it is unsigned" ||
    fail "the unsigned zips differ, hold another launcher, or the run did not say once that it is unsigned"
exit $status
