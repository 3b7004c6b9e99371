#!/bin/bash
# Disks of the storage system as a real kernel shows them, in the daemon's report: disks.sh BUILD-FOLDER
# shellcheck source=tests/lab/lab_test.sh
source "$(dirname "$0")/lab_test.sh"

first_iqn=iqn.2020-01.lab:first
second_iqn=iqn.2020-01.lab:second
first_guid=5d0f7c1e-93a4-4b62-8e17-c2a90b6d4f01
second_guid=5d0f7c1e-93a4-4b62-8e17-c2a90b6d4f02

# login ADDRESS IQN: through an interface record of our own, as a channel is bound.
login() {
    iscsiadm -m discovery -t st -p "$1" -I bound >/dev/null
    iscsiadm -m node -T "$2" -p "$1" -I bound -l >/dev/null
}

start_network 10.77.0.2 10.77.0.3
start_target 1 10.77.0.2 "$first_iqn" "$first_guid"
mkfs.ext4 -q /var/tmp/target2 32M # a mirror that carries what its disk carried
content=$(sha256sum </var/tmp/target2)
start_target 2 10.77.0.3 "$second_iqn" "$second_guid"
start_initiator
iscsiadm -m iface -I bound -o new >/dev/null
iscsiadm -m iface -I bound -o update -n iface.net_ifacename -v net0 >/dev/null

login 10.77.0.2 "$first_iqn"
check "a session to the first target" session_to "$first_iqn" bound
check_within 10 "its disk" disk_with "$first_guid"

start_daemon "<Manager><ManagerGUID>$manager_guid</ManagerGUID><TargetIQN>$first_iqn</TargetIQN>
  <ManagerIPAddr>10.77.0.2</ManagerIPAddr></Manager>"
check_within 20 "the report has the first disk and the channel" report_has "$first_guid" "$first_iqn"
check "it does not have the second disk" none report_has "$second_guid"

login 10.77.0.3 "$second_iqn"
check_within 10 "the second disk" disk_with "$second_guid"
check "a rescan" qelc rescan_devices
check_within 40 "the report has the second disk, too" report_has "$second_guid" "$first_iqn"
check "and still the first" report_has "$first_guid"

iscsiadm -m node -T "$first_iqn" -u >/dev/null
check_within 40 "without its session the first disk leaves the report" none report_has "$first_guid"
check "the second stays" report_has "$second_guid"
check "nothing was written to it" test "$content" = "$(sha256sum </var/tmp/target2)"
