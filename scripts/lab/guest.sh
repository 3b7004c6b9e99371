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

if [[ -n $with_systemd ]]; then
    # What this machine would start by itself has no business here.
    rm -rf /etc/systemd/system/*.wants
    # It would look through all of this machine's /tmp, over a slow line.
    ln -s /dev/null /etc/systemd/system/systemd-tmpfiles-setup.service
    cat >/etc/systemd/system/lab.service <<'END'
[Unit]
Requires=basic.target
After=basic.target
[Service]
Type=oneshot
ExecStart=/bin/bash -c 'source /run/lab/settings && source "$$checkout/scripts/lab/run.sh"'
END
    mount --make-rshared / # as it is on every host that systemd has started
    exec /lib/systemd/systemd --unit=lab.service --show-status=no --log-target=console
fi
busybox syslogd -O /var/log/messages
source "$checkout/scripts/lab/run.sh"
