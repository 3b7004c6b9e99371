#include "client/inventory.h"

#include "base/log.h"
#include "base/shortage.h"
#include "client/channels.h"
#include "client/client.h"
#include "client/databases.h"
#include "client/disks.h"
#include "client/host.h"
#include "client/new_signature.h"

#include <algorithm>

qel_inventory_t g_inventory;

namespace {
void trace(bool traced, const char *message)
{
    if (traced)
        log_debug("%s", message);
}

void sign_unidentified_disks(bool traced)
{
    for (const qel_disk_t &disk : g_inventory.disks) {
        if (disk.state == 0 || disk.guid)
            continue;
        trace(traced, "set disk signature.");
        set_disk_signature(c_text(disk.path));
    }
}

// Host name, addresses, channels and backups: collected without the inventory's lock, then swapped in under
// it. The old lists are freed after the lock is released.
void refresh_host(bool traced)
{
    optional_text hostname = get_hostname();
    const int dboem = get_dboem();
    std::list<qel_ip_t> ips;
    get_ipsv4_filter_ip(g_client, ips);
    std::list<qel_chn_t> chns;
    qel_get_chns_lock(g_client, chns, g_client->lock);
    std::list<qel_backup_t> backups;
    qel_get_backups_lock(g_client, backups, g_client->lock);

    const auto held = qel_inventory_lock();
    trace(traced, "_scan_cleint_pthread g_client.lock first lock.");
    g_inventory.hostname.swap(hostname);
    g_inventory.dboem = dboem;
    g_inventory.ips.swap(ips);
    g_inventory.chns.swap(chns);
    g_inventory.backups.swap(backups);
}

void refresh_disks(bool traced)
{
    trace(traced, "start get disks.");
    std::list<qel_disk_t> disks;
    qel_get_disks(&disks, 1);
    trace(traced, "finish get disks.");
    qel_get_part_type_lock(disks, g_inventory.backups, &g_inventory.lock);
    trace(traced, "finish get part.");

    const auto held = qel_inventory_lock();
    trace(traced, "_scan_cleint_pthread g_client.lock second lock.");
    g_inventory.disks.swap(disks);
    sign_unidentified_disks(traced);
}
} // namespace

std::unique_lock<std::mutex> qel_inventory_lock()
{
    return std::unique_lock(g_inventory.lock);
}

int qel_inventory_init()
{
    g_inventory.alias = g_client->alias;
    g_inventory.id = c_text(g_client->guid);
    g_inventory.systype = get_systype();
    g_inventory.osver = get_osver();
    if (g_inventory.osver == "\\S")
        g_inventory.osver = get_osver_redhat();
    g_inventory.hostname = get_hostname();
    g_inventory.dboem = get_dboem();

    get_ipsv4_filter_ip(g_client, g_inventory.ips);
    qel_get_disks(&g_inventory.disks, 1);
    sign_unidentified_disks(false);
    qel_get_chns_lock(g_client, g_inventory.chns, g_client->lock);
    qel_get_backups_lock(g_client, g_inventory.backups, g_client->lock);
    qel_get_part_type_lock(g_inventory.disks, g_inventory.backups, nullptr);
    return qel_get_dbs(&g_inventory.dbs);
}

qel_inventory_t *qel_get_inventory()
{
    return &g_inventory;
}

void refresh_inventory(bool traced)
{
    refresh_host(traced);
    trace(traced, "_scan_cleint_pthread g_client.lock first unlock.");
    refresh_disks(traced);
    trace(traced, "_scan_cleint_pthread g_client.lock second unlock.");
}

qel_inventory_t *qel_rescan_inventory()
{
    refresh_inventory(false);
    return qel_get_inventory();
}

void qel_refresh_backups()
{
    // What was changed has been changed: without memory the next scan finds it.
    end_at_shortage([] {
        std::list<qel_backup_t> backups;
        qel_get_backups_lock(g_client, backups, g_client->lock);
        const auto held = qel_inventory_lock();
        g_inventory.backups.swap(backups);
    });
}

int qel_refresh_databases()
{
    std::list<qel_db_t> databases;
    if (qel_get_dbs(&databases) < 0) {
        log_error("Failed to list the databases, the known ones are kept.");
        return -1;
    }
    const auto held = qel_inventory_lock();
    g_inventory.dbs.swap(databases);
    return 0;
}

bool qel_has_disk(const optional_text &guid)
{
    if (!guid || guid->empty()) // a LUN without identity has an empty GUID
        return false;
    return std::any_of(g_inventory.disks.begin(), g_inventory.disks.end(), [&](const qel_disk_t &disk) {
        return disk.guid == guid || std::any_of(disk.parts.begin(), disk.parts.end(),
                                                [&](const qel_part_t &part) { return part.guid == guid; });
    });
}

bool qel_is_disk_present(const optional_text &guid)
{
    refresh_inventory(false);
    const auto held = qel_inventory_lock();
    return qel_has_disk(guid);
}

qel_backup_t *qel_find_backup(const std::string &src_guid)
{
    const auto found = std::find_if(g_inventory.backups.begin(), g_inventory.backups.end(),
                                    [&](const qel_backup_t &backup) { return backup.src_guid == src_guid; });
    return found == g_inventory.backups.end() ? nullptr : &*found;
}

mirror_level qel_mirror_level(std::string qel_backup_t::*end, const optional_text &guid)
{
    auto worst = mirror_level::none;
    for (const qel_backup_t &backup : g_inventory.backups) {
        if (backup.*end != guid)
            continue;
        if (backup.state != backup_synchronised)
            return mirror_level::behind;
        worst = mirror_level::level;
    }
    return worst;
}
