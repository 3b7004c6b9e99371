#!/bin/bash
# The lab itself, from outside: what a script does in the guest must come out as it was.
set -euo pipefail
cd "$(dirname "$0")/../.."
script=$(mktemp "${TMPDIR:-/tmp}/lab runner.XXXXXX")
trap 'rm -f "$script" "$script.errors"' EXIT
[[ ! -e /lab-was-here ]] || { echo "FAILED: /lab-was-here exists beforehand"; exit 1; }

# expect STATUS OUTPUT ERRORS OPTION... with the script on standard input; ERRORS is a pattern.
expect() {
    local status=$1 output=$2 errors=$3 found got=0
    shift 3
    echo "== a script that ends with $status"
    cat >"$script"
    found=$(scripts/lab.sh "$@" "$script" 'an argument' '*' 2>"$script.errors") || got=$?
    # shellcheck disable=SC2053
    if [[ $got != "$status" || $found != "$output" || $(<"$script.errors") != $errors ]]; then
        printf 'FAILED: expected %s, %s\nfound %s, %s\n' "$status" "$output" "$got" "$found"
        cat "$script.errors"
        exit 1
    fi
}

# Something that stays behind holds the line open while the last of many lines is under way.
expect 7 "an argument|*|$PWD|0|"$'\r\n\t'"$(seq 1 20000)"$'\n'last '*' <<'END'
echo trace >/lab-was-here
sleep 1000 &
printf '%s|' "$@" "$PWD" "$(id -u)"
printf '\r\n\t'
seq 1 20000
printf last
exit 7
END
[[ ! -e /lab-was-here ]] || { echo "FAILED: the guest wrote to this machine"; exit 1; }
expect 125 "" "*Kernel panic*died without an exit status" <<<'echo c >/proc/sysrq-trigger; sleep 1000'
expect 124 "" "*ended after 2 seconds" --timeout 2 <<<'sleep 1000'
