# shellcheck shell=bash
# A manager's storage beside the host, for tests in the lab: targets in a network namespace, the host's
# initiator, and the shipped daemon. Sourced by a test that is called with the build folder; from there on
# errors end the test.
set -euo pipefail
build=$1
export PATH=$build/bin:$PATH

log=/var/log/messages
config=/etc/kavtessaron/qelcd.conf
host_address=10.77.0.1
initiator_iqn=iqn.2020-01.lab:host
iface=qel_iface_net0
nodes=/var/lib/iscsi/nodes
manager_guid=0b7e4a55-1f0c-4d9e-8b7a-5a1f4f0d3c21
client_guid=6f1c2a52-6b0e-4c57-9a54-2f4f5d6a7b81

# --- Checks ---------------------------------------------------------------------------------------------

# What a failed test leaves in sight.
fail() {
    trap - ERR
    printf 'FAILED: %s\n' "$*"
    set +e
    exec 2>&1
    losetup
    qelc disks
    iscsiadm -m session
    find "$nodes"
    tail -n +1 "$config" /var/lib/iscsi/ifaces/qel_iface* /var/lib/{twinvault/*.mirror*,kavcdpagt/journal} \
        /var/tmp/sanitizer* 2>/dev/null
    grep -E ' (qelcd|iscsid)' "$log" | grep -v 'DBOEM\|Received command' | tail -n 150
    exit 1
}
trap 'fail "line $LINENO: $BASH_COMMAND"' ERR
set -o errtrace

# step WHAT: says what begins.
step() {
    echo "== $* ($SECONDS s)"
}

# check WHAT COMMAND...: prints WHAT when the command succeeds, and ends the test with its output when not.
check() {
    local what=$1 found
    shift
    found=$("$@" 2>&1) || fail "$what: $*: $found"
    echo "ok: $what"
}

# check_within SECONDS WHAT COMMAND...: asks again until the command succeeds.
check_within() {
    local limit=$1 start=$SECONDS what=$2 found
    shift 2
    until found=$("$@" 2>&1); do
        ((SECONDS - start < limit)) || fail "$what: not within $limit seconds: $*: $found"
        sleep 0.2
    done
    echo "ok: $what ($((SECONDS - start)) s)"
}

none() {
    ! "$@"
}

# answered STATUS COMMAND...: the daemon's answer to this qelc has that status.
answered() {
    local status=$1 answer
    shift
    answer=$("$@") || true
    echo "$answer"
    [[ $answer == "status $status: "* ]]
}

logged() {
    grep -F -- "$1" "$log"
}

any_session() {
    compgen -G '/sys/class/iscsi_session/*'
}

# check_forgotten IQN: the host knows nothing any more of a manager with this target, and is free for another.
check_forgotten() {
    check_within 20 "no session" none any_session
    check "no record of the target" none test -e "$nodes/$1"
    check "no interface record of the daemon" none compgen -G '/var/lib/iscsi/ifaces/qel_iface_*'
    check "no manager in the configuration" none grep -F "<Manager>" "$config"
    check "the host can be adopted anew" qelc scan_client
}

# --- The manager's side -----------------------------------------------------------------------------------

in_manager() {
    ip netns exec manager "$@"
}

from_manager() {
    in_manager qelc --host "$host_address:9410" "$@"
}

# start_network ADDRESS...: net0 of the host leads to the manager, which has these addresses.
start_network() {
    local address
    ip netns add manager
    ip link add net0 type veth peer name net1 netns manager
    ip address add "$host_address/24" dev net0
    ip link set net0 up
    for address in "$@"; do
        ip -n manager address add "$address/24" dev net1
    done
    ip -n manager link set net1 up
    ip -n manager link set lo up
}

# start_manager ADDRESS IQN: takes the host's heartbeats, with this record of the manager for an answer.
start_manager() {
    ip netns exec manager standin-manager --guid "$manager_guid" --ip "$1" --target-iqn "$2" >/var/log/manager &
    manager=$!
    check_within 20 "a manager on $1" grep listening /var/log/manager
}

# adopt_host: by the manager at 10.77.0.2, which knows of no target yet.
adopt_host() {
    start_manager 10.77.0.2 ''
    check "the manager adopts the host" in_manager standin-manager adopt "$host_address:9410" \
        --guid "$manager_guid" --ip 10.77.0.2
}

# establish IQN PORTAL
establish() {
    from_manager establish_channels --initiator-iqn "$initiator_iqn" --initiator-ip "$host_address" \
        --target-iqn "$1" --target-ip "$2"
}

stop_manager() {
    kill "$manager"
    wait "$manager" 2>/dev/null || true
}

# start_target NUMBER ADDRESS IQN GUID: a target with one disk of the storage system. A tgtd serves one address
# only, so each target has its own.
start_target() {
    local admin=(in_manager tgtadm --control-port "$1" --lld iscsi --mode target --tid 1)
    mkdir -p /run/tgtd
    in_manager tgtd --control-port "$1" --iscsi "portal=$2:3260" 2>/dev/null
    check_within 20 "a target on $2" "${admin[@]}" --op new --targetname "$3"
    truncate -s 32M "/var/tmp/target$1"
    add_lun "$1" 1 "$4" "/var/tmp/target$1"
    "${admin[@]}" --op bind --initiator-address ALL
}

# add_lun NUMBER LUN GUID FILE: one more disk of the storage system behind that target, on that file.
add_lun() {
    local admin=(in_manager tgtadm --control-port "$1" --lld iscsi --mode logicalunit --tid 1 --lun "$2")
    "${admin[@]}" --op new --backing-store "$4"
    "${admin[@]}" --op update \
        --params "vendor_id=QRZ,product_id=KAVSolution,product_rev=0001,scsi_sn=$3"
}

# --- The host's side --------------------------------------------------------------------------------------

# With the limits of a shipped iscsid.conf a login that cannot succeed takes a minute and a half. Debian's
# initiator keeps its records in /etc/iscsi, others in /var/lib/iscsi, where the daemon looks for them; links
# join the two.
start_initiator() {
    local records
    for records in ifaces nodes send_targets static isns; do
        mkdir -p "/var/lib/iscsi/$records"
        ln -s "/var/lib/iscsi/$records" "/etc/iscsi/$records"
    done
    echo "InitiatorName=$initiator_iqn" >/etc/iscsi/initiatorname.iscsi
    cat >/etc/iscsi/iscsid.conf <<'END'
iscsid.startup = /bin/false
node.startup = manual
node.session.timeo.replacement_timeout = 5
node.conn[0].timeo.login_timeout = 4
node.conn[0].timeo.logout_timeout = 4
node.conn[0].timeo.noop_out_interval = 2
node.conn[0].timeo.noop_out_timeout = 2
node.session.initial_login_retry_max = 1
node.session.reopen_max = 1
END
    modprobe -a iscsi_tcp sd_mod
    iscsid
}

# only_session_to IQN: the kernel has one session, to that target and bound to the daemon's interface record.
only_session_to() {
    local sessions
    sessions=$(cat /sys/class/iscsi_session/*/{targetname,ifacename} 2>/dev/null || true)
    echo "$sessions"
    [[ $sessions == "$1"$'\n'"$iface" ]]
}

# A disk of the storage system whose serial number holds GUID.
disk_with() {
    grep -q -a -i -- "$1" /sys/block/sd*/device/vpd_pg80
}

# Without any mirrors or marks of the machine that the guest's files come from.
start_daemon() {
    rm -rf /var/lib/twinvault /var/lib/kavcdpagt
    printf '<Tessaron><ClientGUID>%s</ClientGUID><ClientPort>9410</ClientPort><ServerPort>9411</ServerPort></Tessaron>' \
        "$client_guid" >"$config"
    qelcd
    wait_for_daemon
}

# A process is there before it listens; when it listens to local commands, it does to the manager's.
wait_for_daemon() {
    check_within 20 "the daemon answers" qelc nop_command
}

# report_has GUID TARGET-IQN: the report holds the disk with this GUID, and a channel to the target.
report_has() {
    local report
    report=$(qelc get_client_info)
    echo "$report"
    grep -q "<Disk .*Guid=\"$1\".*Vendor=\"QRZ KAVSolution\"" <<<"$report" &&
        grep -q "<Channel Type=\"ISCSI\" InitiatorIqn=\"$initiator_iqn\" TargetIqn=\"$2\"" <<<"$report"
}
