#!/bin/bash
# Builds the Debian packages qelcd and qelc-manager from the tree, into build/package. From a fresh Debian
# machine, as root: it installs what is missing.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'END'
usage: scripts/package.sh [--twice] [--commit COMMIT] [--into FOLDER]

  --twice          builds a second time, in another folder, and compares: the packages must be equal byte for byte
  --commit COMMIT  the tree of that commit, not the one that lies here
  --into FOLDER    another one than build/package; what is in it goes
END
}

twice=
commit=
out=$PWD/build/package
while (($# > 0)); do
    case $1 in
        --twice) twice=yes ;;
        --commit) commit=${2-} && shift ;;
        --into) out=$(realpath -m "${2:?}") && shift ;;
        -h | --help) usage; exit 0 ;;
        *) usage >&2; exit 2 ;;
    esac
    shift
done

work=$PWD/build/package-work # always the same path, for those who build with ccache
rm -rf "$work"
trap 'rm -rf "$work"' EXIT

# changelog TREE: Debian's, from CHANGELOG.md; its date makes that of all files in the packages.
changelog() {
    local version maintainer date
    version=$(sed -n 's/^project(qelcd VERSION \([0-9.]*\).*/\1/p' "$1/CMakeLists.txt")
    maintainer=$(sed -n 's/^Maintainer: //p' "$1/packaging/debian/control")
    date=$(sed -n "s/^## $version (\(.*\))\$/\1/p" "$1/CHANGELOG.md")
    [[ -n $date ]] || { echo "package.sh: CHANGELOG.md has no section \"## $version (DATE)\"" >&2; exit 1; }
    printf 'qelcd (%s) unstable; urgency=medium\n\n' "$version"
    awk -v head="## $version " '/^## / { inside = index($0, head) == 1; next } inside && NF' "$1/CHANGELOG.md" |
        sed 's/^- /* /' | fold -s -w 74 | sed -e 's/^\* /  * /' -e t -e 's/^ */    /' -e 's/ *$//'
    printf '\n -- %s  %s\n' "$maintainer" "$(LC_ALL=C date --utc --date "$date" '+%a, %d %b %Y %H:%M:%S +0000')"
}

# build FOLDER: the packages, from a clean copy of the tree in that folder.
build() {
    local tree=$1/qelcd
    mkdir -p "$tree"
    if [[ -n $commit ]]; then
        git archive "$commit" | tar -x -C "$tree"
    else
        git ls-files -z --cached --others --exclude-standard | tar -c --null --ignore-failed-read -T - | tar -x -C "$tree"
    fi
    cp -r "$tree/packaging/debian" "$tree/debian"
    changelog "$tree" >"$tree/debian/changelog"
    (cd "$tree" && dpkg-buildpackage --build=binary --no-sign --jobs="$(nproc)") >"$1/log" 2>&1 ||
        { tail -n 50 "$1/log" >&2; exit 1; }
}

scripts/install-packages build package
echo "== building the packages"
build "$work/first"
rm -rf "$out"
mkdir -p "$out"
cp "$work"/first/*.deb "$out"
echo "== lintian"
lintian --allow-root --fail-on error,warning "$out"/*.deb
if [[ -n $twice ]]; then
    echo "== building them again"
    build "$work/another-folder"
    for file in "$work"/first/*.deb; do
        cmp "$file" "$work/another-folder/${file##*/}"
    done
    echo "equal byte for byte"
fi
ls -l "$out"
