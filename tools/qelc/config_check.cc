#include "tools/qelc/config_check.h"

#include "base/clock.h"
#include "base/fd.h"
#include "base/number.h"
#include "base/xml.h"
#include "config/config.h"
#include "protocol/stream.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <libxml/xmlerror.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {
constexpr char pid_file[] = "/var/run/qelcd.pid";
constexpr int least_port = 1, most_port = 65535;

std::string at(const std::string &path, long line)
{
    return path + (line > 0 ? ":" + std::to_string(line) : "") + ": ";
}

// What the parser has seen last, in one line.
std::string parse_problem(const std::string &path)
{
    const xmlError *error = xmlGetLastError();
    if (!error || !error->message)
        return at(path, 0) + "it has a document type, which is refused; take that out";
    std::string why = error->message;
    why.resize(why.find_last_not_of('\n') + 1);
    return at(path, error->line) + why + "; mend the XML there";
}

// The last child of that name, which is the one that counts.
const xmlNode *last_child(const xmlNode *root, const char *name)
{
    const xmlNode *last = nullptr;
    for (const xmlNode *child : xml_children{root}) {
        if (xml_is_named(child, name))
            last = child;
    }
    return last;
}

int port_of(const xmlNode *node)
{
    const optional_text text = node ? xml_content(node) : std::nullopt;
    return text ? scan_int(text->c_str()) : 0;
}

void check_port(const std::string &path, const xmlNode *root, const char *name, config_remarks &remarks)
{
    const xmlNode *node = last_child(root, name);
    const std::string mending = std::string("; write <") + name + ">N</" + name + ">, N from 1 to 65535";
    if (!node)
        remarks.faults.push_back(at(path, 0) + "there is no " + name + mending);
    else if (port_of(node) < least_port || port_of(node) > most_port)
        remarks.faults.push_back(at(path, xmlGetLineNo(node)) + name + " \"" +
                                 xml_content(node).value_or("") + "\" is no port" + mending);
}

// The addresses NAME inside the section NODE that are none.
void check_addresses(const std::string &path, const xmlNode *node, const char *name,
                     std::vector<std::string> &remarks)
{
    for (const xmlNode *child : xml_children{node}) {
        in_addr address{};
        const optional_text text = xml_is_named(child, name) ? xml_content(child) : std::nullopt;
        if (text && !text->empty() && inet_pton(AF_INET, text->c_str(), &address) != 1)
            remarks.push_back(at(path, xmlGetLineNo(child)) + name + " \"" + *text +
                              "\" is no IPv4 address; write it as 192.0.2.1, or take the line out");
    }
}

void check_content(const std::string &path, const xmlNode *root, config_remarks &remarks)
{
    check_port(path, root, "ClientPort", remarks);
    check_port(path, root, "ServerPort", remarks);
    const xmlNode *guid = last_child(root, "ClientGUID");
    if (!guid || !xml_content(guid))
        remarks.hints.push_back(at(path, guid ? xmlGetLineNo(guid) : 0) +
                                "there is no ClientGUID, by which a manager knows this host");
    for (const xmlNode *child : xml_children{root}) {
        if (xml_is_named(child, "IPAddrFilter"))
            check_addresses(path, child, "IPAddr", remarks.faults);
        if (xml_is_named(child, "Manager"))
            check_addresses(path, child, "ManagerIPAddr", remarks.hints);
    }
}

// 0, or an error number. What a working process has left that was killed may have the port for a moment.
int try_port(int port)
{
    constexpr int most_tries = 20;
    constexpr unsigned pause_ms = 100;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    const auto *any = reinterpret_cast<const sockaddr *>(&address);
    for (int tries = 1;; ++tries) {
        const unique_fd socket = reused_sock();
        if (bind(socket.get(), any, sizeof address) == 0 && listen(socket.get(), 1) == 0)
            return 0;
        if (errno != EADDRINUSE || tries == most_tries)
            return errno;
        clock_sleep_ms(pause_ms);
    }
}

// Why it cannot be read; "" if it can.
std::string read_problem(const std::string &path)
{
    const unique_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    char byte = 0;
    if (file.is_open() && read(file.get(), &byte, 1) >= 0)
        return "";
    return at(path, 0) + strerror(errno) + (errno == ENOENT ? "; qelc init makes one" : "");
}
} // namespace

config_remarks check_config(const std::string &path)
{
    config_remarks remarks;
    if (const std::string problem = read_problem(path); !problem.empty())
        return {{problem}, {}, access(path.c_str(), F_OK) != 0 && errno == ENOENT};
    xmlResetLastError();
    const xml_doc doc = xml_parse_file(path.c_str());
    const xmlNode *root = doc ? xml_root(doc) : nullptr;
    if (!root)
        return {{parse_problem(path)}, {}};
    if (!xml_is_named(root, "Tessaron"))
        return {{at(path, xmlGetLineNo(root)) + "the outermost element is " +
                 reinterpret_cast<const char *>(root->name) + "; it has to be Tessaron"},
                {}};
    check_content(path, root, remarks);
    // The daemon's own reader has the last word.
    if (remarks.faults.empty() && !qelcfg_read(path.c_str()))
        remarks.faults.push_back(at(path, 0) + "the daemon cannot use it, see above");
    return remarks;
}

void check_port_is_free(const std::string &path, config_remarks &remarks)
{
    const xml_doc doc = xml_parse_file(path.c_str());
    const xmlNode *node = doc ? last_child(xml_root(doc), "ClientPort") : nullptr;
    const int error = node ? try_port(port_of(node)) : 0;
    if (error == 0)
        return;
    const char *why = error == EADDRINUSE ? "another program listens there" : strerror(error);
    remarks.faults.push_back(at(path, xmlGetLineNo(node)) + "ClientPort " + std::to_string(port_of(node)) +
                             ": " + why + "; end it, or choose another port");
}

pid_t supervisor_pid()
{
    const unique_fd file(open(pid_file, O_RDONLY | O_CLOEXEC));
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    const bool is_held = file.is_open() && fcntl(file.get(), F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
    return is_held ? lock.l_pid : 0;
}

bool is_daemon_running()
{
    return supervisor_pid() != 0;
}
