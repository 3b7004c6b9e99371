#!/bin/bash
# Builds the Debian packages and tests them: pages, completions, units, and the life of an installation in a
# container. From a fresh Debian machine, as root: it installs what is missing.
set -euo pipefail
cd "$(dirname "$0")/.."

# shellcheck source=scripts/readme_commands.sh
source scripts/readme_commands.sh
bash -ec "$first_command $*"
root=$(mktemp -d "${TMPDIR:-/tmp}/qelcd-root.XXXXXX")
trap 'rm -rf "$root"' EXIT
for package in build/package/qelc*.deb; do
    [[ $package == *-dbgsym_* ]] || dpkg-deb -x "$package" "$root"
done
echo "== files"
scripts/build.sh release
tests/package/files.sh build/release "$root"
echo "== pages, completions, units"
tests/package/pages.sh "$root"
scripts/private-host tests/package/config.sh "$root/usr/bin"
echo "== installation"
tests/package/install.sh build/package
