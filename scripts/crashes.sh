#!/bin/bash
# Kills the working process again and again while the configuration changes: the file must be whole each time.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'END'
usage: scripts/crashes.sh [KILLS [HOSTS]]

Kills the working process KILLS times (10000) in all, in HOSTS (24) private hosts at a time, with configuration files of
0.4 KB, 22 KB and 1 MB. Prints a line per size; the figures are in docs/reliability.md. Ends with status 1 if a file was
torn, an answered change was lost, or a daemon ended. --daemon FOLDER before KILLS takes qelcd from another folder.
END
}

folder=$PWD/build/release/bin
if [[ ${1-} == --daemon ]]; then
    folder=$(realpath "$2")
    shift 2
fi
kills=${1-10000}
hosts=${2-24}
[[ $kills =~ ^[0-9]+$ && $hosts =~ ^[0-9]+$ ]] || { usage >&2; exit 2; }

scripts/install-packages build demo
scripts/build.sh release qelcd bench-crashes
results=$(mktemp)
trap 'rm -f "$results"' EXIT
each=$(((kills + hosts - 1) / hosts))
sizes=(400 22000 1000000)
for ((host = 0; host < hosts; ++host)); do
    PATH=$folder:$PATH scripts/private-host build/release/bin/bench-crashes "$each" "${sizes[host % 3]}" >>"$results" &
done
wait
echo "  bytes  kills  changes answered  torn files  changes lost  daemons ended"
awk '{ for (i = 2; i <= 6; ++i) sum[$1, i] += $i; size[$1] }
     END { for (one in size) printf "%7d %6d %17d %11d %13d %14d\n", one, sum[one, 2], sum[one, 3], sum[one, 4],
                                    sum[one, 5], sum[one, 6] }' "$results" | sort -n
awk '$4 + $5 + $6 > 0 { wrong = 1 } END { exit wrong || NR == 0 }' "$results"
