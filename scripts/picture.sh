#!/bin/bash
# Takes the picture of the live view for the README, docs/top.svg, from a real run. As root: it needs loop devices.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-packages build test
scripts/build.sh release qelcd qelc standin-manager
exec scripts/private-host -n db1 scripts/picture/host.sh "$PWD/build/release" docs/top.svg
