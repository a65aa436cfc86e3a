#!/bin/sh
# A terminal that other programs steer: console-socket.sh TERMINAL_SIM PROGRAM
set -eu
folder=$(mktemp -d)
socket=$folder/console
trap 'kill "${terminal:-}" 2>/dev/null || :; rm -rf "$folder"' EXIT

if "$1" send "$socket" help 2>"$folder/refused"; then
    echo "a command has reached a terminal that is not there" && exit 1
fi

"$1" --speed 5 --socket "$socket" -- "$2" >"$folder/shown" &
terminal=$!
until "$1" send "$socket" await barcode: command ESC YM CR 2>>"$folder/refused"; do
    kill -0 "$terminal"
done
"$1" send "$socket" help | grep -q 'barcode present TEXT'
"$1" send "$socket" barcode present 4006381333931
"$1" send "$socket" trigger
"$1" send "$socket" await barcode: read 4006381333931
if "$1" send "$socket" card sideways 2>"$folder/wrong"; then
    echo "a wrong command counts as done" && exit 1
fi
grep -q "'push' or 'pull'" "$folder/wrong"
"$1" send "$socket" quit
wait
test ! -e "$socket"
