#include "tools/manager/host_table.h"

#include "base/number.h"
#include "client/inventory_records.h"
#include "protocol/commands.h"
#include "tools/common/human_text.h"
#include "tools/common/report_view.h"

#include <algorithm>
#include <iterator>

namespace {
// More than any manager has; whoever reaches the port can invent hosts.
constexpr size_t most_hosts = 10000;

constexpr struct {
    uint32_t state;
    const char *text;
} states[] = {
    // the worst first
    {backup_destination_down, "mirror down"},      {backup_source_down, "source down"},
    {backup_not_synchronised, "not synchronised"}, {backup_recovering, "recovering"},
    {backup_synchronising, "synchronising"},       {backup_synchronised, "synchronised"},
};

reported_mirror mirror_of(const xmlNode *backup)
{
    reported_mirror mirror{report_value(backup, "SrcName"), report_value(backup, "SrcGUID"),
                           scan_u32(report_value(backup, "State").c_str()),
                           scan_int(report_value(backup, "Percent").c_str())};
    if (mirror.disk.empty())
        mirror.disk = mirror.guid;
    return mirror;
}

void read_mirrors(known_host &host, const xmlNode *list)
{
    for (const xmlNode *backup : xml_children{list}) {
        if (!xml_is_named(backup, "Backup"))
            continue;
        ++host.mirrors;
        reported_mirror mirror = mirror_of(backup);
        if (!host.worst || rank_of(mirror.state) < rank_of(host.worst->state))
            host.worst = std::move(mirror);
    }
}

known_host host_of(const xmlNode *client, const std::string &address)
{
    known_host host{.id = report_value(client, "ID"),
                    .name = report_value(client, "HostName"),
                    .address = address,
                    .ips = report_value(client, "IPs"),
                    .worst = std::nullopt};
    read_mirrors(host, find_child(client, "BackupList"));
    return host;
}

std::string title(const known_host &host)
{
    return host.name + " [" + host.address + "]: ";
}

std::string worst_text(const known_host &host)
{
    return host.worst ? host.worst->disk + ": " + state_text(*host.worst) : "no mirrors";
}

bool is_as_bad(const known_host &one, const known_host &other)
{
    return one.worst ? other.worst && one.worst->state == other.worst->state : !other.worst;
}

std::vector<std::string> news_of(const known_host &before, const known_host &now)
{
    std::vector<std::string> news;
    if (before.is_silent)
        news.push_back(title(now) + "reports again, after " +
                       time_text(static_cast<uint64_t>(now.last - before.last)));
    if (!is_as_bad(before, now))
        news.push_back(title(now) + worst_text(now) + "; before: " + worst_text(before));
    return news;
}

heartbeat_note note_new(host_table &table, known_host &&host)
{
    if (table.hosts.size() >= most_hosts)
        return {status_ok, {title(host) + "not listed: there are " + std::to_string(most_hosts) + " others"}};
    std::vector<std::string> news{title(host) + "reports; " + worst_text(host)};
    std::string key = key_of(host);
    table.hosts.emplace(std::move(key), std::move(host));
    return {status_ok, std::move(news)};
}

// Whether LIST, with blanks or commas between its words, has WORD.
bool has_word(const std::string &list, const std::string &word)
{
    constexpr char gaps[] = " ,;";
    for (size_t at = list.find(word); at != std::string::npos; at = list.find(word, at + 1)) {
        const size_t end = at + word.size();
        if ((at == 0 || std::string(gaps).find(list[at - 1]) != std::string::npos) &&
            (end == list.size() || std::string(gaps).find(list[end]) != std::string::npos))
            return true;
    }
    return false;
}

// The only host that is meant; null with what is WRONG. Called with the table's lock held.
known_host *find_host(host_table &table, const std::string &word, std::string &wrong)
{
    std::vector<known_host *> found;
    for (auto &[key, host] : table.hosts) {
        if (key == word || host.name == word || host.address == word || has_word(host.ips, word))
            found.push_back(&host);
    }
    if (found.size() == 1)
        return found.front();
    wrong =
        found.empty() ? "no such host" : std::to_string(found.size()) + " hosts are called so; take the ID";
    return nullptr;
}
} // namespace

heartbeat_note note_heartbeat(host_table &table, const std::string &address, const char *report, int64_t now)
{
    const xml_doc doc = xml_parse_text(report);
    const xmlNode *client = report_client(doc);
    if (!client)
        return {status_ok, {address + ": " + no_report}};
    known_host host = host_of(client, address);
    host.first = host.last = now;
    const std::lock_guard held(table.lock);
    const auto known = table.hosts.find(key_of(host));
    if (known == table.hosts.end())
        return note_new(table, std::move(host));
    if (known->second.is_released) {
        table.hosts.erase(known);
        return {status_not_adopted, {title(host) + "is released"}};
    }
    host.first = known->second.first;
    heartbeat_note note{status_ok, news_of(known->second, host)};
    known->second = std::move(host);
    return note;
}

std::vector<std::string> note_silence(host_table &table, int64_t start, int64_t now)
{
    std::vector<std::string> news;
    const std::lock_guard held(table.lock);
    for (auto &[key, host] : table.hosts) {
        if (host.is_silent || now - std::max(host.last, start) < seconds_to_silence)
            continue;
        host.is_silent = true;
        news.push_back(title(host) + "has been silent for " +
                       time_text(static_cast<uint64_t>(std::max<int64_t>(now - host.last, 0))));
    }
    return news;
}

std::string forget_host(host_table &table, const std::string &word)
{
    std::string wrong;
    const std::lock_guard held(table.lock);
    if (const known_host *host = find_host(table, word, wrong))
        table.hosts.erase(key_of(*host));
    return wrong;
}

std::string release_host(host_table &table, const std::string &word)
{
    std::string wrong;
    const std::lock_guard held(table.lock);
    if (known_host *host = find_host(table, word, wrong))
        host->is_released = true;
    return wrong;
}

std::string state_text(const reported_mirror &mirror)
{
    const size_t rank = rank_of(mirror.state);
    const std::string text =
        states[rank].state == mirror.state ? states[rank].text : "state " + std::to_string(mirror.state);
    const bool moves = mirror.state == backup_synchronising || mirror.state == backup_recovering;
    return moves ? text + ", " + std::to_string(mirror.percent) + " %" : text;
}

size_t rank_of(uint32_t mirror_state)
{
    for (size_t rank = 0; rank < std::size(states); ++rank) {
        if (states[rank].state == mirror_state)
            return rank;
    }
    return 0; // one that nobody knows is looked at first
}
