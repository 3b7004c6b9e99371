#!/bin/bash
# Lets memory run out at every allocation of every command, one after the other.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'END_OF_USAGE'
usage: scripts/faults.sh [EVERY [SAMPLES [HOSTS]]]

For each of the 33 commands, for heartbeats and scans, and for the snapshots of schedules: the allocations up to EVERY (500)
fail, each alone and each with all later ones, and then SAMPLES (50) more. The work is shared by HOSTS (8) private hosts.
Prints a line per command; the figures are in docs/reliability.md. Ends with status 1 if the working process crashed, a
command was not answered, a lock stayed, the configuration or an answer was wrong, or a failure was not told in the log.
END_OF_USAGE
}

every=${1-500}
samples=${2-50}
hosts=${3-8}
[[ $every =~ ^[0-9]+$ && $samples =~ ^[0-9]+$ && $hosts =~ ^[1-9][0-9]*$ ]] || { usage >&2; exit 2; }

scripts/install-packages build test
scripts/build.sh release
results=$(mktemp)
trap 'rm -f "$results"' EXIT
status=0
hosts_running=()
for ((host = 0; host < hosts; ++host)); do
    scripts/private-host scripts/faults/host.sh build/release "$every" "$samples" "$host" "$hosts" >>"$results" &
    hosts_running+=($!)
done
for host in "${hosts_running[@]}"; do
    wait "$host" || status=1
done
awk -F ';' -v format='%-28s %11s %9s %7s %6s %6s %6s %6s %7s\n' '
    function line(name) {
        printf format, name, most[name], sum[name, 3], sum[name, 4], sum[name, 5], sum[name, 6], sum[name, 7], sum[name, 8],
            sum[name, 9]
    }
    BEGIN { printf format, "", "allocations", "injected", "crashes", "hangs", "locks", "wrong", "short", "silent" }
    !($1 in most) { order[++count] = $1 }
    {
        if ($2 > most[$1]) most[$1] = $2
        for (i = 3; i <= 9; ++i) { sum[$1, i] += $i; sum["all", i] += $i }
    }
    END { for (i = 1; i <= count; ++i) line(order[i]); line("all") }' "$results"
exit "$status"
