#!/bin/bash
# Many scans of a host at once: a signature is written where one is missing and may stand, and nothing else.
# scans.sh BUILD-FOLDER, in a private host. QELCD_SCANS: how many of each of the ten players.
# shellcheck source=tests/host/host_test.sh
source "$(dirname "$0")/host_test.sh"
scans=${QELCD_SCANS:-8}
untouchable=(ext4 ext4-label swap unknown behind)
bare=(bare-mbr bare-gpt empty)

# Somebody else's disks; which kinds there are, the tests of the library itself know.
truncate -s 32M "${untouchable[@]/#/$images/}" "$images/empty"
mkfs.ext4 -q -F "$images/ext4"
mkfs.ext4 -q -F "$images/ext4-label"
printf 'label: dos\n,4M\n' | sfdisk --quiet --force "$images/ext4-label"
mkswap "$images/swap" >/dev/null 2>&1
printf 'somebody knows' | dd of="$images/unknown" conv=notrunc status=none
printf '\001' | dd of="$images/behind" bs=1 seek=444 conv=notrunc status=none
for name in "${untouchable[@]}"; do
    attach "$name"
done

# Those that may have a signature: with one, and without.
make_source mbr 32
make_source gpt 32 gpt
make_mirror mbr-mirror 32
make_mirror gpt-mirror 40
cp "$images/mbr" "$images/bare-mbr"
cp "$images/gpt" "$images/bare-gpt"
for name in "${bare[@]}"; do
    put_signature "$name" 00000000
    cp "$images/$name" "$images/$name.before"
    attach "$name"
done
remember "${untouchable[@]}"

start_protected mbr=mbr-mirror gpt=gpt-mirror
resync 99999999 mbr gpt
check_within 30 "level" is_level mbr
check_within 30 "level" is_level gpt

step "ten players ask for $scans scans each"
players=()
for player in {1..10}; do
    for ((i = 0; i < scans; ++i)); do
        ((i % 3 != 0)) || as_manager rescan_devices
        as_manager get_client_info
    done >"/var/tmp/player$player" &
    players+=($!)
done
for player in "${players[@]}"; do
    wait "$player" || fail "a command was not answered with success"
done

check "every scan was answered" test "$(cat /var/tmp/player* | grep -c '<DiskList')" -eq $((scans * 10))
check "those that may be touched are reported" test "$(as_manager get_client_info | grep -c '<Disk ')" = 7
check "no disk of somebody else has changed" unchanged "${untouchable[@]}"
for name in "${bare[@]}"; do
    check "$name has a signature" test "$(signature_of "$name")" != 00000000
    cp "$images/$name" "$images/$name.after"
    put_signature "$name.after" 00000000
    check "$name is otherwise as it was" cmp "$images/$name.after" "$images/$name.before"
done
for name in mbr gpt; do
    check "$name is as it was" as_written "$name"
    check "$name is level" is_level "$name"
    check "$name is on its mirror" equal "$name" "$name-mirror"
done
end_test
