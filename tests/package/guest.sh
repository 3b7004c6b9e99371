#!/bin/bash
# What happens on the host of the packages, in two boots. Run as root by its service manager.
set -euo pipefail
[[ $# != 0 ]] || trap 'finish "$?"' EXIT
set -o errtrace
trap 'fail "line $LINENO: $BASH_COMMAND"' ERR
export DEBIAN_FRONTEND=noninteractive LC_ALL=C
mapfile -t commands </packages/commands
config=/etc/kavtessaron/qelcd.conf

# Only here do the loop devices of this host have names by which they can be told from those of others. They outlast it.
finish() {
    losetup --noheadings --raw --output NAME,BACK-FILE | awk '$2 ~ "^/(disks|srv/mirrors)/" { print $1 }' >/packages/devices
    echo "$1" >/packages/status
}

# --- Checks -----------------------------------------------------------------------------------------------

fail() {
    trap - ERR
    set +e
    printf 'FAILED: %s\n' "$*"
    systemctl status --no-pager qelcd qelcd-volumes devices | tail -n 60
    journalctl --no-pager -q -o cat -u qelcd -u qelcd-volumes -t qelcd | tail -n 60
    cat /etc/kavtessaron/said # by the hook
    qelc disks
    qelc mirrors
    exit 1
}

check() {
    local what=$1 found
    shift
    found=$("$@" 2>&1) || fail "$what: $*: $found"
    echo "ok: $what ($SECONDS s)"
}

check_within() {
    local end=$((SECONDS + $1)) what=$2 found
    shift 2
    until found=$("$@" 2>&1); do
        ((SECONDS < end)) || fail "$what: not in time: $*: $found"
        sleep 0.2
    done
    echo "ok: $what ($SECONDS s)"
}

none() {
    ! "$@"
}

journal() {
    journalctl --no-pager -q -o cat -b -t qelcd -t qelc -u qelcd -u qelcd-volumes
}

journal_has() {
    journal | grep -- "$1"
}

listens() {
    grep ':24C2 ' /proc/net/tcp # 9410
}

# serves: at once, not in time.
serves() {
    qelc nop_command && listens
}

mirror_is() {
    qelc mirrors | grep -w "$1"
}

supervisor() {
    cat /run/qelcd.pid
}

# restarted FORMER: a new supervisor serves.
restarted() {
    [[ $(supervisor) != "$1" ]] && serves
}

compared_as_a_whole() {
    journal | grep -c 'compared with its mirror as a whole' || true
}

# readme FIRST COUNT: runs these of the README's commands as they stand there.
readme() {
    local command
    for command in "${commands[@]:$1:$2}"; do
        check "README: ${command%%  *}" bash -ec "cd /packages/clone && $command"
    done
}

install() {
    apt-get install -y -qq --no-install-recommends "$@"
}

# --- First boot -------------------------------------------------------------------------------------------

check_installation() {
    readme 0 1
    check "with a configuration" qelc check-config
    check "and a GUID" grep '<ClientGUID>[0-9a-f-]\{36\}<' "$config"
    check "nothing listens" none listens
    check "nor will it after a boot" none systemctl is-enabled qelcd qelc-manager
    check "the initiator's records are Debian's" test "$(readlink /var/lib/iscsi/nodes)" = /etc/iscsi/nodes
}

check_start_that_fails() {
    cp "$config" /packages/good
    printf '<Tessaron>\n<ClientPort>no</ClientPort><ServerPort>1</ServerPort></Tessaron>\n' >"$config"
    check "a broken configuration is no success" none systemctl start qelcd
    check "the journal says what to mend" journal_has 'qelcd.conf:2: ClientPort "no" is no port; write'
    systemctl stop qelcd
    systemctl reset-failed qelcd 2>/dev/null || true
    cp /packages/good "$config"
}

make_disks() {
    mkdir -p /disks /srv/mirrors
    truncate -s 400M /disks/xfs
    mkfs.xfs -q /disks/xfs
    disks
    truncate -s 64M /disks/disk
    dd if=/dev/urandom of=/disks/disk bs=1M seek=1 count=62 conv=notrunc status=none
    printf 'label: gpt\n2048,\n' | sfdisk --quiet /disks/disk
    attach_disk
}

# attach FILE: a loop device; its path in $attached. There are no other nodes of loop devices here: all belong to the whole
# machine, and the daemon must not see those of others.
attach() {
    local attempt
    for attempt in {1..50}; do
        attached=$(losetup --find)
        [[ -e $attached ]] || mknod -m 600 "$attached" b 7 "${attached#/dev/loop}"
        losetup "$attached" "$1" 2>/dev/null && return
        rm -f "$attached"
        sleep 0.1
    done
    fail "no loop device for $1"
}

attach_disk() {
    attach /disks/disk
    disk=$attached
}

# disks: what is there on a host before its services start.
disks() {
    [[ -e /disks/xfs ]] || return 0
    attach /disks/xfs
    mount -t xfs "$attached" /srv/mirrors
}

# With the README's commands.
make_mirror() {
    export DISK=${disk#/dev/}
    readme 1 100
    check "the daemon's sockets are there" serves
    check "it will serve after a boot, too" systemctl is-enabled qelcd
    check "and so will the manager" systemctl is-enabled qelc-manager
    guid=$(qelc --wide disks | awk -v name="$DISK" '$1 == name { print $5 }')
    check "a level mirror" mirror_is synchronised
    check "its writes are tracked" journal_has 'are tracked in pages'
    check "a snapshot is kept" is_kept
    check_within 20 "the manager hears of it" eval 'qelc-manager hosts | grep "$DISK: synchronised"'
    check "a schedule" qelc schedule set --disk "$guid" --start "2035-01-01 00:00" --every 3600
    grep -o '<CDPSchedule>.*' "$config" >/packages/schedule || fail "no schedule"
}

is_kept() {
    qelc snapshots | grep -w reflink | grep -w ok
}

check_snapshots() {
    check "a snapshot" qelc snapshot --disk "$guid"
    check "is kept" is_kept
}

# What the guard of a freeze does is allowed within the limits of the service, on what was mounted after its start.
check_freeze() {
    local name=${disk#/dev/}p1 hook=/etc/kavtessaron/mark.d/freeze
    partx --update "$disk"
    # shellcheck disable=SC2046
    mknod -m 600 "/dev/$name" b $(tr : ' ' <"/sys/class/block/$name/dev")
    mkfs.ext4 -q "/dev/$name"
    mount "/dev/$name" /mnt
    mkdir -p "${hook%/*}"
    printf '%s\n' '#!/bin/sh' 'exec 2>/etc/kavtessaron/said' 'set -ex' 'fsfreeze --freeze /mnt' 'fsfreeze --unfreeze /mnt' 'chrt --fifo 1 true' \
        ': >/etc/kavtessaron/frozen' >"$hook"
    chmod +x "$hook"
    check_within 20 "level again" mirror_is synchronised
    check "a snapshot with a freeze" qelc snapshot --disk "$guid"
    check "which the hook has made" rm /etc/kavtessaron/frozen
    rm -r "${hook%/*}" /etc/kavtessaron/said
    umount /mnt
    partx --delete "$disk"
}

check_ends() {
    local former
    former=$(supervisor)
    kill -KILL "$former"
    check_within 20 "a killed daemon comes back" restarted "$former"
    former=$(supervisor)
    kill "$former"
    check_within 20 "one that ends with status 0, too" restarted "$former"
}

installed() {
    dpkg-query --show --showformat='${Version}' qelcd
}

# goes_on WHAT COMMAND...: which installs another version, with a mirror that has something to do.
goes_on() {
    local former
    former=$(supervisor)
    dd if=/dev/urandom of="$disk" bs=4K seek=4000 count=3 oflag=direct conv=notrunc status=none
    check "$@"
    check "has restarted it" restarted "$former"
    check_within 30 "level" mirror_is synchronised
    check "nothing was compared as a whole" test "$(compared_as_a_whole)" = 0
    check "the schedule is as it was" cmp /packages/schedule <(grep -o '<CDPSchedule>.*' "$config")
}

check_versions() {
    local before after
    before=$(installed)
    goes_on "an upgrade" install /packages/next/*.deb
    after=$(installed)
    check "to a later version" dpkg --compare-versions "$after" gt "$before"
    goes_on "the way back" eval 'dpkg --install /packages/qelc*.deb >/packages/said 2>&1'
    check "which is told" grep "going back from $after to $before" /packages/said
}

first() {
    check_installation
    check_start_that_fails
    make_disks
    make_mirror
    check_freeze
    check_ends
    check_versions
    check "the databases were asked for without an error" none journal_has 'Failed to get DBOEM'
    echo "$guid" >/packages/guid
}

# --- Second boot ------------------------------------------------------------------------------------------

# Its keeper takes the next free loop device, if that has a node.
attach_snapshot() {
    local next
    next=$(losetup --find)
    [[ -e $next ]] || mknod -m 600 "$next" b 7 "${next#/dev/loop}"
    qelc snapshots attach "$name" || { rm "$next"; return 1; }
}

second() {
    guid=$(</packages/guid)
    attach_disk
    check_within 30 "the daemon serves after a boot" serves
    check "the volume is there" eval 'qelc volumes | grep -w /dev/loop.*'
    check_within 60 "level" mirror_is synchronised
    check_snapshots
    name=$(qelc --json snapshots | grep -o '"name":"[^"]*"' | tail -n 1 | cut -d '"' -f 4)
    check_within 20 "a snapshot is attached" attach_snapshot
    find /srv/mirrors -type f -exec md5sum {} + | sort >/packages/data
    apt-get remove -y -qq qelcd >/packages/said
    check "a removal tells of the mirror" grep "disk $guid is mirrored no more" /packages/said
    check "no process is left" none pgrep qelcd
    check "nothing is pinned" none test -e /sys/fs/bpf/qelcd
    check "no loop device is left" none eval 'losetup --noheadings --output BACK-FILE | grep /srv/mirrors/'
    check "the manager outlives it" eval 'qelc-manager hosts | grep -w "$(hostname)"'
    apt-get purge -y -qq qelcd qelc-manager >/packages/said
    check "a purge tells of the volume" grep 'a volume for mirrors stays: /srv/mirrors/' /packages/said
    check "and of the snapshots" grep 'a kept snapshot stays: /srv/mirrors/' /packages/said
    check "what is on disks is as it was" cmp /packages/data <(find /srv/mirrors -type f -exec md5sum {} + | sort)
    check "no state is left" none compgen -G '/var/lib/{twinvault,kavcdpagt,qelcd-volumes,iscsi,qelc-manager,private/qelc-manager}'
    check "nor a manager" none pgrep qelc-manager
    check "nor a configuration" none test -e /etc/kavtessaron
}

"${1-$(</packages/phase)}"
