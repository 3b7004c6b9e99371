#!/bin/bash
# Snapshots of a mirror that is a file on XFS, inside the private host: host.sh BUILD-FOLDER KIND.
# shellcheck source=tests/host/host_test.sh
source "$(dirname "$0")/../../tests/host/host_test.sh"
kind=$2
mount -t bpf bpf /sys/fs/bpf

# have_xfs SIZE
have_xfs() {
    truncate -s "$1" "$images/xfs.img"
    mkfs.xfs -q "$images/xfs.img"
    attach_loop "$images/xfs.img"
    mkdir "$images/xfs"
    mount "$attached" "$images/xfs"
}

# protect_new NAME MIB: a sparse disk NAME with its mirror, which is level.
protect_new() {
    make_image "$1" "$2"
    attach "$1"
    make_mirror "xfs/$1" "$2"
    if [[ -e /var/run/qelcd.pid ]]; then
        check "protection of $1" as_manager protect --yes "${guid[$1]}=${guid[xfs/$1]}"
    else
        start_protected "$1=xfs/$1"
    fi
    check "resync of $1" as_manager resync --yes "${guid[$1]}"
    check_within 400 "$1 is level" is_level "$1"
}

rule() {
    mkdir -p /etc/kavtessaron
    echo "keep = last $1" >/etc/kavtessaron/embedded.conf
}

# put_number NUMBER: into the fourth page of the disk.
put_number() {
    printf '%-4096s' "$1" | dd of="${device[disk]}" bs=4096 seek=3 oflag=direct conv=notrunc status=none
}

clones=$images/xfs/disk.qelcd-snapshots

number_in() {
    dd if="$clones/$1" bs=4096 skip=3 count=1 status=none | tr -d ' \0'
}

names_that_are() {
    qelc --json snapshots | jq -r ".results[] | select(.state $1) | .name"
}

# are_whole: what is listed as a snapshot is one.
are_whole() {
    local name
    for name in $(names_that_are '== "ok"'); do
        [[ $(stat -c %s "$clones/$name") == "$(stat -c %s "$images/xfs/disk")" ]] || { echo "$name is half"; return 1; }
    done
}

# are_all_kept: of the snapshots in the journal, those that are newer than the oldest one in the list are listed.
are_all_kept() {
    local name listed
    listed=$(names_that_are '== "ok"')
    for name in $(sed -n 's/.* ok //p' /var/lib/kavcdpagt/journal); do
        [[ $name < ${listed%%$'\n'*} ]] || grep -qx "$name" <<<"$listed" || { echo "$name is lost"; return 1; }
    done
}

# is_tidy NUMBER: so many snapshots are listed, all of them whole, and nothing else is there.
is_tidy() {
    [[ -z $(names_that_are '!= "ok"') && $(names_that_are '== "ok"' | wc -l) == "$1" && $(ls -A "$clones" | wc -l) == "$1" ]]
}

time_kept() {
    local gib name before times
    folder=$(mktemp -d /tmp/snapshots.XXXXXX) # on the machine's disk: all else of a private host is in memory
    trap 'trap - ERR; umount --lazy "$images/xfs"; kill -KILL "${loop_holders[@]}"; rm -rf "$folder"' EXIT
    rmdir "$images"
    ln -s "$folder" "$images"
    have_xfs 30G
    for gib in 1 4 16; do
        name=disk$gib
        protect_new "$name" $((gib * 1024))
        sleep 3
        times=()
        for _ in 1 2 3 4 5 6 7 8 9 10; do
            before=$(date +%s%3N)
            as_manager snapshot --disk "${guid[$name]}" >/dev/null || fail "a snapshot of $name"
            times+=($(($(date +%s%3N) - before)))
            sleep 1
        done
        printf '%s\n' "${times[@]}" | sort -n | paste -s -d ' ' |
            awk -v gib=$gib '{ print "kept: " gib " GiB, 10 snapshots: median " $5 " ms, longest " $10 " ms" }'
    done
}

lines() { # of FILE with PATTERN
    grep -c -- "$2" "$1" || true
}

run_schedule() {
    local journal=/var/lib/kavcdpagt/journal kept refused due
    have_xfs 1G
    protect_new disk 64
    rule 20
    cp "$images/disk" "$images/disk.expected"
    while :; do
        write_page disk
        sleep 0.05
    done &
    check "a schedule" as_manager schedule set --disk "${guid[disk]}" --start "$(date -d '+2 sec' '+%F %T')" --every 1
    check_within 400 "200 snapshots were due" eval '(($(lines "$log" "CDP task .* fired") >= 200))'
    check "no more" as_manager schedule delete --disk "${guid[disk]}"
    sleep 3
    due=$(lines "$log" 'CDP task .* fired')
    kept=$(lines $journal ' ok ')
    refused=$(($(lines $journal ' failed: .') + $(lines "$log" 'is not synchronized yet, abort')))
    check "each was kept or refused with a reason" test $((kept + refused)) -eq "$due"
    check "what is listed is whole" are_whole
    check "20 are left, and nothing else" is_tidy 20
    echo "schedule: $due due, $kept kept, $refused refused, 20 left"
}

# Every snapshot that was answered is there if the rule keeps it, and holds what the disk held.
run_kills() {
    local kills=0 name number=0
    local -A held=()
    have_xfs 1G
    protect_new disk 64
    rule 5
    while ((kills < 100)); do
        put_number $((++number))
        rm -f /run/name
        as_manager snapshot --disk "${guid[disk]}" >/run/answer 2>&1 && echo done >/run/name &
        sleep 0.$((RANDOM % 6))$((RANDOM % 10))
        kill_worker >/dev/null
        kills=$((kills + 1))
        wait $! || true
        wait_for_daemon >/dev/null
        name=$(tail -n 1 /var/lib/kavcdpagt/journal | sed -n 's/.* ok //p')
        if [[ -e /run/name && -n $name ]]; then
            held[$name]=$number
        fi
        are_whole || fail "after kill $kills"
    done
    check_within 100 "the mirror is level" is_level disk
    put_number $((++number))
    check "one more snapshot" qelc snapshot --disk "${guid[disk]}"
    check "the rule once more" qelc snapshots prune
    check_within 60 "five snapshots are left, and nothing else" is_tidy 5
    check "none that the rule keeps is lost" are_all_kept
    for name in $(names_that_are '== "ok"'); do
        if [[ -n ${held[$name]-} ]]; then
            check "$name holds what the disk held" test "$(number_in "$name")" = "${held[$name]}"
        fi
    done
    echo "kills: $kills, ${#held[@]} snapshots answered, none half, none lost"
}

case $kind in
    kept) time_kept ;;
    schedule) run_schedule ;;
    kills) run_kills ;;
esac
end_test
