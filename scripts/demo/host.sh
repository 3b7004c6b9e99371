#!/bin/bash
# The demonstration itself, inside the private host: host.sh BUILD-FOLDER
set -euo pipefail
build=$1
here=$(dirname "$0")
export PATH=$PATH:/usr/sbin:/sbin:$PWD/$build/bin
# shellcheck source=scripts/demo/disks.sh
source "$here/disks.sh"
# shellcheck source=scripts/demo/manager.sh
source "$here/manager.sh"

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
make_manager_network
busybox syslogd -n -O "$log" &
make_disks
show cat /proc/partitions | grep -E 'major|loop'

title "The blank disk before: four zero bytes at byte 440"
show xxd -s 440 -l 4 "$blank_disk"
before=$(xxd -p -s 440 -l 4 "$blank_disk")

title "The daemon starts"
script_initiator
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
show in_manager standin-manager scan "$host_address:9410"

title "The same answer as it travels"
show in_manager qelc --host "$host_address:9410" --raw scan_client

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

title "The manager adopts it; the report now holds the disks"
start_manager
show in_manager standin-manager adopt "$host_address:9410" --ip "$manager_address"
title "Three heartbeats, as the manager sees them"
wait_until 30 heartbeats 3
show cat "$manager_log"

title "The manager gives it a name"
show in_manager qelc --host "$host_address:9410" rename_client --alias "Demo host"
show qelc local_list

title "A storage channel; iscsiadm is a script here, tests/lab shows the real one"
show in_manager qelc --host "$host_address:9410" establish_channels --initiator-iqn iqn.2020-01.demo:host \
    --target-iqn "$storage_iqn" --initiator-ip "$host_address" --target-ip "$manager_address"
show cat /var/log/iscsiadm
show cat /var/lib/iscsi/ifaces/qel_iface_net0
show cat /etc/kavtessaron/qelcd.conf

title "The working process is killed; the next one goes on reporting"
before=$(grep -c 'command 32' "$manager_log")
kill -KILL "$(tr -d ' ' <"/proc/$(cat /var/run/qelcd.pid)/task/$(cat /var/run/qelcd.pid)/children")"
wait_until 30 heartbeats $((before + 2))
show tail -n 2 "$manager_log"

title "The manager's host goes silent: the gaps between the attempts grow"
failures() {
    (($(grep -c 'Failed to connect to manager' "$log") >= $1))
}
stop_manager
in_manager ip address delete "$manager_address/24" dev net1
wait_until 60 failures 6 # two lines each
grep 'Failed to connect to manager' "$log" | sed -n 'n;p'

title "It comes back"
in_manager ip address add "$manager_address/24" dev net1
: >"$manager_log"
start_manager
wait_until 60 heartbeats 1
show cat "$manager_log"

title "It answers 50, no longer adopted: the host forgets it, and can be adopted anew"
manager_option "answer 50"
wait_until 20 grep -q "No manager node is generated" "$log"
show in_manager standin-manager scan "$host_address:9410"
show tail -n 1 "$manager_log"
show tail -n 1 /var/log/iscsiadm
show cat /etc/kavtessaron/qelcd.conf
stop_manager

title "A command that no slot holds ends the working process; the supervisor starts a new one"
show qelc 30009 || true
wait_until 10 qelc nop_command
show qelc nop_command

title "The daemon stops"
show kill "$(cat /var/run/qelcd.pid)"
wait_until 10 test ! -e /var/run/qelcd.sock

title "What the system log holds"
sed 's/^/  /' "$log"
