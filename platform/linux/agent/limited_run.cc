#include "platform/linux/agent/limited_run.h"

#include "base/fd.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <thread>

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::seconds death_limit{5}; // a process that waits for a device does not react to SIGKILL
constexpr std::chrono::milliseconds pause_between_looks{10};
constexpr size_t longest_error_line = 300;

// What a program writes to one of its streams.
struct stream {
    unique_fd end;
    std::string text;
    size_t limit = 0;
    bool is_over_limit = false;
};

// Returns the program's end of the pipe; closed on failure.
unique_fd open_pipe(stream *from, size_t limit)
{
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0)
        return unique_fd();
    from->end.reset(ends[0]);
    from->limit = limit;
    from->text.reserve(limit); // nothing runs out of memory while the program runs
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
    return unique_fd(ends[1]);
}

// Takes what is there, but not more than a pipe holds: who writes without end is not to keep us here.
void read_some(stream *from)
{
    char block[16384];
    for (int round = 0; round < 4 && from->end.is_open(); round++) {
        const ssize_t count = read(from->end.get(), block, sizeof block);
        if (count < 0)
            return;
        if (count == 0)
            from->end.reset();
        const size_t room = from->limit - from->text.size();
        from->is_over_limit = from->is_over_limit || static_cast<size_t>(count) > room;
        from->text.append(block, std::min(static_cast<size_t>(count), room));
    }
}

void wait_for_output(const stream &one, const stream &other)
{
    pollfd from[] = {{one.end.get(), POLLIN, 0}, {other.end.get(), POLLIN, 0}};
    poll(from, 2, pause_between_looks.count());
}

bool is_dead_in(std::chrono::seconds limit, pid_t child)
{
    int status = 0;
    const auto end = steady_clock::now() + limit;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(pause_between_looks);
    }
    return true;
}

std::string kill_group(pid_t child, const char *why)
{
    kill(-child, SIGKILL);
    return is_dead_in(death_limit, child) ? std::string("killed, as it ") + why
                                          : std::string("it ") + why + " and cannot be killed";
}

void watch(pid_t child, const run_limits &limits, stream *output, stream *errors, run_result *result)
{
    const auto end = steady_clock::now() + limits.time;
    for (;;) {
        int status = 0;
        const pid_t ended = waitpid(child, &status, WNOHANG);
        const int error = errno;
        read_some(output);
        read_some(errors);
        if (output->is_over_limit)
            result->complaint = ended == 0 ? kill_group(child, "wrote too much") : "it wrote too much";
        else if (ended < 0 && error != EINTR)
            result->complaint = strerror(error);
        else if (ended > 0 && WIFSIGNALED(status))
            result->complaint = "ended by signal " + std::to_string(WTERMSIG(status));
        else if (ended <= 0 && steady_clock::now() > end)
            result->complaint = kill_group(child, "took too long");
        else if (ended <= 0) {
            wait_for_output(*output, *errors);
            continue;
        }
        result->exit_status = ended > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return;
    }
}

} // namespace

run_result run_limited(tool_start tool, const run_limits &limits)
{
    run_result result;
    stream output, errors;
    unique_fd output_end, errors_end;
    tool.leads_group = true; // so that it can be killed with all that it started
    if (limits.output > 0) {
        output_end = open_pipe(&output, limits.output);
        errors_end = open_pipe(&errors, longest_error_line);
        tool.output = output_end.get();
        tool.errors = errors_end.get();
    }
    pid_t child = -1;
    int error = limits.output > 0 && !(output_end.is_open() && errors_end.is_open()) ? errno : 0;
    if (error == 0)
        error = start_tool(tool, &child);
    output_end.reset();
    errors_end.reset();
    if (error != 0)
        result.complaint = strerror(error);
    else
        watch(child, limits, &output, &errors, &result);
    result.output = std::move(output.text);
    result.first_error_line = errors.text.substr(0, errors.text.find('\n'));
    return result;
}
