#!/bin/sh
# Installs a build and builds and runs an application against what has been installed:
# check.sh BUILD_FOLDER [TOOLCHAIN_FILE]; with a toolchain for another machine it is only built.
set -eu
source=$(dirname "$0")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# The page for application developers shows this program.
tail -n +3 "$source/main.cpp" >"$folder/main.cpp"
# shellcheck disable=SC2016 # the page's backticks, not the shell's
sed -n '/^`main.cpp`:$/,/^```$/p' "$source/../../docs/writing-an-application.md" | sed '1,3d;$d' |
    diff - "$folder/main.cpp"

cmake --install "$1" --prefix "$folder/installed" >"$folder/log"
cmake -S "$source" -B "$folder/build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="${2:-}" \
    -Dhandheld_DIR="$(dirname "$(find "$folder/installed" -name handheldConfig.cmake)")" \
    >>"$folder/log"
cmake --build "$folder/build" >>"$folder/log" || { cat "$folder/log" && exit 1; }
if [ -n "${2:-}" ]; then
    for program in "$folder/build/consumer" "$folder/installed/bin/terminal-sim"; do
        LC_ALL=C readelf -h "$program" | grep -q 'Machine: *ARM'
    done
    exit
fi
"$folder/installed/bin/terminal-sim" -- "$folder/build/consumer" | grep -q HT100042
# It may be moved, also to where the system takes a name apart.
cp -R "$folder/installed" "$folder/installed in: C"
"$folder/installed in: C/bin/terminal-sim" -- "$folder/build/consumer" | grep -q HT100042

# The same as a shared library, whose name tells what it fits, for a build without CMake.
cmake -S "$source/../.." -B "$folder/shared" -G Ninja -DBUILD_SHARED_LIBS=ON -DHANDHELD_BUILD_SIM=OFF \
    -DHANDHELD_BUILD_APPS=OFF -DHANDHELD_BUILD_TESTS=OFF >>"$folder/log"
cmake --build "$folder/shared" >>"$folder/log" || { cat "$folder/log" && exit 1; }
cmake --install "$folder/shared" --prefix "$folder/shared-installed" >>"$folder/log"
PKG_CONFIG_PATH=$(dirname "$(find "$folder/shared-installed" -name handheld.pc)")
export PKG_CONFIG_PATH
# shellcheck disable=SC2046 # flags are words
c++ -std=c++17 -o "$folder/by-pkg-config" "$source/main.cpp" $(pkg-config --cflags --libs handheld)
LC_ALL=C readelf -d "$folder/by-pkg-config" | grep -q 'NEEDED.*libhandheld\.so\.0\.1]'
LD_LIBRARY_PATH=$(pkg-config --variable=libdir handheld) \
    "$folder/installed/bin/terminal-sim" -- "$folder/by-pkg-config" | grep -q HT100042
test ! -e "$1/bin/terminalctl" || test -e "$folder/installed/share/man/man1/terminalctl.1"
