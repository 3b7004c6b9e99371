#!/bin/bash
# The keepers that are shipped, where the kernel has what they need: LVM snapshots, thin and thick, and reflink copies.
# marks.sh BUILD-FOLDER
# shellcheck source=tests/lab/lab_test.sh
source "$(dirname "$0")/lab_test.sh"

keepers=$build/lib/qelcd/keepers.d
images=/var/tmp/images

# ask KEEPER VERB DEVICE NAME: as the agent asks for the member of a snapshot; PLACE is what the probe said.
ask() {
    QELCD_DEVICE=$3 QELCD_GUID=0a1b2c3d-../x QELCD_SOURCE=1a1b2c3d QELCD_GROUP='' QELCD_SNAPSHOT=$4 \
        QELCD_PLACE=${place-} "$keepers/$1" "$2"
}

# loop FILE: a loop device on it; its path in $loop.
loop() {
    loop=$(losetup --find --show "$1")
}

# lists KEEPER DEVICE: the keeper has something at the place, and it is attached there; '' for nowhere.
lists() {
    local found
    found=$("$keepers/$1" list /nowhere/x "$place")
    echo "$found"
    [[ $found == *'"place":"'"$place"'"'* && $found == *'"device":"'"$2"'"'* && $found != */nowhere/* ]]
}

lists_nothing() {
    [[ $("$keepers/$1" list "$place") == '[]' ]]
}

# What the disk library knows a snapshot by: the name of the volume, or the folder of the file.
is_known_as_snapshot() {
    local facts
    facts=/sys/dev/block/$(mountpoint -x "$1")
    if [[ -e $facts/dm ]]; then
        [[ $(<"$facts/dm/uuid") == LVM-* && $(<"$facts/dm/name") == *.qelcd--2* ]]
    else
        [[ $(<"$facts/loop/backing_file") == *.qelcd-snapshots/2* ]]
    fi
}

# keeps KEEPER DEVICE DATA: the whole life of a snapshot of a mirror, whose content is in the file DATA.
keeps() {
    local name=2031-05-01T22-00-00Z-sda attached before
    place=$(ask "$1" probe "$2" "$name")
    before=$(sha256sum <"$2")
    check "$1 keeps $2 at $place" ask "$1" mark "$2" "$name"
    check "but not twice" none ask "$1" mark "$2" "$name"
    head -c 1M /dev/zero | dd of="$2" conv=fsync,notrunc status=none
    check "it is listed" lists "$1" ''
    attached=$(ask "$1" attach "$2" "$name")
    check "attached, it holds what the mirror held" test "$(sha256sum <"$attached")" = "$before"
    check "is read-only" test "$(blockdev --getro "$attached")" = 1
    check "and is known as a snapshot" is_known_as_snapshot "$attached"
    check "it is listed with its device" lists "$1" "$attached"
    check "attached again, it is the same" test "$(ask "$1" attach "$2" "$name")" = "$attached"
    tail -f /dev/null <"$attached" &
    check "in use, it is not removed" none ask "$1" remove "$2" "$name"
    kill $!
    wait $! 2>/dev/null || true
    check "detached" ask "$1" detach "$2" "$name"
    check "it is listed without a device" lists "$1" ''
    check "removed" ask "$1" remove "$2" "$name"
    check "it is gone" lists_nothing "$1"
    check "and can be undone, whatever is left" ask "$1" undo "$2" "$name"
}

# fill KEEPER DEVICE: how full its store is, in whole percent.
fill() {
    local said
    said=$(ask "$1" space "$2" x)
    echo "${said%.*}"
}

# kept_in GIB: a thin snapshot of a volume of that size, most of which was never written.
kept_in() {
    local before
    lvcreate --quiet --yes --thin --name "thin$1" --virtualsize "$1G" lab/pool
    loop "/dev/lab/thin$1"
    place=$(ask lvm probe "$loop" "2031-05-01T22-00-00Z-sd$1")
    before=$(date +%s%3N)
    check "a thin volume of $1 GiB" ask lvm mark "$loop" "2031-05-01T22-00-00Z-sd$1"
    echo "kept after $(($(date +%s%3N) - before)) ms"
}

modprobe -a loop dm_snapshot dm_thin_pool xfs
mkdir -p "$images" /mnt/reflink

step "volumes, and loop devices over them"

echo 'activation { udev_sync = 0 udev_rules = 0 }' >/etc/lvm/lvmlocal.conf # there is no udev here
truncate -s 400M "$images/pv"
loop "$images/pv"
export LVM_SUPPRESS_FD_WARNINGS=1
check "a volume group" vgcreate --quiet --devicesfile '' lab "$loop"
check "a volume" lvcreate --quiet --yes --name thick --size 32M lab
check "a pool" lvcreate --quiet --yes --type thin-pool --name pool --size 100M --zero n lab
check "a thin volume" lvcreate --quiet --yes --thin --name thin --virtualsize 32M lab/pool
for volume in thick thin; do
    head -c 2M /dev/urandom | dd of="/dev/lab/$volume" conv=fsync status=none
    loop "/dev/lab/$volume"
    keeps lvm "$loop"
done
full=$(fill lvm "$loop")
head -c 20M /dev/urandom | dd of="$loop" seek=2 bs=1M iflag=fullblock conv=fsync status=none
check "the pool fills, from $full %" test "$full" -lt "$(fill lvm "$loop")"
kept_in 1
kept_in 16
place=lab/thick
check "a volume of somebody else is not removed" none ask lvm remove "$loop" x

step "a loop device over a file"

truncate -s 400M "$images/xfs"
mkfs.xfs -q "$images/xfs"
mount -o loop "$images/xfs" /mnt/reflink
head -c 8M /dev/urandom >/mnt/reflink/mirror
loop /mnt/reflink/mirror
keeps reflink "$loop"
check "the file system fills" test "$(fill reflink "$loop")" -gt 0 -a "$(fill reflink "$loop")" -lt 50
check "nothing is left beside the file" test "$(ls /mnt/reflink)" = mirror

truncate -s 8M "$images/plain" # not where files can be cloned
loop "$images/plain"
check "what cannot be kept is left to others" test "$(ask reflink probe "$loop" x 2>/dev/null || echo $?)" = 3
check "without a trace" none compgen -G "$images/plain.*"
