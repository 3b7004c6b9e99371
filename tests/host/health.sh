#!/bin/bash
# A host at one look, through the life of a mirror, and the live view on terminals of some sizes. health.sh BUILD-FOLDER,
# in a private host.
# shellcheck source=tests/host/host_test.sh
source "$(dirname "$0")/host_test.sh"
screen=$here/../support/screen
/usr/bin/python3 -c 'import pyte' 2>/dev/null || { echo "no pyte (Debian package python3-pyte): skipped"; exit 77; }

# shown SIZE STEP...: what the live view shows on a terminal of that size.
shown() {
    local size=$1
    shift
    "$screen" "$size" "qelc top" "$@"
}

# fits COLUMNS LINES: what was shown.
fits() {
    awk -v columns="$1" -v lines="$2" '/^ended/ { exit } length > columns { exit 1 } END { exit NR > lines + 1 }' \
        /var/tmp/shown
}

make_source disk 32
make_mirror mirror 32
check "nothing is set up" says 2 "qelcd does not run" qelc status
start_daemon
check "nobody has adopted it" says 3 "UNKNOWN private-host: no manager has adopted this host" qelc status
qelc events >/var/log/events &
check_within 20 "events begin" grep '"event":"begin"' /var/log/events
standin-manager --guid "$manager_guid" --ip 127.0.0.1 >/var/log/manager &
check_within 20 "a manager listens" grep listening /var/log/manager
check "the manager adopts the host" as_manager add_client --guid "$manager_guid" --ip 127.0.0.1
check "protection" as_manager protect --yes "${guid[disk]}=${guid[mirror]}"
disk=$(basename "${device[disk]}") mirror=$(basename "${device[mirror]}")
check "not copied yet" says 1 "WARNING private-host: mirror of $disk is not synchronised" qelc status
check "and what to type" says 1 "hint: to copy the disk to its mirror: qelc resync $disk" qelc status
resync 1000000 disk
check "a copy" says 1 "$disk -> $mirror synchronising, " qelc status
rm "$state/throttle"
check_within 60 "level" says 0 "OK private-host: the mirror is level" qelc status
for what in adopted '"not synchronised"' '"now":"synchronising","was":"not synchronised"' '"now":"synchronised"'; do
    check_within 30 "an event: $what" grep -F -- "$what" /var/log/events
done

step "the live view"
shown 60x12 "wait $disk " "wait  level" text "key q" >/var/tmp/shown
check "it fits" fits 60 12
check "the first line" grep "^OK  private-host: the mirror is level" /var/tmp/shown
check "a mirror, with events below" grep -A9 "^  $disk  *level  *-  *0 B" /var/tmp/shown
check "the keys" grep "q quit  s sort (worst)" /var/tmp/shown
check "the terminal is as before" grep -x "ended 0 terminal as before" /var/tmp/shown
resync 1000000 disk
shown 80x24 "wait $disk  [" "key s" "wait sort (name)" "key enter" "wait ${guid[mirror]}" "size 40x8" \
    "wait enter all" text "wait CRI" "signal TERM" >/var/tmp/shown &
view=$!
check_within 30 "one mirror whole, on a small terminal" grep "enter all mirrors" /var/tmp/shown
check "without a terminal it says what else there is" says 1 "qelc events" qelc top

step "a mirror that is another one now"
stop_daemon
check_within 30 "an event: down" grep '"event":"daemon","now":"down"' /var/log/events
printf '\xef\xbe\xad\xde' | dd of="${device[mirror]}" bs=1 seek=440 conv=notrunc status=none
rm "$state/throttle"
start_again
check_within 30 "critical" says 2 "CRITICAL private-host: mirror of $disk is down" qelc status
check "and why" says 2 "(${device[mirror]} has another signature (deadbeef-" qelc status
check_within 30 "an event: mirror down" grep '"now":"mirror down"' /var/log/events
wait "$view"
check "a signal ends the view, and the terminal is as before" grep -x "ended -15 terminal as before" /var/tmp/shown
end_test
