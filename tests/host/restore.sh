#!/bin/bash
# Snapshots that come back: one file from a mounted one, and whole disks. restore.sh BUILD-FOLDER, in a private host.
# shellcheck source=tests/host/host_test.sh
source "$(dirname "$0")/host_test.sh"
# shellcheck source=tests/host/kept_disks.sh
source "$(dirname "$0")/kept_disks.sh"

# refused WORDS COMMAND...: it fails, and says these words.
refused() {
    local words=$1 said
    shift
    said=$("$@" 2>&1 </dev/null) && return 1
    echo "$said"
    grep -F -- "$words" <<<"$said"
}

# said WORDS COMMAND...: it succeeds, and says these words.
said() {
    local words=$1 text
    shift
    text=$("$@" 2>&1 </dev/null) || { echo "$text"; return 1; }
    echo "$text"
    grep -F -- "$words" <<<"$text"
}

# make_files NAME: ext4 with a file on the first partition of that disk, and on the second one of the larger disk XFS, which
# is made that small for tests only.
make_files() {
    echo "precious of $1" >/var/tmp/files/precious
    mkfs.ext4 -q -F -E offset=$((1 << 20)) -d /var/tmp/files "${device[$1]}" 8m
    if [[ $1 == disk ]]; then
        truncate -s 22M /var/tmp/small
        QA_CHECK_FS=1 TEST_DIR=/ TEST_DEV=/ mkfs.xfs -q /var/tmp/small
        dd if=/var/tmp/small of="${device[$1]}" bs=1M seek=9 status=none
    fi
    sync "${device[$1]}"
}

# spoil NAME: some pages, the first file system, and with it the file.
spoil() {
    for _ in {1..20}; do write_page "$1"; done
    head -c 2M /dev/urandom | dd of="${device[$1]}" bs=1M seek=1 oflag=direct status=none
    printf 'LUKS\xba\xbe\x00\x01' | dd of="${device[$1]}" bs=1M seek=9 conv=notrunc status=none
    sync "${device[$1]}"
}

as_it_was() {
    cmp "${device[$1]}" "$images/$1.then"
}

count() {
    qelc --json snapshots | grep -o '"name":' | wc -l
}

detached() {
    ! qelc --json snapshots | grep '"state":"attached"' && ! kept_devices | grep .
}

mkdir /var/tmp/files /run/{files,group}
make_source disk 32
make_source other 16
make_mirror xfs/mirror 40 # the size of the disk counts, not that of the mirror
make_mirror xfs/second 16
make_mirror small 16
make_mirror large 48
make_image frozen 32
attach_loop "$images/frozen" --read-only
frozen=$attached
truncate -s 32M "$images/mounted"
mkfs.ext4 -q "$images/mounted"
put_signature mounted 0badcafe
attach mounted
for name in disk other; do
    make_files "$name"
    cp "${device[$name]}" "$images/$name.then"
done
start_protected disk=xfs/mirror other=xfs/second
check "a group" as_manager group create both "${guid[disk]}" "${guid[other]}"
resync 99999999 disk other
check_within 60 "level" eval '[[ $(qelc mirrors | grep -cw synchronised) == 2 ]]'
name=$(qelc snapshot --disk "${guid[disk]}" | tail -n 1)

step "one file back"
check "several file systems are a question" refused 'partition 1 (ext4' qelc snapshots mount "$name" /run/files
check "which names all" refused 'partition 2 (xfs' qelc snapshots mount "$name" /run/files
check "a folder that is not empty" refused "not empty" qelc snapshots mount "$name" /run
check "nothing is left of that" detached
check "what would be mounted" said "$name: mounted on /run/files" qelc snapshots mount "$name" /run/files --dry-run
check "is not" none mountpoint -q /run/files
check "mounted" valid qelc --json snapshots mount "$name" /run/files --partition 1
check "the file is there" grep -x "precious of disk" /run/files/precious
check "and nobody writes to it" refused "Read-only" touch /run/files/new
cd /run/files
check "not unmounted under somebody" refused "/run/files: somebody uses it" qelc snapshots umount "$name"
cd /
check "unmounted" qelc snapshots umount "$name"
check "and detached" detached
check "the original of a file system is mounted" mount -o ro,loop,offset=$((9 << 20)) "${device[disk]}" /run/group
check "and its snapshot beside it" qelc snapshots mount "$name" /run/files --partition 2
check "unmounted" qelc snapshots umount "$name"
check "the original stays" umount /run/group
check "no partition that the kernel does not show" refused "no partition 7" qelc snapshots attach "$name" --partition 7
check "and detached again" detached

