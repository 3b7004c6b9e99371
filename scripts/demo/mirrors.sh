# The acts of a disk and its mirror. Sourced.
# shellcheck shell=bash disable=SC2034,SC2154

throttle=/var/lib/twinvault/throttle

# throttle_to BYTES: how much is copied per second.
throttle_to() {
    printf '$ echo %s >%s\n' "$1" "$throttle"
    echo "$1" >"$throttle"
}

# is_mirror STATE: the mirror is in that state, as qelc has it.
is_mirror() {
    limited qelc --json mirrors | grep -q "\"state\":\"$1\""
}

show_protection() {
    title "The manager protects the disk; the blank one becomes its mirror"
    show_manager qelc --host "$host_address:9410" protect --yes "$data_guid=$blank_guid"
    show qelc mirrors
    prove "The disk is protected; nothing is copied yet." is_mirror "not synchronised"
}

saved_position() {
    sed -n 's/^position //p' "/var/lib/twinvault/$data_guid.mirror"
}

is_saved_beyond() {
    (($(saved_position) > $1))
}

kill_working_process() {
    local supervisor
    supervisor=$(</var/run/qelcd.pid)
    show kill -KILL "$(tr -d ' ' <"/proc/$supervisor/task/$supervisor/children")"
}

# The next position that is saved is beyond that of the crash: a copy from the start would save a smaller one.
goes_on() {
    local end=$((SECONDS + 20)) position=$saved
    while [[ -z $position ]] || ((position == saved)); do
        ((SECONDS < end)) || return 1
        sleep 0.1
        position=$(saved_position)
    done
    ((position > saved))
}

show_first_copy_with_a_crash() {
    local before
    title "The first copy, slowed down; the process that copies is killed"
    throttle_to 8000000
    show_manager qelc --host "$host_address:9410" resync --yes "$data_guid"
    wait_until 30 is_saved_beyond 12000000
    show qelc mirrors
    kill_working_process
    saved=$(saved_position)
    title "The supervisor starts a new process; the copy goes on from byte $saved"
    wait_until 10 qelc nop_command
    before=$(heartbeat_count)
    prove "The copy went on from there, not from the start." goes_on
    throttle_to 30000000
    show qelc mirrors --watch 1
    prove "Disk and mirror are level." is_mirror synchronised
    wait_until 20 heartbeats $((before + 1))
    show_line limited "tail -n 1 $manager_log | fold -sw 79"
    prove "The new process sends heartbeats to the manager." heartbeats $((before + 1))
}

# write_note TEXT: on the protected disk, past the cache of the file system and its journal.
write_note() {
    printf '$ echo %s >>/mnt/data/notes; fsfreeze -f /mnt/data; fsfreeze -u /mnt/data\n' "$1"
    echo "$1" >>/mnt/data/notes
    fsfreeze --freeze /mnt/data
    fsfreeze --unfreeze /mnt/data
}
