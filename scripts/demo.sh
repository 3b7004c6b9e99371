#!/bin/bash
# Shows the daemon at work on a private host with a few real disks. From a fresh Debian machine, as root: it
# installs what is missing. Nothing of the machine's own /etc, /var or disks is touched.
set -euo pipefail
cd "$(dirname "$0")/.."

if ((EUID != 0)); then
    echo "demo.sh: loop disks need root" >&2
    exit 1
fi
scripts/install-packages build demo
scripts/build.sh release
scripts/private-host -n demo-host scripts/demo/host.sh build/release
