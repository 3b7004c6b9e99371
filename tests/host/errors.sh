#!/bin/bash
# Disks that fail under a copy, and file systems without space under what is kept. errors.sh BUILD-FOLDER, in a
# private host.
# shellcheck source=tests/host/host_test.sh
source "$(dirname "$0")/host_test.sh"
mark_log=/var/tmp/marks

# The mirror's file and the state have file systems of their own, which can be filled.
mkdir -p "$images/tight" /etc/kavtessaron/mark.d
mount -t tmpfs -o size=96M host-test "$images/tight"
mount -t tmpfs -o size=1M host-test /var/lib
mkdir -p /var/lib/iscsi
fill() {
    dd if=/dev/zero of="$1/ballast" bs=4k status=none 2>/dev/null || true
}
give_space() {
    rm "$1/ballast"
}

make_bystanders
make_source disk 64
make_mirror tight/mirror 64
make_source second 16
make_mirror second-mirror 16
cp "$images/disk" "$images/disk.expected"
remember second second-mirror
printf '#!/bin/sh\necho "$QELCD_MARK" >>%s\n' "$mark_log" >/etc/kavtessaron/mark.d/hook
chmod +x /etc/kavtessaron/mark.d/hook
start_daemon
adopt
check "protection" as_manager protect "${guid[disk]}=${guid[tight/mirror]}"
relationship="relationship ${guid[disk]} -> ${guid[tight/mirror]}"

level_and_equal() {
    check_within 40 "$1: level" is_level disk
    check "$1: equal" equal disk tight/mirror
}

# down_and_up END LINE: with one log line each, however often it is tried; then heal, a function, is called.
down_and_up() {
    check_within 30 "the $1 goes down" logged "The $1 of $relationship is down: $2"
    sleep 5
    check "it says so once" test "$(grep -c 'is down:' "$log")" = 1
    check "the record says Down" grep -q '_link Down' "$(record disk)"
    heal
    check_within 30 "the $1 comes up" logged "The $1 of $relationship is up again"
    rm -f "$state/throttle"
    level_and_equal "$1"
    check "it came up once" test "$(grep -c 'is down:\|is up again' "$log")" = 2
    clear_log
}

heal() { give_space "$images/tight"; }
dd if=/dev/zero of="$images/tight/ballast" bs=1M count=60 status=none
check "resync" as_manager resync "${guid[disk]}"
down_and_up mirror "it cannot be brought level at byte "

# The next two lose what was in the file. A pass reads the mirror, so it meets the error.
heal() { truncate -s 64M "$images/tight/mirror"; }
echo 8000000 >"$state/throttle"
write_page disk
check_within 10 "a pass has begun" grep -q 'Recovery On' "$(record disk)"
truncate -s 40M "$images/tight/mirror"
down_and_up mirror "it cannot be brought level at byte "

heal() { cat "$images/disk.expected" 1<>"$images/disk"; }
echo 8000000 >"$state/throttle"
check "resync" as_manager resync "${guid[disk]}"
truncate -s 40M "$images/disk"
down_and_up source "it cannot be read at byte "
check "the disk is as it was" cmp "$images/disk" "$images/disk.expected"

# --- No space under the state -----------------------------------------------------------------------------

echo 10000000 >"$state/throttle"
check "resync" as_manager resync "${guid[disk]}"
sleep 2
fill /var/lib
saved=$(<"$(record disk)")
write_page disk
check_within 10 "what cannot be saved is in the log" logged "Cannot write $(record disk): No space left on"
check "resync is refused" none as_manager resync "${guid[disk]}"
check "protection is refused" none as_manager protect "${guid[second]}=${guid[second-mirror]}"
check "no copy has begun" unchanged second second-mirror
echo 99999999 1<>"$state/throttle" # in its place: a file that goes would make room
told_level() {
    told disk | grep -q 'synchronised *100 %'
}
check_within 40 "level all the same" told_level
check "equal all the same" equal disk tight/mirror
check "the old record is whole" test "$(<"$(record disk)")" = "$saved"
check "the log is not flooded" test "$(grep -c 'Cannot write' "$log")" -lt 12
kill_worker
check_within 40 "level after a kill" told_level
check "equal after a kill" equal disk tight/mirror
files=$(cd "$state" && echo .[a-z]* *)
check "nothing is left behind" test "$files" = ".[a-z]* ${guid[disk]}.mirror lock throttle"
give_space /var/lib
stop_daemon
start_again
level_and_equal "with space again, started again"
check "protection is possible" as_manager protect "${guid[second]}=${guid[second-mirror]}"
check "and its end" as_manager unprotect "${guid[second]}"

# --- No space under the agent's journal -------------------------------------------------------------------

journal=/var/lib/kavcdpagt/journal
check "a snapshot" as_manager snapshot --disk "${guid[disk]}"
# The next line begins in the last block and does not fit there.
printf '%*s\n' $((4096 - 20 - $(stat -c %s "$journal"))) ... >>"$journal"
cp "$journal" /var/tmp/journal
fill /var/lib
: >"$mark_log"
check "a snapshot without space fails" answered 10021 as_manager snapshot --disk "${guid[disk]}"
check "it was undone" test "$(paste -s "$mark_log")" = $'mark\tundo'
check "no torn line" cmp "$journal" /var/tmp/journal
give_space /var/lib
check "a snapshot with space again" as_manager snapshot --disk "${guid[disk]}"
check "it is in the journal" test "$(grep -c " disk ${guid[tight/mirror]} ok\$" "$journal")" = 2

# --- No space under the configuration ---------------------------------------------------------------------

# It is written over in place: until the next change with space, a start would find it torn.
mount -t tmpfs -o size=16k host-test /etc/kavtessaron
check "a name" as_manager rename_client --alias before
fill /etc/kavtessaron
as_manager rename_client --alias "$(printf '%06000d' 0)" >/dev/null
check "there was no space for a name" none grep '</Tessaron>' "$config"
check "the daemon goes on" as_manager mirrors
give_space /etc/kavtessaron
check "a name with space again" as_manager rename_client --alias with-space
stop_daemon
start_again
check "the name is kept" grep -q '<ClientAlias>with-space<' "$config"
write_page disk
level_and_equal "in the end"
check "the disk holds what was written to it" cmp "$images/disk" "$images/disk.expected"
check "other disks are as they were" unchanged by-ext4 by-swap by-mbr second
end_test
