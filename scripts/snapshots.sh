#!/bin/bash
# How long a snapshot takes to be kept, and whether schedules, rules and kills leave what they should.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'END'
usage: scripts/snapshots.sh [KIND...]

Snapshots by the installed keeper of clones, in a private host with XFS; the figures are in docs/reliability.md. Ends with
status 1 if a snapshot is lost, half or wrong.

  kept      from the request to the name of the snapshot, for mirrors of 1, 4 and 16 GiB; needs 45 GB of disk
  schedule  200 scheduled snapshots of a disk that is written to, of which a rule keeps 20
  kills     100 kills of the working process while snapshots are taken and removed
END
}

kinds=(kept schedule kills)
if (($# > 0)); then kinds=("$@"); fi
for kind in "${kinds[@]}"; do
    [[ $kind =~ ^(kept|schedule|kills)$ ]] || { usage; exit $(($# == 1 && ${#1} == 2 ? 0 : 2)); }
done

scripts/install-packages build test bench
scripts/build.sh release qelcd qelc standin-manager
for kind in "${kinds[@]}"; do
    scripts/private-host -n snapshots scripts/snapshots/host.sh "$PWD/build/release" "$kind"
done
