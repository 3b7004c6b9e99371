#include "client/host.h"

#include "base/deleter.h"
#include "base/file.h"
#include "base/log.h"
#include "base/number.h"
#include "base/shell.h"

#include <ifaddrs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

namespace {
constexpr int line_size = 512;
constexpr char mtab_path[] = "/etc/mtab";

optional_text first_line_of(const char *path)
{
    const file_stream stream = open_for_reading(path);
    if (!stream) {
        log_error("Failed to open file %s\n", path);
        return std::nullopt;
    }
    char line[line_size];
    if (read_line(stream.get(), line, sizeof line) < 0)
        return std::nullopt;
    return std::string(line, strnlen(line, sizeof line));
}

bool is_filtered(const qel_t *client, in_addr_t addr)
{
    return std::any_of(client->filter_list.begin(), client->filter_list.end(),
                       [addr](const qel_addr &entry) { return entry.addr == addr; });
}
} // namespace

optional_text get_hostname()
{
    char name[line_size] = "";
    if (gethostname(name, sizeof name - 1) != 0) {
        log_error("Failed to get hostname: %s", strerror(errno));
        return std::nullopt;
    }
    return name;
}

int get_dboem()
{
    const shell_pipe script = shell_read("get_db_home.sh");
    if (!script) {
        log_error("Failed to open pipe for db_home.");
        return 0;
    }
    log_debug("Reading DB home.");
    char line[line_size];
    if (!fgets(line, sizeof line, script.get())) {
        log_error("Failed to get DBOEM.");
        return 0;
    }
    const int dboem = scan_int(line);
    log_debug("Got DBOEM: %d", dboem);
    return dboem;
}

optional_text get_osver()
{
    return first_line_of("/etc/issue");
}

optional_text get_osver_redhat()
{
    return first_line_of("/etc/redhat-release");
}

unsigned get_systype()
{
    return 0;
}

int get_ipsv4_filter_ip(const qel_t *client, std::list<qel_ip_t> &list)
{
    ifaddrs *interfaces = nullptr;
    if (getifaddrs(&interfaces) != 0) {
        log_error("Failed to get ifaddrs");
        return 0;
    }
    const std::unique_ptr<ifaddrs, deleter<freeifaddrs>> owner(interfaces);
    int added = 0;
    for (const ifaddrs *entry = interfaces; entry; entry = entry->ifa_next) {
        if (!entry->ifa_addr || std::string_view(entry->ifa_name) == "lo" ||
            entry->ifa_addr->sa_family != AF_INET)
            continue;
        sockaddr_in address;
        memcpy(&address, entry->ifa_addr, sizeof address);
        if (is_filtered(client, address.sin_addr.s_addr))
            continue;
        if (qel_ip_t *ip = list_append(list)) {
            ip->addr = address.sin_addr.s_addr;
            ++added;
        } else {
            log_error("Failed to allocate memory");
        }
    }
    return added;
}

mount_table read_mount_table()
{
    mount_table mounts;
    const file_stream stream = open_for_reading(mtab_path);
    if (!stream)
        return mounts;
    mounts.readable = true;
    char line[line_size];
    while (fgets(line, sizeof line, stream.get())) {
        // "/ " also matches any other mount point that ends with "/".
        if (strstr(line, "/boot ") || strstr(line, "/ "))
            mounts.system_lines.emplace_back(line);
    }
    return mounts;
}

int is_boot_dev(const mount_table &mounts, const char *path)
{
    if (!mounts.readable) {
        log_error("%s is not exit.\n", mtab_path);
        return 0;
    }
    for (const std::string &line : mounts.system_lines) {
        if (line.find(path) != std::string::npos) {
            log_debug("%s is sysdisk.\n", path);
            return 1;
        }
    }
    return 0;
}

int is_boot_dev(const char *path)
{
    return is_boot_dev(read_mount_table(), path);
}

int read_line(FILE *stream, char *buf, int size)
{
    memset(buf, 0, static_cast<size_t>(size));
    for (int stored = 0; stored < size; ++stored) {
        const int byte = getc(stream);
        if (byte == EOF)
            return -1;
        if (byte == '\n')
            return stored + 1;
        buf[stored] = byte == '\r' ? '\0' : static_cast<char>(byte);
    }
    return size;
}
