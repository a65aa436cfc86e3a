#!/usr/bin/env bash
# The command-line tool on simulated terminals: terminalctl.sh TERMINAL_SIM TERMINALCTL
set -u
sim=$1
tool=$2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
mkdir "$folder/card"
cat >"$folder/card/links.ini" <<'.'
[gprs]
pin=1234
apn=internet
[shop]
ssid="Warehouse"
security=3
psk="forklift-7"
address=192.168.1.77
mask=255.255.255.0
[wrong]
ssid=Warehouse
address=nowhere
.

# What stands around the terminal, as its console takes it.
barcode='barcode present 4006381333931'
mute='mute barcode on'
hangup='await barcode: command ESC Z CR\nline barcode hangup'
noCard='card pull'
tag='rfid present E20034120614 pallet 17'
voltage='missing /sys/devices/platform/atmel_spi.1/spi1.3/in_input0'
hurry='await pppd: start\nspeed 10'  # the multiplexer has no time to lose
printer='bt fit text\nbt present 00:1A:7D:DA:71:13 Label printer\nbt pin 00:1A:7D:DA:71:13 4321'

failures=0
complain() {
    printf '%s: ended with %s, showed:\n%s\n' "$1" "$status" "$shown"
    tail -n 20 "$folder/journal"
    failures=$((failures + 1))
}

# expect STATUS AROUND SHOWN ARGUMENTS...: with AROUND played, the tool ends with STATUS and shows just
# what the pattern SHOWN says; `noted` may be a pattern for its complaints and the terminal's journal.
# `speed` is the terminal's: at 10 an answer may have to come within 20 ms of the host's time. With AROUND
# "none" the tool runs on no terminal at all.
expect() {
    local terminal=("$sim" --speed "${speed:-10}" --card "$folder/card" --script "$folder/script" --)
    [[ $2 != none ]] || terminal=()
    printf '%b\n' "$2" >"$folder/script"
    shown=$(timeout 60 "${terminal[@]}" "$tool" "${@:4}" 2>"$folder/journal")
    status=$?
    if [[ $status != "$1" || ! $shown =~ ^($3)$ || ! $(<"$folder/journal") =~ ${noted:-} ]] ||
        grep -q Sanitizer "$folder/journal"; then
        complain "${*:4}"
    fi
}

refuse() { noted=$1 expect 2 none '' "${@:2}"; }

# ---- Wrong usage is found before anything of the terminal is touched
refuse 'A subcommand is required'
refuse 'Run with --help' nonsense
refuse 'A subcommand is required' power
refuse 'not in range 0 to 255' power display 300
refuse 'sideways not in' power mode sideways
refuse 'not a time such as' power clock --set yesterday
refuse 'not a time such as' power clock --set '2026-02-31 08:00:00'
refuse 'not in range 0 to 4' rfid read --bank 5
refuse 'not in range 1 to 6' bt listen 7
refuse 'not 00:1A' bt send 00:1A ping
refuse 'no network is given' wlan
refuse 'security is .* not best' wlan --ssid Warehouse --security best
refuse 'address is no address: nowhere' wlan --ini "$folder/card/links.ini" --section wrong
refuse 'has no section' wlan --ini "$folder/card/links.ini"
refuse 'cannot keep that' ini set "$folder/card/links.ini" gprs pin=user 1234

# ---- The terminal and its supplies
expect 0 '' '.*serial number: HT100042.*scanners: 12.*card: not mounted' info
expect 0 '' '\{"serial":"HT100042",.*"scanners":"12","card":"not mounted"\}' --json info
expect 0 'battery 3860\ntemperature 2550\nusb on' '51 %, 3860 mV, 25 degrees, USB supply: yes' battery
expect 0 'battery 3500' '\{"percent":0,"millivolts":3500,"degrees":22,"usb":false}
\{"event":"battery","percent":0}
\{"event":"empty"}' battery --watch --for 6 --json
noted='battery does not answer' expect 1 "$voltage" '\{"percent":null,"millivolts":null,.*' battery --json
noted='does not start' expect 1 none '' battery
expect 0 'light 77' '.*light: 77.*radio module on: no' power status
expect 0 '' 'now alarm-wake' power mode suspend --wake 30
expect 0 'wake-key 5' '\{"state":"on"\}' power mode suspend --json
noted='nothing is left to wake it' expect 0 '' 'now on' power mode suspend
noted='another state' expect 1 'missing /sys/power/state' 'now display-off' power mode suspend
noted='oled: off' expect 0 '' '' power display off
noted='oled: brightness 50' expect 0 '' '' power display 50
noted='first LED off.*second LED on' expect 0 '' '' power leds second
noted='tone 1000' expect 0 '' '' power beep 1000 50
expect 0 '' '2026-07-01 08:00:0.' power clock --set '2026-07-01 08:00:00'
speed=2 expect 0 '' '(battery.*)?shut down
seconds on [1-3], dimmed [1-3], dark [1-3], display off [1-4], .*' \
    power manage --dim 2 --dark 4 --display-off 6 --suspend 0 --shutdown 8

