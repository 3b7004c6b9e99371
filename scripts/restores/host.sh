#!/bin/bash
# The restores themselves, inside the private host: host.sh BUILD-FOLDER N [kill]
times=$2 kills=0
with_kills=${3-}
here=$(cd "$(dirname "$0")" && pwd -P)
# shellcheck source=tests/host/host_test.sh
source "$here/../../tests/host/host_test.sh"
# shellcheck source=tests/host/kept_disks.sh
source "$here/../../tests/host/kept_disks.sh"
mib=64
blocks=400 # that are written before the snapshot, and again after it

# write_blocks TEXT: numbered blocks of some pages each, at random places behind the first MiB.
write_blocks() {
    local number pages
    for ((number = 0; number < blocks; number++)); do
        pages=$((1 + RANDOM % 4))
        yes "$1, block $number" | head -c $((pages * 4096)) |
            dd of="${device[disk]}" bs=4096 seek=$((256 + RANDOM % (mib * 256 - 260))) oflag=direct iflag=fullblock \
                status=none || true # yes has no reader any more
    done
}

# killed: the restore is killed at a random moment after it has begun. False if it was done before.
killed() {
    local record=/var/lib/kavcdpagt/${guid[disk]}.restore restoring
    qelc snapshots restore "$name" --yes --no-snapshot >/dev/null 2>&1 &
    restoring=$!
    until [[ -e $record || ! -e /proc/$restoring ]]; do :; done
    sleep "0.0$((RANDOM % 60 + 10))"
    kill -KILL "$restoring" && wait "$restoring"
    [[ -e $record ]]
} 2>/dev/null

# restore: from beginning to end, and if kills are wanted, after some of them.
restore() {
    local number
    for ((number = RANDOM % 5; number > 0; number--)); do
        [[ -z $with_kills ]] || ! killed || kills=$((kills + 1))
    done
    qelc snapshots restore "$name" --yes --no-snapshot 2>/dev/null
}

{
    make_source disk "$mib"
    make_mirror xfs/mirror "$mib"
    start_protected disk=xfs/mirror
    resync 999999999 disk
    check_within 60 "level" told_level disk
} >&2
equal=0
for ((round = 1; round <= times; round++)); do
    write_blocks "round $round"
    cp "${device[disk]}" "$images/then"
    check_within 60 "level" told_level disk >&2
    name=$(qelc snapshot --disk "${guid[disk]}" | tail -n 1)
    write_blocks "after round $round"
    ! cmp -s "${device[disk]}" "$images/then" || fail "nothing was written"
    restore
    ! cmp "${device[disk]}" "$images/then" || equal=$((equal + 1))
    qelc snapshots remove "$name"
done
[[ -z $with_kills ]] || echo "$kills restores were killed in the middle"
echo "$equal of $times equal"
((equal == times))
