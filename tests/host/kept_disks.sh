# shellcheck shell=bash disable=SC2154
# Loop disks whose mirrors lie on a file system that can clone files. Sourced after host_test.sh.

# The loop devices over the snapshots of this host; others may have files of the same path.
kept_devices() {
    local file
    for file in "$images"/xfs/*.qelcd-snapshots/*; do
        losetup --noheadings --output NAME --associated "$file"
    done
}
# Nobody else would end what a test that fails leaves attached.
trap 'kept_devices | xargs -r losetup --detach' EXIT
grep -qw xfs /proc/filesystems || modprobe xfs 2>/dev/null || { echo "no XFS here: skipped"; exit 77; }
for tool in losetup mount; do
    ln -s "$(realpath "$here/../../scripts/loop-tool")" "/usr/local/sbin/$tool"
done
truncate -s 400M /var/tmp/xfs
mkfs.xfs -q /var/tmp/xfs
attach_loop /var/tmp/xfs
xfs_disk=$attached
mkdir "$images/xfs"
mount "$xfs_disk" "$images/xfs"
