#include "platform/linux/mirror/wake_event.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <iterator>

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds longest = 1min;
constexpr std::chrono::milliseconds longest_deaf = 50ms; // from which nobody can wake the thread

} // namespace

wake_event::wake_event() : event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void wake_event::notify()
{
    if (event_.is_open())
        eventfd_write(event_.get(), 1);
}

void wake_event::wait(std::unique_lock<std::mutex> &held, std::chrono::milliseconds limit, int other)
{
    limit = std::clamp(limit, 0ms, event_.is_open() ? longest : longest_deaf);
    // poll() passes over negative descriptors.
    pollfd waited_for[] = {{event_.get(), POLLIN, 0}, {other, POLLIN, 0}};
    held.unlock();
    poll(waited_for, std::size(waited_for), static_cast<int>(limit.count()));
    eventfd_t calls = 0;
    if (waited_for[0].revents != 0)
        eventfd_read(event_.get(), &calls);
    held.lock();
}