step "what is not overwritten"
spoil disk
unshare --mount sh -c 'mount "$0" /run/group && echo >/var/tmp/mounted && exec sleep 1000' "${device[mounted]}" &
check_within 10 "a mount that only another one sees" test -e /var/tmp/mounted
remember disk xfs/mirror small large mounted frozen
while read -r disk words; do
    check "$words" refused "$words" qelc snapshots restore "$name" --yes --to "$disk"
done <<END
${device[xfs/mirror]} is the mirror of ${device[disk]#/dev/}
${device[small]} too small: it has 16 MiB
$xfs_disk the snapshot itself lies on it
$frozen read-only
${device[mounted]} another program uses it
nothing there is no such disk
END
check "without an answer" refused "there is no terminal to ask at" qelc snapshots restore "$name"
mkdir -p /etc/kavtessaron/keepers.d
printf '#!/bin/sh\n[ $1 != probe ] || exit 3\nexec %s/lib/qelcd/keepers.d/reflink "$@"\n' "$build" \
    >/etc/kavtessaron/keepers.d/reflink
chmod +x /etc/kavtessaron/keepers.d/reflink
check "without a snapshot of what is there" refused "--no-snapshot" qelc snapshots restore "$name" --yes
rm -r /etc/kavtessaron/keepers.d
check "to a disk that is not there" says 4 "none: there is no such disk" qelc snapshots restore "$name" --to none --yes
check "what would be restored" says 0 "overwritten with $name, where it differs" qelc snapshots restore "$name" --dry-run
check "nothing was written" unchanged small large mounted frozen disk
check "nothing stays attached" detached

step "a disk back"
check "restored" said "a snapshot of its present state was taken" qelc snapshots restore "$name" --yes
check "it is as it was" as_it_was disk
check "detached" detached
check "the spoilt state is there, too" test "$(count)" = 2
spoilt=$(qelc --json snapshots | grep -o '"name":"[^"]*' | cut -d '"' -f 4 | grep -vFx "$name")
check "what is no file system is not mounted" refused "crypto_LUKS" qelc snapshots mount "$spoilt" /run/files
check_within 30 "the mirror follows" told_level disk
check "and is equal" equal disk xfs/mirror
check "programs are told" valid qelc --json snapshots restore "$name" --yes --no-snapshot
check "to a larger disk" said "it has no mirror" qelc snapshots restore "$name" --yes --to "${device[large]}"
check "which keeps its signature" equal disk large

step "a kill in the middle"
unfinished=/var/lib/kavcdpagt/${guid[disk]}.restore
for attempt in {1..50}; do # some may come too late
    spoil disk
    qelc snapshots restore "$name" --yes --no-snapshot >/dev/null 2>&1 &
    until [[ -e $unfinished || ! -e /proc/$! ]]; do :; done
    { kill -KILL $! && wait $!; } 2>/dev/null || true
    [[ ! -e $unfinished ]] || break
done
check "the list tells of it (attempt $attempt)" said "restoring $name to ${device[disk]#/dev/} was not finished" qelc snapshots
check "programs, too" said "\"restores\":[{\"disk\":\"${device[disk]#/dev/}\"" qelc --json snapshots
check "in their form" valid qelc --json snapshots
echo "keep = last 1" >/etc/kavtessaron/embedded.conf
qelc snapshots detach "$name" # as a start of the host does
check "no rule takes away what it needs" qelc snapshots prune
rm /etc/kavtessaron/embedded.conf
check_within 30 "level, half restored" told_level disk
half=$(qelc snapshot --disk "${guid[disk]}" | tail -n 1)
check "a snapshot of that says so" said "taken before a restore of $name was finished" qelc snapshots
check "and goes" qelc snapshots remove "$half"
check "it goes on, without another snapshot" said "goes on" qelc snapshots restore "$name" --yes
check "it is as it was" as_it_was disk
check "no snapshot was added" test "$(count)" = 2
check "nothing is left of it" none test -e "$unfinished"
check "detached" detached

step "a group"
check_within 30 "level" eval '[[ $(qelc mirrors | grep -cw synchronised) == 2 ]]'
name=$(qelc snapshot --group both | tail -n 1)
check "mounted" qelc snapshots mount "$name" /run/group --partition 1
check "each disk is a folder" grep -rhx "precious of other" "/run/group/${device[other]#/dev/}"
check "unmounted" qelc snapshots umount "$name"
check "and the folders are gone" rmdir /run/group
spoil disk
spoil other
check "not to one disk" refused "without --to" qelc snapshots restore "$name" --yes --to "${device[large]}"
check "restored" qelc snapshots restore "$name" --yes
check "the one is as it was" as_it_was disk
check "and the other" as_it_was other
check "detached" detached
end_test
