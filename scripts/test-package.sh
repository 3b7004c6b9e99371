#!/bin/bash
# Builds the Debian packages and tests them: pages, completions, units, and the life of an installation in a
# container. From a fresh Debian machine, as root: it installs what is missing.
set -euo pipefail
cd "$(dirname "$0")/.."

# shellcheck source=scripts/readme_commands.sh
source scripts/readme_commands.sh
scratch=$(mktemp -d "${TMPDIR:-/tmp}/qelcd-packages.XXXXXX")
root=$scratch/root
trap 'wait; cat "$scratch/files" 2>/dev/null; rm -rf "$scratch"' EXIT

check_files() {
    echo "== files"
    tests/package/files.sh build/release "$root"
    echo "== pages, completions, units"
    tests/package/pages.sh "$root"
    scripts/private-host tests/package/config.sh "$root/usr/bin"
}

# What they are installed on comes over the network while the packages are compiled.
scripts/install-packages package
tests/package/debian.sh >/dev/null &
bash -ec "$first_command $*"
for package in build/package/qelc*.deb; do
    [[ $package == *-dbgsym_* ]] || dpkg-deb -x "$package" "$root"
done
scripts/build.sh release
# The installation waits most of the time.
check_files >"$scratch/files" 2>&1 &
files=$!
echo "== installation"
tests/package/install.sh build/package
wait "$files"
