#include "client/mirror_guid.h"
#include "requests/backups.h"
#include "requests/groups.h"
#include "requests/membership.h"
#include "requests/snapshots.h"
#include "tests/support/captured_log.h"
#include "tests/unit/shown.h"

#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>

namespace {
// What a parser makes of a text, in words.
using parser = std::string(const char *text);

std::string manager(const char *text)
{
    const std::unique_ptr<qel_manager> m = xml_to_manager(text);
    return m ? shown(*m) : "refused";
}

std::string pair(const char *text)
{
    std::string server = "old", client = "old";
    xml_to_pair(&server, &client, text);
    return server + ' ' + client;
}

template <auto parse>
std::string two_texts(const char *text)
{
    std::string one = "old", other = "old";
    return parse(&one, &other, text) == 0 ? one + ' ' + other : "refused";
}

template <auto parse>
std::string list_of(const char *text)
{
    std::list<std::string> list = {"old"};
    std::string words = parse(text, &list) == 0 ? "" : "refused ";
    for (const std::string &word : list)
        words += word + ' ';
    return words;
}

template <auto parse>
std::string group(const char *text)
{
    bool cluster = true;
    const std::unique_ptr<qel_group> parsed = parse(text, &cluster);
    return parsed ? shown(*parsed) + (cluster ? " cluster" : "") : "refused";
}

template <auto parse>
std::string snap(const char *text)
{
    snap_request snap;
    if (parse(text, &snap) != 0)
        return "refused";
    return (snap.source_type == snap_disk ? "disk " : "group ") + shown(snap.source) +
           (snap.is_cluster ? " cluster" : "");
}

std::string cdpsch_list(const char *text)
{
    std::list<qel_cdpsch> list(1);
    cdp_schedule schedule;
    std::string words = "old";
    if (xml_to_cdpsch_list(text, &list, &schedule, &words) != 0)
        return "refused";
    for (const qel_cdpsch &disk : list)
        words += ' ' + shown(disk) + shown_times(disk);
    return words;
}

#define REQUEST(body) "<Tessaron>" body "</Tessaron>"

TEST(Requests, WhatIsThereIsTakenAndWhatIsMissingIsNamed)
{
    constexpr auto backup_grp = group<xml_to_backup_grp>, del_grp = group<xml_to_del_grp>;
    constexpr auto bg_info = two_texts<xml_to_bg_info>;
    constexpr auto snap_guid = snap<xml_to_snap_guid>, agent_snap = snap<xml_kav_to_snapshot>;
    constexpr auto snap_volumes = list_of<xml_to_snap_vol_guid>;
    const struct {
        parser *parse;
        const char *text, *result, *log = "";
    } cases[] = {
        {manager, REQUEST("\n <Server ID='g' IPs=' 10.0.0.1  x 10.0.0.2' TargetIqn='iqn'/>"),
         "g iqn [10.0.0.1 0.0.0.0 10.0.0.2]"},
        {pair, REQUEST("<Other/><Client ID='new'/><Server/>"), "old new"},
        {pair, nullptr, "old old", "3 Invalid input parameter\n"},
        {backup_grp,
         REQUEST("<x/><BGCreate BGName='n' IsCluster='1'><SrcDisk SrcGUID='b'/><SrcDisk SrcGUID='a'/>"
                 "</BGCreate>"),
         "n b a cluster"},
        {backup_grp, REQUEST("<BGCreate IsCluster='true'/>"), "-"},
        {del_grp, "<Tessaron/>", "refused", "3 Failed to retrieve node BGDelete\n"},
        {bg_info, REQUEST("<x/><RemBGDisk BGName='g' SrcGUID='d'/>"), "old old"},
        {snap_guid, REQUEST("<Snap SourceType='0' Source='kav_{abc}' IsCluster='1'/>"), "disk abc cluster"},
        {snap_guid, REQUEST("<Snap SourceType='0' Source='kav_{abc' IsCluster='0'/>"), "disk abc"},
        {snap_guid, REQUEST("<Snap SourceType='0' Source='kav_{}' IsCluster='0'/>"), "disk kav_{}"},
        {snap_guid, REQUEST("<Snap SourceType='00' Source='kav_{abc}' IsCluster='0'/>"), "group kav_{abc}"},
        {snap_guid, REQUEST("<Snap SourceType='0' Source='a'/>"), "refused",
         "3 Failed to retrieve property IsCluster from Snap node.\n"},
        {agent_snap, REQUEST("<Snap SourceType='0' Source='kav_{abc}' IsCluster='1'/>"), "disk abc"},
        {agent_snap, nullptr, "refused"},
        {snap_volumes, REQUEST("<Snap SnapVolGUID='kav_{a}'/><Other/><Snap/><Snap SnapVolGUID='b'/>"), "a b ",
         "3 Node Snap doesn't contain SnapVolGUID property, ignore!\n"},
        {cdpsch_list,
         REQUEST("<BackupList><Backup SrcGUID='l' KavGUID='kav_{m}'/><x/>"
                 "<Backup SrcGUID='s' KavGUID='abc'/></BackupList><Schedule StartTime=' 100' "
                 "IntervalSeconds='60s' Source='g' SourceType='2'/>"),
         "old ->-@0/100/60 l>m@0/100/60 s>@0/100/60", "4 Unknown backup node.\n"},
        {cdpsch_list, REQUEST("<BackupList/><Schedule StartTime='1' IntervalSeconds='1' Source=''/>"),
         "refused", "3 Failed to get SourceType property.\n"},
    };
    for (const auto &row : cases) {
        take_log();
        const std::string text = row.text ? row.text : "(null)";
        EXPECT_EQ(row.parse(row.text), row.result) << text;
        EXPECT_EQ(take_log(), row.log) << text;
    }
}

void parse_for_200_ms(parser *parse, const char *text)
{
    log_level = LOG_ERR;
    itimerval limit{};
    limit.it_value.tv_usec = 200'000;
    setitimer(ITIMER_REAL, &limit, nullptr);
    parse(text);
    _exit(0);
}

// The endless repetition is what the system does. It is seen by a timer that ends the child process.
TEST(RequestsDeathTest, ChildThatIsNoMemberIsNeverPassed)
{
    const std::pair<parser *, const char *> cases[] = {
        {group<xml_to_backup_grp>, REQUEST("<BGCreate><Disk SrcGUID='a'/></BGCreate>")},
        {group<xml_to_backup_grp>, REQUEST("<BGCreate><SrcDisk/></BGCreate>")},
        {group<xml_kav_to_backup_grp>, REQUEST("<Group><Disk SrcGUID='a'/></Group>")},
        {list_of<xml_to_bp_srcguid>, REQUEST("<BackupList><Disk SrcGUID='a'/></BackupList>")},
        {list_of<xml_to_bp_srcguid>, REQUEST("<BackupList><Backup/></BackupList>")},
    };
    for (const auto &[parse, text] : cases)
        EXPECT_EXIT(parse_for_200_ms(parse, text), testing::KilledBySignal(SIGALRM), "") << text;
}
} // namespace
