#!/bin/bash
# Hundreds of scans of a host that has every kind of disk: a signature is written where one is missing and may
# stand, and nothing else. scans.sh BUILD-FOLDER, in a private host.
# shellcheck source=tests/host/host_test.sh
source "$(dirname "$0")/host_test.sh"
scans=600

untouchable=()

# untouchable NAME MIB COMMAND: the command makes the disk that is image $IMG.
untouchable() {
    local IMG=$images/$1
    truncate -s "$2M" "$IMG"
    export IMG
    bash -c "set -e; $3" >/dev/null 2>&1 || fail "cannot make $1"
    attach "$1"
    untouchable+=("$1")
}

bytes_at() {
    echo "printf '$2' | dd of=\$IMG bs=1 seek=$1 conv=notrunc"
}

untouchable ext4 32 'mkfs.ext4 -F $IMG'
untouchable ext4-label 32 "mkfs.ext4 -F \$IMG && printf 'label: dos\n,4M\n' | sfdisk --force \$IMG"
untouchable xfs 310 'mkfs.xfs -f $IMG'
untouchable vfat 32 'mkfs.vfat $IMG'
untouchable btrfs 128 'mkfs.btrfs -f $IMG'
untouchable swap 32 'mkswap $IMG'
untouchable luks 32 'echo secret | cryptsetup luksFormat -q --pbkdf pbkdf2 --pbkdf-force-iterations 1000 $IMG'
untouchable lvm 32 "$(bytes_at 512 'LABELONE\001\0\0\0\0\0\0\0\001\002\003\004\040\0\0\0LVM2 001')"
untouchable md-end 16 "$(bytes_at 16711680 '\374\116\053\251\0\0\0\0\132\0\0\0')"
untouchable md-start 16 "$(bytes_at 4096 '\374\116\053\251\001\0\0\0') && $(bytes_at 4240 '\010')"
untouchable iso 16 "$(bytes_at 32768 '\001CD001\001')"
untouchable sun 16 "printf 'label: sun\n,4M\n' | sfdisk --force \$IMG"
untouchable unknown 16 "$(bytes_at 0 'somebody knows')"
untouchable behind 16 "$(bytes_at 444 '\001')"

# Those that may have a signature: with one, and without.
make_source mbr 32
fill_source gpt 32
printf 'label: gpt\n,8M\n,\n' | sfdisk --quiet "$images/gpt"
bare=(bare-mbr bare-gpt empty)
cp "$images/mbr" "$images/bare-mbr"
cp "$images/gpt" "$images/bare-gpt"
truncate -s 16M "$images/empty"
for name in "${bare[@]}"; do
    put_signature "$name" 00000000
    cp "$images/$name" "$images/$name.before"
    attach "$name"
done
put_signature gpt "${guid[gpt]%%-*}"
attach gpt
make_mirror mbr-mirror 32
make_mirror gpt-mirror 40
remember "${untouchable[@]}" mbr gpt

start_daemon
adopt
check "protection" as_manager protect "${guid[mbr]}=${guid[mbr-mirror]}" "${guid[gpt]}=${guid[gpt-mirror]}"
check "resync" as_manager resync "${guid[mbr]}" "${guid[gpt]}"
check_within 30 "level" is_level mbr
check_within 30 "level" is_level gpt

players=()
for player in {1..10}; do
    for ((i = 0; i < scans / 10; ++i)); do
        ((i % 3 != 0)) || as_manager rescan_devices
        as_manager get_client_info
    done >"/var/tmp/player$player" &
    players+=($!)
done
for player in "${players[@]}"; do
    wait "$player" || fail "a command was not answered with success"
done

check "there were $scans scans" test "$(cat /var/tmp/player* | grep -c '<DiskList')" -eq "$scans"
check "those that may be touched are reported" test "$(as_manager get_client_info | grep -c '<Disk ')" = 7
check "no disk of somebody else has changed" unchanged "${untouchable[@]}"
check "no disk with a signature has changed" unchanged mbr gpt
for name in "${bare[@]}"; do
    check "$name has a signature" test "$(signature_of "$name")" != 00000000
    cp "$images/$name" "$images/$name.after"
    put_signature "$name.after" 00000000
    check "$name is otherwise as it was" cmp "$images/$name.after" "$images/$name.before"
done
for name in mbr gpt; do
    check "$name is level" is_level "$name"
    check "$name is on its mirror" cmp -n $(((32 << 20) - 444)) -i 444 "$images/$name" "$images/$name-mirror"
    check "its mirror kept its signature" test "$(signature_of "$name-mirror")" = "${guid[$name-mirror]%%-*}"
done
end_test
