#!/bin/bash
# A disk's life under protection over a real network, from its arrival to the manager's withdrawal:
# mirror.sh BUILD-FOLDER
# shellcheck source=tests/lab/lab_test.sh
source "$(dirname "$0")/lab_test.sh"

iqn=iqn.2020-01.lab:first
first_guid=5d0f7c1e-93a4-4b62-8e17-c2a90b6d4f01
mirror_guid=5d0f7c1e-93a4-4b62-8e17-c2a90b6d4f0a
disk_guid=1a2b3c4d-0000-0000-0000-000000000000
megabytes=24

expected=/var/tmp/expected # what the disk has to hold: it gets every write of this test, too
stored=/var/tmp/stored     # what the storage system holds for the mirror
kept=/var/tmp/kept         # what the hook has kept
mirrors=/var/lib/twinvault
hooks=/etc/kavtessaron/mark.d

# --- The disk ---------------------------------------------------------------------------------------------

local_disk() {
    grep -l -x 'scsi_debug *' /sys/block/sd*/device/model | cut -d / -f 4
}

has_partition() {
    local name
    name=$(local_disk) && test -b "/dev/${name}1"
}

# write_to_partition PAGE COUNT: random pages of 4 KiB. The partition begins 1 MiB behind the disk's beginning.
write_to_partition() {
    dd if=/dev/urandom of=/var/tmp/pages bs=4K count="$2" status=none
    dd if=/var/tmp/pages of="${disk}1" bs=4K seek="$1" conv=fsync status=none
    dd if=/var/tmp/pages of="$expected" bs=4K seek=$(($1 + 256)) conv=notrunc status=none
}

# disk_reported [BYTES]: with that size.
disk_reported() {
    local report
    report=$(qelc get_client_info)
    echo "$report"
    grep -q "<Disk .*Size=\"${1:-[0-9]*}\".*Guid=\"$disk_guid\".*Vendor=\"Linux scsi_debug\"" <<<"$report"
}

# --- The mirror -------------------------------------------------------------------------------------------

