# The demonstration's disks: real loop devices on files of the private host. Sourced.
# After make_disks: gpt_disk, mbr_disk, blank_disk and swap_disk are device paths.

disk_folder=/var/disks
devices=()

# attach NAME SIZE: a loop device on a new file; its path in $attached. The private host has its own /dev,
# where a node may be missing.
attach() {
    truncate -s "$2" "$disk_folder/$1"
    local path
    path=$(losetup --find)
    [[ -e $path ]] || mknod "$path" b 7 "${path#/dev/loop}"
    losetup "$path" "$disk_folder/$1"
    devices+=("$path")
    attached=$path
}

# partition_node DEVICE NUMBER: the kernel's node of a partition, made where it is missing.
partition_node() {
    local node=$1p$2 major_minor
    major_minor=$(</sys/class/block/"${node#/dev/}"/dev)
    [[ -e $node ]] || mknod "$node" b "${major_minor%:*}" "${major_minor#*:}"
}

make_disks() {
    mkdir -p "$disk_folder" /mnt/data
    mount -t tmpfs demo /mnt
    mkdir /mnt/data

    attach gpt 96M
    gpt_disk=$attached
    printf 'label: gpt\n,64M\n,\n' | sfdisk --quiet --no-tell-kernel "$gpt_disk"
    partx --add "$gpt_disk"
    partition_node "$gpt_disk" 1
    partition_node "$gpt_disk" 2
    mkfs.ext4 -q "${gpt_disk}p1"
    mkswap -q "${gpt_disk}p2" 2>/dev/null || mkswap "${gpt_disk}p2" >/dev/null
    mount "${gpt_disk}p1" /mnt/data
    dd if=/dev/urandom of=/mnt/data/file bs=1M count=8 status=none

    attach mbr 32M
    mbr_disk=$attached
    printf 'label: dos\nlabel-id: 0x1a2b3c4d\n,\n' | sfdisk --quiet --no-tell-kernel "$mbr_disk"
    partx --add "$mbr_disk"

    attach blank 16M
    blank_disk=$attached

    attach swap 16M
    swap_disk=$attached
    mkswap "$swap_disk" >/dev/null
    swap_sum=$(md5sum <"$swap_disk")
}

# A disk that is in use as a whole must come out as it went in.
show_untouched() {
    if [[ $(md5sum <"$swap_disk") != "$swap_sum" ]]; then
        echo "demo: the swap disk was written to" >&2
        exit 1
    fi
    echo "The whole-disk swap area on $swap_disk is as it was."
}

remove_disks() {
    umount /mnt/data 2>/dev/null || true
    local path
    for path in "${devices[@]}"; do
        partx --delete "$path" 2>/dev/null || true
        losetup --detach "$path" || true
    done
}
