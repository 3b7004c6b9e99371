# The acts of two disks and their mirrors. Sourced.
# shellcheck shell=bash disable=SC2034,SC2154

throttle=/var/lib/twinvault/throttle

# throttle_to BYTES: so many per second, that there is something to see.
throttle_to() {
    printf '$ echo %s >%s\n' "$1" "$throttle"
    echo "$1" >"$throttle"
}

# are_mirrors STATE COUNT: so many of them are in that state, as qelc has it.
are_mirrors() {
    (($(limited qelc --json mirrors | grep -o "\"state\":\"$1\"" | wc -l) == $2))
}

show_protection() {
    title "A consistency group of two disks"
    show qelc group create accounts "$gpt_guid" "$mbr_guid"
    show qelc group list
    title "The manager protects both: each gets a blank disk as its mirror"
    show_manager qelc --host "$host_address:9410" protect "$gpt_guid=$gpt_mirror_guid" "$mbr_guid=$mbr_mirror_guid" \
        --group accounts
    show qelc mirrors
    prove "Two disks are protected, and their mirrors not synchronised yet." are_mirrors "not synchronised" 2
}

saved_position() {
    sed -n 's/^position //p' "/var/lib/twinvault/$gpt_guid.mirror"
}

is_saved_beyond() {
    (($(saved_position) > $1))
}

kill_working_process() {
    local supervisor
    supervisor=$(<"$pid_file")
    show kill -KILL "$(tr -d ' ' <"/proc/$supervisor/task/$supervisor/children")"
}

goes_on() {
    is_saved_beyond $((saved - 1)) && grep -q "^sync_state Sync On" "/var/lib/twinvault/$gpt_guid.mirror"
}

show_first_copy_with_a_crash() {
    title "The first copy; in the middle of it the working process is killed"
    throttle_to 5000000
    show_manager qelc --host "$host_address:9410" resync "$gpt_guid" "$mbr_guid"
    wait_until 20 is_saved_beyond 8000000
    show qelc mirrors
    kill_working_process
    saved=$(saved_position)
    title "The supervisor starts a new one, which goes on with the copy from byte $saved"
    wait_until 10 qelc nop_command
    prove "A copy goes on after a crash from where it was saved." goes_on
    show qelc mirrors --watch 1
    prove "Both mirrors are synchronised." are_mirrors synchronised 2
    title "The manager has heard of all that"
    show tail -n 4 "$manager_log"
}

# write_note TEXT: on the protected disk. What a file system has in its cache is not on the disk yet.
write_note() {
    printf '$ echo %s >>/mnt/data/notes; sync -f /mnt/data\n' "$1"
    echo "$1" >>/mnt/data/notes
    sync -f /mnt/data
}

show_first_note() {
    title "Something is written to a protected disk; its mirror is behind, and follows"
    throttle_to 8000000
    write_note first
    show qelc mirrors
    prove "A mirror is behind as soon as its disk is written to." are_mirrors recovering 1
    show_refused "a disk is not synchronised yet" limited qelc snapshot --disk "$gpt_guid"
    show qelc mirrors --watch 1
    wait_until 20 are_mirrors synchronised 2
    prove "The mirror has followed." are_mirrors synchronised 2
}

show_second_note() {
    title "The disk is written to again"
    throttle_to 40000000
    write_note second
    wait_until 20 are_mirrors synchronised 2
    show qelc mirrors
}
