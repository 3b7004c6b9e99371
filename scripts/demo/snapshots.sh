# The acts of a snapshot that a hook keeps. Sourced.
# shellcheck shell=bash disable=SC2034,SC2154

journal=/var/lib/kavcdpagt/journal

install_hook() {
    mkdir -p /etc/kavtessaron/mark.d
    cat >/etc/kavtessaron/mark.d/copy <<'END'
#!/bin/bash -e
# Copies the file behind a mirror that is a loop device.
file=$(<"/sys/block/${QELCD_DEVICE#/dev/}/loop/backing_file")
case $QELCD_MARK in
    mark) cp "$file" /var/disks/snapshot ;;
    undo) rm /var/disks/snapshot ;;
esac
END
    chmod +x /etc/kavtessaron/mark.d/copy
}

is_kept() {
    grep " disk $blank_guid ok" "$journal" && test -e "$disk_folder/snapshot"
}

show_snapshot() {
    title "A snapshot of a mirror is what the site's hooks make of it; this one copies"
    install_hook
    show cat /etc/kavtessaron/mark.d/copy
    title "A write to the disk; copying is slow, so the mirror stays behind"
    throttle_to 1000
    write_note first
    prove "The mirror is behind as soon as the disk has been written to." is_mirror recovering
    show_refused "a disk is not synchronised yet" limited qelc snapshot --disk "$data_guid"
    title "Copying is fast again; the mirror catches up"
    throttle_to 100000000
    wait_until 30 is_mirror synchronised
    show qelc mirrors
    show qelc snapshot --disk "$data_guid"
    show cat "$journal"
    prove "The snapshot is in the journal, and the hook has kept the mirror." is_kept
    write_note second
}
