#!/bin/bash
# The demonstration itself, inside the private host: host.sh BUILD-FOLDER
set -euo pipefail
build=$1
here=$(dirname "$0")
export PATH=$PATH:/usr/sbin:/sbin:$PWD/$build/bin
# shellcheck source=scripts/demo/disks.sh
source "$here/disks.sh"

title() {
    printf '\n=== %s\n' "$*"
}

show() {
    printf '$ %s\n' "$*"
    "$@"
}

# wait_until SECONDS COMMAND...: until the command succeeds.
wait_until() {
    local end=$((SECONDS + $1))
    shift
    until "$@" >/dev/null 2>&1; do
        ((SECONDS < end)) || { echo "demo: gave up waiting for: $*" >&2; exit 1; }
        sleep 0.1
    done
}

log=/var/log/messages
trap remove_disks EXIT

title "A host with four disks: a GPT with file systems, an MBR, a blank one, and one that is all swap"
ip link add net0 type veth peer name net1
ip address add 10.77.0.1/24 dev net0
busybox syslogd -n -O "$log" &
make_disks
show cat /proc/partitions | grep -E 'major|loop'

title "The blank disk before: four zero bytes at byte 440"
show xxd -s 440 -l 4 "$blank_disk"
before=$(xxd -p -s 440 -l 4 "$blank_disk")

title "The daemon starts"
cat >/etc/kavtessaron/qelcd.conf <<'END'
<?xml version="1.0" encoding="utf-8"?>
<Tessaron>
  <ClientGUID>6f1c2a52-6b0e-4c57-9a54-2f4f5d6a7b81</ClientGUID>
  <ClientPort>9410</ClientPort>
  <ServerPort>9411</ServerPort>
</Tessaron>
END
show qelcd
wait_until 10 qelc nop_command
show cat /var/run/qelcd.pid

title "The manager scans it"
show standin-manager scan 10.77.0.1:9410

title "The same answer as it travels"
show qelc --host 10.77.0.1:9410 --raw scan_client

title "Local tools ask on the UNIX socket"
show qelc local_list
show qelc rescan_devices

title "The blank disk after: a signature at byte 440, and nothing else has changed"
show xxd -s 440 -l 4 "$blank_disk"
after=$(xxd -p -s 440 -l 4 "$blank_disk")
show xxd -a -l 512 "$blank_disk"
if [[ $before == "$after" ]]; then
    echo "demo: the blank disk got no signature" >&2
    exit 1
fi
show_untouched

title "A command that no slot holds ends the working process; the supervisor starts a new one"
show qelc 30009 || true
wait_until 10 qelc nop_command
show qelc nop_command

title "The daemon stops"
show kill "$(cat /var/run/qelcd.pid)"
wait_until 10 test ! -e /var/run/qelcd.sock

title "What the system log holds"
sed 's/^/  /' "$log"
