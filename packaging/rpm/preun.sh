# The last version goes, not one for another.
[ "$1" -gt 0 ] || [ ! -d /run/systemd/system ] || systemctl disable --now qelcd.service qelcd-volumes.service qelc-manager.service
[ "$1" -gt 0 ] || rm -rf /sys/fs/bpf/qelcd
