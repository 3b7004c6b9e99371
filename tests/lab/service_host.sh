# shellcheck shell=bash
# A host that systemd runs, with a disk to protect and LVM for its mirror. Sourced after lab_test.sh by a test in the lab.
disk_guid=4d3c2b1a-0000-0000-0000-000000000000
images=/var/tmp/images

# The journal is this host's system log.
eval "$(declare -f fail | sed '1s/fail/fail_as_always/')"
fail() {
    journalctl --no-pager -q -o cat -u qelcd | tail -n 60
    qelc mirrors
    fail_as_always "$@"
}

logged() {
    journalctl --no-pager -q -o cat -t qelcd -t qelc | grep -F -- "$1"
}

mirror_is() {
    qelc --json mirrors | tee /dev/stderr | grep -q "$disk_guid.*\"state\":\"$1\""
}

make_disk() {
    modprobe scsi_debug dev_size_mb=41 # no multiple of an extent
    check_within 20 "a disk" compgen -G '/sys/bus/pseudo/drivers/scsi_debug/adapter0/host*/target*/*/block/*'
    disk=/dev/$(basename /sys/bus/pseudo/drivers/scsi_debug/adapter0/host*/target*/*/block/*)
    printf 'label: dos\nlabel-id: 0x%s\n2048,\n' "${disk_guid%%-*}" | sfdisk --quiet "$disk"
    check_within 20 "with a partition" test -b "${disk}1"
    mkfs.ext4 -q "${disk}1"
    mount "${disk}1" /mnt
}

make_mirror() {
    mkdir -p "$images"
    truncate -s 200M "$images/pv"
    check "a volume group" vgcreate --quiet lab "$(losetup --find --show "$images/pv")"
    check "a volume" qelc volume create --like "$disk" --in lab --name mirror
    mirror_guid=$(qelc --json volumes | grep -o '"guid":"[^"]*' | cut -d '"' -f 4)
}

protect_disk() {
    check "protection" qelc protect --yes "$disk_guid=$mirror_guid"
    check "a first copy" qelc resync --yes "$disk_guid"
    check_within 120 "level" mirror_is synchronised
    check "its writes are tracked" logged "Writes to disk $disk_guid are tracked in pages"
}
