#!/bin/bash
# Checks the layout of the sources, and with --tidy also runs clang-tidy over the release build.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-packages lint
echo "== clang-format"
git ls-files '*.c' '*.cc' '*.h' | xargs clang-format --dry-run --Werror

if [[ ${1-} == --tidy ]]; then
    scripts/install-packages build
    cmake --preset release -DQELCD_WERROR=ON >/dev/null
    echo "== clang-tidy"
    mkdir -p build/tidy # the compile commands without options that only g++ knows
    sed 's/ -mno-direct-extern-access//' build/release/compile_commands.json >build/tidy/compile_commands.json
    git ls-files 'base/*.cc' 'client/*.cc' 'commands/*.cc' 'config/*.cc' 'daemon/*.cc' 'iscsi/*.cc' 'jobs/*.cc' 'platform/*.cc' \
        'protocol/*.cc' 'requests/*.cc' 'tools/*.cc' |
        xargs -n 4 -P "$(nproc)" clang-tidy -p build/tidy --quiet
fi
