# The acts of snapshots: on demand, of a disk and of a group, and by a schedule. Sourced.
# shellcheck shell=bash disable=SC2034,SC2154

journal=/var/lib/kavcdpagt/journal
marks=/var/disks/marks

install_hook() {
    title "A hook that keeps what a mirror holds at the moment of a snapshot"
    mkdir -p /etc/kavtessaron/mark.d "$marks"
    cat >/etc/kavtessaron/mark.d/copy <<'END'
#!/bin/bash -e
# Copies the file behind a mirror that is a loop device.
file=$(<"/sys/block/${QELCD_DEVICE#/dev/}/loop/backing_file")
kept=/var/disks/marks/${QELCD_GUID%%-*}
case $QELCD_MARK in
    mark) cp --reflink=auto --sparse=always "$file" "$kept.$(date +%H%M%S.%3N)" ;;
    undo) rm "$(ls "$kept".* | tail -n 1)" ;;
esac
END
    chmod +x /etc/kavtessaron/mark.d/copy
    show cat /etc/kavtessaron/mark.d/copy
}

# kept GUID: the copies of a mirror, the oldest first.
kept() {
    find "$marks" -name "${1%%-*}.*" | sort
}

# mark_count WHAT: how many of "disk" or "group accounts" are in the journal.
mark_count() {
    grep -c " $1 .* ok$" "$journal" || true
}

# has_marks WHAT COUNT: there are that many, or more, and no failed one.
has_marks() {
    (($(mark_count "$1") >= $2)) && ! grep failed "$journal"
}

# are_kept WHAT COUNT GPT MBR: so many marks, and so many copies of the mirrors of the two disks.
are_kept() {
    has_marks "$1" "$2" && (($(kept "$gpt_mirror_guid" | wc -l) == $3 && $(kept "$mbr_mirror_guid" | wc -l) == $4))
}

show_snapshot() {
    title "A snapshot of the disk"
    show qelc snapshot --disk "$gpt_guid"
    show cat "$journal"
    prove "A snapshot of a disk is in the journal, and the hook has kept its mirror." are_kept disk 1 1 0
}

show_group_snapshot() {
    title "A snapshot of the group"
    show qelc snapshot --group accounts
    show cat "$journal"
    prove "A snapshot of a group has kept both mirrors." are_kept "group accounts" 1 2 1
    show ls -sh --block-size=1K "$marks"
}

failures() {
    (($(grep -c 'Failed to connect to manager' "$log") >= $1))
}

show_silent_manager() {
    title "A schedule: the group every 8 seconds"
    show_manager qelc --host "$host_address:9410" schedule set --group accounts --start now --every 8
    wait_until 20 has_marks "group accounts" 2
    show qelc mirrors

    title "The manager's host goes silent: the gaps between the attempts to reach it grow"
    local before
    before=$(mark_count "group accounts")
    stop_manager
    in_manager ip address delete "$manager_address/24" dev net1
    wait_until 60 failures 6 # two lines each
    grep 'Failed to connect to manager' "$log" | sed -n 'n;p'
    title "Meanwhile the schedule has gone on"
    show cat "$journal"
    prove "A schedule of a group fires, also while the manager is away." has_marks "group accounts" $((before + 2))

    title "The manager comes back"
    in_manager ip address add "$manager_address/24" dev net1
    : >"$manager_log"
    start_manager
    wait_until 60 heartbeats 1
    show cat "$manager_log"
    prove "The host finds its manager again." heartbeats 1
}
