#!/bin/sh
# The front panel on a screen, and what stands in its place without one: panel.sh TERMINAL_SIM PROGRAM
set -eu
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cat >"$folder/typed" <<'END'
await barcode: command ESC YM CR
wait 0.3
battery 3456
barcode present 4006381333931
trigger
await barcode: read 4006381333931
no such command
wait 1
quit
END
shows() {
    grep -aq -- "$2" "$folder/$1" || { echo "not on the $1: $2" && exit 1; }
}

# script(1) is the screen.
TERM=xterm LINES=30 COLUMNS=100 SHELL=/bin/sh \
    script -qec "'$1' --panel --interactive -- '$2'" "$folder/screen" <"$folder/typed" >"$folder/out"
shows screen 'scanner supply'
shows screen 'last code'
# In its cell, which the screen's cursor has been sent to; in the log the code stands behind a word.
shows screen '[A-Za-z]4006381333931'
shows screen '3456'
shows screen "unknown command 'no'"

# Its log stays when the panel goes, and a program's end is told as without it.
tail -n 12 "$folder/out" | grep -aq 'barcode: read 4006381333931'
status=0
TERM=xterm SHELL=/bin/sh script -qec "'$1' --panel -- no-such-program" "$folder/ended" </dev/null \
    >/dev/null || status=$?
test $status = 127
shows ended 'no-such-program: No such file'

"$1" --panel --interactive -- "$2" <"$folder/typed" >"$folder/lines"
shows lines 'barcode: read 4006381333931'
if grep -q 'scanner supply  ' "$folder/lines"; then
    echo "a panel where there is no screen" && exit 1
fi
