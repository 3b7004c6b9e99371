#!/bin/bash
# What qelc says of real disks, and what it asks before one is overwritten. command_line.sh BUILD-FOLDER, in a
# private host.
# shellcheck source=tests/host/host_test.sh
source "$(dirname "$0")/host_test.sh"

# typed ANSWER COMMAND: at a terminal, once it has asked.
typed() {
    local status=0
    : >/var/tmp/screen
    # shellcheck disable=SC2094 # it waits for what is written
    { until grep -q "stop: " /var/tmp/screen; do sleep 0.1; done; echo "$1"; } |
        script -qec "$2" /dev/null >/var/tmp/screen || status=$?
    cat /var/tmp/screen
    return "$status"
}

name_of() {
    basename "${device[$1]}"
}

has_mirror() {
    [[ $(mirror_count) == 1 ]]
}

mirror_count() {
    find "$state" -name '*.mirror' | wc -l
}

make_source disk 32
make_mirror blank 32
make_mirror small 16
make_image whole 16
mkfs.ext4 -q -L all "$images/whole"
attach whole
make_image unknown 16
echo something | dd of="$images/unknown" conv=notrunc status=none
attach unknown
make_image swap 16
mkswap -q "$images/swap" 2>/dev/null || mkswap "$images/swap" >/dev/null
attach swap
make_image taken 16
attach taken
truncate -s 1M "$images/tiny"
attach tiny
make_image frozen 16
attach_loop "$images/frozen" --read-only
frozen=${attached#/dev/}
partx --add "${device[disk]}"
mkdir /dev/disk
ln -s "${device[disk]}" /dev/disk/by-me
check "before the adoption there is none to ask" says 3 "No such file or directory" qelc mirrors
check "a configuration alone" says 0 "is written, with the ports 9410 and 9411" qelc init --config-only
qelcd
wait_for_daemon
check "nobody has adopted it" says 5 "hint: qelc init" qelc protect --yes a=b
stop_daemon
rm "$config"
check "what one step would do" says 0 "started: $build/bin/qelcd" qelc init --dry-run
check "is not done" none test -e "$config"
check "one step, up to a heartbeat" says 0 "qelc-manager: has a heartbeat of private-host" qelc init
check "which is known from then on" eval 'qelc status | grep "127.0.0.1, last heartbeat [0-9]* s ago"'
remembered=$(md5sum "$config")
check "another one changes nothing" says 0 "is adopted already, by its own manager" qelc init
check "and says so to programs" valid qelc --json init
check "the configuration is as it was" test "$(md5sum "$config")" = "$remembered"
disk=$(name_of disk) blank=$(name_of blank) small=$(name_of small)

step "disks"
check_within 20 "what is reported" says 0 "$disk 32 MiB MBR ${guid[disk]}" qelc disks
check "what is left out, as it holds a file system" says 0 "$(name_of whole) 16 MiB it holds ext4 \"all\" as a whole" \
    qelc disks --all
check "or swap" says 0 "$(name_of swap) 16 MiB it holds swap as a whole" qelc disks --all
check "or something unknown" says 0 "$(name_of unknown) 16 MiB its first sector holds something unknown" \
    qelc disks --all
check "or is too small" says 0 "$(name_of tiny) 1.0 MiB it is too small" qelc disks --all
python3 -c 'import os, sys, time
os.open(sys.argv[1], os.O_RDONLY | os.O_EXCL)
time.sleep(1000)' "${device[taken]}" &
check_within 20 "or is claimed" says 0 "$(name_of taken) 16 MiB another program uses it" qelc disks --all
kill $!
check "or is read-only" says 0 "$frozen 16 MiB it is read-only" qelc disks --all
check "programs are told" valid qelc --json disks --all
check "GUIDs are short on a terminal" eval "script -qec 'stty cols 80; qelc disks' /dev/null </dev/null | tr -d '\r' | grep '${guid[disk]:0:8}$'"

step "before a disk is overwritten"
check "not without an answer" says 1 "there is no terminal to ask at" qelc protect "$disk=$blank"
check "a mirror that is too small" says 1 "$small is smaller than $disk" qelc protect --yes "$disk=$small"
check "what is on it" says 0 "$disk 32 MiB, MBR, ${disk}p1, ${disk}p2" qelc protect --dry-run /dev/disk/by-me="$blank"
check "and that it is blank" says 0 "$blank 32 MiB, blank" qelc protect --dry-run "$disk=${guid[blank]^^}"
check "nothing has happened" none has_mirror
check "a plan of nothing is none" none eval "qelc unprotect --dry-run $small 2>/dev/null | grep dry"
mkfs.ext4 -q -F -L precious -M /srv/old -O ^metadata_csum -E offset=$((1 << 20)) "${device[disk]}" 8M
printf '\x80\x96\x98\x6a' | dd of="${device[disk]}" bs=1 seek=$(((1 << 20) + 1024 + 0x2c)) conv=notrunc status=none
check "and where it was mounted" says 0 "${disk}p1 ext4 \"precious\" last mounted on /srv/old, 2026-09-0" \
    qelc protect --dry-run "$disk=$blank"
check "two that are swapped" says 0 "are the two swapped? The other way round is $disk=$blank" \
    qelc protect --dry-run "$blank=$disk"
check "another name" none typed "$disk" "qelc protect $disk=$blank"
check "is not taken" none has_mirror
check "the name of the mirror is" typed "$blank" "qelc protect $disk=$blank --group day --start 22:00 --every 1h"
check "it is protected" has_mirror
check "the list knows the mirror" says 0 "mirror of $disk" qelc disks
check "and what it mirrors" says 0 "mirrored to $blank" qelc disks
check_within 20 "labels" says 0 "ext4 precious" qelc disks
check "in a group that was made" says 0 "day ${guid[disk]}" qelc group list
check "by a GUID as short as on other tables" eval "script -qec 'stty cols 80; qelc group list' /dev/null </dev/null | tr -d '\r' | grep -x '  day    ${guid[disk]:0:8}'"
check "with a schedule" says 0 "1 h" qelc schedule get --group day
check "once" says 1 "$disk is protected already, by $blank" qelc protect --yes "${guid[disk]:0:6}=$small"

step "until it is level"
resync 4000000 disk
check "a time-out says so" says 1 "time-out after 2 s" qelc mirrors --wait --timeout 2s "$disk"
{ qelc mirrors --wait "$disk"; echo "ended $?"; } >/var/log/waited 2>&1 &
sleep 2
kill_worker
rm "$state/throttle"
check_within 60 "the wait has an end" grep "ended 0" /var/log/waited
check "which is not the kill" test "$(</var/log/waited)" = "$disk: is level"$'\n'"ended 0"
check "now a snapshot is a question of keepers" says 1 "is there a keeper for the mirror?" qelc snapshot --disk "$disk"

step "a mirror that is another one now"
stop_daemon
printf '\xef\xbe\xad\xde' | dd of="${device[blank]}" bs=1 seek=440 conv=notrunc status=none
start_again
check_within 30 "it is down" eval 'qelc mirrors | grep "mirror down"'
check "and why" says 1 "mirror down, 0 %, ${device[blank]} has another signature (deadbeef-" qelc mirrors --wait
check "one of two" says 6 "$disk: is no longer protected" qelc unprotect "$disk" "$small"
check "and the group is told of" says 4 "day has no schedule" qelc schedule get --group day
end_test
