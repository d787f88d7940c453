#!/bin/sh
# havrel-central on the real sequencer, heard by another client as a MIDI 1.0 synth hears it:
# each kind of message the control path sends (controller, a note pad's glide and its release,
# program, pitch bend, pure MIDI) arrives as the MIDI 1.0 message the musician meant; and the
# client and port names stay the same across a restart of the program and a client's reconnect.
# Runs inside the test VM (busybox sh), with havrel-central and havrel-client-sim in /usr/bin.
set -u
work=/tmp/central-on-alsa
mkdir -p "$work"
export HOME="$work" XDG_CONFIG_HOME="$work/config"
failures=0
check() {  # check DESCRIPTION COMMAND...
  what=$1
  shift
  if "$@"; then echo "central-on-alsa: ok: $what"; else echo "central-on-alsa: FAILED: $what"; failures=$((failures + 1)); fi
}
ip link set lo up

start_central() {
  havrel-central --midi-backend alsa --no-usbmux --no-bluetooth --local-port 4699 --status-port 0 \
    >"$work/central.out" 2>>"$work/central.log" &
  central=$!
  tries=0
  until aconnect -i | grep -q 'Havrel Output'; do
    tries=$((tries + 1))
    if [ "$tries" -gt 150 ]; then echo "central-on-alsa: no Havrel Output"; cat "$work/central.log"; exit 1; fi
    sleep 0.1
  done
}
stop_central() {
  kill -TERM "$central"
  wait "$central"
  check "havrel-central ends with status 0 on SIGTERM" [ $? -eq 0 ]
}
# Our client's block of `aconnect -l`, without the client number and process the kernel hands out
# and without its subscriptions (the MIDI monitor's own one comes with the first refresh).
our_ports() {
  aconnect -l | awk '/^client/ { ours = /Havrel/ } ours' | grep -v 'Connect' |
    sed -e 's/^client [0-9]*:/client:/' -e 's/,pid=[0-9]*//'
}
play() {  # play SCRIPT
  havrel-client-sim --port 4699 --timeout 30 --do "$1" >"$work/sim.out" 2>&1
  check "the client simulator played its script" [ $? -eq 0 ]
}

start_central
names_at_start=$(our_ports)
echo "$names_at_start"
address=$(aconnect -i | awk '/^client/ { c = $2; sub(":", "", c) } /Havrel Output/ { print c ":" $1; exit }')
aseqdump -p "$address" >"$work/dump" 2>&1 &
dump=$!
sleep 0.5
play "set fader 1; set fader 0; tap pad 0.8; set program 1; set pitch 1; set pitch 0; midi 92 3C 64; midi 92 3C 00; midi B2 0A 40"
sleep 0.5
kill "$dump"
wait "$dump" 2>/dev/null
cat "$work/dump"

heard() { grep -q "$1" "$work/dump"; }
check "controller 7 to 127" heard 'Control change *0, controller 7, value 127$'
check "controller 7 to 0" heard 'Control change *0, controller 7, value 0$'
# aseqdump shows a note on of velocity 0 as "Note off" without a velocity, and a real note off
# with its velocity; a note on of velocity 1 would be a note that never ends.
check "the pad's glide reaches velocity 127" heard 'Note on *0, note 60, velocity 127$'
last_pad=$(grep 'Note o[nf]* *0, note 60' "$work/dump" | tail -n 1)
check "the released pad ends with a note on of velocity 0 ($last_pad)" \
  sh -c "echo '$last_pad' | grep -q 'Note off *0, note 60\$'"
check "no note off message replaces it" sh -c "! grep -q 'Note off.*velocity' '$work/dump'"
check "program 127" heard 'Program change *0, program 127$'
check "pitch bend up" heard 'Pitch bend *0, value 8191$'
check "pitch bend down" heard 'Pitch bend *0, value -8192$'
check "pure MIDI note on" heard 'Note on *2, note 60, velocity 100$'
check "pure MIDI note on of velocity 0 stays one" heard 'Note off *2, note 60$'
check "pure MIDI controller" heard 'Control change *2, controller 10, value 64$'

play "set fader 1"
names_after_reconnect=$(our_ports)
echo "$names_after_reconnect"
check "a client's reconnect makes no new port" [ "$names_after_reconnect" = "$names_at_start" ]
stop_central
start_central
names_after_restart=$(our_ports)
echo "$names_after_restart"
check "names and capabilities are the same after a restart" [ "$names_after_restart" = "$names_at_start" ]
stop_central

if [ "$failures" -ne 0 ]; then
  echo "central-on-alsa: $failures failed; the program's log:"
  cat "$work/central.log"
  exit 1
fi
echo "central-on-alsa: passed"
