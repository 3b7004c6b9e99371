#!/bin/bash
# Marks of disks that are written to all the time, inside the private host: host.sh [--busy] BUILD-FOLDER MARKS [KIND...];
# kinds are rates, disk, ext4, xfs, group. On a busy machine some marks may miss their deadline: with --busy that is no
# failure, as long as what is taken is right.
set -euo pipefail
allowed=0
if [[ $1 == --busy ]]; then
    allowed=3
    shift
fi
bin=$1/bin
marks=$2
kinds=(rates disk ext4 xfs group)
(($# < 3)) || kinds=("${@:3}")
here=$(cd "$(dirname "$0")" && pwd -P)
PATH+=:/usr/sbin:/sbin
[[ $(</proc/self/uid_map) =~ ^\ *0\ +0\  ]] || { echo "Loop disks need root: skipped."; exit 77; }

# shellcheck source=scripts/loop_disk.sh
source "$here/../loop_disk.sh"
mount -t bpf bpf /sys/fs/bpf
folder=/run/disks
hook=/etc/kavtessaron/mark.d/copy
mkdir -p $folder /etc/kavtessaron/mark.d /run/copy /run/copy2
mount -t tmpfs -o size=4G marks $folder

# marks_of ARGUMENT...: of bench-marks.
marks_of() {
    local status=0
    "$bin/bench-marks" "$@" || status=$?
    ((status == 0 || status == allowed)) || result=1
}

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

# have_hook PLACE MIRROR COPY [MIRROR COPY]: one that copies each mirror to PLACE in MiB of its copy, but for the first
# MiB: a copy of its signature would be a second mirror. It goes bit by bit where the writers are, so that it would show
# if it were written to meanwhile.
have_hook() {
    cat >$hook <<END
#!/bin/sh
case \$QELCD_DEVICE in
    $2) to=$3 ;;
    ${4-none}) to=${5-} ;;
esac
copy() {
    dd if=\$QELCD_DEVICE of=\$to skip=\$((1 + \$1)) seek=\$(($1 + \$1)) bs=1M iflag=direct oflag=direct conv=notrunc \$2
}
for i in 0 1 2 3 4 5 6 7; do
    copy \$i count=1 || exit 1
    sleep 0.02
done
copy 8
END
    chmod +x $hook
}

# have_files TYPE FOLDER: a file system on $source, mounted on FOLDER.
have_files() {
    local partition=${source}p1 number
    partx --add "$source"
    rm -f "$partition"
    number=$(<"/sys/class/block/${partition#/dev/}/dev")
    mknod -m 600 "$partition" b "${number%:*}" "${number#*:}"
    "mkfs.$1" -q "$partition"
    mkdir -p "$2"
    mount -t "$1" "$partition" "$2"
}

# mark_files TYPE MIB [SECOND-TYPE]: writers on a file system, or on those of a group of two disks. The mirrors follow so
# slowly that only a freeze makes them level.
mark_files() {
    local mounted=/run/mnt/$1 second=() pair=()
    if (($# > 2)); then
        mounted=/run/mnt/group
        new_disks "$2"
        have_files "$3" ${mounted}2
        second=("$mirror" "$copy")
        pair=("$source" "$mirror")
    fi
    new_disks "$2"
    have_files "$1" "$mounted"
    have_hook 0 "$mirror" "$copy" "${second[@]}"
    printf 'freeze = yes\nfreeze_after = 1\n' >/etc/kavtessaron/embedded.conf
    {
        echo "$here/check_copy.sh $1 $copy /run/copy \$1 || exit 1"
        (($# < 3)) || echo "$here/check_copy.sh $3 ${second[1]} /run/copy2 \$1 || exit 1"
    } >/run/check
    marks_of files "$source" "$mirror" "$marks" /run/copy "$mounted" "sh /run/check" 1 "${pair[@]}"
    umount /run/mnt/*
    partx --delete "$source"
    (($# < 3)) || partx --delete "${pair[0]}"
    rm -r /run/mnt
    rm /etc/kavtessaron/embedded.conf
}

result=0
for kind in "${kinds[@]}"; do
    case $kind in
        rates)
            new_disks 1024
            rm -f $hook
            marks_of rates "$source" "$mirror" 20
            ;;
        disk)
            new_disks 48
            have_hook 1 "$mirror" "$copy"
            marks_of disk "$source" "$mirror" "$marks" "$copy"
            ;;
        ext4) mark_files ext4 320 ;;
        xfs) mark_files xfs 320 ;;
        group) mark_files ext4 320 xfs ;;
    esac
done
exit $result
