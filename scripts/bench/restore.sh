#!/bin/bash
# How long a restore takes against reading both devices, past all caches, inside the private host: restore.sh BUILD-FOLDER
# [ROUNDS]. Needs room for 4 GiB in /tmp.
rounds=${2-7}
# shellcheck source=tests/host/host_test.sh
source "$(dirname "$0")/../../tests/host/host_test.sh" "$PWD/$1"
mib=1024
folder=$(mktemp -d /tmp/bench-restore.XXXXXX)
remove_disks() {
    trap - ERR
    qelc snapshots detach "${name-}" >/dev/null 2>&1
    kill -KILL "${loop_holders[@]}"
    rm -rf "$folder"
}
trap remove_disks EXIT
rmdir "$images"
ln -s "$folder" "$images"

prepare() {
    ln -s "$PWD/scripts/loop-tool" /usr/local/sbin/losetup
    truncate -s 3G "$folder/xfs"
    mkfs.xfs -q "$folder/xfs"
    attach_loop "$folder/xfs" --direct-io=on
    mount "$attached" /mnt
    ln -s /mnt "$folder/kept"
    make_image disk "$mib"
    head -c $((mib - 2))M /dev/urandom | dd of="$folder/disk" bs=1M seek=1 iflag=fullblock conv=notrunc status=none
    attach_loop "$folder/disk" --direct-io=on
    device[disk]=$attached
    make_mirror kept/mirror "$mib"
    start_protected disk=kept/mirror
    resync 9999999999 disk
    check_within 120 "level" told_level disk
}

# seconds_of COMMAND...: what it reads comes from the disk below the loop devices. A disk of a virtual machine may be slower
# just after much has been read from it, so each run begins after a rest.
seconds_of() {
    local start
    sleep 4
    dd if="$clone" of=/dev/null iflag=nocache count=0 status=none
    start=$(date +%s%N)
    "$@" >/dev/null 2>&1
    awk -v start="$start" -v end="$(date +%s%N)" 'BEGIN { printf "%.3f\n", (end - start) / 1e9 }'
}

read_both() {
    local other
    dd if="${device[disk]}" of=/dev/null bs=1M iflag=direct &
    other=$!
    dd if="$kept" of=/dev/null bs=1M iflag=direct
    wait "$other"
}

# spoil: pages at random places, in all one per cent of the disk.
spoil() {
    fio --name=spoil --filename="${device[disk]}" --rw=randwrite --bs=4k --offset=1M --size=$((mib - 2))M \
        --io_size=$((mib * 10486))  --direct=1 --ioengine=psync --randrepeat=0 --output=/dev/null
    check_within 60 "level" told_level disk
}

median() {
    sort -n | awk '{ value[NR] = $1 } END { print value[int((NR + 1) / 2)] }'
}

prepare >&2
name=$(qelc snapshot --disk "${guid[disk]}" | tail -n 1)
kept=$(qelc snapshots attach "$name" 2>/dev/null)
clone=$(<"/sys/block/${kept#/dev/}/loop/backing_file")
for ((round = 0; round < rounds; round++)); do
    spoil >&2
    plain=$(seconds_of read_both)
    restored=$(seconds_of qelc snapshots restore "$name" --yes --no-snapshot)
    echo "$plain $restored $(awk -v a="$restored" -v b="$plain" 'BEGIN { print a / b }')"
done >"$folder/rounds"
cmp -i 4096 "${device[disk]}" "$kept"
printf '\n### Restore\n\n| 1 GiB, 1 %% differs | s |\n|---|---:|\n'
printf '| both devices read by dd | %s |\n' "$(cut -d ' ' -f 1 "$folder/rounds" | median)"
printf '| restored | %s |\n' "$(cut -d ' ' -f 2 "$folder/rounds" | median)"
printf '| restored / read, median of %s rounds | %.2f |\n' "$rounds" "$(cut -d ' ' -f 3 "$folder/rounds" | median)"
