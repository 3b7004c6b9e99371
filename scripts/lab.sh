#!/bin/bash
# Runs a script in a guest that has what a build machine may lack: a kernel with iSCSI, SCSI disks, device
# mapper and md. Nothing of this machine is changed.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd -P)
checkout=$(dirname "$here")

usage() {
    cat <<'END'
usage: scripts/lab.sh [-h] [--systemd] [--timeout SECONDS] SCRIPT [ARGUMENT...]

Runs SCRIPT with bash, as root, in a QEMU guest, prints its output and ends with its exit status.

The guest has Debian's generic kernel and this machine's own files, read-only below a layer that is thrown
away; so this checkout is where it is outside, and so is the working folder. It has one processor, 1 GiB of
memory, and no network but the loopback interface. The kernel is fetched once, into
${XDG_CACHE_HOME:-~/.cache}/qelcd-lab.

  --systemd          systemd and udev run in the guest, and SCRIPT as a service
  --timeout SECONDS  the guest is ended after so long, with exit status 124; 300 when not given
  -h, --help         show this help and exit

Exit status 125: the guest did not come up, or died before the script ended; what its kernel said is shown.
END
}

time_limit=300
with_systemd=
while [[ ${1-} == -* ]]; do
    case $1 in
        -h | --help) usage; exit 0 ;;
        --systemd)
            with_systemd=yes
            shift
            ;;
        --timeout)
            [[ ${2-} =~ ^[1-9][0-9]*$ ]] || { usage >&2; exit 2; }
            time_limit=$2
            shift 2
            ;;
        *) usage >&2; exit 2 ;;
    esac
done
if (($# == 0)); then
    usage >&2
    exit 2
fi
if [[ ! -r $1 || -d $1 ]]; then
    echo "lab.sh: $1: no such script" >&2
    exit 2
fi

export PATH=$PATH:/usr/sbin:/sbin
# shellcheck source=scripts/lab/kernel.sh
source "$here/lab/kernel.sh"
prepare_machine

# The guest's way out: its settings go in, its exit status and the kernel's messages come back.
share=$(mktemp -d "${TMPDIR:-/tmp}/qelcd-lab.XXXXXX")
trap 'rm -rf "$share"' EXIT
folder=$PWD
command=("$@")
declare -p checkout kernel_folder folder command with_systemd >"$share/settings"
make_first_folder "$here/lab/init" "$share/initramfs"

# /dev/kvm proves nothing: on nested machines it opens and the guest then hangs. So the processor is always
# emulated. Whoever kills this script kills the guest as well: each process dies with its parent.
machine=(
    -accel "tcg,thread=multi" -machine q35 -cpu max -smp 1 -m 1024 -nodefaults -display none -no-reboot
    -kernel "$kernel_folder/vmlinux" -initrd "$share/initramfs" -append "quiet panic=-1 console=ttyS0"
    -virtfs "local,path=/,mount_tag=machine,security_model=none,readonly=on,multidevs=remap"
    -virtfs "local,path=$share,mount_tag=share,security_model=none"
    -serial "file:$share/console" -chardev "stdio,id=output,signal=off" -serial chardev:output
    -device "isa-debug-exit,iobase=0xf4,iosize=1"
)
ended=0
setpriv --pdeathsig KILL timeout --foreground --kill-after 5 "$time_limit" \
    setpriv --pdeathsig KILL qemu-system-x86_64 "${machine[@]}" </dev/null || ended=$?

if [[ -s $share/status ]]; then
    exit "$(<"$share/status")"
fi
[[ ! -s $share/console ]] || sed 's/^/lab.sh: console: /' "$share/console" >&2
if ((ended == 124 || ended == 137)); then
    echo "lab.sh: the guest was ended after $time_limit seconds" >&2
    exit 124
fi
echo "lab.sh: the guest died without an exit status" >&2
exit 125
