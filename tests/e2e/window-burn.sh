#!/usr/bin/env bash
# A burn as a person does it: the real program in a window, driven by the keyboard, against a simulated device, whose
# memory is compared at the end. Screenshots go to the folder TAVIMORA_SCREENSHOTS, if that is set.
# Usage: window-burn.sh TAVIMORA DEVICESIM FWPACK
set -euo pipefail

tavimora=$1 devicesim=$2 fwpack=$3

work=$(mktemp -d)
trap 'kill $(jobs -p) 2>/dev/null || true; wait; rm -rf "$work"' EXIT
export XDG_RUNTIME_DIR=$work/runtime HOME=$work QT_QPA_PLATFORM=xcb
mkdir -m 700 "$XDG_RUNTIME_DIR"

fail() {
    echo "FAIL: $1" >&2
    shot failed
    exit 1
}
shot() {
    [ -z "${TAVIMORA_SCREENSHOTS:-}" ] || import -window root "$TAVIMORA_SCREENSHOTS/$1.png"
}
# Polls a command for up to a minute.
await() {
    local what=$1
    shift
    for _ in $(seq 300); do
        ! "$@" >/dev/null 2>&1 || return 0
        sleep 0.2
    done
    fail "$what"
}

# The server itself picks a free display: other tests may start servers at the same time.
Xvfb -displayfd 3 -screen 0 800x600x24 -nolisten tcp 3>"$work/display" >/dev/null 2>&1 &
await "the X server does not start" grep -q . "$work/display"
DISPLAY=:$(cat "$work/display")
export DISPLAY

head -c 9000 "$fwpack" >"$work/image"
objcopy -I binary -O ihex --change-addresses 0x3100 "$work/image" "$work/image.hex"
"$fwpack" pack --device 0x0300 --version 1.2.3 --target "Demo board" --baudrate 57600 "$work/image.hex" \
    "$work/firmware.txt" >/dev/null
head -c 65536 /dev/zero >"$work/memory"
"$devicesim" --once --baud 57600 --erase-time 1000 --memory "$work/memory" --report "$work/report" >/dev/null &
device=$!
await "the device makes no port" test -e "$XDG_RUNTIME_DIR/serial/devicesim"

openbox >/dev/null 2>&1 &
await "the window manager does not start" sh -c 'xprop -root _NET_SUPPORTING_WM_CHECK | grep -q "window id"'
"$tavimora" &
program=$!
await "no window appears" xdotool search --onlyvisible --name '^Tavimora v1.1$'
window=$(xdotool search --onlyvisible --name '^Tavimora v1.1$' | tail -n 1)
await "the window cannot be activated" xdotool windowactivate "$window"
sleep 1
shot idle

# The virtual port is the last one of the list.
xdotool key alt+s End
xdotool key alt+f
xdotool type "$work/firmware.txt"
xdotool key Return
if [ -n "${TAVIMORA_SCREENSHOTS:-}" ]; then
    for state in delay:2 erasing:1.7 programming:1.6 verifying:1.7; do
        sleep "${state#*:}"
        shot "${state%:*}"
    done
fi

await "the device has not been reset" sh -c "! kill -0 $device"
sleep 1
shot complete
expected=$work/expected
head -c 65536 /dev/zero | tr '\0' '\377' >"$expected"
dd if="$work/image" of="$expected" bs=256 seek=$((0x31)) conv=notrunc status=none
cmp "$expected" "$work/memory" || fail "the memory of the device is not the image"

xdotool key Escape
await "the program does not end" sh -c "! kill -0 $program"
wait "$program" || fail "the program ended with status $?"
echo "PASS"
