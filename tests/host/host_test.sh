# shellcheck shell=bash
# The shipped daemon with its embedded libraries, on loop disks of a private host's own. Sourced by a test that
# is called with the build folder.
here=$(dirname "${BASH_SOURCE[0]}")
# shellcheck source=tests/lab/lab_test.sh
source "$here/../lab/lab_test.sh"
# shellcheck source=scripts/loop_disk.sh
source "$here/../../scripts/loop_disk.sh"
[[ -e /run/private-host ]] || { echo "Run this in scripts/private-host." >&2; exit 1; }
[[ $(</proc/self/uid_map) =~ ^\ *0\ +0\  ]] || { echo "Loop disks need root: skipped."; exit 77; }
PATH+=:/usr/sbin:/sbin
state=/var/lib/twinvault
images=/var/disks
restarts=0 # of the working process, as the test wants them
declare -A guid device sum

# Of other tests' disks nothing is in sight, so that nobody scans what is not his.
rm -f /dev/loop[0-9]*
mkdir "$images"
mount -t tmpfs host-test /usr/local/sbin # an initiator tool that has nothing to do
ln -s /bin/true /usr/local/sbin/iscsiadm
for sanitizer in ASAN TSAN UBSAN; do
    export "${sanitizer}_OPTIONS=log_path=/var/tmp/sanitizer:second_deadlock_stack=1"
done
busybox syslogd -n -O "$log" &

