#include "tools/manager_options.h"

#include <cerrno>
#include <cstring>
#include <fstream>

namespace {
std::string check_address(const std::string &text)
{
    return is_address(text) ? "" : text + " is not an IPv4 address";
}

void add_treatment_options(CLI::App &app, treatment &treat)
{
    add_manager_options(app, treat.manager);
    app.add_option("--answer", treat.answer, "answer every report with this status")->capture_default_str();
    app.add_option("--stall", treat.stall, "seconds to wait before every answer")->capture_default_str();
    app.add_flag("--refuse", treat.refuse, "close every connection at once");
    app.add_flag("--cut", treat.cut, "end every connection in the middle of the answer");
    app.add_option("--chance", treat.chance,
                   "percent of the connections that meet the last four, the others are answered well")
        ->check(CLI::Range(100))
        ->capture_default_str();
    app.add_option("--seed", treat.seed, "equal seeds choose equal connections")->capture_default_str();
    app.add_flag("--long", treat.long_form, "print each report at length, too");
}

// A line as an argument of the command line; "" for one that holds no option.
std::string argument_of(const std::string &line)
{
    constexpr char blanks[] = " \t\r";
    const size_t name = line.find_first_not_of(blanks);
    if (name == std::string::npos || line[name] == '#')
        return "";
    const size_t name_end = std::min(line.find_first_of(blanks, name), line.size());
    std::string argument = "--" + line.substr(name, name_end - name);
    const size_t value = line.find_first_not_of(blanks, name_end);
    if (value == std::string::npos)
        return argument;
    return argument + "=" + line.substr(value, line.find_last_not_of(blanks) - value + 1);
}

// False, with ERROR set, when they are no options of a treatment; TREAT may have been changed then.
bool parse(std::vector<std::string> arguments, treatment &treat, std::string &error)
{
    CLI::App app;
    app.set_help_flag();
    add_treatment_options(app, treat);
    std::reverse(arguments.begin(), arguments.end()); // the parser takes them from the back
    try {
        app.parse(arguments);
    } catch (const CLI::ParseError &failure) {
        error = failure.what();
        return false;
    }
    return true;
}
} // namespace

void add_manager_options(CLI::App &app, manager_record &manager)
{
    app.add_option("--guid", manager.guid, "the manager's GUID in its record")->capture_default_str();
    app.add_option("--ip", manager.ips,
                   "an address of the manager in its record; may be given several times, and is where the "
                   "connection comes in when not given")
        ->allow_extra_args(false)
        ->check(check_address);
    app.add_option("--target-iqn", manager.target_iqn, "the iSCSI target in its record");
}

void add_serve_options(CLI::App &app, serve_options &wanted)
{
    app.add_option("--bind", wanted.bind, "local IPv4 address to listen on")->capture_default_str();
    app.add_option("--port", wanted.port, "port to listen on")->capture_default_str();
    app.add_option("--count", wanted.count, "end after so many reports, 0 for never")->capture_default_str();
    app.add_option("--control", wanted.control,
                   "at SIGHUP, lay the options in this file over those given here: one a line, \"stall 3\"; "
                   "all but bind, port, count and control");
    add_treatment_options(app, wanted.treat);
}

bool apply_control_file(const std::string &path, treatment &treat, std::string &error)
{
    std::ifstream file(path);
    std::vector<std::string> arguments;
    unsigned number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        const std::string argument = argument_of(line);
        if (argument.empty())
            continue;
        treatment alone;
        if (!parse({argument}, alone, error)) {
            error = path + ":" + std::to_string(number) + ": " + error;
            return false;
        }
        arguments.push_back(argument);
    }
    if (!file.eof()) { // not opened, or not read to its end
        error = path + ": " + strerror(errno);
        return false;
    }
    treatment changed = treat;
    if (!parse(arguments, changed, error)) {
        error = path + ": " + error;
        return false;
    }
    treat = std::move(changed);
    return true;
}
