#include "tools/qelc/command_line.h"

#include "tools/common/text_table.h"
#include "tools/qelc/help.h"
#include "tools/qelc/nearest.h"
#include "tools/qelc/outcome.h"
#include "tools/qelc/verb_pages.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>

namespace {
// For the build and the completions of the shells, not for people; verb_pages.h.
constexpr std::string_view verb_page_option = "--verbs-for";

// --- Declarations ------------------------------------------------------------------------------------

CLI::Option *add_body(CLI::App &app, options &wanted)
{
    return app.add_option("body", wanted.body_words, "body of the request, sent as it is")->type_name("XML");
}

void add_general_options(CLI::App &app, options &wanted)
{
    app.set_help_flag("-h,--help", "print this help");
    auto *command = app.add_option("command", wanted.command, "name or code of the command");
    command->type_name("NAME|CODE");
    CLI::Option *body = add_body(app, wanted);
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
    app.add_option("--timeout", wanted.peer.timeout, "how long to wait for an answer, 0: forever")
        ->type_name("SECONDS")
        ->capture_default_str();
    auto *raw = app.add_flag("--raw", wanted.raw, "print only the body of the answer, unchanged");
    app.add_flag("--json", wanted.json, "print a verb's answer as JSON, for programs")->excludes(raw);
    app.add_flag("--wide", are_tables_wide, "do not cut tables to the width of the terminal");
    app.add_flag("--print-body", wanted.print_body, "print the body of the request, send nothing");
    app.add_flag("--list", wanted.list, "list all commands and statuses, send nothing")->excludes(command);
}

CLI::App &add_subcommand(CLI::App &app, const std::string &name, const char *description, const char *group)
{
    return *app.add_subcommand(name, description)->group(group)->fallthrough();
}

// A body that is given as such takes the place of the options, also of those that are required.
void add_body_command(CLI::App &app, const body_command &one, options &wanted)
{
    CLI::App &command = add_subcommand(app, name_of(one.code), one.description, "Commands with options");
    command.alias(std::to_string(one.code));
    one.add_options(command, wanted.for_command);
    const std::vector<CLI::Option *> declared = command.get_options();
    CLI::Option *file = app.get_option("--file");
    CLI::Option *body = add_body(command, wanted)->excludes(file);
    for (CLI::Option *given : {body, file}) {
        for (CLI::Option *option : declared)
            given->excludes(option);
        given->each([declared](const std::string & /*value*/) {
            for (CLI::Option *option : declared)
                option->required(false);
        });
    }
}

// Whether the options of that subcommand may be asked for. Those of all would cost a third of the start.
bool is_named(const std::vector<std::string> &words, const std::string &name)
{
    const std::string first = name.substr(0, name.find(' '));
    return std::ranges::any_of(
        words, [&](const std::string &word) { return word == first || word == verb_page_option; });
}

// Adds the verbs whose names are FRONT and one word; WORDS are those of the command line.
void add_verbs(CLI::App &app, const std::string &front, const std::vector<std::string> &words,
               options &wanted)
{
    for (const std::span<const verb> family : verb_families()) {
        for (const verb &one : family) {
            const std::string name = one.name;
            if (!name.starts_with(front) || name.find(' ', front.size()) != std::string::npos)
                continue;
            CLI::App &subcommand = add_subcommand(app, name.substr(front.size()), one.description, "Verbs");
            if (is_named(words, name))
                one.add_options(subcommand, wanted.for_verb);
        }
    }
}

void declare(CLI::App &app, const std::vector<std::string> &words, options &wanted)
{
    add_general_options(app, wanted);
    app.require_subcommand(0, 1);
    for (const body_command &one : body_commands())
        add_body_command(app, one, wanted);
    add_verbs(app, "", words, wanted);
    for (const verb_kind &kind : verb_kinds()) {
        const std::vector<CLI::App *> same =
            app.get_subcommands([&](const CLI::App *one) { return one->get_name() == kind.name; });
        CLI::App *verb_too = same.empty() ? nullptr : same.front();
        CLI::App &subcommand =
            verb_too ? *verb_too : add_subcommand(app, kind.name, kind.description, "Verbs");
        subcommand.require_subcommand(verb_too ? 0 : 1, 1);
        add_verbs(subcommand, kind.name + std::string(" "), words, wanted);
    }
}

// --- What was given ----------------------------------------------------------------------------------

// The innermost subcommand on the command line; APP itself if there is none.
const CLI::App &parsed_app(const CLI::App &app)
{
    const std::vector<CLI::App *> subcommands = app.get_subcommands();
    return subcommands.empty() ? app : parsed_app(*subcommands.front());
}

std::optional<uint32_t> find_code(const std::string &command)
{
    for (const command_name &known : command_names) {
        if (command == known.name)
            return known.code;
    }
    uint32_t code = 0;
    const char *last = command.data() + command.size();
    const auto [end, failure] = std::from_chars(command.data(), last, code);
    return failure == std::errc() && end == last ? std::optional(code) : std::nullopt;
}

// An argument that belongs to nothing; "" for none.
std::string unknown_argument(const CLI::App &app)
{
    for (const std::string &argument : app.remaining(true)) {
        if (argument != "--")
            return argument;
    }
    return "";
}

// An option that has more values than it takes, of APP or of those above it; "" for none.
std::string repeated_option(const CLI::App &app)
{
    for (const CLI::Option *option : app.get_options()) {
        const int most = option->get_items_expected_max();
        if (most > 0 && option->count() > static_cast<size_t>(most))
            return option->get_name();
    }
    return app.get_parent() ? repeated_option(*app.get_parent()) : "";
}

// Commands, kinds of verbs, and verbs.
std::vector<std::string> known_words()
{
    std::vector<std::string> words;
    for (const command_name &known : command_names)
        words.emplace_back(known.name);
    for (const verb_kind &kind : verb_kinds())
        words.emplace_back(kind.name);
    for (const std::span<const verb> family : verb_families()) {
        for (const verb &one : family)
            words.emplace_back(one.name);
    }
    return words;
}

// The same for two words that may be meant as one verb, else for the first one alone.
std::string did_you_mean_either(const std::string &first, const std::string &second)
{
    const std::vector<std::string> known = known_words();
    const std::string both = second.empty() ? "" : did_you_mean(first + " " + second, known);
    return both.empty() ? did_you_mean(first, known) : both;
}

// "--every: 1 required INTERVAL missing", as the parser says it, in words.
std::string in_words(const std::string &failure)
{
    constexpr std::string_view before = ": 1 required ", after = " missing";
    const size_t name = failure.find(before);
    if (name == std::string::npos || !failure.ends_with(after))
        return failure;
    const std::string type = failure.substr(name + before.size());
    return failure.substr(0, name) + " needs a value: " + type.substr(0, type.size() - after.size());
}

// What is wrong with the command line; "" for nothing. FAILURE is what the parser says.
std::string complaint_about(const CLI::App &app, const options &wanted, const std::string &failure)
{
    const CLI::App &last = parsed_app(app);
    const bool is_command = wanted.with_options || (&last == &app && !wanted.command.empty());
    if (is_command && !find_code(wanted.command))
        return "there is no such verb or command" +
               did_you_mean_either(wanted.command,
                                   wanted.body_words.empty() ? "" : wanted.body_words.front());
    const bool is_kind = last.get_require_subcommand_min() > 0 && last.get_subcommands().empty();
    if (is_kind && !wanted.command.empty())
        return wanted.command + " is none of its verbs" +
               did_you_mean(full_name_of(last) + " " + wanted.command, known_words());
    // What the parser finds missing may be so because of an unknown argument.
    std::string stray = unknown_argument(app);
    if (stray.empty() && wanted.given_verb)
        stray = !wanted.command.empty() ? wanted.command : !wanted.body_file.empty() ? "--file" : "";
    if (stray.starts_with("--") && &last != &app && last.get_option_no_throw(stray))
        return stray + " belongs after " + full_name_of(last);
    if (!stray.empty())
        return stray + " does not belong " +
               (wanted.given_verb ? "to this verb"
                : is_command      ? "to this command"
                                  : "here") +
               (wanted.given_verb ? did_you_mean(full_name_of(last) + " " + stray, known_words()) : "");
    if (is_kind)
        return "a verb is required";
    if (!failure.empty()) {
        const std::string repeated = repeated_option(last);
        return repeated.empty() ? in_words(failure) : repeated + " is given more than once";
    }
    if (is_command && wanted.json)
        return "--json goes with a verb";
    if (wanted.given_verb && wanted.given_verb->asks_no_daemon() &&
        (!wanted.peer.host.empty() || wanted.print_body || wanted.raw))
        return "this verb asks no daemon: --host, --print-body and --raw do not go with it";
    if (wanted.given_verb && wanted.given_verb->look && (wanted.print_body || wanted.raw))
        return "--print-body and --raw do not go with this verb";
    if (wanted.given_verb && wanted.print_body && !wanted.for_verb.where.empty())
        return "--print-body does not go with --in: the volume has no GUID before it is made";
    if (wanted.given_verb && wanted.given_verb->act && !wanted.given_verb->only_shows && wanted.raw)
        return "--raw does not go with a verb that changes something";
    return wanted.given_verb ? wanted.given_verb->complaint(wanted.for_verb) : "";
}

// What to type after a complaint; "" for what is no verb.
std::string hint_for(const std::string &subject, bool is_verb)
{
    if (is_verb)
        return "qelc help " + subject + " shows its options";
    if (std::ranges::find(verb_kinds(), subject, &verb_kind::name) != verb_kinds().end())
        return "qelc help " + subject + " lists its verbs";
    return subject.empty() || find_code(subject) ? ""
                                                 : "qelc --help lists the verbs, qelc --list the commands";
}

// Words that name no verb are parsed as they stand, for the error. That is harmless, as they are not known:
// the first one, or the second one after a kind of verbs.
bool is_verb_named(const std::vector<std::string> &words)
{
    const std::vector<std::string> known = known_words();
    const auto is_known = [&](const std::string &name) {
        return std::ranges::find(known, name) != known.end();
    };
    const bool has_second = words.size() > 1 && !words[1].starts_with('-') &&
                            std::ranges::find(verb_kinds(), words[0], &verb_kind::name) != verb_kinds().end();
    return is_known(has_second ? words[0] + " " + words[1] : words[0]);
}

// "help VERB..." is "VERB... --help", if there is such a verb.
std::vector<std::string> with_help_last(int argc, const char *const *argv)
{
    std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
    if (!words.empty() && words.front() == "help") {
        words.erase(words.begin());
        if (words.empty() || is_verb_named(words))
            words.emplace_back("--help");
    }
    std::ranges::reverse(words); // as the parser takes them
    return words;
}

const body_command *find_body_command(const std::string &name)
{
    const auto commands = body_commands();
    const auto found = std::ranges::find(
        commands, name, [](const body_command &one) { return std::string(name_of(one.code)); });
    return found == commands.end() ? nullptr : &*found;
}
} // namespace

