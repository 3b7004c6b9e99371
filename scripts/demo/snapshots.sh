# The acts of a snapshot: kept, looked into, restored. Sourced.
# shellcheck shell=bash disable=SC2034,SC2154

# The file system of the private host cannot clone files, as the installed keepers want it. So this one copies.
install_keeper() {
    mkdir -p /etc/kavtessaron/keepers.d
    cat >/etc/kavtessaron/keepers.d/copy <<'END'
#!/bin/sh -e
case $1 in
    probe) echo "/var/disks/all.qelcd-snapshots/$QELCD_SNAPSHOT" ;;
    mark)
        mkdir -p "${QELCD_PLACE%/*}"
        cp --sparse=always "$(cat "/sys/block/${QELCD_DEVICE#/dev/}/loop/backing_file")" "$QELCD_PLACE" ;;
    undo | remove) rm -f "$QELCD_PLACE" ;;
    attach) losetup -nO NAME -j "$QELCD_PLACE" | grep . || losetup --find --show --read-only "$QELCD_PLACE" ;;
    detach) losetup -nO NAME -j "$QELCD_PLACE" | xargs -r losetup --detach ;;
    list)
        shift
        for place; do
            [ -f "$place" ] || continue
            printf '{"place":"%s","device":"%s"}\n' "$place" "$(losetup -nO NAME -j "$place")"
        done | paste -s -d , | sed 's/.*/[&]/' ;;
esac
END
    chmod +x /etc/kavtessaron/keepers.d/copy
}

# snapshots_are STATE COUNT: as the list says.
snapshots_are() {
    [[ $(limited qelc --json snapshots | grep -o "\"state\":\"$1\"" | wc -l) == "$2" ]]
}

show_snapshot() {
    title "A write to the disk; copying is slow, so the mirror stays behind"
    install_keeper
    throttle_to 1000
    write_note first
    prove "The mirror is behind as soon as the disk has been written to." is_mirror recovering
    show_refused "a disk is not synchronised yet" limited qelc snapshot --disk "$data_guid"
    title "Copying is fast again; the mirror catches up, and a keeper keeps a snapshot"
    throttle_to 100000000
    wait_until 30 is_mirror synchronised
    show qelc mirrors
    show qelc snapshot --disk "$data_guid"
    show qelc snapshots
    prove "The snapshot is there." snapshots_are ok 1
    snapshot=$(limited qelc --json snapshots | grep -o '"name":"[^"]*' | cut -d '"' -f 4)
    write_note second
}

is_text() {
    [[ $(<"$1") == "$2" ]]
}

show_lost_file() {
    title "A file is deleted on the disk, and found in the snapshot"
    show rm /mnt/data/notes
    show qelc snapshots mount "$snapshot" /mnt/snapshot
    show cat /mnt/snapshot/notes
    prove "It is the file as it was at the moment of the snapshot." is_text /mnt/snapshot/notes first
    show qelc snapshots umount "$snapshot"
}

# The four bytes of the signature differ.
holds_snapshot() {
    blockdev --flushbufs "$data_disk" # its cache may be older than that of its partition
    differ_in_signature_only "$(cmp -l "$data_disk" "/var/disks/all.qelcd-snapshots/$snapshot")"
}

show_restore() {
    title "The whole disk goes back to that moment; first its present state is kept"
    show umount /mnt/data
    show qelc snapshots restore "$snapshot" --yes
    prove "The disk holds what the snapshot holds, but for its own signature." holds_snapshot
    prove "There are two snapshots now, and none is attached." snapshots_are ok 2
    make_nodes "$data_disk"
    show mount "${data_disk}p1" /mnt/data
    prove "The file is there again." is_text /mnt/data/notes first
}
