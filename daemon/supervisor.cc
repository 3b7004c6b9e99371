#include "daemon/supervisor.h"

#include "base/clock.h"
#include "base/fd.h"
#include "base/log.h"
#include "config/config.h"
#include "config/save.h"
#include "daemon/listener.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {
constexpr size_t path_size = 512;

// Ends the process after a failed start. CAUSE, an errno value, is added to the message.
[[noreturn]] void fail_start(const char *message, int cause = 0)
{
    if (cause)
        log_error("%s: %s", message, strerror(cause));
    else
        log_error("%s", message);
    _exit(1);
}

// Not one of the descriptors 0 to 2, which are about to become /dev/null.
unique_fd open_pid_file(const char *name)
{
    char path[path_size];
    snprintf(path, sizeof path, "/var/run/%s.pid", name);
    unique_fd fd(open(path, O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0644));
    if (fd.is_open() && fd.get() <= STDERR_FILENO)
        fd.reset(fcntl(fd.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!fd.is_open())
        fail_start("Unable to create pid file");
    return fd;
}

// Only the owner of the lock truncates the file, so that a second instance leaves the first one's PID.
void lock_and_write_pid(int fd)
{
    if (lockf(fd, F_TLOCK, 0) != 0)
        fail_start("Unable to lock pid file");
    if (ftruncate(fd, 0) != 0)
        fail_start("Failed to ftruncate the PID file", errno);
    char text[16];
    const int length = snprintf(text, sizeof text, "%d\n", getpid());
    if (write(fd, text, static_cast<size_t>(length)) != length)
        fail_start("Failed to write PID to PID file", errno);
}

// Descriptors 0 to 2 belong to the process, not to a scope.
void close_standard_streams()
{
    close(STDIN_FILENO);
    const int null = open("/dev/null", O_RDWR); // the lowest free descriptor, 0
    dup2(null, STDOUT_FILENO);
    dup2(null, STDERR_FILENO);
}

sigset_t handled_signals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGCHLD, SIGTERM, SIGINT})
        sigaddset(&signals, number);
    return signals;
}

[[noreturn]] void run_worker(int (*work)(), pid_t supervisor, const sigset_t &signals)
{
    // Otherwise a working process whose supervisor was killed would hold the ports.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != supervisor)
        _exit(1);
    sigprocmask(SIG_UNBLOCK, &signals, nullptr);
    work();
    std::quick_exit(0); // other threads may still run and use the globals
}

// Waits until the working process has ended or the daemon is asked to stop. Returns the signal that asked, or
// 0; STATUS and WAITED then have the results of waitpid.
int wait_for_worker(const sigset_t &signals, int &status, pid_t &waited)
{
    for (;;) {
        int number = 0;
        sigwait(&signals, &number);
        if (number != SIGCHLD)
            return number;
        waited = waitpid(-1, &status, WNOHANG);
        if (waited != 0)
            return 0;
    }
}

// True when the process has ended within SECONDS. SIGCHLD is blocked.
bool ends_within(pid_t worker, int64_t seconds)
{
    sigset_t child;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    const int64_t deadline = clock_monotonic() + seconds;
    while (waitpid(worker, nullptr, WNOHANG) == 0) {
        const timespec left = {.tv_sec = deadline - clock_monotonic(), .tv_nsec = 0};
        if (left.tv_sec <= 0)
            return false;
        sigtimedwait(&child, nullptr, &left);
    }
    return true;
}

// A working process that is stopped, or that waits for a dead disk, does not end by itself; one that waits in
// the kernel may not even be killed.
int stop(pid_t worker, int number)
{
    constexpr int64_t patience = 5; // seconds
    log_info("Stopped by signal %d.", number);
    kill(worker, SIGTERM);
    bool has_ended = ends_within(worker, patience);
    if (!has_ended) {
        log_warning("Working process has not ended within %d seconds, kill it.", static_cast<int>(patience));
        kill(worker, SIGKILL);
        has_ended = ends_within(worker, patience);
    }
    if (has_ended)
        finish_save(config_path);
    else
        log_error("Working process %d cannot be killed, it waits in the kernel.", static_cast<int>(worker));
    unlink(local_socket_path);
    return 0;
}

void report_abnormal_end(int status)
{
    log_info("Working process has NOT exited normally, read returned status.");
    log_info("WIFSIGNALED: [%d]", WIFSIGNALED(status));
    log_info("WTERMSIG: [%d]", WTERMSIG(status));
    log_info("WCOREDUMP: [%d]", WCOREDUMP(status));
    log_info("WIFSTOPPED: [%d]", WIFSTOPPED(status));
    log_info("WSTOPSIG: [%d]", WSTOPSIG(status));
    log_info("Try to restart working process.");
}

// Whether the daemon ends after a working process that ended with STATUS.
bool is_final(int status)
{
    if (!WIFEXITED(status)) {
        report_abnormal_end(status);
        return false;
    }
    log_info("Working process has exited with code [%d].", WEXITSTATUS(status));
    if (WEXITSTATUS(status) == 0) {
        log_info("Working process has exited normally.");
        return true;
    }
    log_info("Working process has exited with non-zero status code, restart working process.");
    return false;
}
} // namespace

int start_daemon(const char *name)
{
    if (!name)
        _exit(1);
    log_debug("Starting %s...", name);
    unique_fd pid_file = open_pid_file(name);
    const pid_t child = fork();
    if (child < 0)
        fail_start("Starting daemon failed");
    if (child > 0)
        _exit(0);
    if (chdir("/") != 0)
        fail_start("Failed to set working dir to /", errno);
    lock_and_write_pid(pid_file.get());
    pid_file.release(); // open, and so locked, for the life of the process
    close_standard_streams();
    return setsid();
}

int supervise(int (*work)())
{
    const sigset_t signals = handled_signals();
    // If the parent left it ignored, waitpid would not tell how a child ended.
    signal(SIGCHLD, SIG_DFL);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    const pid_t supervisor = getpid();
    keep_unfinished_saves();
    for (;;) {
        log_info("Create working process.");
        const pid_t worker = fork();
        if (worker < 0) {
            log_error("Failed to create main working process: %s.", strerror(errno));
            return -1;
        }
        if (worker == 0)
            run_worker(work, supervisor, signals);

        int status = 0;
        pid_t waited = 0;
        if (const int number = wait_for_worker(signals, status, waited))
            return stop(worker, number);
        finish_save(config_path);
        if (waited < 0)
            log_error("Failed to get status of terminated working process: %s.", strerror(errno));
        else if (is_final(status))
            return 0;
    }
}
