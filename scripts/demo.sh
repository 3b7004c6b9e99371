#!/bin/bash
# Shows the daemon at work in a private host with real disks. From a fresh Debian machine, as root: it installs
# the packages that are missing. It leaves the machine's own /etc, /var and disks alone.
set -euo pipefail
cd "$(dirname "$0")/.."
export PATH=$PATH:/usr/sbin:/sbin
# shellcheck source=scripts/demo/requirements.sh
source scripts/demo/requirements.sh

echo "== checking whether this machine can run the demonstration"
check_machine
cat <<'END'

This shows qelcd on a host of its own: a private host with its own processes,
/etc, /var and network, and three small disks (loop devices on files in memory).
You will see
  - a manager that scans and adopts the host, and takes its heartbeats;
  - a disk that is protected, and a first copy that goes on after kill -9;
  - a snapshot, which a keeper keeps;
  - a mirror that is level again and again under a writer that never pauses;
  - a file that is deleted, and found in the snapshot; the disk restored from it;
  - the release of the host, and disk and mirror compared byte for byte.

Not touched: this machine's own /etc, /var, network and disks. Debian packages
that are missing are installed, and the build goes to build/release: about two
minutes on two quiet processors. The demonstration then takes half a minute.

END
scripts/install-packages build demo
check_machine # once more, with all tools
scripts/build.sh release qelcd qelc standin-manager
exec scripts/private-host -n demo-host scripts/demo/host.sh build/release
