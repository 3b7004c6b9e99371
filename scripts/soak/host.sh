#!/bin/bash
# The soak itself, inside the private host: host.sh BUILD-FOLDER SECONDS
set -euo pipefail
build=$1
seconds=$2
tools=/usr/local/sbin
export PATH=$PATH:/usr/sbin:/sbin:$PWD/$build/bin
manager_guid=5e9a11d0-0000-4000-8000-000000000001
client_guid=6f1c2a52-6b0e-4c57-9a54-2f4f5d6a7b81
clients=16
warm_up=30
most_growth=4096 # kilobytes after the warm-up, for the allocator with its many threads

fail() {
    echo "soak: $*" >&2
    tail -n 30 /var/log/messages >&2
    exit 1
}

worker_pid() {
    local supervisor
    supervisor=$(</var/run/qelcd.pid)
    tr -d ' ' <"/proc/$supervisor/task/$supervisor/children"
}

# --- The host: a network interface, an initiator tool that fails now and then, the daemon --------------------

rm -f /dev/loop* # no disks: other processes on this machine may be using them
mkdir -p /var/soak/counts /var/lib/iscsi/{ifaces,nodes}
ip link add net0 type veth peer name net1
ip address add 10.77.0.1/24 dev net0
cat >"$tools/iscsiadm" <<'END'
#!/bin/sh
sleep 0.$(($$ % 5))
exit $(($$ % 4 == 0))
END
printf '#!/bin/sh\necho 1\n' >"$tools/pgrep"
chmod +x "$tools"/*
printf '<Tessaron><ClientGUID>%s</ClientGUID><ClientPort>9410</ClientPort><ServerPort>9411</ServerPort></Tessaron>' \
    "$client_guid" >/etc/kavtessaron/qelcd.conf
busybox syslogd -n -l 5 -O /var/log/messages & # warnings and errors
export ASAN_OPTIONS=log_path=/var/soak/sanitizer UBSAN_OPTIONS=log_path=/var/soak/sanitizer
export TSAN_OPTIONS=log_path=/var/soak/sanitizer:halt_on_error=0:second_deadlock_stack=1
qelcd
for ((i = 0; i < 300; ++i)); do
    qelc nop_command >/dev/null 2>&1 && break
    sleep 0.1
done
worker=$(worker_pid)

# --- The load against it --------------------------------------------------------------------------------------

# count NAME: adds one to that counter. Each process has a file of its own for it.
count() {
    echo >>"/var/soak/counts/$1.$BASHPID"
}

total() {
    cat /var/soak/counts/"$1".* 2>/dev/null | wc -l
}

# A manager that changes its behaviour every few seconds.
play_manager() {
    standin-manager --guid "$manager_guid" --ip 127.0.0.1 --control /var/soak/control >/var/soak/reports 2>&1 &
    local server=$!
    echo "$server" >/var/soak/server
    until grep -q listening /var/soak/reports; do
        sleep 0.1
    done
    local manners=('answer 0' 'answer 0' 'answer 50' 'stall 3' refuse cut 'answer 7' 'ip 127.0.0.2')
    while [[ ! -e /var/soak/stop ]]; do
        printf '%s\nchance 70\n' "${manners[RANDOM % ${#manners[@]}]}" >/var/soak/control
        kill -HUP "$server"
        sleep $((1 + RANDOM % 4))
    done
    rm -f /var/soak/control
    kill -HUP "$server"
    wait "$server" || true
}

# ask QELC-ARGUMENT...: the command may be refused, but must be answered.
ask() {
    local status=0
    qelc --timeout 60 "$@" >/dev/null 2>>/var/soak/errors || status=$?
    count asked
    ((status < 3)) || count unanswered
}

adopt_and_release() {
    while [[ ! -e /var/soak/stop ]]; do
        ask --host 127.0.0.1:9410 add_client --guid "$manager_guid" --ip 127.0.0.1
        count adoptions
        sleep $((RANDOM % 16))
        if ((RANDOM % 3 == 0)); then
            ask local_withdraw
        else
            ask --host 127.0.0.1:9410 del_client --guid "$manager_guid" --client-guid "$client_guid"
        fi
        sleep 0.$((RANDOM % 10))
    done
}

one_client() {
    while [[ ! -e /var/soak/stop ]]; do
        local where=()
        ((RANDOM % 2)) || where=(--host "127.0.0.1:9410")
        case $((RANDOM % 12)) in
            0) ask "${where[@]}" get_client_info ;;
            1) ask "${where[@]}" rename_client --alias "name $RANDOM" ;;
            2) ask "${where[@]}" refresh_server --guid "$manager_guid" --ip "127.0.0.$((1 + RANDOM % 2))" \
                --target-iqn iqn.soak ;;
            3) ask "${where[@]}" establish_channels --initiator-iqn iqn.host --target-iqn iqn.soak \
                --initiator-ip 10.77.0.1 --target-ip 127.0.0.1 ;;
            4) ask "${where[@]}" add_client '<Tessaron><Server' ;;
            5) ask "${where[@]}" del_client '<Tessaron/>' ;;
            6) ask "${where[@]}" rescan_devices ;;
            7 | 8) ask local_list ;;
            9 | 10) ask "${where[@]}" scan_client ;;
            *) ask "${where[@]}" nop_command ;;
        esac
    done
}

players=()
play() {
    rm -f /var/soak/stop
    play_manager &
    players=($!)
    adopt_and_release &
    players+=($!)
    for ((i = 0; i < clients; ++i)); do
        one_client &
        players+=($!)
    done
    sleep "$1"
    touch /var/soak/stop
    for player in "${players[@]:1}"; do
        wait "$player"
    done
    # The load is over: release the client, and let running work end.
    ask add_client --guid "$manager_guid" --ip 127.0.0.1
    qelc del_client --guid "$manager_guid" --client-guid "$client_guid" >/dev/null || fail "cannot be released"
    sleep 12
    kill "$(</var/soak/server)"
    wait "${players[0]}" || true
}

# --- The run ------------------------------------------------------------------------------------------------

# measure: threads, descriptors and kilobytes of the working process.
measure() {
    [[ $(worker_pid) == "$worker" ]] || fail "the working process has ended"
    echo "$(ls "/proc/$worker/task" | wc -l) $(ls "/proc/$worker/fd" | wc -l)" \
        "$(awk '$1 == "VmRSS:" { print $2 }' "/proc/$worker/status")"
}

play "$warm_up"
read -r threads_before files_before memory_before < <(measure)
play "$seconds"
read -r threads_after files_after memory_after < <(measure)

printf '%-28s %8s %8s\n' "" before after
printf '%-28s %8d %8d\n' threads "$threads_before" "$threads_after" \
    descriptors "$files_before" "$files_after" "resident memory, KiB" "$memory_before" "$memory_after"
printf '%-28s %17d\n' seconds "$seconds" "commands answered" "$(total asked)" \
    "commands without answer" "$(total unanswered)" "adoptions tried" "$(total adoptions)" \
    "heartbeats taken" "$(grep -c 'command 32' /var/soak/reports || true)"

if compgen -G '/var/soak/sanitizer*' >/dev/null; then
    cat /var/soak/sanitizer*
    fail "the sanitizer has reported something"
fi
(($(total unanswered) == 0)) || fail "commands were not answered"
((threads_after <= threads_before)) || fail "threads are left over"
((files_after <= files_before)) || fail "descriptors are left over"
[[ $build == */release ]] || exit 0 # sanitizers keep memory of their own
((memory_after - memory_before <= most_growth)) || fail "memory has grown"
