# The manager's side of the demonstration: a network namespace of its own, joined to the host by a veth pair.
# Sourced.
# shellcheck shell=bash disable=SC2034,SC2154

host_address=10.77.0.1
manager_address=10.77.0.2
manager_log=/var/log/manager

in_manager() {
    timeout --foreground "$longest" nsenter --target "$manager_namespace" --net -- "$@"
}

make_manager_network() {
    unshare --net sleep infinity &
    manager_namespace=$!
    disown
    wait_until 10 test ! "/proc/$manager_namespace/ns/net" -ef /proc/self/ns/net
    ip link add net0 type veth peer name net1
    ip link set net1 netns "$manager_namespace"
    ip address add "$host_address/24" dev net0
    ip link set net0 up
    in_manager ip link set net1 up
    in_manager ip address add "$manager_address/24" dev net1
}

start_manager() {
    nsenter --target "$manager_namespace" --net -- standin-manager --ip "$manager_address" >>"$manager_log" &
    disown
    wait_until 10 grep -q listening "$manager_log"
}

heartbeat_count() {
    grep -c 'command 32' "$manager_log" || true
}

# heartbeats COUNT: true when the manager has taken that many.
heartbeats() {
    (($(heartbeat_count) >= $1))
}
