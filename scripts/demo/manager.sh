# The manager's side of the demonstration: a network namespace of its own, joined to the host by a veth pair.
# Sourced.
# shellcheck shell=bash disable=SC2034,SC2154

host_address=10.77.0.1
manager_address=10.77.0.2
storage_iqn=iqn.2020-01.demo:storage
manager_log=/var/log/manager
manager_control=/var/tmp/manager-options

in_manager() {
    timeout --foreground "$longest" nsenter --target "$manager_namespace" --net -- "$@"
}

make_manager_network() {
    unshare --net sleep infinity &
    manager_namespace=$!
    wait_until 10 test ! "/proc/$manager_namespace/ns/net" -ef /proc/self/ns/net
    ip link add net0 type veth peer name net1
    ip link set net1 netns "$manager_namespace"
    ip address add "$host_address/24" dev net0
    ip link set net0 up
    in_manager ip link set net1 up
    in_manager ip address add "$manager_address/24" dev net1
    # So that packets to a silent manager are simply lost: else the kernel would notice that nobody is there.
    ip neighbour replace "$manager_address" dev net0 nud permanent \
        lladdr "$(in_manager ip -brief link show net1 | awk '{ print $3 }')"
}

start_manager() {
    : >"$manager_control"
    nsenter --target "$manager_namespace" --net -- \
        standin-manager --ip "$manager_address" --control "$manager_control" >>"$manager_log" &
    manager=$!
}

stop_manager() {
    kill "$manager"
    wait "$manager" || true
}

# manager_option LINE: the running manager changes its manners.
manager_option() {
    echo "$1" >"$manager_control"
    kill -HUP "$manager"
}

heartbeat_count() {
    grep -c 'command 32' "$manager_log" || true
}

# heartbeats COUNT: true when the manager has taken that many.
heartbeats() {
    (($(heartbeat_count) >= $1))
}

# An initiator tool that notes what it is asked to do and says yes.
script_initiator() {
    mkdir -p /var/lib/iscsi/ifaces "/var/lib/iscsi/nodes/$storage_iqn/$manager_address,3260"
    mount -t tmpfs demo /usr/local/sbin
    printf '#!/bin/sh\necho "iscsiadm $*" >>/var/log/iscsiadm\n' >/usr/local/sbin/iscsiadm
    printf '#!/bin/sh\necho 1\n' >/usr/local/sbin/pgrep
    chmod +x /usr/local/sbin/{iscsiadm,pgrep}
    export PATH=/usr/local/sbin:$PATH
}
