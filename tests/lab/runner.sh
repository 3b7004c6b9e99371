#!/bin/bash
# The lab itself, from outside: what a script does in the guest must come out as it was.
set -euo pipefail
cd "$(dirname "$0")/../.."
script=$(mktemp "${TMPDIR:-/tmp}/lab runner.XXXXXX")
trap 'rm -f "$script"' EXIT

# expect STATUS OUTPUT OPTION... with the script on standard input
expect() {
    local status=$1 output=$2 found got=0
    shift 2
    cat >"$script"
    found=$(scripts/lab.sh "$@" "$script" 'an argument' '*' 2>&1) || got=$?
    if [[ $got != "$status" || $found != $output ]]; then
        printf 'FAILED: expected %s, %s\nfound %s, %s\n' "$status" "$output" "$got" "$found"
        exit 1
    fi
    echo "ok: exit status $status"
}

# Something that stays behind holds the line open while the last of many lines is under way.
expect 7 "an argument|*|$PWD|0|"$'\r\n\t*'"last" <<'END'
sleep 1000 &
printf '%s|' "$@" "$PWD" "$(id -u)"
printf '\r\n\t'
seq 1 20000
printf last
exit 7
END
[[ ! -e /lab-was-here ]] || { echo "FAILED: /lab-was-here exists beforehand"; exit 1; }
expect 0 "" <<<'echo trace >/lab-was-here'
[[ ! -e /lab-was-here ]] || { echo "FAILED: the guest wrote to this machine"; exit 1; }
expect 125 "*Kernel panic*died without an exit status" <<<'echo c >/proc/sysrq-trigger; sleep 1000'
expect 124 "*ended after 8 seconds" --timeout 8 <<<'sleep 1000'
