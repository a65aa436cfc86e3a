#!/bin/sh
# Installs a build and builds and runs an application against what has been installed:
# check.sh BUILD_FOLDER
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
cmake -S "$source" -B "$folder/build" -G Ninja -DCMAKE_PREFIX_PATH="$folder/installed" >>"$folder/log"
cmake --build "$folder/build" >>"$folder/log" || { cat "$folder/log" && exit 1; }
"$folder/installed/bin/terminal-sim" -- "$folder/build/consumer" | grep -q HT100042

if command -v pkg-config >/dev/null; then
    PKG_CONFIG_PATH=$(dirname "$(find "$folder/installed" -name handheld.pc)")
    export PKG_CONFIG_PATH
    # shellcheck disable=SC2046 # flags are words
    c++ -std=c++17 -o "$folder/by-pkg-config" "$source/main.cpp" \
        $(pkg-config --cflags --libs --static handheld)
    LD_LIBRARY_PATH=$(pkg-config --variable=libdir handheld) \
        "$folder/installed/bin/terminal-sim" -- "$folder/by-pkg-config" | grep -q HT100042
fi
