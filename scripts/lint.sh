#!/bin/bash
# Checks the layout of the sources, and with --tidy also runs clang-tidy over the release build.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-packages lint
echo "== clang-format"
git ls-files '*.cc' '*.h' | xargs clang-format --dry-run --Werror

if [[ ${1-} == --tidy ]]; then
    scripts/install-packages build
    cmake --preset release -DQELCD_WERROR=ON >/dev/null
    echo "== clang-tidy"
    git ls-files 'base/*.cc' 'client/*.cc' 'commands/*.cc' 'config/*.cc' 'daemon/*.cc' 'jobs/*.cc' 'platform/*.cc' \
        'protocol/*.cc' 'requests/*.cc' 'tools/*.cc' |
        xargs -n 4 -P "$(nproc)" clang-tidy -p build/release --quiet
fi
