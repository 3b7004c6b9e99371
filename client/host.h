// Facts about the host, read from its files. What cannot be read is absent; the daemon goes on.
#pragma once

#include "base/text.h"
#include "client/client.h"
#include "client/inventory_records.h"

#include <cstdio>
#include <list>
#include <string>
#include <vector>

optional_text get_hostname();

// The databases of the host, one bit each, as the site's script get_db_home.sh prints them; 0 without that
// script.
int get_dboem();

// First line of /etc/issue, and of /etc/redhat-release.
optional_text get_osver();
optional_text get_osver_redhat();

unsigned get_systype();

// Appends the host's IPv4 addresses, except those of the loopback interface and those that CLIENT filters.
// Returns how many.
int get_ipsv4_filter_ip(const qel_t *client, std::list<qel_ip_t> &list);

// The mounts that decide whether a device is a system disk, read once for many lookups.
struct mount_table {
    bool readable = false;
    std::vector<std::string> system_lines; // the lines that mount / or /boot
};
mount_table read_mount_table();

// 1 if /etc/mtab mounts / or /boot from PATH, or from a device whose path contains PATH, such as its
// partitions.
int is_boot_dev(const mount_table &mounts, const char *path);

// The same with a mount table read for this one lookup. Nothing here calls it; it is part of the room's
// interface.
int is_boot_dev(const char *path);

// Reads one line into BUF of SIZE bytes, which is zeroed first. A carriage return is stored as NUL. Returns
// the number of characters stored plus one; -1 if the stream ends before a newline; SIZE for a line that does
// not fit, which then has no terminator.
int read_line(FILE *stream, char *buf, int size);
