#include "tools/qelc/password.h"

#include "base/file.h"
#include "base/xml.h"

#include <termios.h>

#include <cerrno>
#include <csignal>
#include <cstring>

namespace {
termios before_prompt; // of standard input, for the signal handler

void restore_and_die(int signal)
{
    tcsetattr(STDIN_FILENO, TCSANOW, &before_prompt);
    raise(signal); // takes its default effect when this handler returns
}

// Turns off the echo of the terminal on standard input, until it is destroyed or a signal ends the process.
class silent_terminal {
public:
    silent_terminal()
    {
        tcgetattr(STDIN_FILENO, &before_prompt);
        struct sigaction dying {};
        dying.sa_handler = restore_and_die;
        dying.sa_flags = static_cast<int>(SA_RESETHAND);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
            sigaction(signal, &dying, nullptr);
        termios silent = before_prompt;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        silent.c_cc[VSUSP] = _POSIX_VDISABLE; // a stopped process would leave the terminal like this
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    }
    ~silent_terminal()
    {
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_prompt);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
            std::signal(signal, SIG_DFL);
    }
    silent_terminal(const silent_terminal &) = delete;
    silent_terminal &operator=(const silent_terminal &) = delete;
};

optional_text read_line(FILE *from)
{
    char *buffer = nullptr;
    size_t size = 0;
    const ssize_t length = getline(&buffer, &size, from);
    const malloc_text owner(buffer);
    if (length < 0)
        return std::nullopt;
    std::string line(buffer, static_cast<size_t>(length));
    if (line.ends_with('\n'))
        line.pop_back();
    return line;
}

optional_text ask_at_terminal(const std::string &prompt)
{
    const silent_terminal silent;
    fputs(prompt.c_str(), stderr);
    optional_text line = read_line(stdin);
    fputs("\n", stderr); // the user's own was not echoed
    return line;
}

// Characters that XML cannot carry would be replaced on the way, and the password would be wrong.
bool survives_document(const std::string &text)
{
    const xml_doc doc = xml_new_document("Tessaron");
    xml_add_attribute(xml_root(doc), "Text", text);
    return xml_attribute(xml_root(doc), "Text") == text;
}

optional_text checked(optional_text password, std::string &error)
{
    if (!password || password->empty())
        error = "no password";
    else if (!survives_document(*password))
        error = "the password has characters that XML cannot carry";
    else
        return password;
    return std::nullopt;
}
} // namespace

optional_text read_password(const std::string &file, const std::string &prompt, std::string &error)
{
    if (file.empty() || file == "-") {
        if (isatty(STDIN_FILENO))
            return checked(ask_at_terminal(prompt), error);
        if (file.empty()) {
            error = "--password-file is required if standard input is not a terminal";
            return std::nullopt;
        }
        return checked(read_line(stdin), error);
    }
    const file_stream opened(fopen(file.c_str(), "re"));
    if (!opened) {
        error = file + ": " + strerror(errno);
        return std::nullopt;
    }
    return checked(read_line(opened.get()), error);
}
