#!/bin/bash
# Measures the daemon and prints the tables of docs/performance.md. From a fresh Debian machine, as root.
set -euo pipefail
cd "$(dirname "$0")/.."

rounds=${1-7} # turns of daemon and bare server per row
seconds=${2-1} # of each turn

scripts/install-packages build demo bench
scripts/build.sh release
scripts/private-host -n bench scripts/bench/host.sh build/release "$rounds" "$seconds"
scripts/bench/startup.sh build/release
scripts/private-host -n bench scripts/bench/schedules.sh build/release
scripts/private-host -n bench scripts/bench/mirrors.sh build/release
scripts/private-host -n bench scripts/bench/follow.sh build/release
scripts/private-host -n bench scripts/bench/restore.sh build/release
scripts/private-host -n bench scripts/bench/manager.sh build/release
