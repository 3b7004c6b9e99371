#!/bin/bash
# Every way of writing to a SCSI disk, on a stock kernel: its mirror follows page by page, and is equal.
# tracking.sh BUILD-FOLDER
# shellcheck source=tests/lab/lab_test.sh
source "$(dirname "$0")/lab_test.sh"

disk_guid=3c2b1a09-0000-0000-0000-000000000000
mirror_guid=3c2b1a0a-0000-0000-0000-000000000000
megabytes=96
mirror=/var/tmp/mirror
state=/var/lib/twinvault
scsi_debug=/sys/bus/pseudo/drivers/scsi_debug

paths_of_disk() {
    grep -l -x 'scsi_debug *' /sys/block/sd*/device/model | cut -d / -f 4
}

has_two_paths() {
    (($(paths_of_disk | wc -l) == 2))
}

has_partitions() {
    test -b "${disk}2"
}

# Past the cache of the whole disk, which knows nothing of what went through a partition. The mirror keeps its
# signature.
equal() {
    dd if="$disk" of=/var/tmp/held bs=1M iflag=direct status=none
    cmp -n 440 /var/tmp/held "$mirror" && cmp -i 444 /var/tmp/held "$mirror"
}

mirror_is() {
    qelc --json mirrors | tee /dev/stderr | grep -q "$disk_guid.*\"state\":\"$1\""
}

compared_as_a_whole() {
    grep -c 'compared with its mirror as a whole' "$log" || true
}

# follows WHAT COMMAND...: after the command, which must succeed.
follows() {
    local what=$1 found
    shift
    found=$("$@" 2>&1) || fail "$what: $*: $found"
    sync
    check_within 60 "$what: level" mirror_is synchronised
    check "$what: equal" equal
}

random() {
    dd if=/dev/urandom status=none "$@"
}

write_in_every_way() {
    random of="$disk" bs=4K count=5 seek=2000 oflag=direct
    random of="$disk" bs=5000 count=90 seek=4000
    random of="${disk}2" bs=64K count=9 seek=77 oflag=direct
    dmsetup create --noudevsync lab --table "0 16384 linear ${disk}2 2048"
    random of=/dev/mapper/lab bs=12K count=20 seek=3 oflag=direct
    dmsetup remove --noudevsync lab
}

discard_and_zero() {
    blkdiscard --offset 40M --length 3M "$disk"
    blkdiscard --zeroout --offset 50M --length 2M "$disk"
}

# use_file_system DEVICE MAKE...: files of several sizes, some of them removed again.
use_file_system() {
    local i
    "${@:2}" "$1"
    mount -o discard "$1" /mnt
    for i in 1 2 3 4 5 6; do
        random of="/mnt/$i" bs=37K count="$i"
    done
    sync
    rm /mnt/[24]
    umount /mnt
}

kill_worker() {
    local supervisor
    supervisor=$(</var/run/qelcd.pid)
    random of="$disk" bs=4K count=9 seek=2100 oflag=direct
    kill -KILL "$(tr -d ' ' <"/proc/$supervisor/task/$supervisor/children")"
    random of="$disk" bs=4K count=9 seek=2200 oflag=direct
}

protect() {
    check "protect" qelc --host 127.0.0.1:9410 protect --yes "$disk_guid=$mirror_guid"
    check "resync" qelc --host 127.0.0.1:9410 resync --yes "$disk_guid"
    check_within 60 "a level mirror" mirror_is synchronised
}

modprobe -a loop sd_mod dm_mod
modprobe scsi_debug dev_size_mb="$megabytes" lbpu=1 lbpws=1 num_tgts=1
check_within 10 "a disk" paths_of_disk
disk=/dev/$(paths_of_disk)
random of="$disk" bs=1M seek=1 count=$((megabytes - 2))
printf 'label: dos\nlabel-id: 0x%s\n2048,16M\n,\n' "${disk_guid%%-*}" | sfdisk --quiet "$disk"
check_within 10 "with partitions" has_partitions
truncate -s "${megabytes}M" "$mirror"
printf 'label: dos\nlabel-id: 0x%s\n' "${mirror_guid%%-*}" | sfdisk --quiet "$mirror"
losetup --find --show "$mirror"
start_daemon
standin-manager --guid "$manager_guid" --ip 127.0.0.1 >/var/log/manager &
check_within 20 "a manager" grep listening /var/log/manager
check "the manager adopts the host" qelc --host 127.0.0.1:9410 add_client --guid "$manager_guid" --ip 127.0.0.1
protect
check "its writes are tracked" logged "Writes to disk $disk_guid are tracked in pages of 4096 bytes"

step "every way of writing"

follows "direct, cached, through a partition and the device mapper" write_in_every_way
follows "discards and zeroes" discard_and_zero
follows "ext4" use_file_system "${disk}1" mkfs.ext4 -q -F
# mkfs.xfs makes one as small as this for its own tests only.
follows "XFS" use_file_system "${disk}2" env TEST_DIR=/mnt TEST_DEV="${disk}2" QA_CHECK_FS=1 mkfs.xfs -q -f
follows "a killed process" kill_worker
check "nothing was compared as a whole" test "$(compared_as_a_whole)" = 0

step "what no tracker sees in place"

follows "a command that is passed through" sg_dd if=/dev/zero of="$disk" bs=512 count=16 seek=90000 blk_sgio=1
check "everything is compared after it" test "$(compared_as_a_whole)" -ge 1

echo 1 >"$scsi_debug/add_host"
check_within 20 "a second path to the disk" has_two_paths
check_within 10 "is noticed" logged "is down: there are several disks with this GUID"
echo -1 >"$scsi_debug/add_host"
disk=/dev/$(paths_of_disk | head -n 1)
check_within 30 "the disk is up again" logged "is up again at $disk"
follows "a write to the path that stayed" random of="$disk" bs=4K count=5 seek=3000 oflag=direct

step "a kernel that is locked down"

check "unprotect" qelc --host 127.0.0.1:9410 unprotect "$disk_guid"
check "nothing stays in the kernel" none test -e /sys/fs/bpf/qelcd
mount -t securityfs securityfs /sys/kernel/security
echo integrity >/sys/kernel/security/lockdown
protect
follows "a write" random of="$disk" bs=4K count=5 seek=3100 oflag=direct
check "it is tracked all the same" test "$(grep -c 'are tracked in pages of 4096' "$log")" -ge 2
