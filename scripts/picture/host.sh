#!/bin/bash
# The picture itself, inside the private host: host.sh BUILD-FOLDER FILE. Three mirrors: one that is level, one that is
# copied, one that is gone.
here_too=$(dirname "$0")
# shellcheck source=tests/host/host_test.sh
source "$here_too/../../tests/host/host_test.sh"
# shellcheck source=tests/host/kept_disks.sh
source "$here/kept_disks.sh"

for name in level copied gone; do
    make_source "$name" 64
    make_mirror "xfs/$name" 64
done
start_protected level=xfs/level copied=xfs/copied gone=xfs/gone
resync 99999999 level gone
check_within 60 "level" told_level level
check_within 60 "level" told_level gone
check "a schedule" qelc schedule set --yes --disk "${guid[level]}" --start now --every 10min
check "a snapshot" qelc snapshot --disk "${guid[level]}"
stop_daemon
kill "${loop_holders[-1]}" # the one of the last disk
start_again
check_within 30 "gone" eval 'qelc mirrors | grep "mirror down"'
{ sleep 3; resync 1500000 copied; } >/dev/null & # once it is on the screen
"$here/../support/screen" 90x12 "qelc top" "wait ########" "svg $2" text "key q"
