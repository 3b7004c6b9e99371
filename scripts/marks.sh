#!/bin/bash
# Takes marks of disks that are written to all the time, and looks at what the held mirrors hold.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'END'
usage: scripts/marks.sh [MARKS [KIND...]]

Takes MARKS (200) marks of each kind, in a private host, and prints a row for each; the figures are in
docs/reliability.md. Ends with status 1 if a mark was not taken, or a copy is not of one moment.

  rates  20 marks each during random writes at four rates: were they taken within 5 seconds?
  disk   four writers that number their blocks, on the disk; nothing is frozen
  ext4   the same in files, with a freeze for each mark; the copy's file system must be clean
  xfs    the same
  group  the same on two disks of a group, written to in turn: both copies must be of one moment
END
}

[[ ${1-} != -* ]] || { usage; exit 0; }
marks=${1-200}
[[ $marks =~ ^[0-9]+$ ]] || { usage >&2; exit 2; }

scripts/install-packages build test
scripts/build.sh release bench-marks freeze-guard
echo '| writers | marks | taken | wrong | taken within 5 s | longest, s | freezes | longest, ms | whole passes |'
echo '|---|---:|---:|---:|---:|---:|---:|---:|---:|'
scripts/private-host -n marks scripts/marks/host.sh "$PWD/build/release" "$marks" "${@:2}"
