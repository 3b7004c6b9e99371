#include "base/shell.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
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
} // namespace

shell_pipe shell_read(const char *command)
{
    return shell_pipe(popen(command, "re"));
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
    errno = 0;
    const int status = system(command.c_str());
    if (status == 0)
        return 0;
    if (status != -1)
        errno = 0; // the wait may have set it; that says nothing about the tool
    return -1;
}
