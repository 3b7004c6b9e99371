#include "tools/manager/state_folder.h"

#include "protocol/stream.h"
#include "tools/common/host_document.h"
#include "tools/common/host_list.h"
#include "tools/manager/commands.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {
std::string answer_to(const std::string &question, host_table &table)
{
    const size_t blank = std::min(question.find(' '), question.size());
    const std::string verb = question.substr(0, blank);
    const std::string word = question.substr(std::min(blank + 1, question.size()));
    if (verb == "forget")
        return forget_host(table, word);
    if (verb == "release")
        return release_host(table, word);
    const std::lock_guard held(table.lock);
    return verb == "hosts" ? hosts_document(table.hosts, word) : "no such command";
}
} // namespace

void load_hosts(const std::string &folder, host_table &table)
{
    const std::optional<std::string> text = read_saved_hosts(folder);
    if (!text)
        return;
    const std::optional<std::vector<known_host>> hosts = read_hosts(*text);
    if (!hosts) {
        const std::string beside = hosts_path(folder) + ".unusable";
        complain(hosts_path(folder), "is no list of hosts; it is put beside as " + beside);
        rename(hosts_path(folder).c_str(), beside.c_str());
        return;
    }
    for (const known_host &host : *hosts)
        table.hosts.emplace(key_of(host), host);
}

int save_hosts(const std::string &folder, const std::string &document)
{
    const std::string path = hosts_path(folder);
    const std::string fresh = path + ".new";
    unique_fd file(open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, S_IRUSR | S_IWUSR));
    const int count = static_cast<int>(document.size());
    if (!file.is_open() || qelc_writen(file.get(), document.data(), count) != count ||
        fdatasync(file.get()) != 0)
        return errno;
    return rename(fresh.c_str(), path.c_str()) == 0 ? 0 : errno;
}

unique_fd open_socket(const std::string &folder)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = service_socket_path(folder);
    if (path.size() >= sizeof address.sun_path) {
        complain(path, "the path is too long for a socket");
        return unique_fd();
    }
    path.copy(address.sun_path, path.size());
    unlink(path.c_str()); // of a service that was killed
    constexpr int backlog = 16;
    unique_fd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!listener.is_open() ||
        bind(listener.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        listen(listener.get(), backlog) != 0) {
        complain(path, strerror(errno));
        return unique_fd();
    }
    return listener;
}

void answer_command(const unique_fd &socket, host_table &table)
{
    const unique_fd peer(accept4(socket.get(), nullptr, nullptr, SOCK_CLOEXEC));
    const timeval limit{.tv_sec = service_patience, .tv_usec = 0};
    if (!peer.is_open() || setsockopt(peer.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) != 0 ||
        setsockopt(peer.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0)
        return;
    constexpr size_t longest_question = 4096;
    send_text(peer, answer_to(read_text(peer, longest_question), table));
}
