#!/bin/bash
# The life of a snapshot of a mirror on a file system that can clone files, as an administrator sees it.
# snapshots.sh BUILD-FOLDER, in a private host.
# shellcheck source=tests/host/host_test.sh
source "$(dirname "$0")/host_test.sh"

# shellcheck source=tests/host/kept_disks.sh
source "$(dirname "$0")/kept_disks.sh"

# state_is STATE: of the only snapshot.
state_is() {
    local page
    page=$(qelc snapshots --disk "${device[disk]#/dev/}")
    echo "$page"
    [[ $(wc -l <<<"$page") == 2 && $page == *" $name "*" reflink "*" $1 "*"a note" ]]
}

make_source disk 32
make_mirror xfs/mirror 32
start_protected disk=xfs/mirror
check "resync" as_manager resync --yes "${guid[disk]}"
check_within 60 "level" eval 'qelc mirrors | grep -w synchronised'

name=$(qelc snapshot --disk "${guid[disk]}" --note "a note" | tail -n 1)
check "a snapshot, listed" state_is ok
check "which is in the journal" grep -x ".* ok $name" /var/lib/kavcdpagt/journal
check "what would be removed" eval "qelc snapshots remove --dry-run $name | grep '^$name: removed'"
path=$(qelc snapshots attach "$name" 2>/dev/null)
check "attached" state_is attached
check "it is listed by its disk, in local time" says 0 "$(date +%Z) ${device[disk]#/dev/} reflink" qelc snapshots
check "programs are told" valid qelc --json snapshots
check "and of its device" valid qelc --json snapshots attach "$name"
check "it holds what the disk holds beside the signature" cmp -i 4096 "$path" "${device[disk]}"
check "and the mirror goes on" eval 'sleep 3; qelc mirrors | grep -w synchronised'
check "it is not removed" says 1 "it is attached as $path" qelc snapshots remove "$name"
check "nor would it be" says 1 "it is attached as $path" qelc snapshots remove --dry-run "$name"
check "detached" qelc snapshots detach "$name"
rm "$images"/xfs/mirror.qelcd-snapshots/*
check "what somebody has removed is gone" state_is gone
check "is not attached" says 1 "its data is gone" qelc snapshots attach "$name"
check "and its record can be removed" says 6 "none: there is no such snapshot" qelc snapshots remove "$name" none
check "once" says 4 "$name: there is no such snapshot" qelc snapshots remove "$name"
check "then nothing is left" test "$(qelc snapshots)" = "no snapshots"
mkdir -p /etc/kavtessaron/keepers.d
ln -s /dev/null /etc/kavtessaron/keepers.d/reflink
check "without a keeper there is no snapshot" none qelc snapshot --disk "${guid[disk]}"
check "and the log says what to do" logged "nothing would keep ${guid[xfs/mirror]}"
end_test
