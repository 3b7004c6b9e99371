#!/bin/bash
# The demonstration itself, inside the private host: host.sh BUILD-FOLDER
set -euo pipefail
build=$(realpath "$1")
here=$(dirname "$0")
export PATH=$PATH:/usr/sbin:/sbin:$build/bin
# shellcheck source=scripts/demo/show.sh
source "$here/show.sh"
# shellcheck source=scripts/loop_disk.sh
source "$here/../loop_disk.sh"
# shellcheck source=scripts/demo/disks.sh
source "$here/disks.sh"
# shellcheck source=scripts/demo/manager.sh
source "$here/manager.sh"
# shellcheck source=scripts/demo/adoption.sh
source "$here/adoption.sh"
# shellcheck source=scripts/demo/mirrors.sh
source "$here/mirrors.sh"
# shellcheck source=scripts/demo/snapshots.sh
source "$here/snapshots.sh"
# shellcheck source=scripts/demo/writer.sh
source "$here/writer.sh"
# shellcheck source=scripts/demo/release.sh
source "$here/release.sh"
# shellcheck source=scripts/demo/compare.sh
source "$here/compare.sh"

log=/var/log/messages
pid_file=/var/run/qelcd.pid

# However the demonstration ends, no loop device stays.
finish() {
    local status=$?
    trap - EXIT
    trap '' INT TERM
    set +e
    ((status == 0 || status == 130)) || { echo "demo: the end of the system log:"; tail -n 15 "$log"; } >&2
    [[ ! -e /var/run/qelcd.sock ]] || (stop_daemon)
    remove_disks || status=1
    ((status != 0)) || printf '\nThe %d lines that start with "->" were checked. All loop devices are gone.\n' "$proven"
    exit "$status"
}
obey_signals() {
    trap 'exit 130' INT
    trap 'exit 143' TERM
}
trap finish EXIT
obey_signals

mount -t bpf bpf /sys/fs/bpf || true # without it, writes are not tracked
make_manager_network
busybox syslogd -n -O "$log" &
disown
make_disks

show_disks
show_start
show_scan
show_adoption
show_protection
show_first_copy_with_a_crash
show_snapshot
show_busy_writer
show_lost_file
show_restore
show_release
show_stop
show_comparison
