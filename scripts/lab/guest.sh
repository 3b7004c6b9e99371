# What the guest's first process does on the machine's files: makes a host of it, runs the script, and ends.
# Sourced, with the settings of the run: checkout, kernel_folder, folder, command.

umask 022
export PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C TERM=dumb

mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t bpf bpf /sys/fs/bpf
mount -t devtmpfs devtmpfs /dev
mkdir -p /dev/pts /dev/shm /run/lock
mount -t devpts devpts /dev/pts
mount -t tmpfs -o mode=1777 shm /dev/shm

stty -F /dev/ttyS1 raw -echo
exec </dev/null >/dev/ttyS1 2>&1

# The machine's own state must not shine through, nor what its owner may not read stand in the way.
for entry in /etc/iscsi /etc/kavtessaron /var/lib/iscsi /var/log /var/tmp; do
    mkdir -p "$entry"
    mount -t tmpfs lab "$entry"
done
chmod 1777 /var/tmp

mkdir -p /lib/modules
mount --bind "$kernel_folder/lib/modules" /lib/modules
hostname lab-guest
echo '127.0.0.1 localhost lab-guest' >/etc/hosts
ip link set lo up

busybox syslogd -O /var/log/messages

status=0
{ cd "$folder" && bash "${command[@]}"; } || status=$?
echo "$status" >/run/lab/status
sync
# Waits until the last byte of output has left, for what the script left running may still hold the line open;
# then writes to the port that ends QEMU at once.
stty -F /dev/ttyS1 raw -echo
exec >/dev/null 2>&1
printf '\0' | dd of=/dev/port bs=1 seek=$((0xf4)) conv=notrunc
