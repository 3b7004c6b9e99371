# The demonstration's disks: real loop devices on files of the private host. Sourced.
# After make_disks: data_disk, blank_disk and swap_disk are device paths.
# shellcheck shell=bash disable=SC2034,SC2154

disk_folder=/var/disks
attachments=()

# attachment DEVICE: text that tells this loop device from a later one of the same name; nothing for a free device.
attachment() {
    local folder=/sys/block/${1#/dev/}
    [[ -e $folder/loop/backing_file ]] || return 0
    echo "$1 $(cat "$folder/diskseq" "$folder/loop/backing_file" 2>/dev/null | xargs)"
}

# attach NAME OPTION...: a loop device on that file; its path in $attached.
attach() {
    trap '' INT TERM # a signal here could leave a device that nobody holds yet
    attach_loop "$disk_folder/$1" "${@:2}" || fail "no loop device for $1"
    attachments+=("$(attachment "$attached")")
    obey_signals
}

# attach_blank NAME SIZE
attach_blank() {
    truncate -s "$2" "$disk_folder/$1"
    attach "$1"
}

# make_nodes DISK: of its partitions.
make_nodes() {
    partx --update "$1" # for kernels that do not know this partition table
    local entry node major_minor
    for entry in "/sys/block/${1#/dev/}/${1#/dev/}"p*; do
        node=/dev/${entry##*/}
        major_minor=$(<"$entry/dev")
        rm -f "$node" # it may belong to an earlier disk of that name
        mknod -m 600 "$node" b "${major_minor%:*}" "${major_minor#*:}"
    done
}

make_data_disk() {
    truncate -s 64M "$disk_folder/data"
    printf 'label: gpt\n,\n' | sfdisk --quiet "$disk_folder/data"
    attach data --partscan # the partitions go with it
    make_nodes "$attached"
    data_disk=$attached
    # Without these options the kernel would go on writing by itself, and the mirror would have to follow.
    mkfs.ext4 -q -E lazy_itable_init=0,lazy_journal_init=0 "${data_disk}p1"
    mount -o noatime "${data_disk}p1" /mnt/data
    dd if=/dev/urandom of=/mnt/data/numbers bs=1M count=8 status=none
    sync -f /mnt/data
}

make_disks() {
    local tool
    rm -f /dev/loop[0-9]* # nodes of this machine's loop devices
    for tool in losetup mount; do
        ln -s "$(realpath "$here/../loop-tool")" "/usr/local/sbin/$tool"
    done
    mkdir "$disk_folder"
    mount -t tmpfs demo /mnt
    mkdir /mnt/{data,snapshot}
    make_data_disk
    attach_blank blank 64M
    blank_disk=$attached
    attach_blank swap 16M
    swap_disk=$attached
    mkswap "$swap_disk" >/dev/null
    swap_sum=$(md5sum <"$swap_disk")
}

# The GUID by which the daemon knows a disk without SCSI identity.
guid_of() {
    printf '%s-0000-0000-0000-000000000000\n' "$(od -An -v -tx4 -j440 -N4 --endian=little "$1" | tr -d ' ')"
}

is_swap_untouched() {
    [[ $(md5sum <"$swap_disk") == "$swap_sum" ]]
}

are_disks_gone() {
    local known
    for known in "${attachments[@]}"; do
        [[ $(attachment "${known%% *}") != "$known" ]] || return 1
    done
}

# True when no loop device is left.
remove_disks() {
    local folder attempt
    for folder in /mnt/{data,snapshot}; do
        umount "$folder" 2>/dev/null
    done
    for folder in "$disk_folder"/all.qelcd-snapshots/*; do
        losetup --noheadings --output NAME --associated "$folder" | xargs -r losetup --detach
    done
    ((${#loop_holders[@]} == 0)) || kill -KILL "${loop_holders[@]}"
    for attempt in {1..50}; do
        are_disks_gone && return 0
        sleep 0.1
    done
    echo "demo: loop devices on $disk_folder are left over" >&2
    return 1
}
