#include "tools/manager/serve.h"

#include "base/thread.h"
#include "protocol/stream.h"
#include "tools/manager/answer.h"
#include "tools/manager/commands.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <random>
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
    unique_fd hang_ups;                       // readable after SIGHUP
    std::shared_ptr<const unique_fd> reports; // counts those that threads have handled
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
    constexpr int backlog = 64;
    // Non-blocking: a connection that was there at the poll may be gone at the accept.
    if (fcntl(listener.get(), F_SETFL, O_NONBLOCK) != 0 ||
        bind(listener.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        listen(listener.get(), backlog) != 0)
        return unique_fd();
    return listener;
}

unique_fd open_hang_ups()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return unique_fd(signalfd(-1, &signals, SFD_CLOEXEC));
}

// The file overrides the options of the command line: a line that was removed has no effect any more.
void reread(service &running, const serve_options &wanted)
{
    signalfd_siginfo info;
    if (read(running.hang_ups.get(), &info, sizeof info) != sizeof info)
        return;
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
    if (answer_report(job->guest) && write(job->reports->get(), &one, sizeof one) != sizeof one)
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
    std::unique_ptr<visit_job> job(new visit_job{
        .guest = {std::move(peer), name, running.treat, is_difficult(running)}, .reports = running.reports});
    pthread_t thread;
    if (const int failure = start_thread(&thread, answer_thread, job.get()))
        complain(name, strerror(failure));
    else
        static_cast<void>(job.release()); // the thread's from now on
    return true;
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
                            {running.hang_ups.get(), POLLIN, 0},
                            {running.reports->get(), POLLIN, 0}};
        if (poll(waiting, std::size(waiting), -1) < 0 && errno != EINTR)
            return complain("poll", strerror(errno));
        if (waiting[1].revents)
            reread(running, wanted);
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
                    .hang_ups = open_hang_ups(),
                    .reports = std::make_shared<const unique_fd>(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
                    .treat = wanted.treat,
                    .dice = std::mt19937(wanted.treat.seed)};
    if (!running.hang_ups.is_open() || !running.reports->is_open())
        return complain(place, strerror(errno));
    printf("listening on %s\n", place.c_str());
    fflush(stdout);
    return serve_until(running, wanted);
}
