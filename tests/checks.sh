# Shared by the release checks that ctest runs: the packages a check needs, a scratch folder of its own, and
# its verdict lines. Sourced, not run.
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/lib.sh"

status=0
ok() { echo "ok: $*"; }
fail() { echo "FAIL: $*"; status=1; }
# The first line a failed step wrote on standard error, to say why without replaying its whole log.
reason() { grep -m 1 . "$1" || echo "no message"; }

# begin_check BUILD NAME PACKAGE...: installs what is missing, sets bin and version, works in BUILD/scratch/NAME emptied.
begin_check() {
    [ -d "$1" ] || { echo "usage: $0 <build-folder>" >&2; exit 2; }
    built=$(cd "$1" && pwd) packages=("${@:3}") version=$(project_version)
    scratch="$built/scratch/$2" bin="$built/bin"
    ensure_packages
    rm -rf "$scratch" && mkdir -p "$scratch" && cd "$scratch" || exit 1
}