fail() {
    trap - ERR
    printf 'FAILED: %s\n' "$*"
    losetup 2>&1 || true
    ls -l /dev/loop* || true
    qelc disks 2>&1 || true
    tail -n +1 "$state"/*.mirror* /var/tmp/sanitizer* 2>/dev/null || true
    grep -v '\.info\|DBOEM' "$log" | tail -n 60 || true
    grep -v 'DBOEM\|Received command' "$log" | tail -n 30 || true
    exit 1
}

# --- Disks ------------------------------------------------------------------------------------------------

# attach NAME: a loop device on the image of that name.
attach() {
    attach_loop "$images/$1"
    device[$1]=$attached
}

# Not from RANDOM: two subshells may begin with the same number.
draw_signature() {
    od -An -N4 -tx4 /dev/urandom | tr -d ' '
}

# put_signature NAME SIGNATURE: into the image, as long as no disk is attached to it: pages of a disk that another
# test has looked at stay in the kernel's cache.
put_signature() {
    printf '%b' "\x${2:6:2}\x${2:4:2}\x${2:2:2}\x${2:0:2}" |
        dd of="$images/$1" bs=1 seek=440 conv=notrunc status=none
}

# fill_source NAME MIB: partitioned, with something everywhere else but where signatures of file systems stand.
fill_source() {
    local signature
    signature=$(draw_signature)
    truncate -s "$2M" "$images/$1"
    dd if=/dev/urandom of="$images/$1" bs=1M seek=1 count=$(($2 - 2)) conv=notrunc status=none
    printf 'label: dos\nlabel-id: 0x%s\n,\n' "$signature" | sfdisk --quiet "$images/$1"
    guid[$1]=$signature-0000-0000-0000-000000000000
}

make_source() {
    fill_source "$@"
    attach "$1"
}

# make_mirror NAME MIB: blank but for its signature.
make_mirror() {
    local signature
    signature=$(draw_signature)
    truncate -s "$2M" "$images/$1"
    put_signature "$1" "$signature"
    guid[$1]=$signature-0000-0000-0000-000000000000
    attach "$1"
}

make_bystanders() {
    truncate -s 32M "$images"/by-{ext4,swap}
    mkfs.ext4 -q "$images/by-ext4"
    mkswap -q "$images/by-swap" 2>/dev/null || mkswap "$images/by-swap" >/dev/null
    attach by-ext4
    attach by-swap
    make_source by-mbr 16
    remember by-ext4 by-swap by-mbr
}

remember() {
    local name
    for name in "$@"; do
        sum[$name]=$(md5sum <"$images/$name")
    done
}

# unchanged NAME...: since they were remembered.
unchanged() {
    local name
    for name in "$@"; do
        [[ $(md5sum <"$images/$name") == "${sum[$name]}" ]] || { echo "$name has changed"; return 1; }
    done
}

# equal DISK MIRROR: but for the signature that the mirror keeps.
equal() {
    cmp -n 440 "$images/$1" "$images/$2" && cmp -i 444 "$images/$1" "$images/$2" &&
        [[ $(signature_of "$2") == "${guid[$2]%%-*}" ]]
}

signature_of() {
    od -An -tx4 -j 440 -N 4 "$images/$1" | tr -d ' '
}

# write_page NAME: some page of the disk but the first, and of the image that is kept beside it.
write_page() {
    local page=$(((RANDOM << 15 | RANDOM) % ($(stat -c %s "$images/$1") / 4096 - 1) + 1))
    head -c 4096 /dev/urandom >/var/tmp/page
    dd if=/var/tmp/page of="${device[$1]}" bs=4096 seek="$page" oflag=direct conv=notrunc status=none
    dd if=/var/tmp/page of="$images/$1.expected" bs=4096 seek="$page" conv=notrunc status=none
}

# write_now_and_then NAME: until there is a file /var/tmp/quiet.
write_now_and_then() {
    while [[ ! -e /var/tmp/quiet ]]; do
        write_page "$1"
        sleep "0.$((RANDOM % 10))"
    done
}

bytes_written() {
    local counts
    read -r -a counts <"/sys/block/${device[$1]#/dev/}/stat"
    echo $((counts[6] * 512))
}

# --- The daemon -------------------------------------------------------------------------------------------

as_manager() {
    qelc --host 127.0.0.1:9410 "$@"
}

adopt() {
    standin-manager --guid "$manager_guid" --ip 127.0.0.1 >/var/log/manager &
    check_within 20 "a manager listens" grep listening /var/log/manager
    check "the manager adopts the host" as_manager add_client --guid "$manager_guid" --ip 127.0.0.1
}

worker_pid() {
    local supervisor
    supervisor=$(</var/run/qelcd.pid)
    tr -d ' ' <"/proc/$supervisor/task/$supervisor/children"
}

has_new_worker() {
    local worker
    worker=$(worker_pid)
    [[ -n $worker && $worker != "$1" ]]
}

kill_worker() {
    local worker
    worker=$(worker_pid)
    kill -KILL "$worker"
    restarts=$((restarts + 1))
    check_within 20 "a new working process" has_new_worker "$worker"
}

stop_daemon() {
    local supervisor
    supervisor=$(</var/run/qelcd.pid)
    kill "$supervisor"
    check_within 20 "the daemon has stopped" test ! -e "/proc/$supervisor"
}

start_again() {
    qelcd
    wait_for_daemon
}

record() {
    echo "$state/${guid[$1]}.mirror"
}

# position NAME: how far the copy of the disk has been saved.
position() {
    sed -n 's/^position //p' "$(record "$1")"
}

# told NAME: the line of this disk's mirror, as the manager is told.
told() {
    as_manager mirrors | grep -F -- "${guid[$1]}"
}

not_told() {
    as_manager mirrors >/var/tmp/mirrors && ! grep -F -- "${guid[$1]}" /var/tmp/mirrors
}

percent() {
    told "$1" | sed -n 's/.* \([0-9]*\) %.*/\1/p'
}

is_level() {
    grep -q '^sync_state Sync Finished' "$(record "$1")" && told "$1" | grep -q 'synchronised *100 %'
}

# What is in the log from here on.
clear_log() {
    cat "$log" >>"$log.former"
    : >"$log"
}

# end_test: what every test can say at its end.
end_test() {
    clear_log
    check "no working process ended by itself" test \
        "$(grep -c 'Try to restart\|restart working process\.' "$log.former" || true)" -eq "$restarts"
    ! compgen -G '/var/tmp/sanitizer*' >/dev/null || fail "the sanitizer has something to say"
    echo "$(basename "$0"): done in $SECONDS s"
}
