#include "bench/private_daemon.h"

#include "base/fd.h"
#include "protocol/head.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <thread>

namespace {
constexpr char pid_file[] = "/var/run/qelcd.pid";

// All bytes until the daemon closes the connection.
std::string receive(int fd, int limit, const std::function<bool()> &give_up, bool &is_closed)
{
    constexpr int look_ms = 50;
    std::string bytes;
    for (int looks = 0; looks < limit * 1000 / look_ms;) {
        pollfd wait = {.fd = fd, .events = POLLIN, .revents = 0};
        if (poll(&wait, 1, look_ms) == 0) {
            ++looks;
            if (give_up())
                return bytes;
            continue;
        }
        char block[16 * 1024];
        const ssize_t count = recv(fd, block, sizeof block, 0);
        is_closed = count <= 0;
        if (is_closed)
            return bytes;
        bytes.append(block, static_cast<size_t>(count));
    }
    return bytes;
}
} // namespace

answer ask(uint32_t code, const std::string &body, int limit, const std::function<bool()> &give_up)
{
    answer given;
    const unique_fd peer(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = "/var/run/qelcd.sock"};
    if (connect(peer.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return given;
    message_head head{};
    head.version = protocol_version;
    head.cmd = code;
    head.data_len = static_cast<uint32_t>(body.size());
    const std::string frame = std::string(reinterpret_cast<const char *>(&head), sizeof head) + body;
    if (send(peer.get(), frame.data(), frame.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(frame.size()))
        return given;
    const std::string bytes = receive(peer.get(), limit, give_up, given.is_closed);
    if (bytes.size() < sizeof head)
        return given;
    memcpy(&head, bytes.data(), sizeof head);
    given.has_come = bytes.size() == sizeof head + head.data_len;
    given.status = head.ret;
    given.body = bytes.substr(sizeof head);
    return given;
}

int supervisor()
{
    int pid = 0;
    std::ifstream(pid_file) >> pid;
    return pid;
}

int worker()
{
    const std::string pid = std::to_string(supervisor());
    int child = 0;
    std::ifstream("/proc/" + pid + "/task/" + pid + "/children") >> child;
    return child;
}

bool wait_for_new_worker(int old)
{
    for (int tries = 0; tries < 60000; ++tries) { // on a busy machine each takes more than a millisecond
        const int now = worker();
        if (now != 0 && now != old)
            return true;
        if (now == 0 && kill(supervisor(), 0) != 0)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}
