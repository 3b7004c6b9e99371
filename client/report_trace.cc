#include "client/report_trace.h"

#include "base/log.h"
#include "client/addresses.h"
#include "client/host.h"
#include "client/report_values.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <string>

namespace {
__attribute__((format(printf, 2, 3))) void append(std::string &text, const char *format, ...)
{
    char piece[2048];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(piece, sizeof piece, format, arguments);
    va_end(arguments);
    text += piece;
}

const char *plain(const optional_text &text)
{
    return text ? text->c_str() : "";
}

void print_disk(const qel_disk_t &disk, const mount_table &mounts)
{
    std::string text;
    append(text,
           "<Disk Name=\"%s\" Size=\"%" PRIu64 "\" Type=\"%d\" Used=\"%" PRIu64
           "\" Guid=\"%s\" FS=\"%s\" State=\"%d\" Vendor=\"%s\" SysDisk=\"%d\"/>",
           plain(disk.name), disk.size, static_cast<int>(disk.type), disk.used, plain(disk.guid),
           plain(disk.fs), disk.state, plain(disk.vendor),
           disk.path ? is_boot_dev(mounts, disk.path->c_str()) : 0);
    for (const qel_part_t &part : disk.parts) {
        append(text,
               "<Partition Name=\"%s\" Index=\"%d\" Size=\"%" PRIu64 "\" Used=\"%" PRIu64
               "\" Guid=\"%s\" FS=\"%s\" State=\"%d\"/>",
               plain(part.name), part.index, part.size, part.used, plain(part.guid), plain(part.fs),
               part.state);
    }
    text += "</Disk>";
    log_debug("###%s", text.c_str());
}
} // namespace

void xml_print_simple_client(const qel_inventory_t &inventory)
{
    std::string text;
    append(text,
           "<Client HostName=\"%s\" IPs=\"%s\" SystemType=\"%d\" SysVersion=\"%s\" ID=\"%s\" DBOEM=\"%d\" "
           "Alias=\"%s\"/>",
           plain(inventory.hostname), join_addresses(inventory.ips).c_str(),
           static_cast<int>(inventory.systype), plain(inventory.osver), inventory.id ? inventory.id : "",
           inventory.dboem, plain(inventory.alias));
    text += "</Client>";
    log_debug("###%s", text.c_str());
}

void xml_print_disks(const qel_inventory_t &inventory)
{
    const mount_table mounts = read_mount_table();
    const mirror_guids mirrors(inventory.backups);
    for (const qel_disk_t &disk : inventory.disks) {
        if (disk.state != 0 && !mirrors.hold(disk))
            print_disk(disk, mounts);
    }
}

void xml_print_channels(const qel_inventory_t &inventory)
{
    std::string text;
    for (const qel_chn_t &channel : inventory.chns) {
        if (channel.type == chn_fc)
            append(text, "<Channel Type=FC InitiatorWWN=\"%s\" TargetWWN=\"%s\"/>",
                   colon_separated(channel.initiator).c_str(), colon_separated(channel.target).c_str());
        else if (channel.type == chn_iscsi)
            append(text, "<Channel Type=ISCSI InitiatorIqn=\"%s\" TargetIqn=\"%s\"/>",
                   plain(channel.initiator), plain(channel.target));
    }
    log_debug("###%s", text.c_str());
}

void xml_print_backups(const qel_inventory_t &inventory)
{
    std::string text;
    for (const qel_backup_t &backup : inventory.backups) {
        append(text,
               "<Backup Type=\"%d\" State=\"%d\" Percent=\"%d\" Speed=\"%d\" SrcGUID=\"%s\" SrcName=\"%s\" "
               "DestGUID=\"%s\" ConStartTime=\"%" PRIu64 "\" IntervalMinutes=\"%d\" />",
               static_cast<int>(backup.type), static_cast<int>(backup.state), backup.percent, backup.speed,
               backup.src_guid.c_str(), backup.src_name.c_str(), wrap_mirror_guid(backup.dest_guid).c_str(),
               backup.start_time, static_cast<int>(backup.interval / 60));
        text += "</Backup>";
    }
    log_debug("###%s", text.c_str());
}

void xml_print_databases(const qel_inventory_t &inventory)
{
    std::string text;
    for (const qel_db_t &database : inventory.dbs) {
        append(text, "<DataBase Type=\"%s\" OracleHome=\"%s\" InstanceName=\"%s\" ArchiveLog=\"%d\"/>",
               database_type(database), plain(database.oracle_home), plain(database.instance_name),
               database.archive_log);
    }
    log_debug("###<DataBaseList>%s", text.c_str());
}

void trace_report(const qel_inventory_t &inventory, int full)
{
    xml_print_simple_client(inventory);
    if (!full)
        return;
    xml_print_disks(inventory);
    xml_print_channels(inventory);
    xml_print_backups(inventory);
    xml_print_databases(inventory);
}
