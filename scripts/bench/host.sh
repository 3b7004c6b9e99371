#!/bin/bash
# The measurement itself, inside the private host: host.sh BUILD-FOLDER ROUNDS SECONDS
set -euo pipefail
build=$1
rounds=$2
seconds=$3
export PATH=$PATH:/usr/sbin:/sbin:$PWD/$build/bin

wait_for() {
    local end=$((SECONDS + 10))
    until "$@" >/dev/null 2>&1; do
        ((SECONDS < end)) || { echo "bench: gave up waiting for: $*" >&2; exit 1; }
        sleep 0.1
    done
}

worker_pid() {
    local supervisor
    supervisor=$(</var/run/qelcd.pid)
    cat "/proc/$supervisor/task/$supervisor/children"
}

# kilobytes FIELD: one of the memory figures of the working process.
kilobytes() {
    awk -v field="$1:" '$1 == field { print $2 }' "/proc/$(worker_pid | tr -d ' ')/smaps_rollup"
}

start_daemon() {
    printf '<Tessaron><ClientPort>9410</ClientPort><ServerPort>9411</ServerPort></Tessaron>' \
        >/etc/kavtessaron/qelcd.conf
    qelcd
    wait_for qelc nop_command
}

echo 512 >/proc/sys/net/unix/max_dgram_qlen # what systemd gives a host's system log; the kernel's own default is 10
bench-log /dev/log &
start_daemon
# The kernel may share the processors out between sessions (autogroups, sched(7)). The daemon has a session of its own, so the
# servers beside it get theirs: one in the session of the clients is woken in another way.
setsid bench-server 9420 /var/run/bench.sock &
setsid bench-server 9421 /var/run/bench-log.sock log &
setsid bench-server 9422 /var/run/bench-select.sock log select &
wait_for test -S /var/run/bench.sock
wait_for test -S /var/run/bench-log.sock
wait_for test -S /var/run/bench-select.sock

idle=$(kilobytes Rss)
idle_private=$(kilobytes Private_Dirty)
connections=256
bench-idle 9410 "$connections" &
idlers=$!
wait_for test -e /var/run/bench-idle
busy=$(kilobytes Rss)
kill "$idlers"

printf '\n### Command 57\n\n'
bench-load 9410 /var/run/qelcd.sock 9420 /var/run/bench.sock 9421 /var/run/bench-log.sock \
    9422 /var/run/bench-select.sock "$rounds" "$seconds"

printf '\n### The report document\n\n'
bench-report

printf '\n### Memory\n\n'
printf '| what | KiB |\n|---|---:|\n'
printf '| resident, idle working process | %d |\n' "$idle"
printf '| of it private and dirty | %d |\n' "$idle_private"
printf '| resident, per idle connection (of %d) | %.1f |\n' "$connections" \
    "$(awk -v a="$busy" -v b="$idle" -v n="$connections" 'BEGIN { print (a - b) / n }')"
printf '| resident after all of the load above | %d |\n' "$(kilobytes Rss)"

kill "$(</var/run/qelcd.pid)"
