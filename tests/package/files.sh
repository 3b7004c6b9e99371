#!/bin/bash
# An installation below another prefix, and a package for RPM, have the files of Debian's packages: files.sh BUILD-FOLDER ROOT,
# the latter with what is in these.
set -euo pipefail
build=$1
root=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/opt/qelcd

# Only packages have these: what Debian wants of each, and a page under a second name.
of_debian='^share/(doc/qelc[^/]*/(changelog.*|copyright|NEWS.*|README.*|docs(/.*)?)|lintian/.*|man/man8/get_db_home.*)$'

# Below a prefix, units lie in lib/systemd/system.
(cd "$root" && find usr lib ! -type d) | sed -E -e 's,^usr/,,' -e 's/\.gz$//' | grep -vE "$of_debian" | sort >"$scratch/packaged"
cmake --install "$build" --prefix "$prefix" >/dev/null
(cd "$prefix" && find . ! -type d) | sed 's,^\./,,' | sort >"$scratch/installed"
diff "$scratch/packaged" "$scratch/installed" || { echo "FAILED: < only in packages, > only below a prefix"; exit 1; }
(cd "$build" && cpack -B "$scratch/rpm" >"$scratch/log" 2>&1) || { tail -n 30 "$scratch/log"; exit 1; }
rpm --query --list --package "$scratch"/rpm/*.rpm 2>/dev/null | sed -E -e 's,^/usr/,,' -e 's/\.gz$//' | sort >"$scratch/rpm-files"
join -v 1 "$scratch/packaged" "$scratch/rpm-files" >"$scratch/missing"
[[ ! -s $scratch/missing ]] || { echo "FAILED: not in the RPM package:"; cat "$scratch/missing"; exit 1; }
rpm2cpio "$scratch"/rpm/*.rpm | (cd "$scratch" && cpio --quiet --extract --make-directories './usr/lib/systemd/*')
grep -q '^ExecStart=/usr/sbin/qelcd$' "$scratch/usr/lib/systemd/system/qelcd.service" || { echo "FAILED: the unit of RPM"; exit 1; }
wrong=$(grep -rn -E '@s?bin@|/usr/s?bin' "$prefix/lib/systemd/system" || true)
[[ -z $wrong ]] || { echo "FAILED: a unit starts programs of another installation: $wrong"; exit 1; }
LD_LIBRARY_PATH='' "$prefix/bin/qelc" --version >/dev/null
echo "files.sh: done"
