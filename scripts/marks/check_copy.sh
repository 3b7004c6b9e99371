#!/bin/bash
# Whether the file system of a held mirror is whole: check_copy.sh TYPE DEVICE FOLDER frozen|crashed. One that was
# frozen must be clean as it is (ext4), any other one after the kernel has replayed its journal. Mounts it on FOLDER.
set -euo pipefail
type=$1 device=$2 folder=$3 moment=$4

# XFS keeps its log for the next mount to replay, frozen or not.
if [[ $moment == crashed || $type == xfs ]]; then
    options=()
    [[ $type != xfs ]] || options=(-o nouuid)
    mount -t "$type" "${options[@]}" "$device" "$folder"
    umount "$folder"
fi
case $type in
    ext4)
        e2fsck -fn "$device" >"$folder.check" 2>&1 || { cat "$folder.check" >&2; exit 1; }
        if grep 'journal recovery' "$folder.check" >&2; then
            exit 1 # it was in use
        fi
        mount -t ext4 -o ro,noload "$device" "$folder"
        ;;
    xfs)
        xfs_repair -n "$device" >"$folder.check" 2>&1 || { cat "$folder.check" >&2; exit 1; }
        mount -t xfs -o ro,norecovery,nouuid "$device" "$folder"
        ;;
esac
