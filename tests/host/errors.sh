#!/bin/bash
# File systems without space: under a mirror, under the mirrors' state, the agent's journal, the configuration.
# errors.sh BUILD-FOLDER, in a private host.
# shellcheck source=tests/host/host_test.sh
source "$(dirname "$0")/host_test.sh"
mark_log=/var/tmp/marks
journal=/var/lib/kavcdpagt/journal

# Each of these has a file system of its own, which can be filled.
mkdir -p "$images/tight" /etc/kavtessaron/mark.d
mount -t tmpfs -o size=40M host-test "$images/tight"
mount -t tmpfs -o size=1M host-test /var/lib
mkdir -p /var/lib/iscsi
fill() {
    dd if=/dev/zero of="$1/ballast" bs=4k status=none 2>/dev/null || true
}
give_space() {
    rm "$1/ballast"
}

make_source disk 32
make_mirror tight/mirror 32
make_source second 16
make_mirror second-mirror 16
remember second second-mirror
printf '#!/bin/sh\necho "$QELCD_MARK" >>%s\n' "$mark_log" >/etc/kavtessaron/mark.d/hook
chmod +x /etc/kavtessaron/mark.d/hook
start_protected disk=tight/mirror

level_and_equal() {
    check_within 40 "$1: level" is_level disk
    check "$1: equal" equal disk tight/mirror
}

step "no space under the mirror"
dd if=/dev/zero of="$images/tight/ballast" bs=1M count=24 status=none
resync 99999999 disk
check_within 30 "it goes down" logged "${guid[tight/mirror]} is down: it cannot be brought level at byte "
check "the record says Down" grep -q '^dest_link Down' "$(record disk)"
give_space "$images/tight"
level_and_equal "with space again"

step "no space under the state"
resync 3000000 disk
moved_from() {
    (($(position disk) > $1))
}
check_within 20 "the copy moves" moved_from 0
kill_worker # whose successor goes on without a command
check_within 20 "the copy goes on" moved_from "$(position disk)"
fill /var/lib
saved=$(<"$(record disk)")
write_page disk
check_within 10 "what cannot be saved is in the log" logged "Cannot write $(record disk): No space left on"
check "resync is refused" none as_manager resync --yes "${guid[disk]}"
check "protection is refused" none as_manager protect --yes "${guid[second]}=${guid[second-mirror]}"
check "no copy has begun" unchanged second second-mirror
echo 99999999 1<>"$state/throttle" # in its place: a file that goes would make room
check_within 40 "level all the same" told_level disk
check "equal all the same" equal disk tight/mirror
check "the old record is whole" test "$(<"$(record disk)")" = "$saved"
check "the log is not flooded" test "$(grep -c 'Cannot write' "$log")" -lt 12
kill_worker
check_within 40 "level after a kill" told_level disk
check "equal after a kill" equal disk tight/mirror
files=$(cd "$state" && echo .[a-z]* *)
check "nothing is left behind" test "$files" = ".[a-z]* ${guid[disk]}.mirror lock throttle"
give_space /var/lib
stop_daemon
start_again
level_and_equal "with space again, started again"
check "protection is possible" as_manager protect --yes "${guid[second]}=${guid[second-mirror]}"
check "and its end" as_manager unprotect "${guid[second]}"

step "how far a mirror is"
check_within 10 "why it is not tracked" told disk '"tracked":false,"untracked_reason":"no BPF file system'
mount -t bpf bpf /sys/fs/bpf
kill_worker
check_within 40 "level" told_level disk
check_within 20 "whether it is tracked" told disk '"tracked":[tf]'
if told disk '"tracked":true'; then
    echo 4096 >"$state/throttle"
    for _ in {1..40}; do
        write_page disk
    done
    check_within 20 "pages behind, and for how long" told disk \
        '"pages_behind":[1-9][0-9]*,"page_size":4096,"level_ago":[1-9][0-9]*,"tracked":true,'
    echo 99999999 >"$state/throttle"
    check_within 20 "none behind" told disk '"pages_behind":0,"page_size":4096,"level_ago":0,"tracked":true,'
fi
umount /sys/fs/bpf
kill_worker
check_within 40 "level without tracking" told_level disk

step "no space under the agent's journal"
check "a snapshot" as_manager snapshot --disk "${guid[disk]}"
# The next line begins in the last block and does not fit there.
printf '%*s\n' $((4096 - 20 - $(stat -c %s "$journal"))) ... >>"$journal"
cp "$journal" /var/tmp/journal
fill /var/lib
: >"$mark_log"
check "a snapshot without space fails" eval '! as_manager snapshot --disk "${guid[disk]}" 2>/var/log/said'
check "and says so" grep "the CDP agent failed to take a snapshot" /var/log/said
check "it was undone" test "$(paste -s "$mark_log")" = $'mark\tundo'
check "no torn line" cmp "$journal" /var/tmp/journal
give_space /var/lib
check "a snapshot with space again" as_manager snapshot --disk "${guid[disk]}"
check "it is in the journal" test "$(grep -c " disk ${guid[tight/mirror]} ok\$" "$journal")" = 2

step "no space under the configuration"
mount -t tmpfs -o size=16k host-test /etc/kavtessaron
check "a name" as_manager rename_client --alias before
fill /etc/kavtessaron
as_manager rename_client --alias "$(printf '%06000d' 0)" >/dev/null
check "the old text is there" test "$(grep -c '<ClientAlias>before<\|</Tessaron>' "$config")" = 2
check "the daemon goes on" as_manager mirrors
give_space /etc/kavtessaron
check "a name with space again" as_manager rename_client --alias with-space
stop_daemon
start_again
check "the name is kept" grep -q '<ClientAlias>with-space<' "$config"
write_page disk
level_and_equal "in the end"
check "the disk holds what was written to it" as_written disk
check "another disk is as it was" unchanged second
end_test
