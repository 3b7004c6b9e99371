#!/bin/bash
# Builds one preset: scripts/build.sh [release|debug|address|thread]. Warnings are errors.
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1-release}

scripts/install-packages build
echo "== building $preset"
cmake --preset "$preset" -DQELCD_WERROR=ON >/dev/null
cmake --build --preset "$preset"
