# The acts up to a host that a manager has adopted. Sourced.
# shellcheck shell=bash disable=SC2034,SC2154

show_disks() {
    title "A host with five disks: a GPT with a mounted ext4, an MBR, two blank ones, and one that is all swap"
    show lsblk --output NAME,SIZE,MOUNTPOINT "$gpt_disk" "$mbr_disk" "$gpt_mirror" "$mbr_mirror" "$swap_disk"
    show ls -l /mnt/data
    title "A blank disk before: four zero bytes at byte 440"
    show xxd -s 440 -l 4 "$gpt_mirror"
    blank_before=$(xxd -p -s 440 -l 4 "$gpt_mirror")
}

show_start() {
    title "The daemon starts"
    script_initiator
    cat >/etc/kavtessaron/qelcd.conf <<'END'
<?xml version="1.0" encoding="utf-8"?>
<Tessaron>
  <ClientGUID>6f1c2a52-6b0e-4c57-9a54-2f4f5d6a7b81</ClientGUID>
  <ClientPort>9410</ClientPort>
  <ServerPort>9411</ServerPort>
</Tessaron>
END
    show qelcd
    wait_until 10 qelc nop_command
    show cat "$pid_file"
}

got_signature() {
    [[ $blank_before == 00000000 && $(xxd -p -s 440 -l 4 "$gpt_mirror") != 00000000 ]] &&
        cmp <(tail -c +445 "$gpt_mirror") <(head -c $((64 * 1024 * 1024 - 444)) /dev/zero)
}

show_scan() {
    title "The manager scans it"
    show_manager standin-manager scan "$host_address:9410"
    title "The same answer as it travels"
    show_manager qelc --host "$host_address:9410" --raw scan_client
    title "Local tools ask on the UNIX socket"
    show qelc local_list
    show qelc rescan_devices

    title "The blank disk after"
    show xxd -a -l 512 "$gpt_mirror"
    prove "A blank disk got a signature at byte 440, and nothing else on it has changed." got_signature
    prove "The swap disk is as it was." is_swap_untouched
    gpt_guid=$(guid_of "$gpt_disk")
    gpt_mirror_guid=$(guid_of "$gpt_mirror")
    mbr_guid=$(guid_of "$mbr_disk")
    mbr_mirror_guid=$(guid_of "$mbr_mirror")
}

show_adoption() {
    title "The manager adopts it; the report now holds the disks, but for the swap"
    start_manager
    show_manager standin-manager adopt "$host_address:9410" --ip "$manager_address"
    title "The manager gives it a name"
    show_manager qelc --host "$host_address:9410" rename_client --alias "Demo host"
    show qelc local_list
    title "Two heartbeats, as the manager sees them"
    wait_until 20 heartbeats 2
    show cat "$manager_log"
}

show_channel() {
    title "A storage channel; iscsiadm is a script here, tests/lab shows the real one"
    show_manager qelc --host "$host_address:9410" establish_channels --initiator-iqn iqn.2020-01.demo:host \
        --target-iqn "$storage_iqn" --initiator-ip "$host_address" --target-ip "$manager_address"
    show cat /var/log/iscsiadm
    show cat /var/lib/iscsi/ifaces/qel_iface_net0
}
