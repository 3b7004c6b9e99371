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

# No disk of another test is in sight, so that nobody scans or signs it.
rm -f /dev/loop[0-9]*
mkdir "$images"
ln -s /bin/true /usr/local/sbin/iscsiadm # an initiator tool that has nothing to do
for sanitizer in ASAN TSAN UBSAN; do
    export "${sanitizer}_OPTIONS=log_path=/var/tmp/sanitizer:second_deadlock_stack=1"
done
busybox syslogd -n -O "$log" &

# --- Disks ------------------------------------------------------------------------------------------------

# attach NAME: a loop device on the image of that name.
attach() {
    attach_loop "$images/$1"
    device[$1]=$attached
}

# put_signature NAME SIGNATURE: into the image, as long as no disk is attached to it: pages of a disk that another
# test has looked at stay in the kernel's cache.
put_signature() {
    printf '%b' "\x${2:6:2}\x${2:4:2}\x${2:2:2}\x${2:0:2}" |
        dd of="$images/$1" bs=1 seek=440 conv=notrunc status=none
}

signature_of() {
    od -An -tx4 -j 440 -N 4 "$images/$1" | tr -d ' '
}

# make_image NAME MIB: blank but for a signature, which is random: loop devices belong to the whole machine.
make_image() {
    guid[$1]=$(od -An -N4 -tx4 /dev/urandom | tr -d ' ')-0000-0000-0000-000000000000
    truncate -s "$2M" "$images/$1"
    put_signature "$1" "${guid[$1]%%-*}"
}

make_mirror() {
    make_image "$@"
    attach "$1"
}

# make_source NAME MIB [LABEL]: partitioned, with random data wherever no signature of a file system may stand.
make_source() {
    make_image "$1" "$2"
    dd if=/dev/urandom of="$images/$1" bs=1M seek=1 count=$(($2 - 2)) conv=notrunc status=none
    printf 'label: %s\n,8M\n,\n' "${3-dos}" | sfdisk --quiet "$images/$1"
    put_signature "$1" "${guid[$1]%%-*}"
    cp "$images/$1" "$images/$1.expected"
    attach "$1"
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

# equal DISK MIRROR: but for the signature that the mirror keeps, and for what a larger mirror has more.
equal() {
    cmp -n 440 "$images/$1" "$images/$2" &&
        cmp -i 444 -n $(($(stat -c %s "$images/$1") - 444)) "$images/$1" "$images/$2" &&
        [[ $(signature_of "$2") == "${guid[$2]%%-*}" ]]
}

# as_written NAME: the disk holds what was written to it, and nothing else.
as_written() {
    cmp "$images/$1" "$images/$1.expected"
}

# write_page NAME: some page of the disk but the first, and of the image that is kept beside it.
write_page() {
    local page=$(((RANDOM << 15 | RANDOM) % ($(stat -c %s "$images/$1") / 4096 - 1) + 1))
    head -c 4096 /dev/urandom >/var/tmp/page
    dd if=/var/tmp/page of="${device[$1]}" bs=4096 seek="$page" oflag=direct conv=notrunc status=none
    dd if=/var/tmp/page of="$images/$1.expected" bs=4096 seek="$page" conv=notrunc status=none
}

# --- The daemon -------------------------------------------------------------------------------------------

as_manager() {
    qelc --host 127.0.0.1:9410 "$@"
}

# start_protected DISK=MIRROR...: an adopted host whose disks these mirrors protect.
start_protected() {
    local pair pairs=()
    for pair in "$@"; do
        pairs+=("${guid[${pair%=*}]}=${guid[${pair#*=}]}")
    done
    start_daemon
    standin-manager --guid "$manager_guid" --ip 127.0.0.1 >/var/log/manager &
    check_within 20 "a manager listens" grep listening /var/log/manager
    check "the manager adopts the host" as_manager add_client --guid "$manager_guid" --ip 127.0.0.1
    check "protection" as_manager protect --yes "${pairs[@]}"
}

# resync RATE DISK...: at so many bytes a second, until $state/throttle is removed.
resync() {
    local name guids=()
    echo "$1" >"$state/throttle"
    for name in "${@:2}"; do
        guids+=("${guid[$name]}")
    done
    check "resync" as_manager resync --yes "${guids[@]}"
}

worker_pid() {
    local supervisor
    supervisor=$(</var/run/qelcd.pid)
    tr -d ' ' <"/proc/$supervisor/task/$supervisor/children"
}

has_new_worker() {
    worker_pid | grep -q -v -x "$1"
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

# told NAME PATTERN: of the mirror of this disk, by the daemon and the files beside it.
told() {
    qelc --json mirrors | grep -o "\"source\":\"${guid[$1]}\"[^[]*" | grep -- "$2"
}

# told_level NAME: the mirror of this disk is level, as the manager is told.
told_level() {
    as_manager --json mirrors | grep -q "\"source\":\"${guid[$1]}\"[^[]*\"synchronised\",\"percent\":100,"
}

is_level() {
    grep -q '^sync_state Sync Finished' "$(record "$1")" && told_level "$1"
}

# says STATUS WORDS COMMAND...: it ends with that exit status, and WORDS, with single blanks, stand in what it says.
says() {
    local wanted=$1 words=$2 status=0 said
    shift 2
    said=$("$@" 2>&1 </dev/null) || status=$?
    echo "$status: $said"
    [[ $status == "$wanted" ]] && tr -s ' ' <<<"$said" | grep -F -- "$words"
}

# valid COMMAND...: the answer of qelc is one that the schema of answers allows.
valid() {
    "$@" | tee /dev/stderr | python3 -c 'import sys, json, jsonschema
jsonschema.validate(json.load(sys.stdin), json.load(open(sys.argv[1])), jsonschema.Draft202012Validator)' \
        "$here/../../tools/qelc/answer.schema.json"
}

# end_test: what every test can say at its end.
end_test() {
    check "no working process ended by itself" test \
        "$(grep -c 'Try to restart\|restart working process\.' "$log" || true)" -eq "$restarts"
    ! compgen -G '/var/tmp/sanitizer*' >/dev/null || fail "the sanitizer has something to say"
    echo "$(basename "$0"): done in $SECONDS s"
}
