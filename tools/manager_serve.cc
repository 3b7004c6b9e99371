#include "tools/manager_serve.h"

#include "base/thread.h"
#include "protocol/stream.h"
#include "tools/manager_answer.h"
#include "tools/manager_commands.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <random>

namespace {
// What the threads of connections are given. The counter outlives the service with the last of them.
struct visit_job {
    visit guest;
    std::shared_ptr<const connection> reports;
};

struct service {
    connection listener;
    connection hang_ups;                       // readable after SIGHUP
    std::shared_ptr<const connection> reports; // counts those that threads have dealt with
    treatment treat;
    std::mt19937 dice;
};

connection open_listener(const serve_options &wanted)
{
    connection listener(reused_sock());
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(wanted.port);
    if (inet_pton(AF_INET, wanted.bind.c_str(), &address.sin_addr) != 1) {
        errno = EINVAL;
        return connection();
    }
    constexpr int backlog = 64;
    // Non-blocking: a connection that was there at the poll may be gone at the accept.
    if (fcntl(listener.fd, F_SETFL, O_NONBLOCK) != 0 ||
        bind(listener.fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        listen(listener.fd, backlog) != 0)
        return connection();
    return listener;
}

connection open_hang_ups()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return connection(signalfd(-1, &signals, SFD_CLOEXEC));
}

// The file is laid over the options of the command line: a line that was taken out has no effect any more.
void reread(service &running, const serve_options &wanted)
{
    signalfd_siginfo info;
    if (read(running.hang_ups.fd, &info, sizeof info) != sizeof info)
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
    if (answer_report(job->guest) && write(job->reports->fd, &one, sizeof one) != sizeof one)
        complain("counting reports", strerror(errno));
    return nullptr;
}

bool accept_one(service &running)
{
    sockaddr_in address{};
    socklen_t length = sizeof address;
    connection peer(
        accept4(running.listener.fd, reinterpret_cast<sockaddr *>(&address), &length, SOCK_CLOEXEC));
    if (peer.fd < 0) {
        if (errno == ECONNABORTED || errno == EAGAIN || errno == EINTR)
            return true;
        complain("accept", strerror(errno));
        return false;
    }
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

// The reports dealt with since the last look.
uint64_t take_reports(const service &running)
{
    uint64_t count = 0;
    return read(running.reports->fd, &count, sizeof count) == sizeof count ? count : 0;
}

int serve_until(service &running, const serve_options &wanted)
{
    uint64_t served = 0;
    while (wanted.count == 0 || served < wanted.count) {
        pollfd waiting[] = {{running.listener.fd, POLLIN, 0},
                            {running.hang_ups.fd, POLLIN, 0},
                            {running.reports->fd, POLLIN, 0}};
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
    connection listener = open_listener(wanted);
    if (listener.fd < 0)
        return complain(place, strerror(errno));
    service running{.listener = std::move(listener),
                    .hang_ups = open_hang_ups(),
                    .reports = std::make_shared<const connection>(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
                    .treat = wanted.treat,
                    .dice = std::mt19937(wanted.treat.seed)};
    if (running.hang_ups.fd < 0 || running.reports->fd < 0)
        return complain(place, strerror(errno));
    printf("listening on %s\n", place.c_str());
    fflush(stdout);
    return serve_until(running, wanted);
}
