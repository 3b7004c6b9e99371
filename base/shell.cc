#include "base/shell.h"

#include "base/tool.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

namespace {
// Characters that a shell takes literally anywhere in a word. All others are refused, even '~' and '#', which
// are special only at the beginning.
bool is_plain(unsigned char byte)
{
    constexpr std::string_view punctuation = "%+,-./:=@_";
    return byte >= 0x80 || (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
           (byte >= 'a' && byte <= 'z') ||
           punctuation.find(static_cast<char>(byte)) != std::string_view::npos;
}

bool is_plain_line(const std::string &command)
{
    for (size_t begin = 0;;) {
        const size_t end = std::min(command.find(' ', begin), command.size());
        if (!is_plain_word(command.substr(begin, end - begin)))
            return false;
        if (end == command.size())
            return true;
        begin = end + 1;
    }
}

tool_start shell_start(const std::string &command)
{
    return {.words = {"/bin/sh", "-c", command}};
}

// 0 if the tool was run and ended with exit status 0; else -1 with errno, which is 0 if it was run.
int run(const tool_start &tool)
{
    pid_t child = -1;
    int status = 0;
    errno = start_tool(tool, &child);
    if (errno == 0)
        errno = wait_for_tool(child, &status);
    return errno == 0 && status == 0 ? 0 : -1;
}
} // namespace

shell_pipe::~shell_pipe()
{
    output_.reset(); // a tool that still writes must not wait for us
    int status = 0;
    if (child_ > 0)
        wait_for_tool(child_, &status);
}

shell_pipe shell_read(const char *command)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return {};
    unique_fd reader(ends[0]);
    const unique_fd writer(ends[1]);
    file_stream output(fdopen(reader.get(), "r"));
    if (!output)
        return {};
    reader.release(); // the stream closes it
    tool_start tool = shell_start(command);
    tool.output = writer.get();
    pid_t child = -1;
    errno = start_tool(tool, &child);
    if (errno != 0)
        return {};
    return {std::move(output), child};
}

bool is_plain_word(const std::string &text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), is_plain);
}

int shell_run(const std::string &command)
{
    if (!is_plain_line(command)) {
        errno = EINVAL;
        return -1;
    }
    return run(shell_start(command));
}
