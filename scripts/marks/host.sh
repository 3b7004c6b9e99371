#!/bin/bash
# Marks of disks that are written to all the time, inside the private host: host.sh BUILD-FOLDER MARKS [KIND...]; kinds
# are rates, disk, ext4, xfs.
set -euo pipefail
bin=$1/bin
marks=$2
kinds=(rates disk ext4 xfs)
(($# < 3)) || kinds=("${@:3}")
here=$(cd "$(dirname "$0")" && pwd -P)
PATH+=:/usr/sbin:/sbin
[[ $(</proc/self/uid_map) =~ ^\ *0\ +0\  ]] || { echo "Loop disks need root: skipped."; exit 77; }

# shellcheck source=scripts/loop_disk.sh
source "$here/../loop_disk.sh"
mount -t bpf bpf /sys/fs/bpf
folder=/run/disks
hook=/etc/kavtessaron/mark.d/copy
mkdir -p $folder /etc/kavtessaron/mark.d /run/copy
mount -t tmpfs -o size=4G marks $folder

# attach NAME MIB: a new disk with a signature and one partition; its path in $attached.
attach() {
    rm -f "$folder/$1"
    truncate -s "$2M" "$folder/$1"
    printf 'label: dos\n,\n' | sfdisk --quiet "$folder/$1"
    attach_loop "$folder/$1"
}

# new_disks MIB: in $source, $mirror, and $copy for what the hook keeps.
new_disks() {
    attach source "$1"
    source=$attached
    attach mirror "$1"
    mirror=$attached
    attach copy "$1"
    copy=$attached
}

# have_hook PLACE [FROM]: one that copies the mirror (or FROM) to PLACE in MiB, but for its first MiB: a copy of its
# signature would be a second mirror. It goes bit by bit where the writers are, so that it would show if it were written
# to meanwhile.
have_hook() {
    cat >$hook <<END
#!/bin/sh
copy() {
    dd if=${2-\$QELCD_DEVICE} of=$copy skip=\$((1 + \$1)) seek=\$(($1 + \$1)) bs=1M iflag=direct oflag=direct conv=notrunc \$2
}
for i in 0 1 2 3 4 5 6 7; do
    copy \$i count=1 || exit 1
    sleep 0.02
done
copy 8
END
    chmod +x $hook
}

# mark_files TYPE MIB: writers on a file system. The mirror follows so slowly that only a freeze makes it level.
mark_files() {
    local mounted=/mnt/$1 partition number
    new_disks "$2"
    have_hook 0
    partx --add "$source"
    partition=${source}p1
    rm -f "$partition"
    number=$(<"/sys/class/block/${partition#/dev/}/dev")
    mknod -m 600 "$partition" b "${number%:*}" "${number#*:}"
    "mkfs.$1" -q "$partition"
    mkdir -p "$mounted"
    mount -t "$1" "$partition" "$mounted"
    printf 'freeze = yes\nfreeze_after = 1\n' >/etc/kavtessaron/embedded.conf
    "$bin/bench-marks" files "$source" "$mirror" "$marks" /run/copy "$mounted" \
        "$here/check_copy.sh $1 $copy /run/copy" 1 || result=1
    umount "$mounted"
    partx --delete "$source"
    rm /etc/kavtessaron/embedded.conf
}

result=0
for kind in "${kinds[@]}"; do
    case $kind in
        rates)
            new_disks 1024
            rm -f $hook
            "$bin/bench-marks" rates "$source" "$mirror" 20 || result=1
            ;;
        disk)
            new_disks 48
            have_hook 1
            "$bin/bench-marks" disk "$source" "$mirror" "$marks" "$copy" || result=1
            ;;
        ext4) mark_files ext4 320 ;;
        xfs) mark_files xfs 320 ;;
    esac
done
exit $result
