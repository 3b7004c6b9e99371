#include "iscsi/initiator.h"

#include "base/log.h"
#include "base/shell.h"
#include "iscsi/iface.h"
#include "iscsi/node_record.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

namespace {
using words = std::vector<std::string>;

void append(words &line, const char *option, const optional_text &value)
{
    if (value)
        line.insert(line.end(), {option, *value});
}

std::string joined(const words &line)
{
    std::string text = line.front();
    for (auto word = std::next(line.begin()); word != line.end(); ++word)
        text += " " + *word;
    return text;
}

// Checks each word by itself: a name with a blank would pass as two plain words.
int run_words(const words &line, const std::string &command)
{
    if (std::all_of(line.begin(), line.end(), is_plain_word))
        return shell_run(command);
    errno = EINVAL;
    return -1;
}

int run_tool(const words &line)
{
    const std::string command = joined(line);
    log_debug("%s", command.c_str());
    if (run_words(line, command) != 0) {
        log_error("Failed to execute cmd: '%s' error: '%s'", command.c_str(), strerror(errno));
        return -1;
    }
    return 0;
}

bool are_nodes(const qel_iscsi_node *target, const qel_iscsi_node *initiator)
{
    if (!target)
        log_error("tgt is NULL");
    else if (!initiator)
        log_error("init is NULL");
    return target && initiator;
}

bool choose_iface(optional_text &iface, const qel_iscsi_node *initiator)
{
    if (check_before_operate(&iface, initiator) == 0)
        return true;
    log_error("Failed to check iscsi node");
    return false;
}

struct node_action {
    bool portal_as_option; // else the portal is an argument without option
    const char *option;
};
constexpr node_action login = {.portal_as_option = true, .option = "-l"};
constexpr node_action logout = {.portal_as_option = false, .option = "-u"};

int act_on_channel(const node_action &action, const qel_iscsi_node *target, const qel_iscsi_node *initiator)
{
    if (!are_nodes(target, initiator))
        return -1;
    const optional_text portal = get_portal(target);
    optional_text iface;
    if (!choose_iface(iface, initiator))
        return -1;
    words line = {"iscsiadm", "-m", "node"};
    if (action.portal_as_option)
        append(line, "-p", portal);
    else if (portal)
        line.push_back(*portal);
    append(line, "-T", target->iqn);
    append(line, "-I", iface);
    line.emplace_back(action.option);
    return run_tool(line);
}
} // namespace

int is_iscsiadm_installed()
{
    constexpr const char *paths[] = {
        "/usr/local/sbin/iscsiadm", "/usr/local/bin/iscsiadm", "/bin/iscsiadm",
        "/sbin/iscsiadm",           "/usr/bin/iscsiadm",       "/usr/sbin/iscsiadm"};
    return std::any_of(std::begin(paths), std::end(paths),
                       [](const char *path) { return access(path, F_OK) == 0; });
}

int is_iscsid_running()
{
    const shell_pipe processes = shell_read("pgrep iscsid");
    char line[512] = "";
    return processes && fgets(line, sizeof line, processes.get()) && line[0] != '\0';
}

int qel_iscsi_discover_target(const qel_iscsi_node *target, const qel_iscsi_node *initiator)
{
    if (!are_nodes(target, initiator))
        return -1;
    const optional_text portal = get_portal(target);
    optional_text iface;
    if (!portal || !choose_iface(iface, initiator))
        return -1;
    words line = {"iscsiadm", "-m", "discovery", "-t", "st"};
    append(line, "-p", portal);
    append(line, "-I", iface);
    if (run_tool(line) != 0)
        return -1;
    // A record that cannot be removed only makes later logins slower.
    static_cast<void>(remove_iscsi_node_record(c_text(target->iqn), c_text(node_ip_str(*target))));
    return 0;
}

int qel_iscsi_login_channel(const qel_iscsi_node *target, const qel_iscsi_node *initiator)
{
    return act_on_channel(login, target, initiator);
}

int qel_iscsi_logout_channel(const qel_iscsi_node *target, const qel_iscsi_node *initiator)
{
    return act_on_channel(logout, target, initiator);
}

int qel_iscsi_discover_login(const qel_iscsi_node *target, const qel_iscsi_node *initiator)
{
    if (qel_iscsi_discover_target(target, initiator) != 0)
        return -1;
    return qel_iscsi_login_channel(target, initiator);
}
