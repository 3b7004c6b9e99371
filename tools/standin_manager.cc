// standin-manager: plays the manager's part towards a daemon, for demonstrations and tests.

#include "tools/manager_commands.h"
#include "tools/manager_serve.h"

namespace {
CLI::App *add_command(CLI::App &app, const char *name, const char *description, host_options &wanted)
{
    CLI::App *command = app.add_subcommand(name, description);
    command->add_option("host", wanted.host, "ADDR[:PORT] of the daemon")->required();
    command->add_option("--timeout", wanted.timeout, "seconds to wait for the answer")->capture_default_str();
    return command;
}
} // namespace

int main(int argc, char **argv)
{
    init_tool();
    CLI::App app{
        "Plays the manager's part towards a qelcd daemon: takes its heartbeats, prints a line for each, and\n"
        "answers with the manager's record. A subcommand sends a command instead."};
    app.require_subcommand(0, 1);
    serve_options serve_wanted;
    add_serve_options(app, serve_wanted);

    host_options host;
    const CLI::App *scan_command =
        add_command(app, "scan", "ask a host that no manager has adopted what it is", host);
    CLI::App *adopt_command = add_command(app, "adopt", "become the manager of a host", host);
    manager_record manager{.guid = default_manager_guid, .ips = {}, .target_iqn = {}};
    add_manager_options(*adopt_command, manager);
    CLI::App *release_command = add_command(app, "release", "be the manager of a host no longer", host);
    release_command->add_option("--guid", manager.guid, "the manager's GUID")->capture_default_str();
    std::string client_guid;
    release_command->add_option("--client-guid", client_guid, "the host's GUID, if it is not to be asked");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        constexpr int exit_usage = 2;
        return app.exit(error) == 0 ? EXIT_SUCCESS : exit_usage;
    }
    if (scan_command->parsed())
        return scan(host);
    if (adopt_command->parsed())
        return adopt(host, manager);
    if (release_command->parsed())
        return release(host, manager.guid, client_guid);
    return serve(serve_wanted);
}
