#include "tools/common/exchange.h"

#include "base/log.h"
#include "base/xml.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstring>

namespace {
bool set_timeout(int fd, unsigned seconds)
{
    const timeval limit{.tv_sec = seconds, .tv_usec = 0};
    return setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0 &&
           setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) == 0;
}

unique_fd connect_to(int family, const sockaddr *address, socklen_t length, unsigned timeout,
                     std::string &error)
{
    unique_fd peer(socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (peer.is_open() && set_timeout(peer.get(), timeout) && connect(peer.get(), address, length) == 0)
        return peer;
    const bool timed_out = errno == EAGAIN || errno == EINPROGRESS;
    error = timed_out ? "time-out: no connection within " + std::to_string(timeout) + " s" : strerror(errno);
    return unique_fd();
}

// How long a read may wait, in seconds; 0: for ever.
unsigned timeout_of(int fd)
{
    timeval limit{};
    socklen_t length = sizeof limit;
    getsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, &length);
    return static_cast<unsigned>(limit.tv_sec);
}

using steady_clock = std::chrono::steady_clock;

bool is_late(steady_clock::time_point begin, unsigned limit)
{
    return limit > 0 && steady_clock::now() - begin >= std::chrono::seconds(limit);
}

// Until there is something to read, or LIMIT seconds are over.
void wait_for_answer(int fd, steady_clock::time_point begin, unsigned limit, const waiting_call &waiting)
{
    constexpr int pause_ms = 1000;
    pollfd answer{fd, POLLIN, 0};
    while (!is_late(begin, limit) && poll(&answer, 1, pause_ms) == 0)
        waiting();
}
} // namespace

std::optional<endpoint> parse_endpoint(const std::string &text, uint16_t default_port)
{
    const size_t colon = text.find(':');
    endpoint parsed{text.substr(0, colon), default_port};
    if (parsed.host.empty())
        return std::nullopt;
    if (colon != std::string::npos) {
        const char *first = text.data() + colon + 1;
        const char *last = text.data() + text.size();
        const auto [end, failure] = std::from_chars(first, last, parsed.port);
        if (failure != std::errc() || end != last || parsed.port == 0)
            return std::nullopt;
    }
    return parsed;
}

bool is_address(const std::string &text)
{
    in_addr address{};
    return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

std::string check_address(const std::string &text)
{
    return is_address(text) ? "" : text + " is not an IPv4 address";
}

unique_fd connect_tcp(const endpoint &peer, unsigned timeout, std::string &error)
{
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    if (const int failure =
            getaddrinfo(peer.host.c_str(), std::to_string(peer.port).c_str(), &hints, &found)) {
        error = gai_strerror(failure);
        return unique_fd();
    }
    const std::unique_ptr<addrinfo, void (*)(addrinfo *)> owner(found, freeaddrinfo);
    return connect_to(AF_INET, found->ai_addr, found->ai_addrlen, timeout, error);
}

unique_fd connect_local(const std::string &path, unsigned timeout, std::string &error)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        error = "the path is too long for a socket";
        return unique_fd();
    }
    path.copy(address.sun_path, path.size());
    return connect_to(AF_UNIX, reinterpret_cast<const sockaddr *>(&address), sizeof address, timeout, error);
}

std::string local_address(const unique_fd &peer)
{
    sockaddr_in address{};
    socklen_t length = sizeof address;
    char text[INET_ADDRSTRLEN] = "";
    if (getsockname(peer.get(), reinterpret_cast<sockaddr *>(&address), &length) == 0 &&
        address.sin_family == AF_INET)
        inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
    return text;
}

std::unique_ptr<request> exchange(const unique_fd &peer, uint32_t code, uint16_t origin,
                                  const optional_text &body, std::string &error, const waiting_call &waiting)
{
    auto req = std::make_unique<request>();
    req->send_head.version = protocol_version;
    req->send_head.origin = origin;
    req->send_head.cmd = code;
    if (body)
        set_send_xml(*req, *body);
    if (send_to_remote(peer.get(), req.get()) != 0) {
        error = "the request could not be sent";
        return nullptr;
    }
    const auto asked = steady_clock::now();
    const unsigned limit = timeout_of(peer.get());
    if (waiting)
        wait_for_answer(peer.get(), asked, limit, waiting);
    if (recv_from_remote(peer.get(), req.get()) != 0 || req->recv_head.version == 0) {
        error = is_late(asked, limit) ? "time-out: no answer within " + std::to_string(limit) + " s"
                                      : "the connection ended without an answer";
        return nullptr;
    }
    if (req->recv_xml && strlen(req->recv_xml.get()) < req->recv_head.data_len) {
        error = "the answer is incomplete";
        return nullptr;
    }
    return req;
}

const char *name_of(uint32_t code)
{
    for (const command_name &known : command_names) {
        if (known.code == code)
            return known.name;
    }
    return "command";
}

const char *meaning_of(uint16_t status)
{
    for (const status_meaning &known : status_meanings) {
        if (known.status == status)
            return known.meaning;
    }
    return "unknown status";
}

void init_tool()
{
    signal(SIGPIPE, SIG_IGN);
    setlocale(LC_CTYPE, "C.UTF-8"); // how wide characters are; Debian's libc always has this one
    set_log_level(LOG_EMERG);
    xml_init();
}
