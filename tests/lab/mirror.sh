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
journal=/var/lib/kavcdpagt/journal
hooks=/etc/kavtessaron/mark.d

# --- The disk ---------------------------------------------------------------------------------------------

local_disk() {
    grep -l -x 'scsi_debug *' /sys/block/sd*/device/model | cut -d / -f 4
}

has_partition() {
    local name
    name=$(local_disk) && test -b "/dev/${name}1"
}

# A disk with one partition and random data, pulled out again; its SCSI host in $scsi_host.
make_disk() {
    local name
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
}

# Its path in $disk.
plug_in_disk() {
    echo '- - -' >"/sys/class/scsi_host$scsi_host/scan"
    check_within 10 "the disk is plugged in" has_partition
    disk=/dev/$(local_disk)
}

# write_to_partition PAGE COUNT: random pages of 4 KiB. The partition begins 1 MiB behind the disk's beginning.
write_to_partition() {
    dd if=/dev/urandom of=/var/tmp/pages bs=4K count="$2" status=none
    dd if=/var/tmp/pages of="${disk}1" bs=4K seek="$1" conv=fsync status=none
    dd if=/var/tmp/pages of="$expected" bs=4K seek=$(($1 + 256)) conv=notrunc status=none
}

# Past the cache of the whole disk, which knows nothing of what went through a partition.
disk_is_as_expected() {
    dd if="$disk" bs=1M iflag=direct status=none | cmp - "$expected"
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
    page=$(qelc mirrors)
    echo "$page"
    [[ $page =~ $disk_guid\ +$mirror_guid\ +$1\ +([0-9]+)\ % ]] && ((BASH_REMATCH[1] >= ${2:-0}))
}

no_mirrors() {
    [[ $(qelc mirrors) == "no mirrors" ]]
}

saved_position() {
    sed -n 's/^position //p' "$mirrors/$disk_guid.mirror"
}

# Where the mirror differs from the disk.
differing_pages() {
    { cmp -l "$expected" "$stored" || true; } | awk '{ print int(($1 - 1) / 4096) }' | uniq
}

logged_in() {
    grep -x LOGGED_IN /sys/class/iscsi_session/*/state
}

marks() {
    cat "$journal"
    [[ $(grep -c " disk $mirror_guid ok\$" "$journal") == "$1" ]]
}

# --- Adopted, and with a channel ----------------------------------------------------------------------------

mkdir -p "$hooks"
cat >"$hooks/10-keep" <<END
#!/bin/sh
echo "\$QELCD_MARK \$QELCD_GUID" >>/var/log/hook
dd if="\$QELCD_DEVICE" of=$kept bs=1M status=none
END
chmod +x "$hooks/10-keep"

start_network 10.77.0.2
modprobe sd_mod
make_disk
start_target 1 10.77.0.2 "$iqn" "$first_guid"
start_initiator
# As shipped: a session that is lost is never given up.
sed -i 's/^node.session.reopen_max = .*/node.session.reopen_max = 0/' /etc/iscsi/iscsid.conf
start_daemon
start_manager 10.77.0.2 ''
check "the manager adopts the host" in_manager standin-manager adopt "$host_address:9410" \
    --guid "$manager_guid" --ip 10.77.0.2
check "establish" from_manager establish_channels --initiator-iqn "$initiator_iqn" \
    --initiator-ip "$host_address" --target-iqn "$iqn" --target-ip 10.77.0.2
check "a session" session_to "$iqn" "$iface"
check_within 10 "its first disk" disk_with "$first_guid"

# --- Protected ----------------------------------------------------------------------------------------------

truncate -s "${megabytes}M" "$stored"
add_lun 1 2 "$mirror_guid" "$stored"
plug_in_disk
check_within 20 "the report has the new disk" disk_reported
check "nobody has looked for the mirror yet" none disk_with "$mirror_guid"
check "protect" from_manager protect "$disk_guid=$mirror_guid"
check "the host has looked for the mirror" logged "Mirror $mirror_guid is finally online."
check_within 20 "a heartbeat tells of it" grep -F 'backups 1' /var/log/manager
check "not synchronised yet" mirror_is "not synchronised"
check "no snapshot of it now" answered 10023 from_manager snapshot --disk "$disk_guid"

# --- Synchronised, with the network lost in between ---------------------------------------------------------

echo 1000000 >"$mirrors/throttle"
check "resync" from_manager resync "$disk_guid"
check_within 20 "it begins" mirror_is synchronising 1
check_within 30 "it goes on" mirror_is synchronising 40
ip link set net0 down
check_within 30 "without a network the session fails" none logged_in
check_within 40 "the mirror is down" mirror_is "mirror down"
reached=$(saved_position)
check "the copy has got so far: $reached" test "$reached" -gt 4000000 -a "$reached" -lt 22000000
# Whatever is copied twice would overwrite this.
dd if=/dev/zero of="$stored" bs=4K seek=256 count=1 conv=notrunc status=none
ip link set net0 up
check_within 60 "the session is back" logged_in
check_within 60 "the mirror is up again" logged "$mirror_guid is up again at /dev/"
rm "$mirrors/throttle"
check_within 60 "synchronised" mirror_is synchronised 100
check "by going on from the checkpoint" test "$(differing_pages)" = 256

write_to_partition 3000 16
check_within 60 "a write follows" mirror_is synchronised 100
check "the mirror is as the disk is" cmp "$expected" "$stored"

# --- Without its session, which the daemon makes again ------------------------------------------------------

iscsiadm -m node -T "$iqn" -u >/dev/null
write_to_partition 5 1
check_within 60 "a heartbeat brings the session back" logged "Channel auto login success."
check "it is the manager's" session_to "$iqn" "$iface"
check_within 60 "what was written meanwhile follows" mirror_is synchronised 100
check "the mirror is as the disk is again" cmp "$expected" "$stored"

# --- Marked -------------------------------------------------------------------------------------------------

check "a snapshot" from_manager snapshot --disk "$disk_guid"
check "the journal has it" marks 1
check "the hook was called for it" grep -x "mark $mirror_guid" /var/log/hook
check "and has kept what the disk held" cmp "$expected" "$kept"

write_to_partition 100 1
check_within 60 "another write follows" mirror_is synchronised 100
check "the kept one is as it was" none cmp -s "$expected" "$kept"
check "a schedule" from_manager schedule set --disk "$disk_guid" --start $(($(date +%s) + 3)) --every 3600
check "the configuration has it" configured "$disk_guid"
check_within 30 "it fires" marks 2
check "the hook was called again" cmp "$expected" "$kept"

# --- Unprotected, resized, pulled out -----------------------------------------------------------------------

release=(del_client --guid "$manager_guid" --client-guid "$client_guid")
check "no withdrawal while a disk is protected" answered 10000 from_manager "${release[@]}"
check "unprotect" from_manager unprotect "$disk_guid"
check "no mirrors" no_mirrors
check "no relationship is kept" none compgen -G "$mirrors/*.mirror*"
check "no schedule in the configuration" none configured "$disk_guid"
check "the disk holds what was written to it" disk_is_as_expected
echo 1 >/sys/bus/pseudo/drivers/scsi_debug/virtual_gb # shown from the next look on
check "a rescan" qelc rescan_devices
check_within 20 "the disk has grown" disk_reported $((1 << 30))
echo 1 >"/sys/block/${disk#/dev/}/device/delete"
check_within 20 "the disk is gone" none disk_reported

# --- Withdrawn ----------------------------------------------------------------------------------------------

check "release" from_manager "${release[@]}"
check_forgotten "$iqn"
check "the mirror holds what the disk held" cmp "$expected" "$stored"
