#!/bin/bash
# A channel's life between a real initiator and real targets, adoption to withdrawal: channel.sh BUILD-FOLDER
# shellcheck source=tests/lab/lab_test.sh
source "$(dirname "$0")/lab_test.sh"

first_iqn=iqn.2020-01.lab:first
second_iqn=iqn.2020-01.lab:second
first_guid=5d0f7c1e-93a4-4b62-8e17-c2a90b6d4f01
second_guid=5d0f7c1e-93a4-4b62-8e17-c2a90b6d4f02
iface_file=/var/lib/iscsi/ifaces/$iface

only_session_to() {
    session_to "$1" "$iface" || return
    local sessions=(/sys/class/iscsi_session/*)
    ((${#sessions[@]} == 1)) || { echo "${#sessions[@]} sessions"; return 1; }
}

start_network 10.77.0.2 10.77.0.3
start_target 1 10.77.0.2 "$first_iqn" "$first_guid"
start_target 2 10.77.0.3 "$second_iqn" "$second_guid"
start_initiator
start_daemon

# --- Adopted ---

start_manager 10.77.0.2 ''
check "the manager adopts the host" in_manager standin-manager adopt "$host_address:9410" \
    --guid "$manager_guid" --ip 10.77.0.2
check_within 20 "a heartbeat reaches the manager" grep 'command 32 origin 3' /var/log/manager

# --- Established ---

establish=(establish_channels --initiator-iqn "$initiator_iqn" --initiator-ip "$host_address")
check "a target that is not there makes no channel" answered 10039 from_manager "${establish[@]}" \
    --target-iqn "$first_iqn" --target-ip 10.77.0.2:3261
check "and no session" none any_session
stop_manager
start_manager 10.77.0.2 "$first_iqn"
check "establish" from_manager "${establish[@]}" --target-iqn "$first_iqn" --target-ip 10.77.0.2
check "one session, through net0" only_session_to "$first_iqn"
check "the initiator lists it" bash -c "iscsiadm -m session | grep -F $first_iqn"
check "its interface record names net0" grep -x 'iface.net_ifacename = net0' "$iface_file"
check "the configuration names the target" configured "<TargetIQN>$first_iqn</TargetIQN>"
check_within 10 "the disk" disk_with "$first_guid"
check_within 20 "the report has disk and channel" report_has "$first_guid" "$first_iqn"
check "establish once more" from_manager "${establish[@]}" --target-iqn "$first_iqn" --target-ip 10.77.0.2
check "still one session" only_session_to "$first_iqn"

# --- Lost and found again ---

iscsiadm -m node -T "$first_iqn" -u >/dev/null
check "the session is gone" none any_session
check_within 30 "a heartbeat brings it back" only_session_to "$first_iqn"
check_within 10 "and says so" logged "Channel auto login success."
check_within 20 "the report has disk and channel again" report_has "$first_guid" "$first_iqn"

# --- Moved ---

# The old manager falls silent first: its next answer would move the host back.
stop_manager
check "refresh" from_manager refresh_server --guid "$manager_guid" --ip 10.77.0.3 --target-iqn "$second_iqn"
start_manager 10.77.0.3 "$second_iqn"
check_within 10 "one session, to the new target" only_session_to "$second_iqn"
check "no record of the old target" none test -e "$nodes/$first_iqn"
check "the configuration names the new target" configured "<TargetIQN>$second_iqn</TargetIQN>"
check "and not the old one" none configured "$first_iqn"
check_within 20 "the report has the new disk and channel" report_has "$second_guid" "$second_iqn"
check "and not the old disk" none report_has "$first_guid"
check_within 20 "a heartbeat reaches the new manager" grep 'command 32 origin 3' /var/log/manager

# --- Withdrawn ---

check "no withdrawal while the manager answers" answered 1 qelc local_withdraw
silence 10.77.0.2 10.77.0.3
check_within 60 "the host finds the manager unreachable" logged "Failed to connect to manager"
check "withdraw" qelc local_withdraw
check_forgotten "$second_iqn"
