#!/bin/bash
# What mirrors cost, inside the private host: mirrors.sh BUILD-FOLDER [MIB [ROUNDS]]. Needs room for two disks of MIB
# (4096) each, first in memory, then in ${TMPDIR-/tmp}.
set -euo pipefail
bin=$PWD/$1/bin
mib=${2-4096}
rounds=${3-5}

# shellcheck source=scripts/loop_disk.sh
source "$(dirname "$0")/../loop_disk.sh"

folders=()
remove_disks() {
    kill -KILL "${loop_holders[@]}"
    rm -rf "${folders[@]}"
}
trap remove_disks EXIT

# attach FILE [LOSETUP-OPTION]: a loop device of random content over a new file; its path in $attached.
attach() {
    head -c "${mib}M" /dev/urandom >"$1"
    attach_loop "$@"
    # Without a partition table it would count as unknown data, and could not be mirrored.
    echo 'label: dos' | sfdisk --quiet --no-tell-kernel --wipe always "$attached"
}

# measure NAME FOLDER [LOSETUP-OPTION]
measure() {
    local folder source
    folder=$(mktemp -d "$2/bench-mirrors.XXXXXX")
    folders+=("$folder")
    attach "$folder/source" "${@:3}"
    source=$attached
    attach "$folder/mirror" "${@:3}"
    "$bin/bench-mirrors" "$1" "$source" "$attached" "$mib" "$rounds"
}

printf '\n### Mirrors\n\n'
printf '| disks | resync, MiB/s | dd, MiB/s | resync / dd | watching, of a core |\n|---|---:|---:|---:|---:|\n'
mkdir -p /run/disks
mount -t tmpfs -o size=$((2 * mib + 64))M bench /run/disks
measure "in memory" /run/disks
measure "on a disk" "${TMPDIR-/tmp}" --direct-io=on
