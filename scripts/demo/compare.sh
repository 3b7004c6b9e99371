# The end: what the mirrors and the snapshots hold. Sourced.
# shellcheck shell=bash disable=SC2034,SC2154

# Only these four bytes of a local mirror are its own.
differ_in_signature_only() {
    awk '$1 < 441 || $1 > 444 { wrong = 1 } END { exit wrong || NR == 0 }' <<<"$1"
}

compare() {
    local status=0 differences
    blockdev --flushbufs "$1" "$2" # else the cache of the whole disk may be older than its partitions
    printf '$ '
    typed cmp -l "$1" "$2"
    differences=$(cmp -l "$1" "$2") || status=$?
    ((status <= 1)) || fail "$1 and $2 cannot be compared"
    head -n 8 <<<"$differences"
    [[ $(guid_of "$1") != $(guid_of "$2") ]] || fail "$2 has the signature of its disk"
    prove "$3" differ_in_signature_only "$differences"
}

show_comparison() {
    title "Disks and mirrors, byte for byte: offset from 1, and the two bytes in octal"
    echo "A mirror of this host keeps its own signature, bytes 440 to 443 (441 to 444 for cmp); all else is equal."
    compare "$gpt_disk" "$gpt_mirror" "The GPT disk and its mirror differ in bytes 440 to 443 only."
    compare "$mbr_disk" "$mbr_mirror" "The MBR disk and its mirror differ in bytes 440 to 443 only."
    prove "The swap disk is still as it was." is_swap_untouched
}

is_text() {
    [[ $(<"$1") == "$2" ]]
}

show_mirror_files() {
    title "The mirror's file system, mounted read-only"
    attach_partitioned gpt-mirror --read-only
    show mount -o ro "${attached}p1" /mnt/mirror
    show cat /mnt/mirror/notes
    prove "The mirror has both notes." is_text /mnt/mirror/notes $'first\nsecond'
    show mount -o ro "${gpt_disk}p1" /mnt/data
    show cmp /mnt/data/numbers /mnt/mirror/numbers
}

show_snapshot_files() {
    local first
    first=$(kept "$gpt_mirror_guid" | head -n 1)
    title "What the hook kept of it at the first snapshot: a disk that lost its power then would look like this"
    attach_partitioned "${first#"$disk_folder/"}"
    show mount -o ro "${attached}p1" /mnt/snapshot
    show cat /mnt/snapshot/notes
    prove "The first snapshot has the first note only." is_text /mnt/snapshot/notes first
}

# What the log says of a disk of the machine is left out: this host sees their names, and nothing else of them.
show_log() {
    local ours
    ours=$(printf '%s\n' "${attachments[@]}" | sed -E 's,/dev/([^ ]*) .*,\1,' | paste -sd '|')
    title "Warnings and errors in the system log, of $(wc -l <"$log") lines"
    sed -nE 's/^.{15} [^ ]+ user\.(warn|err|crit) qelcd: /\1 /p' "$log" |
        awk -v ours="$ours" '!match($0, / disk [a-z]+[0-9]*( |\.|$)/) || $0 ~ " disk (" ours ")( |\\.|$)"' |
        sort | uniq -c | sort -rn
}