std::optional<int> parse_command_line(int argc, const char *const *argv, options &wanted)
{
    CLI::App app{"Sends one command to a qelcd daemon and prints the status and the answer.\n"
                 "Exit status: 0 done, 1 refused or failed, 2 wrong usage, 3 the daemon cannot be\n"
                 "reached or does not answer, 4 no such thing, 5 not adopted, 6 partly done.",
                 "qelc"};
    app.formatter(help_format());
    app.set_version_flag("--version", "qelc " QELCD_VERSION, "print the version");
    declare(app, std::vector<std::string>(argv + std::min(argc, 1), argv + argc), wanted);
    if (const auto page = argc == 3 && argv[1] == verb_page_option ? verb_page(app, argv[2]) : std::nullopt) {
        fputs(page->c_str(), stdout);
        return exit_ok;
    }
    std::string failure;
    try {
        app.parse(with_help_last(argc, argv));
    } catch (const CLI::CallForHelp &) {
        fputs(app.help().c_str(), stdout);
        return exit_ok;
    } catch (const CLI::CallForVersion &version) {
        puts(version.what());
        return exit_ok;
    } catch (const CLI::ParseError &error) {
        failure = error.what();
    }

    const std::string name = full_name_of(parsed_app(app));
    wanted.given_verb = find_verb(name);
    wanted.with_options = find_body_command(name);
    if (wanted.with_options)
        wanted.command = name;
    const std::string subject = name.empty() ? wanted.command : name;
    if (const std::string complaint = complaint_about(app, wanted, failure); !complaint.empty()) {
        const std::string hint = hint_for(subject, wanted.given_verb);
        if (hint.empty() && !wanted.json)
            return fail(exit_usage, subject.empty() ? "command line" : subject, complaint);
        return print_outcome(subject, {exit_usage, complaint, hint}, wanted.json);
    }
    if (subject.empty() && !wanted.list) {
        fputs(app.help().c_str(), stderr);
        return exit_usage;
    }
    wanted.code = wanted.given_verb ? wanted.given_verb->code : find_code(wanted.command).value_or(0);
    if (wanted.given_verb && wanted.given_verb->look && app.count("--timeout") == 0)
        wanted.peer.timeout = look_patience;
    if (wanted.given_verb && wanted.given_verb->seconds && app.count("--timeout") == 0)
        wanted.peer.timeout = std::max(wanted.peer.timeout, wanted.given_verb->seconds(wanted.for_verb));
    return std::nullopt;
}
