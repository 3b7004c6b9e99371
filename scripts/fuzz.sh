#!/bin/bash
# Fuzzes the readers of the project with libFuzzer; the targets are in tests/fuzz.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<END
usage: scripts/fuzz.sh [-h] [-r RUNS] [TARGET [SECONDS]]

Runs each target, or only TARGET, for SECONDS (60), or until it has run RUNS times (10000000), whichever comes first.
Prints a line per target. A target stops at its first finding, and the status is then 1.

Inputs that reach new code are kept in build/fuzz/corpus, findings in build/fuzz/findings: the input, and beside it
a file .txt with what the sanitizers said. To see one again:

    scripts/private-host build/fuzz/bin/fuzz-TARGET INPUT

  -r RUNS  0: no limit
  -h       show this help and exit

targets: $(targets | xargs)
END
}

targets() {
    sed -n 's/^qelcd_fuzz_target(\([a-z]*\).*/\1/p' tests/fuzz/CMakeLists.txt
}

runs=10000000
while getopts :hr: option; do
    case $option in
        h) usage; exit 0 ;;
        r) runs=$OPTARG ;;
        *) usage >&2; exit 2 ;;
    esac
done
shift $((OPTIND - 1))
wanted=${1-$(targets)}
seconds=${2-60}
[[ $runs =~ ^[0-9]+$ && $seconds =~ ^[0-9]+$ && $# -le 2 ]] || { usage >&2; exit 2; }
targets | grep -qxF -- "${wanted%%$'\n'*}" || { usage >&2; exit 2; }

scripts/install-packages build fuzz
echo "== building fuzz"
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target fuzz

# The words of the corpus are libFuzzer's dictionary: it cannot see into libxml2, which compares names.
write_dictionary() {
    grep -ahoE '[A-Za-z_]{3,}' "tests/fuzz/corpus/$1"/* | sort -u | sed 's/.*/"&"/' >"$2" || true
}

# The most bytes of an input: long ones only make the runs slow, but those of the corpus must fit.
longest_input() {
    stat -c %s "tests/fuzz/corpus/$1"/* | sort -n | awk '{ longest = $1 } END { print (longest > 1024 ? longest : 1024) }'
}

# The number that libFuzzer prints after NAME, the last time.
last_number() {
    grep -aoE "$1:? +[0-9]+" "$2" | tail -n 1 | grep -oE '[0-9]+$' || echo 0
}

# Prints the first lines that tell where a finding is, in one line.
where() {
    grep -aE '^does not hold|^SUMMARY|runtime error' "$1" | head -n 2 | tr '\n' ' '
}

# Returns 1 after a finding.
run_target() {
    local target=$1 kept=build/fuzz/corpus/$1 findings=build/fuzz/findings/$1 log=build/fuzz/$1.log
    mkdir -p "$kept" "$findings"
    write_dictionary "$target" "build/fuzz/$target.dict"
    local limit=()
    ((runs == 0)) || limit=(-runs="$runs")
    local options=(-max_total_time="$seconds" "${limit[@]}" -timeout=20 -max_len="$(longest_input "$target")" -print_final_stats=1
        -artifact_prefix="$findings/" -dict="build/fuzz/$target.dict" "$kept" "tests/fuzz/corpus/$target")
    local status=0 cpu
    local TIMEFORMAT='%U %S'
    cpu=$({ time nice -n 19 scripts/private-host "build/fuzz/bin/fuzz-$target" "${options[@]}" >"$log" 2>&1; } 2>&1) || status=$?
    awk -v name="$target" -v runs="$(last_number stat::number_of_executed_units "$log")" \
        -v edges="$(last_number cov "$log")" -v found=$((status != 0)) -v cpu="$cpu" \
        'BEGIN { split(cpu, part, " "); used = part[1] + part[2]
                 printf "%-10s %10d %10d %11.0f %6d %9d\n", name, runs, (used > 0 ? runs / used : 0), used, edges, found }'
    ((status != 0)) || return 0
    local input
    input=$(grep -aoE "$findings/[a-z]+-[0-9a-f]+" "$log" | tail -n 1)
    cp "$log" "${input:-$findings/no-input}.txt"
    echo "  ${input:-$log}: $(where "$log")"
    return 1
}

echo "target     executions   per CPU s CPU seconds  edges  findings"
status=0
for target in $wanted; do
    run_target "$target" || status=1
done
exit "$status"
