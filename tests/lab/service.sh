#!/bin/bash
# The daemon as a service, with the limits of its unit, on a host with udev, LVM and iSCSI: tracking, keepers and channels
# work, and so do the drop-ins of docs/installation.md. service.sh BUILD-FOLDER, with scripts/lab.sh --systemd
# shellcheck source=tests/lab/lab_test.sh
source "$(dirname "$0")/lab_test.sh"

# shellcheck source=tests/lab/service_host.sh
source "$(dirname "$0")/service_host.sh"

iqn=iqn.2020-01.lab:first

is_limited() {
    local status
    status=/proc/$(</run/qelcd.pid)/status
    cat "$status"
    grep -q '^Seccomp:.2' "$status" && grep -q '^NoNewPrivs:.1' "$status" && ! grep -q '^CapBnd:.*ffff' "$status"
}

# drop_in LINE...: the only one of the service, at once.
drop_in() {
    local folder=/etc/systemd/system/qelcd.service.d
    mkdir -p "$folder"
    printf '%s\n' '[Service]' "$@" >"$folder/tried.conf"
    systemctl daemon-reload
    check "a start with $*" systemctl restart qelcd
}

# As the package does it: the records are Debian's.
start_initiator() {
    local records
    mkdir -p /var/lib/iscsi /etc/iscsi/{ifaces,nodes}
    for records in ifaces nodes; do
        ln -s "/etc/iscsi/$records" "/var/lib/iscsi/$records"
    done
    echo "InitiatorName=$initiator_iqn" >/etc/iscsi/initiatorname.iscsi
    printf '%s\n' 'iscsid.startup = /bin/systemctl start iscsid.service' 'node.startup = manual' >/etc/iscsi/iscsid.conf
    systemctl start iscsid
}

newest_snapshot() {
    qelc --json snapshots | grep -o '"name":"[^"]*' | tail -n 1 | cut -d '"' -f 4
}

# have_hook: one that keeps the mirror held until something was written.
have_hook() {
    local hook=/etc/kavtessaron/mark.d/wait
    mkdir "${hook%/*}"
    printf '%s\n' '#!/bin/sh' ': >/run/held' 'until [ -e /run/written ]; do sleep 0.2; done' >"$hook"
    chmod +x "$hook"
}

# asked COUNT: the daemon has found so many snapshots possible.
asked() {
    (($(journalctl --no-pager -q -o cat -t qelcd | grep -c 'Disk status check finished') >= $1))
}

# Rewrites the same pages until it is told to stop, once the daemon was asked for COUNT snapshots.
write_after() { # COUNT
    until asked "$1"; do sleep 0.2; done
    until [[ -e /run/stop ]]; do
        dd if=/dev/urandom of=/mnt/busy bs=1M count=1 oflag=direct conv=notrunc status=none
        : >/run/written
        sleep 0.2
    done
}

# A file system that was in use has a journal to replay.
is_clean() {
    e2fsck -fn "$1" 2>&1 | tee /run/checked && none grep 'journal recovery' /run/checked
}

step "the service"
cmake --install "$build" --prefix /usr >/dev/null
rm -rf /var/lib/twinvault /var/lib/kavcdpagt /var/lib/qelcd-volumes
check "a configuration" qelc init --config-only
systemctl daemon-reload
check "one step starts it, and makes the host its own manager" qelc init
check "now and after each boot" systemctl is-enabled qelcd
check "and answers at once" qelc nop_command
check "within its limits" is_limited

step "a mirror in LVM"
make_disk
make_mirror
check_within 20 "whose heartbeats it takes" eval 'qelc-manager hosts | grep -w 127.0.0.1'
protect_disk
echo precious >/mnt/file
umount /mnt
check_within 30 "level again" mirror_is synchronised
check "a snapshot" qelc snapshot --disk "$disk_guid"
check "is kept in LVM" eval 'qelc snapshots | grep -w lvm | grep -w ok'

step "a snapshot comes back"
name=$(newest_snapshot)
mkdir /run/old
check "mounted beside its original" qelc snapshots mount "$name" /run/old
check "with the file" grep precious /run/old/file
check "unmounted" qelc snapshots umount "$name"
mount "${disk}1" /mnt
check "not over what is mounted" none qelc snapshots restore "$name" --yes --no-snapshot
umount /mnt
head -c 4M /dev/urandom | dd of="${disk}1" bs=1M oflag=direct status=none
check "restored" qelc snapshots restore "$name" --yes --no-snapshot
check "the kernel sees its partition" test -b "${disk}1"
check "it is as it was, and clean" e2fsck -fn "${disk}1"
check_within 60 "its mirror follows" mirror_is synchronised

# The daemon refuses a snapshot of a mirror that it knows to be behind, so one is asked for while another is taken. When its turn
# comes, the mirror needs a quarter of a minute to get level.
step "a freeze"
mount -o noinit_itable "${disk}1" /mnt
dd if=/dev/zero of=/mnt/busy bs=1M count=1 status=none
sync --file-system /mnt
check_within 60 "level" mirror_is synchronised
have_hook
qelc snapshot --disk "$disk_guid" &
first=$!
check_within 60 "a mirror is held" test -e /run/held
printf '%s\n' 'throttle = 64K' 'freeze = yes' 'freeze_after = 1' 'freeze_deadline = 5000' >/etc/kavtessaron/embedded.conf
write_after 3 &
writer=$!
check "another snapshot, of a mirror that does not get level" qelc snapshot --disk "$disk_guid"
check "stopped the writer for a moment" logged 'disks of a mark were frozen for'
check "and no longer" timeout 30 dd if=/dev/zero of=/mnt/thawed bs=4K count=1 conv=fsync status=none
: >/run/stop
wait "$first"
wait "$writer"
umount /mnt
rm -r /etc/kavtessaron/{mark.d,embedded.conf}
name=$(newest_snapshot)
check "the file system in it is clean" is_clean "$(qelc snapshots attach "$name" 2>/dev/null)?offset=1048576"
check "it is let go" qelc snapshots detach "$name"

step "a channel"
start_network 10.77.0.2
start_target 1 10.77.0.2 "$iqn" 5d0f7c1e-93a4-4b62-8e17-c2a90b6d4f01
start_initiator
check "a login" qelc establish_channels --initiator-iqn "$initiator_iqn" --initiator-ip "$host_address" \
    --target-iqn "$iqn" --target-ip 10.77.0.2
check "a session" only_session_to "$iqn"
check "its records are where Debian has them" compgen -G "/etc/iscsi/nodes/$iqn/*"
check_within 20 "its disk" disk_with 5d0f7c1e-93a4-4b62-8e17-c2a90b6d4f01
check "a rescan" qelc rescan_devices
check "nothing was denied" none journalctl --no-pager -q -o cat -t qelcd --grep 'not permitted|Permission denied|Read-only file'

step "drop-ins"
drop_in IPAddressDeny=any 'IPAddressAllow=10.77.0.2 127.0.0.1' LimitCORE=infinity
check "an address that may connect" timeout 20 ip netns exec manager qelc --host "$host_address" nop_command
check "cores of any size" grep -E '^Max core file size +unlimited' "/proc/$(</run/qelcd.pid)/limits"
drop_in IPAddressDeny=any IPAddressAllow=127.0.0.1 SystemCallFilter=~bpf
check "one that may not" none timeout 5 ip netns exec manager qelc --host "$host_address" nop_command
check "this host may" timeout 20 qelc --host 127.0.0.1 nop_command
check_within 60 "without BPF a mirror is not tracked" eval 'qelc --json mirrors | grep "\"tracked\":false"'
check_within 120 "but level" mirror_is synchronised
