#!/bin/bash
# Many hosts that report to one manager, inside the private host: manager.sh BUILD-FOLDER [HOSTS [SECONDS]]
set -euo pipefail
bin=$PWD/$1/bin
hosts=${2-1000}
seconds=${3-60}
folder=/var/tmp/manager
PATH=$PATH:/usr/sbin:/sbin

# As the unit starts it, with that unit's limit of descriptors.
start_manager() {
    (ulimit -n 4096; exec "$bin/standin-manager" --bind 127.0.0.1 --state "$folder" >"$folder.log" 2>&1) &
    manager=$!
    until [[ -s $folder.log ]]; do
        kill -0 "$manager" # fails if it has ended
        sleep 0.1
    done
}

# In ticks of the clock, user and system.
processor_time() {
    awk '{ print $14 + $15 }' "/proc/$manager/stat"
}

# row WAY: all the figures of the hosts, then those of the manager.
row() {
    local before used
    start_manager
    before=$(processor_time)
    "$bin/bench-manager" 127.0.0.1 9411 "$hosts" "$seconds" "$1"
    used=$(($(processor_time) - before))
    awk -v used="$used" -v per_second="$(getconf CLK_TCK)" -v seconds="$seconds" \
        'BEGIN { printf " %.1f %% |", 100 * used / per_second / seconds }'
    awk '$1 == "VmHWM:" { printf " %.0f |", $2 / 1024 }' "/proc/$manager/status"
    printf ' %d |\n' "$("$bin/standin-manager" hosts --state "$folder" | tail -n +2 | wc -l)"
    kill "$manager"
    wait "$manager"
    rm -r "$folder"
}

printf '\n### A manager of many hosts\n\n'
printf '| %d hosts, for %d s | heartbeats | failed | late | p50, ms | p99, ms | longest, ms | of a core | MiB at most | listed |\n' \
    "$hosts" "$seconds"
printf '|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n'
row spread
row at-once
