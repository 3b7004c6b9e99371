# The acts up to a host that a manager has adopted. Sourced.
# shellcheck shell=bash disable=SC2034,SC2154

show_disks() {
    title "A host with three disks: one in use, a blank one, one that is all swap"
    show lsblk --output NAME,SIZE,MOUNTPOINT "$data_disk" "$blank_disk" "$swap_disk"
    blank_before=$(xxd -p -s 440 -l 4 "$blank_disk")
}

show_start() {
    title "The daemon starts; its configuration holds a GUID and two ports"
    cat >/etc/kavtessaron/qelcd.conf <<'END'
<Tessaron>
  <ClientGUID>6f1c2a52-6b0e-4c57-9a54-2f4f5d6a7b81</ClientGUID>
  <ClientPort>9410</ClientPort>
  <ServerPort>9411</ServerPort>
</Tessaron>
END
    show qelcd
    wait_until 10 qelc nop_command
}

got_signature() {
    [[ $blank_before == 00000000 && $(xxd -p -s 440 -l 4 "$blank_disk") != 00000000 ]] &&
        cmp <(tail -c +445 "$blank_disk") <(head -c $((64 * 1024 * 1024 - 444)) /dev/zero) &&
        cmp -n 440 "$blank_disk" /dev/zero
}

show_scan() {
    title "A manager scans the host"
    show_manager standin-manager scan "$host_address:9410"
    title "The daemon gave the blank disk a signature, by which it is known from now on"
    show xxd -s 432 -l 16 "$blank_disk"
    prove "The blank disk got a signature at byte 440; no other byte has changed." got_signature
    prove "The swap disk is as it was." is_swap_untouched
    data_guid=$(guid_of "$data_disk")
    blank_guid=$(guid_of "$blank_disk")
}

is_adopted() {
    grep '<Manager>' /etc/kavtessaron/qelcd.conf
}

show_adoption() {
    title "The manager adopts the host; from now on it gets its heartbeats"
    start_manager
    show_line in_manager "standin-manager adopt $host_address:9410 --ip $manager_address | cut -c -80"
    prove "The host has noted its manager." is_adopted
}
