#!/bin/bash
# Memory that runs out, inside a private host: host.sh BUILD-FOLDER ARGUMENT..., see bench/faults.cc
set -euo pipefail
build=$(realpath "$1")
shift
export PATH=/usr/local/sbin:$PATH:/usr/sbin:/sbin:$build/bin
export QELCD_SCRIPT=/var/faults/script

# A network interface, tools that always succeed, and scripted disks and databases.
ip link add net0 type veth peer name net1
ip address add 10.77.0.1/24 dev net0
ip link set net0 up
mount -t tmpfs faults /usr/local/sbin
for tool in iscsiadm service; do
    printf '#!/bin/sh\n' >/usr/local/sbin/$tool
done
printf '#!/bin/sh\necho 1\n' >/usr/local/sbin/pgrep
printf '#!/bin/sh\necho 3\n' >/usr/local/sbin/get_db_home.sh
chmod +x /usr/local/sbin/*
mkdir -p "$QELCD_SCRIPT" /var/lib/iscsi/{ifaces,nodes/iqn.new,nodes/iqn.target}
{
    printf 'disk sda\npath /dev/sda\nsectors 4096\nstate 0\n'
    printf 'partition sda%s\nguid L%s\nfs ext4\nsize 1048576\n' 1 1 2 2 3 3 4 4 5 5
    printf 'disk m%s\npath /dev/m%s\nvendor QRZ\nmodel KAVSolution\nsectors 2048\nstate 1\n' 1 1 2 2 3 3 4 4 5 5
} >"$QELCD_SCRIPT/disks"
printf '/dev/m%s M%s\n' 1 1 2 2 3 3 4 4 5 5 >"$QELCD_SCRIPT/scsi-guids"
printf 'app db-1\ndb_type 1\noracle_home /opt/database\n' >"$QELCD_SCRIPT/apps"
for function in tw_disk_protect tw_disk_unprotect tw_disk_resync tw_disk_stop_sync kav_call_disk_markcdp \
    kav_call_grp_markcdp Kav_connect_db_flush_cfg; do
    echo "always $function 0"
done >"$QELCD_SCRIPT/results"
for function in Kav_delete_app Kav_delete_dev kavdisk_rescan_dev kav_device_probe_all; do
    echo "always $function 1"
done >>"$QELCD_SCRIPT/results"
bench-faults "$build" "$@"
