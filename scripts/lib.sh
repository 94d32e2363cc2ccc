# Shared by scripts/run and scripts/test: packages, build, display. Sourced, not run.
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build="$root/build"

packages=(g++-mingw-w64-x86-64-posix mingw-w64-x86-64-dev binutils-mingw-w64-x86-64 wine wine64 xvfb
          imagemagick x11-apps cmake ninja-build googletest zip)

ensure_packages() {
    local missing=()
    for package in "${packages[@]}"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    echo "installing: ${missing[*]}"
    local sudo=""
    [ "$(id -u)" -eq 0 ] || sudo=sudo
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
}

build_all() {
    cmake --preset mingw -S "$root" >/dev/null
    cmake --build "$build"
}

# The version of the project() line in CMakeLists.txt, the one place it is set.
project_version() {
    sed -n 's/^project(VeloquinLauncher VERSION \([0-9][0-9.]*\)[ )].*/\1/p' "$root/CMakeLists.txt"
}

# The values of column $3 of table $2 in MSI $1, one a line.
msi_column() {
    msiinfo export "$1" "$2" | tr -d '\r' |
        awk -F '\t' -v name="$3" 'NR == 1 {for (i = 1; i <= NF; i++) if ($i == name) column = i} NR > 3 {print $column}'
}

# Builds the MSI from package/veloquin.wxs: make_msi VERSION FOLDER OUT.msi, where FOLDER holds the launcher,
# the media source and the producer under their release names, and may hold the custom action already (signed).
make_msi() {
    local version=$1 folder=$2 msi secure
    msi=$(cd "$(dirname "$3")" && pwd)/$(basename "$3")
    cp "$root/package/veloquin.wxs" "$root/resources/app.ico" "$folder/"
    cp -n "$build/bin/veloquin_remove_camera.dll" "$folder/"
    # wixl takes a file from the current folder before the one beside the source: run where they are alone.
    (cd "$folder" && wixl -a x64 -D Version="$version" -o "$msi" veloquin.wxs) || return
    # A per-machine installation with a user interface searches in the user's process; the elevated one gets
    # only the properties listed here. wixl lists the Upgrade table's alone, ignores Secure= and refuses a list
    # of ours, so every property that AppSearch or an Upgrade row sets is listed afterwards.
    secure=$({ msi_column "$msi" AppSearch Property && msi_column "$msi" Upgrade ActionProperty; } | sort -u | paste -sd ';')
    msibuild "$msi" -q "UPDATE \`Property\` SET \`Value\`='$secure' WHERE \`Property\`='SecureCustomProperties'"
}

export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml="

# Makes the Wine prefix $WINEPREFIX (once), puts the stand-in for the Media Foundation pieces that Wine lacks into its
# system32 under both names, and maps drive V: to a folder of BUILD that stands for a drive's root: prepare_prefix BUILD.
# A subshell, for the umask: the server creates the files under its own, and with 0 the rights Windows code asks for show.
prepare_prefix() (
    umask 0
    if [ ! -f "$WINEPREFIX/system.reg" ]; then
        mkdir -p "$WINEPREFIX"
        wineboot -i >/dev/null 2>&1
        wineserver -w
    fi
    # The server and Wine's own services are kept running between the Wine processes that follow, started here with
    # their output away from the caller's pipe, which would otherwise wait for them to end.
    wineserver -p30 </dev/null >/dev/null 2>&1 || true
    wine cmd /c exit </dev/null >/dev/null 2>&1
    for name in mf mfsensorgroup; do
        cp "$1/bin/standin_system.dll" "$WINEPREFIX/drive_c/windows/system32/$name.dll"
    done
    # Links that a run stopped half-way may have left planted where the service log goes; from Unix a link is removed
    # as itself, while Wine would follow it.
    rm -rf "$WINEPREFIX/drive_c/ProgramData/Veloquin"
    mkdir -p "$1/drive-v"
    ln -sfn "$1/drive-v" "$WINEPREFIX/dosdevices/v:"
)

xvfb_pid=""
# Starts a virtual display on a free number and exports DISPLAY.
start_xvfb() {
    local n=90
    while [ -e "/tmp/.X11-unix/X$n" ] || [ -e "/tmp/.X$n-lock" ]; do n=$((n + 1)); done
    Xvfb ":$n" -screen 0 1024x768x24 -nolisten tcp >/dev/null 2>&1 &
    xvfb_pid=$!
    export DISPLAY=":$n"
    for _ in $(seq 50); do
        [ -e "/tmp/.X11-unix/X$n" ] && return 0
        sleep 0.1
    done
    echo "Xvfb did not start" >&2
    return 1
}

stop_everything() {
    [ -n "${WINEPREFIX:-}" ] && wineserver -k >/dev/null 2>&1 || true
    [ -n "$xvfb_pid" ] && kill "$xvfb_pid" >/dev/null 2>&1 || true
}
