#!/bin/bash
# Tries, inside a private host, what the demonstration needs of the kernel. Tools that are not there yet are left out.
set -euo pipefail
# shellcheck source=scripts/loop_disk.sh
source "$(dirname "$0")/../loop_disk.sh"

ip link add net0 type veth peer name net1
truncate -s 16M /var/tmp/disk
attach_loop /var/tmp/disk
if command -v mkfs.ext4 >/dev/null; then
    mkfs.ext4 -q "$attached"
    mount "$attached" /mnt
    umount /mnt
fi
