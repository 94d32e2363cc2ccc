#!/usr/bin/env bash
# A signed release must carry SHA-256 Authenticode signatures by the certificate it was given, on the launcher and on
# the MSI that installs that same signed launcher, and Windows must reject the launcher's once a byte of its code
# changes; an unsigned release must stay reproducible to the byte.
# Usage: bash tests/check-signing.sh <build-folder>
set -euo pipefail
[ $# -eq 1 ] || { echo "usage: $0 <build-folder>" >&2; exit 2; }
source "$(dirname "$0")/checks.sh"
begin_check "$1" signing openssl osslsigncode unzip binutils-mingw-w64-x86-64 msitools

# osslsigncode ends each failure with a bare "Failed"; the line that says why comes earlier.
why_unverified() { grep -v '^Failed$' "$1" | grep -m 1 -iE 'mismatch|no signature|error|unable|fail' || echo "no reason given"; }

# Spaces and punctuation, so that a password mangled on its way to osslsigncode shows.
password='throwaway: pass phrase $1'
if openssl req -x509 -newkey rsa:2048 -sha256 -nodes -days 3 -keyout key.pem -out cert.pem \
        -subj "/CN=Veloquin test signer" -addext "extendedKeyUsage=codeSigning" \
        -addext "keyUsage=critical,digitalSignature" 2>openssl.log &&
   VELOQUIN_SIGN_PASSWORD=$password openssl pkcs12 -export -inkey key.pem -in cert.pem -out signer.pfx \
        -passout env:VELOQUIN_SIGN_PASSWORD 2>>openssl.log; then
    ok "throwaway code-signing certificate and password-protected PFX made"
else
    fail "could not make the throwaway certificate: $(reason openssl.log)"
    exit 1
fi

# Pinning the leaf keeps a signature by some other certificate that chains to the same root from passing.
leaf="sha256:$(openssl x509 -in cert.pem -outform DER | sha256sum | cut -d ' ' -f 1)"
verify() { osslsigncode verify -CAfile cert.pem -require-leaf-hash "$leaf" -in "$1"; }

# A stand-in first on the PATH records osslsigncode's arguments, which any user's process listing would show.
mkdir shim
printf '#!/bin/sh\nprintf "%%s\\n" "$@" >>"%s"\nexec %s "$@"\n' "$scratch/osslsigncode.argv" \
    "$(command -v osslsigncode)" >shim/osslsigncode
chmod +x shim/osslsigncode

if VELOQUIN_SIGN_PASSWORD=$password PATH="$scratch/shim:$PATH" "$root/scripts/package" --sign signer.pfx \
        --media-source "$build/bin/standin_system.dll" --producer "$build/bin/standin_producer.exe" \
        --out "$scratch/signed" >signed.out 2>signed.err; then
    ok "package --sign exited 0"
else
    fail "package --sign failed: $(reason signed.err)"
fi
if grep -q '^signed: ' signed.out && ! grep -q '^unsigned: ' signed.out; then
    ok "package --sign said it signed"
else
    fail "package --sign did not say it signed"
fi

if [ ! -s osslsigncode.argv ]; then
    fail "package --sign never ran osslsigncode"
elif grep -qF -- "$password" osslsigncode.argv; then
    fail "the password was on osslsigncode's command line"
else
    ok "the password stayed off osslsigncode's command line"
fi

exe="$scratch/veloquin_launcher.exe"
if unzip -q -o -j signed/veloquin-launcher.zip veloquin-launcher/veloquin_launcher.exe -d "$scratch" 2>unzip.err; then
    ok "launcher unzipped from the signed zip"
else
    fail "no launcher in the signed zip: $(reason unzip.err)"
fi

verified=false
if verify "$exe" >verify.out 2>&1; then
    verified=true
    ok "signature verifies against the throwaway certificate"
else
    fail "signature does not verify: $(why_unverified verify.out)"
fi
# Both the file's digest and the signer's must be SHA-256; one SHA-1 among them is a weak link.
algorithms=$(sed -n 's/^[[:space:]]*Message digest algorithm[[:space:]]*:[[:space:]]*//p' verify.out | sort -u)
if [ "$algorithms" = "SHA256" ]; then
    ok "signature digests are SHA-256"
else
    fail "signature digests are '${algorithms//$'\n'/, }', not SHA-256 alone"
fi
if grep -q 'Text description: Veloquin Launcher$' verify.out; then
    ok "signature describes the content as Veloquin Launcher"
else
    fail "signature lacks the description Veloquin Launcher"
fi

msi="$scratch/signed/veloquin-$(project_version)-x64.msi"
if verify "$msi" >verify-msi.out 2>&1 &&
   [ "$(sed -n 's/^[[:space:]]*Message digest algorithm[[:space:]]*:[[:space:]]*//p' verify-msi.out | sort -u)" = SHA256 ]; then
    ok "the MSI's signature verifies against the throwaway certificate, SHA-256 throughout"
else
    fail "the MSI's signature does not verify, or is not SHA-256 throughout: $(why_unverified verify-msi.out)"
fi
if msiextract -C installed "$msi" >/dev/null 2>msiextract.err && [ -f "$exe" ] &&
   cmp -s installed/*/veloquin_launcher.exe "$exe"; then
    ok "the MSI installs the signed launcher"
else
    fail "the MSI's launcher is not the signed one of the zip: $(reason msiextract.err)"
fi

# Flip every bit of the byte in the middle of the code, so that the change cannot leave it as it was.
tampered="$scratch/tampered.exe"
if [ -f "$exe" ]; then
    cp "$exe" "$tampered"
    read -r size offset < <(x86_64-w64-mingw32-objdump -h "$tampered" | awk '$2 == ".text" {print $3, $6}') || true
fi
if [ -n "${size:-}" ] && [ -n "${offset:-}" ]; then
    position=$((16#$offset + 16#$size / 2))
    byte=$(od -An -tu1 -j "$position" -N 1 "$tampered" | tr -d ' ')
    printf "\\x$(printf '%02x' $((byte ^ 0xff)))" | dd of="$tampered" bs=1 seek="$position" conv=notrunc status=none
    if [ "$(cmp -l "$exe" "$tampered" | wc -l)" -eq 1 ]; then
        ok "one byte of the code changed at offset $position"
    else
        fail "the tampered copy does not differ from the signed exe by exactly one byte"
    fi
    # A refusal means something only for a signature that passed before the change.
    if ! $verified; then
        fail "no valid signature to break by changing a byte"
    elif verify "$tampered" >tampered.out 2>&1; then
        fail "signature still verifies after a byte of the code changed"
    else
        ok "signature no longer verifies after a byte of the code changed"
    fi
else
    fail "no code section found in a signed launcher to tamper with"
fi

for run in a b; do
    "$root/scripts/package" --out "$scratch/$run" >"unsigned-$run.out" 2>"unsigned-$run.err" ||
        fail "package without a certificate (run $run) failed: $(reason "unsigned-$run.err")"
done
if [ -f a/veloquin-launcher.zip ] && cmp -s a/veloquin-launcher.zip b/veloquin-launcher.zip; then
    ok "two unsigned zips are identical to the byte"
else
    fail "the two unsigned zips differ or are missing"
fi
if [ "$(grep -c '^unsigned: ' unsigned-a.out)" -eq 1 ]; then
    ok "unsigned run said once that it is unsigned"
else
    fail "unsigned run did not print its one 'unsigned:' line"
fi
# Without a certificate the launcher must go out as built, with no signature and nothing else added.
if unzip -q -p a/veloquin-launcher.zip veloquin-launcher/veloquin_launcher.exe >unsigned.exe 2>/dev/null &&
   cmp -s unsigned.exe "$build/bin/veloquin_launcher.exe"; then
    ok "unsigned zip holds the launcher exactly as built"
else
    fail "unsigned zip's launcher differs from $build/bin/veloquin_launcher.exe"
fi

exit $status
