# The acts in which protection and adoption end. Sourced.
# shellcheck shell=bash disable=SC2034,SC2154

is_forgotten() {
    ! grep -q '<Manager>' /etc/kavtessaron/qelcd.conf
}

has_no_mirror() {
    limited qelc mirrors | grep -qx "no mirrors" && ! ls /var/lib/twinvault/*.mirror 2>/dev/null
}

show_release() {
    title "A host with a protected disk is not released"
    show_refused "cannot be released while disks are protected" in_manager standin-manager release "$host_address:9410"
    title "So protection ends first, once the mirror has all that was written"
    show umount /mnt/data
    wait_until 30 is_mirror synchronised
    show_manager qelc --host "$host_address:9410" unprotect "$data_guid"
    prove "Nothing is protected any more." has_no_mirror
    show_manager standin-manager release "$host_address:9410"
    prove "The host knows no manager any more." is_forgotten
}

stop_daemon() {
    kill "$(<"$pid_file")"
    wait_until 10 test ! -e /var/run/qelcd.sock
}

show_stop() {
    title "The daemon stops"
    typed '$' kill "$(<"$pid_file")"
    stop_daemon
}
