#!/bin/bash
# How long qelc takes to start, beside `true` in the same rounds: startup.sh BUILD-FOLDER [ROUNDS]. The median and the worst
# of 90 % of the rounds, in milliseconds. No daemon runs, so a verb that asks one ends as soon as it finds that.
set -euo pipefail
export PATH=$PWD/$1/bin:$PATH LC_ALL=C
rounds=${2-200}
[[ -x $1/bin/qelc ]] || { echo "$1/bin/qelc is not there" >&2; exit 1; }
commands=("$(type -P true)" "qelc --list" "qelc --version" "qelc --socket /nowhere mirrors" "qelc help mirrors")
times=$(mktemp -d)
trap 'rm -rf "$times"' EXIT

# run NUMBER COMMAND: its time in microseconds goes to the file of that number.
run() {
    local start=${EPOCHREALTIME/./}
    # shellcheck disable=SC2086 # words
    $2 >/dev/null 2>&1 || true
    echo $((${EPOCHREALTIME/./} - start)) >>"$times/$1"
}

for ((round = 0; round < rounds; round++)); do
    for i in "${!commands[@]}"; do
        run "$i" "${commands[i]}"
    done
done
printf '\n### Start of qelc\n\n| command | median, ms | 90 %% within, ms |\n|---|---:|---:|\n'
for i in "${!commands[@]}"; do
    sort -n "$times/$i" | awk -v name="${commands[i]##*/bin/}" '
        { time[NR] = $1 / 1000 }
        END { printf "| `%s` | %.1f | %.1f |\n", name, time[int((NR + 1) / 2)], time[int(NR * 0.9)] }'
done
