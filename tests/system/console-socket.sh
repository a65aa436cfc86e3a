#!/bin/sh
# A terminal that other programs steer: console-socket.sh TERMINAL_SIM PROGRAM
set -eu
folder=$(mktemp -d)
socket=$folder/console
trap 'kill "${!:-}" 2>/dev/null || :; rm -rf "$folder"' EXIT

if "$1" send "$socket" help 2>"$folder/refused"; then
    echo "a command has reached a terminal that is not there" && exit 1
fi

mkdir "$folder/temporary"
export TMPDIR="$folder/temporary"
"$1" --speed 5 --socket "$socket" -- "$2" >"$folder/shown" &
until "$1" send "$socket" await barcode: command ESC YM CR 2>>"$folder/refused"; do
    kill -0 $!
done
"$1" send "$socket" help | grep -q 'barcode present TEXT'
"$1" send "$socket" barcode present 4006381333931
"$1" send "$socket" trigger
"$1" send "$socket" await barcode: read 4006381333931
if "$1" send "$socket" card sideways 2>"$folder/wrong"; then
    echo "a wrong command counts as done" && exit 1
fi
grep -q "'push' or 'pull'" "$folder/wrong"
# One terminal's socket is not another one's to take, nor to remove.
status=0
"$1" --socket "$socket" -- "$2" >"$folder/second" 2>&1 || status=$?
test $status = 3
"$1" send "$socket" quit
wait
test ! -e "$socket"

# A file of the host is read as such, also where the terminal has a place of that name.
status=0
"$1" --script /sys/class/net/lo/mtu -- "$2" >"$folder/script" 2>&1 || status=$?
test $status = 3
grep -q 'line 1: unknown command' "$folder/script"

# However it ends, no program is left, nor a file.
for signal in TERM HUP KILL; do
    "$1" --socket "$socket" -- "$2" >"$folder/shown" &
    until "$1" send "$socket" help >/dev/null 2>>"$folder/refused"; do
        kill -0 $!
    done
    program=$(cat "/proc/$!/task/$!/children")
    kill -s $signal $!
    status=0
    wait $! || status=$?
    test $status -gt 128
    while grep -q . "/proc/$program/maps" 2>/dev/null; do :; done
    if [ $signal = KILL ]; then
        rm -r "$socket" "$TMPDIR"/terminal-*
    fi
    test ! -e "$socket"
    test -z "$(ls "$TMPDIR")"
done

# A name that the system would take apart, and a program that the terminal cannot get into.
mkdir "$folder/in: C"
status=0
TMPDIR="$folder/in: C" "$1" -- "$2" 2>"$folder/refused" || status=$?
test $status = 127
test -z "$(ls "$folder/in: C")"
status=0
"$1" -- /sbin/ldconfig --version >"$folder/shown" 2>"$folder/refused" || status=$?  # linked statically
test $status = 127
grep -q 'has run without the terminal' "$folder/refused"
