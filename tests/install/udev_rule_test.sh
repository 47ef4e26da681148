#!/bin/bash
# udev_rule_test.sh RULES-FILE: what udev makes of the rules, for a dongle and for another device on a mocked
# USB bus. udev reads rules from fixed folders, so this needs a mount namespace, as root or with those
# of users; without one it is skipped (exit code 77).
source "$(dirname "$0")/../exports/checks.sh"

rules=$(realpath "$1")
command -v udevadm >/dev/null || {
    echo "FAILED: the program 'udevadm' is missing; run scripts/setup.sh test"
    exit 1
}
if [ -z "${2:-}" ]; then
    namespace=(unshare --mount)
    [ "$(id -u)" = 0 ] || namespace+=(--map-root-user)
    "${namespace[@]}" mount -t tmpfs tmpfs /run 2>/dev/null || {
        echo "skipped: no right to a mount namespace"
        exit 77
    }
    folder=$(mktemp -d "${TMPDIR:-/tmp}/brennix-udev.XXXXXX")
    trap 'rm -rf "$folder"' EXIT
    "${namespace[@]}" "$0" "$rules" "$folder"
    exit
fi

folder=$2 bus=/devices/pci0000:00/usb1
mount -t tmpfs tmpfs /run
mkdir -p /run/udev/rules.d
cp "$rules" /run/udev/rules.d/
# Takes the place of the system's, which gives the tag its meaning at this point.
echo 'TAG=="uaccess", ENV{SEAT_LATE_SEES_IT}="1"' >/run/udev/rules.d/73-seat-late.rules

# usb_port PORT PRODUCT TTY: a device with one interface and a serial port.
usb_port() {
    cat <<END
P: $bus/$1
E: SUBSYSTEM=usb
E: DEVTYPE=usb_device
E: DEVNAME=/dev/bus/usb/001/00${1#*-}
A: idVendor=303a
A: idProduct=$2

P: $bus/$1/$1:1.0
E: SUBSYSTEM=usb
E: DEVTYPE=usb_interface

P: $bus/$1/$1:1.0/tty/$3
N: $3
E: SUBSYSTEM=tty
E: DEVNAME=/dev/$3

END
}
{
    usb_port 1-1 1001 ttyACM0
    usb_port 1-2 1002 ttyACM1
} >"$folder/devices"
# Of a device that is added: what our rules and those that follow are about.
properties() {
    umockdev-run -d "$folder/devices" -- udevadm test --action=add "/sys$bus/$1" 2>/dev/null |
        grep -E '^(ID_MM_DEVICE_IGNORE|SEAT_LATE_SEES_IT)=' | sort | xargs
}

is_known() { umockdev-run -d "$folder/devices" -- udevadm test "/sys$bus/$1" 2>/dev/null | grep -c ^DEVPATH; }

wanted="ID_MM_DEVICE_IGNORE=1 SEAT_LATE_SEES_IT=1"
check "the dongle" "$wanted" "$(properties 1-1)"
check "its serial port" "$wanted" "$(properties 1-1/1-1:1.0/tty/ttyACM0)"
check "another device" "" "$(properties 1-2)"
check "its serial port" "" "$(properties 1-2/1-2:1.0/tty/ttyACM1)"
check "udev looks at the other device" 1 "$(is_known 1-2/1-2:1.0/tty/ttyACM1)"
exit $((failures > 0))
