// Records in words, so that one comparison sees all of a record. "-" is a text that is absent.
#pragma once

#include "client/addresses.h"
#include "client/client.h"

#include <string>

inline std::string shown(const optional_text &text)
{
    return text.value_or("-");
}

inline std::string shown(const qel_manager &manager)
{
    return shown(manager.guid) + ' ' + shown(manager.target_iqn) + " [" + join_addresses(manager.ip_list) +
           ']';
}

inline std::string shown(const qel_group &group)
{
    std::string words = shown(group.name);
    for (const qel_group_disk &disk : group.member_list)
        words += ' ' + shown(disk.disk_guid);
    return words;
}

inline std::string shown(const qel_cdpsch &schedule)
{
    return shown(schedule.local_lun) + '>' + shown(schedule.mirror_lun);
}

template <class Scheduled>
std::string shown_times(const Scheduled &of)
{
    return '@' + std::to_string(of.cdp_con_start_time) + '/' + std::to_string(of.cdp_start_time) + '/' +
           std::to_string(of.cdp_timeout);
}

// "guid alias ports; filter; manager; groups; schedules"
inline std::string shown(const qel_t &c)
{
    std::string words = shown(c.guid) + ' ' + shown(c.alias) + ' ' + std::to_string(c.client_port) + ' ' +
                        std::to_string(c.server_port) + "; " + join_addresses(c.filter_list) + ';';
    words += c.manager ? ' ' + shown(*c.manager) + ';' : ";";
    for (const qel_group &group : c.group_list)
        words += ' ' + shown(group) + shown_times(group);
    words += ';';
    for (const qel_cdpsch &schedule : c.cdpsch_list)
        words += ' ' + shown(schedule) + shown_times(schedule);
    return words;
}
