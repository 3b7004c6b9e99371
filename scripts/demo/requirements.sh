# Whether this machine can run the demonstration. Sourced.
# shellcheck shell=bash

refuse() {
    echo "demo.sh: $*" >&2
    exit 1
}

# try WHAT COMMAND...: if the command fails, WHAT and its last message tell why there is no demonstration.
try() {
    local said
    said=$("${@:2}" 2>&1) || refuse "$1: ${said##*$'\n'}"
}

# Ends the script with one line that says what is missing. Installs nothing.
check_machine() {
    local missing
    ((EUID == 0)) || refuse "needs root, for loop devices and mounts"
    missing=$(scripts/install-packages --missing build demo)
    if [[ -n $missing ]] && ! command -v apt-get >/dev/null; then
        refuse "there is no apt-get to install what is missing: $missing"
    fi
    try "cannot make namespaces" unshare --mount --net --uts --ipc --pid --fork mount -t sysfs sysfs /sys
    command -v ip >/dev/null || return 0 # the private host needs it
    try "cannot make a private host" scripts/private-host true
    try "a private host lacks something" scripts/private-host scripts/demo/check.sh
}
