#!/bin/bash
# Adoption and release in a loop, a manager that misbehaves, and many clients: nothing may crash, hang or leak.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'END'
usage: scripts/soak.sh [--sanitize address|thread] [--storm] [SECONDS]

Runs for SECONDS (600) in a private host and prints what the working process held before and after. Ends with status 1
if it crashed, left a client without an answer, or held more than before. The figures are in docs/reliability.md.

  --storm   instead: every command from 32 clients, while platform libraries fail and stall at random and timers fire;
            prints how often each status was answered
END
}

preset=release
storm=
while (($# > 0)); do
    case $1 in
        -h | --help) usage; exit 0 ;;
        --sanitize)
            [[ ${2-} == address || ${2-} == thread ]] || { usage >&2; exit 2; }
            preset=$2
            shift 2
            ;;
        --storm)
            storm=yes
            shift
            ;;
        *) break ;;
    esac
done
seconds=${1-600}
[[ $seconds =~ ^[0-9]+$ ]] || { usage >&2; exit 2; }

scripts/install-packages build demo
scripts/build.sh "$preset"
if [[ -n $storm ]]; then
    export QELCD_STORM_SECONDS=$seconds
    export TSAN_OPTIONS=${TSAN_OPTIONS-halt_on_error=1:second_deadlock_stack=1}
    exec scripts/private-host -n soak-host "build/$preset/bin/storm-tests"
fi
scripts/private-host -n soak-host scripts/soak/host.sh "build/$preset" "$seconds"
