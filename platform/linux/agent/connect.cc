#include "platform/linux/agent/connect.h"

#include "base/deleter.h"
#include "base/fd.h"
#include "base/secret.h"
#include "platform/linux/host/blocked_signals.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <future>
#include <memory>
#include <system_error>
#include <thread>

namespace {

using std::chrono::milliseconds;
using steady = std::chrono::steady_clock;

constexpr milliseconds time_limit{5000};

using address_list = std::unique_ptr<addrinfo, deleter<freeaddrinfo>>;

struct resolved {
    address_list addresses;
    std::string why; // if there are none
};

resolved resolve(const std::string &host, const std::string &port)
{
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    if (const int error = getaddrinfo(host.c_str(), port.c_str(), &hints, &found))
        return {nullptr, error == EAI_SYSTEM ? strerror(errno) : gai_strerror(error)};
    return {address_list(found), ""};
}

// The resolver has no time limit, so it runs on a thread that may be left behind. Signals of the process are
// blocked there.
std::future<resolved> start_resolving(const std::string &host, const std::string &port)
{
    std::packaged_task<resolved()> task([host, port] {
        resolved result = resolve(host, port);
        wipe_dead_stack(); // registers of the thread that has the password came along, and may have been
                           // saved
        return result;
    });
    std::future<resolved> result = task.get_future();
    const blocked_signals while_it_starts;
    try {
        std::thread(std::move(task)).detach();
    } catch (const std::system_error &) {
        result = {};
    }
    return result;
}

// 0, or an error number.
int wait_for_connection(int fd, steady::time_point end)
{
    for (;;) {
        const auto left = std::chrono::ceil<milliseconds>(end - steady::now());
        pollfd wait{.fd = fd, .events = POLLOUT, .revents = 0};
        const int count = left.count() > 0 ? poll(&wait, 1, static_cast<int>(left.count())) : 0;
        if (count == 0)
            return ETIMEDOUT;
        if (count < 0 && errno != EINTR)
            return errno;
        if (count > 0)
            break;
    }
    int error = 0;
    socklen_t size = sizeof error;
    return getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

int try_address(const addrinfo &address, steady::time_point end)
{
    const unique_fd fd(
        socket(address.ai_family, address.ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, address.ai_protocol));
    if (!fd.is_open())
        return errno;
    if (connect(fd.get(), address.ai_addr, address.ai_addrlen) == 0)
        return 0;
    return errno == EINPROGRESS ? wait_for_connection(fd.get(), end) : errno;
}

// Each address gets its share of the time, so that a silent one leaves time for the rest.
int try_addresses(const addrinfo *addresses, steady::time_point end)
{
    int count = 0;
    for (const addrinfo *one = addresses; one; one = one->ai_next)
        count++;
    int error = EHOSTUNREACH;
    for (const addrinfo *one = addresses; one; one = one->ai_next, count--) {
        const auto now = steady::now();
        error = try_address(*one, now + (end - now) / count);
        if (error == 0)
            break;
    }
    return error;
}

} // namespace

bool can_connect(const std::string &host, const std::string &port, std::string *why)
{
    const auto end = steady::now() + time_limit;
    std::future<resolved> answer = start_resolving(host, port);
    if (!answer.valid()) {
        *why = "no thread could be started";
        return false;
    }
    if (answer.wait_until(end) != std::future_status::ready) {
        *why = "the name is not resolved in time";
        return false;
    }
    const resolved target = answer.get();
    *why = target.why;
    if (!target.addresses)
        return false;
    const int error = try_addresses(target.addresses.get(), end);
    if (error != 0)
        *why = strerror(error);
    return error == 0;
}
