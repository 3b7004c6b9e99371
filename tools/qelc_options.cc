#include "tools/qelc_options.h"

#include "tools/qelc_help.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace {
// The options of all commands' bodies; whether they fit the command is found out later.
void add_body_options(CLI::App &app, options &wanted)
{
    constexpr int any_number = CLI::detail::expected_max_vector_size;
    for (const std::string &name : body_option_names()) {
        const auto take = [&wanted, name](const CLI::results_t &values) {
            wanted.body_options[name] = values;
            return true;
        };
        app.add_option("--" + name, take)
            ->expected(1, any_number)
            ->allow_extra_args(false)
            ->group(body_group);
    }
    app.footer("Instead of a body, by these options:\n" + body_usage());
}
} // namespace

void add_options(CLI::App &app, options &wanted)
{
    auto *command = app.add_option("command", wanted.command, "name or code of the command");
    command->type_name("NAME|CODE");
    auto *body = app.add_option("body", wanted.body_words, "body of the request, sent as it is");
    body->type_name("XML");
    app.add_option("-f,--file", wanted.body_file, "read the body from a file, - for standard input")
        ->type_name("PATH")
        ->excludes(body);
    app.add_option("--host", wanted.peer.host, "send over TCP instead of the local socket")
        ->type_name("ADDR[:PORT]");
    app.add_option("--socket", wanted.peer.socket_path, "path of the local socket")
        ->type_name("PATH")
        ->capture_default_str();
    app.add_option("--origin", wanted.peer.origin, "sender tag of the request")
        ->type_name("NUMBER")
        ->capture_default_str();
    app.add_option("--timeout", wanted.peer.timeout, "how long to wait for an answer, 0 for ever")
        ->type_name("SECONDS")
        ->capture_default_str();
    auto *raw = app.add_flag("--raw", wanted.raw, "print the answer's body as it came, and nothing else");
    app.add_flag("--json", wanted.json, "print the answer to a verb as JSON, for programs")->excludes(raw);
    app.add_flag("--print-body", wanted.print_body, "print the body of the request, and send nothing");
    app.add_flag("--list", wanted.list, "list the commands and the statuses, and send nothing")
        ->excludes(command);
    add_body_options(app, wanted);
    add_verbs(app, wanted.given_to_verb);
}

void allow_for_slowness(options &wanted, const verb &given)
{
    if (given.seconds)
        wanted.peer.timeout = std::max(wanted.peer.timeout, given.seconds(wanted.given_to_verb));
}
