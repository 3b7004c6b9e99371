#include "client/channels.h"

#include "base/file.h"
#include "base/log.h"
#include "client/sysfs.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <optional>

namespace {
constexpr char fc_host_dir[] = "/sys/class/fc_host";
constexpr char iscsi_session_dir[] = "/sys/class/iscsi_session";
constexpr char initiator_name_path[] = "/etc/iscsi/initiatorname.iscsi";
constexpr int line_size = 512;

// The name in a line "InitiatorName=NAME".
optional_text parse_initiator(const char *line)
{
    char name[line_size];
    static_assert(line_size == 512);
    return sscanf(line, "InitiatorName=%511s", name) == 1 ? optional_copy(name) : std::nullopt;
}

optional_text first_initiator()
{
    const file_stream stream = open_for_reading(initiator_name_path);
    char line[line_size];
    if (!stream || !fgets(line, sizeof line, stream.get()))
        return std::nullopt;
    return parse_initiator(line);
}

void add_iscsi_initiators(std::list<std::string> &list)
{
    const file_stream stream = open_for_reading(initiator_name_path);
    if (!stream) {
        log_warning("Failed to get iqn");
        return;
    }
    char line[line_size];
    while (fgets(line, sizeof line, stream.get())) {
        if (optional_text name = parse_initiator(line))
            list.push_back(*std::move(name));
    }
}

// The WWN of every Fibre Channel port. Returns 0, or an errno value.
int add_wwns(std::list<std::string> &list)
{
    std::list<dir_entry> hosts;
    if (const int failure = get_links_in_dir(hosts, fc_host_dir))
        return failure;
    for (const dir_entry &host : hosts) {
        std::string wwn;
        if (sysfs_read_attribute(&wwn, (host.path + "/port_name").c_str()) > 0)
            list.push_back(std::move(wwn));
    }
    return 0;
}

// The first line of a session's target name without its newline; absent if it cannot be read.
optional_text session_target(const char *session)
{
    const std::string path = std::string(iscsi_session_dir) + "/" + session + "/targetname";
    const file_stream stream = open_for_reading(path.c_str());
    char line[line_size];
    if (!stream || !fgets(line, sizeof line, stream.get()) || line[0] == '\0')
        return std::nullopt;
    line[strlen(line) - 1] = '\0';
    return line;
}

std::optional<qel_chn_t> iscsi_channel(const qel_t *client)
{
    if (!client->manager || !_is_iscsi_ssn_exist(c_text(client->manager->target_iqn)))
        return std::nullopt;
    return qel_chn_t{
        .type = chn_iscsi, .initiator = first_initiator(), .target = client->manager->target_iqn};
}
} // namespace

int qel_get_chns_lock(const qel_t *client, std::list<qel_chn_t> &list, std::mutex &client_lock)
{
    {
        const std::lock_guard held(client_lock);
        if (std::optional<qel_chn_t> channel = iscsi_channel(client)) {
            qel_chn_t *entry = list_append(list);
            if (!entry) {
                log_error("Failed to allocate memory");
                return -1;
            }
            *entry = *std::move(channel);
        }
    }
    if (access(fc_host_dir, F_OK) != 0)
        return 0;
    std::list<std::string> wwns;
    const int failure = add_wwns(wwns);
    for (std::string &wwn : wwns) {
        if (qel_chn_t *entry = list_append(list))
            *entry = {.type = chn_fc, .initiator = std::move(wwn), .target = std::nullopt};
        else
            log_error("Failed to allocate memory");
    }
    return failure;
}

int qel_get_inis(std::list<std::string> *list)
{
    if (!list)
        return -1;
    if (add_wwns(*list) != 0)
        log_warning("Failed to get wwn");
    add_iscsi_initiators(*list);
    return 0;
}

int _is_iscsi_ssn_exist(const char *target)
{
    if (!target)
        return 0;
    if (access(iscsi_session_dir, R_OK) != 0) {
        log_warning("Failed to access session file.");
        return 0;
    }
    const folder_stream sessions = open_folder(iscsi_session_dir);
    if (!sessions) {
        log_error("Failed to open dir:%s", iscsi_session_dir);
        return 0;
    }
    while (const dirent *entry = readdir(sessions.get())) {
        if (strncmp(entry->d_name, "session", strlen("session")) == 0 &&
            session_target(entry->d_name) == target)
            return 1;
    }
    return 0;
}
