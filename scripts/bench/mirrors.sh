#!/bin/bash
# What mirrors cost, inside the private host: mirrors.sh BUILD-FOLDER [MIB [ROUNDS]]
set -euo pipefail
bin=$PWD/$1/bin
mib=${2-4096}
rounds=${3-5}

devices=()
folders=()
remove_disks() {
    local item
    for item in "${devices[@]}"; do
        losetup --detach "$item" || true
    done
    rm -rf "${folders[@]}"
}
trap remove_disks EXIT

# attach FILE: a loop device of random content over a new file, past the file system's cache where it can; its path
# in $attached.
attach() {
    head -c "${mib}M" /dev/urandom >"$1"
    local end=$((SECONDS + 10))
    until attached=$(losetup --find) && { [[ -e $attached ]] || mknod "$attached" b 7 "${attached#/dev/loop}"; } &&
        losetup --direct-io=on "$attached" "$1" 2>/dev/null || losetup "$attached" "$1"; do
        ((SECONDS < end)) || { echo "bench: no free loop device" >&2; exit 1; }
    done
    devices+=("$attached")
    # Without a partition table it would be somebody's data, and no disk of a mirror.
    echo 'label: dos' | sfdisk --quiet --no-tell-kernel --wipe always "$attached"
}

# measure NAME FOLDER
measure() {
    local folder source
    folder=$(mktemp -d "$2/bench-mirrors.XXXXXX")
    folders+=("$folder")
    attach "$folder/source"
    source=$attached
    attach "$folder/mirror"
    "$bin/bench-mirrors" "$1" "$source" "$attached" "$mib" "$rounds"
}

printf '\n### Mirrors\n\n'
printf '| disks | resync, MiB/s | dd, MiB/s | resync / dd | watching, of a core |\n|---|---:|---:|---:|---:|\n'
mkdir -p /run/disks
mount -t tmpfs -o size=$((2 * mib + 64))M bench /run/disks
measure "in memory" /run/disks
measure "on a disk" "${TMPDIR-/tmp}"