# ---- Scanning
expect 0 "$barcode" '4006381333931' scan
expect 0 "$barcode\n$tag" '(\{"engine":"(barcode","id":null,"code":"4006381333931"|rfid","id":"E20034120614","code":"pallet 17")}.?){2}' scan --count 2 --json
noted='nothing more' expect 3 "$mute\n$barcode" '' scan --engine barcode --timeout 7
noted='hung up' expect 1 "$hangup" '' scan --engine barcode --timeout 60
noted='no such engine' expect 1 'scanners 10' '' scan --engine rfid
expect 0 "$tag" 'E20034120614' rfid identify
noted='bank 2' expect 0 "$tag" 'E20034120614 pallet 1' rfid read --bank 3 --first 0 --last 1

# ---- Links
speed=1 noted='ppp0: down.*radio: power off' expect 0 "$hurry" '.*link connecting.*link up
network Sim Net, .* address 10.64.64.64.*Shutting down multiplexer' gprs --ini /mnt/mmc/links.ini --for 2
speed=1 noted='not come up' expect 3 "ppp never\n$hurry" '.*"state":"connecting".*' gprs --apn internet --pin 1234 --timeout 10 --json
speed=1 noted='hardware' expect 1 'radio fail AT+CPIN=1234 16' '.*SIM card not present.*' gprs --pin 1234
noted='hardware' expect 1 'mute radio on' '.*error: GSM module initialization failed.*' gprs --pin 1234
noted='cannot be read' expect 1 '' '' gprs --ini /mnt/mmc/none.ini
speed=4 expect 0 '' '.*"event":"network","name":"Warehouse",.*"address":"192.168.1.77".*' wlan --json --for 2 --ini /mnt/mmc/links.ini --section shop
speed=4 expect 0 '' '.*link up.*' wlan --for 1 --ssid Warehouse --psk forklift-7
speed=2 expect 0 "$printer" '00:1A:7D:DA:71:13 "Label printer"' bt scan
speed=2 expect 0 "$printer" '.*link up.*' bt up --for 1
speed=2 expect 0 "$printer" '\{"event":"data","text":"ping"}' bt send 00:1A:7D:DA:71:13 ping --pin 4321 --answer 20 --json
speed=2 noted='does not take the call' expect 1 "$printer" '' bt send 00:1A:7D:DA:71:13 ping --pin 1
noted='does not start' expect 1 "$printer\nmute bt on" '' bt info
speed=2 expect 0 "$printer" 'packet module .*, 6.3.1' bt info --module packet
speed=2 expect 0 "$printer\n \tawait packet: 22 01\nwait 1\nbt ring 00:1A:7D:DA:71:13 1\nwait 2\nbt send 00:1A:7D:DA:71:13 hello" 'hello' \
    bt listen 1 --pin 4321 --for 10

# ---- Files of anywhere
ini=$folder/settings.ini
log=$folder/events.log
noted='cannot be read' expect 1 none '' ini get "$ini" shop till
expect 0 none '' ini set "$ini" shop till 7
expect 0 none '' ini set "$ini" shop open '8;30=ok'
expect 0 none '7' ini get "$ini" shop till
expect 0 none '\{"section":"shop","name":"open","value":"8;30=ok"}' ini get "$ini" shop open --json
expect 3 none '' ini get "$ini" shop door
expect 0 none '' ini delete "$ini" shop till
expect 0 none '\[shop] open=8;30=ok' ini list "$ini"
expect 3 none '' ini delete "$ini" market
noted='cannot be written' expect 1 "$noCard" '.*taken out' ini set /mnt/mmc/links.ini gprs pin 1
expect 0 none '' log append "$log" "$(printf '%0400d|' 1)" --tag long
expect 0 none '' log append "$log" '100 % {full}' --tag till --level error
echo 'by hand' >>"$log"
expect 0 none ".*I long: 0{399}1\|.*E till: 100 % \{full}
by hand" log show "$log"
expect 0 none '\{"time":"2[^"]*","level":"E","tag":"till","message":"100 % \{full}"}' log show "$log" --level warning --json
expect 3 none '' log show "$log" --tag door

# ---- What cannot be told
"$sim" -- "$tool" info >/dev/full 2>"$folder/journal"
status=$?
[[ $status == 1 && $(<"$folder/journal") == *'cannot be written'* ]] || complain 'info, to a full disk'

# ---- A signal, passed on by the terminal, takes a link down in order; a second one ends the tool
mkfifo "$folder/told"
printf '%b\n' "$hurry" >"$folder/script"
interrupt() {
    "$sim" --script "$folder/script" -- "$tool" gprs --apn internet --pin 1234 >"$folder/told" 2>"$folder/journal" &
    shown=''
    while IFS= read -r line; do
        shown+=$line
        [[ $line != network* ]] || for signal; do kill -s "$signal" $!; done
    done <"$folder/told"
    wait $!
    status=$?
}
interrupt TERM
[[ $status == 0 && $shown == *'Shutting down multiplexer' ]] || complain 'gprs, ended by a signal'
interrupt HUP TERM
((status > 128)) || complain 'gprs, ended by two signals'

exit $((failures > 0))
