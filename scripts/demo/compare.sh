# The end: what the mirror holds. Sourced.
# shellcheck shell=bash disable=SC2034,SC2154

# Only these four bytes of a local mirror are its own.
differ_in_signature_only() {
    awk '$1 < 441 || $1 > 444 { wrong = 1 } END { exit wrong || NR == 0 }' <<<"$1"
}

show_comparison() {
    local status=0 differences
    title "Disk and mirror, byte for byte: offset from 1, and the two bytes in octal"
    blockdev --flushbufs "$data_disk" "$blank_disk" # the cache of a disk may be older than that of its partitions
    typed '$' cmp -l "$data_disk" "$blank_disk"
    differences=$(cmp -l "$data_disk" "$blank_disk") || status=$?
    ((status <= 1)) || fail "$data_disk and $blank_disk cannot be compared"
    head -n 8 <<<"$differences"
    prove "They differ in the signature only, which each disk has for itself." differ_in_signature_only "$differences"
    prove "The swap disk is still as it was." is_swap_untouched
}
