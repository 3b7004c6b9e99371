// The documents that managers and local programs send, as texts. A value may be of any kind that can be
// printed.
#pragma once

#include <sstream>
#include <string>
#include <vector>

using texts = std::vector<std::string>;

// TEXT with the values in the places of its percent signs.
template <class... Values>
std::string filled(const std::string &text, const Values &...values)
{
    std::ostringstream out;
    size_t at = 0;
    ((out << text.substr(at, text.find('%', at) - at) << values, at = text.find('%', at) + 1), ...);
    return out.str() + text.substr(at);
}

// TEXT once for each value, which stands in the place of the first percent sign.
template <class Values>
std::string repeated(const std::string &text, const Values &values)
{
    std::string all;
    for (const auto &value : values)
        all += filled(text, value);
    return all;
}

inline std::string in_root(const std::string &content)
{
    return "<Tessaron>" + content + "</Tessaron>";
}

// What a manager sends about itself, and what it answers to heartbeats with. TARGET is its iSCSI target.
inline std::string manager_document(const std::string &guid, const std::string &addresses,
                                    const std::string &target = "")
{
    const std::string iqn = target.empty() ? "" : filled(R"( TargetIqn="%")", target);
    return in_root(filled(R"(<Server ID="%" IPs="%"%/>)", guid, addresses, iqn));
}

inline std::string pair_document(const std::string &server, const std::string &client)
{
    return in_root(filled(R"(<Server ID="%"/><Client ID="%"/>)", server, client));
}

inline std::string channel_document(const std::string &target, const std::string &initiator_ip,
                                    const std::string &target_ip)
{
    constexpr char document[] = R"(<Channel InitiatorIqn="iqn.host" TargetIqn="%"><Path InitiatorIP="%")"
                                R"( TargetIP="%"/></Channel>)";
    return in_root(filled(document, target, initiator_ip, target_ip));
}

inline std::string backup_document(const texts &disks)
{
    return in_root(filled("<BackupList>%</BackupList>", repeated(R"(<Backup SrcGUID="%"/>)", disks)));
}

// Of a manager and of the CDP agent.
inline std::string group_document(const std::string &name, const texts &disks)
{
    return in_root(filled(R"(<BGCreate BGName="%" IsCluster="0">%</BGCreate>)", name,
                          repeated(R"(<SrcDisk SrcGUID="%"/>)", disks)));
}

inline std::string agent_group_document(const std::string &name, const texts &disks)
{
    return in_root(
        filled(R"(<Group name="%" IsCluster="0">%</Group>)", name, repeated(R"(<Disk guid="%"/>)", disks)));
}

// TYPE is 0 for the snapshots of a disk, 1 for those of a group.
inline std::string snap_document(const auto &type, const std::string &source)
{
    return in_root(filled(R"(<Snap SourceType="%" Source="%" IsCluster="0"/>)", type, source));
}

// ELEMENT is "Backup" from a manager, "Snap" from the CDP agent.
inline std::string schedule_document(const std::string &element, const auto &type, const std::string &source,
                                     const auto &start, const auto &interval)
{
    constexpr char document[] =
        R"(<% SourceType="%" Source="%"><Schedule StartTime="%" IntervalSeconds="%"/></%>)";
    return in_root(filled(document, element, type, source, start, interval, element));
}
