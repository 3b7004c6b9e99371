#include "tools/manager/options.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <fstream>

namespace {
// --- Declarations ------------------------------------------------------------------------------------

void add_guid_option(CLI::App &app, manager_record &manager)
{
    app.add_option("--guid", manager.guid, "GUID of the manager")->capture_default_str();
}

void add_manager_options(CLI::App &app, manager_record &manager)
{
    add_guid_option(app, manager);
    app.add_option("--ip", manager.ips,
                   "address of the manager, may be repeated; default:\n"
                   "where the connection comes in")
        ->allow_extra_args(false)
        ->check(check_address);
    app.add_option("--target-iqn", manager.target_iqn, "iSCSI target of the manager");
}

void add_treatment_options(CLI::App &app, treatment &treat)
{
    add_manager_options(app, treat.manager);
    app.add_option("--answer", treat.answer, "status of every answer")->capture_default_str();
    app.add_option("--stall", treat.stall, "seconds to wait before every answer")->capture_default_str();
    app.add_flag("--refuse", treat.refuse, "close every connection at once");
    app.add_flag("--cut", treat.cut, "end every connection in the middle of the answer");
    app.add_option("--chance", treat.chance,
                   "percent of connections that get the four above;\n"
                   "the others are answered well")
        ->check(CLI::Range(100).description(""))
        ->capture_default_str();
    app.add_option("--seed", treat.seed, "the same seed chooses the same connections")->capture_default_str();
    app.add_flag("--long", treat.long_form, "also print each report at length");
}

void add_serve_options(CLI::App &app, serve_options &wanted)
{
    app.add_option("--bind", wanted.bind, "local IPv4 address to listen on")->capture_default_str();
    app.add_option("--port", wanted.port, "port to listen on")->capture_default_str();
    app.add_option("--count", wanted.count, "end after so many reports, 0: never")->capture_default_str();
    app.add_option("--control", wanted.control,
                   "file to read at SIGHUP: options that override\n"
                   "those given here, one a line (\"stall 3\"), but\n"
                   "not bind, port, count, state and control");
    app.add_option("--state", wanted.state,
                   "folder to keep what is known of the hosts;\n"
                   "instead of a line for each report, news are\n"
                   "printed, and the command \"hosts\" has a list");
    add_treatment_options(app, wanted.treat);
}

void add_state_option(CLI::App &app, std::string &folder)
{
    app.add_option("--state", folder, "the folder of the service")->capture_default_str();
}

CLI::App *add_command(CLI::App &app, const char *name, const char *description, host_options &wanted)
{
    CLI::App *command = app.add_subcommand(name, description);
    command->add_option("host", wanted.host, "ADDR[:PORT] of the daemon")->required();
    command->add_option("--timeout", wanted.timeout, "seconds to wait for the answer")->capture_default_str();
    return command;
}

void add_commands(CLI::App &app, options &wanted)
{
    add_command(app, "scan", "ask a host without a manager what it is", wanted.host);
    CLI::App *adopt = add_command(app, "adopt", "become the manager of a host", wanted.host);
    add_manager_options(*adopt, wanted.manager);
    CLI::App *release = add_command(app, "release", "stop being the manager of a host", wanted.host);
    add_guid_option(*release, wanted.manager);
    release->add_option("--client-guid", wanted.client_guid, "GUID of the host; default: ask the host");
    add_state_option(*release, wanted.state);
    CLI::App *hosts =
        app.add_subcommand("hosts", "list the hosts that report to the service, the worst first");
    hosts->add_flag("--json", wanted.as_json, "for programs");
    add_state_option(*hosts, wanted.state);
    CLI::App *forget = app.add_subcommand("forget", "take a host that is gone off that list");
    forget->add_option("host", wanted.forgotten, "name, address or ID")->required();
    add_state_option(*forget, wanted.state);
}

manager_task task_of(const std::string &command)
{
    return command == "scan"      ? manager_task::scan
           : command == "adopt"   ? manager_task::adopt
           : command == "release" ? manager_task::release
           : command == "hosts"   ? manager_task::hosts
                                  : manager_task::forget;
}

// --- The control file --------------------------------------------------------------------------------

// The option of a line, in the form of the command line; "" for a line without one.
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

// On failure returns false and sets ERROR; TREAT may have changed.
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

std::optional<int> parse_command_line(int argc, const char *const *argv, options &wanted)
{
    CLI::App app{"Plays the manager's part towards a qelcd daemon: takes its heartbeats, prints a\n"
                 "line for each, and answers with the manager's record. With a subcommand, it\n"
                 "sends a command to a host instead.",
                 program_invocation_short_name};
    app.set_help_flag("-h,--help", "print this help");
    app.require_subcommand(0, 1);
    add_serve_options(app, wanted.serve);
    add_commands(app, wanted);

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp &help) {
        return app.exit(help);
    } catch (const CLI::ParseError &error) {
        constexpr int exit_usage = 2;
        fprintf(stderr, "%s: %s\n", program_invocation_short_name, error.what());
        return exit_usage;
    }
    const std::vector<CLI::App *> given = app.get_subcommands();
    wanted.task = given.empty() ? manager_task::serve : task_of(given.front()->get_name());
    return std::nullopt;
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
