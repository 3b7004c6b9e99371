#include "tools/common/host_list.h"

#include "tools/common/host_document.h"

#include <cerrno>
#include <fstream>
#include <sstream>

host_list find_hosts(const std::string &folder, const std::string &id)
{
    std::string text;
    host_list list{.hosts = {}, .failure = ask_service(folder, id.empty() ? "hosts" : "hosts " + id, text)};
    auto hosts = list.failure == 0 ? read_hosts(text) : std::nullopt;
    if (list.failure == 0 && !hosts)
        list.failure = EIO;
    if (!hosts)
        hosts = read_hosts(read_saved_hosts(folder).value_or(""));
    list.hosts = std::move(hosts).value_or(std::vector<known_host>{});
    // The saved list has all hosts, and so has the answer of an older service.
    if (!id.empty())
        std::erase_if(list.hosts, [&](const known_host &host) { return host.id != id; });
    return list;
}

bool is_service_missing(int failure)
{
    return failure == ENOENT || failure == ECONNREFUSED;
}

std::string hosts_path(const std::string &folder)
{
    return folder + "/hosts";
}

std::optional<std::string> read_saved_hosts(const std::string &folder)
{
    const std::ifstream file(hosts_path(folder));
    std::stringstream text;
    text << file.rdbuf();
    return file ? std::optional(text.str()) : std::nullopt;
}
