#!/bin/bash
# Power cuts: a start with the mirror's record as it was at some moment of a copy, or as a cut may have torn it.
# power_cuts.sh BUILD-FOLDER, in a private host.
# shellcheck source=tests/host/host_test.sh
source "$(dirname "$0")/host_test.sh"
copies=18
saved=/var/tmp/saved

make_bystanders
make_source disk 64
cp "$images/disk" "$images/disk.expected"
make_mirror mirror 64
start_daemon
adopt
check "protection" as_manager protect "${guid[disk]}=${guid[mirror]}"
echo 4000000 >"$state/throttle"
check "resync" as_manager resync "${guid[disk]}"
record=$(record disk)

# take_copy FOLDER: without a lock, at any moment. What was just being renamed is looked for again.
take_copy() {
    until cp -a "$state" "$1" 2>/dev/null && [[ -e $1/${record##*/} ]]; do
        rm -rf "$1"
    done
    rm -f "$1/throttle"
}

mkdir "$saved"
write_now_and_then disk &
writer=$!
for ((i = 1; i <= copies; ++i)); do
    sleep "$((RANDOM % 2)).$((RANDOM % 10))"
    take_copy "$saved/$i"
done
touch /var/tmp/quiet
wait "$writer"
rm "$state/throttle"
check_within 30 "level" is_level disk
grep -h '^sync_state\|^position' "$saved"/*/*.mirror | paste - - | sort | uniq -c

# start_from FOLDER: as if the host had come up with this state.
start_from() {
    stop_daemon
    rm -rf "$state"
    cp -a "$1" "$state"
    write_page disk
    disk_before=$(bytes_written disk)
    mirror_before=$(bytes_written mirror)
    start_again
}

for ((i = 1; i <= copies; ++i)); do
    start_from "$saved/$i"
    check_within 30 "level after cut $i" is_level disk
    check "equal after cut $i" equal disk mirror
done

# tear COMMAND: of the record in $1, whose size is in $size.
whole=$saved/1
torn=$saved/torn
cut='truncate -s $((RANDOM % size)) "$1"'
for tear in "$cut" "$cut" "$cut; truncate -s \$size \"\$1\"" 'truncate -s 0 "$1"' \
    'truncate -s 0 "$1"; truncate -s $size "$1"' 'sed -i "s/^position .*/position 18446744073709551616/" "$1"' \
    'sed -i "s/^src_guid/dest_guid/" "$1"' 'echo more >>"$1"'; do
    rm -rf "$torn"
    cp -a "$whole" "$torn"
    size=$(stat -c %s "$torn/${record##*/}")
    bash -c "RANDOM=$RANDOM; size=$size; $tear" tear "$torn/${record##*/}"
    clear_log
    start_from "$torn"
    check "torn by $tear: it is in the log" logged "$record is not a whole record of twinvault"
    check "it is set aside" cmp "$torn/${record##*/}" "$record.damaged-1"
    check "it is not obeyed" not_told disk
    sleep 0.5
    written="$(bytes_written mirror) $(bytes_written disk)"
    check "nothing is copied" test "$written" = "$mirror_before $disk_before"
done

# A new record that was torn before it took the old one's place.
for what in "$cut" true; do
    rm -rf "$torn"
    cp -a "$whole" "$torn"
    size=$(stat -c %s "$torn/${record##*/}")
    cp "$torn/${record##*/}" "$torn/.new"
    bash -c "RANDOM=$RANDOM; size=$size; $what" tear "$torn/.new"
    start_from "$torn"
    check_within 30 "level in spite of a file that was not finished" is_level disk
    check "and equal" equal disk mirror
    check "nothing is left of it" test ! -e "$state/.new"
done
check "the disk holds what was written to it" cmp "$images/disk" "$images/disk.expected"
check "other disks are as they were" unchanged by-ext4 by-swap by-mbr
end_test
