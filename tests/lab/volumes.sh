#!/bin/bash
# Mirror volumes in a volume group: thin, thick, and what must not be lost with them. volumes.sh BUILD-FOLDER
# shellcheck source=tests/lab/lab_test.sh
source "$(dirname "$0")/lab_test.sh"

images=/var/tmp/images
modprobe -a loop dm_thin_pool dm_snapshot
mkdir -p "$images"
rm -rf /var/lib/qelcd-volumes /var/lib/twinvault
echo 'activation { udev_sync = 0 udev_rules = 0 }' >/etc/lvm/lvmlocal.conf # there is no udev here
export LVM_SUPPRESS_FD_WARNINGS=1

# loop MIB FILE: a loop device on a file of that size; its path in $loop.
loop() {
    truncate -s "$1M" "$images/$2"
    loop=$(losetup --find --show "$images/$2")
}

# create ARGUMENT...: a volume; its loop device in $device, its GUID in $guid.
create() {
    qelc --json volume create "$@" >"$images/made"
    device=$(grep -o '/dev/loop[0-9]*' "$images/made")
    guid=$(grep -o '"guid":"[^"]*' "$images/made" | cut -d '"' -f 4)
}

has_signature() {
    [[ $(od -An -tx4 -j 440 -N 4 "$device" | tr -d ' ') == "${guid%%-*}" ]]
}

# refused WORDS COMMAND...: it fails, and says these words.
refused() {
    local words=$1 said
    shift
    said=$("$@" 2>&1) && { echo "it succeeded: $said"; return 1; }
    echo "$said"
    grep -qF -- "$words" <<<"$said"
}

volumes() {
    lvs --noheadings -o lv_name lab | tr -d ' ' | sort | paste -s -d ' '
}

loop 50 disk
disk=$loop
loop 400 large
large=$loop
loop 300 pv
check "a volume group" vgcreate --quiet --devicesfile '' lab "$loop"
# Old content, where the next volume will lie.
lvcreate --quiet --yes --name old --size 52M lab
head -c 52M /dev/zero | tr '\0' x >/dev/lab/old
sync /dev/lab/old
lvremove --quiet --yes lab/old

step "a thick volume"
create --like "$disk" --in lab --name thick
check "has the size of the disk" test "$(blockdev --getsize64 "$device")" = $((50 << 20))
check "and its signature" has_signature
check "and nothing old at its end" test "$(dd if="$device" bs=1M skip=49 status=none | tr -d '\0' | wc -c)" = 0
check "a name is given once" refused "there is a volume" qelc volume create --like "$disk" --in lab --name thick
lvcreate --quiet --yes --name taken --size 4M lab
check "no volume is overwritten" refused "lab/taken exists" qelc volume create --like "$disk" --in lab --name taken
check "not without room" refused "are free" qelc volume create --like "$large" --in lab
check "nor on the disk itself" refused "the very disk" qelc volume create --like "$loop" --in lab
lvcreate --quiet --yes --snapshot --name mark --size 8M lab/thick
check "its snapshots are not lost" refused "mark" qelc volume delete thick --yes
lvremove --quiet --yes lab/mark

step "a thin volume"
lvcreate --quiet --yes --type thin-pool --name pool --size 60M lab
create --like "$disk" --in lab/pool --name thin
check "with its signature" has_signature
check "takes no room yet" test "$(qelc --json volumes | grep -o '"name":"thin"[^}]*' | grep -o '"taken":[0-9]*' | cut -d : -f 2)" -lt $((1 << 20))

step "a boot"
losetup --detach "$device"
lvchange --quiet --activate n lab/thin
check "a volume that is not active" refused "lab/thin is not active" qelc volume attach
lvchange --quiet --activate y lab/thin
check "and that is" qelc volume attach
device=$(qelc --json volumes | grep -o '"name":"thin"[^}]*' | grep -o '/dev/loop[0-9]*')
check "with its signature" has_signature
losetup --detach "$device"
lvcreate --quiet --yes --virtualsize 100M --thinpool lab/pool --name greedy
dd if=/dev/urandom of=/dev/lab/greedy bs=1M count=60 oflag=direct status=none 2>/dev/null || true
check "a pool that is full" refused "the pool lab/pool is full" qelc volume attach
lvremove --quiet --yes lab/greedy
check "and is so no more" qelc volume attach

step "the end"
lvchange --quiet --deltag "qelcd-${guid%%-*}" lab/thin
check "another volume is left alone" refused "is left alone" qelc volume delete thin --yes
lvchange --quiet --addtag "qelcd-${guid%%-*}" lab/thin
check "the thin one" qelc volume delete thin --yes
check "the thick one" qelc volume delete thick --yes
check "no other is gone" test "$(volumes)" = "pool taken"
check "no volumes" test "$(qelc volumes)" = "no volumes"
