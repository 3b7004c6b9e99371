#include "tools/common/host_document.h"

#include <nlohmann/json.hpp>

using json = nlohmann::json;

namespace {
json document_of(const known_host &host)
{
    json one{{"id", host.id},       {"name", host.name}, {"address", host.address}, {"ips", host.ips},
             {"first", host.first}, {"last", host.last}, {"mirrors", host.mirrors}};
    if (host.worst)
        one["worst"] = {{"disk", host.worst->disk},
                        {"guid", host.worst->guid},
                        {"state", host.worst->state},
                        {"percent", host.worst->percent}};
    return one;
}

known_host host_of(const json &one)
{
    known_host host{.id = one.at("id"),
                    .name = one.at("name"),
                    .address = one.at("address"),
                    .ips = one.at("ips"),
                    .first = one.at("first"),
                    .last = one.at("last"),
                    .mirrors = one.at("mirrors"),
                    .worst = std::nullopt};
    if (one.contains("worst")) {
        const json &worst = one.at("worst");
        host.worst = {worst.at("disk"), worst.at("guid"), worst.at("state"), worst.at("percent")};
    }
    return host;
}
} // namespace

std::string hosts_document(const std::map<std::string, known_host> &hosts, const std::string &id)
{
    json list = json::array();
    for (const auto &[key, host] : hosts) {
        if (id.empty() || host.id == id)
            list.push_back(document_of(host));
    }
    return json{{"hosts", std::move(list)}}.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

std::optional<std::vector<known_host>> read_hosts(const std::string &text)
{
    try {
        std::vector<known_host> hosts;
        const json document = json::parse(text);
        for (const json &one : document.at("hosts"))
            hosts.push_back(host_of(one));
        return hosts;
    } catch (const json::exception &) {
        return std::nullopt;
    }
}
