#!/bin/bash
# An upgrade while a file system on a mirrored disk is written to, on a host with udev, LVM and a kernel of its own:
# upgrade.sh FOLDER FOLDER-WITH-LATER-PACKAGES, with scripts/lab.sh --systemd
# shellcheck source=tests/lab/lab_test.sh
source "$(dirname "$0")/../lab/lab_test.sh"

# shellcheck source=tests/lab/service_host.sh
source "$(dirname "$0")/../lab/service_host.sh"

# installs FOLDER: half a minute and more. The scripts of Debian's tools start perl a dozen times, over a slow line.
installs() {
    timeout 280 dpkg --no-triggers --install "$1"/qelcd_*.deb "$1"/qelc-manager_*.deb
}

# Through the file system: whoever opens the disk itself for writing has udev look at all of it again at each close.
write_files() {
    until [[ -e /run/stop ]]; do
        dd if=/dev/urandom of=/mnt/busy bs=64K count=1 conv=notrunc,fsync status=none
        sleep 0.1
    done
}

schedule() {
    tr -d ' \n' <"$config" | grep -o '<CDPSchedule>.*</CDPSchedule>'
}

# Behind the signature.
is_equal() {
    cmp --ignore-initial=1MiB "$disk" "$(qelc --json volumes | grep -o '/dev/loop[0-9]*' | head -n 1)"
}

step "the version before"
rm -f /usr/sbin/policy-rc.d # a build machine's, which lets no package start anything
rm -rf /var/lib/twinvault /var/lib/kavcdpagt /var/lib/qelcd-volumes
check "an installation" installs "$1"
check "a start" qelc init
make_disk
make_mirror
protect_disk
check "a schedule" qelc schedule set --disk "$disk_guid" --start "2035-01-01 00:00" --every 3600
before=$(schedule)
former=$(</run/qelcd.pid)

step "an upgrade"
write_files &
writer=$!
check "while it is written to" installs "$2"
check "has restarted the daemon" test "$(</run/qelcd.pid)" != "$former"
check_within 20 "which answers" qelc nop_command
: >/run/stop
wait "$writer"
umount /mnt
check_within 60 "level" mirror_is synchronised
check "equal" is_equal
check "nothing was compared as a whole" none logged 'compared with its mirror as a whole'
check "the schedule is as it was" test "$(schedule)" = "$before"
