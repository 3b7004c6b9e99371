#!/bin/bash
# A channel's life between a real initiator and real targets, adoption to withdrawal: channel.sh BUILD-FOLDER
# shellcheck source=tests/lab/lab_test.sh
source "$(dirname "$0")/lab_test.sh"

first_iqn=iqn.2020-01.lab:first
second_iqn=iqn.2020-01.lab:second
first_guid=5d0f7c1e-93a4-4b62-8e17-c2a90b6d4f01
second_guid=5d0f7c1e-93a4-4b62-8e17-c2a90b6d4f02

start_network 10.77.0.2 10.77.0.3
start_target 1 10.77.0.2 "$first_iqn" "$first_guid"
start_target 2 10.77.0.3 "$second_iqn" "$second_guid"
start_initiator
start_daemon

step "adopted"

adopt_host
check_within 20 "a heartbeat reaches the manager" grep 'command 32 origin 3' /var/log/manager

step "established"

check "a target that is not there makes no channel" answered 10039 establish "$first_iqn" 10.77.0.2:3261
check "and no session" none any_session
stop_manager
start_manager 10.77.0.2 "$first_iqn"
check "establish" establish "$first_iqn" 10.77.0.2
check "one session, through net0" only_session_to "$first_iqn"
check "its interface record names net0" grep -x 'iface.net_ifacename = net0' "/var/lib/iscsi/ifaces/$iface"
check_within 10 "the disk" disk_with "$first_guid"
check_within 20 "the report has disk and channel" report_has "$first_guid" "$first_iqn"
check "establish once more" establish "$first_iqn" 10.77.0.2
check "still one session" only_session_to "$first_iqn"

step "lost and found again"

iscsiadm -m node -T "$first_iqn" -u >/dev/null
check_within 30 "a heartbeat brings it back" only_session_to "$first_iqn"
check_within 20 "the report has disk and channel again" report_has "$first_guid" "$first_iqn"

step "moved"

stop_manager # its next answer would move the host back
check "refresh" from_manager refresh_server --guid "$manager_guid" --ip 10.77.0.3 --target-iqn "$second_iqn"
start_manager 10.77.0.3 "$second_iqn"
check_within 10 "one session, to the new target" only_session_to "$second_iqn"
check "no record of the old target" none test -e "$nodes/$first_iqn"
check_within 20 "the report has the new disk and channel" report_has "$second_guid" "$second_iqn"
report=$(qelc get_client_info)
check "and not the old disk" none grep -F "$first_guid" <<<"$report"
check_within 20 "a heartbeat reaches the new manager" grep 'command 32 origin 3' /var/log/manager

step "withdrawn"

# Nothing answers at the manager's addresses any more, not even with a refusal. The neighbours' entries stay, for
# without them the host would soon know that nobody is there.
hardware=$(in_manager cat /sys/class/net/net1/address)
for address in 10.77.0.2 10.77.0.3; do
    ip neighbour replace "$address" lladdr "$hardware" dev net0 nud permanent
done
ip -n manager address flush dev net1
check_within 60 "the host finds the manager unreachable" logged "Failed to connect to manager"
check "withdraw" qelc local_withdraw
check_forgotten "$second_iqn"
check "nothing was written to its volumes" cmp /var/tmp/target1 /var/tmp/target2
check "not even a signature" cmp -n $((32 << 20)) /var/tmp/target1 /dev/zero
