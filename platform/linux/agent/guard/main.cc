// freeze-guard DEADLINE_MS: freezes file systems for the agent, and thaws them whatever becomes of the agent:
// when it says so, when it dies, and at the deadline. Its standard output is the socket to the agent.
//
// While file systems are frozen, whatever needs one of them waits; so this process has its memory locked and
// does nothing then that could need one. Freezing may take long, so that a thread of its own does it.

#include "platform/linux/agent/guard/orders.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <semaphore>
#include <thread>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int agent = STDOUT_FILENO;
constexpr milliseconds pause_after_failure{10};
constexpr size_t stack_of_freezer = size_t{256} * 1024;

struct file_systems {
    int files[most_file_systems] = {};
    unsigned count = 0;
    std::mutex lock; // guards all below
    bool is_frozen[most_file_systems] = {};
    bool is_over = false; // nothing may be frozen any more
    steady_clock::time_point since{};
    guard_answer end; // of the freeze
};

file_systems all;
std::binary_semaphore may_freeze(0);

void say(const guard_answer &answer)
{
    send(agent, &answer, sizeof answer, MSG_NOSIGNAL);
}

// EINVAL: it is not frozen any more. The caller holds the lock.
void thaw_one(unsigned i)
{
    if (ioctl(all.files[i], FITHAW, 0) == 0) {
        all.is_frozen[i] = false;
    } else if (errno == EINVAL) {
        all.is_frozen[i] = false;
        all.end.error = all.end.error ? all.end.error : EINVAL;
        all.end.which = i;
    } else {
        all.end.failures++;
    }
}

// The caller holds the lock.
bool is_any_frozen()
{
    for (unsigned i = 0; i < all.count; i++) {
        if (all.is_frozen[i])
            return true;
    }
    return false;
}

// Thaws what is frozen, however often that fails. The first REASON counts.
void thaw_all(int reason)
{
    const std::lock_guard held(all.lock);
    if (!all.is_over)
        all.end.error = reason;
    all.is_over = true;
    while (is_any_frozen()) {
        for (unsigned i = 0; i < all.count; i++) {
            if (all.is_frozen[i])
                thaw_one(i);
        }
        const auto time = std::chrono::duration_cast<milliseconds>(steady_clock::now() - all.since);
        all.end.frozen_ms = static_cast<uint32_t>(time.count());
        if (is_any_frozen())
            std::this_thread::sleep_for(pause_after_failure);
    }
}

int freeze_one(unsigned i)
{
    {
        const std::lock_guard held(all.lock);
        if (all.is_over)
            return ETIMEDOUT;
    }
    if (ioctl(all.files[i], FIFREEZE, 0) != 0)
        return errno;
    const std::lock_guard held(all.lock);
    all.is_frozen[i] = true;
    return all.is_over ? ETIMEDOUT : 0;
}

void *freeze_all(void *)
{
    may_freeze.acquire();
    guard_answer answer;
    for (unsigned i = 0; i < all.count && answer.error == 0; i++)
        answer = {.error = freeze_one(i), .which = i};
    if (answer.error != 0)
        thaw_all(answer.error);
    say(answer);
    return nullptr;
}

guard_answer sync_all()
{
    for (unsigned i = 0; i < all.count; i++) {
        if (syncfs(all.files[i]) != 0)
            return {.error = errno, .which = i};
    }
    return {};
}

bool take_file_systems()
{
    guard_order order{};
    iovec text = {&order, sizeof order};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof all.files)];
    msghdr message = {
        .msg_iov = &text, .msg_iovlen = 1, .msg_control = control, .msg_controllen = sizeof control};
    if (recvmsg(agent, &message, MSG_CMSG_CLOEXEC) != sizeof order || (message.msg_flags & MSG_CTRUNC) != 0)
        return false;
    const cmsghdr *header = CMSG_FIRSTHDR(&message);
    if (order != guard_order::take || !header || header->cmsg_type != SCM_RIGHTS)
        return false;
    const size_t size = header->cmsg_len - CMSG_LEN(0);
    memcpy(all.files, CMSG_DATA(header), size);
    all.count = static_cast<unsigned>(size / sizeof(int));
    return true;
}

// Whoever kills processes when memory is short had better spare the one that thaws. It may not be possible.
void ask_to_be_spared()
{
    const int file = open("/proc/self/oom_score_adj", O_WRONLY | O_CLOEXEC);
    [[maybe_unused]] const ssize_t count = write(file, "-1000", 5);
    close(file);
}

// The deadline holds on a host that has too much to do, too. It may not be allowed.
void ask_to_go_first()
{
    const sched_param lowest = {.sched_priority = 1};
    sched_setscheduler(0, SCHED_FIFO, &lowest);
}

// An error number.
int prepare(pthread_t *freezer)
{
    ask_to_be_spared();
    ask_to_go_first();
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, stack_of_freezer);
    const int error = pthread_create(freezer, &attributes, freeze_all, nullptr);
    if (error != 0)
        return error;
    return mlockall(MCL_CURRENT | MCL_FUTURE) == 0 ? 0 : errno;
}

enum class event { sync, freeze, thaw, deadline, agent_gone };

constexpr auto no_deadline = steady_clock::time_point::max();

event wait_for_event(steady_clock::time_point deadline)
{
    for (;;) {
        int limit = -1;
        if (deadline != no_deadline) {
            const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
            if (left.count() <= 0)
                return event::deadline;
            limit = static_cast<int>(left.count());
        }
        pollfd from = {.fd = agent, .events = POLLIN};
        if (poll(&from, 1, limit) <= 0)
            continue;
        guard_order order{};
        if (recv(agent, &order, sizeof order, 0) != sizeof order)
            return event::agent_gone;
        return order == guard_order::sync     ? event::sync
               : order == guard_order::freeze ? event::freeze
                                              : event::thaw;
    }
}

void obey(milliseconds limit, pthread_t freezer)
{
    auto deadline = no_deadline;
    bool has_begun = false;
    for (;;) {
        const event what = wait_for_event(deadline);
        if (what == event::sync) {
            say(sync_all());
        } else if (what == event::freeze && !has_begun) {
            has_begun = true;
            all.since = steady_clock::now();
            deadline = all.since + limit;
            may_freeze.release();
        } else {
            deadline = no_deadline;
            thaw_all(what == event::thaw ? 0 : ETIMEDOUT);
        }
        if (what == event::thaw)
            say(all.end);
        if (what == event::agent_gone)
            break;
    }
    if (has_begun)
        pthread_join(freezer, nullptr); // it thaws what it froze too late
}

} // namespace

int main(int argc, char **argv)
{
    const long limit = argc == 2 ? strtol(argv[1], nullptr, 10) : 0;
    sigset_t signals;
    sigfillset(&signals);
    pthread_sigmask(SIG_SETMASK, &signals, nullptr);
    if (limit <= 0 || !take_file_systems())
        return EXIT_FAILURE;
    pthread_t freezer{};
    const int error = prepare(&freezer);
    say({.error = error});
    if (error != 0)
        return EXIT_FAILURE;
    obey(milliseconds(limit), freezer);
    return EXIT_SUCCESS;
}
