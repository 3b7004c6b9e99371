# Loop devices of a private host. Sourced.
# shellcheck shell=bash disable=SC2034

loop_holders=()

# attach_loop FILE [LOSETUP-OPTION...]: a loop device on that file; its path in $attached. It is detached at once and
# stays for as long as somebody holds it open: a process in $loop_holders, so that it goes with the private host,
# whatever ends that.
attach_loop() {
    local path held attempt
    for attempt in {1..100}; do # somebody else may be faster
        path=$(losetup --find)
        # A private host has its own /dev, with no node of a device that nobody had before.
        [[ -e $path ]] || mknod -m 600 "$path" b 7 "${path#/dev/loop}"
        losetup "${@:2}" "$path" "$1" 2>/dev/null && break
        rm -f "$path"
        ((attempt < 100)) || { echo "no loop device for $1" >&2; return 1; }
        sleep 0.1
    done
    # Partitions may stay behind that somebody else added to this device and did not live to remove.
    partx --delete "$path" 2>/dev/null || true
    exec {held}<"$path"
    losetup --detach "$path"
    sleep infinity <&"$held" >/dev/null 2>&1 &
    loop_holders+=($!)
    disown
    exec {held}<&-
    attached=$path
}
