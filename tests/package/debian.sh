#!/bin/bash
# Debian 12 as it comes, with a service manager and what the tests need in it: prints the path of the archive. It is kept for a
# day. Whoever needs it first fetches it, and others wait for that.
set -euo pipefail
cache=${XDG_CACHE_HOME:-$HOME/.cache}/qelcd-package
system=$cache/debian.tar
mkdir -p "$cache"
exec {lock}>"$cache/lock"
flock "$lock"
find "$cache" -name '*.tar' -mmin +1440 -delete
if [[ ! -e $system ]]; then
    echo "== fetching a minimal Debian 12" >&2
    mmdebstrap --quiet --variant=minbase --include=systemd-sysv,xfsprogs,fdisk,e2fsprogs --skip=cleanup/apt bookworm \
        "$cache/new.tar"
    mv "$cache/new.tar" "$system"
fi
echo "$system"
