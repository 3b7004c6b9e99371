#include "tools/manager/serve.h"

#include "base/shortage.h"
#include "base/thread.h"
#include "protocol/stream.h"
#include "tools/manager/answer.h"
#include "tools/manager/caretaker.h"
#include "tools/manager/commands.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string_view>
#include <thread>
#include <utility>

namespace {
// What the thread of a connection is given. The counter may outlive the service.
struct visit_job {
    visit guest;
    std::shared_ptr<const unique_fd> reports;
};

struct service {
    unique_fd listener;
    unique_fd signals; // readable after SIGHUP, and after a signal to end if state is kept
    std::shared_ptr<const unique_fd> reports; // counts those that threads have handled
    std::shared_ptr<host_table> hosts;        // null: none is kept
    treatment treat;
    std::mt19937 dice;
    bool is_exhausted = false; // no connection could be accepted the last time
};

unique_fd open_listener(const serve_options &wanted)
{
    unique_fd listener(reused_sock());
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(wanted.port);
    if (inet_pton(AF_INET, wanted.bind.c_str(), &address.sin_addr) != 1) {
        errno = EINVAL;
        return unique_fd();
    }
    constexpr int backlog = 4096; // hosts that were started at the same time come at the same time
    // Non-blocking: a connection that was there at the poll may be gone at the accept.
    if (fcntl(listener.get(), F_SETFL, O_NONBLOCK) != 0 ||
        bind(listener.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        listen(listener.get(), backlog) != 0)
        return unique_fd();
    return listener;
}

unique_fd open_signals(bool keeps_state)
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGHUP);
    if (keeps_state) {
        sigaddset(&signals, SIGTERM);
        sigaddset(&signals, SIGINT);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return unique_fd(signalfd(-1, &signals, SFD_CLOEXEC));
}

// The file overrides the options of the command line: a line that was removed has no effect any more.
void reread(service &running, const serve_options &wanted)
{
    std::string error;
    treatment changed = wanted.treat;
    if (wanted.control.empty()) {
        complain("SIGHUP", "no --control file to read");
    } else if (!apply_control_file(wanted.control, changed, error)) {
        complain(error, "the options stay as they were");
    } else {
        running.treat = std::move(changed);
        running.dice.seed(running.treat.seed);
        print_line("options read from " + wanted.control);
    }
}

// False for a signal to end.
bool obey_signal(service &running, const serve_options &wanted)
{
    signalfd_siginfo info;
    if (read(running.signals.get(), &info, sizeof info) != sizeof info)
        return true;
    if (info.ssi_signo != SIGHUP)
        return false;
    reread(running, wanted);
    return true;
}

// Drawn here, and not in the connections' threads, so that it depends on the seed and the order alone.
bool is_difficult(service &running)
{
    return running.dice() % 100 < running.treat.chance;
}

void *answer_thread(void *arg)
{
    pthread_detach(pthread_self());
    const std::unique_ptr<visit_job> job(static_cast<visit_job *>(arg));
    const uint64_t one = 1;
    bool is_report = false;
    if (!end_at_shortage([&] { is_report = answer_report(job->guest); }))
        complain(job->guest.name, "no memory for its report");
    if (is_report && write(job->reports->get(), &one, sizeof one) != sizeof one)
        complain("counting reports", strerror(errno));
    return nullptr;
}

bool is_shortage(int cause)
{
    return cause == EMFILE || cause == ENFILE || cause == ENOBUFS || cause == ENOMEM;
}

// The connection stays in the queue, and poll would return at once.
void wait_for_descriptors(service &running, int cause)
{
    if (!std::exchange(running.is_exhausted, true))
        complain("accept", strerror(cause));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
}

// A peer that neither sends nor reads does not keep its thread.
void limit_patience(const unique_fd &peer)
{
    constexpr timeval patience{.tv_sec = 60, .tv_usec = 0};
    setsockopt(peer.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    setsockopt(peer.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
}

void start_answering(service &running, unique_fd peer, const char *name)
{
    limit_patience(peer);
    std::unique_ptr<visit_job> job(
        new visit_job{.guest = {std::move(peer), name, running.treat, is_difficult(running), running.hosts},
                      .reports = running.reports});
    pthread_t thread;
    if (const int failure = start_thread(&thread, answer_thread, job.get()))
        complain(name, strerror(failure));
    else
        static_cast<void>(job.release()); // the thread's from now on
}

bool accept_one(service &running)
{
    sockaddr_in address{};
    socklen_t length = sizeof address;
    unique_fd peer(
        accept4(running.listener.get(), reinterpret_cast<sockaddr *>(&address), &length, SOCK_CLOEXEC));
    if (!peer.is_open()) {
        if (errno == ECONNABORTED || errno == EAGAIN || errno == EINTR)
            return true;
        const int cause = errno;
        if (is_shortage(cause))
            wait_for_descriptors(running, cause);
        else
            complain("accept", strerror(cause));
        return is_shortage(cause);
    }
    running.is_exhausted = false;
    char name[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address.sin_addr, name, sizeof name);
    start_answering(running, std::move(peer), name);
    return true;
}

// A service manager that has started this program waits for this datagram (sd_notify(3)).
void tell_service_manager()
{
    const char *path = getenv("NOTIFY_SOCKET");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (!path || strlen(path) >= sizeof address.sun_path)
        return;
    strcpy(address.sun_path, path);
    if (address.sun_path[0] == '@') // of the abstract kind
        address.sun_path[0] = 0;
    const unique_fd sender(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    constexpr std::string_view ready = "READY=1";
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + strlen(path));
    if (sendto(sender.get(), ready.data(), ready.size(), MSG_NOSIGNAL,
               reinterpret_cast<const sockaddr *>(&address), length) < 0)
        complain(path, strerror(errno));
}

// The number of reports that were handled since the last call.
uint64_t take_reports(const service &running)
{
    uint64_t count = 0;
    return read(running.reports->get(), &count, sizeof count) == sizeof count ? count : 0;
}

int serve_until(service &running, const serve_options &wanted)
{
    uint64_t served = 0;
    while (wanted.count == 0 || served < wanted.count) {
        pollfd waiting[] = {{running.listener.get(), POLLIN, 0},
                            {running.signals.get(), POLLIN, 0},
                            {running.reports->get(), POLLIN, 0}};
        if (poll(waiting, std::size(waiting), -1) < 0 && errno != EINTR)
            return complain("poll", strerror(errno));
        if (waiting[1].revents && !obey_signal(running, wanted))
            return EXIT_SUCCESS;
        if (waiting[2].revents)
            served += take_reports(running);
        if (waiting[0].revents && !accept_one(running))
            return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
} // namespace

int serve(const serve_options &wanted)
{
    const std::string place = wanted.bind + ":" + std::to_string(wanted.port);
    unique_fd listener = open_listener(wanted);
    if (!listener.is_open())
        return complain(place, strerror(errno));
    service running{.listener = std::move(listener),
                    .signals = open_signals(!wanted.state.empty()),
                    .reports = std::make_shared<const unique_fd>(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
                    .hosts = wanted.state.empty() ? nullptr : std::make_shared<host_table>(),
                    .treat = wanted.treat,
                    .dice = std::mt19937(wanted.treat.seed)};
    if (!running.signals.is_open() || !running.reports->is_open())
        return complain(place, strerror(errno));
    caretaker_holder caring = running.hosts ? start_caretaker(wanted.state, running.hosts) : nullptr;
    if (running.hosts && !caring)
        return EXIT_FAILURE;
    printf("listening on %s\n", place.c_str());
    fflush(stdout);
    tell_service_manager();
    return serve_until(running, wanted);
}
