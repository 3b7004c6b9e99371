#include "tools/manager/hosts.h"

#include "tools/common/host_list.h"
#include "tools/common/human_text.h"
#include "tools/common/text_table.h"
#include "tools/common/visible.h"
#include "tools/manager/commands.h"
#include "tools/manager/host_table.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <nlohmann/json.hpp>
#include <tuple>

using json = nlohmann::ordered_json;

namespace {
constexpr char start_hint[] = "hint: to start it: systemctl enable --now qelc-manager\n";

bool is_silent(const known_host &host, time_t now)
{
    return now - host.last >= seconds_to_silence;
}

// Silent ones first, then those with the worst mirror.
void sort_by_alarm(std::vector<known_host> &hosts, time_t now)
{
    const auto place = [now](const known_host &host) {
        return std::tuple(!is_silent(host, now), host.worst ? rank_of(host.worst->state) : SIZE_MAX,
                          host.name, key_of(host));
    };
    std::ranges::sort(hosts, {}, place);
}

std::string age_text(int64_t seconds)
{
    return seconds <= 0 ? "now" : time_text(static_cast<uint64_t>(seconds)) + " ago";
}

std::string table_of(const std::vector<known_host> &hosts, time_t now)
{
    if (hosts.empty())
        return "no hosts\n";
    text_table rows{{"Host", "Address", "Heartbeat", "Mirrors", "Worst mirror"}};
    for (const known_host &host : hosts)
        rows.push_back({host.name.empty() ? "-" : host.name, host.address,
                        age_text(now - host.last) + (is_silent(host, now) ? ", silent" : ""),
                        std::to_string(host.mirrors),
                        host.worst ? host.worst->disk + ": " + state_text(*host.worst) : "-"});
    return align(rows);
}

std::string utc_text(time_t seconds)
{
    char text[32] = "";
    tm parts{};
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", gmtime_r(&seconds, &parts));
    return text;
}

json worst_of(const known_host &host)
{
    if (!host.worst)
        return json();
    return {{"disk", host.worst->disk}, {"guid", host.worst->guid}, {"state", state_text(*host.worst)}};
}

json result_of(const known_host &host, time_t now)
{
    return {{"host", host.name},
            {"id", host.id.empty() ? json() : json(host.id)},
            {"address", host.address},
            {"first_heartbeat", utc_text(host.first)},
            {"last_heartbeat", utc_text(host.last)},
            {"age", std::max<int64_t>(now - host.last, 0)},
            {"silent", is_silent(host, now)},
            {"mirrors", host.mirrors},
            {"worst_mirror", worst_of(host)}};
}

void print_json(const std::vector<known_host> &hosts, time_t now, const std::string &wrong)
{
    json results = json::array();
    for (const known_host &host : hosts)
        results.push_back(result_of(host, now));
    const json object{{"command", "hosts"},
                      {"status", wrong.empty() ? "done" : "failed"},
                      {"reason", wrong.empty() ? json() : json(wrong)},
                      {"results", std::move(results)}};
    puts(object.dump(-1, ' ', false, json::error_handler_t::replace).c_str());
}

// Why this is not the service's own list; "" if it is.
std::string complaint_about(const host_list &list)
{
    if (list.failure == 0)
        return "";
    if (list.failure == EACCES)
        return "only root may ask the service";
    return (is_service_missing(list.failure)
                ? "the service does not run"
                : std::string("the service does not answer: ") + strerror(list.failure)) +
           "; this is what it knew at its end";
}
} // namespace

int list_hosts(const std::string &folder, bool as_json)
{
    host_list list = find_hosts(folder);
    std::vector<known_host> &hosts = list.hosts;
    const std::string wrong = complaint_about(list);
    const time_t now = time(nullptr);
    sort_by_alarm(hosts, now);
    if (as_json)
        print_json(hosts, now, wrong);
    else
        fputs(table_of(hosts, now).c_str(), stdout);
    if (wrong.empty())
        return EXIT_SUCCESS;
    fflush(stdout);
    complain(folder, wrong);
    fputs(start_hint, stderr);
    return EXIT_FAILURE;
}

int forget(const std::string &folder, const std::string &word)
{
    std::string wrong;
    if (const int failure = ask_service(folder, "forget " + word, wrong)) {
        complain(folder, std::string("the service does not answer: ") + strerror(failure));
        fputs(start_hint, stderr);
        return EXIT_FAILURE;
    }
    if (!wrong.empty())
        return complain(word, wrong);
    printf("forgot %s\n", visible(word).c_str());
    return EXIT_SUCCESS;
}
