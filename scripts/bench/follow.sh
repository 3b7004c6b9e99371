#!/bin/bash
# How mirrors follow what is written, inside the private host: follow.sh BUILD-FOLDER [SECONDS [GIB...]]. SECONDS (20) of
# each load; one page is written to disks of GIB (1 4 16). Needs room for two sparse disks of the largest size in
# ${TMPDIR-/tmp}, and 8 GiB of memory.
set -euo pipefail
bin=$PWD/$1/bin
seconds=${2-20}
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
    truncate -s "$2G" "$1"
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

printf '\n### One page written\n\n| GiB | source read, KiB | mirror read, KiB | level again after, s |\n|---:|---:|---:|---:|\n'
for gib in "${sizes[@]}"; do
    measure write "$folder" "$gib"
done
printf '\n### Written all the time\n\n| random pages, KiB/s | longest time not level, s | looks that said level | processor |\n'
printf '|---:|---:|---:|---:|\n'
measure rates /run/disks 4 "$seconds"
printf '\n### Not written\n\n| processor, of a core |\n|---:|\n'
measure idle /run/disks 1 30
