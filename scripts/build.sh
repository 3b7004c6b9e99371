#!/bin/bash
# Builds one preset, or only some targets of it: scripts/build.sh [release|debug|address|thread [TARGET...]].
# Warnings are errors.
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1-release}
targets=("${@:2}")

scripts/install-packages build
echo "== building $preset"
cmake --preset "$preset" -DQELCD_WERROR=ON >/dev/null
cmake --build --preset "$preset" ${targets:+--target "${targets[@]}"}
