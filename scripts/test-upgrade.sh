#!/bin/bash
# Builds the packages of the version before and of this tree, and goes from one to the other and back in a container, with a
# mirror at work; then once more in a guest with a kernel of its own, while the disk is written to. From a fresh Debian machine,
# as root: it installs what is missing.
#
#   scripts/test-upgrade.sh [COMMIT]    default: the last commit of the version before; it must know the README's commands
set -euo pipefail
cd "$(dirname "$0")/.."

# shellcheck source=scripts/readme_commands.sh
source scripts/readme_commands.sh
commit=${1-}
if [[ -z $commit ]]; then
    commit=$(git log -n 1 -G '^project\(qelcd VERSION' --format='%H^' -- CMakeLists.txt)
fi
before=build/package-before
scripts/package.sh --commit "$commit" --into "$before"
scripts/package.sh
tests/package/install.sh "$before" build/package
scripts/lab.sh --systemd tests/package/upgrade.sh "$before" build/package
