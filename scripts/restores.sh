#!/bin/bash
# Restores a disk again and again, and compares it with what it held at the moment of the snapshot.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'END'
usage: scripts/restores.sh [--kill] [N]

N (20) times, in a private host: numbered blocks are written to random places of a disk, a snapshot is taken, other blocks
are written over them, the snapshot is restored, and the whole disk is compared. Prints how many were equal; the figures
are in docs/reliability.md. Ends with status 1 if one was not.

  --kill   some restores are killed up to four times at random moments, and go on
END
}

kill=
[[ ${1-} != -h && ${1-} != --help ]] || { usage; exit 0; }
if [[ ${1-} == --kill ]]; then
    kill=kill
    shift
fi
times=${1-20}
[[ $times =~ ^[0-9]+$ ]] || { usage >&2; exit 2; }

scripts/install-packages build test
scripts/build.sh release
scripts/private-host -n restores scripts/restores/host.sh "$PWD/build/release" "$times" $kill
