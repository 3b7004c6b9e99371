#!/bin/bash
# How mirrors follow what is written, inside the private host: follow.sh BUILD-FOLDER [SECONDS [GIB...]]. SECONDS (20) of
# each load; one page is written to disks of GIB (1 4 16). Needs room for two sparse disks of the largest size in
# ${TMPDIR-/tmp}, and 8 GiB of memory.
set -euo pipefail
bin=$PWD/$1/bin
seconds=${2-20}
turns=15 # of the disk's user, with and without tracking
sizes=(1 4 16)
(($# < 3)) || sizes=("${@:3}")

# shellcheck source=scripts/loop_disk.sh
source "$(dirname "$0")/../loop_disk.sh"

folder=$(mktemp -d "${TMPDIR-/tmp}/bench-follow.XXXXXX")
remove_disks() {
    kill -KILL "${loop_holders[@]}"
    rm -rf "$folder"
}
trap remove_disks EXIT

# attach FILE GIB: a loop device over a new sparse file with a signature; its path in $attached.
attach() {
    rm -f "$1"
    truncate -s "$(awk -v gib="$2" 'BEGIN { print gib * 1024 }')M" "$1"
    printf 'label: dos\n' | sfdisk --quiet --wipe always "$1"
    attach_loop "$1"
}

# measure WHAT FOLDER GIB [SECONDS]
measure() {
    local source
    attach "$2/source" "$3"
    source=$attached
    attach "$2/mirror" "$3"
    "$bin/bench-follow" "$1" "$source" "$attached" "${@:4}"
}

mount -t bpf bpf /sys/fs/bpf
mkdir -p /run/disks
mount -t tmpfs -o size=9G bench /run/disks

printf '\n### One page written\n\n| GiB | source read, KiB | mirror read, KiB | level again after, s | copied when nobody asks after, s |\n|---:|---:|---:|---:|---:|\n'
for gib in "${sizes[@]}"; do
    measure write "$folder" "$gib"
done
printf '\n### Written all the time\n\n| random pages, KiB/s | longest time not level, s | looks that said level | processor |\n'
printf '|---:|---:|---:|---:|\n'
measure rates /run/disks 4 "$seconds"
# load: what fio gets of $source in two seconds, in random writes of 4 KiB a second.
load() {
    fio --name=load --filename="$source" --rw=randwrite --bs=4k --direct=1 --ioengine=psync --numjobs=2 --group_reporting \
        --time_based --runtime=2 --offset=1M --output-format=json | jq '.jobs[0].write.iops | floor'
}

# tracked_load: the same while the writes are tracked and nothing is copied.
tracked_load() {
    coproc tracker { "$bin/bench-follow" held "$source" "$attached"; }
    local said
    read -r said <&"${tracker[0]}"
    [[ $said == held ]]
    load
    local pid=$tracker_PID input=${tracker[1]}
    exec {input}>&-
    wait "$pid" || true
}

median() {
    sort -n | awk '{ value[NR] = $1 } END { print value[int((NR + 1) / 2)] }'
}

# In turns, as the machine's speed changes; each tracked turn is compared with the untracked one before it.
measure_load() {
    local turn plain tracked
    attach /run/disks/source 0.25
    source=$attached
    attach /run/disks/mirror 0.25
    for ((turn = 0; turn < turns; turn++)); do
        plain=$(load)
        tracked=$(tracked_load)
        echo "$plain $tracked"
    done >"$folder/turns"
    printf '| %s | %s | %s %% |\n' "$(cut -d ' ' -f 1 "$folder/turns" | median)" \
        "$(cut -d ' ' -f 2 "$folder/turns" | median)" \
        "$(awk '{ printf "%.1f\n", 100 * (1 - $2 / $1) }' "$folder/turns" | median)"
}

printf '\n### The disk'"'"'s user\n\n| not tracked, writes/s | tracked, writes/s | slow-down, median of %s turns |\n|---:|---:|---:|\n' "$turns"
measure_load
printf '\n### Not written\n\n| processor, of a core |\n|---:|\n'
measure idle /run/disks 1 30
