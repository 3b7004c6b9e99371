# Loop devices of a private host. Sourced.
# shellcheck shell=bash disable=SC2034

loop_holders=()

# attach_loop FILE [LOSETUP-OPTION...]: a loop device on that file; its path in $attached. It is detached at once, and
# exists as long as a process in $loop_holders holds it open: so it ends with the private host, whatever ends that.
attach_loop() {
    local path held attempt
    for attempt in {1..100}; do # another process may take this one first
        path=$(losetup --find)
        # A private host has its own /dev, without nodes of devices that are new since it started.
        [[ -e $path ]] || mknod -m 600 "$path" b 7 "${path#/dev/loop}"
        losetup "${@:2}" "$path" "$1" 2>/dev/null && break
        rm -f "$path"
        ((attempt < 100)) || { echo "no loop device for $1" >&2; return 1; }
        sleep 0.1
    done
    # A former user of this device may have been killed before it removed its partitions.
    partx --delete "$path" 2>/dev/null || true
    exec {held}<"$path"
    losetup --detach "$path"
    sleep infinity <&"$held" >/dev/null 2>&1 &
    loop_holders+=($!)
    disown
    exec {held}<&-
    attached=$path
}
