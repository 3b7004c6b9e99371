#!/bin/bash
# The sample hook of the CDP agent, where the kernel has what it needs: LVM snapshots and reflink copies. marks.sh
# BUILD-FOLDER
# shellcheck source=tests/lab/lab_test.sh
source "$(dirname "$0")/lab_test.sh"

sample=$(dirname "$0")/../../packaging/mark.d.sample/lvm-or-reflink
images=/var/tmp/images

# hook WHAT DEVICE: as the agent calls it.
hook() {
    QELCD_MARK=$1 QELCD_DEVICE=$2 QELCD_GUID=0a1b2c3d-../x "$sample"
}

# loop FILE: a loop device on it; its path in $loop.
loop() {
    loop=$(losetup --find --show "$1")
}

volumes() {
    lvs --noheadings -o lv_name lab | tr -d ' ' | sort
}

modprobe -a loop dm_snapshot xfs
mkdir -p "$images" /mnt/reflink
rm -rf /var/lib/kavcdpagt

step "a volume, and a loop device over one"

echo 'activation { udev_sync = 0 udev_rules = 0 }' >/etc/lvm/lvmlocal.conf # there is no udev here
truncate -s 200M "$images/pv"
loop "$images/pv"
export LVM_SUPPRESS_FD_WARNINGS=1
check "a volume group" vgcreate --quiet --devicesfile '' lab "$loop"
check "a volume" lvcreate --quiet --yes --name mirror --size 32M lab
head -c 1M /dev/urandom | dd of=/dev/lab/mirror conv=fsync status=none
before=$(sha256sum </dev/lab/mirror)
check "a mark of the volume" hook mark /dev/lab/mirror
snapshot=$(volumes | grep '^mirror.mark-')
head -c 1M /dev/zero | dd of=/dev/lab/mirror conv=fsync status=none
check "keeps what it held" test "$(sha256sum <"/dev/lab/$snapshot")" = "$before"
loop /dev/lab/mirror
check "a mark of a loop device over it" hook mark "$loop"
check "is another snapshot" test "$(volumes | grep -c '^mirror.mark-')" = 2
check "which is undone" hook undo "$loop"
check "and the first one stays" test "$(volumes | paste -s -d ' ')" = "mirror $snapshot"

step "a loop device over a file"

truncate -s 400M "$images/xfs"
mkfs.xfs -q "$images/xfs"
mount -o loop "$images/xfs" /mnt/reflink
head -c 8M /dev/urandom >/mnt/reflink/mirror
cp /mnt/reflink/mirror "$images/before"
loop /mnt/reflink/mirror
check "a mark of a loop device over a file" hook mark "$loop"
head -c 1M /dev/zero | dd of="$loop" conv=fsync status=none
kept=$(echo /mnt/reflink/mirror.marks/*)
check "which keeps what it held" cmp "$images/before" "$kept"
check "another mark" hook mark "$loop"
check "undone" hook undo "$loop"
check "leaves the first one" test "$(ls /mnt/reflink/mirror.marks)" = "${kept##*/}"
check "and cannot be undone twice" none hook undo "$loop"

truncate -s 8M "$images/plain" # not where files can be cloned
loop "$images/plain"
check "what cannot be kept is no mark" none hook mark "$loop"
check "and leaves nothing" none compgen -G "$images/plain.marks/*"
