#!/bin/bash
# Builds the project and runs its tests. From a fresh Debian machine, as root: it installs what is missing.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'END'
usage: scripts/test.sh [--no-lab] [--sanitize address|thread] [CTEST-OPTION...]

  --no-lab             without the tests that need a guest with a kernel of its own (scripts/lab.sh)
  --sanitize address   the whole build under AddressSanitizer and UndefinedBehaviorSanitizer, without the lab
  --sanitize thread    the whole build under ThreadSanitizer, likewise

Further options go to ctest, for example -R system or --rerun-failed.
END
}

preset=release
lab=(lab)
without=()
while (($# > 0)); do
    case $1 in
        -h | --help) usage; exit 0 ;;
        --no-lab)
            lab=()
            without=(--exclude-regex '^lab\.')
            shift
            ;;
        --sanitize)
            [[ ${2-} == address || ${2-} == thread ]] || { usage >&2; exit 2; }
            preset=$2
            lab=()
            shift 2
            ;;
        *) break ;;
    esac
done

scripts/install-packages build test "${lab[@]}"
scripts/build.sh "$preset"

echo "== testing $preset"
export ASAN_OPTIONS=${ASAN_OPTIONS-detect_stack_use_after_return=1:abort_on_error=0}
export UBSAN_OPTIONS=${UBSAN_OPTIONS-print_stacktrace=1}
export TSAN_OPTIONS=${TSAN_OPTIONS-halt_on_error=1:second_deadlock_stack=1}
# Most tests wait most of the time; the few that compute say so with PROCESSORS.
ctest --test-dir "build/$preset" --output-on-failure --parallel "$((2 * $(nproc)))" "${without[@]}" "$@"
