# The acts in which all of it ends. Sourced.
# shellcheck shell=bash disable=SC2034,SC2154

has_own_schedule() {
    sed -n '/<CDPScheduleList>/,$p' /etc/kavtessaron/qelcd.conf | grep "$mbr_guid"
}

show_group_removal() {
    title "One disk leaves the group, and keeps the schedule"
    show_manager qelc --host "$host_address:9410" group remove accounts "$mbr_guid"
    show qelc group list
    show qelc mirrors
    show qelc schedule get --disk "$mbr_guid"
    show cat /etc/kavtessaron/qelcd.conf
    prove "A disk that leaves its group keeps the schedule." has_own_schedule
}

is_forgotten() {
    ! grep -q '<Manager>' /etc/kavtessaron/qelcd.conf
}

has_no_mirror() {
    limited qelc mirrors | grep -qx "no mirrors" && ! ls /var/lib/twinvault/*.mirror 2>/dev/null
}

show_release() {
    title "A host with protected disks is not released"
    show_refused "cannot be released while disks are protected" in_manager standin-manager release "$host_address:9410"
    title "The file system is unmounted; when the mirrors are level, protection ends"
    show umount /mnt/data
    wait_until 20 are_mirrors synchronised 2
    show qelc mirrors
    show_manager qelc --host "$host_address:9410" unprotect "$gpt_guid" "$mbr_guid"
    show qelc mirrors
    prove "Nothing is protected any more." has_no_mirror
    title "Now the manager releases it"
    show_manager standin-manager release "$host_address:9410"
    show tail -n 1 /var/log/iscsiadm
    show qelc local_list
    prove "A released host knows no manager." is_forgotten
}

show_answer_50() {
    title "It is adopted anew; then the manager answers a heartbeat with 50, no longer adopted"
    local before
    before=$(heartbeat_count)
    show_manager standin-manager adopt "$host_address:9410" --ip "$manager_address"
    wait_until 20 heartbeats $((before + 1))
    manager_option "answer 50"
    wait_until 20 is_forgotten
    show tail -n 1 "$manager_log"
    show_manager standin-manager scan "$host_address:9410"
    show cat /etc/kavtessaron/qelcd.conf
    prove "A host that its manager disowns forgets it, and can be adopted anew." is_forgotten
    stop_manager
}

show_unknown_command() {
    title "A command that no slot holds ends the working process; the supervisor starts a new one"
    show_refused "the connection ended without an answer" limited qelc 30009
    wait_until 10 qelc nop_command
    show qelc nop_command
    prove "A working process that ended is replaced." qelc nop_command
}

show_stop() {
    title "The daemon stops"
    printf '$ kill %s\n' "$(<"$pid_file")"
    stop_daemon
}