# mirror_is STATE [PERCENT]: in the report, and so far at least.
mirror_is() {
    local page
    page=$(qelc --json mirrors)
    echo "$page"
    [[ $page =~ \"$disk_guid\",\"mirror\":\"$mirror_guid\",\"state\":\"$1\",\"percent\":([0-9]+), ]] && ((BASH_REMATCH[1] >= ${2:-0}))
}

# recorded FIELD: of the relationship.
recorded() {
    sed -n "s/^$1 //p" "$mirrors/$disk_guid.mirror"
}

# On the mirror, since it was attached.
sectors_written() {
    local path
    path=$(recorded dest_path)
    awk '{ print $7 }' "/sys/block/${path#/dev/}/stat"
}

logged_in() {
    grep -x LOGGED_IN /sys/class/iscsi_session/*/state
}

mkdir -p "$hooks"
cat >"$hooks/10-keep" <<END
#!/bin/sh
echo "\$QELCD_MARK \$QELCD_GUID" >>/var/log/hook
dd if="\$QELCD_DEVICE" of=$kept bs=1M status=none
END
chmod +x "$hooks/10-keep"

start_network 10.77.0.2
modprobe sd_mod
# A disk with one partition and random data, pulled out again.
dd if=/dev/urandom of="$expected" bs=1M count="$megabytes" status=none
printf 'label: dos\nlabel-id: 0x%s\n2048,\n' "${disk_guid%%-*}" | sfdisk --quiet "$expected"
modprobe scsi_debug dev_size_mb="$megabytes"
check_within 10 "a disk" local_disk
name=$(local_disk)
dd if="$expected" of="/dev/$name" bs=1M conv=fsync status=none
blockdev --rereadpt "/dev/$name"
check_within 10 "with a partition" has_partition
scsi_host=$(readlink -f "/sys/block/$name" | grep -o '/host[0-9]*/')
echo 1 >"/sys/block/$name/device/delete"
start_target 1 10.77.0.2 "$iqn" "$first_guid"
start_initiator
# As shipped: a session that is lost is never given up.
sed -i 's/^node.session.reopen_max = .*/node.session.reopen_max = 0/' /etc/iscsi/iscsid.conf
start_daemon
adopt_host
check "establish" establish "$iqn" 10.77.0.2
check "a session" only_session_to "$iqn"
check_within 10 "its first disk" disk_with "$first_guid"

truncate -s "${megabytes}M" "$stored"
add_lun 1 2 "$mirror_guid" "$stored"
echo '- - -' >"/sys/class/scsi_host$scsi_host/scan"
check_within 10 "the disk is plugged in" has_partition
disk=/dev/$(local_disk)
check_within 20 "the report has the new disk" disk_reported
check "nobody has looked for the mirror yet" none disk_with "$mirror_guid"
check "protect" from_manager protect --yes "$disk_guid=$mirror_guid"
check "the host has looked for the mirror" logged "Mirror $mirror_guid is finally online."
check_within 20 "a heartbeat tells of it" grep -F 'backups 1' /var/log/manager
check "not synchronised yet" mirror_is "not synchronised"

echo 1000000 >"$mirrors/throttle"
check "resync" from_manager resync --yes "$disk_guid"
check_within 20 "it begins" mirror_is synchronising 1
check_within 30 "it goes on" mirror_is synchronising 40
ip link set net0 down
check_within 30 "without a network the session fails" none logged_in
check_within 40 "the mirror is down" mirror_is "mirror down"
reached=$(recorded position)
check "the copy has got so far: $reached" test "$reached" -gt 4000000 -a "$reached" -lt 22000000
before=$(sectors_written)
# As if the volume had been rolled back on the storage system.
dd if=/dev/zero of="$stored" bs=4K seek=256 count=1 conv=notrunc status=none
ip link set net0 up
check_within 60 "the session is back" logged_in
check_within 60 "the mirror is up again" logged "$mirror_guid is up again at /dev/"
rm "$mirrors/throttle"
check_within 60 "synchronised" mirror_is synchronised 100
check "what changed on the target meanwhile is mended" cmp "$expected" "$stored"
left=$((($(recorded size) - reached) / 512))
in_flight=$((8 * 2048)) # sectors of the blocks that had been begun
check "by going on from the checkpoint: $left sectors" test "$(($(sectors_written) - before))" -lt "$((left + in_flight))"

write_to_partition 3000 16
check_within 60 "a write follows" mirror_is synchronised 100
check "the mirror is as the disk is" cmp "$expected" "$stored"

iscsiadm -m node -T "$iqn" -u >/dev/null
write_to_partition 5 1
check_within 60 "a heartbeat brings the session back" logged "Channel auto login success."
check_within 60 "what was written meanwhile follows" mirror_is synchronised 100
check "the mirror is as the disk is again" cmp "$expected" "$stored"

check "a snapshot" from_manager snapshot --disk "$disk_guid"
check "the journal has it" grep " disk $mirror_guid ok\$" /var/lib/kavcdpagt/journal
check "the hook was called for it" grep -x "mark $mirror_guid" /var/log/hook
rm /var/log/hook
check "and has kept what the disk held" cmp "$expected" "$kept"

write_to_partition 100 1
check_within 60 "another write follows" mirror_is synchronised 100
check "the kept one is as it was" none cmp -s "$expected" "$kept"
check "a schedule" from_manager schedule set --disk "$disk_guid" --start $(($(date +%s) + 15)) --every 3600
check_within 50 "it fires" grep -x "mark $mirror_guid" /var/log/hook
check_within 10 "the hook keeps the disk anew" cmp "$expected" "$kept"

check "unprotect" from_manager unprotect "$disk_guid"
check "no mirrors" test "$(qelc mirrors)" = "no mirrors"
check "no relationship is kept" none compgen -G "$mirrors/*.mirror*"
# Past the cache of the whole disk, which knows nothing of what went through a partition.
dd if="$disk" of=/var/tmp/held bs=1M iflag=direct status=none
check "the disk holds what was written to it" cmp "$expected" /var/tmp/held
echo 1 >/sys/bus/pseudo/drivers/scsi_debug/virtual_gb # shown from the next look on
check "a rescan" qelc rescan_devices
check_within 20 "the disk has grown" disk_reported $((1 << 30))
echo 1 >"/sys/block/${disk#/dev/}/device/delete"
check_within 20 "the disk is gone" none disk_reported

check "release" from_manager del_client --guid "$manager_guid" --client-guid "$client_guid"
check_forgotten "$iqn"
check "the mirror holds what the disk held" cmp "$expected" "$stored"
