#!/bin/bash
# The working process is killed again and again while it copies two disks, one of which is written to meanwhile.
# kills.sh BUILD-FOLDER, in a private host.
# shellcheck source=tests/host/host_test.sh
source "$(dirname "$0")/host_test.sh"
rate=4000000
kills=20
farthest_back=$((2 * rate + (8 << 20))) # bytes: a checkpoint a second, blocks on their way, and a slow machine

make_bystanders
for name in quiet busy; do
    make_source "$name" 256
    cp "$images/$name" "$images/$name.expected"
    make_mirror "$name-mirror" 256
done
before_all=$(bytes_written quiet-mirror)
start_daemon
adopt
check "protection" as_manager protect "${guid[quiet]}=${guid[quiet-mirror]}" \
    "${guid[busy]}=${guid[busy-mirror]}"
echo "$rate" >"$state/throttle"
check "resync" as_manager resync "${guid[quiet]}" "${guid[busy]}"

moved_from() {
    (($(position quiet) > $1)) || grep -q Finished "$(record quiet)"
}

write_now_and_then busy &
writer=$!
told_last=0
for ((round = 1; round <= kills; ++round)); do
    sleep "$((RANDOM % 3)).$((RANDOM % 10))"
    saved=$(position quiet)
    kill_worker
    # Nobody asks the new process for anything: it has to go on by itself.
    ((round % 4 == 0)) || continue
    check_within 20 "the copy goes on" moved_from "$(position quiet)"
    wait_for_daemon
    now=$(percent quiet)
    ((now * (256 << 20) / 100 + farthest_back >= told_last * (256 << 20) / 100)) ||
        fail "from $told_last % back to $now %"
    ((now >= saved / ((256 << 20) / 100))) || fail "$now % after $saved bytes were saved"
    told_last=$now
done
touch /var/tmp/quiet
wait "$writer"
rm "$state/throttle"

# Still without a command.
for name in quiet busy; do
    check_within 60 "the record of $name says level" grep -q '^sync_state Sync Finished' "$(record "$name")"
    check "$name is level" is_level "$name"
    check "$name is on its mirror" equal "$name" "$name-mirror"
    check "$name holds what was written to it" cmp "$images/$name" "$images/$name.expected"
done
# A second pass would hide what a process that was killed had left out.
check "what was not written to was copied without a pass" \
    grep -q "Disk ${guid[quiet]} has been copied to mirror ${guid[quiet-mirror]}\$" "$log"
check "other disks are as they were" unchanged by-ext4 by-swap by-mbr
again=$(($(bytes_written quiet-mirror) - before_all - $(stat -c %s "$images/quiet")))
((again <= kills * farthest_back)) || fail "$again bytes were copied again"
echo "$kills kills: $((again >> 20)) MiB copied again; $(grep -c ' is down: ' "$log" || true) links were down"
end_test
