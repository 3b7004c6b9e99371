#!/bin/bash
# The packages on a host of their own, a container with systemd on a minimal Debian 12: installation, start,
# mirror, snapshot, upgrade and back, a boot, removal. install.sh FOLDER-WITH-PACKAGES [FOLDER-WITH-LATER-ONES]
# In the environment: COMMANDS, those of the README after the one that builds the packages, one a line.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd -P)
daemon=$(readlink -f "$1"/qelcd_*.deb)
manager=$(readlink -f "$1"/qelc-manager_*.deb)
later=${2-}
((EUID == 0)) || { echo "Containers need root." >&2; exit 1; }
work=$(mktemp -d /var/tmp/qelcd-install.XXXXXX)
root=$work/root

trap 'rm -rf --one-file-system "$work"' EXIT

# Loop devices belong to the whole machine, and outlast the container. Its last act is to list its own: those over files on
# others must go first.
end_devices() {
    local device again
    for again in 1 2; do
        while read -r device; do
            losetup --detach "$device" 2>/dev/null || true
        done <"$root/packages/devices"
        sleep 0.2
    done
}

# The host of the packages. It has no network, so what they depend on is fetched before.
make_system() {
    local archive
    archive=$("$here/debian.sh")
    mkdir "$root"
    tar -C "$root" -xf "$archive"
    mkdir -p "$root/packages/clone/build/package"
    cp "$daemon" "$manager" "$root/packages"
    cp "$daemon" "$manager" "$root/packages/clone/build/package"
    chroot "$root" sh -c 'apt-get install -qq --download-only --no-install-recommends -o Acquire::Retries=3 /packages/*.deb' >/dev/null
    printf '%s\n' "${COMMANDS:?}" >"$root/packages/commands"
    # Nobody is there to answer, and there is no network to get more from than what is needed.
    printf '%s\n' 'APT::Get::Assume-Yes "true";' 'APT::Install-Recommends "false";' >"$root/etc/apt/apt.conf.d/90test"
}

# A later version: the one that was given, or the same files under a higher number, as far as dpkg can see.
make_upgrade() {
    if [[ -n $later ]]; then
        mkdir "$root/packages/next"
        cp "$later"/qelcd_*.deb "$later"/qelc-manager_*.deb "$root/packages/next"
        return
    fi
    local package=$1 changed=$work/upgrade
    dpkg-deb -R "$package" "$changed"
    sed -i 's/^Version: .*/&+next/; s/(= \([^)]*\))/(= \1+next)/' "$changed/DEBIAN/control"
    mkdir -p "$root/packages/next"
    dpkg-deb --root-owner-group -b "$changed" "$root/packages/next/${package##*/}" >/dev/null
    rm -r "$changed"
}

# boot PHASE: runs this phase of guest.sh in the booted container; ends with its status.
boot() {
    local status=0
    echo "== boot: $1"
    echo "$1" >"$root/packages/phase"
    rm -f "$root/packages/"{status,output}
    SYSTEMD_NSPAWN_API_VFS_WRITABLE=yes timeout 280 systemd-nspawn --quiet --keep-unit --register=no --machine=qelcd-test \
        --directory="$root" --private-network --capability=all --system-call-filter=bpf --bind=/dev/loop-control \
        --console=pipe --boot </dev/null >"$work/console" 2>&1 || true
    end_devices # as a host that goes down takes them with it
    cat "$root/packages/output"
    status=$(<"$root/packages/status") || { tail -n 50 "$work/console"; status=1; }
    return "$status"
}

make_system
cp "$here/guest.sh" "$root/packages/guest.sh"
mkdir -p "$root/etc/systemd/system/local-fs.target.wants"
cp "$here"/*.service "$root/etc/systemd/system/"
ln -s ../package-test.service "$root/etc/systemd/system/multi-user.target.wants/"
ln -s ../devices.service "$root/etc/systemd/system/local-fs.target.wants/"
make_upgrade "$daemon"
boot first
boot second
echo "install.sh: done in $SECONDS s"
