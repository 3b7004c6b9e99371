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

namespace {
// A word from outside. The tool takes one that begins with '-' for an option, and looks for the files of its
// records by names, which '/' would lead elsewhere.
bool is_name(const std::string &word)
{
    return is_plain_word(word) && word.front() != '-' && word.find('/') == std::string::npos;
}

// A call of the tool with OPTIONS, to which names are added one by one: a name with a blank would pass as two
// plain words.
class tool_call {
public:
    explicit tool_call(const char *options) : line_(std::string("iscsiadm ") + options) {}

    void add(const char *option) { line_ += std::string(" ") + option; }
    void add_name(const std::string &name)
    {
        add(name.c_str());
        are_names_safe_ = are_names_safe_ && is_name(name);
    }
    void add(const char *option, const optional_text &name)
    {
        if (!name)
            return;
        add(option);
        add_name(*name);
    }

    int run() const
    {
        log_debug("%s", line_.c_str());
        errno = EINVAL;
        if (are_names_safe_ && shell_run(line_) == 0)
            return 0;
        log_error("Failed to execute cmd: '%s' error: '%s'", line_.c_str(), strerror(errno));
        return -1;
    }

private:
    std::string line_;
    bool are_names_safe_ = true;
};

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
    tool_call call("-m node");
    if (action.portal_as_option)
        call.add("-p", portal);
    else if (portal)
        call.add_name(*portal);
    call.add("-T", target->iqn);
    call.add("-I", iface);
    call.add(action.option);
    return call.run();
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
    tool_call call("-m discovery -t st");
    call.add("-p", portal);
    call.add("-I", iface);
    if (call.run() != 0)
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
