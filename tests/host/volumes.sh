#!/bin/bash
# Mirrors on volumes of the host: made, protected, shown again after a boot, removed. volumes.sh BUILD-FOLDER, in a
# private host.
# shellcheck source=tests/host/host_test.sh
source "$(dirname "$0")/host_test.sh"
folder=$images/mirrors-$RANDOM$RANDOM # losetup shows those of tests beside this one, too

# The loop devices of this test.
our_devices() {
    losetup | grep -F "$folder/"
}

# Nobody else would end them. Loop devices belong to the whole machine: only those over these very files.
end_devices() {
    local file
    for file in "$folder"/*.img; do
        losetup --noheadings --output NAME --associated "$file" | xargs -r losetup --detach
    done
}
trap end_devices EXIT

# A file system that outlasts a boot, and one that does not.
truncate -s 100M "$images/system"
mkfs.ext4 -q "$images/system"
attach system
mkdir "$folder"
mount "${device[system]}" "$folder"

# create NAME SOURCE: a volume for that disk; it gets its place among the mirrors of the test.
create() {
    qelc --json volume create --like "$2" --in "$folder" --name "$1" >/var/tmp/made
    device[$1]=$(grep -o '/dev/loop[0-9]*' /var/tmp/made)
    guid[$1]=$(grep -o '"guid":"[^"]*' /var/tmp/made | cut -d '"' -f 4)
    ln -sf "$folder/$1.img" "$images/$1"
}

# listed NAME PATTERN: of the volume, in the list of volumes.
listed() {
    qelc --json volumes | grep -o "\"name\":\"$1\"[^}]*" | grep -- "$2"
}

# refused WORDS COMMAND...: it fails, and says these words.
refused() {
    local words=$1 said
    shift
    ! said=$("$@" 2>&1 </dev/null) && grep -F -- "$words" <<<"$said"
}

records() {
    find "$folder" /var/lib/qelcd-volumes -type f | sort
}

# boot: all loop devices of volumes are gone, and are there again under other names.
boot() {
    local name
    for name in "$@"; do
        losetup --detach "${device[$name]}"
        check_within 10 "$name is away" listed "$name" '"device":null'
    done
}

make_source disk 32
make_source other 16

step "a volume"
create mirror "${guid[disk]}"
create second "${device[other]}" # by its path
check "has the size of the disk" test "$(blockdev --getsize64 "${device[mirror]}")" = $((32 << 20))
check "takes no room yet" test "$(stat -c %b "$folder/mirror.img")" -lt 200
check "a name is given once" refused "there is a volume" qelc volume create --like "${guid[disk]}" --in "$folder" --name mirror
echo precious >"$folder/theirs.img"
check "no file is overwritten" refused "File exists" qelc volume create --like "${guid[disk]}" --in "$folder" --name theirs
check "and what was begun is gone" test "$(<"$folder/theirs.img") $(records | wc -l)" = "precious 6"
check "not where a boot ends it" refused "is restarted" qelc volume create --like "${guid[disk]}" --in /var
check "not on the disk itself" refused "the very disk" \
    qelc volume create --like "${device[system]}" --in "$folder"
check "not of a disk that is not there" says 4 "no such disk" qelc volume create --like nothing --in "$folder"
check "what would be made" says 0 "third: made in $folder" \
    qelc volume create --like "${guid[disk]}" --in "$folder" --name third --dry-run
check "is not" none test -e "$folder/third.img"

step "a mirror on it"
start_protected disk=mirror
resync 99999999 disk
check_within 40 "level" is_level disk
check "equal" equal disk mirror
check "the list names the disk" listed mirror "\"source\":\"${guid[disk]}\""
check "programs are told" valid qelc --json volumes
check "and were told of the new one" valid cat /var/tmp/made
check "what would be deleted" eval 'qelc volume delete second --dry-run | grep "^second: deleted"'
check "one that is not there is not deleted" says 4 "did you mean second?" qelc volume delete secund --yes
check "it cannot be deleted" refused "is the mirror of ${device[disk]#/dev/}; end that first: qelc unprotect ${device[disk]#/dev/}" \
    qelc volume delete mirror --yes
check "nor without a question" refused "there is no terminal to ask at" qelc volume delete second

step "a boot"
stop_daemon
boot mirror second
check "all volumes come" qelc volume attach
device[mirror]=$(listed mirror "" | grep -o '/dev/loop[0-9]*')
device[second]=$(listed second "" | grep -o '/dev/loop[0-9]*')
before=$(our_devices)
check "twice is no harm" qelc volume attach
check "and stay as they are" test "$(our_devices)" = "$before"
start_again
write_page disk
check_within 40 "level after the boot" told_level disk
check "equal after the boot" equal disk mirror

step "volumes that cannot come"
exec {user}<"${device[second]}"
check "a volume in use stays" refused "is open in another program" qelc volume delete second --yes
check "as it was" listed second "\"state\":\"whole\".*${device[second]}"
exec {user}<&-
boot second
cp "$folder/second.img" "$images/twin"
attach twin
check "no second disk with one signature" refused "${device[twin]} has the same signature" qelc volume attach
kill "${loop_holders[-1]}"
mv "$folder/second.img" "$folder/away"
check_within 10 "a file that is missing" says 6 "second: $folder/second.img: No such file" qelc volume attach
check "what would be shown" says 0 "second: shown as a disk" qelc volume attach --dry-run
check "the list says so" listed second '"device":null,"fault":".*No such file'
cp "$folder/mirror.img" "$folder/second.img"
check "another file" refused "does not have the signature" qelc volume attach
check "is not removed" refused "does not have the signature" qelc volume delete second --yes
check "it is that one" cmp "$folder/mirror.img" "$folder/second.img"
mv "$folder/away" "$folder/second.img"
records=/var/lib/qelcd-volumes
mv $records/second.volume /var/tmp/second
check "a record that is damaged" refused "it is damaged" eval "echo x >$records/second.volume; qelc volume attach"
check "still" refused "it is damaged" qelc volume attach
rm $records/second.volume.damaged-1
mv /var/tmp/second $records/second.volume
check "its own file and record again" qelc volume attach

step "commands that were killed"
# all_or_nothing NAME: the volume is there as a whole, or no trace of it.
all_or_nothing() {
    if listed "$1" '"state":"whole","device":"/dev/loop'; then
        [[ $(records | grep -c "$1") == 2 ]]
    else
        ! records | grep "$1" && ! our_devices | grep "$1"
    fi
}

# killed DELAY ARGUMENT...: this command is killed after so many seconds.
killed() {
    { timeout --signal KILL "$1" qelc volume "${@:2}" || true; } >/dev/null 2>&1
}
for delay in 0.0{01,03,06,1,15,2,3,4,6}; do
    killed "$delay" create --like "${device[other]}" --in "$folder" --name third
    check "after a kill volumes are whole" qelc volume attach
    check "or not there" all_or_nothing third
    killed "$delay" delete second --yes
    check "after a kill volumes are deleted" qelc volume attach
    check "or stay" all_or_nothing second
    qelc volume delete third --yes 2>/dev/null || true
    [[ -e $folder/second.img ]] || create second "${device[other]}"
done
check "a volume is deleted" qelc volume delete second --yes
check "protection ends" as_manager unprotect "${guid[disk]}"
check_within 20 "a volume is deleted" qelc volume delete mirror --yes

step "a mirror in one step"
echo 0 >"/sys/block/$(basename "${device[disk]}")/queue/iostats" # then nobody knows what was written
check "the volume of a mirror that is refused" refused "two was removed again" \
    qelc mirror "${guid[disk]}" --in "$folder" --name two
echo 1 >"/sys/block/$(basename "${device[disk]}")/queue/iostats"
check "is gone" none test -e "$folder/two.img"
check "what would be done" eval "qelc mirror ${guid[disk]} --in $folder --dry-run | grep 'protected by it'"
check "a mirror in a new volume" qelc mirror "${guid[disk]}" --in "$folder" --name one --timeout 60s
check "is level" told_level disk
check "once" refused "is protected already" qelc mirror "${guid[disk]}" --in "$folder" --name two
check "protection ends" as_manager unprotect "${guid[disk]}"
check_within 20 "a volume is deleted" qelc volume delete one --yes
check "nothing is left" test "$(records | paste -s -d ' ')" = "$folder/theirs.img /var/lib/qelcd-volumes/lock"
check "the list is empty" test "$(qelc volumes)" = "no volumes"
check "the loop device as well" none our_devices
end_test
