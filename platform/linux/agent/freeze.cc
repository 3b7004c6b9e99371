#include "platform/linux/agent/freeze.h"

#include "base/tool.h"
#include "platform/linux/agent/guard/orders.h"
#include "platform/linux/host/weak_log.h"
#include "platform/linux/state/text.h"

#include <dlfcn.h>
#include <linux/fs.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <thread>

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr auto start_limit = 5s;
constexpr auto thaw_limit = 5s; // beyond the deadline
constexpr auto pause_between_looks = 2ms;

} // namespace

std::string guard_program()
{
    Dl_info library{};
    if (dladdr(reinterpret_cast<const void *>(&guard_program), &library) == 0 || !library.dli_fname)
        return "freeze-guard";
    const std::string path = library.dli_fname;
    return path.substr(0, path.rfind('/') + 1) + "freeze-guard";
}

freeze_guard::freeze_guard(std::vector<mounted_file_system> systems, milliseconds deadline)
    : systems_(std::move(systems)), deadline_(deadline)
{
}

std::unique_ptr<freeze_guard> freeze_guard::start(const std::string &program,
                                                  std::vector<mounted_file_system> systems,
                                                  milliseconds deadline, std::string *why)
{
    if (systems.empty() || systems.size() > most_file_systems) {
        *why = systems.empty() ? "no file system of the disks is mounted" : "there are too many file systems";
        return nullptr;
    }
    std::unique_ptr<freeze_guard> guard(new freeze_guard(std::move(systems), deadline));
    if (!guard->start_process(program, why))
        return nullptr;
    const auto answer = guard->hand_over_files() ? guard->answer_in(start_limit) : std::nullopt;
    if (answer && answer->error == 0)
        return guard;
    *why = "the guard cannot be made ready: " + std::string(strerror(answer ? answer->error : errno));
    return nullptr;
}

bool freeze_guard::start_process(const std::string &program, std::string *why)
{
    int ends[2] = {-1, -1};
    int error = socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0 ? 0 : errno;
    socket_.reset(ends[0]);
    const unique_fd other(ends[1]);
    if (error == 0)
        error = start_tool({.words = {program, std::to_string(deadline_.count())},
                            .output = other.get(),
                            .leads_group = true},
                           &guard_);
    if (error != 0)
        *why = program + " cannot be run: " + strerror(error);
    return error == 0;
}

bool freeze_guard::hand_over_files() const
{
    guard_order order = guard_order::take;
    iovec text = {&order, sizeof order};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * most_file_systems)] = {};
    const size_t size = sizeof(int) * systems_.size();
    msghdr message = {
        .msg_iov = &text, .msg_iovlen = 1, .msg_control = control, .msg_controllen = CMSG_SPACE(size)};
    cmsghdr *header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(size);
    for (size_t i = 0; i < systems_.size(); i++) {
        const int file = systems_[i].file.get();
        memcpy(CMSG_DATA(header) + i * sizeof file, &file, sizeof file);
    }
    return sendmsg(socket_.get(), &message, MSG_NOSIGNAL) == sizeof order;
}

// Null with errno: ECONNRESET: the guard has ended; ETIMEDOUT.
std::optional<guard_answer> freeze_guard::answer_in(milliseconds limit) const
{
    const auto end = steady_clock::now() + limit;
    pollfd from = {.fd = socket_.get(), .events = POLLIN};
    int ready = 0;
    do {
        const auto left = std::chrono::ceil<milliseconds>(end - steady_clock::now());
        ready = poll(&from, 1, static_cast<int>(std::max(left, 0ms).count()));
    } while (ready < 0 && errno == EINTR);
    if (ready == 0)
        errno = ETIMEDOUT;
    if (ready <= 0)
        return std::nullopt;
    guard_answer answer;
    if (recv(socket_.get(), &answer, sizeof answer, 0) == sizeof answer)
        return answer;
    errno = ECONNRESET;
    return std::nullopt;
}

std::optional<guard_answer> freeze_guard::ask(guard_order order, milliseconds limit) const
{
    if (send(socket_.get(), &order, sizeof order, MSG_NOSIGNAL) == sizeof order)
        return answer_in(limit);
    errno = ECONNRESET;
    return std::nullopt;
}

std::string freeze_guard::complaint(const char *what, const std::optional<guard_answer> &answer) const
{
    if (!answer)
        return errno == ETIMEDOUT ? "it took too long" : "the guard has ended before its time";
    return escaped(systems_[answer->which].point) + " cannot be " + what + ": " + strerror(answer->error);
}

// A guard that was killed has left frozen what it froze.
void freeze_guard::thaw_without_guard() const
{
    for (const mounted_file_system &one : systems_) {
        while (ioctl(one.file.get(), FITHAW, 0) != 0 && errno != EINVAL && errno != EOPNOTSUPP)
            std::this_thread::sleep_for(pause_between_looks);
    }
}

bool freeze_guard::sync(milliseconds limit, std::string *why)
{
    const auto answer = ask(guard_order::sync, limit);
    if (answer && answer->error == 0)
        return true;
    *why = complaint("synced", answer);
    return false;
}

bool freeze_guard::freeze(std::string *why)
{
    const auto answer = ask(guard_order::freeze, deadline_);
    if (answer && answer->error == 0)
        return true;
    if (!answer && errno == ECONNRESET) {
        thaw_without_guard();
        errno = ECONNRESET;
    }
    *why = complaint("frozen", answer);
    return false;
}

bool freeze_guard::thaw(std::string *why)
{
    const auto answer = ask(guard_order::thaw, deadline_ + thaw_limit);
    if (!answer) {
        const bool is_gone = errno == ECONNRESET;
        if (is_gone)
            thaw_without_guard();
        *why = is_gone ? "the guard has ended before its time" : "the file systems cannot be thawed yet";
        log_error("The freeze for a mark: %s", why->c_str());
        return false;
    }
    time_frozen_ = milliseconds(answer->frozen_ms);
    if (answer->failures > 0)
        log_error("The thaw of file systems failed %u times before it succeeded", answer->failures);
    if (answer->error == 0)
        return true;
    const std::string point = escaped(systems_[answer->which].point);
    *why = answer->error == ETIMEDOUT ? "the file systems were thawed at the deadline, after " +
                                            std::to_string(time_frozen_.count()) + " ms"
                                      : "somebody else has thawed " + point;
    return false;
}

freeze_guard::~freeze_guard()
{
    socket_.reset();
    if (guard_ < 0)
        return;
    const auto end = steady_clock::now() + thaw_limit;
    int status = 0;
    while (waitpid(guard_, &status, WNOHANG) == 0) {
        if (steady_clock::now() >= end) {
            log_error("The freeze guard, process %d, still waits for a file system", guard_);
            return;
        }
        std::this_thread::sleep_for(pause_between_looks);
    }
}
