# Nothing is started: whoever reaches the daemon's port is obeyed.
[ -e /etc/kavtessaron/qelcd.conf ] || /usr/bin/qelc init
[ ! -d /run/systemd/system ] || systemctl daemon-reload
[ ! -d /run/systemd/system ] || [ "$1" -lt 2 ] || systemctl try-restart qelcd.service qelc-manager.service
